// Set-up commands: system properties, what the module and the client library answer, the start
// of the service, and the clients.
#include <android-base/properties.h>
#include <hidl/ServiceManagement.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>

#include "Runner.h"

namespace arharness {

// property NAME VALUE
bool Runner::property(const Args& args) {
    if (args.size() != 3) return failUsage();
    if (!::android::base::SetProperty(args[1], args[2])) {
        return fail("the property " + args[1] + " cannot be set");
    }
    note(Kind::kSetup, "property " + args[1] + " = " + quoteToken(args[2]),
         {{"name", args[1], jsonString(args[1])}, {"value", args[2], jsonString(args[2])}});
    return true;
}

// module absent
bool Runner::moduleAbsent(const Args& args) {
    if (args.size() != 2) return failUsage();
    if (mStarted) return fail("the module is already loaded: write module absent before start");
    setenv("HAL_LIBRARY_PATH", "/nonexistent/ar-harness", 1);
    note(Kind::kSetup, "module absent: the module loader finds no module");
    return true;
}

// module result ENTRY CODE
bool Runner::moduleResult(const Args& args) {
    int32_t code;
    if (args.size() != 4) return failUsage();
    if (!ModuleLayer::isEntry(args[2])) return fail("the module has no entry " + args[2]);
    if (!ModuleLayer::hasResultCode(args[2])) {
        return fail(args[2] +
                    " answers no result code (module supported, current or table set its answer)");
    }
    if (!parseInt32(args[3], &code)) return fail("bad result code '" + args[3] + "'");
    mModule->setResult(args[2], code);
    note(Kind::kSetup, "module " + args[2] + " answers " + std::to_string(code));
    return true;
}

// module table activity|environment on|off
bool Runner::moduleTable(const Args& args) {
    if (args.size() != 4 || (args[2] != "activity" && args[2] != "environment") ||
        (args[3] != "on" && args[3] != "off")) {
        return failUsage();
    }
    mModule->setTable(args[2] == "activity", args[3] == "on");
    note(Kind::kSetup, "module " + args[2] + " table " + args[3]);
    return true;
}

// module supported|current activity|environment NAME...|RECORD... [count=N] [null]
bool Runner::moduleAnswer(const Args& args) {
    if (args.size() < 3 || (args[2] != "activity" && args[2] != "environment")) {
        return failUsage();
    }
    bool activity = args[2] == "activity";
    bool supported = args[1] == "supported";
    BatchOptions batch;
    std::string error;
    if (!parseBatchOptions(args, 3, "count= null", Fields::kLongC, supported, &batch, &error)) {
        return fail(error);
    }
    std::string options =
            std::string(batch.hasCount ? " count=" + std::to_string(batch.count) : "") +
            (batch.null ? " null" : "");
    if (supported) {
        mModule->setList(activity, batch.names, batch.hasCount, batch.count, batch.null);
        note(Kind::kSetup,
             "module " + args[2] + " list answers [" + rest(batch.names, 0) + "]" + options);
    } else {
        mModule->setState(activity, batch.records, batch.hasCount, batch.count, batch.null);
        note(Kind::kSetup, "module " + args[2] + " state answers " +
                                   formatRecords(batch.records, Fields::kLongC) + options);
    }
    return true;
}

bool Runner::loadZel(bool needed) {
    bool first = mZel->control() == nullptr;
    std::string error;
    if (!mZel->load(&error)) return fail(error);
    if (first && mZel->control() != nullptr) {
        note(Kind::kSetup, "client library libZelClient.so loaded (found by the HAL by its name)");
    }
    if (needed && mZel->control() == nullptr) {
        return fail("the client library is absent in this run");
    }
    return true;
}

// zel library present|no-motion|absent
bool Runner::zelLibrary(const Args& args) {
    static const std::pair<const char*, ZelLayer::Variant> kVariants[] = {
            {"present", ZelLayer::Variant::kPresent},
            {"no-motion", ZelLayer::Variant::kNoMotion},
            {"absent", ZelLayer::Variant::kAbsent}};
    auto variant = std::find_if(std::begin(kVariants), std::end(kVariants), [&](const auto& v) {
        return args.size() == 3 && args[2] == v.first;
    });
    if (variant == std::end(kVariants)) return failUsage();
    std::string error;
    if (!mZel->choose(variant->second, &error)) return fail(error);
    if (variant->second == ZelLayer::Variant::kAbsent) {
        note(Kind::kSetup, "client library absent: the HAL will not find libZelClient.so");
    }
    if (!loadZel()) return false;
    if (variant->second == ZelLayer::Variant::kNoMotion) {
        note(Kind::kSetup, "client library without ZelMotionEnable");
    }
    return true;
}

// zel mask MASK
bool Runner::zelMask(const Args& args) {
    int64_t mask;
    if (!loadZel(true)) return false;
    if (args.size() != 3 || !parseInt64(args[2], &mask) || mask < 0 || mask > UINT32_MAX) {
        return fail("usage: zel mask MASK (a 32-bit number, such as 0x41)");
    }
    mZel->control()->setConfig({static_cast<int32_t>(static_cast<uint32_t>(mask))});
    char text[32];
    snprintf(text, sizeof(text), "0x%x", static_cast<uint32_t>(mask));
    note(Kind::kSetup, std::string("client library \"ar_config\" answers mask ") + text);
    return true;
}

// zel config WORD...
bool Runner::zelConfig(const Args& args) {
    if (!loadZel(true)) return false;
    std::vector<int32_t> words;
    for (size_t i = 2; i < args.size(); ++i) {
        int64_t word;
        if (!parseInt64(args[i], &word) || word < INT32_MIN || word > UINT32_MAX) {
            return fail("bad word '" + args[i] + "' (32 bits)");
        }
        words.push_back(static_cast<int32_t>(static_cast<uint32_t>(word)));
    }
    mZel->control()->setConfig(words);
    note(Kind::kSetup, "client library \"ar_config\" answers " + std::to_string(words.size()) +
                               " word(s): " + rest(args, 2));
    return true;
}

// zel status RECORD...
bool Runner::zelStatus(const Args& args) {
    BatchOptions batch;
    std::string error;
    if (!loadZel(true)) return false;
    if (!parseBatchOptions(args, 2, "", Fields::kLongC, false, &batch, &error)) return fail(error);
    std::vector<ar_context_event> events;
    for (const Record& record : batch.records) events.push_back(toContextEvent(record));
    mZel->control()->setStatusRecords(events);
    note(Kind::kSetup,
         "client library \"ar_status\" answers " + formatRecords(batch.records, Fields::kLongC));
    return true;
}

// zel queue ENTRY RESULT...
bool Runner::zelQueue(const Args& args) {
    static const std::pair<const char*, simulated_zel::Entry> kEntries[] = {
            {"ZelSetCallback", simulated_zel::Entry::kSetCallback},
            {"ZelRunCommand", simulated_zel::Entry::kRunCommand},
            {"ZelRunCommandInt", simulated_zel::Entry::kRunCommandInt},
            {"ZelGetData", simulated_zel::Entry::kGetData},
            {"ZelMotionEnable", simulated_zel::Entry::kMotionEnable}};
    if (!loadZel(true)) return false;
    if (args.size() < 4) return failUsage();
    auto entry = std::find_if(std::begin(kEntries), std::end(kEntries),
                              [&](const auto& known) { return args[2] == known.first; });
    if (entry == std::end(kEntries)) {
        return fail("the client library has no entry point " + args[2] +
                    " (ZelSetCallback, ZelRunCommand, ZelRunCommandInt, ZelGetData, "
                    "ZelMotionEnable)");
    }
    std::vector<int32_t> results;
    for (size_t i = 3; i < args.size(); ++i) {
        int32_t result;
        if (!parseInt32(args[i], &result)) return fail("bad result '" + args[i] + "'");
        results.push_back(result);
    }
    mZel->control()->queueResults(entry->second, results);
    note(Kind::kSetup, "client library " + args[2] + " answers, call by call: " + rest(args, 3));
    return true;
}

// zel result COMMAND CODE
bool Runner::zelResult(const Args& args) {
    int32_t code;
    if (!loadZel(true)) return false;
    if (args.size() != 4 || !parseInt32(args[3], &code)) return failUsage();
    mZel->control()->setCommandResult(args[2], code);
    note(Kind::kSetup, "client library command " + args[2] + " answers " + args[3]);
    return true;
}

// start [INSTANCE]: what the service host does when the service is first asked for. The HAL is
// found through getService, the passthrough lookup, which calls the library's entry point: the
// trace shows that call. A null answer is the entry point's, unless no library could be found
// (getService has said on stderr where it looked).
bool Runner::start(const Args& args) {
    if (args.size() > 2) return failUsage();
    // The instance this process hosts, named by its first start. The HAL allows one activity and
    // one environment interface a process, and getService answers another instance with a second
    // service object: later runs in the process (a program may feed the runner many scenarios)
    // start the same.
    static auto* hosted = new std::string();
    const std::string named = args.size() == 2 ? args[1] : "default";
    if (hosted->empty()) *hosted = named;
    if (!mStarted && named != *hosted) {
        return fail("this process hosts the service of " + quoteToken(*hosted) +
                    " already: another would be a second activity interface");
    }
    if (mStarted) {
        return fail("the service was already started at line " + std::to_string(mStartLine) +
                    "; a run starts it once");
    }
    if (!loadZel()) return false;
    std::string instance = args.size() == 2 ? args[1] : "default";
    ClientState host;
    host.name = "host";
    host.pid = kHostPid;
    traceCall(host, kEntryPoint, quoteToken(instance), "[" + jsonString(instance) + "]");
    mService = ar::V1_1::IActivityRecognition::getService(instance);
    if (mService == nullptr &&
        ::android::hardware::getAllHalInstanceNames(ar::V1_1::IActivityRecognition::descriptor)
                .empty()) {
        return fail("getService found no HAL library on the passthrough search path");
    }
    mStarted = true;
    mStartLine = mLine;
    mModule->flush();
    Result result;
    result.type = Result::Type::kWord;
    result.method = kEntryPoint;
    result.text = mService != nullptr ? "service" : "null";
    result.json = mService != nullptr ? jsonString(result.text) : "null";
    traceReturn(host, result);
    return true;
}

// client NAME pid=PID version=1.0|1.1 activity|environment [link=ok|refuse|error]
// [calls=ok|fail]
bool Runner::createClient(const Args& args) {
    if (args.size() < 2) return failUsage();
    const std::string& name = args[1];
    bool valid = isalpha(static_cast<unsigned char>(name[0]));
    for (char c : name)
        valid = valid && (isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-');
    if (!valid)
        return fail("bad client name '" + name + "' (a letter, then letters, digits, _ or -)");
    if (reserved(name)) return fail("'" + name + "' is a word of the language, not a client name");
    if (findClient(name) != nullptr) return fail("the client " + name + " exists already");
    auto state = std::make_shared<ClientState>();
    state->name = name;
    state->trace = mTrace;
    bool hasPid = false;
    bool hasVersion = false;
    bool hasSide = false;
    Args options;
    for (size_t i = 2; i < args.size(); ++i) {
        const std::string& arg = args[i];
        int32_t pid;
        if (arg.compare(0, 4, "pid=") == 0) {
            if (!parseInt32(arg.substr(4), &pid)) return fail("bad pid '" + arg + "'");
            state->pid = pid;
            hasPid = true;
        } else if (arg == "version=1.0" || arg == "version=1.1") {
            state->v1_1 = arg == "version=1.1";
            hasVersion = true;
        } else if (arg == "activity" || arg == "environment") {
            state->activity = arg == "activity";
            hasSide = true;
        } else {
            options.push_back(arg);
        }
    }
    if (!hasPid || !hasVersion || !hasSide) return failUsage();
    if (!setClientOptions(state.get(), options, 0, true)) return false;
    mClients.push_back(makeClient(state));
    std::string version = state->v1_1 ? "1.1" : "1.0";
    std::string side = state->activity ? "activity" : "environment";
    std::string pid = std::to_string(state->pid);
    note(Kind::kSetup, "client " + state->label() + " version " + version + " " + side + " client",
         {{"client", name, jsonString(name)},
          {"pid", pid, pid},
          {"version", version, jsonString(version)},
          {"side", side, jsonString(side)}});
    return true;
}

// NAME set [link=ok|refuse|error] [calls=ok|fail]
bool Runner::setClient(const Args& args) {
    return setClientOptions(findClient(args[0])->state.get(), args, 2, false);
}

bool Runner::setClientOptions(ClientState* state, const Args& args, size_t from, bool creating) {
    for (size_t i = from; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "link=ok") {
            state->link = LinkMode::kOk;
        } else if (arg == "link=refuse") {
            state->link = LinkMode::kRefuse;
        } else if (arg == "link=error") {
            state->link = LinkMode::kError;
        } else if (arg == "calls=ok" || arg == "calls=fail") {
            state->failCalls = arg == "calls=fail";
        } else {
            return fail("bad client option '" + arg + "' (link=ok|refuse|error, calls=ok|fail" +
                        (creating ? ", pid=, version=, activity|environment)" : ")"));
        }
    }
    if (creating) return true;
    if (from == args.size()) return failUsage();
    const char* links[] = {"ok", "refuse", "error"};
    note(Kind::kSetup, state->label() + " link=" + links[static_cast<int>(state->link)] +
                               " calls=" + (state->failCalls ? "fail" : "ok"));
    return true;
}

}  // namespace arharness
