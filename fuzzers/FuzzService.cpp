#include "FuzzService.h"

#include <android/log.h>
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

namespace arfuzz {

namespace {
void dropLogger(const struct __android_logger_data*, const char*) {}
}  // namespace

Service& service() {
    static Service* s = [] {
        // Every line is still formatted by the HAL; only its output is dropped.
        __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
        __android_log_set_logger(dropLogger);
        auto* s = new Service();
        void* handle = dlopen("vendor.quarn.hardware.activity_recognition@1.1-impl.so", RTLD_NOW);
        if (handle == nullptr) {
            fprintf(stderr, "dlopen: %s\n", dlerror());
            abort();
        }
        using Fetch = ar::V1_1::IActivityRecognition* (*)(const char*);
        auto fetch = reinterpret_cast<Fetch>(dlsym(handle, "HIDL_FETCH_IActivityRecognition"));
        s->service = fetch("default");
        s->activity = s->service->getActivityInterfaceV1_1().withDefault(nullptr);
        s->environment = s->service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
        if (s->activity == nullptr || s->environment == nullptr) abort();
        return s;
    }();
    return *s;
}

}  // namespace arfuzz
