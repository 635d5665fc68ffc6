// Shared pieces of the activity-interface tests: client callback objects that act as processes
// of their own, legacy batches and answers, and a fixture with the interface created.
#pragma once

#include <vector>

#include "ActivityInterface.h"
#include "HalTest.h"

namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation {

// The activity lists as they stand.
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
};

}  // namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation

namespace artest {

using Peer = ar::V1_1::implementation::ActivityInterfaceTestPeer;

// A client process's callback object (the shared recording client): a test registers it under
// either version and checks which methods were called.
using Client = RecordingClient;

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
