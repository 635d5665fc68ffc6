// ar-harness: a passthrough service host for the activity-recognition HAL on Linux, and a
// scenario runner. It loads the HAL library by name and calls its entry point as the platform's
// service host does, with the simulated legacy module below it, runs a scenario (the built-in
// default, a file, or standard input line by line) and prints a chronological trace of what
// every client received, what reached the lower layers and what was logged.
//
// Exit status: 0 when every expectation held, 1 when one failed, 2 on a scenario error (the run
// stops at it, reported as FILE:LINE: message).
#include <android/log.h>
#include <hwbinder/IPCThreadState.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "DefaultScenario.h"
#include "ModuleLayer.h"
#include "Runner.h"
#include "Syntax.h"
#include "Trace.h"
#include "ZelLayer.h"

// Never destroyed: the HAL may still log while the process exits, and like a service host the
// harness never lets go of the service (held by the runner). Outside the anonymous namespace, so
// that they stay real globals, where the leak checker of the sanitized builds finds them.
arharness::Trace* gTrace = nullptr;
arharness::ModuleLayer* gModule = nullptr;
arharness::ZelLayer* gZel = nullptr;
arharness::Runner* gRunner = nullptr;

namespace {

using arharness::Event;
using arharness::Format;

void traceLogger(const struct __android_logger_data* data, const char* message) {
    Event event("log", "{priority} {tag}: {text}");
    event.subject = data->tag != nullptr ? data->tag : "";
    event.name = std::string(1, arharness::priorityLetter(data->priority));
    event.detail = message != nullptr ? message : "";
    event.addString("priority", event.name).addString("tag", event.subject);
    event.add("text", arharness::escapeText(event.detail), arharness::jsonString(event.detail));
    gTrace->emit(std::move(event));
}

void usage(FILE* out) {
    fprintf(out,
            "usage: ar-harness [--format=text|jsonl] [FILE | -]\n"
            "  no FILE: runs the built-in default scenario\n"
            "  FILE:    runs a scenario file\n"
            "  -:       reads scenario lines from standard input, one at a time\n"
            "Exit status: 0 all expectations held, 1 an expectation failed, 2 scenario error.\n"
            "Commands (NAME is a client; help COMMAND in a scenario shows one):\n");
    arharness::Runner::printHelp(out, {});
}

}  // namespace

int main(int argc, char** argv) {
    Format format = Format::kText;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--format=text") == 0) {
            format = Format::kText;
        } else if (strcmp(argv[i], "--format=jsonl") == 0) {
            format = Format::kJsonl;
        } else if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            usage(stdout);
            return 0;
        } else if (strcmp(argv[i], "--commands") == 0) {
            // Not in the usage: the command forms, one a line, for the README check.
            for (const auto& command : arharness::Runner::commands()) {
                printf("%s\n", arharness::Runner::form(command).c_str());
            }
            return 0;
        } else if (path == nullptr && (argv[i][0] != '-' || strcmp(argv[i], "-") == 0)) {
            path = argv[i];
        } else {
            fprintf(stderr, "ar-harness: unexpected argument '%s'\n", argv[i]);
            usage(stderr);
            return 2;
        }
    }

    std::string name;
    std::ifstream file;
    std::istringstream builtIn;
    std::istream* in;
    if (path == nullptr) {
        name = arharness::kDefaultScenarioName;
        builtIn.str(arharness::kDefaultScenario);
        in = &builtIn;
    } else if (strcmp(path, "-") == 0) {
        name = "-";
        in = &std::cin;
    } else {
        name = path;
        file.open(path);
        if (!file) {
            fprintf(stderr, "%s: cannot read: %s\n", path, strerror(errno));
            return 2;
        }
        in = &file;
    }
    // A person at a terminal keeps going after a mistake; everything else stops at it.
    bool interactive = path != nullptr && strcmp(path, "-") == 0 && isatty(STDIN_FILENO);

    // The harness is the service host: its own thread, and the threads that play the lower
    // layers, act as the host process; clients act as theirs only during their calls.
    ::android::hardware::host::ScopedCallingIdentity host(arharness::kHostPid, arharness::kHostUid);
    // The simulated module is the one below the HAL, whatever the environment says.
    unsetenv("HAL_LIBRARY_PATH");
    gTrace = new arharness::Trace(stdout, format);
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    __android_log_set_logger(traceLogger);
    gModule = new arharness::ModuleLayer(gTrace);
    gModule->install();
    gZel = new arharness::ZelLayer(gTrace);
    // The client library only records its calls: they are traced just ahead of the next event.
    gTrace->setBeforeEmit([] { gZel->flush(); });
    gRunner = new arharness::Runner(gTrace, gModule, gZel);

    arharness::Runner::Options options;
    options.interactive = interactive;
    arharness::Runner::Summary summary = gRunner->run(name, *in, options);
    fflush(stdout);
    if (summary.errors > 0) return 2;
    if (summary.failed > 0) return 1;
    return 0;
}
