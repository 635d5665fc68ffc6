// Out of line on purpose: a benchmark's call through the interface stays a real call.
#include "RecordingClient.h"

namespace artest {

Return<bool> linkAnswer(Link link) {
    if (link == Link::kTransportError) {
        return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "link broke");
    }
    return link == Link::kLinked;
}

Return<bool> RecordingClient::linkToDeath(const sp<hidl_death_recipient>& recipient,
                                          uint64_t cookie) {
    std::lock_guard<std::mutex> guard(mLock);
    if (observer) observer(Call::kLink, 0);
    links.emplace_back(recipient, cookie);
    return linkAnswer(mLink);
}

Return<bool> RecordingClient::unlinkToDeath(const sp<hidl_death_recipient>& recipient) {
    std::lock_guard<std::mutex> guard(mLock);
    if (observer) observer(Call::kUnlink, 0);
    unlinked.push_back(recipient);
    if (failUnlink) return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
    return true;
}

void RecordingClient::setLink(Link link) {
    std::lock_guard<std::mutex> guard(mLock);
    mLink = link;
}

// A counting client that answers success only counts; all else is out of line.
template <typename T>
__attribute__((noinline)) Return<void> RecordingClient::record(Call call,
                                                               std::vector<std::vector<T>>* into,
                                                               const hidl_vec<T>& events) {
    if (mKeep == Keep::kBatches) {
        std::lock_guard<std::mutex> guard(mLock);
        if (observer) observer(call, events.size());
        into->emplace_back(events.begin(), events.end());
    }
    if (failing) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "failing");
    return ::android::hardware::Void();
}

// Counts in line; a counting client that answers success does nothing more.
template <typename T>
inline Return<void> RecordingClient::deliver(Call call, std::vector<std::vector<T>>* into,
                                             const hidl_vec<T>& events) {
    received.fetch_add(events.size(), std::memory_order_relaxed);
    if (mKeep == Keep::kCount && !failing) return ::android::hardware::Void();
    return record(call, into, events);
}

Return<void> RecordingClient::onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& e) {
    return deliver(Call::kActivityV1_0, &got->v10, e);
}
Return<void> RecordingClient::onActivityExtendChangedV1_0(
        const hidl_vec<ar::V1_0::ActivityEventExtend>& e) {
    return deliver(Call::kActivityExtendV1_0, &got->ext10, e);
}
Return<void> RecordingClient::onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& e) {
    return deliver(Call::kActivityV1_1, &got->v11, e);
}
Return<void> RecordingClient::onActivityExtendChangedV1_1(
        const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) {
    return deliver(Call::kActivityExtendV1_1, &got->ext11, e);
}
Return<void> RecordingClient::onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& e) {
    return deliver(Call::kEnvironmentV1_0, &got->env10, e);
}
Return<void> RecordingClient::onEnvironmentChangedV1_1(
        const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) {
    return deliver(Call::kEnvironmentV1_1, &got->env11, e);
}

void RecordingClient::die(int link) {
    std::unique_lock<std::mutex> guard(mLock);
    auto [recipient, cookie] = links.at(link < 0 ? links.size() - 1 : static_cast<size_t>(link));
    guard.unlock();
    recipient->serviceDied(cookie, wp<IBase>(base()));
}

std::function<void()> RecordingClient::obituary() {
    std::lock_guard<std::mutex> guard(mLock);
    wp<IBase> who(base());
    return [copy = links, who] {
        for (const auto& [recipient, cookie] : copy) recipient->serviceDied(cookie, who);
    };
}

}  // namespace artest
