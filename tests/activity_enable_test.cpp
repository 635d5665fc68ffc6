// Enable and disable: requests per client, one merged request per pair below, routed to
// the legacy module or, for activity 3, to the client library's commands.
#include <math.h>

#include "ActivityZelSupport.h"

namespace {

using namespace artest;

class ActivityEnableTest : public ZelActivityTest {};

constexpr int64_t kS = 1000000000;

// Unsigned rounding to whole seconds; the smallest latency of a pair goes down, and a first
// report (the last state record's time) only for the request that joins a pair already on.
TEST_F(ActivityEnableTest, LegacyPairsAreMerged) {
    ar_context_event states[2] = {};
    states[0].timestamp = 100;
    states[1].timestamp = 200;
    setLegacyState({states[0], states[1]});
    run({on(100, 1, 1, 1, {"enable_activity_event(1,1,1000000000)"}),
         on(100, 2, 1, 2500000000, {"enable_activity_event(2,1,2000000000)"}),
         on(100, 4, 1, -1, {"enable_activity_event(4,1,-709551616)"}),
         on(100, 5, 1, 5 * kS, {"enable_activity_event(5,1,5000000000)"}),
         on(200, 5, 1, 2 * kS, {"enable_activity_event(5,1,2000000000)"})});
    auto client = add(1, 200);
    report(200, {event(1, 5, 199), event(1, 5, 200)});
    report(100, {event(1, 5, 199)});
    ASSERT_EQ(2u, client->v11.size());
    EXPECT_EQ(1u, client->v11[0].size());  // the limit is the reporting process's
    EXPECT_EQ(200, client->v11[0].at(0).timestamp);
    run({off(200, 5, 1, {"enable_activity_event(5,1,5000000000)"}),
         off(100, 5, 1, {"disable_activity_event(5,1)"}), off(100, 5, 1, {}).fails()});
    EXPECT_EQ(1, log.count(4, "AR_impl",
                           "enableActivityEvent activity[4], event[1] reportLatency[-1]ns"));
    EXPECT_EQ(4, log.count(4, "AR_impl", "enableActivityEvent end, pid[100]"));
    EXPECT_EQ(3, log.count(4, "AR_impl", "disableActivityEvent acivity[5] event[1]"));
}

// No-wake requests are stored at seven days. With only extended requests left, a pair is sent
// again with zero parameters, or those of the last remaining no-wake request.
TEST_F(ActivityEnableTest, ExtendedRequests) {
    run({onExtended(100, 1, 1, 3 * kS, 2, {"enable_activity_event_extend(1,1,3000000000;2)"}),
         onExtended(200, 1, 1, 9 * kS, 1, {"enable_activity_event_extend(1,1,3000000000;1)"}),
         onExtended(300, 1, 1, 4 * kS, 3, {"enable_activity_event_extend(1,1,3000000000;3)"}),
         off(300, 1, 1, {"enable_activity_event_extend(1,1,3000000000;1)"}),
         off(200, 1, 1, {"enable_activity_event_extend(1,1,3000000000;0)"}),
         off(100, 1, 1, {"disable_activity_event(1,1)"}),
         onExtended(200, 2, 1, 5 * kS, 1, {"enable_activity_event_extend(2,1,604800000000000;1)"})});
    EXPECT_EQ(1, log.count(4, "AR_impl", "enableActivityEventExtend end, pid[300]"));
    EXPECT_EQ(1, log.count(4, "AR_impl",
                           "enableActivityEventExtend activity[1], event[1] "
                           "report_latency[4000000000]ns"));
}

// Texts of up to 32 bytes go down without a terminator; longer ones are refused. A pair first
// switched on for pid 0 looks absent: the next request switches it on again, with its own
// latency.
TEST_F(ActivityEnableTest, TextsAndPidZero) {
    const std::string text32(32, 'x');
    EXPECT_EQ(1, enableExtend(100, 2, 2, kS, params(2.5, 0, text32 + "y")));
    EXPECT_EQ(0, enableExtend(100, 2, 1, kS, params(2.5, 0, text32)));
    EXPECT_EQ(text32, std::string(simulated_legacy::calls().at(0).params.extra, 32));
    below();
    run({off(100, 2, 2, {}).fails()});
    ::android::hardware::host::setThreadStateAvailable(false);
    EXPECT_EQ(0, iface->enableActivityEventExtend(1, 1, kS, params(2.0)));
    ::android::hardware::host::setThreadStateAvailable(true);
    EXPECT_EQ((Lines{"enable_activity_event_extend(1,1,1000000000;2)"}), below());
    run({onExtended(100, 1, 1, 2 * kS, 2, {"enable_activity_event_extend(1,1,2000000000;2)"})});
}

// Each "ar-on" carries the whole list of routed pairs in insertion order; a merged latency
// changes only its entry's latency; a failed "ar-on" fails the request but leaves its entry.
TEST_F(ActivityEnableTest, RoutedPairsAndTheirCommands) {
    run({on(100, 3, 1, 5 * kS, {"ar-on 3,1,5000000000,0,;"}),
         on(100, 1, 1, kS, {"enable_activity_event(1,1,1000000000)"}),
         on(100, 3, 2, 3 * kS, {"ar-on 3,1,5000000000,0,;3,2,3000000000,0,;"}),
         on(200, 3, 1, 2 * kS, {"ar-on 3,1,2000000000,0,;3,2,3000000000,0,;"}),
         off(100, 3, 2, {"ar-off 3,2"}), off(200, 3, 1, {"ar-on 3,1,5000000000,0,;"})});
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
    run({on(300, 3, 2, kS, {"ar-on 3,1,5000000000,0,;3,2,1000000000,0,;"}).fails(),
         onExtended(300, 4, 1, kS, 1, {"enable_activity_event_extend(4,1,604800000000000;1)"}),
         onExtended(300, 3, 2, kS, 1, {"ar-on 3,1,5000000000,0,;3,2,604800000000000,0,;"}),
         onExtended(400, 3, 2, 4 * kS, 2, {"ar-on 3,1,5000000000,0,;3,2,4000000000,0,;"}),
         off(300, 3, 2, {"ar-on 3,1,5000000000,0,;3,2,4000000000,0,;"})});
    EXPECT_EQ(1, log.count(4, "AR_impl", "UpdateEnableNative: [ZEL]ar-on retCode(-3)\n"));
    EXPECT_EQ(2, log.count(4, "AR_impl", "EnableActivityEvent: [ZEL]ar-on retCode(0)\n"));
    EXPECT_EQ(1, log.count(4, "AR_impl", "ZelEnableEventExtend: [ZEL]ar-on, retCode(0)"));
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
    run({off(200, 64, 1, {}).fails()});
}

}  // namespace
