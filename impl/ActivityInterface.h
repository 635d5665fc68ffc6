#pragma once

#include <hidl/Status.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityInterface.h>

#include "activity_recognition_legacy.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;

struct ActivityInterface : public V1_1::IActivityInterface {
    explicit ActivityInterface(const activity_interface* impl);
    ~ActivityInterface() override;

    // V1_0::IActivityInterface
    Return<void> registerActivityCallback(
            const sp<V1_0::IActivityChangedCallback>& callback) override;
    Return<void> getSupportedActivitiesList(getSupportedActivitiesList_cb _hidl_cb) override;
    Return<int32_t> enableActivityEvent(uint32_t activity, uint32_t eventType,
                                        int64_t reportLatencyNs) override;
    Return<int32_t> enableActivityEventExtend(uint32_t activity, uint32_t eventType,
                                              int64_t reportLatencyNs,
                                              const V1_0::OtherParams& params) override;
    Return<void> getCurrentActivity(getCurrentActivity_cb _hidl_cb) override;
    Return<int32_t> disableActivityEvent(uint32_t activity, uint32_t eventType) override;
    Return<int32_t> flush() override;

    // V1_1::IActivityInterface
    Return<void> registerActivityCallbackV1_1(
            const sp<V1_1::IActivityChangedCallback>& callback) override;
    Return<void> getCurrentActivityV1_1(getCurrentActivityV1_1_cb _hidl_cb) override;

    // Legacy records to HIDL records; used by the environment side too.
    static V1_0::ActivityEvent convertAEToAEV1_0(activity_event event);
    static V1_1::ActivityEventV1_1 convertAEToAEV1_1(activity_event event);
    static V1_0::ActivityEventExtend convertACEToAEEV1_0(ar_context_event event);
    static V1_1::ActivityEventExtendV1_1 convertACEToAEEV1_1(ar_context_event event);

  private:
    static void ActChangedCb(const activity_event* events, int count);
    static void ActExtendChangedCb(const ar_context_event* events, int count);

    static bool sInterfaceExists;
    static const activity_callbacks sActCb;

    const activity_interface* mImpl;
};

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
