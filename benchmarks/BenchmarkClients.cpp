#include "BenchmarkClients.h"

namespace benchclients {

using ::android::hardware::Void;

Return<void> ActivityClient::onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& e) {
    received += e.size();
    return Void();
}

Return<void> ActivityClient::onActivityExtendChangedV1_0(
        const hidl_vec<ar::V1_0::ActivityEventExtend>& e) {
    received += e.size();
    return Void();
}

Return<void> ActivityClient::onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& e) {
    received += e.size();
    return Void();
}

Return<void> ActivityClient::onActivityExtendChangedV1_1(
        const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) {
    received += e.size();
    return Void();
}

Return<void> EnvironmentClient::onEnvironmentChanged(
        const hidl_vec<ar::V1_0::ActivityEventExtend>& e) {
    received += e.size();
    return Void();
}

Return<void> EnvironmentClient::onEnvironmentChangedV1_1(
        const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) {
    received += e.size();
    return Void();
}

}  // namespace benchclients
