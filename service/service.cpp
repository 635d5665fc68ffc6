// The vendor service of the activity recognition HAL: hosts the passthrough implementation
// library and registers its object as the "default" instance, for clients of both package versions.
#define LOG_TAG "vendor.quarn.hardware.activity_recognition@1.1-service"

#include <hidl/LegacySupport.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

using ::android::hardware::defaultPassthroughServiceImplementation;
using ::vendor::quarn::hardware::activity_recognition::V1_1::IActivityRecognition;

namespace {

// Binder threads, the main thread among them. Client calls arrive in parallel and a fan-out holds
// the client lock across its calls into clients, so one slow client must not hold up the calls
// of the others; death notices arrive on these threads too.
constexpr size_t kBinderThreads = 4;

}  // namespace

int main() {
    return defaultPassthroughServiceImplementation<IActivityRecognition>("default", kBinderThreads);
}
