// Loading the HAL as a passthrough host does, its service object and the record conversions.
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ActivityInterface.h"
#include "FailingNew.h"
#include "LogCapture.h"
#include "Passthrough.h"
#include "simulated_legacy_module.h"

namespace {

using artest::fetchService;
using artest::LoggedOnce;
using artest::NotLogged;
using simulated_legacy::Side;
using ::vendor::quarn::hardware::activity_recognition::V1_1::implementation::ActivityInterface;

constexpr char kTag[] = "AR_impl_Act";

int countCalls(const std::string& entry) {
    int n = 0;
    for (const auto& call : simulated_legacy::calls()) n += call.entry == entry;
    return n;
}

class ServiceTest : public ::testing::Test {
  protected:
    void SetUp() override { simulated_legacy::reset(); }
    artest::LogCapture log;
};

TEST_F(ServiceTest, FetchOpensTheDeviceAndLogsTheResult) {
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    EXPECT_TRUE(LoggedOnce(log, ANDROID_LOG_INFO, kTag,
                           "activity_recognition_impl V1.1 open activity_recognition_hidl "
                           "result: 0"));
    EXPECT_EQ(1, countCalls("open"));
    EXPECT_EQ(0, countCalls("get_activity_interface"));
}

TEST_F(ServiceTest, ModuleNotFound) {
    setenv("HAL_LIBRARY_PATH", "/nonexistent", 1);
    EXPECT_EQ(nullptr, fetchService());
    EXPECT_TRUE(LoggedOnce(log, ANDROID_LOG_ERROR, kTag,
                           "hw_get_module activity_recognition failed: -2"));
    EXPECT_TRUE(NotLogged(log, kTag, "open"));
}

TEST_F(ServiceTest, OpenFailureStillLogsTheResult) {
    simulated_legacy::setOpenResult(-5);
    EXPECT_EQ(nullptr, fetchService());
    EXPECT_TRUE(LoggedOnce(log, ANDROID_LOG_INFO, kTag,
                           "activity_recognition_impl V1.1 open activity_recognition_hidl "
                           "result: -5"));
}

TEST_F(ServiceTest, AllocationFailureSkipsTheOpenLineAndLeavesTheDeviceOpen) {
    SKIP_WITHOUT_FAILING_NEW();
    artest::failNextNothrowNew();
    EXPECT_EQ(nullptr, fetchService());
    EXPECT_TRUE(LoggedOnce(log, ANDROID_LOG_ERROR, kTag, "iface new failed"));
    EXPECT_TRUE(NotLogged(log, kTag, "activity_recognition_impl"));
    EXPECT_EQ(1, countCalls("open"));
    EXPECT_EQ(0, simulated_legacy::closeCount());
}

struct MissingTable {
    const char* name;
    Side side;
};

class MissingTableTest : public ServiceTest, public ::testing::WithParamInterface<MissingTable> {};

// Every call asks the device again and logs again; the 1.0 getter logs its own line first.
TEST_P(MissingTableTest, EveryCallLogsNotImplementedAndAnswersNull) {
    const bool activity = GetParam().side == Side::kActivity;
    simulated_legacy::setTableAvailable(GetParam().side, false);
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    log.clear();
    for (int i = 0; i < 2; ++i) {
        if (activity) {
            EXPECT_EQ(nullptr, service->getActivityInterface().withDefault(nullptr));
            EXPECT_EQ(nullptr, service->getActivityInterfaceV1_1().withDefault(nullptr));
        } else {
            EXPECT_EQ(nullptr, service->getEnvironmentInterface().withDefault(nullptr));
            EXPECT_EQ(nullptr, service->getEnvironmentInterfaceV1_1().withDefault(nullptr));
        }
    }
    const std::string compat =
            activity ? "4 1.1 Activity compatible 1.0" : "4 1.1 ENV compatible 1.0";
    const std::string missing =
            activity ? "6 getActivityInterfaceV1_1 ActivityInterface interface not implemented by "
                       "ar HAL"
                     : "6 getEnvironmentInterfaceV1_1 EnvironmentInterface interface not "
                       "implemented by ar HAL";
    std::vector<std::string> expected = {compat, missing, missing, compat, missing, missing};
    EXPECT_EQ(expected, log.withTag(kTag));
    EXPECT_EQ(4, countCalls(activity ? "get_activity_interface" : "get_environment_interface"));
}

INSTANTIATE_TEST_SUITE_P(Sides, MissingTableTest,
                         ::testing::Values(MissingTable{"activity", Side::kActivity},
                                           MissingTable{"environment", Side::kEnvironment}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ServiceTest, InterfaceAllocationFailureAnswersNullAndRetries) {
    SKIP_WITHOUT_FAILING_NEW();
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    artest::failNextNothrowNew();
    EXPECT_EQ(nullptr, service->getActivityInterfaceV1_1().withDefault(nullptr));
    EXPECT_TRUE(LoggedOnce(log, ANDROID_LOG_ERROR, kTag,
                           "getActivityInterfaceV1_1 mActivityInterface new failed"));
    artest::failNextNothrowNew();
    EXPECT_EQ(nullptr, service->getEnvironmentInterfaceV1_1().withDefault(nullptr));
    EXPECT_TRUE(LoggedOnce(log, ANDROID_LOG_ERROR, kTag,
                           "getEnvironmentInterfaceV1_1 mEnvironmentInterface new failed"));
    EXPECT_NE(nullptr, service->getActivityInterfaceV1_1().withDefault(nullptr));
    EXPECT_NE(nullptr, service->getEnvironmentInterfaceV1_1().withDefault(nullptr));
}

TEST_F(ServiceTest, OneObjectBehindBothGettersOfEachInterface) {
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    auto activity10 = service->getActivityInterface().withDefault(nullptr);
    auto activity11 = service->getActivityInterfaceV1_1().withDefault(nullptr);
    auto environment10 = service->getEnvironmentInterface().withDefault(nullptr);
    auto environment11 = service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
    ASSERT_NE(nullptr, activity10);
    ASSERT_NE(nullptr, environment10);
    EXPECT_EQ(activity10.get(), static_cast<decltype(activity10.get())>(activity11.get()));
    EXPECT_EQ(environment10.get(), static_cast<decltype(environment10.get())>(environment11.get()));
    EXPECT_EQ(1, countCalls("register_activity_callbacks"));
    EXPECT_EQ(1, countCalls("register_environment_callbacks"));
}

// Run under ThreadSanitizer: while the first caller creates the interface, the others test it
// without the lock; the test must not race with the store.
TEST_F(ServiceTest, RacingFirstActivityGettersCreateOneInterface) {
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    simulated_legacy::setHook("get_activity_interface",
                              [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
    constexpr int kThreads = 8;
    std::vector<void*> seen(kThreads);
    std::vector<std::thread> threads;
    std::atomic<int> waiting{kThreads};
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (--waiting; waiting > 0;) std::this_thread::yield();
            if (i % 2 == 0) {
                auto iface = service->getActivityInterface().withDefault(nullptr);
                seen[i] = iface.get();
            } else {
                auto iface = service->getActivityInterfaceV1_1().withDefault(nullptr);
                seen[i] = static_cast<
                        ::vendor::quarn::hardware::activity_recognition::V1_0::IActivityInterface*>(
                        iface.get());
            }
        });
    }
    for (auto& t : threads) t.join();
    for (void* p : seen) EXPECT_EQ(seen[0], p);
    EXPECT_NE(nullptr, seen[0]);
    EXPECT_EQ(1, countCalls("get_activity_interface"));
    EXPECT_EQ(1, countCalls("register_activity_callbacks"));
    EXPECT_EQ(1, log.count(ANDROID_LOG_INFO, "AR_impl", "Construct ActivityInterface"));
}

// Close first, then the environment interface, then the activity interface.
TEST_F(ServiceTest, DestructorClosesOnceThenReleasesEnvironmentThenActivity) {
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    service->getActivityInterfaceV1_1().withDefault(nullptr);
    service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
    simulated_legacy::setHook("close", [] { ALOGI("close reached"); });
    log.clear();
    service.clear();
    EXPECT_EQ(1, simulated_legacy::closeCount());
    std::vector<std::string> order;
    for (const auto& line : log.lines()) order.push_back(line.message);
    std::vector<std::string> expected = {"close reached", "Deconstruct ActivityRecognition",
                                         "Deconstruct EnvironmentInterface",
                                         "Deconstruct ActivityInterface"};
    EXPECT_EQ(expected, order);
}

// Records whose fields all differ, so a field copied from the wrong place shows.
activity_event plainRecord() {
    return activity_event{
            .event_type = 2, .activity = 7, .timestamp = 123456789012, .confidence = 88};
}

ar_context_event extendedRecord() {
    ar_context_event e{};
    e.event_type = 1;
    e.activity = 9;
    e.timestamp = -42;
    e.confidence = 77;
    e.status = -3;
    e.params.params[0] = 1.5;
    e.params.params[1] = -2.25;
    e.params.params[2] = 1e300;
    e.params.params[3] = 0.125;
    strcpy(e.params.extra, "walking");
    return e;
}

TEST(Conversions, PlainRecords) {
    auto v10 = ActivityInterface::convertAEToAEV1_0(plainRecord());
    EXPECT_EQ(2u, v10.eventType);
    EXPECT_EQ(7u, v10.activity);
    EXPECT_EQ(123456789012, v10.timestamp);
    auto v11 = ActivityInterface::convertAEToAEV1_1(plainRecord());
    EXPECT_EQ(2u, v11.eventType);
    EXPECT_EQ(7u, v11.activity);
    EXPECT_EQ(123456789012, v11.timestamp);
    EXPECT_EQ(88, v11.confidence);
}

TEST(Conversions, ExtendedRecords) {
    auto v10 = ActivityInterface::convertACEToAEEV1_0(extendedRecord());
    auto v11 = ActivityInterface::convertACEToAEEV1_1(extendedRecord());
    EXPECT_EQ(1u, v10.eventType);
    EXPECT_EQ(9u, v10.activity);
    EXPECT_EQ(-42, v10.timestamp);
    EXPECT_EQ(-3, v10.status);
    EXPECT_EQ(77, v11.confidence);
    EXPECT_EQ(-3, v11.status);
    EXPECT_EQ(v10.otherParams, v11.otherParams);
    EXPECT_EQ(1.5, v10.otherParams.params[0]);
    EXPECT_EQ(-2.25, v10.otherParams.params[1]);
    EXPECT_EQ(1e300, v10.otherParams.params[2]);
    EXPECT_EQ(0.125, v10.otherParams.params[3]);
    EXPECT_EQ(std::string("walking"), std::string(v10.otherParams.extra));
}

// The text ends at its NUL, and a full field without one is read no further than 32 bytes.
TEST(Conversions, ExtraTextStopsAtNulOrFieldEnd) {
    ar_context_event e = extendedRecord();
    memset(e.params.extra, 'x', sizeof(e.params.extra));
    auto full = ActivityInterface::convertACEToAEEV1_1(e);
    EXPECT_EQ(std::string(32, 'x'), std::string(full.otherParams.extra));
    e.params.extra[0] = '\0';
    EXPECT_EQ(0u, ActivityInterface::convertACEToAEEV1_0(e).otherParams.extra.size());
}

}  // namespace
