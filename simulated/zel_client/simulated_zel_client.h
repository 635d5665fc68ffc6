// Control API of the simulated sensor-framework client library (libZelClient.so), a development
// library and test double in one. It exports the five entry points of impl/ZelClient.h, answers
// from configurable data, records every call it receives with its exact arguments, and calls the
// registered notification function on demand from a thread of its own. All state is per process.
//
// Two builds of the same source, each in a folder of its own (the build's zel_client/ and
// zel_client_no_motion/): the second lacks "ZelMotionEnable". The HAL loads the library by its
// bare file name, so a process picks a variant with LD_LIBRARY_PATH; a program linked against
// the library (to use this API) always has that build loaded.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "activity_recognition_legacy.h"

namespace simulated_zel {

enum class Entry { kSetCallback, kRunCommand, kRunCommandInt, kGetData, kMotionEnable };

// One call of an entry point, with its arguments.
struct Call {
    Entry entry;
    std::string client;         // client name (ZelSetCallback, ZelRunCommand, ZelRunCommandInt)
    std::string name;           // command name, or the data key of ZelGetData
    std::string param;          // text parameter of ZelRunCommand: exactly `length` bytes
    int32_t length = 0;         // length argument of ZelRunCommand
    std::vector<int32_t> ints;  // ZelRunCommandInt: both integers; ZelGetData: flags;
                                // ZelMotionEnable: its argument
    int32_t result = 0;         // the answer (ZelMotionEnable: 1 for true, 0 for false)
};

// Back to the defaults: "ar_config" answers one word 0, "ar_status" no record, every entry point
// succeeds, every command answers 0; the call record is cleared. A registered notification
// function is kept.
void reset();

// Words handed back for "ar_config" (the configuration mask is the first; may be empty).
void setConfig(std::vector<int32_t> words);
inline void setConfigMask(uint32_t mask) {
    setConfig({static_cast<int32_t>(mask)});
}
// Records handed back for "ar_status", 88 bytes each.
void setStatusRecords(std::vector<ar_context_event> records);
// Answers of the coming calls of an entry point, one per call in order; once used up, the entry
// answers normally again. ZelMotionEnable answers true for a nonzero value. A negative answer of
// ZelGetData leaves its output empty.
void queueResults(Entry entry, std::vector<int32_t> results);
// Return code of a command by its name ("ar-on", "ar-off", "modem-update"), when nothing is queued.
void setCommandResult(const std::string& command, int32_t code);

std::vector<Call> calls();
// Only the commands (ZelRunCommand and ZelRunCommandInt), in order.
std::vector<Call> commands();
void clearCalls();

// Whether a notification function is registered, and under which client name.
bool notificationRegistered();
std::string registeredClient();

// The registered notification function (the type of ZelNotifyFunc), null when none: for a program
// that calls it in place, on a thread of its own, without the thread per call of notify().
using NotifyFunction = void (*)(int32_t status, int32_t byteLength,
                                const std::vector<int32_t>& data);
NotifyFunction registeredNotification();

// Records back to back, 24 bytes each, as the notifications carry them.
std::vector<int32_t> pack(const std::vector<activity_event>& events);

// Calls the registered notification function on a thread of the library's own and waits for it to
// return. That thread acts as process `callingPid` (default: the process's own identity) or, with
// `threadState` false, has no thread state. False when no function is registered.
bool notify(int32_t status, int32_t byteLength, const std::vector<int32_t>& data,
            std::optional<pid_t> callingPid = std::nullopt, bool threadState = true);

}  // namespace simulated_zel
