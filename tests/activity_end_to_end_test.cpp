// Two client processes share a pair that is routed to the client library: enables, events from
// both lower layers, one death and the last disable, each step checked against what every client
// received and what every lower layer was told.
#include "ActivityZelSupport.h"

namespace {

using namespace artest;
using Lines = std::vector<std::string>;

class ActivityEndToEndTest : public ZelActivityTest {};

constexpr int64_t kS = 1000000000;

// Timestamps of each batch.
template <typename Event>
std::vector<std::vector<int64_t>> take(std::vector<std::vector<Event>>& batches) {
    std::vector<std::vector<int64_t>> out;
    for (const auto& batch : batches) {
        out.emplace_back();
        for (const auto& e : batch) {
            EXPECT_EQ(3u, e.activity);
            out.back().push_back(e.timestamp);
        }
    }
    batches.clear();
    return out;
}

using Batches = std::vector<std::vector<int64_t>>;

TEST_F(ActivityEndToEndTest, TwoProcessesShareARoutedPair) {
    auto a = registerV1_1(100);  // a 1.1 client gets its own events only
    auto b = registerV1_0(200);  // a 1.0 client gets every served pid's events, pid by pid
    ar_context_event legacyState{};
    legacyState.timestamp = 50;
    setLegacyState({legacyState});

    EXPECT_EQ(0, enable(100, 3, 1, 5 * kS));
    EXPECT_EQ(0, enable(200, 3, 1, 2 * kS + 7));
    EXPECT_EQ((Lines{"ar-on 3,1,5000000000,0,;", "ar-on 3,1,2000000000,0,;"}), zelCommands());
    EXPECT_TRUE(legacyCalls().empty());
    ASSERT_EQ(1u, Peer::firstReports().size());
    EXPECT_EQ(200u, Peer::firstReports()[0].pid);
    EXPECT_EQ(50, Peer::firstReports()[0].timestamp);

    // From the library's own thread, then from the legacy module's; type-0 records are dropped.
    ASSERT_TRUE(simulated_zel::notify(
            0, 48, simulated_zel::pack({event(1, 3, 1000, 7), event(0, 3, 1001)})));
    simulated_legacy::runOnModuleThread([] {
        activity_event e = event(1, 3, 2000);
        simulated_legacy::reportActivities(&e, 1);
    });
    EXPECT_EQ((Batches{{1000}, {2000}}), take(a->v11));
    EXPECT_EQ((Batches{{1000}, {1000}, {2000}, {2000}}), take(b->v10));
    EXPECT_EQ(
            1,
            log.count(ANDROID_LOG_INFO, "AR_impl",
                      "ZelNotify: [ZEL]AR_REPORT_EVENT: [1] e: 0, a:3, t:1001, c:0, arStatus: 0"));

    a->die();
    EXPECT_TRUE(zelCommands().empty());
    EXPECT_TRUE(legacyCalls().empty());
    ASSERT_EQ(1u, Peer::requests().size());
    simulated_zel::notify(0, 24, simulated_zel::pack({event(1, 3, 3000)}), 4321);
    EXPECT_TRUE(a->v11.empty());
    EXPECT_EQ((Batches{{}, {3000}}), take(b->v10));

    EXPECT_EQ(0, disable(200, 3, 1));
    EXPECT_EQ(Lines{"ar-off 3,1"}, zelCommands());
    EXPECT_TRUE(legacyCalls().empty());
    EXPECT_TRUE(Peer::requests().empty() && Peer::firstReports().empty());
    simulated_zel::notify(0, 24, simulated_zel::pack({event(1, 3, 4000)}));
    EXPECT_EQ((Batches{{}, {}}), take(b->v10));
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl", "ZelNotify: [ZEL]Notify end, pid[4321]"));
}

}  // namespace
