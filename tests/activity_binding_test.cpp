// Binding of the client library when the interface is created, the interface's life cycle, and
// the queries.
#include "ActivityZelSupport.h"
#include "FailingNew.h"

namespace {

using namespace artest;
using Lines = std::vector<std::string>;
using simulated_zel::Entry;
using ::vendor::quarn::hardware::activity_recognition::V1_1::implementation::ActivityInterface;

constexpr int64_t kS = 1000000000;

// Creates the interface itself, after the test has configured the lower layers.
class ActivityBindingTest : public ZelActivityTest {
  protected:
    void SetUp() override {
        simulated_legacy::reset();
        simulated_zel::reset();
    }
    void create(bool allowed) {
        ::android::base::SetProperty("ro.odm.config.zel_service_enable", allowed ? "true" : "false");
        service = fetchService();
        iface = service->getActivityInterfaceV1_1().withDefault(nullptr);
        ASSERT_NE(nullptr, iface);
        simulated_legacy::clearCalls();
    }
    // Which of these activities go to the client library.
    std::vector<uint32_t> routed(const std::vector<uint32_t>& activities) {
        std::vector<uint32_t> out;
        for (uint32_t a : activities) {
            enable(100, a, 1, kS);
            if (!zelCommands().empty()) out.push_back(a);
        }
        return out;
    }
};

TEST_F(ActivityBindingTest, PropertyFalseKeepsEverythingLegacy) {
    simulated_zel::setConfigMask(0xffffffff);
    create(false);
    EXPECT_EQ((Lines{"4 Construct ActivityInterface",
                     "6 ActivityInterface: [ZEL]zel service not enable!"}),
              lines());
    EXPECT_TRUE(simulated_zel::calls().empty());
    EXPECT_TRUE(routed({0, 3}).empty());
}

struct Binding {
    const char* name;
    std::vector<int32_t> config;
    std::vector<std::pair<Entry, std::vector<int32_t>>> queued;
    Lines lines;  // after "Construct ActivityInterface"
    std::vector<uint32_t> routed;
};

void PrintTo(const Binding& b, std::ostream* os) {
    *os << b.name;
}

class ActivityBindingAttemptTest : public ActivityBindingTest,
                                   public ::testing::WithParamInterface<Binding> {};

const std::string kRetry = "4 ActivityInterface:[ZEL]retry count[";
const std::string kBindFailed =
        "6 ActivityInterface:[ZEL]g_zelSetCallback or g_zelArEnable failed\n";
const std::string kReadFailed = "6 ActivityInterface:[ZEL]g_zelGetData failed\n";

TEST_P(ActivityBindingAttemptTest, MaskNamesTheRoutedActivities) {
    const Binding& b = GetParam();
    simulated_zel::setConfig(b.config);
    for (const auto& [entry, results] : b.queued) simulated_zel::queueResults(entry, results);
    create(true);
    Lines expected = {"4 Construct ActivityInterface"};
    expected.insert(expected.end(), b.lines.begin(), b.lines.end());
    EXPECT_EQ(expected, lines());
    EXPECT_EQ(b.routed, routed({0, 1, 6, 30, 31}));
}

INSTANTIATE_TEST_SUITE_P(
        Masks, ActivityBindingAttemptTest,
        ::testing::Values(Binding{"Mask41",
                                  {0x41},
                                  {},
                                  {kRetry + "0]\n", "4 ActivityInterface: [ZEL]AR config : 0x41"},
                                  {0, 6}},
                          Binding{"Mask80000000",
                                  {static_cast<int32_t>(0x80000000)},
                                  {},
                                  {kRetry + "0]\n",
                                   "4 ActivityInterface: [ZEL]AR config : 0x80000000"},
                                  {31}},
                          Binding{"EmptyConfig",
                                  {},
                                  {},
                                  {kRetry + "0]\n", "4 ActivityInterface: [ZEL]AR config : 0x0"},
                                  {}},
                          Binding{"ThreeFailedReads",
                                  {0x41},
                                  {{Entry::kGetData, {-1, -1, -1}}},
                                  {kRetry + "0]\n", kReadFailed, kRetry + "1]\n", kReadFailed,
                                   kRetry + "2]\n", kReadFailed},
                                  {}},
                          Binding{"MotionThenCallbackFail",
                                  {0x2},
                                  {{Entry::kMotionEnable, {0}}, {Entry::kSetCallback, {-1}}},
                                  {kRetry + "0]\n", kBindFailed, kRetry + "1]\n", kBindFailed,
                                   kRetry + "2]\n", "4 ActivityInterface: [ZEL]AR config : 0x2"},
                                  {1}}),
        [](const auto& info) { return std::string(info.param.name); });

// Every step of an attempt is repeated by the next one; the notification function is registered
// under the client name.
TEST_F(ActivityBindingTest, AttemptsCallTheEntryPointsInOrder) {
    simulated_zel::queueResults(Entry::kSetCallback, {-1});
    create(true);
    std::vector<std::string> seen;
    for (const auto& call : simulated_zel::calls()) {
        seen.push_back(call.client + call.name +
                       (call.ints.empty() ? "" : std::to_string(call.ints[0])));
    }
    EXPECT_EQ((Lines{"30", "ar-client", "30", "ar-client", "ar_config0"}), seen);
    EXPECT_EQ("ar-client", simulated_zel::registeredClient());
}

TEST_F(ActivityBindingTest, SecondInterfaceAborts) {
    create(false);
    EXPECT_DEATH(new ActivityInterface(nullptr), "sInterfaceExists");
}

// Requests, the supported set and the library's list outlive an interface destroyed before
// anything registered; the next one starts with an empty native list and no library functions.
TEST_F(ActivityBindingTest, RecreatedInterfaceKeepsTheRequests) {
    simulated_zel::setConfigMask(0x8);
    create(true);
    ASSERT_EQ((std::vector<uint32_t>{3}), routed({3}));  // (3,1) for pid 100
    enable(100, 1, 1, kS);
    enable(200, 1, 1, kS);
    iface.clear();
    service.clear();
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl", "Deconstruct ActivityInterface"));
    create(false);
    legacyCalls();

    EXPECT_EQ(1, disable(200, 1, 1));  // another request remains, the native list is empty
    EXPECT_EQ(0, enable(300, 2, 2, kS));
    EXPECT_EQ(0, disable(100, 1, 1));  // erases (2,2), the first native entry, instead
    EXPECT_EQ((Lines{"enable_activity_event(2,2,1000000000)", "disable_activity_event(1,1)"}),
              legacyCalls());
    EXPECT_EQ(0, enable(400, 2, 2, 5 * kS));
    EXPECT_EQ(Lines{"enable_activity_event(2,2,5000000000)"}, legacyCalls());
    EXPECT_EQ(0, enable(100, 3, 2, kS));  // still routed, but nothing to send it with
    EXPECT_TRUE(legacyCalls().empty());
    EXPECT_TRUE(simulated_zel::commands().empty());
    EXPECT_EQ(2u, Peer::native(iface).size());
}

TEST_F(ActivityBindingTest, SupportedList) {
    create(false);
    std::vector<int> answered;
    auto ask = [&] {
        iface->getSupportedActivitiesList([&](const auto& names) {
            answered.push_back(static_cast<int>(names.size()));
            if (names.size() == 2) {
                EXPECT_EQ(std::string("run"), std::string(names[1].c_str()));
            }
        });
    };
    simulated_legacy::ListAnswer answer;
    answer.names = {"walk", "run"};
    simulated_legacy::setListAnswer(simulated_legacy::Side::kActivity, answer);
    ask();
    answer.count = 0;
    simulated_legacy::setListAnswer(simulated_legacy::Side::kActivity, answer);
    ask();
    answer.count = 2;
    answer.nullList = true;
    simulated_legacy::setListAnswer(simulated_legacy::Side::kActivity, answer);
    ask();
    EXPECT_EQ((std::vector<int>{2, 0, 0}), answered);
    EXPECT_EQ(1,
              log.count(ANDROID_LOG_ERROR, "AR_impl",
                        "getSupportedActivitiesList: can not get support activity, list_size(0)"));
    EXPECT_EQ(1,
              log.count(ANDROID_LOG_ERROR, "AR_impl",
                        "getSupportedActivitiesList: can not get support activity, list_size(2)"));
}

TEST_F(ActivityBindingTest, SupportedListAllocationFailureLeavesTheCallbackUncalled) {
    SKIP_WITHOUT_FAILING_NEW();
    create(false);
    simulated_legacy::ListAnswer answer;
    answer.names = {"walk"};
    simulated_legacy::setListAnswer(simulated_legacy::Side::kActivity, answer);
    bool called = false;
    failNextNothrowNew();
    iface->getSupportedActivitiesList([&](const auto&) { called = true; });
    EXPECT_FALSE(called);
    EXPECT_EQ(1, log.count(ANDROID_LOG_ERROR, "AR_impl",
                           "getSupportedActivitiesList hidl string new failed"));
}

ar_context_event state(uint32_t activity, int64_t timestamp) {
    ar_context_event e{};
    e.event_type = 1;
    e.activity = activity;
    e.timestamp = timestamp;
    e.confidence = 5;
    return e;
}

// The client library's records come first and win for their activities; a legacy answer outside
// 1 to 5 records is refused whole.
TEST_F(ActivityBindingTest, CurrentActivityMergesBothSources) {
    simulated_zel::setConfigMask(0x8);
    create(true);
    simulated_zel::setStatusRecords({state(3, 30)});
    setLegacyState({state(3, 1), state(4, 2)});
    auto timestamps = [&] {
        std::vector<int64_t> v10, v11;
        iface->getCurrentActivity([&](const auto& events) {
            for (const auto& e : events) v10.push_back(e.timestamp);
        });
        iface->getCurrentActivityV1_1([&](const auto& events) {
            for (const auto& e : events) v11.push_back(e.timestamp);
        });
        EXPECT_EQ(v10, v11);
        return v11;
    };
    EXPECT_EQ((std::vector<int64_t>{1, 2}), timestamps());  // nothing on in the library: not asked
    enable(100, 3, 1, kS);
    EXPECT_EQ((std::vector<int64_t>{30, 2}), timestamps());
    EXPECT_EQ(1,
              log.count(ANDROID_LOG_INFO, "AR_impl",
                        "getCurrentActivityV1_1: [ZEL]AR_GET_STATE_REPORT_EVENT: [0] a: 3, e: 1, "
                        "t: 30, c: 5\n"));
    setLegacyState(std::vector<ar_context_event>(6, state(4, 2)));
    EXPECT_EQ((std::vector<int64_t>{30}), timestamps());
    EXPECT_EQ(1, log.count(ANDROID_LOG_ERROR, "AR_impl",
                           "getCurrentActivity: mImpl V1_0 getCurrentActivity error size(6)"));
    EXPECT_EQ(1, log.count(ANDROID_LOG_ERROR, "AR_impl",
                           "getCurrentActivityV1_1: mImpl V1_1 getCurrentActivity error size(6)"));
}

}  // namespace
