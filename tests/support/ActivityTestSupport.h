// Shared pieces of the activity-interface tests: client callback objects that act as processes
// of their own, legacy batches and answers, and a fixture with the interface created.
#pragma once

#include <mutex>
#include <vector>

#include "ActivityInterface.h"
#include "HalTest.h"

namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation {

// The client library's notification function, called in place (the fan-out benchmark measures it
// without the simulated library's thread per call), and the activity lists as they stand.
struct ActivityInterfaceTestPeer {
    using AI = ActivityInterface;
    // Read-only views of the lists, for comparing final states; single-threaded use only.
    static const std::vector<EnableRequestData>& requests() { return AI::mEventData; }
    static const std::vector<FirstReport>& firstReports() { return AI::firstReport; }
    static const std::vector<EventResponseData>& lastEvents() { return AI::mLastActivityEvent; }
    static const std::vector<uint64_t>& packageNames() { return AI::packageNames; }
    static const std::vector<EnableToNativeData>& native(const sp<V1_1::IActivityInterface>& iface) {
        return static_cast<AI*>(iface.get())->mEnableToNativeData;
    }
    static void zelNotify(int32_t status, int32_t length, const std::vector<int32_t>& data) {
        ActivityInterface::ZelNotify(status, length, data);
    }
};

}  // namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation

namespace artest {

using Peer = ar::V1_1::implementation::ActivityInterfaceTestPeer;

// A client process's callback object. It implements the 1.1 callback (and so the 1.0 one): a test
// registers it under either version and checks which methods were called.
class Client : public ar::V1_1::IActivityChangedCallback {
  public:
    explicit Client(int pid, Link link = Link::kLinked) : pid(pid), mLink(link) {}

    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        std::lock_guard<std::mutex> guard(mLock);
        links.push_back({recipient, cookie});
        return linkAnswer(mLink);
    }
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        std::lock_guard<std::mutex> guard(mLock);
        unlinked.push_back(recipient);
        return true;
    }
    // Delivers this process's death through the recipient of the given link (default: the last).
    void die(int link = -1) {
        std::unique_lock<std::mutex> guard(mLock);
        auto [recipient, cookie] = links.at(link < 0 ? links.size() - 1 : link);
        guard.unlock();
        recipient->serviceDied(cookie, wp<IBase>(this));
    }

    Return<void> onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& e) override {
        return record(&v10, e);
    }
    Return<void> onActivityExtendChangedV1_0(
            const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override {
        return record(&ext10, e);
    }
    Return<void> onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& e) override {
        return record(&v11, e);
    }
    Return<void> onActivityExtendChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override {
        return record(&ext11, e);
    }

    const int pid;
    bool failing = false;  // event deliveries answer a transport failure; set before delivering
    // Received batches per method and the death links; read them once the calls are over.
    std::vector<std::vector<ar::V1_0::ActivityEvent>> v10;
    std::vector<std::vector<ar::V1_0::ActivityEventExtend>> ext10;
    std::vector<std::vector<ar::V1_1::ActivityEventV1_1>> v11;
    std::vector<std::vector<ar::V1_1::ActivityEventExtendV1_1>> ext11;
    std::vector<std::pair<sp<hidl_death_recipient>, uint64_t>> links;
    std::vector<sp<hidl_death_recipient>> unlinked;

  private:
    template <typename T>
    Return<void> record(std::vector<std::vector<T>>* into, const hidl_vec<T>& events) {
        std::lock_guard<std::mutex> guard(mLock);
        into->emplace_back(events.begin(), events.end());
        if (failing) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "gone");
        return ::android::hardware::Void();
    }

    std::mutex mLock;
    Link mLink;
};

inline activity_event event(uint32_t type, uint32_t activity, int64_t timestamp,
                            int32_t confidence = 0) {
    return {type, activity, timestamp, confidence};
}

// A legacy batch delivered on a thread acting as process `pid`.
inline void report(int pid, std::vector<activity_event> events) {
    ScopedCallingIdentity guard(pid);
    simulated_legacy::reportActivities(events.data(), static_cast<int>(events.size()));
}

// The activity interface created; clients register and call it as processes of their own.
class ActivityTest : public HalTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(HalTest::SetUp());
        iface = service->getActivityInterfaceV1_1().withDefault(nullptr);
        ASSERT_NE(nullptr, iface);
        log.clear();
    }

    // Registers `client` at version 1.0 or 1.1 as its own process.
    void reg(int version, const sp<Client>& client) {
        ScopedCallingIdentity guard(client->pid);
        if (version == 0) {
            iface->registerActivityCallback(client);
        } else {
            iface->registerActivityCallbackV1_1(client);
        }
    }
    sp<Client> add(int version, int pid, Link link = Link::kLinked) {
        sp<Client> client = new Client(pid, link);
        reg(version, client);
        return client;
    }
    int32_t enable(int pid, uint32_t a, uint32_t e, int64_t latency = 1000000000) {
        ScopedCallingIdentity guard(pid);
        return iface->enableActivityEvent(a, e, latency);
    }
    int32_t disable(int pid, uint32_t a, uint32_t e) {
        ScopedCallingIdentity guard(pid);
        return iface->disableActivityEvent(a, e);
    }
    Lines lines() const { return log.withTag("AR_impl"); }

    sp<ar::V1_1::IActivityInterface> iface;
};

}  // namespace artest
