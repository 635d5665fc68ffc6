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

void ZelLayer::flush() {
    if (mControl == nullptr) return;
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<simulated_zel::Call> calls = mControl->calls();
    for (; mSeen < calls.size(); ++mSeen) {
        const simulated_zel::Call& call = calls[mSeen];
        Event event;
        event.kind = "zel";
        event.subject = "zel";
        std::string entry;
        std::string args;
        std::string answer = std::to_string(call.result);
        switch (call.entry) {
            case Entry::kSetCallback:
                entry = event.name = "ZelSetCallback";
                event.detail = call.client;
                args = quoted(call.client) + ", ZelNotify";
                break;
            case Entry::kRunCommand:
                entry = "ZelRunCommand";
                event.name = call.name;
                event.detail = call.param;
                args = quoted(call.client) + ", " + quoted(call.name) + ", " + quoted(call.param) +
                       ", " + std::to_string(call.length);
                break;
            case Entry::kRunCommandInt:
                entry = "ZelRunCommandInt";
                event.name = call.name;
                event.detail = intAt(call, 0) + " " + intAt(call, 1);
                args = quoted(call.client) + ", " + quoted(call.name) + ", " + intAt(call, 0) +
                       ", " + intAt(call, 1);
                break;
            case Entry::kGetData:
                entry = event.name = "ZelGetData";
                event.detail = call.name;
                args = quoted(call.name) + ", " + intAt(call, 0);
                break;
            case Entry::kMotionEnable:
                entry = event.name = "ZelMotionEnable";
                event.detail = intAt(call, 0);
                args = event.detail;
                answer = call.result != 0 ? "true" : "false";
                break;
        }
        event.text = entry + "(" + args + ") -> " + answer;
        std::string ints = "[";
        for (size_t i = 0; i < call.ints.size(); ++i) {
            ints += (i > 0 ? "," : "") + std::to_string(call.ints[i]);
        }
        event.json = ",\"entry\":" + jsonString(entry) + ",\"client\":" + jsonString(call.client) +
                     ",\"name\":" + jsonString(call.name) + ",\"param\":" + jsonString(call.param) +
                     ",\"length\":" + std::to_string(call.length) + ",\"ints\":" + ints + "]" +
                     ",\"answer\":" + jsonString(answer);
        mTrace->emit(std::move(event));
    }
}

}  // namespace arharness
