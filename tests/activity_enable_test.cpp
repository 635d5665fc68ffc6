// Enable, disable and flush: requests per client, one merged request per pair below, routed to
// the legacy module or, for activity 3 here, to the client library's commands.
#include <math.h>

#include "ActivityZelSupport.h"

namespace {

using namespace artest;
using Lines = std::vector<std::string>;

class ActivityEnableTest : public ZelActivityTest {};

constexpr int64_t kS = 1000000000;

TEST_F(ActivityEnableTest, InvalidEventTypesChangeNothing) {
    for (uint32_t type : {0u, 3u}) {
        EXPECT_EQ(1, enable(100, 1, type, kS));
        EXPECT_EQ(1, enableExtend(100, 1, type, kS, params(2)));
        EXPECT_EQ(1, disable(100, 1, type));
    }
    EXPECT_TRUE(Peer::requests().empty());
    EXPECT_TRUE(legacyCalls().empty());
    EXPECT_EQ(6u, lines().size());  // the entry lines only
}

TEST_F(ActivityEnableTest, LatenciesAreRoundedAsUnsignedWholeSeconds) {
    EXPECT_EQ(0, enable(100, 1, 1, 1));
    EXPECT_EQ(0, enable(100, 2, 1, 2500000000));
    EXPECT_EQ(0, enable(100, 4, 1, -1));
    EXPECT_EQ(
            (Lines{"enable_activity_event(1,1,1000000000)", "enable_activity_event(2,1,2000000000)",
                   "enable_activity_event(4,1,-709551616)"}),
            legacyCalls());
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "enableActivityEvent activity[4], event[1] reportLatency[-1]ns"));
    EXPECT_EQ(3, log.count(ANDROID_LOG_INFO, "AR_impl", "enableActivityEvent end, pid[100]"));
}

// The smallest latency goes down; only the request that joins a pair already on gets a first
// report (the last state record's time); the native entry keeps the first requester.
TEST_F(ActivityEnableTest, TwoClientsOfOnePairAreMerged) {
    ar_context_event states[2] = {};
    states[0].timestamp = 100;
    states[1].timestamp = 200;
    setLegacyState({states[0], states[1]});
    EXPECT_EQ(0, enable(100, 1, 1, 5 * kS));
    EXPECT_EQ(0, enable(200, 1, 1, 2 * kS));
    EXPECT_EQ((Lines{"enable_activity_event(1,1,5000000000)",
                     "enable_activity_event(1,1,2000000000)"}),
              legacyCalls());
    ASSERT_EQ(1u, Peer::firstReports().size());
    EXPECT_EQ(200u, Peer::firstReports()[0].pid);
    EXPECT_EQ(200, Peer::firstReports()[0].timestamp);
    ASSERT_EQ(1u, Peer::native(iface).size());
    EXPECT_EQ(100u, uint64_t{Peer::native(iface)[0].pid});
    EXPECT_EQ(5 * kS, int64_t{Peer::native(iface)[0].reportLatencyNs});

    Peer::lastEvents().push_back({200, 1, 1, 7, {}, 0});
    EXPECT_EQ(0, disable(200, 1, 1));
    EXPECT_TRUE(Peer::firstReports().empty());
    EXPECT_TRUE(Peer::lastEvents().empty());
    EXPECT_EQ(0, disable(100, 1, 1));
    EXPECT_EQ((Lines{"enable_activity_event(1,1,5000000000)", "disable_activity_event(1,1)"}),
              legacyCalls());
    EXPECT_TRUE(Peer::native(iface).empty());
    EXPECT_EQ(1, disable(100, 1, 1));  // never enabled (any more): nothing is sent
    EXPECT_TRUE(legacyCalls().empty());
    EXPECT_EQ(3, log.count(ANDROID_LOG_INFO, "AR_impl", "disableActivityEvent acivity[1] event[1]"));
}

// No-wake requests are stored at seven days; texts up to 32 bytes are accepted.
TEST_F(ActivityEnableTest, ExtendedRequests) {
    EXPECT_EQ(0, enableExtend(100, 1, 1, 5 * kS, params(1.0)));
    EXPECT_EQ(604800000000000, Peer::requests()[0].reportLatencyNs);
    EXPECT_EQ(1u, uint32_t{Peer::native(iface)[0].noWake});
    const std::string text32(32, 'x');
    EXPECT_EQ(0, enableExtend(100, 2, 1, 5 * kS, params(2.5, 0, text32)));
    EXPECT_EQ(1, enableExtend(100, 2, 2, 5 * kS, params(2.5, 0, text32 + "y")));
    auto calls = simulated_legacy::calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ((std::vector<int64_t>{1, 1, 604800000000000}), calls[0].args);
    EXPECT_EQ(text32, std::string(calls[1].params.extra, 32));
    EXPECT_EQ(2.5, calls[1].params.params[0]);
    EXPECT_EQ(2u, Peer::requests().size());
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "enableActivityEventExtend activity[2], event[2] "
                           "report_latency[5000000000]ns"));
}

// Only extended requests left: the pair is re-sent with zero parameters, or those of the last
// no-wake request when one remains.
TEST_F(ActivityEnableTest, DisableKeepsNoWakeParametersOfTheRemainingRequests) {
    enableExtend(100, 1, 1, 3 * kS, params(2.0));
    enableExtend(200, 1, 1, 9 * kS, params(1.0));
    enableExtend(300, 1, 1, 4 * kS, params(3.0));
    simulated_legacy::clearCalls();
    EXPECT_EQ(0, disable(300, 1, 1));
    EXPECT_EQ(0, disable(200, 1, 1));
    auto calls = simulated_legacy::calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ((std::vector<int64_t>{1, 1, 3 * kS}), calls[0].args);
    EXPECT_EQ(1.0, calls[0].params.params[0]);
    EXPECT_EQ(0.0, calls[1].params.params[0]);
}

// A pair first switched on for pid 0 looks absent: every later request adds a native entry.
TEST_F(ActivityEnableTest, PairOfPidZeroIsSwitchedOnAgain) {
    ::android::hardware::host::setThreadStateAvailable(false);
    EXPECT_EQ(0, iface->enableActivityEventExtend(1, 1, kS, params(2.0)));
    ::android::hardware::host::setThreadStateAvailable(true);
    EXPECT_EQ(0, enableExtend(100, 1, 1, 2 * kS, params(2.0)));
    ASSERT_EQ(2u, Peer::native(iface).size());
    EXPECT_EQ(100u, uint64_t{Peer::native(iface)[1].pid});
    EXPECT_TRUE(Peer::firstReports().empty());
}

TEST_F(ActivityEnableTest, FlushAnswersOneForAnyFailure) {
    EXPECT_EQ(0, iface->flush());
    simulated_legacy::setResult("flush", 7);
    EXPECT_EQ(1, iface->flush());
}

// Activity 3 goes to the client library, the others stay with the legacy module. Each "ar-on"
// carries the whole list in insertion order; a merged latency changes only its entry's latency.
TEST_F(ActivityEnableTest, RoutedAndLegacyPairsSideBySide) {
    EXPECT_EQ(0, enable(100, 3, 1, 5 * kS));
    EXPECT_EQ(0, enable(100, 1, 1, kS));
    EXPECT_EQ(0, enable(100, 3, 2, 3 * kS));
    const Lines logged = lines();
    EXPECT_EQ((Lines{"4 enableActivityEvent activity[3], event[1] reportLatency[5000000000]ns",
                     "4 [ZEL]tmpIndex:-1\n",
                     "4 UpdateEnableNative: [ZEL]enable activityHandle:3, eventType:1, "
                     "cmdParam:3,1,5000000000,0,;\n",
                     "4 UpdateEnableNative: [ZEL]ar-on retCode(0)\n",
                     "4 enableActivityEvent end, pid[100]"}),
              Lines(logged.begin(), logged.begin() + 5));
    EXPECT_EQ(Lines{"enable_activity_event(1,1,1000000000)"}, legacyCalls());
    EXPECT_EQ(0, enable(200, 3, 1, 2 * kS));
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl", "[ZEL]tmpIndex:0\n"));
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "enableActivityEvent: [ZEL]ar-on retCode(0)\n"));
    EXPECT_EQ(0, disable(100, 3, 2));
    EXPECT_EQ(0, disable(200, 3, 1));
    EXPECT_EQ((Lines{"ar-on 3,1,5000000000,0,;", "ar-on 3,1,5000000000,0,;3,2,3000000000,0,;",
                     "ar-on 3,1,2000000000,0,;3,2,3000000000,0,;", "ar-off 3,2",
                     "ar-on 3,1,5000000000,0,;"}),
              zelCommands());
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "DisableOtherActivityEvent: [ZEL]ar-off retCode(0)\n"));
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl", "ZelEnableEvent: [ZEL]ar-on retCode(0)\n"));
    EXPECT_TRUE(legacyCalls().empty());
}

// A failed "ar-on" fails the request but leaves its pair in the list for the next command.
TEST_F(ActivityEnableTest, FailedArOnLeavesItsEntry) {
    simulated_zel::queueResults(simulated_zel::Entry::kRunCommand, {-3});
    EXPECT_EQ(1, enable(100, 3, 1, kS));
    EXPECT_TRUE(Peer::requests().empty());
    EXPECT_EQ(0, enableExtend(100, 3, 2, 3 * kS, params(1.0)));
    EXPECT_EQ(
            (Lines{"ar-on 3,1,1000000000,0,;", "ar-on 3,1,1000000000,0,;3,2,604800000000000,1,;"}),
            zelCommands());
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "UpdateEnableNative: [ZEL]ar-on retCode(-3)\n"));
}

// Only extended requests left on a routed pair: "ar-on" with its own return-code line.
TEST_F(ActivityEnableTest, RoutedExtendedRequestsAfterADisable) {
    enableExtend(100, 3, 1, 2 * kS, params(2.0));
    enableExtend(200, 3, 1, 4 * kS, params(2.0));
    EXPECT_EQ(0, disable(100, 3, 1));
    EXPECT_EQ((Lines{"ar-on 3,1,2000000000,0,;", "ar-on 3,1,2000000000,0,;",
                     "ar-on 3,1,4000000000,0,;"}),
              zelCommands());
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "ZelEnableEventExtend: [ZEL]ar-on, retCode(0)"));
}

// "modem-update" follows every extended request of activity 64 once pairs are on in the library,
// also a failed one; its doubles are truncated, saturated, and NaN gives 0.
TEST_F(ActivityEnableTest, ModemUpdateForActivity64) {
    EXPECT_EQ(0, enableExtend(100, 64, 1, kS, params(2.0)));
    EXPECT_TRUE(zelCommands().empty());
    enable(100, 3, 1, kS);
    simulated_legacy::setResult("enable_activity_event_extend", 5);
    zelCommands();
    EXPECT_EQ(1, enableExtend(200, 64, 1, kS, params(12.9, -7.9e10)));
    EXPECT_EQ(1, enableExtend(300, 64, 2, kS, params(-3.99, NAN)));
    EXPECT_EQ((Lines{"modem-update 12,-2147483648", "modem-update -3,0"}), zelCommands());
    EXPECT_EQ(2, log.count(ANDROID_LOG_INFO, "AR_impl",
                           "enableActivityEventExtend: [ZEL]m-update retCode(0)\n"));
    EXPECT_EQ(2u, Peer::requests().size());
}

// The limit of a request that joins a routed pair: 0 when only the client library answers, no
// entry when neither layer has a state.
TEST_F(ActivityEnableTest, FirstReportWhenOnlyTheClientLibraryAnswers) {
    enable(100, 3, 1, kS);
    enable(200, 3, 1, kS);
    EXPECT_TRUE(Peer::firstReports().empty());
    simulated_zel::setStatusRecords({ar_context_event{}});
    enable(300, 3, 1, kS);
    ASSERT_EQ(1u, Peer::firstReports().size());
    EXPECT_EQ(300u, Peer::firstReports()[0].pid);
    EXPECT_EQ(0, Peer::firstReports()[0].timestamp);
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
    EXPECT_EQ(20u, uint64_t{Peer::findNative(2, 2, list).pid});
    EXPECT_EQ(0u, uint64_t{Peer::findNative(5, 5, list).pid});
    Peer::removeNative(5, 5, list);
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ(20u, uint64_t{list[0].pid});

    Peer::requests() = {{10, 1, 1, 4 * kS, {{1.0, 0, 0, 0}, ""}},
                        {10, 1, 2, 3 * kS, {}},
                        {20, 1, 1, 2 * kS, {{2.0, 0, 0, 0}, ""}}};
    EXPECT_EQ(2, Peer::findRequestIndex(20, 1, 1));
    EXPECT_EQ(-1, Peer::findRequestIndex(20, 1, 2));
    EXPECT_EQ(0, Peer::findRequest(20, 1, 2).reportLatencyNs);
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
