// A device's client processes: a re-executed copy of the test binary (gtest's threadsafe death-test
// style), which opens a binder connection of its own, runs the client and exits. A device's module
// reports only what it senses.
#include "ClientProcess.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace vts_ar {

void runClientThatDies(const std::string& instance,
                       const std::function<void(const ::android::sp<ServiceV1_1>&)>& client) {
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
            {
                client(ServiceV1_1::getService(instance));
                _exit(testing::Test::HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    // The death notice reaches the service on one of its binder threads, shortly after the exit.
    std::this_thread::sleep_for(std::chrono::seconds(1));
}

bool reportFromModule() {
    return false;
}

}  // namespace vts_ar
