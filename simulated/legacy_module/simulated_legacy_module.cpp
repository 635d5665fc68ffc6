#define LOG_TAG "SimLegacyModule"

#include "simulated_legacy_module.h"

#include <errno.h>
#include <log/log.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace simulated_legacy {
namespace {

struct State {
    std::mutex lock;
    int openResult = 0;
    bool activityTable = true;
    bool environmentTable = true;
    ListAnswer lists[2];
    StateAnswer states[2];
    std::map<std::string, int> results;
    std::map<std::string, std::function<void()>> hooks;
    std::vector<Call> calls;
    int closeCount = 0;
    bool recording = true;
    // Storage of the answers handed out; stays valid until the next query of the same kind.
    std::vector<std::string> listStorage[2];
    std::vector<const char*> listPointers[2];
    std::vector<ar_context_event> stateStorage[2];
    // Devices stay owned here until closed, also when their user never closes them.
    std::vector<std::unique_ptr<activity_recognition_device>> devices;
};

State& state() {
    static State* s = new State();  // never destroyed: module threads may outlive main()
    return *s;
}

std::atomic<const activity_callbacks*> gActivityCallbacks{nullptr};
std::atomic<const environment_callbacks*> gEnvironmentCallbacks{nullptr};

int side(Side s) {
    return s == Side::kActivity ? 0 : 1;
}

// Records the call, runs its hook outside the lock, and answers the configured result.
int enter(const char* entry, std::vector<int64_t> args, const other_params* params = nullptr) {
    std::function<void()> hook;
    int result = 0;
    {
        State& s = state();
        std::lock_guard<std::mutex> guard(s.lock);
        if (s.recording) {
            Call call;
            call.entry = entry;
            call.args = std::move(args);
            if (params != nullptr) {
                call.hasParams = true;
                memcpy(&call.params, params, sizeof(other_params));
            }
            s.calls.push_back(std::move(call));
        }
        auto it = s.results.find(entry);
        if (it != s.results.end()) result = it->second;
        auto h = s.hooks.find(entry);
        if (h != s.hooks.end()) hook = h->second;
    }
    if (hook) hook();
    return result;
}

int listQuery(Side which, const char* entry, char const* const** list) {
    enter(entry, {});
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    const ListAnswer& answer = s.lists[side(which)];
    int count = answer.count.value_or(static_cast<int>(answer.names.size()));
    auto& storage = s.listStorage[side(which)];
    auto& pointers = s.listPointers[side(which)];
    storage = answer.names;
    for (int i = static_cast<int>(storage.size()); i < count; ++i) {
        storage.push_back("generated_" + std::to_string(i));
    }
    pointers.clear();
    for (const std::string& name : storage) pointers.push_back(name.c_str());
    *list = answer.nullList ? nullptr : pointers.data();
    return count;
}

int stateQuery(Side which, const char* entry, ar_context_event** events) {
    enter(entry, {});
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    const StateAnswer& answer = s.states[side(which)];
    int count = answer.count.value_or(static_cast<int>(answer.records.size()));
    auto& storage = s.stateStorage[side(which)];
    storage = answer.records;
    if (count > static_cast<int>(storage.size())) storage.resize(count);
    *events = answer.nullArray || storage.empty() ? nullptr : storage.data();
    return count;
}

int64_t u(uint32_t value) {
    return static_cast<int64_t>(value);
}

// activity_interface
int actRegisterCallbacks(const activity_callbacks* callbacks) {
    gActivityCallbacks = callbacks;
    return enter("register_activity_callbacks", {});
}
int actSupportedList(char const* const** list) {
    return listQuery(Side::kActivity, "get_supported_activities_list", list);
}
int actEnable(uint32_t activity, uint32_t eventType, int64_t latency) {
    return enter("enable_activity_event", {u(activity), u(eventType), latency});
}
int actEnableExtend(uint32_t activity, uint32_t eventType, int64_t latency, other_params* params) {
    return enter("enable_activity_event_extend", {u(activity), u(eventType), latency}, params);
}
int actCurrent(ar_context_event** events) {
    return stateQuery(Side::kActivity, "get_current_activity", events);
}
int actDisable(uint32_t activity, uint32_t eventType) {
    return enter("disable_activity_event", {u(activity), u(eventType)});
}
int actFlush() {
    return enter("flush", {});
}

// environment_interface
int envRegisterCallbacks(const environment_callbacks* callbacks) {
    gEnvironmentCallbacks = callbacks;
    return enter("register_environment_callbacks", {});
}
int envSupportedList(char const* const** list) {
    return listQuery(Side::kEnvironment, "get_supported_environments_list", list);
}
int envInit(uint32_t environment, const other_params* params) {
    return enter("init_environment", {u(environment)}, params);
}
int envExit(uint32_t environment, const other_params* params) {
    return enter("exit_environment", {u(environment)}, params);
}
int envEnable(uint32_t environment, uint32_t eventType, int64_t latency,
              const other_params* params) {
    return enter("enable_environment", {u(environment), u(eventType), latency}, params);
}
int envDisable(uint32_t environment, uint32_t eventType) {
    return enter("disable_environment", {u(environment), u(eventType)});
}
int envCurrent(ar_context_event** events) {
    return stateQuery(Side::kEnvironment, "get_current_environment", events);
}

// Static tables: they stay valid after close, as the HAL may still hold them.
const activity_interface kActivityTable = {
        actRegisterCallbacks, actSupportedList, actEnable, actEnableExtend,
        actCurrent,           actDisable,       actFlush,
};
const environment_interface kEnvironmentTable = {
        envRegisterCallbacks, envSupportedList, envInit, envExit, envEnable, envDisable, envCurrent,
};

const activity_interface* getActivityInterface(activity_recognition_device* /* dev */) {
    enter("get_activity_interface", {});
    std::lock_guard<std::mutex> guard(state().lock);
    return state().activityTable ? &kActivityTable : nullptr;
}

const environment_interface* getEnvironmentInterface(activity_recognition_device* /* dev */) {
    enter("get_environment_interface", {});
    std::lock_guard<std::mutex> guard(state().lock);
    return state().environmentTable ? &kEnvironmentTable : nullptr;
}

int closeDevice(hw_device_t* device) {
    enter("close", {});
    std::lock_guard<std::mutex> guard(state().lock);
    ++state().closeCount;
    auto& devices = state().devices;
    devices.erase(std::remove_if(devices.begin(), devices.end(),
                                 [device](const auto& d) { return &d->common == device; }),
                  devices.end());
    return 0;
}

int openDevice(const hw_module_t* module, const char* name, hw_device_t** device) {
    int result;
    {
        std::lock_guard<std::mutex> guard(state().lock);
        result = state().openResult;
    }
    enter("open", {});
    if (strcmp(name, ACTIVITY_RECOGNITION_HIDL_DEVICE) != 0) return -EINVAL;
    if (result != 0) return result;
    auto owned = std::make_unique<activity_recognition_device>();
    auto* dev = owned.get();
    dev->common.tag = HARDWARE_DEVICE_TAG;
    dev->common.version = 1;
    dev->common.module = const_cast<hw_module_t*>(module);
    dev->common.close = closeDevice;
    dev->get_activity_interface = getActivityInterface;
    dev->get_environment_interface = getEnvironmentInterface;
    *device = &dev->common;
    std::lock_guard<std::mutex> guard(state().lock);
    state().devices.push_back(std::move(owned));
    return 0;
}

hw_module_methods_t gMethods = {openDevice};

}  // namespace

void reset() {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.openResult = 0;
    s.activityTable = true;
    s.environmentTable = true;
    s.lists[0] = s.lists[1] = ListAnswer();
    s.states[0] = s.states[1] = StateAnswer();
    s.results.clear();
    s.hooks.clear();
    s.calls.clear();
    s.recording = true;
}

void setOpenResult(int result) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().openResult = result;
}

void setTableAvailable(Side which, bool available) {
    std::lock_guard<std::mutex> guard(state().lock);
    (which == Side::kActivity ? state().activityTable : state().environmentTable) = available;
}

void setListAnswer(Side which, ListAnswer answer) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().lists[side(which)] = std::move(answer);
}

void setStateAnswer(Side which, StateAnswer answer) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().states[side(which)] = std::move(answer);
}

void setResult(const std::string& entry, int result) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().results[entry] = result;
}

void setHook(const std::string& entry, std::function<void()> hook) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().hooks[entry] = std::move(hook);
}

std::vector<Call> calls() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().calls;
}

void setRecording(bool recording) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().recording = recording;
}

void clearCalls() {
    std::lock_guard<std::mutex> guard(state().lock);
    state().calls.clear();
}

int closeCount() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().closeCount;
}

bool activityCallbacksRegistered() {
    return gActivityCallbacks.load() != nullptr;
}

bool environmentCallbacksRegistered() {
    return gEnvironmentCallbacks.load() != nullptr;
}

bool reportActivities(const activity_event* events, int count) {
    const activity_callbacks* callbacks = gActivityCallbacks;
    if (callbacks == nullptr) return false;
    callbacks->activity_changed(events, count);
    return true;
}

bool reportExtendedActivities(const ar_context_event* events, int count) {
    const activity_callbacks* callbacks = gActivityCallbacks;
    if (callbacks == nullptr) return false;
    callbacks->activity_extend_changed(events, count);
    return true;
}

bool reportEnvironments(const ar_context_event* events, int count) {
    const environment_callbacks* callbacks = gEnvironmentCallbacks;
    if (callbacks == nullptr) return false;
    callbacks->environment_changed(events, count);
    return true;
}

void runOnModuleThread(const std::function<void()>& work) {
    std::thread thread(work);
    thread.join();
}

}  // namespace simulated_legacy

extern "C" {
__attribute__((visibility("default"))) activity_recognition_module HAL_MODULE_INFO_SYM = {
        .common =
                {
                        .tag = HARDWARE_MODULE_TAG,
                        .module_api_version = 0x0100,
                        .hal_api_version = HARDWARE_HAL_API_VERSION,
                        .id = ACTIVITY_RECOGNITION_HARDWARE_MODULE_ID,
                        .name = "Simulated activity recognition module",
                        .author = "activity recognition HAL developers",
                        .methods = &simulated_legacy::gMethods,
                        .dso = nullptr,
                        .reserved = {},
                },
};
}
