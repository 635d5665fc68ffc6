#include "ModuleLayer.h"

#include <hwbinder/IPCThreadState.h>
#include <string.h>

#include <algorithm>

#include "simulated_legacy_module.h"

namespace arharness {
namespace {

namespace sim = ::simulated_legacy;

// An answer of answerOf in JSON: a number, the word "table", or null.
std::string answerJson(const std::string& answer) {
    if (answer == "null") return "null";
    return answer == "table" ? jsonString(answer) : answer;
}

// Every entry of the module, as its call record names it.
const std::vector<std::string>& entries() {
    static const std::vector<std::string> kEntries = {
            "open",
            "close",
            "get_activity_interface",
            "get_environment_interface",
            "register_activity_callbacks",
            "get_supported_activities_list",
            "enable_activity_event",
            "enable_activity_event_extend",
            "get_current_activity",
            "disable_activity_event",
            "flush",
            "register_environment_callbacks",
            "get_supported_environments_list",
            "init_environment",
            "exit_environment",
            "enable_environment",
            "disable_environment",
            "get_current_environment",
    };
    return kEntries;
}

Params paramsOf(const other_params& params) {
    Params p;
    for (int i = 0; i < 4; ++i) p.p[i] = params.params[i];
    p.x = std::string(params.extra, strnlen(params.extra, sizeof(params.extra)));
    return p;
}

void fill(other_params* out, const Params& params) {
    memset(out, 0, sizeof(*out));
    for (int i = 0; i < 4; ++i) out->params[i] = params.p[i];
    memcpy(out->extra, params.x.data(), std::min(params.x.size(), sizeof(out->extra)));
}

}  // namespace

ar_context_event toContextEvent(const Record& record) {
    ar_context_event event{};
    event.event_type = record.e;
    event.activity = record.a;
    event.timestamp = record.t;
    event.confidence = record.c;
    event.status = record.s;
    fill(&event.params, record.params);
    return event;
}

ModuleLayer::ModuleLayer(Trace* trace) : mTrace(trace) {}

void ModuleLayer::install() {
    for (const std::string& entry : entries()) sim::setHook(entry, [this] { flush(); });
}

void ModuleLayer::reset() {
    sim::reset();
    install();
    mSeen = 0;
    mResults.clear();
    mTables[0] = mTables[1] = true;
    mListCounts[0] = mListCounts[1] = mStateCounts[0] = mStateCounts[1] = 0;
}

bool ModuleLayer::isEntry(const std::string& entry) {
    const auto& all = entries();
    return std::find(all.begin(), all.end(), entry) != all.end();
}

bool ModuleLayer::hasResultCode(const std::string& entry) {
    return isEntry(entry) && entry != "close" && entry.compare(0, 4, "get_") != 0;
}

void ModuleLayer::flush() {
    std::vector<sim::Call> calls = sim::calls();
    for (; mSeen < calls.size(); ++mSeen) {
        const sim::Call& call = calls[mSeen];
        std::string args;
        bool unterminated = false;
        std::string json = "[";
        for (size_t i = 0; i < call.args.size(); ++i) {
            if (i > 0) {
                args += ", ";
                json += ",";
            }
            args += std::to_string(call.args[i]);
            json += std::to_string(call.args[i]);
        }
        if (call.hasParams) {
            Params params = paramsOf(call.params);
            args += std::string(args.empty() ? "" : ", ") + formatParams(params);
            json += std::string(call.args.empty() ? "" : ",") + paramsJson(params);
            // Exactly 32 bytes of text reach the module without a terminator.
            if (memchr(call.params.extra, '\0', sizeof(call.params.extra)) == nullptr) {
                unterminated = true;
            }
        }
        json += "]";
        std::string answer = answerOf(call.entry);
        Event event(Kind::kModule, unterminated ? "{entry}({args}) (x unterminated) -> {answer}"
                                                : "{entry}({args}) -> {answer}");
        event.subject = "module";
        event.name = call.entry;
        event.detail = call.entry + "(" + args + ")";
        event.addString("entry", call.entry)
                .add("args", args, json)
                .add("answer", answer, answerJson(answer));
        mTrace->emit(std::move(event));
    }
}

std::string ModuleLayer::answerOf(const std::string& entry) {
    if (entry == "get_activity_interface") return mTables[0] ? "table" : "null";
    if (entry == "get_environment_interface") return mTables[1] ? "table" : "null";
    if (entry == "get_supported_activities_list") return std::to_string(mListCounts[0]);
    if (entry == "get_supported_environments_list") return std::to_string(mListCounts[1]);
    if (entry == "get_current_activity") return std::to_string(mStateCounts[0]);
    if (entry == "get_current_environment") return std::to_string(mStateCounts[1]);
    for (const auto& result : mResults) {
        if (result.first == entry) return std::to_string(result.second);
    }
    return "0";
}

void ModuleLayer::setResult(const std::string& entry, int result) {
    if (entry == "open") {
        sim::setOpenResult(result);
    } else {
        sim::setResult(entry, result);
    }
    for (auto& r : mResults) {
        if (r.first == entry) {
            r.second = result;
            return;
        }
    }
    mResults.emplace_back(entry, result);
}

void ModuleLayer::setTable(bool activity, bool available) {
    sim::setTableAvailable(activity ? sim::Side::kActivity : sim::Side::kEnvironment, available);
    mTables[activity ? 0 : 1] = available;
}

void ModuleLayer::setList(bool activity, const std::vector<std::string>& names, bool hasCount,
                          int count, bool null) {
    sim::ListAnswer answer;
    answer.names = names;
    if (hasCount) answer.count = count;
    answer.nullList = null;
    sim::setListAnswer(activity ? sim::Side::kActivity : sim::Side::kEnvironment, answer);
    mListCounts[activity ? 0 : 1] = hasCount ? count : static_cast<int>(names.size());
}

void ModuleLayer::setState(bool activity, const std::vector<Record>& records, bool hasCount,
                           int count, bool null) {
    sim::StateAnswer answer;
    for (const Record& r : records) {
        answer.records.push_back(toContextEvent(r));
    }
    if (hasCount) answer.count = count;
    answer.nullArray = null;
    sim::setStateAnswer(activity ? sim::Side::kActivity : sim::Side::kEnvironment, answer);
    mStateCounts[activity ? 0 : 1] = hasCount ? count : static_cast<int>(records.size());
}

bool ModuleLayer::report(Batch batch, const std::vector<Record>& records, int count, bool null,
                         int pid, bool noThreadState) {
    size_t size = std::max(records.size(), static_cast<size_t>(std::max(count, 0)));
    std::vector<activity_event> plain(size);
    std::vector<ar_context_event> extended(size);
    for (size_t i = 0; i < records.size(); ++i) {
        const Record& r = records[i];
        plain[i] = activity_event{r.e, r.a, r.t, r.c};
        extended[i] = toContextEvent(r);
    }
    bool delivered = false;
    sim::runOnModuleThread([&] {
        ::android::hardware::host::ScopedCallingIdentity identity(pid, kHostUid);
        ::android::hardware::host::setThreadStateAvailable(!noThreadState);
        switch (batch) {
            case Batch::kActivities:
                delivered = sim::reportActivities(null ? nullptr : plain.data(), count);
                break;
            case Batch::kExtended:
                delivered = sim::reportExtendedActivities(null ? nullptr : extended.data(), count);
                break;
            case Batch::kEnvironments:
                delivered = sim::reportEnvironments(null ? nullptr : extended.data(), count);
                break;
        }
        ::android::hardware::host::setThreadStateAvailable(true);
    });
    flush();
    return delivered;
}

}  // namespace arharness
