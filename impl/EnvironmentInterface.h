#pragma once

#include <hidl/Status.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentInterface.h>

#include "activity_recognition_legacy.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::sp;
using ::android::hardware::Return;
using ::android::hardware::Void;

struct EnvironmentInterface : public V1_1::IEnvironmentInterface {
    explicit EnvironmentInterface(const environment_interface* impl);
    ~EnvironmentInterface() override;

    // V1_0::IEnvironmentInterface
    Return<void> registerEnvironmentCallback(
            const sp<V1_0::IEnvironmentChangedCallback>& callback) override;
    Return<void> getSupportedEnvironmentsList(getSupportedEnvironmentsList_cb _hidl_cb) override;
    Return<int32_t> initEnvironment(uint32_t environment, const V1_0::OtherParams& params) override;
    Return<int32_t> exitEnvironment(uint32_t environment, const V1_0::OtherParams& params) override;
    Return<int32_t> enableEnvironment(uint32_t environment, uint32_t eventType,
                                      int64_t reportLatencyNs,
                                      const V1_0::OtherParams& params) override;
    Return<int32_t> disableEnvironment(uint32_t environment, uint32_t eventType) override;
    Return<void> getCurrentEnvironment(getCurrentEnvironment_cb _hidl_cb) override;

    // V1_1::IEnvironmentInterface
    Return<void> registerEnvironmentCallbackV1_1(
            const sp<V1_1::IEnvironmentChangedCallback>& callback) override;
    Return<void> getCurrentEnvironmentV1_1(getCurrentEnvironmentV1_1_cb _hidl_cb) override;

  private:
    static void EnvChangedCb(const ar_context_event* events, int count);

    static bool sInterfaceExists;
    static const environment_callbacks sEnvCb;

    const environment_interface* mImpl;
};

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
