// The simulated legacy module as the harness drives it: its configuration (kept here as well, so
// that the trace can show what each entry answered), the trace of every call that reaches it,
// and the batches it reports through the callback tables the HAL registered.
#pragma once

#include <activity_recognition_legacy.h>

#include <string>
#include <vector>

#include "Syntax.h"
#include "Trace.h"

namespace arharness {

// The calling identity of the thread that plays the lower layers' own threads (the legacy
// module's and the client library's reporting threads), and of the service host's binder thread
// that delivers death notices: the service host process.
constexpr int kHostPid = 500;
constexpr int kHostUid = 1000;

// A record as the module's event structure holds it (x is cut to the 32 bytes it has room for).
ar_context_event toContextEvent(const Record& record);

class ModuleLayer {
  public:
    explicit ModuleLayer(Trace* trace);

    // Hooks every entry of the module, so that each call is traced when it happens.
    void install();
    // Traces the calls that were recorded but not yet traced.
    void flush();
    // Back to the module's defaults, with no call recorded (the HAL's registrations stay), for
    // the next run in the same process.
    void reset();

    static bool isEntry(const std::string& entry);
    // Entries whose answer is a plain result code (setResult applies).
    static bool hasResultCode(const std::string& entry);

    void setResult(const std::string& entry, int result);
    void setTable(bool activity, bool available);
    void setList(bool activity, const std::vector<std::string>& names, bool hasCount, int count,
                 bool null);
    void setState(bool activity, const std::vector<Record>& records, bool hasCount, int count,
                  bool null);

    // Reports a batch from the module's own thread, acting as `pid` (or with no thread state).
    // False when the HAL has not registered the callback table of that kind.
    enum class Batch { kActivities, kExtended, kEnvironments };
    bool report(Batch batch, const std::vector<Record>& records, int count, bool null, int pid,
                bool noThreadState);

  private:
    std::string answerOf(const std::string& entry);

    Trace* mTrace;
    size_t mSeen = 0;
    std::vector<std::pair<std::string, int>> mResults;
    bool mTables[2] = {true, true};
    int mListCounts[2] = {0, 0};
    int mStateCounts[2] = {0, 0};
};

}  // namespace arharness
