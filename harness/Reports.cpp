// Batches that the lower layers report from their own threads.
#include <string.h>

#include <algorithm>

#include "Runner.h"

namespace arharness {
namespace {

// The batch's records, as many times over as it repeats them.
std::vector<Record> repeated(const BatchOptions& batch) {
    std::vector<Record> records;
    for (int32_t r = 0; r < batch.repeat; ++r) {
        records.insert(records.end(), batch.records.begin(), batch.records.end());
    }
    return records;
}

// A batch as its text line shows it: the first records, and how many there are in all.
std::string shownRecords(const Trace& trace, const std::vector<Record>& records, Fields fields) {
    std::vector<Record> shown = trace.shownRecords(records);
    std::string text = formatRecords(shown, fields);
    if (shown.size() < records.size()) {
        text.insert(text.size() - 1, Trace::moreRecords(records.size()));
    }
    return text;
}

// A report's records (`shown` in the line; none with null) and the identity of its thread.
Event& addRecords(Event& event, const BatchOptions& batch, const std::vector<Record>& records,
                  Fields fields, const std::string& shown) {
    return event.add("records", batch.null ? "null" : shown,
                     batch.null ? "null" : recordsJson(records, fields));
}

Event& addIdentity(Event& event, const BatchOptions& batch) {
    std::string pid = std::to_string(batch.pid);
    return batch.noState ? event.add("pid", "no thread state", "null")
                         : event.add("pid", "pid " + pid, pid);
}

}  // namespace

// module report activities|extended|environments [RECORD...] [count=N] [repeat=N] [null]
// [as=PID] [nostate]
bool Runner::moduleReport(const Args& args) {
    static const struct {
        const char* name;
        ModuleLayer::Batch batch;
        Fields fields;
        const char* slot;
    } kKinds[] = {
            {"activities", ModuleLayer::Batch::kActivities, Fields::kShortC, "activity_changed"},
            {"extended", ModuleLayer::Batch::kExtended, Fields::kLongC, "activity_extend_changed"},
            {"environments", ModuleLayer::Batch::kEnvironments, Fields::kLongC,
             "environment_changed"}};
    if (args.size() < 3) return failUsage();
    auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                             [&](const auto& k) { return args[2] == k.name; });
    if (kind == std::end(kKinds)) {
        return fail("module report takes activities, extended or environments, not '" + args[2] +
                    "'");
    }
    BatchOptions batch;
    batch.pid = kHostPid;
    std::string error;
    if (!parseBatchOptions(args, 3, "count= repeat= null as= nostate", kind->fields, false, &batch,
                           &error)) {
        return fail(error);
    }
    std::vector<Record> records = repeated(batch);
    if (!batch.hasCount) batch.count = static_cast<int32_t>(records.size());
    std::string shown = shownRecords(*mTrace, records, kind->fields);
    Event event(Kind::kReport, "{layer} {slot}({records}, {count}) from the module thread, {pid}");
    event.subject = "module";
    event.name = kind->slot;
    event.addString("layer", "module").addString("slot", kind->slot);
    addRecords(event, batch, records, kind->fields, shown).addNumber("count", batch.count);
    mTrace->emit(std::move(addIdentity(event, batch)));
    if (!mModule->report(kind->batch, records, batch.count, batch.null, batch.pid, batch.noState)) {
        note(Kind::kNote, std::string("the HAL registered no ") +
                                  (kind->batch == ModuleLayer::Batch::kEnvironments ? "environment"
                                                                                    : "activity") +
                                  " callbacks with the module: nothing was reported");
    }
    return true;
}

// zel notify [RECORD...] [status=N] [bytes=N] [repeat=N] [null] [as=PID] [nostate]
bool Runner::zelNotify(const Args& args) {
    BatchOptions batch;
    batch.pid = kHostPid;
    std::string error;
    if (!loadZel(true)) return false;
    if (!parseBatchOptions(args, 2, "status= bytes= repeat= null as= nostate", Fields::kShortC,
                           false, &batch, &error)) {
        return fail(error);
    }
    std::vector<Record> records = repeated(batch);
    std::vector<activity_event> events;
    for (const Record& r : records) events.push_back(activity_event{r.e, r.a, r.t, r.c});
    size_t size = events.size() * sizeof(activity_event);
    if (!batch.hasBytes) batch.bytes = static_cast<int32_t>(size);
    // The storage always covers the byte length it is sent with; `null` sends none at all.
    std::vector<int32_t> data;
    if (!batch.null) {
        data.assign(
                std::max(size, static_cast<size_t>(std::max(batch.bytes, 0))) / sizeof(int32_t) + 1,
                0);
        if (size > 0) memcpy(data.data(), events.data(), size);
    }
    std::string shown = shownRecords(*mTrace, records, Fields::kShortC);
    Event event(Kind::kReport,
                "{layer} ZelNotify({status}, {bytes}, {records}) from the library's thread, {pid}");
    event.subject = "zel";
    event.name = "ZelNotify";
    event.addString("layer", "zel").addNumber("status", batch.status).addNumber("bytes", batch.bytes);
    addRecords(event, batch, records, Fields::kShortC, shown);
    mTrace->emit(std::move(addIdentity(event, batch)));
    if (!mZel->control()->notify(batch.status, batch.bytes, data, batch.pid, !batch.noState)) {
        note(Kind::kNote,
             "the HAL registered no notification function with the client library: nothing was "
             "reported");
    }
    return true;
}

}  // namespace arharness
