// What clients call on the service and its interfaces, as their own process, and the deaths of
// their processes.
#include <hwbinder/IPCThreadState.h>

#include <algorithm>
#include <functional>

#include "HalRecords.h"
#include "Runner.h"

namespace arharness {
namespace {

using ::android::wp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hidl::base::V1_0::IBase;

// Acts as the client's process on this thread for the duration of one call.
class AsClient {
  public:
    AsClient(const ClientState& state, bool noThreadState) : mIdentity(state.pid, kHostUid) {
        ::android::hardware::host::setThreadStateAvailable(!noThreadState);
    }
    ~AsClient() { ::android::hardware::host::setThreadStateAvailable(true); }

  private:
    ::android::hardware::host::ScopedCallingIdentity mIdentity;
};

}  // namespace

// kill NAME: the client's process dies.
bool Runner::kill(const Args& args) {
    if (args.size() != 2) return failUsage();
    Client* victim = findClient(args[1]);
    if (victim == nullptr) return fail("no client " + args[1]);
    if (victim->state->dead) return fail(args[1] + " is dead already");
    mDeathLines[victim->state->pid] = mLine;
    killProcess(victim->state->pid);
    return true;
}

void Runner::endProcesses() {
    for (const Client& client : mClients) {
        if (!client.state->dead) killProcess(client.state->pid);
    }
}

// Every object of the process is dead at once; then each recipient linked to one of them hears
// of it, on the host's binder thread.
void Runner::killProcess(pid_t pid) {
    std::vector<Client*> process;
    for (Client& client : mClients) {
        if (client.state->pid == pid && !client.state->dead) {
            client.state->dead = true;
            process.push_back(&client);
        }
    }
    int notices = 0;
    for (Client* client : process) {
        // The HAL may unlink while it hears of the death: walk a copy.
        auto links = client->state->links;
        for (const auto& link : links) {
            Event event = client->state->event(
                    Kind::kDeath, "{client}[{pid}] died: serviceDied(cookie {cookie})");
            event.name = "serviceDied";
            event.detail = std::to_string(link.second);
            mTrace->emit(std::move(event.addNumber("cookie", static_cast<int64_t>(link.second))));
            link.first->serviceDied(link.second, wp<IBase>(client->object));
            ++notices;
        }
        client->state->links.clear();
    }
    if (notices == 0) {
        note(Kind::kDeath, "process " + std::to_string(pid) +
                                   " died; nothing was linked to the death of its objects");
    }
}

std::string Runner::interfaceName(const void* object) {
    if (object == nullptr) return "null";
    auto it = mInterfaceNumbers.find(object);
    if (it == mInterfaceNumbers.end()) {
        int number = static_cast<int>(mInterfaceNumbers.size()) + 1;
        it = mInterfaceNumbers.emplace(object, number).first;
    }
    return "@" + std::to_string(it->second);
}

// Calls one of the service's getters as the client and keeps what it answered.
bool Runner::connect(Client* client, const std::string& getter) {
    ClientState& state = *client->state;
    traceCall(state, getter, "", "[]");
    const void* object = nullptr;
    {
        AsClient as(state, false);
        if (getter == "getActivityInterface") {
            client->activityInterfaceV1_0 = mService->getActivityInterface().withDefault(nullptr);
            object = static_cast<IBase*>(client->activityInterfaceV1_0.get());
        } else if (getter == "getActivityInterfaceV1_1") {
            client->activityInterfaceV1_1 =
                    mService->getActivityInterfaceV1_1().withDefault(nullptr);
            client->activityInterfaceV1_0 = client->activityInterfaceV1_1;
            object = static_cast<IBase*>(client->activityInterfaceV1_1.get());
        } else if (getter == "getEnvironmentInterface") {
            client->environmentInterfaceV1_0 =
                    mService->getEnvironmentInterface().withDefault(nullptr);
            object = static_cast<IBase*>(client->environmentInterfaceV1_0.get());
        } else {
            client->environmentInterfaceV1_1 =
                    mService->getEnvironmentInterfaceV1_1().withDefault(nullptr);
            client->environmentInterfaceV1_0 = client->environmentInterfaceV1_1;
            object = static_cast<IBase*>(client->environmentInterfaceV1_1.get());
        }
    }
    mModule->flush();
    Result result;
    result.type = Result::Type::kWord;
    result.method = getter;
    result.text = interfaceName(object);
    result.json = object != nullptr ? jsonString(result.text) : "null";
    traceReturn(state, result);
    return true;
}

namespace {

// The arguments of a control call in the order they are written: the activity (or environment),
// the event type and the latency, as many of them as the method takes, and the extra parameters.
struct ControlArgs {
    uint32_t target = 0;
    uint32_t eventType = 0;
    int64_t latency = 0;
    ar::V1_0::OtherParams params;
};

// A method of a side's interface that takes numbers, maybe extra parameters, and answers a number.
struct ControlMethod {
    const char* name;
    size_t arity;  // how many of the target, the event type and the latency it takes
    bool takesParams;
    Return<int32_t> (*invoke)(const Client& client, const ControlArgs& args);
};

const ControlMethod kActivityControls[] = {
        {"enableActivityEvent", 3, false,
         [](const Client& client, const ControlArgs& args) {
             return client.activityInterfaceV1_0->enableActivityEvent(args.target, args.eventType,
                                                                      args.latency);
         }},
        {"enableActivityEventExtend", 3, true,
         [](const Client& client, const ControlArgs& args) {
             return client.activityInterfaceV1_0->enableActivityEventExtend(
                     args.target, args.eventType, args.latency, args.params);
         }},
        {"disableActivityEvent", 2, false,
         [](const Client& client, const ControlArgs& args) {
             return client.activityInterfaceV1_0->disableActivityEvent(args.target, args.eventType);
         }},
        {"flush", 0, false, [](const Client& client, const ControlArgs&) {
             return client.activityInterfaceV1_0->flush();
         }}};

const ControlMethod kEnvironmentControls[] = {
        {"initEnvironment", 1, true,
         [](const Client& client, const ControlArgs& args) {
             return client.environmentInterfaceV1_0->initEnvironment(args.target, args.params);
         }},
        {"exitEnvironment", 1, true,
         [](const Client& client, const ControlArgs& args) {
             return client.environmentInterfaceV1_0->exitEnvironment(args.target, args.params);
         }},
        {"enableEnvironment", 3, true,
         [](const Client& client, const ControlArgs& args) {
             return client.environmentInterfaceV1_0->enableEnvironment(args.target, args.eventType,
                                                                       args.latency, args.params);
         }},
        {"disableEnvironment", 2, false, [](const Client& client, const ControlArgs& args) {
             return client.environmentInterfaceV1_0->disableEnvironment(args.target, args.eventType);
         }}};

// What sets the two sides' interfaces apart: the names of their methods, and their control
// methods. A 1.1 method is named as its 1.0 method with "V1_1" after it.
struct Side {
    const char* name;       // "activity": the client's kind, and its control calls' target
    const char* usageName;  // the target in usage texts: "ACTIVITY"
    const char* getter;
    const char* registration;
    const char* supportedList;
    const char* current;
    const ControlMethod* controlsBegin;
    const ControlMethod* controlsEnd;
};

const Side kActivitySide = {"activity",
                            "ACTIVITY",
                            "getActivityInterface",
                            "registerActivityCallback",
                            "getSupportedActivitiesList",
                            "getCurrentActivity",
                            std::begin(kActivityControls),
                            std::end(kActivityControls)};

const Side kEnvironmentSide = {"environment",
                               "ENVIRONMENT",
                               "getEnvironmentInterface",
                               "registerEnvironmentCallback",
                               "getSupportedEnvironmentsList",
                               "getCurrentEnvironment",
                               std::begin(kEnvironmentControls),
                               std::end(kEnvironmentControls)};

const Side& sideOf(const ClientState& state) {
    return state.activity ? kActivitySide : kEnvironmentSide;
}

// The name of a method's 1.1 form.
std::string v1_1Name(const char* name) {
    return std::string(name) + "V1_1";
}

const ControlMethod* findControl(const Side& side, const std::string& method) {
    for (const ControlMethod* control = side.controlsBegin; control != side.controlsEnd; ++control) {
        if (method == control->name) return control;
    }
    return nullptr;
}

// Every method a client of the side may name, for the error about one it may not.
std::string methodList(const Side& side) {
    std::vector<std::string> names = {"register", "connect", side.registration,
                                      v1_1Name(side.registration), side.supportedList};
    for (const ControlMethod* control = side.controlsBegin; control != side.controlsEnd; ++control) {
        names.push_back(control->name);
    }
    names.insert(names.end(), {side.current, v1_1Name(side.current), "set"});
    return join(names, ", ");
}

// Whether the client holds the interface of its side and version.
bool hasInterface(const Client& client) {
    const ClientState& state = *client.state;
    if (state.activity) {
        return state.v1_1 ? client.activityInterfaceV1_1 != nullptr
                          : client.activityInterfaceV1_0 != nullptr;
    }
    return state.v1_1 ? client.environmentInterfaceV1_1 != nullptr
                      : client.environmentInterfaceV1_0 != nullptr;
}

void registerCallback(const Client& client, bool v1_1, bool null) {
    if (client.state->activity && v1_1) {
        client.activityInterfaceV1_1->registerActivityCallbackV1_1(null ? nullptr
                                                                        : client.activityV1_1);
    } else if (client.state->activity) {
        client.activityInterfaceV1_0->registerActivityCallback(null ? nullptr : client.activityV1_0);
    } else if (v1_1) {
        client.environmentInterfaceV1_1->registerEnvironmentCallbackV1_1(
                null ? nullptr : client.environmentV1_1);
    } else {
        client.environmentInterfaceV1_0->registerEnvironmentCallback(null ? nullptr
                                                                          : client.environmentV1_0);
    }
}

void getSupportedList(const Client& client,
                      const std::function<void(const hidl_vec<hidl_string>&)>& answer) {
    if (client.state->activity) {
        client.activityInterfaceV1_0->getSupportedActivitiesList(answer);
    } else {
        client.environmentInterfaceV1_0->getSupportedEnvironmentsList(answer);
    }
}

// The current state of the client's side, through the method of the given version.
void getCurrentRecords(const Client& client, bool v1_1,
                       const std::function<void(const std::vector<Record>&)>& answer) {
    auto answerV1_0 = [&](const hidl_vec<ar::V1_0::ActivityEventExtend>& events) {
        answer(toRecords(events));
    };
    auto answerV1_1 = [&](const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& events) {
        answer(toRecords(events));
    };
    if (client.state->activity && v1_1) {
        client.activityInterfaceV1_1->getCurrentActivityV1_1(answerV1_1);
    } else if (client.state->activity) {
        client.activityInterfaceV1_0->getCurrentActivity(answerV1_0);
    } else if (v1_1) {
        client.environmentInterfaceV1_1->getCurrentEnvironmentV1_1(answerV1_1);
    } else {
        client.environmentInterfaceV1_0->getCurrentEnvironment(answerV1_0);
    }
}

// Splits a client call's arguments into positional ones, extra parameters and options.
struct CallArgs {
    std::vector<std::string> positional;
    Params params;
    bool hasParams = false;
    bool noState = false;
    bool null = false;
};

bool splitCallArgs(const std::vector<std::string>& args, CallArgs* out, std::string* error) {
    for (size_t i = 2; i < args.size(); ++i) {
        bool matched = false;
        if (!parseParamsToken(args[i], &out->params, &matched, error)) return false;
        if (matched) {
            out->hasParams = true;
        } else if (args[i] == "nostate") {
            out->noState = true;
        } else if (args[i] == "null") {
            out->null = true;
        } else {
            out->positional.push_back(args[i]);
        }
    }
    return true;
}

}  // namespace

// Makes sure the client holds the interface of its side and version, asking the service once.
bool Runner::needInterface(Client* client) {
    ClientState& state = *client->state;
    std::string getter = state.v1_1 ? v1_1Name(sideOf(state).getter) : sideOf(state).getter;
    if (hasInterface(*client)) return true;
    connect(client, getter);
    if (!hasInterface(*client)) {
        return fail(state.name + " has no interface to call: " + getter + " answered null");
    }
    return true;
}

// Makes one call of the client's interface as the client's process, connecting first where
// needed, and traces it and what it answered.
template <typename Invoke>
bool Runner::callInterface(Client* client, const std::string& shownArgs, const std::string& argsJson,
                           bool noState, Result result, const Invoke& invoke) {
    ClientState& state = *client->state;
    if (!needInterface(client)) return false;
    traceCall(state, result.method, shownArgs, argsJson);
    {
        AsClient as(state, noState);
        invoke(&result);
    }
    mModule->flush();
    traceReturn(state, std::move(result));
    return true;
}

bool Runner::needService() {
    if (!mStarted) return fail("the service is not started (write start first)");
    if (mService == nullptr) {
        return fail("there is no service: " + std::string(kEntryPoint) + " answered null at line " +
                    std::to_string(mStartLine));
    }
    return true;
}

// NAME METHOD ARG...: connect, register and every method of the client's interface.
bool Runner::clientCall(const Args& args) {
    Client* client = findClient(args[0]);
    ClientState& state = *client->state;
    if (args.size() < 2) return failUsage();
    const std::string& method = args[1];
    if (state.dead) {
        return fail(state.name + " is dead (its process " + std::to_string(state.pid) +
                    " died at line " + std::to_string(mDeathLines[state.pid]) + ")");
    }
    if (!needService()) return false;
    const Side& side = sideOf(state);
    CallArgs call;
    std::string error;
    if (!splitCallArgs(args, &call, &error)) return fail(error);
    const auto& p = call.positional;
    auto usage = [&](const std::string& form) {
        return fail("usage: " + state.name + " " + method + (form.empty() ? "" : " ") + form +
                    " [nostate]");
    };
    bool registration = method == "register" || method == side.registration ||
                        method == v1_1Name(side.registration);
    bool v1_1Method = method == v1_1Name(side.registration) || method == v1_1Name(side.current) ||
                      method == v1_1Name(side.getter);
    if (v1_1Method && !state.v1_1) {
        return fail(state.name + " is a version 1.0 client; " + method + " is a 1.1 method");
    }
    const ControlMethod* control = findControl(side, method);
    bool takesParams = control != nullptr && control->takesParams;
    if (call.hasParams && !takesParams) return fail(method + " takes no p= or x=");
    if (call.null && !registration) return fail(method + " takes no null");

    if (method == "connect" || method == side.getter || method == v1_1Name(side.getter)) {
        if (!p.empty()) return usage("");
        return connect(client, method != "connect"
                                       ? method
                                       : (state.v1_1 ? v1_1Name(side.getter) : side.getter));
    }

    Result result;
    result.method = method;
    if (registration) {
        if (!p.empty()) return usage("[null]");
        bool v1_1 = method == v1_1Name(side.registration) || (method == "register" && state.v1_1);
        result.method = v1_1 ? v1_1Name(side.registration) : side.registration;
        // The callback object shows as its client's name.
        return callInterface(client, call.null ? "null" : state.name,
                             call.null ? "[null]" : "[" + jsonString(state.name) + "]", call.noState,
                             result, [&](Result*) { registerCallback(*client, v1_1, call.null); });
    }
    if (method == side.supportedList) {
        if (!p.empty()) return usage("");
        result.type = Result::Type::kStrings;
        result.text = "no answer";
        result.json = "null";
        return callInterface(client, "", "[]", call.noState, result, [&](Result* answer) {
            getSupportedList(*client, [&](const hidl_vec<hidl_string>& names) {
                std::vector<std::string> quoted;
                std::string json = "[";
                for (const auto& name : names) {
                    quoted.push_back(quoteToken(name));
                    json += (json.size() > 1 ? "," : "") + jsonString(name);
                }
                answer->text = "[" + join(quoted, " ") + "]";
                answer->json = json + "]";
            });
        });
    }
    if (method == side.current || method == v1_1Name(side.current)) {
        if (!p.empty()) return usage("");
        bool v1_1 = method != side.current;
        Fields fields = v1_1 ? Fields::kLongC : Fields::kLong;
        result.type = Result::Type::kRecords;
        result.fields = fields;
        result.text = "no answer";
        result.json = "null";
        return callInterface(client, "", "[]", call.noState, result, [&](Result* answer) {
            getCurrentRecords(*client, v1_1, [&](const std::vector<Record>& records) {
                answer->text = formatRecords(records, fields);
                answer->json = recordsJson(records, fields);
            });
        });
    }
    if (control == nullptr) {
        return fail(state.name + " is an " + side.name + " client: unknown method '" + method +
                    "' (" + methodList(side) + ")");
    }

    // A control call: its numbers, then the extra parameters where it takes them.
    const char* const forms[] = {side.usageName, "EVENT_TYPE", "LATENCY"};
    if (p.size() != control->arity) {
        return usage(join(Args(forms, forms + control->arity), " ") +
                     (takesParams ? " [p=D:D:D:D] [x=TEXT]" : ""));
    }
    auto number = [&](size_t i, const std::string& what, uint32_t* value) {
        if (parseUint32(p[i], value)) return true;
        return fail("bad " + what + " '" + p[i] + "' (0 to 4294967295)");
    };
    ControlArgs values;
    if (control->arity > 0 && !number(0, side.name, &values.target)) return false;
    if (control->arity > 1 && !number(1, "event type", &values.eventType)) return false;
    if (control->arity > 2 && !parseDuration(p[2], &values.latency)) {
        return fail("bad latency '" + p[2] + "' (nanoseconds, or a number with ns, us, ms or s)");
    }
    values.params = toOtherParams(call.params);
    Args shown;
    if (control->arity > 0) shown.push_back(std::to_string(values.target));
    if (control->arity > 1) shown.push_back(std::to_string(values.eventType));
    if (control->arity > 2) shown.push_back(std::to_string(values.latency));
    Args json = shown;
    if (takesParams) {
        shown.push_back(formatParams(call.params));
        json.push_back(paramsJson(call.params));
    }
    return callInterface(client, join(shown, ", "), "[" + join(json, ",") + "]", call.noState,
                         result, [&](Result* answer) {
                             Return<int32_t> r = control->invoke(*client, values);
                             answer->type = Result::Type::kInt;
                             answer->text = r.isOk() ? std::to_string(static_cast<int32_t>(r))
                                                     : "transport error: " + r.description();
                             answer->json = r.isOk() ? answer->text : jsonString(answer->text);
                         });
}

void Runner::traceCall(const ClientState& state, const std::string& method, const std::string& args,
                       const std::string& argsJson) {
    Event event = state.event(Kind::kCall, "{client}[{pid}] {method}({args})");
    event.name = method;
    event.detail = args;
    mTrace->emit(std::move(event.addString("method", method).add("args", args, argsJson)));
}

void Runner::traceReturn(const ClientState& state, Result result) {
    bool answered = result.type != Result::Type::kNone;
    Event event = state.event(Kind::kReturn, answered ? "{client}[{pid}] {method} = {result}"
                                                      : "{client}[{pid}] {method}");
    event.name = result.method;
    event.detail = result.text;
    event.addString("method", result.method);
    if (answered) event.add("result", result.text, result.json);
    mTrace->emit(std::move(event));
    mResult = std::move(result);
}

}  // namespace arharness
