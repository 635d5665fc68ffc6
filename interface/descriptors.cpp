// Interface descriptors of the vendor package, as the platform's generated sources define them,
// and the host's service lookup of IActivityRecognition in passthrough mode.
#include <hidl/ServiceManagement.h>
#include <utils/Errors.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>

#include <map>
#include <mutex>

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

// getService() of both versions: the package's implementation library, found on the host's
// passthrough search path, is opened and its entry point called with the instance name, as the
// platform's passthrough mode does. The object is then kept as the instance's service, so that
// every later lookup in the process answers it, as the service registered on a device would (the
// implementation allows one activity and one environment interface per process).
namespace {

using ::android::sp;

std::mutex gServicesLock;
std::map<std::string, sp<V1_1::IActivityRecognition>>& services() {
    static auto* byInstance = new std::map<std::string, sp<V1_1::IActivityRecognition>>();
    return *byInstance;
}

// Both versions are served by the 1.1 object: the library is looked up for 1.1 (or later).
sp<V1_1::IActivityRecognition> fetchService(const std::string& instance) {
    std::lock_guard<std::mutex> guard(gServicesLock);
    auto found = services().find(instance);
    if (found != services().end()) return found->second;
    void* entry = ::android::hardware::host::openPassthroughEntry(
            V1_1::IActivityRecognition::descriptor, "HIDL_FETCH_IActivityRecognition");
    if (entry == nullptr) return nullptr;
    using Fetch = V1_1::IActivityRecognition* (*)(const char*);
    sp<V1_1::IActivityRecognition> service = reinterpret_cast<Fetch>(entry)(instance.c_str());
    if (service != nullptr) services()[instance] = service;
    return service;
}

}  // namespace

namespace V1_0 {
sp<IActivityRecognition> IActivityRecognition::getService(const std::string& serviceName, bool) {
    return fetchService(serviceName);
}
sp<IActivityRecognition> IActivityRecognition::tryGetService(const std::string& serviceName, bool) {
    return fetchService(serviceName);
}
}  // namespace V1_0

namespace V1_1 {
sp<IActivityRecognition> IActivityRecognition::getService(const std::string& serviceName, bool) {
    return fetchService(serviceName);
}
sp<IActivityRecognition> IActivityRecognition::tryGetService(const std::string& serviceName, bool) {
    return fetchService(serviceName);
}
// No service manager on the host: the object becomes the instance's service in this process.
::android::status_t IActivityRecognition::registerAsService(const std::string& serviceName) {
    std::lock_guard<std::mutex> guard(gServicesLock);
    services()[serviceName] = this;
    return ::android::OK;
}
}  // namespace V1_1

}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
