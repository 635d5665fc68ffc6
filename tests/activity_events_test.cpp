// Intake of activity batches (legacy module and client-library notifications) and their fan-out.
#include <string.h>
#include <unistd.h>

#include "ActivityTestSupport.h"

namespace {

using namespace artest;
using Lines = std::vector<std::string>;

class ActivityEventsTest : public ActivityTest {};
using V1_1Event = ar::V1_1::ActivityEventV1_1;

void addRequest(uint64_t pid, uint32_t activity, uint32_t eventType) {
    Peer::requests().push_back({pid, activity, eventType, 1000000000, {}});
}

std::vector<int64_t> timestamps(const std::vector<V1_1Event>& events) {
    std::vector<int64_t> out;
    for (const auto& e : events) out.push_back(e.timestamp);
    return out;
}

// Sizes of the batches a 1.0 client received.
std::vector<size_t> sizes(const std::vector<std::vector<ar::V1_0::ActivityEvent>>& batches) {
    std::vector<size_t> out;
    for (const auto& b : batches) out.push_back(b.size());
    return out;
}

TEST_F(ActivityEventsTest, BatchesOutside1To192AreRefusedWhole) {
    auto c10 = registerV1_0(100);
    auto c11 = registerV1_1(200);
    addRequest(200, 1, 1);
    std::vector<activity_event> plain(193, event(1, 1, 5));
    std::vector<ar_context_event> extended(193);
    for (int count : {0, 193, -1, 1}) {
        const bool null = count == 1;
        log.clear();
        simulated_legacy::reportActivities(null ? nullptr : plain.data(), count);
        simulated_legacy::reportExtendedActivities(null ? nullptr : extended.data(), count);
        const std::string n = std::to_string(count);
        EXPECT_EQ((Lines{"4 ActChangedCb start count[" + n + "]",
                         "6 (ActChangedCb:413) Invalid actChangedCb. Count: " + n,
                         "6 (ActExtendChangedCb:180) Invalid actExtendChangedCb. Count: " + n}),
                  lines());
    }
    EXPECT_TRUE(c10->v10.empty() && c10->ext10.empty() && c11->v11.empty() && c11->ext11.empty());
    simulated_legacy::reportActivities(plain.data(), 192);
    simulated_legacy::reportExtendedActivities(extended.data(), 192);
    ASSERT_EQ(1u, c11->v11.size());
    EXPECT_EQ(192u, c11->v11[0].size());
    EXPECT_EQ(192u, c11->ext11.at(0).size());
    EXPECT_EQ(192u, c10->ext10.at(0).size());
}

// Type 0 is skipped; the last-event record is kept per (pid, activity) and only its type moves.
TEST_F(ActivityEventsTest, MatchingSkipsTypeZeroAndRecordsTheLastType) {
    auto client = registerV1_1(100);
    addRequest(100, 1, 0);
    addRequest(100, 1, 1);
    addRequest(100, 1, 2);
    log.clear();
    report(100, {event(0, 1, 5)});
    EXPECT_TRUE(client->v11.empty());
    EXPECT_TRUE(Peer::packageNames().empty());
    report(100, {event(1, 1, 10, 33), event(2, 1, 20)});
    ASSERT_EQ(1u, client->v11.size());
    EXPECT_EQ((std::vector<int64_t>{10, 20}), timestamps(client->v11[0]));
    EXPECT_EQ(33, client->v11[0][0].confidence);
    EXPECT_EQ(2u, client->v11[0][1].eventType);
    ASSERT_EQ(1u, Peer::lastEvents().size());
    const EventResponseData last = Peer::lastEvents()[0];
    EXPECT_EQ(100u, uint64_t{last.pid});
    EXPECT_EQ(2u, uint32_t{last.eventType});
    EXPECT_EQ(10, int64_t{last.timestamp});
    EXPECT_EQ(0, int32_t{last.confidence});
    EXPECT_EQ((Lines{"4 ActChangedCb start count[1]", "4 ActChangedCb end, pid[100]",
                     "4 ActChangedCb start count[2]", "4 able to onActivityChangedV1_1",
                     "4 ActChangedCb end, pid[100]"}),
              lines());
}

// The limit is looked up under the pid that delivers the batch; an equal timestamp passes.
TEST_F(ActivityEventsTest, FirstReportLimitIsKeyedByTheDeliveringPid) {
    auto client = registerV1_1(100);
    addRequest(100, 1, 1);
    Peer::firstReports().push_back({100, 1, 1, 1000});
    report(300, {event(1, 1, 999)});
    report(100, {event(1, 1, 999), event(1, 1, 1000)});
    ASSERT_EQ(2u, client->v11.size());
    EXPECT_EQ(std::vector<int64_t>{999}, timestamps(client->v11[0]));
    EXPECT_EQ(std::vector<int64_t>{1000}, timestamps(client->v11[1]));
}

TEST_F(ActivityEventsTest, EachRequestingPidGetsItsOwnCopy) {
    auto a = registerV1_1(100);
    auto b = registerV1_1(200);
    auto bystander = registerV1_1(300);
    addRequest(100, 1, 1);
    addRequest(200, 1, 1);
    report(7, {event(1, 1, 5, 9)});
    for (const auto& c : {a, b}) {
        ASSERT_EQ(1u, c->v11.size());
        ASSERT_EQ(1u, c->v11[0].size());
        EXPECT_EQ(9, c->v11[0][0].confidence);
    }
    EXPECT_TRUE(bystander->v11.empty());
    EXPECT_TRUE(a->v10.empty());
}

// A 1.0 client gets one call per pid ever served, in first-served order, mostly empty; the list
// of pids never shrinks.
TEST_F(ActivityEventsTest, V1_0ClientsGetEveryPidsEvents) {
    auto c10 = registerV1_0(900);
    addRequest(300, 3, 1);
    addRequest(100, 1, 1);
    addRequest(200, 2, 1);
    report(7, {event(1, 1, 1), event(1, 2, 2), event(1, 3, 3)});
    EXPECT_EQ((std::vector<uint64_t>{100, 200, 300}), Peer::packageNames());
    c10->v10.clear();
    report(7, {event(1, 2, 4)});
    EXPECT_EQ((std::vector<size_t>{0, 1, 0}), sizes(c10->v10));
    EXPECT_EQ(4, c10->v10[1][0].timestamp);
    Peer::requests().clear();
    report(7, {event(1, 2, 5)});
    EXPECT_EQ((std::vector<size_t>{0, 1, 0, 0, 0, 0}), sizes(c10->v10));
}

TEST_F(ActivityEventsTest, ExtendedBatchesReachEveryClientUnmatched) {
    auto c10 = registerV1_0(100);
    auto c11 = registerV1_1(200);
    ar_context_event records[2] = {};
    records[0].event_type = 2;
    records[0].activity = 4;
    records[0].confidence = 61;
    records[0].status = 5;
    records[0].params.params[1] = 2.5;
    strcpy(records[0].params.extra, "lying");
    records[1].activity = 9;
    log.clear();
    simulated_legacy::reportExtendedActivities(records, 2);
    ASSERT_EQ(1u, c11->ext11.size());
    ASSERT_EQ(1u, c10->ext10.size());
    EXPECT_EQ(2u, c11->ext11[0].size());
    EXPECT_EQ(ar::V1_1::implementation::ActivityInterface::convertACEToAEEV1_1(records[0]),
              c11->ext11[0][0]);
    EXPECT_EQ(ar::V1_1::implementation::ActivityInterface::convertACEToAEEV1_0(records[1]),
              c10->ext10[0][1]);
    EXPECT_TRUE(c10->v10.empty() && c11->v11.empty() && c11->ext10.empty());
    EXPECT_TRUE(Peer::packageNames().empty() && Peer::lastEvents().empty());
    EXPECT_TRUE(lines().empty());
}

// A failing client is logged and the others are still served. The 1.1 line names the map entry
// at the pid's position in packageNames, or the failing client when that is past the map's end.
TEST_F(ActivityEventsTest, FailingClientsAreLoggedAndTheOthersServed) {
    auto a = registerV1_1(100);
    auto b = registerV1_1(200);
    auto c10 = registerV1_0(300);
    addRequest(100, 1, 1);
    addRequest(200, 1, 1);
    b->setFailing(true);
    c10->setFailing(true);
    report(7, {event(1, 1, 5)});
    const int atPosition1 = a.get() < b.get() ? 200 : 100;
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "ActivitiesReport: Unable to invoke onActivityChangedV1_1 PID[" +
                                   std::to_string(atPosition1) + "]"));
    EXPECT_EQ(2, log.count(ANDROID_LOG_ERROR, "AR_impl",
                           "ActChangedCbV1_0: Unable to invoke onActivityChangedV1_0 PID[300]"));
    EXPECT_EQ(1u, a->v11.size());
    EXPECT_EQ(2u, c10->v10.size());

    a->die();
    log.clear();
    report(7, {event(1, 1, 6)});
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "ActivitiesReport: Unable to invoke onActivityChangedV1_1 PID[200]"));
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl", "able to onActivityChangedV1_1"));

    log.clear();
    ar_context_event record{};
    simulated_legacy::reportExtendedActivities(&record, 1);
    EXPECT_EQ((Lines{"6 ActExtendChangedCb: Unable to invoke onActivityExtendChangedV1_1, "
                     "PID[200]",
                     "6 ActExtendChangedCbV1_0: Unable to invoke onActivityExtendChangedV1_0 "
                     "PID[300]"}),
              lines());
}

std::vector<int32_t> pack(const std::vector<activity_event>& events, int32_t length) {
    const size_t bytes = std::max(length, 0);
    std::vector<int32_t> data((bytes + 3) / 4);
    if (bytes > 0) memcpy(data.data(), events.data(), std::min(bytes, data.size() * 4));
    return data;
}

struct Notification {
    int32_t byteLength;
    int count;   // records delivered, or -1 when refused
    int logged;  // count in the refusal line
    bool noData;
};

// Byte lengths of client-library notifications: 24-byte records, trailing bytes ignored.
TEST_F(ActivityEventsTest, ZelNotifyByteLengths) {
    auto c11 = registerV1_1(100);
    auto c10 = registerV1_0(200);
    addRequest(100, 1, 1);
    const std::vector<activity_event> records(193, event(1, 1, 5, 9));
    for (const Notification& n : {Notification{0, -1, 0, false}, Notification{-48, -1, -2, false},
                                  Notification{24, -1, 1, true}, Notification{4632, -1, 193, false},
                                  Notification{30, 1, 0, false}, Notification{1, 0, 0, false},
                                  Notification{4608, 192, 0, false}}) {
        SCOPED_TRACE(n.byteLength);
        log.clear();
        c11->v11.clear();
        c10->v10.clear();
        Peer::zelNotify(3, n.byteLength,
                        n.noData ? std::vector<int32_t>() : pack(records, n.byteLength));
        if (n.count < 0) {
            EXPECT_EQ(Lines{"6 (ZelNotify:151) [ZEL]Invalid ZelNotify. Count: " +
                            std::to_string(n.logged)},
                      lines());
            EXPECT_TRUE(c10->v10.empty());
            continue;
        }
        const std::string count = std::to_string(n.count);
        const std::string me = std::to_string(getpid());
        EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                               "ZelNotify: [ZEL]PackageNamePush, events size:" + count +
                                       ", eventDataFit size:" + count));
        EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                               "ZelNotify: [ZEL]Notify end, pid[" + me + "]"));
        EXPECT_EQ(n.count, log.countContaining("AR_impl", "AR_REPORT_EVENT"));
        // The empty batch still reaches the 1.0 client once per served pid.
        ASSERT_EQ(1u, c10->v10.size());
        EXPECT_EQ(static_cast<size_t>(n.count), c10->v10[0].size());
        EXPECT_EQ(n.count == 0 ? 0u : 1u, c11->v11.size());
    }
    log.clear();
    Peer::zelNotify(3, 30, pack(records, 30));
    EXPECT_EQ(1,
              log.count(ANDROID_LOG_INFO, "AR_impl",
                        "ZelNotify: [ZEL]AR_REPORT_EVENT: [0] e: 1, a:1, t:5, c:9, arStatus: 3"));
}

}  // namespace
