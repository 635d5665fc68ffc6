#include "Passthrough.h"

#include <dlfcn.h>
#include <stdio.h>

namespace artest {

::android::sp<IActivityRecognition> fetchService(const char* instance) {
    static void* handle = dlopen("vendor.quarn.hardware.activity_recognition@1.1-impl.so", RTLD_NOW);
    if (handle == nullptr) {
        fprintf(stderr, "dlopen: %s\n", dlerror());
        return nullptr;
    }
    using Fetch = IActivityRecognition* (*)(const char*);
    auto fetch = reinterpret_cast<Fetch>(dlsym(handle, "HIDL_FETCH_IActivityRecognition"));
    if (fetch == nullptr) {
        fprintf(stderr, "dlsym: %s\n", dlerror());
        return nullptr;
    }
    return fetch(instance);
}

}  // namespace artest
