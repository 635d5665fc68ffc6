// Activity-interface tests with the simulated client library loaded: the library is linked for
// its control API, the property that allows it is set before the interface is created, and the
// requests and what reached each lower layer are spelled as short texts.
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

inline void setLegacyState(std::vector<ar_context_event> records) {
    simulated_legacy::StateAnswer answer;
    answer.records = std::move(records);
    simulated_legacy::setStateAnswer(simulated_legacy::Side::kActivity, answer);
}

// Calls of the legacy module other than its queries, as "entry(arg,arg,...)".
inline std::vector<std::string> legacyCalls() {
    std::vector<std::string> out;
    for (const auto& call : simulated_legacy::calls()) {
        if (call.entry.rfind("get_", 0) == 0) continue;
        std::ostringstream text;
        text << call.entry << "(";
        for (size_t i = 0; i < call.args.size(); ++i) text << (i ? "," : "") << call.args[i];
        text << ")";
        out.push_back(text.str());
    }
    simulated_legacy::clearCalls();
    return out;
}

// Commands the client library received, as "name param" (text commands, whose length argument
// is checked against the text) or "name first,second".
inline std::vector<std::string> zelCommands() {
    std::vector<std::string> out;
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
    simulated_zel::clearCalls();
    return out;
}

// The interface is created with the client library allowed and answering `mask`.
class ZelActivityTest : public ActivityTest {
  protected:
    explicit ZelActivityTest(uint32_t mask = 0x8) : mMask(mask) {}
    void SetUp() override {
        ::android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
        simulated_zel::reset();
        simulated_zel::setConfigMask(mMask);
        ActivityTest::SetUp();
        simulated_zel::clearCalls();
        simulated_legacy::clearCalls();
    }

    int32_t enable(int pid, uint32_t a, uint32_t e, int64_t latency) {
        ScopedCallingIdentity guard(pid);
        return iface->enableActivityEvent(a, e, latency);
    }
    int32_t enableExtend(int pid, uint32_t a, uint32_t e, int64_t latency, const OtherParams& p) {
        ScopedCallingIdentity guard(pid);
        return iface->enableActivityEventExtend(a, e, latency, p);
    }
    int32_t disable(int pid, uint32_t a, uint32_t e) {
        ScopedCallingIdentity guard(pid);
        return iface->disableActivityEvent(a, e);
    }

    uint32_t mMask;
};

}  // namespace artest
