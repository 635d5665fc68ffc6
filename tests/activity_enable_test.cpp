// Enable, disable and flush: requests per client, one merged request per pair below, routed to
// the legacy module or, for activity 3, to the client library's commands.
#include <math.h>

#include "ActivityZelSupport.h"

namespace {

using namespace artest;

class ActivityEnableTest : public ZelActivityTest {};

constexpr int64_t kS = 1000000000;

TEST_F(ActivityEnableTest, InvalidEventTypesChangeNothing) {
    for (uint32_t type : {0u, 3u}) {
        run({{100, 'e', 1, type, kS, 0, 1, {}},
             {100, 'x', 1, type, kS, 2, 1, {}},
             {100, 'd', 1, type, 0, 0, 1, {}}});
    }
    EXPECT_TRUE(Peer::requests().empty());
    EXPECT_EQ(6u, lines().size());  // the entry lines only
}

// Unsigned rounding to whole seconds; the smallest latency of a pair goes down, and a first
// report (the last state record's time) only for the request that joins a pair already on.
TEST_F(ActivityEnableTest, LegacyPairsAreMerged) {
    ar_context_event states[2] = {};
    states[0].timestamp = 100;
    states[1].timestamp = 200;
    setLegacyState({states[0], states[1]});
    run({{100, 'e', 1, 1, 1, 0, 0, {"enable_activity_event(1,1,1000000000)"}},
         {100, 'e', 2, 1, 2500000000, 0, 0, {"enable_activity_event(2,1,2000000000)"}},
         {100, 'e', 4, 1, -1, 0, 0, {"enable_activity_event(4,1,-709551616)"}},
         {100, 'e', 5, 1, 5 * kS, 0, 0, {"enable_activity_event(5,1,5000000000)"}},
         {200, 'e', 5, 1, 2 * kS, 0, 0, {"enable_activity_event(5,1,2000000000)"}}});
    ASSERT_EQ(1u, Peer::firstReports().size());
    EXPECT_EQ(200u, Peer::firstReports()[0].pid);
    EXPECT_EQ(200, Peer::firstReports()[0].timestamp);
    EXPECT_EQ(100u, Peer::nativePid(5, 1, Peer::native(iface)));
    Peer::lastEvents().push_back({200, 5, 1, 7, {}, 0});
    run({{200, 'd', 5, 1, 0, 0, 0, {"enable_activity_event(5,1,5000000000)"}},
         {100, 'd', 5, 1, 0, 0, 0, {"disable_activity_event(5,1)"}},
         {100, 'd', 5, 1, 0, 0, 1, {}}});
    EXPECT_TRUE(Peer::firstReports().empty() && Peer::lastEvents().empty());
    EXPECT_EQ(1, log.count(4, "AR_impl",
                           "enableActivityEvent activity[4], event[1] reportLatency[-1]ns"));
    EXPECT_EQ(4, log.count(4, "AR_impl", "enableActivityEvent end, pid[100]"));
    EXPECT_EQ(3, log.count(4, "AR_impl", "disableActivityEvent acivity[5] event[1]"));
}

// No-wake requests are stored at seven days. With only extended requests left, a pair is sent
// again with zero parameters, or those of the last remaining no-wake request.
TEST_F(ActivityEnableTest, ExtendedRequests) {
    run({{100, 'x', 1, 1, 3 * kS, 2, 0, {"enable_activity_event_extend(1,1,3000000000;2)"}},
         {200, 'x', 1, 1, 9 * kS, 1, 0, {"enable_activity_event_extend(1,1,3000000000;1)"}},
         {300, 'x', 1, 1, 4 * kS, 3, 0, {"enable_activity_event_extend(1,1,3000000000;3)"}},
         {300, 'd', 1, 1, 0, 0, 0, {"enable_activity_event_extend(1,1,3000000000;1)"}},
         {200, 'd', 1, 1, 0, 0, 0, {"enable_activity_event_extend(1,1,3000000000;0)"}},
         {100, 'd', 1, 1, 0, 0, 0, {"disable_activity_event(1,1)"}},
         {200, 'x', 2, 1, 5 * kS, 1, 0, {"enable_activity_event_extend(2,1,604800000000000;1)"}}});
    EXPECT_EQ(604800000000000, Peer::requestLatency(200, 2, 1));
    EXPECT_EQ(1u, uint32_t{Peer::native(iface).at(0).noWake});
    EXPECT_EQ(1, log.count(4, "AR_impl", "enableActivityEventExtend end, pid[300]"));
    EXPECT_EQ(1, log.count(4, "AR_impl",
                           "enableActivityEventExtend activity[1], event[1] "
                           "report_latency[4000000000]ns"));
}

// Texts of up to 32 bytes go down without a terminator; longer ones are refused. A pair first
// switched on for pid 0 looks absent: later requests add native entries and get no first report.
TEST_F(ActivityEnableTest, TextsAndPidZero) {
    const std::string text32(32, 'x');
    EXPECT_EQ(1, enableExtend(100, 2, 2, kS, params(2.5, 0, text32 + "y")));
    EXPECT_EQ(0, enableExtend(100, 2, 1, kS, params(2.5, 0, text32)));
    EXPECT_EQ(text32, std::string(simulated_legacy::calls().at(0).params.extra, 32));
    EXPECT_EQ(1u, Peer::requests().size());
    ::android::hardware::host::setThreadStateAvailable(false);
    EXPECT_EQ(0, iface->enableActivityEventExtend(1, 1, kS, params(2.0)));
    ::android::hardware::host::setThreadStateAvailable(true);
    EXPECT_EQ(0, enableExtend(100, 1, 1, 2 * kS, params(2.0)));
    EXPECT_EQ(3u, Peer::native(iface).size());
    EXPECT_TRUE(Peer::firstReports().empty());
}

TEST_F(ActivityEnableTest, FlushAnswersOneForAnyFailure) {
    EXPECT_EQ(0, iface->flush());
    simulated_legacy::setResult("flush", 7);
    EXPECT_EQ(1, iface->flush());
}

// Each "ar-on" carries the whole list of routed pairs in insertion order; a merged latency
// changes only its entry's latency; a failed "ar-on" fails the request but leaves its entry.
TEST_F(ActivityEnableTest, RoutedPairsAndTheirCommands) {
    run({{100, 'e', 3, 1, 5 * kS, 0, 0, {"ar-on 3,1,5000000000,0,;"}},
         {100, 'e', 1, 1, kS, 0, 0, {"enable_activity_event(1,1,1000000000)"}},
         {100, 'e', 3, 2, 3 * kS, 0, 0, {"ar-on 3,1,5000000000,0,;3,2,3000000000,0,;"}},
         {200, 'e', 3, 1, 2 * kS, 0, 0, {"ar-on 3,1,2000000000,0,;3,2,3000000000,0,;"}},
         {100, 'd', 3, 2, 0, 0, 0, {"ar-off 3,2"}},
         {200, 'd', 3, 1, 0, 0, 0, {"ar-on 3,1,5000000000,0,;"}}});
    const Lines logged = lines();
    EXPECT_EQ((Lines{"4 enableActivityEvent activity[3], event[1] reportLatency[5000000000]ns",
                     "4 [ZEL]tmpIndex:-1\n",
                     "4 UpdateEnableNative: [ZEL]enable activityHandle:3, eventType:1, "
                     "cmdParam:3,1,5000000000,0,;\n",
                     "4 UpdateEnableNative: [ZEL]ar-on retCode(0)\n",
                     "4 enableActivityEvent end, pid[100]"}),
              Lines(logged.begin(), logged.begin() + 5));
    for (const char* line : {"[ZEL]tmpIndex:0\n",
                             "enableActivityEvent: [ZEL]enable activityHandle:3, eventType:1, "
                             "cmdParam:3,1,2000000000,0,;3,2,3000000000,0,;\n",
                             "enableActivityEvent: [ZEL]ar-on retCode(0)\n",
                             "DisableOtherActivityEvent: [ZEL]ar-off retCode(0)\n",
                             "ZelEnableEvent: [ZEL]ar-on retCode(0)\n"}) {
        EXPECT_LE(1, log.count(4, "AR_impl", line)) << line;
    }
    simulated_zel::queueResults(simulated_zel::Entry::kRunCommand, {-3});
    run({{300, 'e', 3, 2, kS, 0, 1, {"ar-on 3,1,5000000000,0,;3,2,1000000000,0,;"}},
         {300, 'x', 4, 1, kS, 1, 0, {"enable_activity_event_extend(4,1,604800000000000;1)"}},
         {300, 'x', 3, 2, kS, 1, 0, {"ar-on 3,1,5000000000,0,;3,2,604800000000000,0,;"}},
         {400, 'x', 3, 2, 4 * kS, 2, 0, {"ar-on 3,1,5000000000,0,;3,2,4000000000,0,;"}},
         {300, 'd', 3, 2, 0, 0, 0, {"ar-on 3,1,5000000000,0,;3,2,4000000000,0,;"}}});
    EXPECT_EQ(1, log.count(4, "AR_impl", "UpdateEnableNative: [ZEL]ar-on retCode(-3)\n"));
    EXPECT_EQ(2, log.count(4, "AR_impl", "EnableActivityEvent: [ZEL]ar-on retCode(0)\n"));
    EXPECT_EQ(1, log.count(4, "AR_impl", "ZelEnableEventExtend: [ZEL]ar-on, retCode(0)"));
}

// A new routed no-wake pair is flagged in the list.
TEST_F(ActivityEnableTest, RoutedNoWakePair) {
    run({{100, 'x', 3, 1, kS, 1, 0, {"ar-on 3,1,604800000000000,1,;"}}});
}

// "modem-update" follows every extended request of activity 64 once pairs are on in the library,
// also a failed one; its doubles are truncated, saturated, and NaN gives 0.
TEST_F(ActivityEnableTest, ModemUpdateForActivity64) {
    EXPECT_EQ(0, enableExtend(100, 64, 1, kS, params(2.0)));
    enable(100, 3, 1, kS);
    simulated_legacy::setResult("enable_activity_event_extend", 5);
    below();
    EXPECT_EQ(1, enableExtend(200, 64, 1, kS, params(12.9, -7.9e10)));
    EXPECT_EQ(1, enableExtend(300, 64, 2, kS, params(-3.99, NAN)));
    EXPECT_EQ((Lines{"enable_activity_event_extend(64,1,1000000000;12.9)",
                     "enable_activity_event_extend(64,2,1000000000;-3.99)",
                     "modem-update 12,-2147483648", "modem-update -3,0"}),
              below());
    EXPECT_EQ(2, log.count(4, "AR_impl", "enableActivityEventExtend: [ZEL]m-update retCode(0)\n"));
    EXPECT_EQ(2u, Peer::requests().size());
}

// The limit of a request that joins a routed pair: 0 when only the client library answers, no
// entry when neither layer answers.
TEST_F(ActivityEnableTest, FirstReportWhenOnlyTheClientLibraryAnswers) {
    enable(100, 3, 1, kS);
    enable(200, 3, 1, kS);
    EXPECT_TRUE(Peer::firstReports().empty());
    simulated_zel::setStatusRecords({ar_context_event{}});
    enable(300, 3, 1, kS);
    ASSERT_EQ(1u, Peer::firstReports().size());
    EXPECT_EQ(300u, Peer::firstReports()[0].pid);
    EXPECT_EQ(0, Peer::firstReports()[0].timestamp);
    // A negative legacy count is an answer too, with no record to take a time from.
    simulated_zel::setStatusRecords({});
    simulated_legacy::StateAnswer negative;
    negative.count = -1;
    simulated_legacy::setStateAnswer(simulated_legacy::Side::kActivity, negative);
    enable(400, 3, 1, kS);
    ASSERT_EQ(2u, Peer::firstReports().size());
    EXPECT_EQ(0, Peer::firstReports()[1].timestamp);
}

// The quirks of the list helpers.
TEST_F(ActivityEnableTest, ListHelpers) {
    std::vector<EnableToNativeData> list;
    EXPECT_EQ(-1, Peer::nativeIndex(1, 1, list));
    EXPECT_TRUE(Peer::nativeAbsent(1, 1, list));
    list = {{10, 1, 1, kS, 0}, {20, 2, 2, kS, 1}};
    EXPECT_EQ(1, Peer::nativeIndex(2, 2, list));
    EXPECT_EQ(0, Peer::nativeIndex(5, 5, list));
    EXPECT_FALSE(Peer::nativeAbsent(2, 2, list));
    EXPECT_TRUE(Peer::nativeAbsent(5, 5, list));
    EXPECT_EQ(20u, Peer::nativePid(2, 2, list));
    EXPECT_EQ(0u, Peer::nativePid(5, 5, list));
    Peer::removeNative(5, 5, list);
    EXPECT_EQ(20u, Peer::nativePid(2, 2, list));
    EXPECT_EQ(1u, list.size());

    Peer::requests() = {{10, 1, 1, 4 * kS, {{1.0, 0, 0, 0}, ""}},
                        {10, 1, 2, 3 * kS, {}},
                        {20, 1, 1, 2 * kS, {{2.0, 0, 0, 0}, ""}}};
    EXPECT_EQ(2, Peer::requestIndex(20, 1, 1));
    EXPECT_EQ(-1, Peer::requestIndex(20, 1, 2));
    EXPECT_EQ(0, Peer::requestLatency(20, 1, 2));
    EXPECT_EQ(2 * kS, Peer::minLatency(1, 1));
    EXPECT_EQ(0, Peer::minLatency(2, 1));
    bool plain = true;
    other_params out{};
    EXPECT_TRUE(Peer::validEventActivity(0, 1, 1, plain, out));
    EXPECT_TRUE(plain);
    EXPECT_EQ(1.0, out.params[0]);
    EXPECT_FALSE(Peer::validEventActivity(0, 1, 2, plain, out));
    EXPECT_TRUE(Peer::validEventActivity(1, 1, 2, plain, out));
    EXPECT_FALSE(plain);
    EXPECT_FALSE(Peer::validEventActivity(3, 1, 1, plain, out));
}

}  // namespace
