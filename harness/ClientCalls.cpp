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

// ---- the table of client methods ----

namespace {

Return<int32_t> noControl(const Client&, const ControlArgs&) {
    return 0;
}

}  // namespace

const char* methodKindName(MethodKind kind) {
    switch (kind) {
        case MethodKind::kGetter:
            return "getter";
        case MethodKind::kRegistration:
            return "registration";
        case MethodKind::kList:
            return "list";
        case MethodKind::kCurrent:
            return "current";
        case MethodKind::kControl:
            return "control";
    }
    return "";
}

const std::vector<ClientMethod>& clientMethods() {
    using K = MethodKind;
    static const std::vector<ClientMethod> kMethods = {
            // The activity side.
            {"getActivityInterface", true, false, K::kGetter, "",
             "the activity interface of version 1.0 (connect asks the client's own getter)", 0,
             false, noControl},
            {"getActivityInterfaceV1_1", true, true, K::kGetter, "",
             "the activity interface of version 1.1", 0, false, noControl},
            {"registerActivityCallback", true, false, K::kRegistration, "[null]",
             "registers the client's callback object (null: none) for activity events", 0, false,
             noControl},
            {"registerActivityCallbackV1_1", true, true, K::kRegistration, "[null]",
             "registers the client's callback object (null: none) as a 1.1 callback", 0, false,
             noControl},
            {"getSupportedActivitiesList", true, false, K::kList, "",
             "the names of the activities the device supports", 0, false, noControl},
            {"enableActivityEvent", true, false, K::kControl, "ACTIVITY EVENT_TYPE LATENCY",
             "asks for events of the activity: EVENT_TYPE 1 or 2; LATENCY in "
             "nanoseconds or with a unit (2s, 500ms); answers 0 or an error code",
             3, false,
             [](const Client& client, const ControlArgs& args) {
                 return client.activityInterfaceV1_0->enableActivityEvent(
                         args.target, args.eventType, args.latency);
             }},
            {"enableActivityEventExtend", true, false, K::kControl,
             "ACTIVITY EVENT_TYPE LATENCY [p=D:D:D:D] [x=TEXT]",
             "as enableActivityEvent, with extra parameters: four doubles and a text of at "
             "most 32 bytes",
             3, true,
             [](const Client& client, const ControlArgs& args) {
                 return client.activityInterfaceV1_0->enableActivityEventExtend(
                         args.target, args.eventType, args.latency, args.params);
             }},
            {"disableActivityEvent", true, false, K::kControl, "ACTIVITY EVENT_TYPE",
             "no more events of the activity and event type for this client", 2, false,
             [](const Client& client, const ControlArgs& args) {
                 return client.activityInterfaceV1_0->disableActivityEvent(args.target,
                                                                           args.eventType);
             }},
            {"flush", true, false, K::kControl, "", "asks the module to report what it holds back",
             0, false,
             [](const Client& client, const ControlArgs&) {
                 return client.activityInterfaceV1_0->flush();
             }},
            {"getCurrentActivity", true, false, K::kCurrent, "",
             "the current activity records (e a t s p x)", 0, false, noControl},
            {"getCurrentActivityV1_1", true, true, K::kCurrent, "",
             "the current activity records with their confidence (e a t c s p x)", 0, false,
             noControl},
            // The environment side.
            {"getEnvironmentInterface", false, false, K::kGetter, "",
             "the environment interface of version 1.0 (connect asks the client's own getter)", 0,
             false, noControl},
            {"getEnvironmentInterfaceV1_1", false, true, K::kGetter, "",
             "the environment interface of version 1.1", 0, false, noControl},
            {"registerEnvironmentCallback", false, false, K::kRegistration, "[null]",
             "registers the client's callback object (null: none) for environment events", 0, false,
             noControl},
            {"registerEnvironmentCallbackV1_1", false, true, K::kRegistration, "[null]",
             "registers the client's callback object (null: none) as a 1.1 callback", 0, false,
             noControl},
            {"getSupportedEnvironmentsList", false, false, K::kList, "",
             "the names of the environments the device supports", 0, false, noControl},
            {"initEnvironment", false, false, K::kControl, "ENVIRONMENT [p=D:D:D:D] [x=TEXT]",
             "prepares the environment, with extra parameters (four doubles, a text of at most "
             "32 bytes)",
             1, true,
             [](const Client& client, const ControlArgs& args) {
                 return client.environmentInterfaceV1_0->initEnvironment(args.target, args.params);
             }},
            {"exitEnvironment", false, false, K::kControl, "ENVIRONMENT [p=D:D:D:D] [x=TEXT]",
             "ends the environment, with extra parameters", 1, true,
             [](const Client& client, const ControlArgs& args) {
                 return client.environmentInterfaceV1_0->exitEnvironment(args.target, args.params);
             }},
            {"enableEnvironment", false, false, K::kControl,
             "ENVIRONMENT EVENT_TYPE LATENCY [p=D:D:D:D] [x=TEXT]",
             "asks for events of the environment: EVENT_TYPE as the module numbers it; LATENCY in "
             "nanoseconds or with a unit",
             3, true,
             [](const Client& client, const ControlArgs& args) {
                 return client.environmentInterfaceV1_0->enableEnvironment(
                         args.target, args.eventType, args.latency, args.params);
             }},
            {"disableEnvironment", false, false, K::kControl, "ENVIRONMENT EVENT_TYPE",
             "no more events of the environment and event type for this client", 2, false,
             [](const Client& client, const ControlArgs& args) {
                 return client.environmentInterfaceV1_0->disableEnvironment(args.target,
                                                                            args.eventType);
             }},
            {"getCurrentEnvironment", false, false, K::kCurrent, "",
             "the current environment records (e a t s p x)", 0, false, noControl},
            {"getCurrentEnvironmentV1_1", false, true, K::kCurrent, "",
             "the current environment records with their confidence (e a t c s p x)", 0, false,
             noControl},
    };
    return kMethods;
}

const ClientMethod* findClientMethod(bool activity, const std::string& name) {
    for (const ClientMethod& method : clientMethods()) {
        if (method.activity == activity && name == method.name) return &method;
    }
    return nullptr;
}

const ClientMethod* methodFor(bool activity, bool v1_1, MethodKind kind) {
    for (const ClientMethod& method : clientMethods()) {
        if (method.activity == activity && method.v1_1 == v1_1 && method.kind == kind) {
            return &method;
        }
    }
    return nullptr;
}

// ---- calling them ----

namespace {

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

// Every method a client of the side may name, for the error about one it may not.
std::string methodList(bool activity) {
    std::vector<std::string> names = {"connect", "register"};
    for (const ClientMethod& method : clientMethods()) {
        if (method.activity == activity) names.emplace_back(method.name);
    }
    names.emplace_back("set");
    return join(names, ", ");
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
    if (hasInterface(*client)) return true;
    const char* getter = methodFor(state.activity, state.v1_1, MethodKind::kGetter)->name;
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

// NAME METHOD ARG...: connect, register and every method of the client's side, by its row.
bool Runner::clientCall(const Args& args) {
    Client* client = findClient(args[0]);
    ClientState& state = *client->state;
    if (args.size() < 2) return failUsage();
    const std::string& name = args[1];
    if (state.dead) {
        return fail(state.name + " is dead (its process " + std::to_string(state.pid) +
                    " died at line " + std::to_string(mDeathLines[state.pid]) + ")");
    }
    if (!needService()) return false;
    const ClientMethod* method =
            name == "connect"    ? methodFor(state.activity, state.v1_1, MethodKind::kGetter)
            : name == "register" ? methodFor(state.activity, state.v1_1, MethodKind::kRegistration)
                                 : findClientMethod(state.activity, name);
    const char* side = state.activity ? "activity" : "environment";
    if (method == nullptr) {
        return fail(state.name + " is an " + side + " client: unknown method " + quoteWord(name) +
                    " (" + methodList(state.activity) + ")" +
                    suggestions(name, splitWords(methodList(state.activity))));
    }
    if (method->v1_1 && !state.v1_1) {
        return fail(state.name + " is a version 1.0 client; " + name + " is a 1.1 method");
    }
    CallArgs call;
    std::string error;
    if (!splitCallArgs(args, &call, &error)) return fail(error);
    const auto& p = call.positional;
    if (call.hasParams && !method->takesParams) return fail(name + " takes no p= or x=");
    if (call.null && method->kind != MethodKind::kRegistration) {
        return fail(name + " takes no null");
    }
    auto usage = [&]() {
        return fail("usage: " + state.name + " " + name +
                    (method->arguments[0] != '\0' ? " " : "") + method->arguments + " [nostate]");
    };
    size_t arity = method->kind == MethodKind::kControl ? method->arity : 0;
    if (p.size() != arity) return usage();

    Result result;
    result.method = method->name;
    switch (method->kind) {
        case MethodKind::kGetter:
            return connect(client, method->name);
        case MethodKind::kRegistration:
            // The callback object shows as its client's name.
            return callInterface(
                    client, call.null ? "null" : state.name,
                    call.null ? "[null]" : "[" + jsonString(state.name) + "]", call.noState, result,
                    [&](Result*) { registerCallback(*client, method->v1_1, call.null); });
        case MethodKind::kList:
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
        case MethodKind::kCurrent: {
            Fields fields = method->v1_1 ? Fields::kLongC : Fields::kLong;
            result.type = Result::Type::kRecords;
            result.fields = fields;
            result.text = "no answer";
            result.json = "null";
            return callInterface(client, "", "[]", call.noState, result, [&](Result* answer) {
                getCurrentRecords(*client, method->v1_1, [&](const std::vector<Record>& records) {
                    answer->text = formatRecords(records, fields);
                    answer->json = recordsJson(records, fields);
                });
            });
        }
        case MethodKind::kControl:
            break;
    }

    // A control call: its numbers, then the extra parameters where it takes them.
    auto number = [&](size_t i, const std::string& what, uint32_t* value) {
        if (parseUint32(p[i], value)) return true;
        return fail("bad " + what + " " + quoteWord(p[i]) + " (0 to 4294967295)");
    };
    ControlArgs values;
    if (arity > 0 && !number(0, side, &values.target)) return false;
    if (arity > 1 && !number(1, "event type", &values.eventType)) return false;
    if (arity > 2 && !parseDuration(p[2], &values.latency)) {
        return fail("bad latency " + quoteWord(p[2]) +
                    " (nanoseconds, or a number with ns, us, ms or s)");
    }
    values.params = toOtherParams(call.params);
    Args shown;
    if (arity > 0) shown.push_back(std::to_string(values.target));
    if (arity > 1) shown.push_back(std::to_string(values.eventType));
    if (arity > 2) shown.push_back(std::to_string(values.latency));
    Args json = shown;
    if (method->takesParams) {
        shown.push_back(formatParams(call.params));
        json.push_back(paramsJson(call.params));
    }
    return callInterface(client, join(shown, ", "), "[" + join(json, ",") + "]", call.noState,
                         result, [&](Result* answer) {
                             Return<int32_t> r = method->control(*client, values);
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
