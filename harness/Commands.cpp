// The scenario language: every command with its arguments, a line of help and its handler. The
// README's command table lists the same commands in the same order (harness_readme_commands).
// Help on the rest of the language lives here too: records, and the arguments of the module's
// entries (the client methods' are rows of their own table, in ClientCalls.cpp).
#include "Runner.h"

namespace arharness {

const std::vector<Runner::Command>& Runner::commands() {
    static const std::vector<Command> kCommands = {
            {"property", "NAME VALUE", "sets a system property", &Runner::property},
            {"module absent", "", "the module loader finds no module (before start)",
             &Runner::moduleAbsent},
            {"module result", "ENTRY CODE", "the module's entry answers CODE",
             &Runner::moduleResult},
            {"module table", "activity|environment on|off",
             "whether the device hands out that table", &Runner::moduleTable},
            {"module supported", "activity|environment NAME... [count=N] [null]",
             "the supported list the module answers", &Runner::moduleAnswer},
            {"module current", "activity|environment RECORD... [count=N] [null]",
             "the current-state records the module answers", &Runner::moduleAnswer},
            {"module report",
             "activities|extended|environments RECORD... [count=N] [repeat=N] [null] [as=PID] "
             "[nostate]",
             "the module reports a batch from its own thread", &Runner::moduleReport},
            {"zel library", "present|no-motion|absent",
             "the client library of the run; before any other zel command", &Runner::zelLibrary},
            {"zel mask", "MASK", "the configuration mask \"ar_config\" answers", &Runner::zelMask},
            {"zel config", "WORD...", "the words \"ar_config\" answers", &Runner::zelConfig},
            {"zel status", "RECORD...", "the records \"ar_status\" answers", &Runner::zelStatus},
            {"zel queue", "ENTRY RESULT...", "the answers of the next calls of an entry point",
             &Runner::zelQueue},
            {"zel result", "COMMAND CODE", "the return code of a command", &Runner::zelResult},
            {"zel notify", "RECORD... [status=N] [bytes=N] [repeat=N] [null] [as=PID] [nostate]",
             "the library calls the HAL's notification function from its own thread",
             &Runner::zelNotify},
            {"start", "[INSTANCE]",
             "gets the service through getService, which loads the HAL; once a run", &Runner::start},
            {"client",
             "NAME pid=PID version=1.0|1.1 activity|environment [link=ok|refuse|error] "
             "[calls=ok|fail]",
             "a client with a callback object of its own", &Runner::createClient},
            {"NAME set", "[link=ok|refuse|error] [calls=ok|fail]",
             "changes how the client answers links and deliveries", &Runner::setClient},
            {"NAME connect", "", "asks the service for the client's interface", &Runner::clientCall},
            {"NAME register", "[null]", "the registration method of the client's version",
             &Runner::clientCall},
            {"NAME", "METHOD ARG... [p=...] [x=...] [nostate]",
             "any method of the client's interface, called as the client's pid",
             &Runner::clientCall},
            {"kill", "NAME", "the client's process dies", &Runner::kill},
            {"dump", "[OPTION...]", "the service's state dump (lshal debug) into the trace",
             &Runner::dump},
            {"save", "FILE",
             "at the terminal: writes the lines typed so far that ran without an error, as a "
             "scenario",
             &Runner::save},
            {"expect result", "VALUE...", "what the step's call answered", &Runner::expectResult},
            {"expect NAME", "METHOD [RECORD|*...] [count=N]",
             "NAME received a call with exactly these records (* any one; count=N: N such calls)",
             &Runner::expectClient},
            {"expect NAME", "METHOD records=N [count=N]", "NAME received a call with N records",
             &Runner::expectClient},
            {"expect NAME linkToDeath", "COOKIE", "the HAL linked to the death of NAME's object",
             &Runner::expectLink},
            {"expect NAME unlinkToDeath", "", "the HAL unlinked from the death of NAME's object",
             &Runner::expectLink},
            {"expect NAME no", "METHOD",
             "NAME received no (other) call of METHOD (linkToDeath and unlinkToDeath too)",
             &Runner::expectNone},
            {"expect NAME nothing", "", "NAME's object received no (other) call, links included",
             &Runner::expectNone},
            {"expect module", "ENTRY [ARG|*...] [p=...] [x=...] [count=N]",
             "that call reached the module (* any one number; count=N: N such calls)",
             &Runner::expectModule},
            {"expect module no", "ENTRY", "no (other) such call reached the module",
             &Runner::expectNone},
            {"expect module nothing", "", "no (other) call reached the module", &Runner::expectNone},
            {"expect zel", "NAME [ARG|*...] [count=N]",
             "that call reached the client library (* any one word; count=N: N such calls)",
             &Runner::expectZel},
            {"expect zel no", "NAME", "no (other) such call reached the client library",
             &Runner::expectNone},
            {"expect zel nothing", "", "no (other) call reached the client library",
             &Runner::expectNone},
            {"expect log", "PRIORITY TAG TEXT", "a line with exactly this priority, tag and text",
             &Runner::expectLog},
            {"expect log-containing", "PRIORITY TAG PART", "a line whose text contains PART",
             &Runner::expectLog},
            {"expect no log", "TAG TEXT", "no line of the tag contains the text",
             &Runner::expectNoLog},
            {"expect dump-containing", "TEXT", "a line of the step's dump contains TEXT",
             &Runner::expectDump},
            {"expect order", "NAME NAME...",
             "the first deliveries to these clients came in this order", &Runner::expectOrder},
            {"help", "[COMMAND|records|METHOD|ENTRY]",
             "lists the commands (those that begin with COMMAND), the fields of a record, or the "
             "arguments of a client method or module entry",
             &Runner::help},
    };
    return kCommands;
}

// ---- help beyond the commands ----

namespace {

constexpr char kRecordsHelp[] =
        "  RECORD: one token of name=value fields in any order, separated by commas; missing\n"
        "  ones are 0 (quote a record with blanks: x=\"two words\")\n"
        "      e  event type, 0 to 4294967295 (1 or 2 on the activity side)\n"
        "      a  activity (or environment), 0 to 4294967295\n"
        "      t  timestamp in nanoseconds, or a number with a unit: 7ns 10us 500ms 1.5s\n"
        "      c  confidence, a 32-bit integer (records of version 1.1 and of the module)\n"
        "      s  status, a 32-bit integer (extended and environment records)\n"
        "      p  the four doubles of the extra parameters, p=1:0:0:0 (missing ones 0)\n"
        "      x  their text, last: it takes the rest of the token, commas included; at most 32\n"
        "         bytes in what the module or the client library reports or answers\n"
        "  Which fields a record has depends on where it travels:\n"
        "      e a t          onActivityChangedV1_0\n"
        "      e a t c        onActivityChangedV1_1, module report activities, zel notify\n"
        "      e a t s p x    onActivityExtendChangedV1_0, onEnvironmentChanged, getCurrent...\n"
        "      e a t c s p x  the other 1.1 deliveries and answers, module current, module\n"
        "                     report extended|environments, zel status\n"
        "  Limits: a line 1048576 bytes; a batch 100000 records, repeat= included; count= and\n"
        "  bytes= at most 100000; repeat= 1 to 10000; a list 512 names. In an expectation, *\n"
        "  stands for any one record, and count=N for the number of such calls.\n";

// An entry of the legacy module: what reaches it, as `expect module` writes it.
struct ModuleEntry {
    const char* name;
    const char* arguments;
    const char* help;
};

const ModuleEntry kModuleEntries[] = {
        {"open", "", "opens the module's device (answers a result code)"},
        {"close", "", "closes the device"},
        {"get_activity_interface", "", "the activity table (module table activity on|off)"},
        {"get_environment_interface", "", "the environment table"},
        {"register_activity_callbacks", "", "the HAL hands the module its activity callbacks"},
        {"get_supported_activities_list", "", "the list of module supported activity"},
        {"enable_activity_event", "ACTIVITY EVENT_TYPE LATENCY",
         "switches a pair on; LATENCY in nanoseconds (the HAL rounds it to whole seconds, at "
         "least one)"},
        {"enable_activity_event_extend", "ACTIVITY EVENT_TYPE LATENCY [p=D:D:D:D] [x=TEXT]",
         "switches a pair on with extra parameters"},
        {"get_current_activity", "", "the records of module current activity"},
        {"disable_activity_event", "ACTIVITY EVENT_TYPE", "switches a pair off"},
        {"flush", "", "reports what the module holds back"},
        {"register_environment_callbacks", "", "the HAL hands the module its environment callbacks"},
        {"get_supported_environments_list", "", "the list of module supported environment"},
        {"init_environment", "ENVIRONMENT [p=D:D:D:D] [x=TEXT]", "prepares an environment"},
        {"exit_environment", "ENVIRONMENT [p=D:D:D:D] [x=TEXT]", "ends an environment"},
        {"enable_environment", "ENVIRONMENT EVENT_TYPE LATENCY [p=D:D:D:D] [x=TEXT]",
         "switches an environment's events on; LATENCY in nanoseconds, as the client gave it"},
        {"disable_environment", "ENVIRONMENT EVENT_TYPE", "switches them off"},
        {"get_current_environment", "", "the records of module current environment"},
};

void printEntry(FILE* out, const char* what, const std::string& form, const char* help) {
    fprintf(out, "  %s %s\n      %s\n", what, form.c_str(), help);
}

}  // namespace

// Help on a word that is not a command: records, a client method or a module entry.
bool Runner::printTopicHelp(FILE* out, const std::string& topic) {
    if (topic == "records" || topic == "RECORD") {
        fputs(kRecordsHelp, out);
        return true;
    }
    bool any = false;
    for (const ClientMethod& method : clientMethods()) {
        if (topic != method.name) continue;
        std::string help = std::string(method.help) + " (" +
                           (method.activity ? "activity" : "environment") + " side, version " +
                           (method.v1_1 ? "1.1" : "1.0 and 1.1") + ", " +
                           methodKindName(method.kind) + ")";
        printEntry(out, "NAME", topic + (method.arguments[0] != '\0' ? " " : "") + method.arguments,
                   help.c_str());
        any = true;
    }
    for (const ModuleEntry& entry : kModuleEntries) {
        if (topic != entry.name) continue;
        printEntry(out, "expect module",
                   topic + (entry.arguments[0] != '\0' ? " " : "") + entry.arguments,
                   (std::string("the module's entry: ") + entry.help).c_str());
        any = true;
    }
    return any;
}

std::vector<std::string> Runner::topics() {
    std::vector<std::string> words = {"records"};
    for (const Command& command : commands()) words.push_back(splitWords(command.name)[0]);
    for (const ClientMethod& method : clientMethods()) words.emplace_back(method.name);
    for (const ModuleEntry& entry : kModuleEntries) words.emplace_back(entry.name);
    return words;
}

}  // namespace arharness
