#define LOG_TAG "AR_impl"

#include "ActivityInterface.h"

#include <log/log.h>
#include <string.h>

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

bool ActivityInterface::sInterfaceExists = false;
const activity_callbacks ActivityInterface::sActCb = {
        .activity_changed = ActivityInterface::ActChangedCb,
        .activity_extend_changed = ActivityInterface::ActExtendChangedCb,
};

namespace {
// The text of a legacy `extra` field: up to its terminating NUL, never past its 32 bytes.
::android::hardware::hidl_string extraText(const other_params& params) {
    return ::android::hardware::hidl_string(params.extra,
                                            strnlen(params.extra, sizeof(params.extra)));
}

V1_0::OtherParams convertOtherParams(const other_params& params) {
    V1_0::OtherParams out;
    for (size_t i = 0; i < 4; ++i) out.params[i] = params.params[i];
    out.extra = extraText(params);
    return out;
}
}  // namespace

ActivityInterface::ActivityInterface(const activity_interface* impl) : mImpl(impl) {
    ALOGI("Construct ActivityInterface");
    LOG_ALWAYS_FATAL_IF(sInterfaceExists);
    if (mImpl != nullptr) {
        mImpl->register_callbacks(&sActCb);
    } else {
        ALOGE("%s: mImpl interface is not available", "ActivityInterface");
    }
    sInterfaceExists = true;
}

ActivityInterface::~ActivityInterface() {
    ALOGI("Deconstruct ActivityInterface");
    sInterfaceExists = false;
}

V1_0::ActivityEvent ActivityInterface::convertAEToAEV1_0(activity_event event) {
    V1_0::ActivityEvent out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    return out;
}

V1_1::ActivityEventV1_1 ActivityInterface::convertAEToAEV1_1(activity_event event) {
    V1_1::ActivityEventV1_1 out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.confidence = event.confidence;
    return out;
}

V1_0::ActivityEventExtend ActivityInterface::convertACEToAEEV1_0(ar_context_event event) {
    V1_0::ActivityEventExtend out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.status = event.status;
    out.otherParams = convertOtherParams(event.params);
    return out;
}

V1_1::ActivityEventExtendV1_1 ActivityInterface::convertACEToAEEV1_1(ar_context_event event) {
    V1_1::ActivityEventExtendV1_1 out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.confidence = event.confidence;
    out.status = event.status;
    out.otherParams = convertOtherParams(event.params);
    return out;
}

void ActivityInterface::ActChangedCb(const activity_event* /* events */, int /* count */) {}

void ActivityInterface::ActExtendChangedCb(const ar_context_event* /* events */, int /* count */) {}

Return<void> ActivityInterface::registerActivityCallback(
        const sp<V1_0::IActivityChangedCallback>& /* callback */) {
    return Void();
}

Return<void> ActivityInterface::getSupportedActivitiesList(getSupportedActivitiesList_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

Return<int32_t> ActivityInterface::enableActivityEvent(uint32_t /* activity */,
                                                       uint32_t /* eventType */,
                                                       int64_t /* reportLatencyNs */) {
    return 1;
}

Return<int32_t> ActivityInterface::enableActivityEventExtend(uint32_t /* activity */,
                                                             uint32_t /* eventType */,
                                                             int64_t /* reportLatencyNs */,
                                                             const V1_0::OtherParams& /* params */) {
    return 1;
}

Return<void> ActivityInterface::getCurrentActivity(getCurrentActivity_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

Return<int32_t> ActivityInterface::disableActivityEvent(uint32_t /* activity */,
                                                        uint32_t /* eventType */) {
    return 1;
}

Return<int32_t> ActivityInterface::flush() {
    return 1;
}

Return<void> ActivityInterface::registerActivityCallbackV1_1(
        const sp<V1_1::IActivityChangedCallback>& /* callback */) {
    return Void();
}

Return<void> ActivityInterface::getCurrentActivityV1_1(getCurrentActivityV1_1_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
