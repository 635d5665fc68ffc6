// Two client processes share a pair that is routed to the client library: enables, events from
// both lower layers, one death and the last disable, each step checked against what every client
// received and what every lower layer was told.
#include "ActivityZelSupport.h"

namespace {

using namespace artest;
using Batches = std::vector<std::vector<int64_t>>;

class ActivityEndToEndTest : public ZelActivityTest {};

// Timestamps of each batch received, which are then forgotten.
template <typename Event>
Batches take(std::vector<std::vector<Event>>& batches) {
    Batches out;
    for (const auto& batch : batches) {
        out.emplace_back();
        for (const auto& e : batch) out.back().push_back(e.activity == 3 ? e.timestamp : -1);
    }
    batches.clear();
    return out;
}

TEST_F(ActivityEndToEndTest, TwoProcessesShareARoutedPair) {
    auto a = add(1, 100);  // a 1.1 client gets its own events only
    auto b = add(0, 200);  // a 1.0 client gets every served pid's events, pid by pid
    ar_context_event legacyState{};
    legacyState.timestamp = 50;
    setLegacyState({legacyState});
    run({{100, 'e', 3, 1, 5000000000, 0, 0, {"ar-on 3,1,5000000000,0,;"}},
         {200, 'e', 3, 1, 2000000007, 0, 0, {"ar-on 3,1,2000000000,0,;"}}});
    ASSERT_EQ(1u, Peer::firstReports().size());
    EXPECT_EQ(200u, Peer::firstReports()[0].pid);
    EXPECT_EQ(50, Peer::firstReports()[0].timestamp);

    // From the library's own thread, then from the legacy module's; type-0 records are dropped.
    ASSERT_TRUE(simulated_zel::notify(
            0, 48, simulated_zel::pack({event(1, 3, 1000, 7), event(0, 3, 1001)})));
    simulated_legacy::runOnModuleThread([] { report(getpid(), {event(1, 3, 2000)}); });
    EXPECT_EQ((Batches{{1000}, {2000}}), take(a->v11));
    EXPECT_EQ((Batches{{1000}, {1000}, {2000}, {2000}}), take(b->v10));
    EXPECT_EQ(1,
              log.count(4, "AR_impl",
                        "ZelNotify: [ZEL]AR_REPORT_EVENT: [0] e: 1, a:3, t:1000, c:7, arStatus: 0"));

    a->die();
    EXPECT_TRUE(below().empty());
    ASSERT_EQ(1u, Peer::requests().size());
    simulated_zel::notify(0, 24, simulated_zel::pack({event(1, 3, 3000)}), 4321);
    EXPECT_TRUE(a->v11.empty());
    EXPECT_EQ((Batches{{}, {3000}}), take(b->v10));
    EXPECT_EQ(1, log.count(4, "AR_impl", "ZelNotify: [ZEL]Notify end, pid[4321]"));

    run({{200, 'd', 3, 1, 0, 0, 0, {"ar-off 3,1"}}});
    EXPECT_TRUE(Peer::requests().empty() && Peer::firstReports().empty());
    simulated_zel::notify(0, 24, simulated_zel::pack({event(1, 3, 4000)}));
    EXPECT_EQ((Batches{{}, {}}), take(b->v10));
}

}  // namespace
