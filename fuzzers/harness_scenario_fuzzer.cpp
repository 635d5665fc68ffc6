// Any bytes as a scenario of ar-harness, each input in a fresh runner over the simulated layers,
// with the trace discarded. A malformed line must end as a scenario error: never a crash, a hang,
// an abort or a sanitizer report.
//
// One process hosts one service, so the process starts it before the first input, with both
// interfaces created and the client library bound; every input's `start` answers that service.
// Inputs are bounded in lines, a line in bytes and a batch in records, so that one input stays
// fast.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <sstream>
#include <string>

#include "Runner.h"

namespace {

constexpr size_t kMaxLines = 64;
// Above the HAL's own limit of a batch (192), so that its refusal stays reachable.
constexpr int32_t kBatchLimit = 1000;
// Lines above this are refused as over-long: low enough that inputs reach it, high enough for
// every seed scenario's lines and for lists that reach their own bounds (512 names).
constexpr size_t kLineLimit = 4096;

constexpr char kHostSetUp[] =
        "property ro.odm.config.zel_service_enable true\n"
        "zel library present\n"
        "start\n"
        "client activity pid=1 version=1.1 activity\n"
        "activity register\n"
        "client environment pid=1 version=1.1 environment\n"
        "environment register\n";

arharness::Runner::Summary runScenario(arharness::Runner* runner, const std::string& name,
                                       const std::string& text) {
    std::istringstream in(text);
    arharness::Runner::Options options;
    options.maxLines = kMaxLines;
    return runner->run(name, in, options);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /* argc */, char*** /* argv */) {
    arharness::setBatchLimit(kBatchLimit);
    arharness::setLineLimit(kLineLimit);
    FILE* trace = fopen("/dev/null", "w");
    if (trace == nullptr) abort();
    arharness::Runner* runner = arharness::startHost(trace, arharness::Format::kText);
    if (runScenario(runner, "host set-up", kHostSetUp).errors != 0) abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    runScenario(arharness::freshRunner(), "input",
                std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
