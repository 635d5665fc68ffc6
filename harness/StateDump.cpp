// The state dump: what `lshal debug` would print, as one event of the trace. The report is the
// service's own, except that each client's callback address is shown as the client's name, so
// that a report reads in the scenario's terms and is the same from run to run.
#include <stdio.h>

#include "DumpText.h"
#include "Runner.h"

namespace arharness {
namespace {

// Where the text of an event begins on its line ("%5d   %-7s "): the report's lines go under it.
constexpr size_t kTextColumn = 16;

// "callback[0x5581d0c0]" as the service prints it.
std::string callbackField(const void* object) {
    char address[32];
    snprintf(address, sizeof(address), "%p", object);
    return std::string("callback[") + address + "]";
}

void replaceAll(std::string* text, const std::string& from, const std::string& to) {
    for (size_t at = text->find(from); at != std::string::npos; at = text->find(from, at)) {
        text->replace(at, from.size(), to);
        at += to.size();
    }
}

}  // namespace

// dump [OPTION...]
bool Runner::dump(const Args& args) {
    if (!needService()) return false;
    const Args options(args.begin() + 1, args.end());
    std::string report = artest::DumpText(mService, options);
    for (const Client& client : mClients) {
        const void* objects[] = {client.activityV1_0.get(), client.activityV1_1.get(),
                                 client.environmentV1_0.get(), client.environmentV1_1.get()};
        for (const void* object : objects) {
            if (object == nullptr) continue;
            replaceAll(&report, callbackField(object), "callback[" + client.state->name + "]");
        }
    }
    const std::vector<std::string> lines = splitLines(report);
    std::string shown;
    for (const std::string& line : lines)
        shown += "\n" + std::string(kTextColumn, ' ') + "| " + line;
    std::vector<std::string> jsonOptions;
    for (const std::string& option : options) jsonOptions.push_back(jsonString(option));
    Event event(Kind::kDump, "debug({options}) wrote {lines} lines{text}");
    event.detail = report;
    event.add("options", rest(options, 0), "[" + join(jsonOptions, ",") + "]")
            .addNumber("lines", static_cast<int64_t>(lines.size()))
            .add("text", shown, jsonString(report));
    mTrace->emit(std::move(event));
    return true;
}

}  // namespace arharness
