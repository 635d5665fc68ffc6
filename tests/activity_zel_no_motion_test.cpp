// A client library without "ZelMotionEnable", found through LD_LIBRARY_PATH: no function is
// bound, and the library stays open until the interface goes. (That every activity stays on the
// legacy module: harness/scenarios/client-library-no-motion.scenario.)
#include <android-base/properties.h>
#include <dlfcn.h>

#include "ActivityTestSupport.h"
#include "simulated_zel_client.h"

namespace {

using namespace artest;

bool loaded() {
    void* handle = dlopen("libZelClient.so", RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

TEST(ActivityZelNoMotionTest, LookupFailureBindsNothing) {
    LogCapture log;
    ::android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
    auto service = fetchService();
    auto iface = service->getActivityInterfaceV1_1().withDefault(nullptr);
    const Lines lines = log.withTag("AR_impl");
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(0u, lines[1].find("6 ActivityInterface:[ZEL]zel interface dlsym err:")) << lines[1];
    EXPECT_NE(std::string::npos, lines[1].find("undefined symbol: ZelMotionEnable\n")) << lines[1];
    EXPECT_TRUE(loaded());
    iface.clear();
    service.clear();
    EXPECT_FALSE(loaded());
}

// The interface re-created over the library without "ZelMotionEnable", after an earlier one bound
// the whole library and switched a pair on in it: the pair stays in the library's list, but the
// half-bound library is asked for nothing. The program does not link the library, so its controls
// are looked up in the variant loaded at the moment.
template <typename Function>
Function control(void* library, const char* symbol) {
    return reinterpret_cast<Function>(dlsym(library, symbol));
}

TEST(ActivityZelNoMotionTest, HalfBoundLibraryIsNotAskedForState) {
    ::android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
    // Loaded first by its path, the whole library is the one the first interface binds.
    void* whole = dlopen(AR_ZEL_CLIENT_DIR "/libZelClient.so", RTLD_NOW);
    ASSERT_NE(nullptr, whole);
    control<void (*)(std::vector<int32_t>)>(
            whole, "_ZN13simulated_zel9setConfigESt6vectorIiSaIiEE")({1 << 3});
    auto service = fetchService();
    auto iface = service->getActivityInterfaceV1_1().withDefault(nullptr);
    dlclose(whole);
    EXPECT_EQ(0, iface->enableActivityEvent(3, 1, 1000000000));
    iface.clear();
    service.clear();
    ASSERT_FALSE(loaded());

    service = fetchService();
    iface = service->getActivityInterfaceV1_1().withDefault(nullptr);
    void* half = dlopen("libZelClient.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(nullptr, half);
    // Nothing of it is called: not to switch the routed pair on again, not for a modem update
    // (the library's list is not empty), not for the current state.
    EXPECT_EQ(0, iface->enableActivityEvent(3, 2, 1000000000));
    ar::V1_0::OtherParams params;
    params.params[0] = 2;
    EXPECT_EQ(0, iface->enableActivityEventExtend(64, 1, 1000000000, params));
    iface->getCurrentActivityV1_1([](const auto&) {});
    EXPECT_TRUE(control<std::vector<simulated_zel::Call> (*)()>(half, "_ZN13simulated_zel5callsEv")()
                        .empty());
    dlclose(half);
}

}  // namespace
