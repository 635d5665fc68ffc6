// Control API of the simulated legacy activity-recognition module, a development module and test
// double in one. It answers from configurable data, records every call it receives and injects
// event batches through the callback tables that the HAL registered.
#pragma once

#include <stdint.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "activity_recognition_legacy.h"

namespace simulated_legacy {

// One call received by an entry of the module, with its arguments in order. Entries that take
// an other_params record carry its 64 bytes too.
struct Call {
    std::string entry;
    std::vector<int64_t> args;
    bool hasParams = false;
    other_params params{};
};

enum class Side { kActivity, kEnvironment };

// Answer of a list query. The array handed out always holds at least `count` valid strings:
// missing ones are filled with generated names.
struct ListAnswer {
    std::vector<std::string> names;
    std::optional<int> count;  // default: names.size()
    bool nullList = false;
};

// Answer of a current-state query, with the same rule (missing records are zero).
struct StateAnswer {
    std::vector<ar_context_event> records;
    std::optional<int> count;
    bool nullArray = false;
};

// Back to the default configuration: open succeeds, both tables, empty answers, every entry
// answers 0, no hooks; the call record is cleared. Registered callbacks are kept.
void reset();

void setOpenResult(int result);
void setTableAvailable(Side side, bool available);
void setListAnswer(Side side, ListAnswer answer);
void setStateAnswer(Side side, StateAnswer answer);
// Result of an entry by its name in the tables ("enable_activity_event", "flush", ...).
void setResult(const std::string& entry, int result);
// Runs inside the named entry, before it answers (on the caller's thread).
void setHook(const std::string& entry, std::function<void()> hook);

std::vector<Call> calls();
// Whether calls are recorded (default true); long-running loops switch recording off.
void setRecording(bool recording);
void clearCalls();
int closeCount();

// Whether the HAL has registered its callback tables.
bool activityCallbacksRegistered();
bool environmentCallbacksRegistered();

// Batches through the registered callback tables, from the caller's thread. Return false when no
// table was registered.
bool reportActivities(const activity_event* events, int count);
bool reportExtendedActivities(const ar_context_event* events, int count);
bool reportEnvironments(const ar_context_event* events, int count);

// Runs `work` on a thread of the module's own and waits for it.
void runOnModuleThread(const std::function<void()>& work);

}  // namespace simulated_legacy
