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

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

// Reaches the interface's private state and helpers. Single-threaded use only: it takes no lock.
struct ActivityInterfaceTestPeer {
    static std::vector<EnableRequestData>& requests() { return ActivityInterface::mEventData; }
    static std::vector<FirstReport>& firstReports() { return ActivityInterface::firstReport; }
    static std::vector<EventResponseData>& lastEvents() {
        return ActivityInterface::mLastActivityEvent;
    }
    static std::vector<uint64_t>& packageNames() { return ActivityInterface::packageNames; }
    static std::vector<EnableToNativeData>& native(const sp<V1_1::IActivityInterface>& iface) {
        return static_cast<ActivityInterface*>(iface.get())->mEnableToNativeData;
    }
    static void zelNotify(int32_t status, int32_t byteLength, const std::vector<int32_t>& data) {
        ActivityInterface::ZelNotify(status, byteLength, data);
    }
    // Helpers of the native list and the request list.
    static int nativeIndex(uint32_t a, uint32_t e, const std::vector<EnableToNativeData>& list) {
        return ActivityInterface::FindEnableToNativeDataIndex(a, e, list);
    }
    static bool nativeAbsent(uint32_t a, uint32_t e, const std::vector<EnableToNativeData>& list) {
        return ActivityInterface::FindEnableToNativeDataExist(a, e, list);
    }
    static EnableToNativeData findNative(uint32_t a, uint32_t e,
                                         const std::vector<EnableToNativeData>& list) {
        return ActivityInterface::FindEnableToNativeData(a, e, list);
    }
    static void removeNative(uint32_t a, uint32_t e, std::vector<EnableToNativeData>& list) {
        ActivityInterface::RemoveEnableToNativeData(a, e, list);
    }
    static EnableRequestData findRequest(uint64_t pid, uint32_t a, uint32_t e) {
        return ActivityInterface::FindEnableRequestData(pid, a, e, mEventData());
    }
    static int findRequestIndex(uint64_t pid, uint32_t a, uint32_t e) {
        return ActivityInterface::FindEnableRequestDataIndex(pid, a, e, mEventData());
    }
    static bool validEventActivity(size_t index, uint32_t a, uint32_t e, bool& plain,
                                   other_params& out) {
        return ActivityInterface::ValidEventActivity(index, a, e, plain, out);
    }
    static int64_t minLatency(uint32_t a, uint32_t e) {
        return ActivityInterface::MinReportLatencyNsFunc(a, e, mEventData());
    }

  private:
    static std::vector<EnableRequestData>& mEventData() { return ActivityInterface::mEventData; }
};

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor

namespace artest {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using Peer = ar::V1_1::implementation::ActivityInterfaceTestPeer;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::host::ScopedCallingIdentity;
using ar::V1_1::implementation::EnableRequestData;
using ar::V1_1::implementation::EnableToNativeData;
using ar::V1_1::implementation::EventResponseData;
using ar::V1_1::implementation::FirstReport;

enum class Link { kLinked, kRefused, kTransportError };

// A client process's callback object. It implements the 1.1 callback (and so the 1.0 one): a test
// registers it under either version and checks which methods were called.
class Client : public ar::V1_1::IActivityChangedCallback {
  public:
    explicit Client(int pid, Link link = Link::kLinked) : pid(pid), mLink(link) {}

    const int pid;
    // Event deliveries answer a transport failure.
    void setFailing(bool failing) {
        std::lock_guard<std::mutex> guard(mLock);
        mFailing = failing;
    }

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
        std::pair<sp<hidl_death_recipient>, uint64_t> target;
        {
            std::lock_guard<std::mutex> guard(mLock);
            target = links.at(link < 0 ? links.size() - 1 : link);
        }
        target.first->serviceDied(target.second, wp<::android::hidl::base::V1_0::IBase>(this));
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

    // Received batches per method, and the death links; read them once the calls are over.
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
        if (mFailing) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "gone");
        return ::android::hardware::Void();
    }

    std::mutex mLock;
    Link mLink;
    bool mFailing = false;
};

inline activity_event event(uint32_t type, uint32_t activity, int64_t timestamp,
                            int32_t confidence = 0) {
    return activity_event{.event_type = type,
                          .activity = activity,
                          .timestamp = timestamp,
                          .confidence = confidence};
}

// A legacy batch delivered on a thread acting as process `pid`.
inline void report(int pid, std::vector<activity_event> events) {
    ScopedCallingIdentity guard(pid);
    simulated_legacy::reportActivities(events.data(), static_cast<int>(events.size()));
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

    sp<Client> registerV1_0(int pid, Link link = Link::kLinked) {
        sp<Client> client = new Client(pid, link);
        ScopedCallingIdentity guard(pid);
        iface->registerActivityCallback(client);
        return client;
    }
    sp<Client> registerV1_1(int pid, Link link = Link::kLinked) {
        sp<Client> client = new Client(pid, link);
        ScopedCallingIdentity guard(pid);
        iface->registerActivityCallbackV1_1(client);
        return client;
    }
    std::vector<std::string> lines() const { return log.withTag("AR_impl"); }

    LogCapture log;
    sp<IActivityRecognition> service;
    sp<ar::V1_1::IActivityInterface> iface;
};

}  // namespace artest
