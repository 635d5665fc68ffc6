#include "ZelLayer.h"

#include <dlfcn.h>

namespace arharness {
namespace {

using simulated_zel::Entry;

std::string quoted(const std::string& text) {
    return "\"" + escapeText(text) + "\"";
}

std::string intAt(const simulated_zel::Call& call, size_t i) {
    return i < call.ints.size() ? std::to_string(call.ints[i]) : "?";
}

}  // namespace

ZelLayer::ZelLayer(Trace* trace) : mTrace(trace) {}

bool ZelLayer::choose(Variant variant, std::string* error) {
    if (mLoaded && variant != mVariant) {
        *error = "the client library is loaded already: choose its variant before any other zel "
                 "command and before start";
        return false;
    }
    mVariant = variant;
    return true;
}

bool ZelLayer::load(std::string* error) {
    if (mLoaded) return true;
    mLoaded = true;
    if (mVariant == Variant::kAbsent) return true;
    std::string path = std::string(mVariant == Variant::kPresent ? AR_ZEL_CLIENT_DIR
                                                                 : AR_ZEL_CLIENT_NO_MOTION_DIR) +
                       "/libZelClient.so";
    if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        *error = std::string("cannot load the client library: ") + dlerror();
        return false;
    }
    void* shim = dlopen("libar_harness_zel.so", RTLD_NOW);
    using Get = const ZelControl* (*)();
    Get get = shim != nullptr ? reinterpret_cast<Get>(dlsym(shim, "ar_harness_zel_control"))
                              : nullptr;
    if (get == nullptr) {
        *error = std::string("cannot reach the client library's controls: ") + dlerror();
        return false;
    }
    mControl = get();
    return true;
}

void ZelLayer::reset() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mControl != nullptr) mControl->reset();
    mSeen = 0;
}

void ZelLayer::flush() {
    if (mControl == nullptr) return;
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<simulated_zel::Call> calls = mControl->calls();
    for (; mSeen < calls.size(); ++mSeen) {
        const simulated_zel::Call& call = calls[mSeen];
        // Each entry shows its own arguments; the JSON object holds all of them.
        Event event(Kind::kZel, "{entry}({client}, {name}, {ints}) -> {answer}");
        event.subject = "zel";
        std::string entry;
        std::string ints;
        std::string answer = std::to_string(call.result);
        switch (call.entry) {
            case Entry::kSetCallback:
                entry = event.name = "ZelSetCallback";
                event.detail = call.client;
                event.layout = "{entry}({client}, ZelNotify) -> {answer}";
                break;
            case Entry::kRunCommand:
                entry = "ZelRunCommand";
                event.name = call.name;
                event.detail = call.param;
                event.layout = "{entry}({client}, {name}, {param}, {length}) -> {answer}";
                break;
            case Entry::kRunCommandInt:
                entry = "ZelRunCommandInt";
                event.name = call.name;
                event.detail = intAt(call, 0) + " " + intAt(call, 1);
                ints = intAt(call, 0) + ", " + intAt(call, 1);
                break;
            case Entry::kGetData:
                entry = event.name = "ZelGetData";
                event.detail = call.name;
                ints = intAt(call, 0);
                event.layout = "{entry}({name}, {ints}) -> {answer}";
                break;
            case Entry::kMotionEnable:
                entry = event.name = "ZelMotionEnable";
                event.detail = ints = intAt(call, 0);
                event.layout = "{entry}({ints}) -> {answer}";
                answer = call.result != 0 ? "true" : "false";  // a bool, in JSON too
                break;
        }
        std::vector<std::string> numbers;
        for (int32_t value : call.ints) numbers.push_back(std::to_string(value));
        std::string json = "[" + join(numbers, ",") + "]";
        // JSON: also the entry's arguments in their order, as its line shows them.
        std::vector<std::string> args;
        switch (call.entry) {
            case Entry::kSetCallback:
                args = {jsonString(call.client), jsonString("ZelNotify")};
                break;
            case Entry::kRunCommand:
                args = {jsonString(call.client), jsonString(call.name), jsonString(call.param),
                        std::to_string(call.length)};
                break;
            case Entry::kRunCommandInt:
                args = {jsonString(call.client), jsonString(call.name)};
                break;
            case Entry::kGetData:
                args = {jsonString(call.name)};
                break;
            case Entry::kMotionEnable:
                break;
        }
        if (call.entry != Entry::kSetCallback && call.entry != Entry::kRunCommand) {
            args.insert(args.end(), numbers.begin(), numbers.end());
        }
        event.addString("entry", entry)
                .add("client", quoted(call.client), jsonString(call.client))
                .add("name", quoted(call.name), jsonString(call.name))
                .add("param", quoted(call.param), jsonString(call.param))
                .addNumber("length", call.length)
                .add("ints", ints, json)
                .add("args", "", "[" + join(args, ",") + "]")
                .add("answer", answer, answer);
        mTrace->emit(std::move(event));
    }
}

}  // namespace arharness
