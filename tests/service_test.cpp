// Loading the HAL as a passthrough host does, its service object and the record conversions.
#include <android/log.h>
#include <gtest/gtest.h>
#include <string.h>

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
using Lines = std::vector<std::string>;
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

TEST_F(ServiceTest, AllocationFailureSkipsTheOpenLineAndLeavesTheDeviceOpen) {
    SKIP_WITHOUT_FAILING_NEW();
    artest::failNextNothrowNew();
    EXPECT_EQ(nullptr, fetchService());
    EXPECT_EQ(Lines{"6 iface new failed"}, log.withTag(kTag));  // and no line of the open
    EXPECT_EQ(1, countCalls("open"));
    EXPECT_EQ(0, simulated_legacy::closeCount());
}

TEST_F(ServiceTest, InterfaceAllocationFailureAnswersNullAndRetries) {
    SKIP_WITHOUT_FAILING_NEW();
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    artest::failNextNothrowNew();
    log.clear();
    EXPECT_EQ(nullptr, service->getActivityInterfaceV1_1().withDefault(nullptr));
    artest::failNextNothrowNew();
    EXPECT_EQ(nullptr, service->getEnvironmentInterfaceV1_1().withDefault(nullptr));
    EXPECT_EQ((Lines{"6 getActivityInterfaceV1_1 mActivityInterface new failed",
                     "6 getEnvironmentInterfaceV1_1 mEnvironmentInterface new failed"}),
              log.withTag(kTag));
    EXPECT_NE(nullptr, service->getActivityInterfaceV1_1().withDefault(nullptr));
    EXPECT_NE(nullptr, service->getEnvironmentInterfaceV1_1().withDefault(nullptr));
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

// The extra text ends at its NUL, and a full field without one is read no further than 32 bytes.
// (Every other field of both conversions is checked through the lower layers' reports.)
TEST(Conversions, ExtraTextStopsAtNulOrFieldEnd) {
    ar_context_event e{};
    memset(e.params.extra, 'x', sizeof(e.params.extra));
    EXPECT_EQ(std::string(32, 'x'), ActivityInterface::convertACEToAEEV1_1(e).otherParams.extra);
    e.params.extra[0] = '\0';
    EXPECT_EQ(0u, ActivityInterface::convertACEToAEEV1_0(e).otherParams.extra.size());
}

}  // namespace
