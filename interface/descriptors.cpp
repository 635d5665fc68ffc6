// Interface descriptors of the vendor package, as the platform's generated sources define them.
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {

namespace V1_0 {
const char* IActivityRecognition::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.0::IActivityRecognition";
const char* IActivityInterface::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.0::IActivityInterface";
const char* IEnvironmentInterface::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.0::IEnvironmentInterface";
const char* IActivityChangedCallback::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.0::IActivityChangedCallback";
const char* IEnvironmentChangedCallback::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.0::IEnvironmentChangedCallback";
}  // namespace V1_0

namespace V1_1 {
const char* IActivityRecognition::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.1::IActivityRecognition";
const char* IActivityInterface::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.1::IActivityInterface";
const char* IEnvironmentInterface::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.1::IEnvironmentInterface";
const char* IActivityChangedCallback::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.1::IActivityChangedCallback";
const char* IEnvironmentChangedCallback::descriptor =
        "vendor.quarn.hardware.activity_recognition@1.1::IEnvironmentChangedCallback";
}  // namespace V1_1

}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
