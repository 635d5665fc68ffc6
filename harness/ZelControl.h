// The control API of the simulated client library, as a table that the harness looks up at run
// time. The harness loads the library only when a scenario wants it, in the variant it names
// (with or without "ZelMotionEnable"), so it cannot link the library itself: a small shim that
// links it (libar_harness_zel.so) hands out this table once the chosen variant is loaded.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "simulated_zel_client.h"

namespace arharness {

struct ZelControl {
    void (*setConfig)(std::vector<int32_t> words);
    void (*setStatusRecords)(std::vector<ar_context_event> records);
    void (*queueResults)(simulated_zel::Entry entry, std::vector<int32_t> results);
    void (*setCommandResult)(const std::string& command, int32_t code);
    std::vector<simulated_zel::Call> (*calls)();
    void (*reset)();
    // Calls the registered notification function from the library's thread, acting as `pid`
    // (or with no thread state); false when none is registered.
    bool (*notify)(int32_t status, int32_t byteLength, const std::vector<int32_t>& data, pid_t pid,
                   bool threadState);
};

}  // namespace arharness

// Exported by the shim under this name.
extern "C" const arharness::ZelControl* ar_harness_zel_control();
