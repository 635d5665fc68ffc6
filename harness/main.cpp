// ar-harness: loads the HAL as the platform's passthrough service host does and reports what it
// got from it.
#include <android/log.h>
#include <dlfcn.h>
#include <stdio.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

using ::vendor::quarn::hardware::activity_recognition::V1_1::IActivityRecognition;

int main() {
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    const char* library = "vendor.quarn.hardware.activity_recognition@1.1-impl.so";
    void* handle = dlopen(library, RTLD_NOW);
    if (handle == nullptr) {
        fprintf(stderr, "ar-harness: dlopen %s: %s\n", library, dlerror());
        return 1;
    }
    using Fetch = IActivityRecognition* (*)(const char*);
    auto fetch = reinterpret_cast<Fetch>(dlsym(handle, "HIDL_FETCH_IActivityRecognition"));
    if (fetch == nullptr) {
        fprintf(stderr, "ar-harness: dlsym: %s\n", dlerror());
        return 1;
    }
    ::android::sp<IActivityRecognition> service = fetch("default");
    printf("service: %s\n", service != nullptr ? "loaded" : "null");
    if (service == nullptr) return 1;
    auto activity = service->getActivityInterfaceV1_1().withDefault(nullptr);
    auto environment = service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
    printf("activity interface: %s\n", activity != nullptr ? "present" : "null");
    printf("environment interface: %s\n", environment != nullptr ? "present" : "null");
    return 0;
}
