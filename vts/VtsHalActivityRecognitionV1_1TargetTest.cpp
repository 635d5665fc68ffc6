// Conformance test of the activity recognition HAL: what every device must show through the HIDL
// interfaces, whatever its legacy module reports. One run per registered instance.
#include <gtest/gtest.h>
#include <hidl/GtestPrinter.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/ServiceManagement.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

#include <atomic>
#include <functional>
#include <set>
#include <vector>

#include "ClientProcess.h"

namespace {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::interfacesEqual;
using ::android::hardware::Return;
using ::android::hardware::Void;
using vts_ar::ServiceV1_1;

constexpr int64_t kOneSecond = 1000000000;
constexpr size_t kMaxTextBytes = 32;
constexpr size_t kMaxCurrentRecords = 5;  // a legacy answer holds at most this many
constexpr uint32_t kInvalidEventTypes[] = {0, 3, 0xffffffff};

// The transport status must always be OK; failures show in the answers only.
template <typename T>
T answer(Return<T> result) {
    EXPECT_TRUE(result.isOk()) << result.description();
    return result.isOk() ? static_cast<T>(result) : T{};
}
void answer(Return<void> result) {
    EXPECT_TRUE(result.isOk()) << result.description();
}

ar::V1_0::OtherParams withText(size_t bytes) {
    ar::V1_0::OtherParams params{};
    params.extra = std::string(bytes, 'x');
    return params;
}

// Clients that count the extended activity batches and the environment batches they receive.
Return<void> count(std::atomic<int>* batches) {
    ++*batches;
    return Void();
}

class ActivityCallback : public ar::V1_1::IActivityChangedCallback {
  public:
    using V1_0Events = hidl_vec<ar::V1_0::ActivityEvent>;
    using V1_0Extended = hidl_vec<ar::V1_0::ActivityEventExtend>;
    using V1_1Events = hidl_vec<ar::V1_1::ActivityEventV1_1>;
    using V1_1Extended = hidl_vec<ar::V1_1::ActivityEventExtendV1_1>;
    Return<void> onActivityChangedV1_0(const V1_0Events&) override { return Void(); }
    Return<void> onActivityChangedV1_1(const V1_1Events&) override { return Void(); }
    Return<void> onActivityExtendChangedV1_0(const V1_0Extended&) override { return count(&v1_0); }
    Return<void> onActivityExtendChangedV1_1(const V1_1Extended&) override { return count(&v1_1); }
    std::atomic<int> v1_0{0}, v1_1{0};
};

class EnvironmentCallback : public ar::V1_1::IEnvironmentChangedCallback {
  public:
    using V1_0Events = hidl_vec<ar::V1_0::ActivityEventExtend>;
    using V1_1Events = hidl_vec<ar::V1_1::ActivityEventExtendV1_1>;
    Return<void> onEnvironmentChanged(const V1_0Events&) override { return count(&v1_0); }
    Return<void> onEnvironmentChangedV1_1(const V1_1Events&) override { return count(&v1_1); }
    std::atomic<int> v1_0{0}, v1_1{0};
};

class ActivityRecognitionHidlTest : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        service = ServiceV1_1::getService(GetParam());
        ASSERT_NE(nullptr, service.get()) << "no service " << GetParam();
        activity = answer(service->getActivityInterfaceV1_1());
        ASSERT_NE(nullptr, activity.get()) << "the module hands out no activity table";
        environment = answer(service->getEnvironmentInterfaceV1_1());
    }

    // The activities the module knows: those of its current state and the places in its
    // supported list (legacy modules number activities by that place).
    std::vector<uint32_t> knownActivities() {
        std::set<uint32_t> known;
        answer(activity->getCurrentActivityV1_1([&](const auto& records) {
            for (const auto& record : records) known.insert(record.activity);
        }));
        answer(activity->getSupportedActivitiesList([&](const hidl_vec<hidl_string>& names) {
            for (uint32_t i = 0; i < names.size(); ++i) known.insert(i);
        }));
        return {known.begin(), known.end()};
    }

    // Each control call that takes a parameter text, on activity `a` or environment 0 (and undone
    // when it succeeded).
    using TextCall = std::function<int32_t(const ar::V1_0::OtherParams&)>;
    std::vector<std::pair<const char*, TextCall>> textCalls(uint32_t a) {
        auto enableActivity = [this, a](const auto& p) {
            int32_t result = answer(activity->enableActivityEventExtend(a, 1, kOneSecond, p));
            if (result == 0) answer(activity->disableActivityEvent(a, 1));
            return result;
        };
        if (environment == nullptr) return {{"enableActivityEventExtend", enableActivity}};
        sp<ar::V1_1::IEnvironmentInterface> env = environment;
        return {{"enableActivityEventExtend", enableActivity},
                {"initEnvironment",
                 [env](const auto& p) { return answer(env->initEnvironment(0, p)); }},
                {"exitEnvironment",
                 [env](const auto& p) { return answer(env->exitEnvironment(0, p)); }},
                {"enableEnvironment", [env](const auto& p) {
                     int32_t result = answer(env->enableEnvironment(0, 1, kOneSecond, p));
                     if (result == 0) answer(env->disableEnvironment(0, 1));
                     return result;
                 }}};
    }

    // Answers that hold whatever else happened: a pair this process never enabled cannot be
    // disabled, and the queries answer.
    void expectServiceAnswers() {
        EXPECT_EQ(1, answer(activity->disableActivityEvent(0xfffffffe, 1)));
        bool answered = false;
        answer(activity->getCurrentActivity([&](const auto&) { answered = true; }));
        EXPECT_TRUE(answered);
    }

    sp<ServiceV1_1> service;
    sp<ar::V1_1::IActivityInterface> activity;
    sp<ar::V1_1::IEnvironmentInterface> environment;
};

TEST_P(ActivityRecognitionHidlTest, OneInterfaceObjectPerSideForBothVersions) {
    EXPECT_TRUE(interfacesEqual(activity, answer(service->getActivityInterface())));
    EXPECT_TRUE(interfacesEqual(activity, answer(service->getActivityInterfaceV1_1())));
    if (environment == nullptr) GTEST_SKIP() << "the module hands out no environment table";
    EXPECT_TRUE(interfacesEqual(environment, answer(service->getEnvironmentInterface())));
    EXPECT_TRUE(interfacesEqual(environment, answer(service->getEnvironmentInterfaceV1_1())));
}

TEST_P(ActivityRecognitionHidlTest, EventTypesOtherThanOneAndTwoAnswerOne) {
    for (uint32_t type : kInvalidEventTypes) {
        EXPECT_EQ(1, answer(activity->enableActivityEvent(1, type, kOneSecond))) << type;
        EXPECT_EQ(1, answer(activity->enableActivityEventExtend(1, type, kOneSecond, withText(0))))
                << type;
        EXPECT_EQ(1, answer(activity->disableActivityEvent(1, type))) << type;
    }
}

TEST_P(ActivityRecognitionHidlTest, DisablingAPairNeverEnabledAnswersOne) {
    for (uint32_t a : {0u, 1u, 64u, 0xfffffffeu}) {
        for (uint32_t type : {1u, 2u}) {
            EXPECT_EQ(1, answer(activity->disableActivityEvent(a, type))) << a << "," << type;
        }
    }
}

TEST_P(ActivityRecognitionHidlTest, ParameterTextsUpTo32BytesAreAccepted) {
    std::vector<uint32_t> known = knownActivities();
    for (const auto& [name, call] : textCalls(known.empty() ? 1 : known.front())) {
        EXPECT_EQ(1, call(withText(kMaxTextBytes + 1))) << name << " with 33 bytes";
        // Where the module accepts the call, 32 bytes are accepted too.
        int32_t longest = call(withText(kMaxTextBytes));
        EXPECT_TRUE(longest == 0 || call(withText(1)) != 0) << name << " refused 32 bytes";
    }
}

TEST_P(ActivityRecognitionHidlTest, EnableThenDisableOfKnownActivities) {
    std::vector<uint32_t> known = knownActivities();
    if (known.empty()) GTEST_SKIP() << "the module reports no activity";
    size_t accepted = 0;
    for (uint32_t a : known) {
        if (answer(activity->enableActivityEvent(a, 1, kOneSecond)) != 0) continue;
        ++accepted;
        EXPECT_EQ(0, answer(activity->disableActivityEvent(a, 1))) << "activity " << a;
        EXPECT_EQ(1, answer(activity->disableActivityEvent(a, 1))) << "activity " << a << " again";
    }
    if (accepted == 0) GTEST_SKIP() << "the module accepts none of its activities";
}

TEST_P(ActivityRecognitionHidlTest, QueryAnswersAreWellFormed) {
    size_t queries = 0, answers = 0;  // each query answers once
    auto names = [&](const hidl_vec<hidl_string>& list) {
        ++answers;
        for (const auto& name : list) EXPECT_NE(0u, name.size()) << "an empty supported name";
    };
    auto records = [&](const auto& list) {
        ++answers;
        EXPECT_LE(list.size(), kMaxCurrentRecords);
    };
    answer(activity->getSupportedActivitiesList(names));
    answer(activity->getCurrentActivity(records));
    answer(activity->getCurrentActivityV1_1(records));
    queries += 3;
    if (environment != nullptr) {
        answer(environment->getSupportedEnvironmentsList(names));
        answer(environment->getCurrentEnvironment(records));
        answer(environment->getCurrentEnvironmentV1_1(records));
        queries += 3;
    }
    EXPECT_EQ(queries, answers);
}

TEST_P(ActivityRecognitionHidlTest, RepeatedAndNullRegistrationsLeaveTheServiceWorking) {
    sp<ActivityCallback> client = new ActivityCallback;
    sp<EnvironmentCallback> envClient = new EnvironmentCallback;
    for (int i = 0; i < 2; ++i) {
        answer(activity->registerActivityCallbackV1_1(client));
        answer(activity->registerActivityCallback(client));
        if (environment == nullptr) continue;
        answer(environment->registerEnvironmentCallbackV1_1(envClient));
        answer(environment->registerEnvironmentCallback(envClient));
    }
    answer(activity->registerActivityCallbackV1_1(nullptr));
    answer(activity->registerActivityCallback(nullptr));
    if (environment != nullptr) {
        answer(environment->registerEnvironmentCallbackV1_1(nullptr));
        answer(environment->registerEnvironmentCallback(nullptr));
    }
    expectServiceAnswers();
    if (!vts_ar::reportFromModule()) return;
    EXPECT_EQ(1, client->v1_1.load());
    EXPECT_EQ(1, client->v1_0.load());
    EXPECT_EQ(environment != nullptr ? 1 : 0, envClient->v1_1.load());
    EXPECT_EQ(environment != nullptr ? 1 : 0, envClient->v1_0.load());
}

TEST_P(ActivityRecognitionHidlTest, ClientDeathLeavesDeliveriesToOthers) {
    sp<ActivityCallback> survivor = new ActivityCallback;
    sp<EnvironmentCallback> envSurvivor = new EnvironmentCallback;
    answer(activity->registerActivityCallbackV1_1(survivor));
    if (environment != nullptr) answer(environment->registerEnvironmentCallbackV1_1(envSurvivor));
    std::vector<uint32_t> known = knownActivities();
    uint32_t a = known.empty() ? 1 : known.front();
    vts_ar::runClientThatDies(GetParam(), [a](const sp<ServiceV1_1>& itsService) {
        ASSERT_NE(nullptr, itsService.get());
        sp<ar::V1_1::IActivityInterface> itsActivity =
                answer(itsService->getActivityInterfaceV1_1());
        ASSERT_NE(nullptr, itsActivity.get());
        answer(itsActivity->registerActivityCallbackV1_1(new ActivityCallback));
        answer(itsActivity->registerActivityCallback(new ActivityCallback));
        answer(itsActivity->enableActivityEvent(a, 1, kOneSecond));
        sp<ar::V1_1::IEnvironmentInterface> itsEnvironment =
                answer(itsService->getEnvironmentInterfaceV1_1());
        if (itsEnvironment != nullptr) {
            answer(itsEnvironment->registerEnvironmentCallbackV1_1(new EnvironmentCallback));
        }
    });
    expectServiceAnswers();
    if (!vts_ar::reportFromModule()) return;
    EXPECT_EQ(1, survivor->v1_1.load());
    EXPECT_EQ(environment != nullptr ? 1 : 0, envSurvivor->v1_1.load());
}

}  // namespace

// A device without the HAL registers no instance, which newer googletest reports as a failure
// unless allowed; the googletest of older platform releases has neither the report nor the macro
// (the gates vts_googletest_* compile this file without it).
#ifdef GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ActivityRecognitionHidlTest);
#endif
INSTANTIATE_TEST_SUITE_P(
        PerInstance, ActivityRecognitionHidlTest,
        testing::ValuesIn(android::hardware::getAllHalInstanceNames(ServiceV1_1::descriptor)),
        android::hardware::PrintInstanceNameToString);
