#include "Trace.h"

#include <algorithm>

#include "Syntax.h"

namespace arharness {

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

void Trace::emit(Event event) {
    static thread_local bool tInHook = false;
    if (mBeforeEmit && !tInHook) {
        tInHook = true;
        mBeforeEmit();
        tInHook = false;
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (mFormat == Format::kJsonl) {
        fprintf(mOut, "{\"file\":%s,\"line\":%d,\"kind\":%s%s}\n", jsonString(mFile).c_str(), mLine,
                jsonString(event.kind).c_str(), event.object().c_str());
    } else if (event.kind == "command") {
        fprintf(mOut, "%5d > %s\n", mLine, event.line().c_str());
    } else {
        fprintf(mOut, "%5d   %-7s %s\n", mLine, event.kind.c_str(), event.line().c_str());
    }
    fflush(mOut);
    mStep.push_back(std::move(event));
}

void Trace::withStep(const std::function<void(std::vector<Event>&)>& work) {
    std::lock_guard<std::mutex> guard(mLock);
    work(mStep);
}

}  // namespace arharness
