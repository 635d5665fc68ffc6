// The scenario interpreter: runs one line at a time against the HAL, loaded as a passthrough host
// loads it, with the simulated lower layers below it. Scenario errors (unknown command, bad
// argument, impossible request) stop the line with a message; failed expectations are counted.
#pragma once

#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Clients.h"
#include "ModuleLayer.h"
#include "Syntax.h"
#include "Trace.h"
#include "ZelLayer.h"

namespace arharness {

class Runner {
  public:
    Runner(Trace* trace, ModuleLayer* module, ZelLayer* zel);

    // Runs one scenario line. False on a scenario error, described by error().
    bool runLine(const std::string& file, int line, const std::string& text);
    const std::string& error() const { return mError; }
    // Failed expectations so far.
    int failures() const { return mFailures; }

  private:
    using Args = std::vector<std::string>;

    // What the last call of the current step answered.
    struct Result {
        enum class Type { kNone, kInt, kWord, kStrings, kRecords };
        Type type = Type::kNone;
        std::string method;
        std::string text;  // canonical
        std::string json;
        Fields fields = Fields::kShort;
    };

    bool fail(const std::string& message);
    bool command(const Args& args);

    bool property(const Args& args);
    bool module(const Args& args);
    bool moduleReport(const Args& args);
    bool zel(const Args& args);
    bool zelNotify(const Args& args);
    bool loadZel();
    bool start(const Args& args);
    bool createClient(const Args& args);
    bool setClientOptions(ClientState* state, const Args& args, size_t from, bool creating);
    bool kill(const Args& args);
    bool clientCommand(Client* client, const Args& args);
    bool clientCall(Client* client, const std::string& method, const Args& args);
    // `invoke` makes the call and puts what it answered into the Result it is given.
    template <typename Invoke>
    bool callInterface(Client* client, const std::string& shownArgs, bool noState, Result result,
                       const Invoke& invoke);
    bool connect(Client* client, const std::string& getter);
    bool needInterface(Client* client);

    bool expect(const Args& args);
    bool expectResult(const Args& args);
    bool expectLog(const Args& args);
    bool expectNoLog(const Args& args);
    bool expectModule(const Args& args);
    bool expectZel(const Args& args);
    bool expectOrder(const Args& args);
    bool expectClient(Client* client, const Args& args);
    // Finds and consumes the first unconsumed event of `kind` about `subject` whose name and
    // detail match; on a miss lists the step's events of that kind and subject as `got`.
    bool consume(const std::string& kind, const std::string& subject, const std::string& name,
                 const std::string& detail, std::string* got);
    bool consumeIf(const std::string& kind, const std::string& subject,
                   const std::function<bool(const Event&)>& matches, std::string* got);
    bool nothingElse(const std::string& kind, const std::string& subject, const std::string& name,
                     std::string* got);
    void check(const std::string& expectation, bool ok, const std::string& expected,
               const std::string& got);

    Client* findClient(const std::string& name);
    void traceCall(const ClientState& state, const std::string& method, const std::string& args);
    void traceReturn(const ClientState& state, Result result);
    void note(const std::string& kind, const std::string& text, const std::string& json = "");
    std::string interfaceName(const void* object);

    Trace* mTrace;
    ModuleLayer* mModule;
    ZelLayer* mZel;
    std::string mFile;
    int mLine = 0;
    std::string mText;
    std::string mError;
    int mFailures = 0;

    bool mStarted = false;
    int mStartLine = 0;
    ::android::sp<ar::V1_1::IActivityRecognition> mService;
    std::vector<Client> mClients;
    std::map<const void*, int> mInterfaceNumbers;
    std::map<pid_t, int> mDeathLines;
    Result mResult;
};

}  // namespace arharness
