#include "Trace.h"

#include "Syntax.h"

namespace arharness {

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
                jsonString(event.kind).c_str(), event.json.c_str());
    } else if (event.kind == "command") {
        fprintf(mOut, "%5d > %s\n", mLine, event.text.c_str());
    } else {
        fprintf(mOut, "%5d   %-7s %s\n", mLine, event.kind.c_str(), event.text.c_str());
    }
    fflush(mOut);
    mStep.push_back(std::move(event));
}

void Trace::withStep(const std::function<void(std::vector<Event>&)>& work) {
    std::lock_guard<std::mutex> guard(mLock);
    work(mStep);
}

}  // namespace arharness
