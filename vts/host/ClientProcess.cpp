// The host's client processes and module: a client acts as another process on this thread and
// dies by the simulated death of its in-process objects; the simulated legacy module reports on
// demand. The simulated device answers like a module with tables, lists and current state, and
// routes one activity to the simulated client library.
#include "ClientProcess.h"

#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>

#include "simulated_legacy_module.h"
#include "simulated_zel_client.h"

namespace vts_ar {

namespace {

constexpr pid_t kDyingClientPid = 4242;

ar_context_event record(uint32_t activity, int64_t timestamp) {
    return {1, activity, timestamp, 90, 0, {}};
}

// Activities numbered by their place in the supported list, as the legacy modules do; activity 3
// goes to the client library.
class SimulatedDevice : public testing::Environment {
    void SetUp() override {
        using simulated_legacy::Side;
        android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
        simulated_zel::setConfigMask(1u << 3);
        simulated_legacy::ListAnswer activities, environments;
        activities.names = {"in_vehicle", "on_bicycle", "walking", "running", "still"};
        environments.names = {"home", "office"};
        simulated_legacy::setListAnswer(Side::kActivity, activities);
        simulated_legacy::setListAnswer(Side::kEnvironment, environments);
        simulated_legacy::StateAnswer activityState, environmentState;
        activityState.records = {record(2, 100), record(4, 100)};
        environmentState.records = {record(1, 100)};
        simulated_legacy::setStateAnswer(Side::kActivity, activityState);
        simulated_legacy::setStateAnswer(Side::kEnvironment, environmentState);
    }
};

const testing::Environment* const kDevice = testing::AddGlobalTestEnvironment(new SimulatedDevice);

}  // namespace

void runClientThatDies(const std::string& instance,
                       const std::function<void(const ::android::sp<ServiceV1_1>&)>& client) {
    {
        android::hardware::host::ScopedCallingIdentity as(kDyingClientPid);
        client(ServiceV1_1::getService(instance));
    }
    EXPECT_GT(android::hardware::host::simulateProcessDeath(kDyingClientPid), 0u)
            << "the dying client linked nothing to its death";
}

bool reportFromModule() {
    simulated_legacy::runOnModuleThread([] {
        ar_context_event activity = record(2, 200);
        ar_context_event environment = record(1, 200);
        simulated_legacy::reportExtendedActivities(&activity, 1);
        simulated_legacy::reportEnvironments(&environment, 1);
    });
    return true;
}

}  // namespace vts_ar
