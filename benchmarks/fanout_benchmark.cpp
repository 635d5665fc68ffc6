// Cost of the HAL's event fan-out and request merging, against the floor that delivery cannot
// avoid (one converted vector per batch, one freshly allocated copy per client call).
//
// The HAL keeps process-wide state that only grows (registered processes, first-seen pids), so
// each benchmark configuration must run in a process of its own: scripts/run-benchmarks.sh does
// that and prints the ratios to the floor.
#include <android-base/properties.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <hwbinder/IPCThreadState.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>

#include <string>
#include <vector>

#include "ActivityInterface.h"
#include "ActivityTestSupport.h"
#include "Passthrough.h"
#include "simulated_legacy_module.h"
#include "simulated_zel_client.h"

namespace {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hardware::host::ScopedCallingIdentity;
using ar::V1_1::implementation::ActivityInterface;

constexpr int kFirstPid = 20000;
constexpr uint32_t kActivities = 8;  // pairs: activities 0..7 x event types 1 and 2

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

// --- clients -------------------------------------------------------------------------------
struct ActivityClient : public ar::V1_1::IActivityChangedCallback {
    size_t received = 0;
    Return<void> onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& e) override {
        received += e.size();
        return Void();
    }
    Return<void> onActivityExtendChangedV1_0(
            const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override {
        received += e.size();
        return Void();
    }
    Return<void> onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& e) override {
        received += e.size();
        return Void();
    }
    Return<void> onActivityExtendChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override {
        received += e.size();
        return Void();
    }
};

struct EnvironmentClient : public ar::V1_1::IEnvironmentChangedCallback {
    size_t received = 0;
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override {
        received += e.size();
        return Void();
    }
    Return<void> onEnvironmentChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override {
        received += e.size();
        return Void();
    }
};

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
        s->service = artest::fetchService();
        s->activity = s->service->getActivityInterfaceV1_1().withDefault(nullptr);
        s->environment = s->service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
        return s;
    }();
    return *s;
}

// Version 1.1 activity clients of distinct processes, each enabling every reported pair.
void ensureActivityClients(int count) {
    Service& s = service();
    while (static_cast<int>(s.activityClients.size()) < count) {
        ScopedCallingIdentity as(kFirstPid + static_cast<int>(s.activityClients.size()));
        sp<ActivityClient> client = new ActivityClient();
        s.activity->registerActivityCallbackV1_1(client);
        for (uint32_t activity = 0; activity < kActivities; ++activity) {
            for (uint32_t type = 1; type <= 2; ++type) {
                s.activity->enableActivityEvent(activity, type, 1000000000);
            }
        }
        s.activityClients.push_back(client);
    }
}

void ensureEnvironmentClients(int count) {
    Service& s = service();
    while (static_cast<int>(s.environmentClients11.size()) < count) {
        ScopedCallingIdentity as(kFirstPid + static_cast<int>(s.environmentClients11.size()));
        sp<EnvironmentClient> v11 = new EnvironmentClient();
        sp<EnvironmentClient> v10 = new EnvironmentClient();
        s.environment->registerEnvironmentCallbackV1_1(v11);
        s.environment->registerEnvironmentCallback(v10);
        s.environmentClients11.push_back(v11);
        s.environmentClients10.push_back(v10);
    }
}

std::vector<activity_event> plainRecords(int count) {
    std::vector<activity_event> records(count);
    for (int i = 0; i < count; ++i) {
        records[i] = {.event_type = 1u + i % 2,
                      .activity = static_cast<uint32_t>(i / 2) % kActivities,
                      .timestamp = 1000 + i,
                      .confidence = i};
    }
    return records;
}

std::vector<ar_context_event> contextRecords(int count) {
    std::vector<ar_context_event> records(count);
    for (int i = 0; i < count; ++i) {
        ar_context_event& e = records[i];
        e.event_type = 1u + i % 2;
        e.activity = static_cast<uint32_t>(i / 2) % kActivities;
        e.timestamp = 1000 + i;
        e.confidence = i;
        e.status = 1;
        e.params.params[0] = 0.5;
        strcpy(e.params.extra, "benchmark");
    }
    return records;
}

void reportPerRecord(benchmark::State& state, int records, int clients) {
    state.counters["clients"] = clients;  // client calls per batch
    state.counters["records"] = records;
    state.counters["ns_per_record"] = benchmark::Counter(
            static_cast<double>(records) * clients,
            benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// One legacy record list converted to its HIDL form, as delivery must do once per batch.
template <typename Record, typename Convert>
auto convertAll(const std::vector<Record>& batch, Convert convert) {
    std::vector<decltype(convert(batch[0]))> converted;
    converted.reserve(batch.size());
    for (const Record& record : batch) converted.push_back(convert(record));
    return converted;
}

// A freshly allocated copy of the converted list for every client call.
template <typename Hidl, typename Client, typename Call>
void deliverCopies(const std::vector<sp<Client>>& clients, const std::vector<Hidl>& converted,
                   Call call) {
    for (const auto& client : clients) call(*client, hidl_vec<Hidl>(converted));
}

// --- activity fan-out ----------------------------------------------------------------------
void BM_ActivityPlain(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureActivityClients(clients);
    auto batch = plainRecords(records);
    for (auto _ : state) simulated_legacy::reportActivities(batch.data(), records);
    reportPerRecord(state, records, clients);
}

void BM_ActivityPlainFloor(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureActivityClients(clients);
    auto batch = plainRecords(records);
    for (auto _ : state) {
        deliverCopies(
                service().activityClients, convertAll(batch, ActivityInterface::convertAEToAEV1_1),
                [](auto& client, const auto& events) { client.onActivityChangedV1_1(events); });
    }
    reportPerRecord(state, records, clients);
}

void BM_ActivityExtended(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureActivityClients(clients);
    auto batch = contextRecords(records);
    for (auto _ : state) simulated_legacy::reportExtendedActivities(batch.data(), records);
    reportPerRecord(state, records, clients);
}

void BM_ActivityExtendedFloor(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureActivityClients(clients);
    auto batch = contextRecords(records);
    for (auto _ : state) {
        deliverCopies(service().activityClients,
                      convertAll(batch, ActivityInterface::convertACEToAEEV1_1),
                      [](auto& client, const auto& events) {
                          client.onActivityExtendChangedV1_1(events);
                      });
    }
    reportPerRecord(state, records, clients);
}

// --- client-library notifications ----------------------------------------------------------
// The library's records go through the same matching and fan-out as the legacy module's; the
// notification function is called directly, as the library's own thread would.
void BM_ZelNotify(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureActivityClients(clients);
    auto data = simulated_zel::pack(plainRecords(records));
    const int32_t bytes = records * static_cast<int32_t>(sizeof(activity_event));
    for (auto _ : state) artest::Peer::zelNotify(0, bytes, data);
    reportPerRecord(state, records, clients);
}

// --- environment fan-out (clients of each version) -----------------------------------------
void BM_Environment(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureEnvironmentClients(clients);
    auto batch = contextRecords(records);
    for (auto _ : state) simulated_legacy::reportEnvironments(batch.data(), records);
    reportPerRecord(state, records, 2 * clients);
}

void BM_EnvironmentFloor(benchmark::State& state) {
    const int records = state.range(0), clients = state.range(1);
    ensureEnvironmentClients(clients);
    auto batch = contextRecords(records);
    for (auto _ : state) {
        auto v11 = convertAll(batch, ActivityInterface::convertACEToAEEV1_1);
        auto v10 = convertAll(batch, ActivityInterface::convertACEToAEEV1_0);
        deliverCopies(service().environmentClients11, v11, [](auto& client, const auto& events) {
            client.onEnvironmentChangedV1_1(events);
        });
        deliverCopies(service().environmentClients10, v10, [](auto& client, const auto& events) {
            client.onEnvironmentChanged(events);
        });
    }
    reportPerRecord(state, records, 2 * clients);
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
        s.activity->enableActivityEvent(1, 1, 2000000000);
        s.activity->disableActivityEvent(1, 1);
    }
    state.counters["others"] = others;
}

void fanoutArgs(benchmark::internal::Benchmark* b) {
    for (int clients : {1, 4, 16, 64}) {
        for (int records : {1, 16, 192}) b->Args({records, clients});
    }
}

BENCHMARK(BM_ActivityPlain)->Apply(fanoutArgs);
BENCHMARK(BM_ActivityPlainFloor)->Apply(fanoutArgs);
BENCHMARK(BM_ActivityExtended)->Apply(fanoutArgs);
BENCHMARK(BM_ActivityExtendedFloor)->Apply(fanoutArgs);
BENCHMARK(BM_Environment)->Apply(fanoutArgs);
BENCHMARK(BM_EnvironmentFloor)->Apply(fanoutArgs);
BENCHMARK(BM_ZelNotify)->ArgsProduct({{1, 192}, {4, 64}});
BENCHMARK(BM_ActivityPlainFloor)->Name("BM_ZelNotifyFloor")->ArgsProduct({{1, 192}, {4, 64}});
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
    return 0;
}
