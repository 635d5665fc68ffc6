#define LOG_TAG "SimZelClient"

#include "simulated_zel_client.h"

#include <hwbinder/IPCThreadState.h>
#include <string.h>

#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <type_traits>

#include "ZelClient.h"

namespace simulated_zel {
namespace {

struct State {
    std::mutex lock;
    std::vector<int32_t> config = {0};
    std::vector<ar_context_event> status;
    std::map<Entry, std::deque<int32_t>> queued;
    std::map<std::string, int32_t> commandResults;
    std::vector<Call> calls;
    ZelNotifyFunc notify = nullptr;
    std::string client;
};

// LeakSanitizer's, where a sanitized program links it in.
extern "C" void __lsan_ignore_object(const void* object) __attribute__((weak));

State& state() {
    static State* s = [] {
        // Never destroyed: the HAL may call in during exit. A test that switches variants unloads
        // the library, which leaves the state unreachable: it is kept on purpose, not leaked.
        State* created = new State();
        if (__lsan_ignore_object != nullptr) __lsan_ignore_object(created);
        return created;
    }();
    return *s;
}

// The queued answer of `entry`, if any (caller holds the lock).
std::optional<int32_t> takeQueued(State& s, Entry entry) {
    auto& queue = s.queued[entry];
    if (queue.empty()) return std::nullopt;
    int32_t result = queue.front();
    queue.pop_front();
    return result;
}

int32_t record(Call call, int32_t normal) {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    call.result = takeQueued(s, call.entry).value_or(normal);
    s.calls.push_back(call);
    return call.result;
}

int32_t commandResult(const std::string& command) {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto it = s.commandResults.find(command);
    return it == s.commandResults.end() ? 0 : it->second;
}

}  // namespace

void reset() {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.config = {0};
    s.status.clear();
    s.queued.clear();
    s.commandResults.clear();
    s.calls.clear();
}

void setConfig(std::vector<int32_t> words) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().config = std::move(words);
}

void setStatusRecords(std::vector<ar_context_event> records) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().status = std::move(records);
}

void queueResults(Entry entry, std::vector<int32_t> results) {
    std::lock_guard<std::mutex> guard(state().lock);
    auto& queue = state().queued[entry];
    queue.insert(queue.end(), results.begin(), results.end());
}

void setCommandResult(const std::string& command, int32_t code) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().commandResults[command] = code;
}

std::vector<Call> calls() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().calls;
}

std::vector<Call> commands() {
    std::vector<Call> out;
    for (const Call& call : calls()) {
        if (call.entry == Entry::kRunCommand || call.entry == Entry::kRunCommandInt) {
            out.push_back(call);
        }
    }
    return out;
}

void clearCalls() {
    std::lock_guard<std::mutex> guard(state().lock);
    state().calls.clear();
}

bool notificationRegistered() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().notify != nullptr;
}

static_assert(std::is_same_v<NotifyFunction, ZelNotifyFunc>);
NotifyFunction registeredNotification() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().notify;
}

std::string registeredClient() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().client;
}

std::vector<int32_t> pack(const std::vector<activity_event>& events) {
    std::vector<int32_t> data(events.size() * sizeof(activity_event) / sizeof(int32_t));
    if (!events.empty()) memcpy(data.data(), events.data(), events.size() * sizeof(activity_event));
    return data;
}

bool notify(int32_t status, int32_t byteLength, const std::vector<int32_t>& data,
            std::optional<pid_t> callingPid, bool threadState) {
    ZelNotifyFunc function;
    {
        std::lock_guard<std::mutex> guard(state().lock);
        function = state().notify;
    }
    if (function == nullptr) return false;
    std::thread thread([&] {
        std::optional<::android::hardware::host::ScopedCallingIdentity> identity;
        if (callingPid) identity.emplace(*callingPid);
        ::android::hardware::host::setThreadStateAvailable(threadState);
        function(status, byteLength, data);
    });
    thread.join();
    return true;
}

}  // namespace simulated_zel

using simulated_zel::Call;
using simulated_zel::Entry;

// The exported entry points, looked up by these names.
extern "C" {

__attribute__((visibility("default"))) int32_t ZelSetCallback(const std::string& client,
                                                              ZelNotifyFunc notify) {
    Call call{Entry::kSetCallback, client, "", "", 0, {}, 0};
    int32_t result = simulated_zel::record(call, 0);
    if (result >= 0) {
        std::lock_guard<std::mutex> guard(simulated_zel::state().lock);
        simulated_zel::state().notify = notify;
        simulated_zel::state().client = client;
    }
    return result;
}

__attribute__((visibility("default"))) int32_t ZelRunCommand(const std::string& client,
                                                             const std::string& command,
                                                             const char* param, int32_t length,
                                                             std::vector<uint8_t>& output) {
    std::string text = param != nullptr && length > 0 ? std::string(param, length) : "";
    Call call{Entry::kRunCommand, client, command, text, length, {}, 0};
    int32_t result = simulated_zel::record(call, simulated_zel::commandResult(command));
    output.assign({'o', 'k'});
    return result;
}

__attribute__((visibility("default"))) int32_t ZelRunCommandInt(const std::string& client,
                                                                const std::string& command,
                                                                int32_t first, int32_t second) {
    Call call{Entry::kRunCommandInt, client, command, "", 0, {first, second}, 0};
    return simulated_zel::record(call, simulated_zel::commandResult(command));
}

__attribute__((visibility("default"))) int32_t ZelGetData(const std::string& key, int32_t flags,
                                                          std::vector<int32_t>& output) {
    Call call{Entry::kGetData, "", key, "", 0, {flags}, 0};
    int32_t result = simulated_zel::record(call, 0);
    if (result < 0) return result;
    std::lock_guard<std::mutex> guard(simulated_zel::state().lock);
    if (key == "ar_config") {
        output = simulated_zel::state().config;
    } else if (key == "ar_status") {
        const auto& status = simulated_zel::state().status;
        output.assign(status.size() * sizeof(ar_context_event) / sizeof(int32_t), 0);
        if (!status.empty()) {
            memcpy(output.data(), status.data(), status.size() * sizeof(ar_context_event));
        }
    }
    return result;
}

#ifndef ZEL_CLIENT_WITHOUT_MOTION_ENABLE
__attribute__((visibility("default"))) bool ZelMotionEnable(int32_t arg) {
    Call call{Entry::kMotionEnable, "", "", "", 0, {arg}, 0};
    return simulated_zel::record(call, 1) != 0;
}
static_assert(std::is_same_v<decltype(&ZelMotionEnable), ZelMotionEnableFunc>);
#endif

}  // extern "C"

static_assert(std::is_same_v<decltype(&ZelSetCallback), ZelSetCallbackFunc>);
static_assert(std::is_same_v<decltype(&ZelRunCommand), ZelRunCommandFunc>);
static_assert(std::is_same_v<decltype(&ZelRunCommandInt), ZelRunCommandIntFunc>);
static_assert(std::is_same_v<decltype(&ZelGetData), ZelGetDataFunc>);
