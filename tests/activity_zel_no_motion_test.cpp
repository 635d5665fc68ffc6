// A client library without "ZelMotionEnable", found through LD_LIBRARY_PATH: no function is
// bound, and the library stays open until the interface goes. (That every activity stays on the
// legacy module: harness/scenarios/client-library-no-motion.scenario.)
#include <android-base/properties.h>
#include <dlfcn.h>

#include "ActivityTestSupport.h"

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

}  // namespace
