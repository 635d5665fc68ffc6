// Host stand-in for the platform's passthrough service helpers, with their steps: fetch the
// implementation through getService(name, true), register it under the name, join the thread
// pool. Registration on the host is in-process only (getService() then answers that object), and
// joining returns at once, so a service's main() returns OK once its service is registered.
#pragma once

#include <hidl/HidlTransportSupport.h>
#include <log/log.h>
#include <stdlib.h>
#include <utils/Errors.h>

#include <string>

namespace android {
namespace hardware {

template <class Interface, class ExpectInterface = Interface>
__attribute__((warn_unused_result)) status_t registerPassthroughServiceImplementation(
        const std::string& name = "default") {
    sp<ExpectInterface> service = Interface::getService(name, true /* getStub */);
    if (service == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "HidlLegacySupport",
                            "Could not get passthrough implementation for %s/%s.",
                            Interface::descriptor, name.c_str());
        return EXIT_FAILURE;
    }
    status_t status = service->registerAsService(name);
    if (status != OK) {
        __android_log_print(ANDROID_LOG_ERROR, "HidlLegacySupport",
                            "Could not register service %s/%s (%d).", Interface::descriptor,
                            name.c_str(), status);
        return status;
    }
    __android_log_print(ANDROID_LOG_INFO, "HidlLegacySupport", "Registration complete for %s/%s.",
                        Interface::descriptor, name.c_str());
    return OK;
}

template <class Interface, class ExpectInterface = Interface>
__attribute__((warn_unused_result)) status_t defaultPassthroughServiceImplementation(
        const std::string& name, size_t maxThreads = 1) {
    configureRpcThreadpool(maxThreads, true);
    status_t result = registerPassthroughServiceImplementation<Interface, ExpectInterface>(name);
    if (result != OK) return result;
    joinRpcThreadpool();
    return OK;  // the platform's join never returns; the host's returns at once
}

template <class Interface, class ExpectInterface = Interface>
__attribute__((warn_unused_result)) status_t defaultPassthroughServiceImplementation(
        size_t maxThreads = 1) {
    return defaultPassthroughServiceImplementation<Interface, ExpectInterface>("default",
                                                                               maxThreads);
}

}  // namespace hardware
}  // namespace android
