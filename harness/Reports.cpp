// Batches that the lower layers report from their own threads.
#include <string.h>

#include <algorithm>

#include "Runner.h"

namespace arharness {

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

}  // namespace arharness
