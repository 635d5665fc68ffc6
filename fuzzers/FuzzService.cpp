#include "FuzzService.h"

#include <android/log.h>
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

namespace arfuzz {

using ::android::hardware::Status;
using ::android::hardware::Void;

Return<bool> Client::linkToDeath(const sp<::android::hardware::hidl_death_recipient>& recipient,
                                 uint64_t cookie) {
    links.emplace_back(recipient, cookie);
    return !refuseLink;
}

Return<void> Client::deliver(size_t count) {
    received += count;
    if (failing) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "client failed");
    return Void();
}

Return<void> Client::onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& e) {
    return deliver(e.size());
}
Return<void> Client::onActivityExtendChangedV1_0(const hidl_vec<ar::V1_0::ActivityEventExtend>& e) {
    return deliver(e.size());
}
Return<void> Client::onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& e) {
    return deliver(e.size());
}
Return<void> Client::onActivityExtendChangedV1_1(
        const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) {
    return deliver(e.size());
}
Return<void> Client::onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& e) {
    return deliver(e.size());
}
Return<void> Client::onEnvironmentChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) {
    return deliver(e.size());
}

void Client::die() {
    auto recipients = links;
    ::android::wp<::android::hidl::base::V1_0::IBase> who(
            static_cast<ar::V1_1::IActivityChangedCallback*>(this));
    for (auto& [recipient, cookie] : recipients) recipient->serviceDied(cookie, who);
}

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
