#include "Runner.h"

#include <android-base/properties.h>
#include <dlfcn.h>
#include <hwbinder/IPCThreadState.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>

#include "HalRecords.h"

namespace arharness {
namespace {

using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hidl::base::V1_0::IBase;

constexpr char kLibrary[] = "vendor.quarn.hardware.activity_recognition@1.1-impl.so";
constexpr char kEntryPoint[] = "HIDL_FETCH_IActivityRecognition";

// Entries of the module that take extra parameters.
bool takesParams(const std::string& entry) {
    return entry == "enable_activity_event_extend" || entry == "init_environment" ||
           entry == "exit_environment" || entry == "enable_environment";
}

char priorityLetter(int priority) {
    static const char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority <= 8 ? kLetters[priority] : '?';
}

// A priority as a letter (V D I W E F) or its number (2 to 7).
bool parsePriority(const std::string& text, char* letter) {
    if (text.size() == 1 && strchr("VDIWEF", text[0]) != nullptr) {
        *letter = text[0];
        return true;
    }
    int64_t number;
    if (parseInt64(text, &number) && number >= 2 && number <= 7) {
        *letter = priorityLetter(static_cast<int>(number));
        return true;
    }
    return false;
}

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

Runner::Runner(Trace* trace, ModuleLayer* module, ZelLayer* zel)
    : mTrace(trace), mModule(module), mZel(zel) {}

bool Runner::fail(const std::string& message) {
    mError = message;
    return false;
}

void Runner::note(const std::string& kind, const std::string& text, const std::string& json) {
    Event event;
    event.kind = kind;
    event.text = text;
    event.json = ",\"text\":" + jsonString(text) + json;
    mTrace->emit(std::move(event));
}

// ---- the run ----

Runner::Summary Runner::run(const std::string& name, std::istream& in, const Options& options) {
    std::string text;
    if (options.interactive) fputs("ar-harness: one command a line; help lists them\n", stderr);
    for (int line = 1; options.maxLines == 0 || static_cast<size_t>(line) <= options.maxLines;
         ++line) {
        if (options.interactive) fputs("ar-harness> ", stderr);
        if (!std::getline(in, text)) break;
        if (runLine(name, line, text)) continue;
        ++mSummary.errors;
        fprintf(stderr, "%s:%d: %s\n", name.c_str(), line, mError.c_str());
        if (mTrace->format() == Format::kJsonl) note("error", mError);
        if (!options.interactive) break;
    }
    if (options.interactive) fputs("\n", stderr);
    if (mSummary.failed > 0) {
        fprintf(stderr, "%s: %d expectation%s failed\n", name.c_str(), mSummary.failed,
                mSummary.failed == 1 ? "" : "s");
    }
    return mSummary;
}

bool Runner::runLine(const std::string& file, int line, const std::string& text) {
    mFile = file;
    mLine = line;
    mError.clear();
    mTrace->setLocation(file, line);
    Args args;
    std::string error;
    if (!tokenize(text, &args, &error)) return fail(error);
    if (args.empty()) return true;
    // An expectation looks at the step before it; its check is its line in the trace.
    if (args[0] != "expect" && args[0] != "help") {
        mTrace->beginStep();
        mResult = Result();
        Event event;
        event.kind = "command";
        event.text = rest(args, 0);
        event.json = ",\"text\":" + jsonString(event.text);
        mTrace->emit(std::move(event));
    }
    size_t words = 0;
    mCommand = find(args, &words);
    bool ok = false;
    if (mCommand == nullptr) {
        ok = unknown(args);
    } else {
        mCommandWords.assign(args.begin(), args.begin() + words);
        ok = (this->*mCommand->handler)(args);
    }
    mModule->flush();
    mZel->flush();
    return ok;
}

const Runner::Command* Runner::find(const Args& args, size_t* words) {
    const Command* best = nullptr;
    for (const Command& command : commands()) {
        Args name = splitWords(command.name);
        size_t i = 0;
        while (i < name.size() && i < args.size() &&
               (name[i] == "NAME" ? findClient(args[i]) != nullptr : name[i] == args[i])) {
            ++i;
        }
        if (i == name.size() && (best == nullptr || i > *words)) {
            best = &command;
            *words = i;
        }
    }
    return best;
}

// A line that no command takes: names the closest commands (and clients), or the forms of the
// command it begins with.
bool Runner::unknown(const Args& args) {
    const std::string& word = args[0] == "expect" && args.size() > 1 ? args[1] : args[0];
    std::vector<std::string> known;
    std::string forms;
    for (const Command& command : commands()) {
        Args name = splitWords(command.name);
        if (args[0] == "expect" && name[0] == "expect" && name.size() > 1) {
            known.push_back(name[1]);
        } else if (args[0] != "expect" && name[0] != "NAME") {
            known.push_back(name[0]);
        }
        if (name[0] == args[0] && args[0] != "expect") {
            forms += (forms.empty() ? "" : " | ") + form(command);
        }
    }
    if (!forms.empty()) return fail("usage: " + forms);
    for (const Client& client : mClients) known.push_back(client.state->name);
    std::string closest = suggestions(word, known);
    if (args[0] != "expect") return fail("unknown command or client '" + word + "'" + closest);
    if (args.size() < 2) return fail("usage: expect WHAT ... (help expect lists them)");
    return fail("expect what? '" + word + "' is neither a kind of expectation nor a client" +
                closest);
}

// A second line for an error about an unknown word.
std::string Runner::suggestions(const std::string& word, const std::vector<std::string>& known) {
    std::vector<std::string> closest = closestWords(word, known);
    return closest.empty() ? "\n    help lists the commands"
                           : "\n    did you mean: " + join(closest, ", ");
}

bool Runner::failUsage() {
    Args words = mCommandWords;
    if (mCommand->synopsis[0] != '\0') words.push_back(mCommand->synopsis);
    return fail("usage: " + join(words, " "));
}

std::string Runner::form(const Command& command) {
    return std::string(command.name) + (command.synopsis[0] != '\0' ? " " : "") + command.synopsis;
}

bool Runner::reserved(const std::string& name) {
    for (const Command& command : commands()) {
        Args words = splitWords(command.name);
        if (name == words[0] || (words[0] == "expect" && words.size() > 1 && name == words[1])) {
            return true;
        }
    }
    return false;
}

// help [COMMAND]
bool Runner::help(const Args& args) {
    Args topic(args.begin() + 1, args.end());
    if (printHelp(stderr, topic)) return true;
    std::vector<std::string> known;
    for (const Command& command : commands()) known.push_back(splitWords(command.name)[0]);
    return fail("no command '" + join(topic, " ") + "'" + suggestions(topic[0], known));
}

bool Runner::printHelp(FILE* out, const Args& topic) {
    bool any = false;
    for (const Command& command : commands()) {
        Args name = splitWords(command.name);
        bool matches = topic.size() <= name.size();
        for (size_t i = 0; matches && i < topic.size(); ++i) matches = name[i] == topic[i];
        if (!matches) continue;
        fprintf(out, "  %s\n      %s\n", form(command).c_str(), command.help);
        any = true;
    }
    return any;
}

Client* Runner::findClient(const std::string& name) {
    for (Client& client : mClients) {
        if (client.state->name == name) return &client;
    }
    return nullptr;
}

// property NAME VALUE
bool Runner::property(const Args& args) {
    if (args.size() != 3) return failUsage();
    if (!::android::base::SetProperty(args[1], args[2])) {
        return fail("the property " + args[1] + " cannot be set");
    }
    note("setup", "property " + args[1] + " = " + quoteToken(args[2]),
         ",\"name\":" + jsonString(args[1]) + ",\"value\":" + jsonString(args[2]));
    return true;
}

// module absent
bool Runner::moduleAbsent(const Args& args) {
    if (args.size() != 2) return failUsage();
    if (mStarted) return fail("the module is already loaded: write module absent before start");
    setenv("HAL_LIBRARY_PATH", "/nonexistent/ar-harness", 1);
    note("setup", "module absent: the module loader finds no module");
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
    note("setup", "module " + args[2] + " answers " + std::to_string(code));
    return true;
}

// module table activity|environment on|off
bool Runner::moduleTable(const Args& args) {
    if (args.size() != 4 || (args[2] != "activity" && args[2] != "environment") ||
        (args[3] != "on" && args[3] != "off")) {
        return failUsage();
    }
    mModule->setTable(args[2] == "activity", args[3] == "on");
    note("setup", "module " + args[2] + " table " + args[3]);
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
        note("setup",
             "module " + args[2] + " list answers [" + rest(batch.names, 0) + "]" + options);
    } else {
        mModule->setState(activity, batch.records, batch.hasCount, batch.count, batch.null);
        note("setup", "module " + args[2] + " state answers " +
                              formatRecords(batch.records, Fields::kLongC) + options);
    }
    return true;
}

// module report activities|extended|environments [RECORD...] [count=N] [repeat=N] [null]
// [as=PID] [nostate]
bool Runner::moduleReport(const Args& args) {
    if (args.size() < 3) return failUsage();
    ModuleLayer::Batch batch;
    Fields fields = Fields::kLongC;
    const char* slot;
    if (args[2] == "activities") {
        batch = ModuleLayer::Batch::kActivities;
        fields = Fields::kShortC;
        slot = "activity_changed";
    } else if (args[2] == "extended") {
        batch = ModuleLayer::Batch::kExtended;
        slot = "activity_extend_changed";
    } else if (args[2] == "environments") {
        batch = ModuleLayer::Batch::kEnvironments;
        slot = "environment_changed";
    } else {
        return fail("module report takes activities, extended or environments, not '" + args[2] +
                    "'");
    }
    BatchOptions options;
    options.pid = kHostPid;
    std::string error;
    if (!parseBatchOptions(args, 3, "count= repeat= null as= nostate", fields, false, &options,
                           &error)) {
        return fail(error);
    }
    const std::vector<Record>& records = options.records;
    bool null = options.null;
    bool noState = options.noState;
    int32_t count = options.count;
    int32_t pid = options.pid;
    int32_t repeat = options.repeat;
    bool hasCount = options.hasCount;
    std::vector<Record> batchRecords;
    for (int32_t r = 0; r < repeat; ++r) {
        batchRecords.insert(batchRecords.end(), records.begin(), records.end());
    }
    if (!hasCount) count = static_cast<int32_t>(batchRecords.size());
    std::string identity = noState ? "no thread state" : "pid " + std::to_string(pid);
    std::string shown = batchRecords.size() <= 8
                                ? formatRecords(batchRecords, fields)
                                : std::to_string(batchRecords.size()) + " records, first " +
                                          formatRecord(batchRecords[0], fields);
    Event event;
    event.kind = "report";
    event.subject = "module";
    event.name = slot;
    event.text = std::string("module ") + slot + "(" + (null ? "null" : shown) + ", " +
                 std::to_string(count) + ") from the module thread, " + identity;
    event.json = ",\"layer\":\"module\",\"slot\":" + jsonString(slot) +
                 ",\"records\":" + (null ? "null" : recordsJson(batchRecords, fields)) +
                 ",\"count\":" + std::to_string(count) +
                 ",\"pid\":" + (noState ? "null" : std::to_string(pid));
    mTrace->emit(std::move(event));
    if (!mModule->report(batch, batchRecords, count, null, pid, noState)) {
        note("note",
             std::string("the HAL registered no ") +
                     (batch == ModuleLayer::Batch::kEnvironments ? "environment" : "activity") +
                     " callbacks with the module: nothing was reported");
    }
    return true;
}

// ---- the client library ----

bool Runner::loadZel(bool needed) {
    bool first = mZel->control() == nullptr;
    std::string error;
    if (!mZel->load(&error)) return fail(error);
    if (first && mZel->control() != nullptr) {
        note("setup", "client library libZelClient.so loaded (found by the HAL by its name)");
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
        note("setup", "client library absent: the HAL will not find libZelClient.so");
    }
    if (!loadZel()) return false;
    if (variant->second == ZelLayer::Variant::kNoMotion) {
        note("setup", "client library without ZelMotionEnable");
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
    note("setup", std::string("client library \"ar_config\" answers mask ") + text);
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
    note("setup", "client library \"ar_config\" answers " + std::to_string(words.size()) +
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
    note("setup",
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
    note("setup", "client library " + args[2] + " answers, call by call: " + rest(args, 3));
    return true;
}

// zel result COMMAND CODE
bool Runner::zelResult(const Args& args) {
    int32_t code;
    if (!loadZel(true)) return false;
    if (args.size() != 4 || !parseInt32(args[3], &code)) return failUsage();
    mZel->control()->setCommandResult(args[2], code);
    note("setup", "client library command " + args[2] + " answers " + args[3]);
    return true;
}

// zel notify [RECORD...] [status=N] [bytes=N] [repeat=N] [null] [as=PID] [nostate]
bool Runner::zelNotify(const Args& args) {
    BatchOptions options;
    options.pid = kHostPid;
    std::string error;
    if (!loadZel(true) || !parseBatchOptions(args, 2, "status= bytes= repeat= null as= nostate",
                                             Fields::kShortC, false, &options, &error)) {
        return mError.empty() ? fail(error) : false;
    }
    const std::vector<Record>& records = options.records;
    int32_t status = options.status;
    int32_t bytes = options.bytes;
    bool hasBytes = options.hasBytes;
    int32_t repeat = options.repeat;
    bool null = options.null;
    bool noState = options.noState;
    int32_t pid = options.pid;
    std::vector<activity_event> events;
    for (int32_t r = 0; r < repeat; ++r) {
        for (const Record& rec : records)
            events.push_back(activity_event{rec.e, rec.a, rec.t, rec.c});
    }
    if (!hasBytes) bytes = static_cast<int32_t>(events.size() * sizeof(activity_event));
    // The storage always covers the byte length it is sent with; `null` sends none at all.
    size_t words = std::max(events.size() * sizeof(activity_event),
                            static_cast<size_t>(std::max(bytes, 0))) /
                           sizeof(int32_t) +
                   1;
    std::vector<int32_t> data;
    if (!null) {
        data.assign(words, 0);
        if (!events.empty()) {
            memcpy(data.data(), events.data(), events.size() * sizeof(activity_event));
        }
    }
    std::vector<Record> shown;
    for (int32_t r = 0; r < repeat && shown.size() < 8; ++r) {
        shown.insert(shown.end(), records.begin(), records.end());
    }
    std::string identity = noState ? "no thread state" : "pid " + std::to_string(pid);
    Event event;
    event.kind = "report";
    event.subject = "zel";
    event.name = "ZelNotify";
    event.text = "zel ZelNotify(" + std::to_string(status) + ", " + std::to_string(bytes) + ", " +
                 (null                 ? "null"
                  : events.size() <= 8 ? formatRecords(shown, Fields::kShortC)
                                       : std::to_string(events.size()) + " records") +
                 ") from the library's thread, " + identity;
    std::vector<Record> all;
    for (const auto& e : events) {
        Record r;
        r.e = e.event_type;
        r.a = e.activity;
        r.t = e.timestamp;
        r.c = e.confidence;
        all.push_back(r);
    }
    event.json = ",\"layer\":\"zel\",\"status\":" + std::to_string(status) +
                 ",\"bytes\":" + std::to_string(bytes) +
                 ",\"records\":" + (null ? "null" : recordsJson(all, Fields::kShortC)) +
                 ",\"pid\":" + (noState ? "null" : std::to_string(pid));
    mTrace->emit(std::move(event));
    if (!mZel->control()->notify(status, bytes, data, pid, !noState)) {
        note("note",
             "the HAL registered no notification function with the client library: nothing was "
             "reported");
    }
    return true;
}

// start [INSTANCE]: what the service host does when the service is first asked for.
bool Runner::start(const Args& args) {
    if (args.size() > 2) return failUsage();
    if (mStarted) {
        return fail("the service was already started at line " + std::to_string(mStartLine) +
                    "; a run starts it once");
    }
    void* handle = dlopen(kLibrary, RTLD_NOW);
    if (handle == nullptr) return fail(std::string("cannot load the HAL: ") + dlerror());
    using Fetch = ar::V1_1::IActivityRecognition* (*)(const char*);
    auto fetch = reinterpret_cast<Fetch>(dlsym(handle, kEntryPoint));
    if (fetch == nullptr) return fail(std::string("the HAL exports no entry point: ") + dlerror());
    if (!loadZel()) return false;
    mStarted = true;
    mStartLine = mLine;
    std::string instance = args.size() == 2 ? args[1] : "default";
    ClientState host;
    host.name = "host";
    host.pid = kHostPid;
    traceCall(host, kEntryPoint, quoteToken(instance));
    mService = fetch(instance.c_str());
    mModule->flush();
    Result result;
    result.type = Result::Type::kWord;
    result.method = kEntryPoint;
    result.text = mService != nullptr ? "service" : "null";
    result.json = jsonString(result.text);
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
    note("setup",
         "client " + state->label() + " version " + (state->v1_1 ? "1.1 " : "1.0 ") +
                 (state->activity ? "activity" : "environment") + " client",
         ",\"client\":" + jsonString(name) + ",\"pid\":" + std::to_string(state->pid) +
                 ",\"version\":" + (state->v1_1 ? "\"1.1\"" : "\"1.0\"") +
                 ",\"side\":" + (state->activity ? "\"activity\"" : "\"environment\""));
    return true;
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
    note("setup", state->label() + " link=" + links[static_cast<int>(state->link)] +
                          " calls=" + (state->failCalls ? "fail" : "ok"));
    return true;
}

// kill NAME: the client's process dies. Every object of the process is dead at once; then each
// recipient linked to one of them hears of it, on the host's binder thread.
bool Runner::kill(const Args& args) {
    if (args.size() != 2) return failUsage();
    Client* victim = findClient(args[1]);
    if (victim == nullptr) return fail("no client " + args[1]);
    if (victim->state->dead) return fail(args[1] + " is dead already");
    pid_t pid = victim->state->pid;
    mDeathLines[pid] = mLine;
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
            Event event;
            event.kind = "death";
            event.subject = client->state->name;
            event.name = "serviceDied";
            event.detail = std::to_string(link.second);
            event.text = client->state->label() + " died: serviceDied(cookie " +
                         std::to_string(link.second) + ")";
            event.json = ",\"client\":" + jsonString(client->state->name) +
                         ",\"pid\":" + std::to_string(pid) +
                         ",\"cookie\":" + std::to_string(link.second);
            mTrace->emit(std::move(event));
            link.first->serviceDied(link.second, wp<IBase>(client->object));
            ++notices;
        }
        client->state->links.clear();
    }
    if (notices == 0) {
        note("death", "process " + std::to_string(pid) +
                              " died; nothing was linked to the death of its objects");
    }
    return true;
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
    traceCall(state, getter, "");
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
    result.json = jsonString(result.text);
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
bool Runner::callInterface(Client* client, const std::string& shownArgs, bool noState,
                           Result result, const Invoke& invoke) {
    ClientState& state = *client->state;
    if (!needInterface(client)) return false;
    traceCall(state, result.method, shownArgs);
    {
        AsClient as(state, noState);
        invoke(&result);
    }
    mModule->flush();
    traceReturn(state, std::move(result));
    return true;
}

// NAME set [link=ok|refuse|error] [calls=ok|fail]
bool Runner::setClient(const Args& args) {
    return setClientOptions(findClient(args[0])->state.get(), args, 2, false);
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
    if (!mStarted) return fail("the service is not started (write start first)");
    if (mService == nullptr) {
        return fail("there is no service: " + std::string(kEntryPoint) + " answered null at line " +
                    std::to_string(mStartLine));
    }
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
        return callInterface(client, call.null ? "null" : state.name, call.noState, result,
                             [&](Result*) { registerCallback(*client, v1_1, call.null); });
    }
    if (method == side.supportedList) {
        if (!p.empty()) return usage("");
        result.type = Result::Type::kStrings;
        result.text = "no answer";
        result.json = "null";
        return callInterface(client, "", call.noState, result, [&](Result* answer) {
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
        return callInterface(client, "", call.noState, result, [&](Result* answer) {
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
    if (takesParams) shown.push_back(formatParams(call.params));
    return callInterface(client, join(shown, ", "), call.noState, result, [&](Result* answer) {
        Return<int32_t> r = control->invoke(*client, values);
        answer->type = Result::Type::kInt;
        answer->text = r.isOk() ? std::to_string(static_cast<int32_t>(r))
                                : "transport error: " + r.description();
        answer->json = r.isOk() ? answer->text : jsonString(answer->text);
    });
}

void Runner::traceCall(const ClientState& state, const std::string& method,
                       const std::string& args) {
    Event event;
    event.kind = "call";
    event.subject = state.name;
    event.name = method;
    event.detail = args;
    event.text = state.label() + " " + method + "(" + args + ")";
    event.json = ",\"client\":" + jsonString(state.name) + ",\"pid\":" + std::to_string(state.pid) +
                 ",\"method\":" + jsonString(method) + ",\"args\":" + jsonString(args);
    mTrace->emit(std::move(event));
}

void Runner::traceReturn(const ClientState& state, Result result) {
    Event event;
    event.kind = "return";
    event.subject = state.name;
    event.name = result.method;
    event.detail = result.text;
    event.text = state.label() + " " + result.method;
    if (result.type != Result::Type::kNone) event.text += " = " + result.text;
    event.json = ",\"client\":" + jsonString(state.name) + ",\"pid\":" + std::to_string(state.pid) +
                 ",\"method\":" + jsonString(result.method);
    if (result.type != Result::Type::kNone) event.json += ",\"result\":" + result.json;
    mTrace->emit(std::move(event));
    mResult = std::move(result);
}

// ---- expectations ----

void Runner::check(const std::string& expectation, bool ok, const std::string& expected,
                   const std::string& got) {
    Event event;
    event.kind = "check";
    event.text = (ok ? "ok     expect " : "FAILED expect ") + expectation;
    if (!ok) event.text += ": expected " + expected + "; got " + got;
    event.json = ",\"ok\":" + std::string(ok ? "true" : "false") +
                 ",\"expectation\":" + jsonString(expectation);
    if (!ok) event.json += ",\"expected\":" + jsonString(expected) + ",\"got\":" + jsonString(got);
    mTrace->emit(std::move(event));
    ++(ok ? mSummary.held : mSummary.failed);
    if (!ok) {
        fprintf(stderr, "%s:%d: expectation failed: %s\n    expected: %s\n    got: %s\n",
                mFile.c_str(), mLine, expectation.c_str(), expected.c_str(), got.c_str());
    }
}

bool Runner::consume(const std::string& kind, const std::string& subject, const std::string& name,
                     const std::string& detail, std::string* got) {
    return consumeIf(
            kind, subject,
            [&](const Event& event) { return event.name == name && event.detail == detail; }, got);
}

bool Runner::consumeIf(const std::string& kind, const std::string& subject,
                       const std::function<bool(const Event&)>& matches, std::string* got) {
    bool found = false;
    std::vector<std::string> seen;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (Event& event : events) {
            if (event.kind != kind || event.subject != subject) continue;
            if (!found && !event.consumed && matches(event)) {
                event.consumed = true;
                found = true;
                return;
            }
            seen.push_back(event.text);
        }
    });
    *got = seen.empty() ? "nothing" : join(seen, " | ");
    return found;
}

bool Runner::nothingElse(const std::string& kind, const std::string& subject,
                         const std::string& name, std::string* got) {
    std::vector<std::string> seen;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (const Event& event : events) {
            if (event.kind == kind && event.subject == subject && !event.consumed &&
                (name.empty() || event.name == name)) {
                seen.push_back(event.text);
            }
        }
    });
    *got = join(seen, " | ");
    return seen.empty();
}

// expect result VALUE...
bool Runner::expectResult(const Args& args) {
    std::string expectation = rest(args, 1);
    if (mResult.type == Result::Type::kNone) {
        return fail("expect result: the command before it answered nothing to expect");
    }
    std::string expected;
    bool noAnswer = args.size() == 3 && args[2] == "no-answer";
    switch (mResult.type) {
        case Result::Type::kInt: {
            int64_t value;
            if (args.size() != 3 || !parseInt64(args[2], &value)) {
                return fail("usage: expect result NUMBER (" + mResult.method + " answers a number)");
            }
            expected = std::to_string(value);
            break;
        }
        case Result::Type::kWord:
            if (args.size() != 3) return fail("usage: expect result service|null|@N");
            expected = args[2];
            break;
        case Result::Type::kStrings: {
            std::vector<std::string> quoted;
            for (size_t i = 2; i < args.size(); ++i) quoted.push_back(quoteToken(args[i]));
            expected = noAnswer ? "no answer" : "[" + join(quoted, " ") + "]";
            break;
        }
        case Result::Type::kRecords: {
            std::vector<Record> records;
            for (size_t i = 2; i < args.size() && !noAnswer; ++i) {
                Record record;
                std::string error;
                if (!parseRecord(args[i], mResult.fields, &record, &error)) return fail(error);
                records.push_back(record);
            }
            expected = noAnswer ? "no answer" : formatRecords(records, mResult.fields);
            break;
        }
        case Result::Type::kNone:
            break;
    }
    check(expectation, expected == mResult.text, mResult.method + " = " + expected,
          mResult.method + " = " + mResult.text);
    return true;
}

// expect log PRIORITY TAG TEXT, or log-containing PRIORITY TAG PART (for texts that carry what
// the system says, such as a loader's error).
bool Runner::expectLog(const Args& args) {
    char priority;
    bool part = args[1] == "log-containing";
    if (args.size() != 5) {
        return fail("usage: expect " + args[1] + " PRIORITY TAG " + (part ? "PART" : "TEXT") +
                    " (quote the text)");
    }
    if (!parsePriority(args[2], &priority)) {
        return fail("bad priority '" + args[2] + "' (V D I W E F, or 2 to 7)");
    }
    std::string got;
    std::string name(1, priority);
    bool ok = consumeIf(
            "log", args[3],
            [&](const Event& event) {
                return event.name == name && (part ? event.detail.find(args[4]) != std::string::npos
                                                   : event.detail == args[4]);
            },
            &got);
    check(rest(args, 1), ok,
          std::string("a line ") + priority + " " + args[3] + (part ? " containing: " : ": ") +
                  escapeText(args[4]),
          args[3] + " lines: " + got);
    return true;
}

// expect no log TAG TEXT: no line of the tag contains the text.
bool Runner::expectNoLog(const Args& args) {
    if (args.size() != 5) return fail("usage: expect no log TAG TEXT (quote the text)");
    std::vector<std::string> seen;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (const Event& event : events) {
            if (event.kind == "log" && event.subject == args[3] &&
                event.detail.find(args[4]) != std::string::npos) {
                seen.push_back(event.text);
            }
        }
    });
    check(rest(args, 1), seen.empty(),
          "no " + args[3] + " line containing \"" + escapeText(args[4]) + "\"", join(seen, " | "));
    return true;
}

// expect module nothing | no ENTRY | ENTRY [ARG...] [p=...] [x=...]
bool Runner::expectModule(const Args& args) {
    if (args.size() < 3) return fail("usage: expect module nothing|no ENTRY|ENTRY [ARG...]");
    std::string got;
    if (args[2] == "nothing") {
        if (args.size() != 3) return fail("usage: expect module nothing");
        check(rest(args, 1), nothingElse("module", "module", "", &got),
              "no (other) call to reach the module", got);
        return true;
    }
    if (args[2] == "no") {
        if (args.size() != 4 || !ModuleLayer::isEntry(args[3])) {
            return fail("usage: expect module no ENTRY (an entry of the module)");
        }
        check(rest(args, 1), nothingElse("module", "module", args[3], &got),
              "no (other) call of " + args[3], got);
        return true;
    }
    const std::string& entry = args[2];
    if (!ModuleLayer::isEntry(entry)) return fail("the module has no entry " + entry);
    std::vector<std::string> numbers;
    Params params;
    std::string error;
    for (size_t i = 3; i < args.size(); ++i) {
        bool matched = false;
        if (!parseParamsToken(args[i], &params, &matched, &error)) return fail(error);
        if (matched) {
            if (!takesParams(entry)) return fail(entry + " takes no extra parameters");
            continue;
        }
        int64_t value;
        if (!parseDuration(args[i], &value)) return fail("bad number '" + args[i] + "'");
        numbers.push_back(std::to_string(value));
    }
    std::string detail = entry + "(" + join(numbers, ", ");
    if (takesParams(entry)) detail += (numbers.empty() ? "" : ", ") + formatParams(params);
    detail += ")";
    bool ok = consume("module", "module", entry, detail, &got);
    check(rest(args, 1), ok, detail, "module calls: " + got);
    return true;
}

// expect zel nothing | no NAME | NAME [ARG...]: NAME is a command ("ar-on", "ar-off",
// "modem-update") or an entry point ("ZelGetData", ...); the arguments are its text parameter,
// its two integers, the data key, the client name or ZelMotionEnable's argument.
bool Runner::expectZel(const Args& args) {
    if (args.size() < 3) return fail("usage: expect zel nothing|no NAME|NAME [ARG...]");
    std::string got;
    if (args[2] == "nothing") {
        if (args.size() != 3) return fail("usage: expect zel nothing");
        check(rest(args, 1), nothingElse("zel", "zel", "", &got),
              "no (other) call to reach the client library", got);
        return true;
    }
    if (args[2] == "no") {
        if (args.size() != 4) return fail("usage: expect zel no NAME");
        check(rest(args, 1), nothingElse("zel", "zel", args[3], &got), "no (other) " + args[3], got);
        return true;
    }
    std::vector<std::string> parts(args.begin() + 3, args.end());
    std::string detail = join(parts, " ");
    bool ok = consume("zel", "zel", args[2], detail, &got);
    check(rest(args, 1), ok, args[2] + " " + quoteToken(detail), "client library calls: " + got);
    return true;
}

// expect order CLIENT CLIENT...: the first delivery of each named client in this step comes in
// this order.
bool Runner::expectOrder(const Args& args) {
    if (args.size() < 4) return fail("usage: expect order CLIENT CLIENT...");
    for (size_t i = 2; i < args.size(); ++i) {
        if (findClient(args[i]) == nullptr) return fail("no client " + args[i]);
    }
    std::vector<std::string> firsts;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (const Event& event : events) {
            if (event.kind == "deliver" &&
                std::find(firsts.begin(), firsts.end(), event.subject) == firsts.end()) {
                firsts.push_back(event.subject);
            }
        }
    });
    std::vector<std::string> named;
    for (const std::string& name : firsts) {
        if (std::find(args.begin() + 2, args.end(), name) != args.end()) named.push_back(name);
    }
    Args wanted(args.begin() + 2, args.end());
    check(rest(args, 1), named == wanted, "first deliveries in the order " + join(wanted, " "),
          firsts.empty() ? "no deliveries" : "first deliveries in the order " + join(named, " "));
    return true;
}

// expect CLIENT nothing | no METHOD | METHOD [RECORD...]
bool Runner::expectClient(const Args& args) {
    ClientState& state = *findClient(args[1])->state;
    const auto& methods = callbackMethods(state.activity, state.v1_1);
    std::string got;
    if (args.size() < 3)
        return fail("usage: expect " + state.name + " nothing|no METHOD|METHOD [RECORD...]");
    if (args[2] == "nothing") {
        if (args.size() != 3) return fail("usage: expect " + state.name + " nothing");
        check(rest(args, 1), nothingElse("deliver", state.name, "", &got),
              "no (other) delivery to " + state.name, got);
        return true;
    }
    if (args[2] == "linkToDeath" || args[2] == "unlinkToDeath") {
        bool link = args[2] == "linkToDeath";
        int64_t cookie = 0;
        if (link ? args.size() != 4 || !parseInt64(args[3], &cookie) : args.size() != 3) {
            return fail("usage: expect " + state.name +
                        (link ? " linkToDeath COOKIE" : " unlinkToDeath"));
        }
        bool ok = consume("link", state.name, args[2], link ? std::to_string(cookie) : "", &got);
        check(rest(args, 1), ok, state.label() + " " + args[2] + (link ? " cookie " + args[3] : ""),
              "links of " + state.name + ": " + got);
        return true;
    }
    bool negative = args[2] == "no";
    const std::string& method = negative && args.size() > 3 ? args[3] : args[2];
    if (std::find(methods.begin(), methods.end(), method) == methods.end()) {
        return fail(state.name + " has no callback method '" + method + "' (" +
                    join(methods, ", ") + ")");
    }
    if (negative) {
        if (args.size() != 4) return fail("usage: expect " + state.name + " no METHOD");
        check(rest(args, 1), nothingElse("deliver", state.name, method, &got),
              "no (other) " + method + " to " + state.name, got);
        return true;
    }
    Fields fields = method == "onActivityChangedV1_0"         ? Fields::kShort
                    : method == "onActivityChangedV1_1"       ? Fields::kShortC
                    : method == "onActivityExtendChangedV1_1" ? Fields::kLongC
                    : method == "onEnvironmentChangedV1_1"    ? Fields::kLongC
                                                              : Fields::kLong;
    // METHOD count=N: a delivery of N records, whatever they hold.
    int32_t count;
    if (args.size() == 4 && args[3].compare(0, 6, "count=") == 0) {
        if (!parseInt32(args[3].substr(6), &count)) return fail("bad count '" + args[3] + "'");
        bool ok = consumeIf(
                "deliver", state.name,
                [&](const Event& event) { return event.name == method && event.items == count; },
                &got);
        check(rest(args, 1), ok, state.label() + " " + method + " of " + args[3] + " records",
              "deliveries to " + state.name + ": " + got);
        return true;
    }
    std::vector<Record> records;
    for (size_t i = 3; i < args.size(); ++i) {
        Record record;
        std::string error;
        if (!parseRecord(args[i], fields, &record, &error)) return fail(method + ": " + error);
        records.push_back(record);
    }
    std::string detail = formatRecords(records, fields);
    bool ok = consume("deliver", state.name, method, detail, &got);
    check(rest(args, 1), ok, state.label() + " " + method + " " + detail,
          "deliveries to " + state.name + ": " + got);
    return true;
}

}  // namespace arharness
