// The chronological trace of a run: one event per line, as text for people or as JSON Lines for
// tools. Events of the latest step (the last command that was not an expectation) are kept so
// that expectations can look at what that command caused.
#pragma once

#include <stdio.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace arharness {

enum class Format { kText, kJsonl };

struct Event {
    // command, call, return, deliver, link, death, module, zel, log, note, check.
    std::string kind;
    // What expectations compare: the client, layer or log tag; the method, entry or priority;
    // and the canonical arguments, records or text.
    std::string subject;
    std::string name;
    std::string detail;
    int items = 0;  // records of a delivery
    // The human-readable line (after the location and kind) and the JSON members that follow
    // "file", "line" and "kind" (empty, or starting with a comma).
    std::string text;
    std::string json;
    bool consumed = false;
};

class Trace {
  public:
    Trace(FILE* out, Format format);

    // The scenario line that the following events belong to.
    void setLocation(const std::string& file, int line);
    // Starts a new step: events of the previous one are no longer visible to expectations.
    void beginStep();
    // Prints the event at once and keeps it in the current step. Safe from any thread.
    void emit(Event event);
    // Runs before every event is printed (not for the events it emits itself): lower layers that
    // only record their calls trace them from here, just ahead of whatever happened next.
    void setBeforeEmit(std::function<void()> hook) { mBeforeEmit = std::move(hook); }
    Format format() const { return mFormat; }
    // Runs `work` on the events of the current step under the trace's lock.
    void withStep(const std::function<void(std::vector<Event>&)>& work);

  private:
    std::function<void()> mBeforeEmit;
    std::mutex mLock;
    FILE* mOut;
    Format mFormat;
    std::string mFile;
    int mLine = 0;
    std::vector<Event> mStep;
};

}  // namespace arharness
