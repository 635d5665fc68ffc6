// Environment control and queries: what reaches the legacy table and what the caller gets back.
#include <android/log.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <functional>

#include "EnvironmentInterface.h"
#include "EnvironmentTestPeer.h"
#include "FailingNew.h"
#include "LogCapture.h"
#include "Passthrough.h"
#include "simulated_legacy_module.h"

namespace {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using artest::LoggedOnce;
using simulated_legacy::Side;
using Env = ar::V1_1::implementation::EnvironmentInterface;
using Peer = ar::V1_1::implementation::EnvironmentInterfaceTestPeer;
using IEnv = ar::V1_1::IEnvironmentInterface;

constexpr char kTag[] = "AR_impl_Env";

bool listLockHeld() {
    return ar::V1_1::implementation::EnvironmentInterfaceTestPeer::listLockHeld();
}

ar::V1_0::OtherParams params(const std::string& extra) {
    ar::V1_0::OtherParams p;
    p.params[0] = 1.5;
    p.params[1] = -2.0;
    p.params[2] = 0.0;
    p.params[3] = 1e300;
    p.extra = extra;
    return p;
}

struct Control {
    std::string name;
    std::string entry;
    std::vector<int64_t> args;
    bool hasParams;
    std::function<int32_t(IEnv&, const ar::V1_0::OtherParams&)> call;
};

const std::vector<Control> kControls = {
        {"initEnvironment",
         "init_environment",
         {7},
         true,
         [](IEnv& e, const auto& p) { return e.initEnvironment(7, p); }},
        {"exitEnvironment",
         "exit_environment",
         {7},
         true,
         [](IEnv& e, const auto& p) { return e.exitEnvironment(7, p); }},
        {"enableEnvironment",
         "enable_environment",
         {7, 2, -5000},
         true,
         [](IEnv& e, const auto& p) { return e.enableEnvironment(7, 2, -5000, p); }},
        {"disableEnvironment",
         "disable_environment",
         {7, 2},
         false,
         [](IEnv& e, const auto&) { return e.disableEnvironment(7, 2); }},
};

class EnvironmentControlTest : public ::testing::Test {
  protected:
    void SetUp() override {
        simulated_legacy::reset();
        service = artest::fetchService();
        ASSERT_NE(nullptr, service);
        env = service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
        ASSERT_NE(nullptr, env);
        simulated_legacy::clearCalls();
        log.clear();
    }
    artest::LogCapture log;
    sp<artest::IActivityRecognition> service;
    sp<IEnv> env;
};

// The text goes down in a cleared 32-byte field: a 32-byte text carries no terminator.
TEST_F(EnvironmentControlTest, ArgumentsAndParamsReachTheModuleWithoutTheLock) {
    for (const std::string& extra : std::vector<std::string>{"", "abc", std::string(32, 'x')}) {
        for (const Control& c : kControls) {
            bool locked = true;
            simulated_legacy::setHook(c.entry, [&] { locked = listLockHeld(); });
            simulated_legacy::clearCalls();
            EXPECT_EQ(0, c.call(*env, params(extra))) << c.name;
            const auto calls = simulated_legacy::calls();
            ASSERT_EQ(1u, calls.size());
            EXPECT_EQ(c.entry, calls[0].entry);
            EXPECT_EQ(c.args, calls[0].args);
            EXPECT_FALSE(locked);
            ASSERT_EQ(c.hasParams, calls[0].hasParams);
            if (!c.hasParams) continue;
            const other_params& sent = calls[0].params;
            EXPECT_EQ(std::vector<double>({1.5, -2.0, 0.0, 1e300}),
                      std::vector<double>(sent.params, sent.params + 4));
            char expected[32] = {};
            memcpy(expected, extra.data(), extra.size());
            EXPECT_EQ(0, memcmp(expected, sent.extra, sizeof(expected))) << c.name << extra;
        }
    }
    EXPECT_TRUE(log.withTag(kTag).empty());
}

TEST_F(EnvironmentControlTest, ExtraOf33BytesIsRefusedBeforeTheModule) {
    for (const Control& c : kControls) {
        if (!c.hasParams) continue;
        EXPECT_EQ(1, c.call(*env, params(std::string(33, 'y'))));
        EXPECT_TRUE(LoggedOnce(log, ANDROID_LOG_ERROR, kTag,
                               c.name + ": " + c.name + " mImpl interface is not available"));
    }
    EXPECT_TRUE(simulated_legacy::calls().empty());
}

TEST_F(EnvironmentControlTest, AnyNonZeroLegacyResultIsOne) {
    for (const Control& c : kControls) {
        for (int legacy : {0, 1, 42, -1, INT_MIN}) {
            simulated_legacy::setResult(c.entry, legacy);
            EXPECT_EQ(legacy == 0 ? 0 : 1, c.call(*env, params("p"))) << c.name << legacy;
        }
    }
}

struct StateCase {
    int records;
    std::optional<int> count;
    bool nullArray;
    bool answered;
};

// 1 to 5 records are answered whole and in order; anything else, or no array, is refused.
TEST_F(EnvironmentControlTest, CurrentEnvironmentAnswersOneToFiveRecords) {
    for (const StateCase& s : {StateCase{5, {}, false, true}, StateCase{1, {}, false, true},
                               StateCase{6, {}, false, false}, StateCase{0, {}, false, false},
                               StateCase{0, -2, false, false}, StateCase{3, {}, true, false}}) {
        simulated_legacy::StateAnswer answer{{}, s.count, s.nullArray};
        for (int i = 0; i < s.records; ++i) {
            ar_context_event e{};
            e.activity = 10 + i;
            e.confidence = 60 + i;
            e.status = -i;
            strcpy(e.params.extra, "room");
            answer.records.push_back(e);
        }
        simulated_legacy::setStateAnswer(Side::kEnvironment, answer);
        log.clear();
        std::vector<ar::V1_0::ActivityEventExtend> v10;
        std::vector<ar::V1_1::ActivityEventExtendV1_1> v11;
        int answers = 0;
        env->getCurrentEnvironment([&](const auto& e) {
            v10 = e;
            ++answers;
        });
        env->getCurrentEnvironmentV1_1([&](const auto& e) {
            v11 = e;
            ++answers;
        });
        EXPECT_EQ(2, answers);
        const size_t expected = s.answered ? s.records : 0;
        ASSERT_EQ(expected, v10.size());
        ASSERT_EQ(expected, v11.size());
        for (size_t i = 0; i < expected; ++i) {
            EXPECT_EQ(10 + i, v10[i].activity);
            EXPECT_EQ(-static_cast<int>(i), v10[i].status);
            EXPECT_EQ("room", std::string(v10[i].otherParams.extra));
            EXPECT_EQ(60 + static_cast<int>(i), v11[i].confidence);
        }
        const std::string size = "(" + std::to_string(s.count.value_or(s.records)) + ")";
        std::vector<std::string> lines;
        if (!s.answered) {
            lines = {"6 getCurrentEnvironment: mImpl V1_0 getCurrentENV error size" + size,
                     "6 getCurrentEnvironmentV1_1: mImpl V1_1 getCurrentEnvironment error size" +
                             size};
        }
        EXPECT_EQ(lines, log.withTag(kTag));
    }
}

simulated_legacy::ListAnswer listAnswer(std::vector<std::string> names, std::optional<int> count,
                                        bool nullList = false) {
    simulated_legacy::ListAnswer answer;
    answer.names = std::move(names);
    answer.count = count;
    answer.nullList = nullList;
    return answer;
}

TEST_F(EnvironmentControlTest, SupportedListPassesAnyPositiveCount) {
    struct Case {
        simulated_legacy::ListAnswer answer;
        std::vector<std::string> expected;
    };
    std::vector<std::string> many;
    for (int i = 0; i < 1000; ++i) many.push_back("generated_" + std::to_string(i));
    for (const Case& c : {Case{listAnswer({"home", "office"}, {}), {"home", "office"}},
                          Case{listAnswer({}, 1000), many}, Case{listAnswer({}, 0), {}},
                          Case{listAnswer({}, -4), {}}, Case{listAnswer({"home"}, {}, true), {}}}) {
        simulated_legacy::setListAnswer(Side::kEnvironment, c.answer);
        log.clear();
        std::vector<std::string> got;
        int answers = 0;
        env->getSupportedEnvironmentsList([&](const auto& names) {
            for (const auto& name : names) got.push_back(name);
            ++answers;
        });
        EXPECT_EQ(1, answers);
        EXPECT_EQ(c.expected, got);
        const int count = c.answer.count.value_or(c.answer.names.size());
        EXPECT_EQ(c.expected.empty() ? 1 : 0,
                  log.count(ANDROID_LOG_ERROR, kTag,
                            "getSupportedEnvironmentsList: can not get support env, list_size(" +
                                    std::to_string(count) + ")"));
    }
}

TEST_F(EnvironmentControlTest, SupportedListAllocationFailureLeavesTheCallbackUncalled) {
    SKIP_WITHOUT_FAILING_NEW();
    simulated_legacy::setListAnswer(Side::kEnvironment, listAnswer({"home"}, {}));
    artest::failNextNothrowNew();
    bool called = false;
    env->getSupportedEnvironmentsList([&](const auto&) { called = true; });
    EXPECT_FALSE(called);
    EXPECT_EQ(std::vector<std::string>({"6 env new failed"}), log.withTag(kTag));
}

// Without a table every method logs once and answers a failure, never calling down.
TEST(EnvironmentWithoutTable, EveryMethodLogsAndAnswersFailure) {
    artest::LogCapture log;
    sp<Env> env = new Env(nullptr);
    for (const Control& c : kControls) EXPECT_EQ(1, c.call(*env, params("")));
    int empty = 0;
    env->getSupportedEnvironmentsList([&](const auto& v) { empty += v.size() == 0; });
    env->getCurrentEnvironment([&](const auto& v) { empty += v.size() == 0; });
    env->getCurrentEnvironmentV1_1([&](const auto& v) { empty += v.size() == 0; });
    EXPECT_EQ(3, empty);
    const std::vector<std::string> expected = {
            "6 EnvironmentInterface: mImpl interface is not available",
            "6 initEnvironment: initEnvironment mImpl interface is not available",
            "6 exitEnvironment: exitEnvironment mImpl interface is not available",
            "6 enableEnvironment: enableEnvironment mImpl interface is not available",
            "6 disableEnvironment: mImpl interface is not available",
            "6 getSupportedEnvironmentsList: mImpl interface is not available",
            "6 getCurrentEnvironment: mImpl V1_0 interface is not available",
            "6 getCurrentEnvironmentV1_1: mImpl V1_1 interface is not available"};
    EXPECT_EQ(expected, log.withTag(kTag));
    EXPECT_TRUE(simulated_legacy::calls().empty());
}

}  // namespace
