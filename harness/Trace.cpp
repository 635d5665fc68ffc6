#include "Trace.h"

#include <algorithm>

#include "Syntax.h"

namespace arharness {

// ---- kinds ----

namespace {

struct KindNames {
    Kind kind;
    const char* text;
    const char* json;
};

// In the order of the enum.
constexpr KindNames kKindNames[] = {
        {Kind::kCommand, "command", "command"},
        {Kind::kCall, "call", "call"},
        {Kind::kReturn, "return", "return"},
        {Kind::kDeliver, "deliver", "deliver"},
        {Kind::kReport, "report", "report"},
        {Kind::kLink, "link", "link"},
        {Kind::kDeath, "death", "death"},
        {Kind::kModule, "module", "module"},
        {Kind::kZel, "zel", "zel"},
        {Kind::kLog, "log", "log"},
        {Kind::kSetup, "setup", "setup"},
        {Kind::kNote, "note", "note"},
        {Kind::kDump, "dump", "dump"},
        {Kind::kCheck, "check", "check"},
        {Kind::kError, "error", "error"},
        {Kind::kSummary, "summary", "summary"},
};
static_assert(sizeof(kKindNames) / sizeof(kKindNames[0]) == kKindCount, "a kind without names");

constexpr bool namesInEnumOrder(size_t i = 0) {
    return i == kKindCount ||
           (static_cast<size_t>(kKindNames[i].kind) == i && namesInEnumOrder(i + 1));
}
static_assert(namesInEnumOrder(), "kKindNames out of the enum's order");

}  // namespace

const char* kindText(Kind kind) {
    return kKindNames[static_cast<size_t>(kind)].text;
}

const char* kindJson(Kind kind) {
    return kKindNames[static_cast<size_t>(kind)].json;
}

bool parseKind(const std::string& name, Kind* kind) {
    for (const KindNames& names : kKindNames) {
        if (name == names.text || name == names.json) {
            *kind = names.kind;
            return true;
        }
    }
    return false;
}

// ---- events ----

Event& Event::add(const std::string& key, std::string text, std::string json) {
    fields.push_back({key, std::move(text), std::move(json)});
    return *this;
}

Event& Event::addString(const std::string& key, const std::string& value) {
    return add(key, value, jsonString(value));
}

Event& Event::addNumber(const std::string& key, int64_t value) {
    return add(key, std::to_string(value), std::to_string(value));
}

std::string Event::line() const {
    std::string text;
    for (size_t at = 0; at < layout.size();) {
        size_t open = layout.find('{', at);
        size_t close = open == std::string::npos ? open : layout.find('}', open);
        if (close == std::string::npos) return text + layout.substr(at);
        std::string key = layout.substr(open + 1, close - open - 1);
        auto field = std::find_if(fields.begin(), fields.end(),
                                  [&](const Field& f) { return f.key == key; });
        text += layout.substr(at, open - at);
        text += field != fields.end() ? field->text : layout.substr(open, close + 1 - open);
        at = close + 1;
    }
    return text;
}

std::string Event::object() const {
    std::string json;
    for (const Field& field : fields) json += "," + jsonString(field.key) + ":" + field.json;
    return json;
}

// ---- the trace ----

Trace::Trace(FILE* out, Format format) : mOut(out), mFormat(format) {}

void Trace::setLocation(const std::string& file, int line) {
    std::lock_guard<std::mutex> guard(mLock);
    mFile = file;
    mLine = line;
}

void Trace::beginStep() {
    std::lock_guard<std::mutex> guard(mLock);
    mStep.clear();
}

std::string Trace::moreRecords(size_t total) {
    return " ... " + std::to_string(total) + " records (--all-records shows them)";
}

bool Trace::prints(const Event& event) const {
    if (event.kind == Kind::kSummary) return true;
    if (!mFilter.kinds.test(static_cast<size_t>(event.kind))) return false;
    return !mFilter.quiet || event.failure || event.kind == Kind::kError;
}

void Trace::emit(Event event) {
    static thread_local bool tInHook = false;
    if (mBeforeEmit && !tInHook) {
        tInHook = true;
        mBeforeEmit();
        tInHook = false;
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (!prints(event)) {
        // Kept for expectations, not printed.
    } else if (mFormat == Format::kJsonl) {
        fprintf(mOut, "{\"file\":%s,\"line\":%d,\"kind\":%s%s}\n", jsonString(mFile).c_str(), mLine,
                jsonString(kindJson(event.kind)).c_str(), event.object().c_str());
    } else if (event.kind == Kind::kCommand) {
        fprintf(mOut, "%5d > %s\n", mLine, event.line().c_str());
    } else {
        fprintf(mOut, "%5d   %-7s %s\n", mLine, kindText(event.kind), event.line().c_str());
    }
    fflush(mOut);  // every event as it happens, with stderr's messages between them
    mStep.push_back(std::move(event));
}

void Trace::withStep(const std::function<void(std::vector<Event>&)>& work) {
    std::lock_guard<std::mutex> guard(mLock);
    work(mStep);
}

}  // namespace arharness
