// The chronological trace of a run: one event per line, as text for people or as JSON Lines for
// tools. Events of the latest step (the last command that was not an expectation) are kept so
// that expectations can look at what that command caused.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <bitset>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace arharness {

enum class Format { kText, kJsonl };

// What an event is about. Each kind has its name in the text trace (the column after the line
// number) and in JSON Lines (the value of "kind"); `--only=` takes either.
enum class Kind {
    kCommand,  // a scenario line that is not an expectation
    kCall,     // a client calls the service
    kReturn,   // what that call returned
    kDeliver,  // the service calls a client's callback
    kReport,   // a lower layer reports a batch from its own thread
    kLink,     // the service links to or unlinks from a client's death
    kDeath,    // a client's process dies
    kModule,   // a call reached the legacy module
    kZel,      // a call reached the client library
    kLog,      // a log line
    kSetup,    // a set-up command took effect
    kNote,     // something the harness points out
    kDump,     // a state dump
    kCheck,    // an expectation held or failed
    kError,    // a scenario error (JSON Lines only; the text trace has it on standard error)
    kSummary,  // the last line of a run
};
inline constexpr size_t kKindCount = static_cast<size_t>(Kind::kSummary) + 1;

const char* kindText(Kind kind);
const char* kindJson(Kind kind);
// A kind by either of its names; false when there is none.
bool parseKind(const std::string& name, Kind* kind);

// One event of the trace. What it shows are its fields, each with a text and a JSON form: the
// text line is its layout with every {key} replaced by that field's text, and the JSON object
// holds every field after "file", "line" and "kind". Both forms are thus of the same values.
struct Event {
    Event() = default;
    Event(Kind kind, std::string layout) : kind(kind), layout(std::move(layout)) {}

    Event& add(const std::string& key, std::string text, std::string json);
    Event& addString(const std::string& key, const std::string& value);  // JSON: a string
    Event& addNumber(const std::string& key, int64_t value);
    std::string line() const;    // after the location and kind
    std::string object() const;  // the members after "kind", each starting with a comma

    Kind kind = Kind::kNote;
    std::string layout;
    struct Field {
        std::string key;
        std::string text;
        std::string json;
    };
    std::vector<Field> fields;
    // What expectations compare: the client, layer or log tag; the method, entry or priority;
    // and the canonical arguments, records or text.
    std::string subject;
    std::string name;
    std::string detail;
    int items = 0;  // records of a delivery
    bool consumed = false;
    bool failure = false;  // an expectation that failed: shown even by a quiet trace
};

// What a trace prints. Every event is kept for expectations whatever it prints, and the summary
// always ends the trace.
struct TraceFilter {
    std::bitset<kKindCount> kinds = std::bitset<kKindCount>().set();
    // Quiet: of those kinds, only failures (failed expectations, errors) and the summary.
    bool quiet = false;
    // Records of a batch that its text line shows (0: all); JSON Lines always has all of them.
    size_t records = 8;
};

class Trace {
  public:
    Trace(FILE* out, Format format);

    void setFilter(const TraceFilter& filter) { mFilter = filter; }
    // A batch's records in the text trace: the first ones the filter shows, and how many
    // there are when they are not all shown.
    template <typename Item>
    std::vector<Item> shownRecords(const std::vector<Item>& records) const {
        size_t shown =
                mFilter.records == 0 ? records.size() : std::min(mFilter.records, records.size());
        return std::vector<Item>(records.begin(), records.begin() + shown);
    }
    // What follows the shown records when there are more: " ... N records (--all-records)".
    static std::string moreRecords(size_t total);

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
    bool prints(const Event& event) const;

    std::function<void()> mBeforeEmit;
    TraceFilter mFilter;
    std::mutex mLock;
    FILE* mOut;
    Format mFormat;
    std::string mFile;
    int mLine = 0;
    std::vector<Event> mStep;
};

}  // namespace arharness
