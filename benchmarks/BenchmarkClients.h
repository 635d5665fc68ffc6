// Client callback objects of the benchmarks. Their methods are defined in a translation unit of
// their own, so that a call through the interface is a real call in the floors as in the HAL.
#pragma once

#include <stddef.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityChangedCallback.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>

namespace benchclients {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;

// Counts the records it receives, whatever the method.
struct ActivityClient : public ar::V1_1::IActivityChangedCallback {
    Return<void> onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& e) override;
    Return<void> onActivityExtendChangedV1_0(
            const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override;
    Return<void> onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& e) override;
    Return<void> onActivityExtendChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override;
    size_t received = 0;
};

struct EnvironmentClient : public ar::V1_1::IEnvironmentChangedCallback {
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override;
    Return<void> onEnvironmentChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override;
    size_t received = 0;
};

}  // namespace benchclients
