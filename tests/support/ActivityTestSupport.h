// Shared pieces of the activity-interface tests: access to the class-wide state, client callback
// objects that act as processes of their own, and a fixture that loads the HAL.
#pragma once

#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>

#include <mutex>
#include <vector>

#include "ActivityInterface.h"
#include "LogCapture.h"
#include "Passthrough.h"
#include "simulated_legacy_module.h"

namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation {

// Reaches the interface's private state and helpers. Single-threaded use only: it takes no lock.
struct ActivityInterfaceTestPeer {
    using AI = ActivityInterface;
    using Native = std::vector<EnableToNativeData>;
    // The caller may change the list: the intake's lookups are rebuilt.
    static std::vector<EnableRequestData>& requests() {
        ++AI::sEventListsGeneration;
        return AI::mEventData;
    }
    static std::vector<FirstReport>& firstReports() {
        ++AI::sEventListsGeneration;
        return AI::firstReport;
    }
    static std::vector<EventResponseData>& lastEvents() { return AI::mLastActivityEvent; }
    static std::vector<uint64_t>& packageNames() { return AI::packageNames; }
    static Native& native(const sp<V1_1::IActivityInterface>& iface) {
        return static_cast<AI*>(iface.get())->mEnableToNativeData;
    }
    static void zelNotify(int32_t status, int32_t length, const std::vector<int32_t>& data) {
        AI::ZelNotify(status, length, data);
    }
    static int nativeIndex(uint32_t a, uint32_t e, const Native& l) {
        return AI::FindEnableToNativeDataIndex(a, e, l);
    }
    static bool nativeAbsent(uint32_t a, uint32_t e, const Native& l) {
        return AI::FindEnableToNativeDataExist(a, e, l);
    }
    static uint64_t nativePid(uint32_t a, uint32_t e, const Native& l) {
        return AI::FindEnableToNativeData(a, e, l).pid;
    }
    static void removeNative(uint32_t a, uint32_t e, Native& l) {
        AI::RemoveEnableToNativeData(a, e, l);
    }
    static int64_t requestLatency(uint64_t pid, uint32_t a, uint32_t e) {
        return AI::FindEnableRequestData(pid, a, e, AI::mEventData).reportLatencyNs;
    }
    static int requestIndex(uint64_t pid, uint32_t a, uint32_t e) {
        return AI::FindEnableRequestDataIndex(pid, a, e, AI::mEventData);
    }
    static bool validEventActivity(size_t i, uint32_t a, uint32_t e, bool& plain, other_params& o) {
        return AI::ValidEventActivity(i, a, e, plain, o);
    }
    static int64_t minLatency(uint32_t a, uint32_t e) {
        return AI::MinReportLatencyNsFunc(a, e, AI::mEventData);
    }
};

}  // namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation

namespace artest {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using Peer = ar::V1_1::implementation::ActivityInterfaceTestPeer;
using ar::V1_1::implementation::EnableRequestData;
using ar::V1_1::implementation::EnableToNativeData;
using ar::V1_1::implementation::EventResponseData;
using Lines = std::vector<std::string>;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::host::ScopedCallingIdentity;

enum class Link { kLinked, kRefused, kTransportError };

// A client process's callback object. It implements the 1.1 callback (and so the 1.0 one): a test
// registers it under either version and checks which methods were called.
class Client : public ar::V1_1::IActivityChangedCallback {
  public:
    explicit Client(int pid, Link link = Link::kLinked) : pid(pid), mLink(link) {}

    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        std::lock_guard<std::mutex> guard(mLock);
        links.push_back({recipient, cookie});
        if (mLink == Link::kTransportError) {
            return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "link broke");
        }
        return mLink == Link::kLinked;
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
        recipient->serviceDied(cookie, wp<::android::hidl::base::V1_0::IBase>(this));
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
    return {.event_type = type,
            .activity = activity,
            .timestamp = timestamp,
            .confidence = confidence};
}

// A legacy batch delivered on a thread acting as process `pid`.
inline void report(int pid, std::vector<activity_event> events) {
    ScopedCallingIdentity guard(pid);
    simulated_legacy::reportActivities(events.data(), static_cast<int>(events.size()));
}

// A plain request placed directly in the request list.
inline void addRequest(uint64_t pid, uint32_t activity, uint32_t eventType) {
    Peer::requests().push_back({pid, activity, eventType, 1000000000, {}});
}

// Loads the HAL and creates the activity interface; each test runs in a process of its own.
class ActivityTest : public ::testing::Test {
  protected:
    void SetUp() override {
        simulated_legacy::reset();
        service = fetchService();
        ASSERT_NE(nullptr, service);
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
    Lines lines() const { return log.withTag("AR_impl"); }

    LogCapture log;
    sp<IActivityRecognition> service;
    sp<ar::V1_1::IActivityInterface> iface;
};

}  // namespace artest
