// The client library allowed but absent: this program neither links it nor finds it.
#include <android-base/properties.h>

#include "ActivityTestSupport.h"

namespace {

using namespace artest;

TEST(ActivityZelMissingTest, EverythingStaysLegacy) {
    LogCapture log;
    ::android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
    auto iface = fetchService()->getActivityInterfaceV1_1().withDefault(nullptr);
    EXPECT_EQ((Lines{"4 Construct ActivityInterface",
                     "6 ActivityInterface: [ZEL]zel hidl interface dlopen err:libZelClient.so: "
                     "cannot open shared object file: No such file or directory, used tradition "
                     "case\n"}),
              log.withTag("AR_impl"));
    simulated_legacy::clearCalls();
    EXPECT_EQ(0, iface->enableActivityEvent(3, 1, 1000000000));
    EXPECT_EQ("enable_activity_event", simulated_legacy::calls().at(0).entry);
}

}  // namespace
