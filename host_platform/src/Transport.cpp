// Host transport controls: there is no binder driver, so nothing is served.
#define LOG_TAG "HidlTransportSupport"

#include <hidl/HidlTransportSupport.h>
#include <log/log.h>

namespace android {
namespace hardware {

void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin) {
    ALOGD("configureRpcThreadpool: %zu threads, caller joins: %d", maxThreads, callerWillJoin);
}

void joinRpcThreadpool() {
    ALOGI("joinRpcThreadpool: no binder driver on the host, nothing to serve");
}

bool interfacesEqual(const sp<::android::hidl::base::V1_0::IBase>& left,
                     const sp<::android::hidl::base::V1_0::IBase>& right) {
    return left == right;
}

}  // namespace hardware
}  // namespace android
