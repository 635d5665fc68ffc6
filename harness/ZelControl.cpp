// The shim between the harness and the simulated client library's control API.
#include "ZelControl.h"

namespace {

bool notifyAs(int32_t status, int32_t byteLength, const std::vector<int32_t>& data, pid_t pid,
              bool threadState) {
    return simulated_zel::notify(status, byteLength, data, pid, threadState);
}

const arharness::ZelControl kControl = {
        simulated_zel::setConfig,
        simulated_zel::setStatusRecords,
        simulated_zel::queueResults,
        simulated_zel::setCommandResult,
        simulated_zel::calls,
        simulated_zel::reset,
        notifyAs,
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const arharness::ZelControl*
ar_harness_zel_control() {
    return &kControl;
}
