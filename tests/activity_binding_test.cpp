// Binding of the client library when the interface is created, the interface's life cycle, and
// the queries.
#include "ActivityZelSupport.h"
#include "DumpText.h"
#include "FailingNew.h"

namespace {

using namespace artest;
using simulated_zel::Entry;
using AI = ar::V1_1::implementation::ActivityInterface;

constexpr int64_t kS = 1000000000;

// The test configures the lower layers, then creates the interface.
class ActivityBindingTest : public ZelActivityTest {
  protected:
    void SetUp() override {
        simulated_legacy::reset();
        simulated_zel::reset();
    }
    void create(bool allowed, uint32_t mask = 0x8) {
        ::android::base::SetProperty("ro.odm.config.zel_service_enable", allowed ? "true" : "false");
        simulated_zel::setConfigMask(mask);
        service = fetchService();
        iface = service->getActivityInterfaceV1_1().withDefault(nullptr);
        ASSERT_NE(nullptr, iface);
        simulated_legacy::clearCalls();
    }
    // One call of a client process in an enable or disable table, with its answer and what it
    // sent below.
    struct Step {
        int pid;
        uint32_t activity, eventType;
        int64_t latency;  // 0 for a disable
        Lines below;
        int32_t result;
    };
    static Step on(int pid, uint32_t a, uint32_t e, int64_t latency, Lines below, int result = 0) {
        return {pid, a, e, latency, std::move(below), result};
    }
    static Step off(int pid, uint32_t a, uint32_t e, Lines below, int result = 0) {
        return {pid, a, e, 0, std::move(below), result};
    }
    void run(const std::vector<Step>& steps) {
        for (const Step& s : steps) {
            SCOPED_TRACE("pid " + std::to_string(s.pid));
            EXPECT_EQ(s.result, s.latency == 0 ? disable(s.pid, s.activity, s.eventType)
                                               : enable(s.pid, s.activity, s.eventType, s.latency));
            EXPECT_EQ(s.below, below());
        }
    }
};

// The steps of each attempt, in order. (What the configuration routes, and the log lines of the
// attempts: the client-library scenarios.)
TEST_F(ActivityBindingTest, AttemptsCallTheEntryPointsInOrder) {
    simulated_zel::queueResults(Entry::kSetCallback, {-1});
    create(true);
    Lines seen;
    for (const auto& c : simulated_zel::calls()) {
        seen.push_back(c.client + c.name + (c.ints.empty() ? "" : std::to_string(c.ints[0])));
    }
    EXPECT_EQ((Lines{"30", "ar-client", "30", "ar-client", "ar_config0"}), seen);
    EXPECT_EQ("ar-client", simulated_zel::registeredClient());
}

TEST_F(ActivityBindingTest, SecondInterfaceAborts) {
    create(false);
    EXPECT_DEATH(new AI(nullptr), "sInterfaceExists");
}

// Requests, the routed set and the library's list outlive an interface destroyed before anything
// registered; the next one starts with an empty native list and no library functions.
TEST_F(ActivityBindingTest, RecreatedInterfaceKeepsTheRequests) {
    create(true);
    run({on(100, 3, 1, kS, {"ar-on 3,1,1000000000,0,;"}),
         on(100, 1, 1, kS, {"enable_activity_event(1,1,1000000000)"}),
         on(200, 1, 1, kS, {"enable_activity_event(1,1,1000000000)"})});
    iface.clear();
    service.clear();
    EXPECT_EQ(1, log.count(4, "AR_impl", "Deconstruct ActivityInterface"));
    create(false);
    // The binding of the earlier interface is forgotten with it.
    EXPECT_NE(std::string::npos,
              DumpText(service, {"--activity"})
                      .find("client library: not enabled (libZelClient.so), attempts[0]"));
    run({off(200, 1, 1, {}, 1),  // another request remains, the native list is empty
         off(100, 3, 1, {}),     // the last request, and nothing in the native list to erase
         on(300, 2, 2, kS, {"enable_activity_event(2,2,1000000000)"}),
         off(100, 1, 1, {"disable_activity_event(1,1)"}),  // erases (2,2) instead
         on(400, 2, 2, 5 * kS, {"enable_activity_event(2,2,5000000000)"}),
         on(100, 3, 2, kS, {}),  // still routed, nothing to send it with
         on(200, 3, 2, kS, {}),
         off(200, 3, 2, {})});  // another request remains: nothing to re-send it with either
    // Extended requests of a routed pair: one left after a disable is not re-sent either.
    for (int pid : {500, 600}) {
        ScopedCallingIdentity guard(pid);
        EXPECT_EQ(0, iface->enableActivityEventExtend(3, 1, kS, params(2)));
    }
    {
        ScopedCallingIdentity guard(600);
        EXPECT_EQ(0, iface->disableActivityEvent(3, 1));
    }
    // The library's list outlived it, but nothing of the library is called: no state query, no
    // modem update.
    iface->getCurrentActivityV1_1([](const auto&) {});
    EXPECT_EQ(0, iface->enableActivityEventExtend(64, 1, kS, params(2)));
    EXPECT_TRUE(simulated_zel::calls().empty());
    EXPECT_EQ(Lines{"enable_activity_event_extend(64,1,1000000000;2)"}, below());
}

// Without a legacy table every path answers its failure.
TEST_F(ActivityBindingTest, NoLegacyTable) {
    sp<AI> bare = new AI(nullptr);
    EXPECT_EQ(1, bare->flush());
    EXPECT_EQ(1, bare->enableActivityEvent(1, 1, kS));
    EXPECT_EQ(1, bare->enableActivityEventExtend(1, 1, kS, params(2)));
    int answers = 0;
    auto count = [&](const auto& v) { answers += v.size() == 0; };
    bare->getSupportedActivitiesList(count);
    bare->getCurrentActivity(count);
    bare->getCurrentActivityV1_1(count);
    EXPECT_EQ(3, answers);
    const std::string missing = ": mImpl interface is not available";
    for (const auto& [priority, line] : std::vector<std::pair<int, std::string>>{
                 {6, "ActivityInterface" + missing},
                 {6, "flush" + missing},
                 {6, "UpdateEnableNative" + missing},
                 {4, "EnableActivityEvent" + missing},
                 {6, "getSupportedActivitiesList" + missing},
                 {6, "getCurrentActivity: mImpl V1_0 interface is not available"},
                 {6, "getCurrentActivityV1_1: mImpl V1_1 interface is not available"}}) {
        EXPECT_EQ(1, log.count(priority, "AR_impl", line)) << line;
    }
}

// A failed allocation of the names leaves the callback uncalled. (The lists and their refusals,
// and the current state of both layers: scenarios/activity-queries.scenario.)
TEST_F(ActivityBindingTest, SupportedListAllocationFailure) {
    SKIP_WITHOUT_FAILING_NEW();
    create(false);
    simulated_legacy::setListAnswer(simulated_legacy::Side::kActivity, {{"walk"}, {}, false});
    failNextNothrowNew();
    bool called = false;
    iface->getSupportedActivitiesList([&](const auto&) { called = true; });
    EXPECT_FALSE(called);
    EXPECT_EQ(1, log.count(6, "AR_impl", "getSupportedActivitiesList hidl string new failed"));
}

}  // namespace
