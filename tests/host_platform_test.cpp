// The host stand-ins that the HAL relies on: calling identity, module loading, properties.
#include <android-base/properties.h>
#include <cutils/properties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <hardware/hardware.h>
#include <hwbinder/IPCThreadState.h>
#include <stdlib.h>
#include <unistd.h>

#include <thread>

#include "activity_recognition_legacy.h"

using android::hardware::IPCThreadState;
using android::hardware::host::makeCallingIdentityToken;
using android::hardware::host::ScopedCallingIdentity;
using android::hardware::host::setThreadStateAvailable;

namespace {

pid_t pidOnNewThread() {
    pid_t pid = 0;
    std::thread([&] { pid = IPCThreadState::self()->getCallingPid(); }).join();
    return pid;
}

// The process's own identity by default, a guard's on its thread only, restored after it; self()
// switched off per thread.
TEST(CallingIdentity, PerThreadGuardsAndState) {
    EXPECT_EQ(getuid(), IPCThreadState::self()->getCallingUid());
    {
        ScopedCallingIdentity outer(1234, 5678);
        EXPECT_EQ(5678u, IPCThreadState::self()->getCallingUid());
        EXPECT_EQ(getpid(), pidOnNewThread());
        {
            ScopedCallingIdentity inner(-1);
            EXPECT_EQ(-1, IPCThreadState::self()->getCallingPid());
        }
        EXPECT_EQ(1234, IPCThreadState::self()->getCallingPid());
    }
    EXPECT_EQ(getpid(), IPCThreadState::self()->getCallingPid());
    setThreadStateAvailable(false);
    EXPECT_EQ(nullptr, IPCThreadState::self());
    EXPECT_NE(0, pidOnNewThread());
    setThreadStateAvailable(true);
    EXPECT_NE(nullptr, IPCThreadState::self());
}

TEST(CallingIdentity, TokenHoldsUidHighAndPidLow) {
    ScopedCallingIdentity guard(0x4d2, 0x162e);
    int64_t token = IPCThreadState::self()->clearCallingIdentity();
    EXPECT_EQ(0x0000162e000004d2, token);
    EXPECT_EQ(token, makeCallingIdentityToken(0x4d2, 0x162e));
    EXPECT_EQ(getpid(), IPCThreadState::self()->getCallingPid());
    IPCThreadState::self()->restoreCallingIdentity(makeCallingIdentityToken(-7, 10));
    EXPECT_EQ(-7, IPCThreadState::self()->getCallingPid());
    EXPECT_EQ(10u, IPCThreadState::self()->getCallingUid());
}

struct LoaderCase {
    const char* name;
    const char* path;  // HAL_LIBRARY_PATH, or null to leave it unset
    int result;
};

class ModuleLoader : public ::testing::TestWithParam<LoaderCase> {};

TEST_P(ModuleLoader, FindsRefusesOrLoads) {
    const LoaderCase& c = GetParam();
    c.path == nullptr ? unsetenv("HAL_LIBRARY_PATH") : setenv("HAL_LIBRARY_PATH", c.path, 1);
    const hw_module_t* module = nullptr;
    ASSERT_EQ(c.result, hw_get_module(ACTIVITY_RECOGNITION_HARDWARE_MODULE_ID, &module));
    if (c.result != 0) {
        EXPECT_EQ(nullptr, module);
        return;
    }
    ASSERT_NE(nullptr, module);
    EXPECT_STREQ(ACTIVITY_RECOGNITION_HARDWARE_MODULE_ID, module->id);
    EXPECT_NE(nullptr, module->dso);
    hw_device_t* device = nullptr;
    ASSERT_EQ(0, module->methods->open(module, ACTIVITY_RECOGNITION_HIDL_DEVICE, &device));
    EXPECT_EQ(0, device->close(device));
}

INSTANTIATE_TEST_SUITE_P(
        Paths, ModuleLoader,
        ::testing::Values(LoaderCase{"unset_uses_build_folder", nullptr, 0},
                          LoaderCase{"search_list", "/nonexistent:" TEST_HAL_DIR, 0},
                          LoaderCase{"empty_means_nowhere", "", -ENOENT},
                          LoaderCase{"folder_without_module", "/nonexistent:/tmp", -ENOENT},
                          LoaderCase{"wrong_id", TEST_WRONG_ID_HAL_DIR, -EINVAL}),
        [](const auto& info) { return std::string(info.param.name); });

TEST(Properties, BoolDefaultsAndValues) {
    const char* key = "ro.test.flag";
    EXPECT_FALSE(property_get_bool(key, false));
    EXPECT_TRUE(property_get_bool(key, true));
    // What is neither true nor false keeps the default.
    const std::pair<const char*, int> values[] = {{"1", 1},  {"true", 1}, {"y", 1},     {"yes", 1},
                                                  {"on", 1}, {"0", 0},    {"false", 0}, {"n", 0},
                                                  {"no", 0}, {"off", 0},  {"maybe", -1}};
    for (const auto& [value, expected] : values) {
        android::base::SetProperty(key, value);
        EXPECT_EQ(expected == 1, property_get_bool(key, false)) << value;
        EXPECT_EQ(expected != 0, property_get_bool(key, true)) << value;
    }
}

}  // namespace
