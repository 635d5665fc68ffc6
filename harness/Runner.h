// The scenario interpreter: runs one line at a time against the HAL, got through getService as a
// passthrough client gets it, with the simulated lower layers below it. Every command is a row of
// one table (its words, its arguments, a line of help and its handler), which drives dispatch, the
// names that clients may not take, help and the README's command table. Scenario errors (unknown
// command, bad argument, impossible request) stop the line with a message; failed expectations are
// counted.
//
// The handlers live with their kind: SetupCommands.cpp (properties, the module's and the client
// library's answers, start, clients), Reports.cpp (batches the lower layers report),
// ClientCalls.cpp (what clients call, and their deaths), StateDump.cpp, Expectations.cpp.
#pragma once

#include <stdio.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

#include <functional>
#include <istream>
#include <map>
#include <string>
#include <vector>

#include "Clients.h"
#include "ModuleLayer.h"
#include "Syntax.h"
#include "Trace.h"
#include "ZelLayer.h"

namespace arharness {

// Where a run's lines come from.
class LineSource {
  public:
    virtual ~LineSource() = default;
    // The next line; false at the end of the input.
    virtual bool next(std::string* line) = 0;
};

class Runner {
  public:
    using Args = std::vector<std::string>;
    using Handler = bool (Runner::*)(const Args& args);

    // One command of the scenario language. `name` holds its leading words; the word NAME stands
    // for a client. The handler gets the whole line; the longest matching name wins.
    struct Command {
        const char* name;
        const char* synopsis;
        const char* help;
        Handler handler;
    };
    // The table, in the order help and the README list it.
    static const std::vector<Command>& commands();
    // "module result ENTRY CODE"
    static std::string form(const Command& command);
    // Help on every command, on those whose name starts with `topic`'s words, on records, or on
    // a client method or module entry by its name. False when there is none.
    static bool printHelp(FILE* out, const Args& topic);
    // records, a client method or a module entry.
    static bool printTopicHelp(FILE* out, const std::string& topic);
    // The words help knows, for suggestions.
    static std::vector<std::string> topics();

    Runner(Trace* trace, ModuleLayer* module, ZelLayer* zel);

    struct Summary {
        int held = 0;
        int failed = 0;
        int errors = 0;
    };
    struct Options {
        // A person at a terminal: a prompt before every line, and the run goes on after an error.
        bool interactive = false;
        // Lines to run at most (0: all).
        size_t maxLines = 0;
    };
    // Runs a scenario to its end, to the first scenario error (unless interactive) or to the
    // line bound, reporting errors as FILE:LINE: message, and ends the trace with its summary.
    Summary run(const std::string& name, std::istream& in, const Options& options);
    // The same with the lines of `source`, which prompts for them itself where it prompts.
    Summary run(const std::string& name, LineSource* source, const Options& options);
    // The processes of the run's clients end, as when the run is over and the host lives on:
    // the HAL hears of every death it is linked to, and keeps no client of the run.
    void endProcesses();

  private:
    static constexpr char kEntryPoint[] = "HIDL_FETCH_IActivityRecognition";

    // What the last call of the current step answered.
    struct Result {
        enum class Type { kNone, kInt, kWord, kStrings, kRecords };
        Type type = Type::kNone;
        std::string method;
        std::string text;  // canonical
        std::string json;
        Fields fields = Fields::kShort;
    };

    // ---- the runner's own work (Runner.cpp) ----
    // Runs one scenario line. False on a scenario error, described by mError.
    bool runLine(const std::string& file, int line, const std::string& text);
    bool fail(const std::string& message);
    // The usage of the command being run, with the words that selected it.
    bool failUsage();
    const Command* find(const Args& args, size_t* words);
    bool unknown(const Args& args);
    static std::string suggestions(const std::string& word, const std::vector<std::string>& known);
    bool help(const Args& args);
    bool save(const Args& args);
    Client* findClient(const std::string& name);
    // An event that shows a text, with more fields for tools.
    void note(Kind kind, const std::string& text, const std::vector<Event::Field>& more = {});
    void traceError(const std::string& message);
    // Words that begin a command, or follow `expect` and so select an expectation.
    static bool reserved(const std::string& name);

    // ---- set-up (SetupCommands.cpp) ----
    bool property(const Args& args);
    bool moduleAbsent(const Args& args);
    bool moduleResult(const Args& args);
    bool moduleTable(const Args& args);
    bool moduleAnswer(const Args& args);
    bool zelLibrary(const Args& args);
    bool zelMask(const Args& args);
    bool zelConfig(const Args& args);
    bool zelStatus(const Args& args);
    bool zelQueue(const Args& args);
    bool zelResult(const Args& args);
    // Loads the client library's chosen variant once; false (with the error) when it is absent
    // and `needed`.
    bool loadZel(bool needed = false);
    bool start(const Args& args);
    bool createClient(const Args& args);
    bool setClient(const Args& args);
    bool setClientOptions(ClientState* state, const Args& args, size_t from, bool creating);

    // ---- lower-layer reports (Reports.cpp) ----
    bool moduleReport(const Args& args);
    bool zelNotify(const Args& args);

    // ---- client calls (ClientCalls.cpp) ----
    bool kill(const Args& args);
    void killProcess(pid_t pid);
    bool clientCall(const Args& args);
    // `invoke` makes the call and puts what it answered into the Result it is given.
    template <typename Invoke>
    // `shownArgs` is the arguments' text, `argsJson` their JSON array.
    bool callInterface(Client* client, const std::string& shownArgs, const std::string& argsJson,
                       bool noState, Result result, const Invoke& invoke);
    // False (with the error) before start, or when start got no service.
    bool needService();
    bool connect(Client* client, const std::string& getter);
    bool needInterface(Client* client);
    void traceCall(const ClientState& state, const std::string& method, const std::string& args,
                   const std::string& argsJson);
    void traceReturn(const ClientState& state, Result result);
    std::string interfaceName(const void* object);

    // ---- the state dump (StateDump.cpp) ----
    bool dump(const Args& args);

    // ---- expectations (Expectations.cpp) ----
    bool expectResult(const Args& args);
    bool expectLog(const Args& args);
    bool expectNoLog(const Args& args);
    bool expectDump(const Args& args);
    bool expectModule(const Args& args);
    bool expectZel(const Args& args);
    bool expectOrder(const Args& args);
    bool expectClient(const Args& args);
    bool expectLink(const Args& args);
    bool expectNone(const Args& args);
    bool checkCallbackMethod(const ClientState& state, const std::string& method);
    // Finds and consumes the first unconsumed event of `kind` about `subject` whose name and
    // detail match; on a miss describes the step's events of that kind and subject as `got`.
    bool consume(Kind kind, const std::string& subject, const std::string& name,
                 const std::string& detail, std::string* got);
    // How many unconsumed events of `kind` about `subject` match, using up the first (or, when
    // `all`, every one); `got` shows the others by the one closest to `wanted`.
    size_t consumeIf(Kind kind, const std::string& subject,
                     const std::function<bool(const Event&)>& matches, bool all,
                     const std::string& wanted, std::string* got);
    bool nothingElse(const std::vector<Kind>& kinds, const std::string& subject,
                     const std::string& name, std::string* got);
    bool takeCount(Args* args, int32_t* count);
    void checkCalls(const std::string& expectation, Kind kind, const std::string& subject,
                    const std::function<bool(const Event&)>& matches, int32_t count,
                    const std::string& expected, const std::string& what);
    void check(const std::string& expectation, bool ok, const std::string& expected,
               const std::string& got);

    Trace* mTrace;
    ModuleLayer* mModule;
    ZelLayer* mZel;
    std::string mFile;
    int mLine = 0;
    std::string mError;
    const Command* mCommand = nullptr;
    Args mCommandWords;  // the words that selected it
    Summary mSummary;
    int mCommandsRun = 0;

    bool mStarted = false;
    int mStartLine = 0;
    ::android::sp<ar::V1_1::IActivityRecognition> mService;
    std::vector<Client> mClients;
    std::map<const void*, int> mInterfaceNumbers;
    std::map<pid_t, int> mDeathLines;
    Result mResult;

    // At the terminal: the lines so far that ran without an error, for save.
    bool mKeepLines = false;
    std::vector<std::string> mTyped;
    bool mSaved = false;  // the line was a save, which is not kept
};

// Makes this process the service host, once: the trace on `out`, liblog's lines into it and the
// simulated lower layers below the HAL. Answers the runner above them; a program that runs many
// scenarios (a fuzzer, say) starts the host once and feeds the runner.
Runner* startHost(FILE* out, Format format, const TraceFilter& filter = TraceFilter());
// For the next of many scenarios in one process, after startHost: the last run's client
// processes end, and a fresh runner begins, with the simulated layers back to their defaults as
// far as their controls go. The HAL keeps its state, as in a service host that lives on, and
// `start` answers the service loaded before.
Runner* freshRunner();

}  // namespace arharness
