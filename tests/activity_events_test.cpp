// Intake of activity batches (legacy module and client-library notifications) and their fan-out;
// the common paths of matching are in scenarios/activity-intake.scenario, the notifications' byte
// lengths in scenarios/client-library-notify.scenario.
#include "ActivityZelSupport.h"

namespace {

using namespace artest;

class ActivityEventsTest : public ZelActivityTest {};

// Timestamps of each batch, which are then forgotten.
using Batches = std::vector<std::vector<int64_t>>;
template <typename Event>
Batches take(std::vector<std::vector<Event>>& batches) {
    Batches out;
    for (const auto& batch : batches) {
        out.emplace_back();
        for (const auto& e : batch) out.back().push_back(e.timestamp);
    }
    batches.clear();
    return out;
}

// A full batch for many processes: lists long enough to be searched through an index give the
// same deliveries as short ones.
TEST_F(ActivityEventsTest, FullBatchForManyProcesses) {
    constexpr int kPids = 24;
    std::vector<sp<Client>> clients;
    for (int p = 0; p < kPids; ++p) {
        clients.push_back(add(1, 500 + p));
        for (uint32_t a = 0; a < 4; ++a) enable(500 + (kPids - 1 - p), a, 1 + a % 2);
    }
    auto c10 = add(0, 900);
    std::vector<activity_event> batch;
    std::vector<int64_t> wanted;
    for (int i = 0; i < 192; ++i) {
        batch.push_back(event(1 + i % 2, i % 4, 10 + i));
        wanted.push_back(10 + i);
    }
    report(7, batch);
    report(7, {event(2, 1, 5000), event(1, 0, 6000)});
    for (const auto& client : clients) {
        EXPECT_EQ((Batches{wanted, {5000, 6000}}), take(client->v11));
    }
    EXPECT_EQ(2u * kPids, c10->v10.size());  // one call per pid and batch
}

// Every set of pairs that one process can have on: a batch with an event of each pair delivers
// exactly the events of the pairs on, in batch order.
TEST_F(ActivityEventsTest, EverySetOfPairsGetsItsEvents) {
    auto client = add(1, 100);
    std::vector<activity_event> batch;
    for (uint32_t pair = 0; pair < 6; ++pair)
        batch.push_back(event(1 + pair % 2, 1 + pair / 2, pair));
    for (unsigned set = 1; set < 64; ++set) {
        std::vector<int64_t> wanted;
        for (const activity_event& e : batch) {
            if (set & 1u << e.timestamp) {
                enable(100, e.activity, e.event_type);
                wanted.push_back(e.timestamp);
            }
        }
        report(7, batch);
        EXPECT_EQ(Batches{wanted}, take(client->v11)) << "set " << set;
        for (const activity_event& e : batch) {
            if (set & 1u << e.timestamp) disable(100, e.activity, e.event_type);
        }
    }
}

// A batch that the module reports while an enable of a pair already on is under way below sees
// the new request; the first-report limit the enable files once the module answered holds for the
// next batch (it is looked up under the reporting process).
TEST_F(ActivityEventsTest, BatchDuringAnEnable) {
    auto a = add(1, 100);
    auto b = add(1, 200);
    enable(100, 1, 1);
    simulated_legacy::setStateAnswer(simulated_legacy::Side::kActivity,
                                     {{{1, 1, 1000, 0, 0, {}}}, {}, false});
    simulated_legacy::setHook("enable_activity_event", [] { report(200, {event(1, 1, 10)}); });
    EXPECT_EQ(0, enable(200, 1, 1));
    simulated_legacy::setHook("enable_activity_event", {});
    report(200, {event(1, 1, 999), event(1, 1, 1000)});
    EXPECT_EQ((Batches{{10}, {1000}}), take(a->v11));
    EXPECT_EQ((Batches{{10}, {1000}}), take(b->v11));
}

// An enable that the module refuses, plain or extended, is rolled back: a batch that the module
// reported while the enable was under way below reached the request, later batches do not.
TEST_F(ActivityEventsTest, RefusedEnableMatchesNothingAfterwards) {
    for (const bool extended : {false, true}) {
        auto a = add(1, 100);
        auto b = add(1, 200);
        enable(100, 1, 1);
        const std::string entry =
                extended ? "enable_activity_event_extend" : "enable_activity_event";
        simulated_legacy::setResult(entry, 1);
        simulated_legacy::setHook(entry, [] { report(7, {event(1, 2, 10)}); });
        {
            ScopedCallingIdentity guard(200);
            EXPECT_EQ(1, extended ? iface->enableActivityEventExtend(2, 1, 1000000000, params(1))
                                  : iface->enableActivityEvent(2, 1, 1000000000));
        }
        simulated_legacy::setHook(entry, {});
        simulated_legacy::setResult(entry, 0);
        report(7, {event(1, 1, 20), event(1, 2, 30)});
        EXPECT_EQ((Batches{{20}}), take(a->v11)) << entry;
        EXPECT_EQ((Batches{{10}}), take(b->v11)) << entry;
        disable(100, 1, 1);
    }
}

// A failing client is logged and the others are still served. The 1.1 line names the map entry
// at the pid's position in the served pids, or the failing client when that is past the map's
// end.
TEST_F(ActivityEventsTest, FailingClientsAreLoggedAndTheOthersServed) {
    auto a = add(1, 100);
    auto b = add(1, 200);
    auto c10 = add(0, 300);
    enable(100, 1, 1);
    enable(200, 1, 1);
    b->failing = c10->failing = true;
    log.clear();
    report(7, {event(1, 1, 5)});
    const std::string atPosition1 = a.get() < b.get() ? "200" : "100";
    EXPECT_EQ(1, log.count(4, "AR_impl",
                           "ActivitiesReport: Unable to invoke onActivityChangedV1_1 PID[" +
                                   atPosition1 + "]"));
    EXPECT_EQ(2, log.count(6, "AR_impl",
                           "ActChangedCbV1_0: Unable to invoke onActivityChangedV1_0 PID[300]"));
    EXPECT_EQ(1u, a->v11.size());
    EXPECT_EQ(2u, c10->v10.size());
    a->die();
    log.clear();
    report(7, {event(1, 1, 6)});
    EXPECT_EQ(1, log.count(4, "AR_impl",
                           "ActivitiesReport: Unable to invoke onActivityChangedV1_1 PID[200]"));
    EXPECT_EQ(1, log.count(4, "AR_impl", "able to onActivityChangedV1_1"));
    log.clear();
    ar_context_event record{};
    simulated_legacy::reportExtendedActivities(&record, 1);
    EXPECT_EQ((Lines{"6 ActExtendChangedCb: Unable to invoke onActivityExtendChangedV1_1, PID[200]",
                     "6 ActExtendChangedCbV1_0: Unable to invoke onActivityExtendChangedV1_0 "
                     "PID[300]"}),
              lines());
}

}  // namespace
