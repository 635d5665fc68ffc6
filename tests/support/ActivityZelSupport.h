// Activity-interface tests with the simulated client library loaded: the library is linked for
// its control API, the property that allows it is set before the interface is created, and what
// reached each lower layer is spelled as short texts.
#pragma once

#include <android-base/properties.h>

#include <sstream>

#include "ActivityTestSupport.h"
#include "simulated_zel_client.h"

namespace artest {

using ar::V1_0::OtherParams;

inline OtherParams params(double first, double second = 0, const std::string& extra = "") {
    OtherParams p;
    p.params[0] = first;
    p.params[1] = second;
    p.params[2] = p.params[3] = 0.0;
    p.extra = extra;
    return p;
}

// What reached the lower layers since the last call: the legacy module's entries other than its
// queries, as "entry(args)" ("entry(args;first double)" with parameters), then the client
// library's commands, as "name param" (its length argument checked) or "name first,second".
inline Lines below() {
    Lines out;
    for (const auto& call : simulated_legacy::calls()) {
        if (call.entry.rfind("get_", 0) == 0) continue;
        std::ostringstream text;
        text << call.entry << "(";
        for (size_t i = 0; i < call.args.size(); ++i) text << (i ? "," : "") << call.args[i];
        if (call.hasParams) text << ";" << call.params.params[0];
        out.push_back(text.str() + ")");
    }
    for (const auto& call : simulated_zel::commands()) {
        EXPECT_EQ("ar-client", call.client);
        if (call.entry == simulated_zel::Entry::kRunCommand) {
            EXPECT_EQ(static_cast<int32_t>(call.param.size()), call.length);
            out.push_back(call.name + " " + call.param);
        } else {
            out.push_back(call.name + " " + std::to_string(call.ints[0]) + "," +
                          std::to_string(call.ints[1]));
        }
    }
    simulated_legacy::clearCalls();
    simulated_zel::clearCalls();
    return out;
}

// The interface is created with the client library allowed; its mask routes activity 3.
class ZelActivityTest : public ActivityTest {
  protected:
    void SetUp() override {
        ::android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
        simulated_zel::reset();
        simulated_zel::setConfigMask(0x8);
        ActivityTest::SetUp();
        below();
    }
};

}  // namespace artest
