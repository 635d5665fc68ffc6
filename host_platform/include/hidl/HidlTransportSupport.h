// Host stand-in for the HIDL transport controls. The host has no binder driver: a service's
// process cannot be reached by others, so its thread pool has nothing to serve.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <stddef.h>

namespace android {
namespace hardware {

// Logs the configuration.
void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin);
// Returns at once on the host, logging that nothing is served.
void joinRpcThreadpool();

// Whether two references reach the same object; on the host every object is in-process.
bool interfacesEqual(const sp<::android::hidl::base::V1_0::IBase>& left,
                     const sp<::android::hidl::base::V1_0::IBase>& right);

}  // namespace hardware
}  // namespace android
