// Cost of the HAL's event fan-out and request merging, against the floor that delivery cannot
// avoid: per client call, one allocation of exactly that client's records, one write per record
// of its converted form (extended records, which carry a text, are converted once per batch and
// copied), one real call through the client's interface (the clients live in a translation unit
// of their own) and the log lines that the HAL must write. Figures are per record that the clients
// actually received.
//
// The HAL keeps process-wide state that only grows (registered processes, first-seen pids), so
// each benchmark configuration must run in a process of its own: scripts/run-benchmarks.sh does
// that and prints the ratios to the floor. Under callgrind (--collect-atstart=no) only the
// batches are counted, and their number is printed at exit.
#define LOG_TAG "AR_impl"

#include <android-base/properties.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <hwbinder/IPCThreadState.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <valgrind/callgrind.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

#include <string>
#include <vector>

#include "ActivityInterface.h"
#include "Passthrough.h"
#include "RecordingClient.h"
#include "simulated_legacy_module.h"
#include "simulated_zel_client.h"

namespace {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::host::ScopedCallingIdentity;
using ar::V1_1::implementation::ActivityInterface;
// The shared recording client, counting only: its calls are real calls (it is defined in a
// translation unit of its own) and cost the same in the HAL's cases and in the floors.
using ActivityClient = artest::RecordingClient;
using EnvironmentClient = artest::RecordingClient;
template <typename Client>
sp<Client> newClient() {
    return new Client(0, artest::Link::kLinked, Client::Keep::kCount);
}

constexpr int kFirstPid = 20000;
// A client with N open requests has enabled the first N pairs; pair p is activity p / 2, event
// type 1 + p % 2. Record i of a batch reports pair i % kReportedPairs.
constexpr int kReportedPairs = 10;
uint32_t pairActivity(int pair) {
    return static_cast<uint32_t>(pair / 2);
}
uint32_t pairType(int pair) {
    return 1u + static_cast<uint32_t>(pair % 2);
}

// --- logging -------------------------------------------------------------------------------
void dropLogger(const struct __android_logger_data*, const char*) {}

// With "--log=stderr" the host's own logger formats every line into a discarded stream; by
// default lines are dropped at the hook, which leaves the HAL's own cost.
void setUpLogging(bool toStderr) {
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    if (toStderr) {
        if (freopen("/dev/null", "w", stderr) == nullptr) perror("freopen");
        __android_log_set_logger(__android_log_stderr_logger);
    } else {
        __android_log_set_logger(dropLogger);
    }
}

// --- batches as callgrind counts them --------------------------------------------------------
size_t g_batchesCounted = 0;

// Under callgrind every batch is counted but the first of the process, which is run once more
// beforehand, uncounted, to warm up.
template <typename Batch>
void measured(Batch batch) {
    if (!RUNNING_ON_VALGRIND) {
        batch();
        return;
    }
    static bool warm = false;
    if (!warm) batch();
    warm = true;
    CALLGRIND_TOGGLE_COLLECT;
    batch();
    CALLGRIND_TOGGLE_COLLECT;
    ++g_batchesCounted;
}

// --- the service ---------------------------------------------------------------------------
struct Service {
    sp<ar::V1_1::IActivityRecognition> service;
    sp<ar::V1_1::IActivityInterface> activity;
    sp<ar::V1_1::IEnvironmentInterface> environment;
    std::vector<sp<ActivityClient>> activityClients;
    std::vector<sp<EnvironmentClient>> environmentClients10;
    std::vector<sp<EnvironmentClient>> environmentClients11;
};

Service& service() {
    static Service* s = [] {
        auto* s = new Service();
        // The client library is bound (its configuration routes no activity to it), so that
        // notifications arrive through the function the HAL registered with it.
        android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
        s->service = artest::fetchService();
        s->activity = s->service->getActivityInterfaceV1_1().withDefault(nullptr);
        s->environment = s->service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
        return s;
    }();
    return *s;
}

// Version 1.1 activity clients of distinct processes, each with `requests` open requests.
void ensureActivityClients(int count, int requests) {
    Service& s = service();
    while (static_cast<int>(s.activityClients.size()) < count) {
        ScopedCallingIdentity as(kFirstPid + static_cast<int>(s.activityClients.size()));
        sp<ActivityClient> client = newClient<ActivityClient>();
        s.activity->registerActivityCallbackV1_1(client);
        for (int pair = 0; pair < requests; ++pair) {
            s.activity->enableActivityEvent(pairActivity(pair), pairType(pair), 1000000000);
        }
        s.activityClients.push_back(client);
    }
}

void ensureEnvironmentClients(int count) {
    Service& s = service();
    while (static_cast<int>(s.environmentClients11.size()) < count) {
        ScopedCallingIdentity as(kFirstPid + static_cast<int>(s.environmentClients11.size()));
        sp<EnvironmentClient> v11 = newClient<EnvironmentClient>();
        sp<EnvironmentClient> v10 = newClient<EnvironmentClient>();
        s.environment->registerEnvironmentCallbackV1_1(v11);
        s.environment->registerEnvironmentCallback(v10);
        s.environmentClients11.push_back(v11);
        s.environmentClients10.push_back(v10);
    }
}

std::vector<activity_event> plainRecords(int count) {
    std::vector<activity_event> records(count);
    for (int i = 0; i < count; ++i) {
        records[i] = {.event_type = pairType(i % kReportedPairs),
                      .activity = pairActivity(i % kReportedPairs),
                      .timestamp = 1000 + i,
                      .confidence = i};
    }
    return records;
}

std::vector<ar_context_event> contextRecords(int count) {
    std::vector<ar_context_event> records(count);
    for (int i = 0; i < count; ++i) {
        ar_context_event& e = records[i];
        e.event_type = pairType(i % kReportedPairs);
        e.activity = pairActivity(i % kReportedPairs);
        e.timestamp = 1000 + i;
        e.confidence = i;
        e.status = 1;
        e.params.params[0] = 0.5;
        strcpy(e.params.extra, "benchmark");
    }
    return records;
}

// The positions of the records that a client with `requests` open requests receives.
std::vector<size_t> receivedRecords(int records, int requests) {
    std::vector<size_t> positions;
    for (int i = 0; i < records; ++i) {
        if (i % kReportedPairs < requests) positions.push_back(static_cast<size_t>(i));
    }
    return positions;
}

size_t activityReceived() {
    size_t total = 0;
    for (const auto& client : service().activityClients) total += client->received;
    return total;
}

size_t environmentReceived() {
    size_t total = 0;
    for (const auto& client : service().environmentClients11) total += client->received;
    for (const auto& client : service().environmentClients10) total += client->received;
    return total;
}

// Runs the batch for the benchmark's iterations and reports the cost per record received.
template <typename Batch>
void run(benchmark::State& state, size_t (*receivedSoFar)(), Batch batch) {
    const size_t before = receivedSoFar();
    for (auto _ : state) measured(batch);
    const double received = static_cast<double>(receivedSoFar() - before);
    state.counters["received"] = received / static_cast<double>(state.iterations());
    state.counters["ns_per_record"] =
            benchmark::Counter(received, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void label(benchmark::State& state, int records, int clients, int requests) {
    state.counters["records"] = records;
    state.counters["clients"] = clients;  // client calls per batch at most
    state.counters["requests"] = requests;
}

// A fresh vector of exactly the records at `positions`, each converted in place.
template <typename Hidl, typename Record, typename Convert>
hidl_vec<Hidl> convertedCopy(const std::vector<Record>& batch, const std::vector<size_t>& positions,
                             Convert convert) {
    hidl_vec<Hidl> out;
    out.resize(positions.size());
    for (size_t k = 0; k < positions.size(); ++k) out[k] = convert(batch[positions[k]]);
    return out;
}

// The floor of a plain delivery to every client: their records and the lines the HAL must log.
void plainFloor(const std::vector<activity_event>& batch, const std::vector<size_t>& positions,
                const std::vector<sp<ActivityClient>>& clients) {
    if (positions.empty()) return;
    for (const sp<ActivityClient>& client : clients) {
        const sp<ar::V1_1::IActivityChangedCallback> callback = client;
        callback
                ->onActivityChangedV1_1(convertedCopy<ar::V1_1::ActivityEventV1_1>(
                        batch, positions, ActivityInterface::convertAEToAEV1_1))
                .isOk();
        ALOGI("able to onActivityChangedV1_1");
    }
}

// --- activity fan-out ----------------------------------------------------------------------
void BM_ActivityPlain(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1), requests = state.range(2);
    ensureActivityClients(clients, requests);
    auto batch = plainRecords(records);
    run(state, activityReceived, [&] { simulated_legacy::reportActivities(batch.data(), records); });
    label(state, records, clients, requests);
}

void BM_ActivityPlainFloor(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1), requests = state.range(2);
    ensureActivityClients(clients, requests);
    auto batch = plainRecords(records);
    const std::vector<size_t> positions = receivedRecords(records, requests);
    const int pid = getpid();
    run(state, activityReceived, [&] {
        ALOGI("ActChangedCb start count[%d]", records);
        plainFloor(batch, positions, service().activityClients);
        ALOGI("ActChangedCb end, pid[%d]", pid);
    });
    label(state, records, clients, requests);
}

void BM_ActivityExtended(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureActivityClients(clients, 1);
    auto batch = contextRecords(records);
    run(state, activityReceived,
        [&] { simulated_legacy::reportExtendedActivities(batch.data(), records); });
    label(state, records, clients, 1);
}

// Extended records carry a text: converting them once per batch and copying the result for each
// call is cheaper than converting them for each call, so that is the floor.
template <typename Record, typename Convert>
auto convertOnce(const std::vector<Record>& batch, Convert convert) {
    std::vector<decltype(convert(batch[0]))> converted;
    converted.reserve(batch.size());
    for (const Record& record : batch) converted.push_back(convert(record));
    return converted;
}

void BM_ActivityExtendedFloor(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureActivityClients(clients, 1);
    auto batch = contextRecords(records);
    run(state, activityReceived, [&] {
        const auto converted = convertOnce(batch, ActivityInterface::convertACEToAEEV1_1);
        for (const sp<ActivityClient>& client : service().activityClients) {
            const sp<ar::V1_1::IActivityChangedCallback> callback = client;
            callback->onActivityExtendChangedV1_1(hidl_vec(converted)).isOk();
        }
    });
    label(state, records, clients, 1);
}

// --- client-library notifications ----------------------------------------------------------
// The library's records go through the same matching and fan-out as the legacy module's; the
// notification function that the HAL registered with the library is called in place, as the
// library's own thread would call it.
void BM_ZelNotify(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1), requests = state.range(2);
    ensureActivityClients(clients, requests);
    auto data = simulated_zel::pack(plainRecords(records));
    const int32_t bytes = records * static_cast<int32_t>(sizeof(activity_event));
    const simulated_zel::NotifyFunction notify = simulated_zel::registeredNotification();
    if (notify == nullptr) {
        state.SkipWithError("no notification function registered with the client library");
        return;
    }
    run(state, activityReceived, [&] { notify(0, bytes, data); });
    label(state, records, clients, requests);
}

// The records read out of the library's storage and each logged, then the plain floor.
void BM_ZelNotifyFloor(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1), requests = state.range(2);
    ensureActivityClients(clients, requests);
    auto data = simulated_zel::pack(plainRecords(records));
    const std::vector<size_t> positions = receivedRecords(records, requests);
    const int pid = getpid();
    const int32_t status = 0;
    std::vector<activity_event> batch(records);
    run(state, activityReceived, [&] {
        memcpy(batch.data(), data.data(), batch.size() * sizeof(activity_event));
        for (int i = 0; i < records; ++i) {
            ALOGI("%s: [ZEL]AR_REPORT_EVENT: [%d] e: %d, a:%d, t:%ld, c:%d, arStatus: %d",
                  "ZelNotify", i, batch[i].event_type, batch[i].activity, batch[i].timestamp,
                  batch[i].confidence, status);
        }
        ALOGI("%s: [ZEL]PackageNamePush, events size:%d, eventDataFit size:%ld", "ZelNotify",
              records, static_cast<long>(positions.size() * service().activityClients.size()));
        plainFloor(batch, positions, service().activityClients);
        ALOGI("%s: [ZEL]Notify end, pid[%d]", "ZelNotify", pid);
    });
    label(state, records, clients, requests);
}

// --- environment fan-out (clients of each version) -----------------------------------------
void BM_Environment(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureEnvironmentClients(clients);
    auto batch = contextRecords(records);
    run(state, environmentReceived,
        [&] { simulated_legacy::reportEnvironments(batch.data(), records); });
    label(state, records, 2 * clients, 0);
}

void BM_EnvironmentFloor(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureEnvironmentClients(clients);
    auto batch = contextRecords(records);
    Service& s = service();
    run(state, environmentReceived, [&] {
        const auto v11 = convertOnce(batch, ActivityInterface::convertACEToAEEV1_1);
        const auto v10 = convertOnce(batch, ActivityInterface::convertACEToAEEV1_0);
        for (const sp<EnvironmentClient>& client : s.environmentClients11) {
            const sp<ar::V1_1::IEnvironmentChangedCallback> callback = client;
            callback->onEnvironmentChangedV1_1(hidl_vec(v11)).isOk();
        }
        for (const sp<EnvironmentClient>& client : s.environmentClients10) {
            const sp<ar::V1_0::IEnvironmentChangedCallback> callback = client;
            callback->onEnvironmentChanged(hidl_vec(v10)).isOk();
        }
    });
    label(state, records, 2 * clients, 0);
}

// --- request merging -----------------------------------------------------------------------
// One client enables and disables one pair while `others` requests of other processes are open.
void BM_EnableDisable(benchmark::State& state) {
    const int others = state.range(0);
    Service& s = service();
    for (int i = 0; i < others; ++i) {
        ScopedCallingIdentity as(kFirstPid + 1 + i);
        s.activity->enableActivityEvent(100 + i % 16, 1 + i % 2, 1000000000);
    }
    ScopedCallingIdentity as(kFirstPid);
    for (auto _ : state) {
        measured([&] {
            s.activity->enableActivityEvent(1, 1, 2000000000);
            s.activity->disableActivityEvent(1, 1);
        });
    }
    state.counters["others"] = others;
}

// Records x clients (x open requests per client for the matched cases).
const std::vector<int64_t> kRecords = {1, 16, 192};
const std::vector<int64_t> kClients = {1, 4, 16, 64};
const std::vector<int64_t> kRequests = {1, 10, 100};

BENCHMARK(BM_ActivityPlain)->ArgsProduct({kRecords, kClients, kRequests});
BENCHMARK(BM_ActivityPlainFloor)->ArgsProduct({kRecords, kClients, kRequests});
BENCHMARK(BM_ActivityExtended)->ArgsProduct({kRecords, kClients});
BENCHMARK(BM_ActivityExtendedFloor)->ArgsProduct({kRecords, kClients});
BENCHMARK(BM_Environment)->ArgsProduct({kRecords, kClients});
BENCHMARK(BM_EnvironmentFloor)->ArgsProduct({kRecords, kClients});
BENCHMARK(BM_ZelNotify)->ArgsProduct({{1, 192}, {4, 64}, {10}});
BENCHMARK(BM_ZelNotifyFloor)->ArgsProduct({{1, 192}, {4, 64}, {10}});
BENCHMARK(BM_EnableDisable)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

}  // namespace

int main(int argc, char** argv) {
    bool toStderr = false;
    std::vector<char*> args;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--log=stderr") == 0) {
            toStderr = true;
        } else {
            args.push_back(argv[i]);
        }
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    setUpLogging(toStderr);
    // The client library is bound (it handles no activity) so that its notifications can be
    // measured.
    android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
    simulated_zel::setConfigMask(0);
    // The simulated module records every call; keep that record from growing without bound.
    simulated_legacy::setRecording(false);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (RUNNING_ON_VALGRIND) fprintf(stderr, "batches counted: %zu\n", g_batchesCounted);
    return 0;
}
