#pragma once

#include <hidl/Status.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

#include <atomic>

#include "ActivityInterface.h"
#include "EnvironmentInterface.h"
#include "activity_recognition_legacy.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::sp;
using ::android::hardware::Return;

// The service object: owns the opened legacy device and hands out the one activity interface
// and the one environment interface, each created on first demand.
struct ActivityRecognition : public V1_1::IActivityRecognition {
    ActivityRecognition(activity_recognition_module* module, activity_recognition_device* device);
    ~ActivityRecognition() override;

    // V1_0::IActivityRecognition
    Return<sp<V1_0::IActivityInterface>> getActivityInterface() override;
    Return<sp<V1_0::IEnvironmentInterface>> getEnvironmentInterface() override;

    // V1_1::IActivityRecognition
    Return<sp<V1_1::IActivityInterface>> getActivityInterfaceV1_1() override;
    Return<sp<V1_1::IEnvironmentInterface>> getEnvironmentInterfaceV1_1() override;

  private:
    activity_recognition_device* mDevice;
    activity_recognition_module* mModule;
    sp<ActivityInterface> mActivityInterface;
    sp<EnvironmentInterface> mEnvironmentInterface;
    // Set once mActivityInterface is stored, and never cleared: the getters test it without the
    // lock, and a caller that sees it set also sees the stored interface.
    std::atomic<bool> mActivityInterfaceReady;
};

extern "C" IActivityRecognition* HIDL_FETCH_IActivityRecognition(const char* name);

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
