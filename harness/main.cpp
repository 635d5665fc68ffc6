// ar-harness: a passthrough service host for the activity-recognition HAL on Linux, and a
// scenario runner. It gets the service through getService, which finds the HAL library and calls
// its entry point as the platform's passthrough mode does, with the simulated legacy module below
// it, runs a scenario (the built-in
// default, a file, or standard input line by line) and prints a chronological trace of what
// every client received, what reached the lower layers and what was logged.
//
// Exit status: 0 when every expectation held, 1 when one failed, 2 on a scenario error (the run
// stops at it, reported as FILE:LINE: message).
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "DefaultScenario.h"
#include "Runner.h"
#include "Terminal.h"

namespace {

using arharness::Format;

void usage(FILE* out) {
    fprintf(out,
            "usage: ar-harness [--format=text|jsonl] [--only=KIND,...] [--quiet] [--all-records]\n"
            "                  [FILE | -]\n"
            "  no FILE: runs the built-in default scenario\n"
            "  FILE:    runs a scenario file\n"
            "  -:       reads scenario lines from standard input, one at a time\n"
            "  --only=KIND,...  prints only events of these kinds (and the summary)\n"
            "  --quiet          prints only failed expectations, scenario errors and the summary\n"
            "  --all-records    a batch's text line shows all its records, not the first 8\n");
    fputs("Kinds:", out);
    for (size_t kind = 0; kind < arharness::kKindCount; ++kind) {
        fprintf(out, " %s", arharness::kindText(static_cast<arharness::Kind>(kind)));
    }
    fputs("\nExit status: 0 all expectations held, 1 an expectation failed, 2 scenario error.\n"
          "Commands (NAME is a client; help COMMAND in a scenario shows one):\n",
          out);
    arharness::Runner::printHelp(out, {});
}

void printMethods() {
    using arharness::jsonString;
    // What each kind of method answers, as "return" events show it.
    static const char* const answers[] = {"interface", "none", "names", "records", "number"};
    for (const arharness::ClientMethod& method : arharness::clientMethods()) {
        std::vector<std::string> arguments;
        for (const std::string& word : arharness::splitWords(method.arguments)) {
            arguments.push_back(jsonString(word));
        }
        printf("{\"name\":%s,\"side\":%s,\"version\":%s,\"kind\":%s,\"answer\":%s,"
               "\"arguments\":[%s]}\n",
               jsonString(method.name).c_str(),
               jsonString(method.activity ? "activity" : "environment").c_str(),
               jsonString(method.v1_1 ? "1.1" : "1.0").c_str(),
               jsonString(arharness::methodKindName(method.kind)).c_str(),
               jsonString(answers[static_cast<size_t>(method.kind)]).c_str(),
               arharness::join(arguments, ",").c_str());
    }
}

// --only=KIND,...: the kinds the trace prints. False, with a message, on a name that is none.
bool parseOnly(const char* list, arharness::TraceFilter* filter) {
    filter->kinds.reset();
    std::string names = list;
    for (size_t at = 0; at <= names.size();) {
        size_t comma = std::min(names.find(',', at), names.size());
        arharness::Kind kind;
        if (!arharness::parseKind(names.substr(at, comma - at), &kind)) {
            std::string name = names.substr(at, std::min<size_t>(comma - at, 64));
            fprintf(stderr, "ar-harness: --only: no kind '%s'; try --help\n",
                    arharness::escapeText(name).c_str());
            return false;
        }
        filter->kinds.set(static_cast<size_t>(kind));
        at = comma + 1;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Format format = Format::kText;
    arharness::TraceFilter filter;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--format=text") == 0) {
            format = Format::kText;
        } else if (strcmp(argv[i], "--format=jsonl") == 0) {
            format = Format::kJsonl;
        } else if (strncmp(argv[i], "--only=", 7) == 0) {
            if (!parseOnly(argv[i] + 7, &filter)) return 2;
        } else if (strcmp(argv[i], "--quiet") == 0) {
            filter.quiet = true;
        } else if (strcmp(argv[i], "--all-records") == 0) {
            filter.records = 0;
        } else if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            usage(stdout);
            return 0;
        } else if (strcmp(argv[i], "--commands") == 0) {
            // Not in the usage: the command forms, one a line, for the README check.
            for (const auto& command : arharness::Runner::commands()) {
                printf("%s\n", arharness::Runner::form(command).c_str());
            }
            return 0;
        } else if (strcmp(argv[i], "--methods") == 0) {
            // Not in the usage: the client methods, a JSON object a line, for tools and tests.
            printMethods();
            return 0;
        } else if (path == nullptr && i == 1 && strcmp(argv[i], "help") == 0) {
            // As on the prompt: `ar-harness help records`.
            std::vector<std::string> topic(argv + 2, argv + argc);
            if (arharness::Runner::printHelp(stdout, topic)) return 0;
            fprintf(stderr, "ar-harness: no help on %s (try ar-harness help)\n",
                    arharness::quoteWord(arharness::join(topic, " ")).c_str());
            return 2;

        } else if (strcmp(argv[i], "--kinds") == 0) {
            // Not in the usage: the JSON names of the event kinds, one a line, for the schema
            // check.
            for (size_t kind = 0; kind < arharness::kKindCount; ++kind) {
                printf("%s\n", arharness::kindJson(static_cast<arharness::Kind>(kind)));
            }
            return 0;
        } else if (path == nullptr && (argv[i][0] != '-' || strcmp(argv[i], "-") == 0)) {
            path = argv[i];
        } else {
            fprintf(stderr, "ar-harness: unexpected argument %s (try --help)\n",
                    arharness::quoteWord(argv[i]).c_str());
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
        struct stat status;
        if (stat(path, &status) == 0 && S_ISDIR(status.st_mode)) {
            errno = EISDIR;
        } else {
            file.open(path);
        }
        if (!file.is_open()) {
            fprintf(stderr, "%s: cannot read: %s\n", arharness::escapeText(path).c_str(),
                    strerror(errno));
            return 2;
        }
        in = &file;
    }
    // A person at a terminal keeps going after a mistake; everything else stops at it.
    bool interactive = path != nullptr && strcmp(path, "-") == 0 && isatty(STDIN_FILENO);

    arharness::Runner::Options options;
    options.interactive = interactive;
    arharness::Runner* runner = arharness::startHost(stdout, format, filter);
    arharness::Runner::Summary summary;
    if (interactive && isatty(STDERR_FILENO)) {
        // Line editing only where its prompt and echo reach a terminal too.
        arharness::Terminal terminal;
        summary = runner->run(name, &terminal, options);
    } else {
        summary = runner->run(name, *in, options);
    }
    fflush(stdout);
    if (summary.errors > 0) return 2;
    if (summary.failed > 0) return 1;
    return 0;
}
