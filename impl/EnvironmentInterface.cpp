#define LOG_TAG "AR_impl_Env"

#include "EnvironmentInterface.h"

#include <log/log.h>

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

bool EnvironmentInterface::sInterfaceExists = false;
const environment_callbacks EnvironmentInterface::sEnvCb = {
        .environment_changed = EnvironmentInterface::EnvChangedCb,
};

EnvironmentInterface::EnvironmentInterface(const environment_interface* impl) : mImpl(impl) {
    LOG_ALWAYS_FATAL_IF(sInterfaceExists);
    sInterfaceExists = true;
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl interface is not available", "EnvironmentInterface");
        return;
    }
    mImpl->register_callbacks(&sEnvCb);
}

EnvironmentInterface::~EnvironmentInterface() {
    ALOGI("Deconstruct EnvironmentInterface");
    sInterfaceExists = false;
}

void EnvironmentInterface::EnvChangedCb(const ar_context_event* /* events */, int /* count */) {}

Return<void> EnvironmentInterface::registerEnvironmentCallback(
        const sp<V1_0::IEnvironmentChangedCallback>& /* callback */) {
    return Void();
}

Return<void> EnvironmentInterface::getSupportedEnvironmentsList(
        getSupportedEnvironmentsList_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

Return<int32_t> EnvironmentInterface::initEnvironment(uint32_t /* environment */,
                                                      const V1_0::OtherParams& /* params */) {
    return 1;
}

Return<int32_t> EnvironmentInterface::exitEnvironment(uint32_t /* environment */,
                                                      const V1_0::OtherParams& /* params */) {
    return 1;
}

Return<int32_t> EnvironmentInterface::enableEnvironment(uint32_t /* environment */,
                                                        uint32_t /* eventType */,
                                                        int64_t /* reportLatencyNs */,
                                                        const V1_0::OtherParams& /* params */) {
    return 1;
}

Return<int32_t> EnvironmentInterface::disableEnvironment(uint32_t /* environment */,
                                                         uint32_t /* eventType */) {
    return 1;
}

Return<void> EnvironmentInterface::getCurrentEnvironment(getCurrentEnvironment_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

Return<void> EnvironmentInterface::registerEnvironmentCallbackV1_1(
        const sp<V1_1::IEnvironmentChangedCallback>& /* callback */) {
    return Void();
}

Return<void> EnvironmentInterface::getCurrentEnvironmentV1_1(getCurrentEnvironmentV1_1_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
