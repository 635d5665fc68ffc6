// Load and faults: binder threads of many processes register, enable, disable and query while the
// legacy module's and the client library's threads report batches, processes die at random,
// clients fail their calls, lower-layer calls fail and malformed batches are mixed in. Some
// processes die while a batch is being delivered to them: the delivery fails and the death notice
// arrives on another thread meanwhile. Every call takes its own references to the interfaces and
// drops them on its binder thread, and only the HAL holds registered callbacks, so they are freed
// wherever it lets them go. Bounded in iterations and time. At the end only observable effects
// are checked: deliveries, calls that reached the lower layers.
//
// Some state of the HAL is used without a lock by design: what carries no lock annotation in
// impl/ActivityInterface.h (the native list, the client library's list and binding, the shared
// recipient's creation) and what is reached through its *WithoutLock accessors (the last-event
// list on disable, the recipient lookup on death). The test itself keeps calls that touch them
// from running at once: every call that changes registrations or requests holds `gModel` exclusively;
// batches, queries and the death notices of processes that died in a delivery hold it shared.
#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>
#include <stdio.h>
#include <string.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <shared_mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "Passthrough.h"
#include "RecordingClient.h"
#include "simulated_legacy_module.h"
#include "simulated_zel_client.h"

namespace {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::Void;
using ::android::hardware::host::ScopedCallingIdentity;

constexpr int kProcesses = 10;
constexpr int kFirstPid = 3000;
constexpr int kSweepPid = 2999;
constexpr int kBinderThreads = 3;
constexpr int kOpsPerThread = 1200;
constexpr int kBatches = 250;
constexpr auto kTimeLimit = std::chrono::seconds(20);
// Pairs (activity, event type): activities 0..5, types 1 and 2; activities 2 and 3 belong to the
// client library.
constexpr int kPairs = 12;
constexpr uint32_t kLibraryMask = 0xc;
constexpr auto pairActivity = [](int pair) -> uint32_t { return pair / 2; };
constexpr auto pairType = [](int pair) -> uint32_t { return 1 + pair % 2; };

using artest::Received;
using artest::RecordingClient;

// Timestamps of the plain events a client received (1.1 or 1.0), in order.
std::vector<int64_t> plainTimestamps(const Received& got) {
    std::vector<int64_t> out;
    for (const auto& batch : got.v11)
        for (const auto& e : batch) out.push_back(e.timestamp);
    for (const auto& batch : got.v10)
        for (const auto& e : batch) out.push_back(e.timestamp);
    return out;
}

// The first timestamp of each extended or environment batch a client received, in order (a client
// is registered under one kind only).
std::vector<int64_t> batchIds(const Received& got) {
    std::vector<int64_t> out;
    auto firsts = [&out](const auto& batches) {
        for (const auto& batch : batches)
            if (!batch.empty()) out.push_back(batch[0].timestamp);
    };
    firsts(got.ext11);
    firsts(got.ext10);
    firsts(got.env11);
    firsts(got.env10);
    return out;
}

// A registration the HAL holds: the test keeps only a weak reference to the object, so the HAL
// releases the last one when it replaces the callback or hears of its death.
struct Slot {
    wp<RecordingClient> callback;
    std::shared_ptr<Received> got;
};

// What the test knows of one process: its registered callbacks and its open requests.
struct Process {
    Slot activity10, activity11, environment10, environment11;
    std::set<int> open;             // pairs
    std::array<Slot*, 4> slots() {  // by Role
        return {&activity10, &activity11, &environment10, &environment11};
    }
};

enum Role { kActivity10, kActivity11, kEnvironment10, kEnvironment11 };

struct Figures {
    std::atomic<int> operations{0}, plainBatches{0}, libraryBatches{0}, extendedBatches{0},
            environmentBatches{0}, malformed{0}, deaths{0};
};

class LoadTest : public ::testing::Test {
  protected:
    void SetUp() override {
        android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
        simulated_zel::setConfigMask(kLibraryMask);
        service = artest::fetchService();
        ASSERT_NE(nullptr, service);
        ASSERT_NE(nullptr, activity());
        ASSERT_NE(nullptr, environment());
    }
    // A reference of the caller's own, dropped at the end of its call.
    sp<ar::V1_1::IActivityInterface> activity() {
        return service->getActivityInterfaceV1_1().withDefault(nullptr);
    }
    sp<ar::V1_1::IEnvironmentInterface> environment() {
        return service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
    }

    // --- binder threads (each call acts as the chosen process) ------------------------------
    void binderThread(unsigned seed);
    void registerCallback(int p, Role role, std::mt19937& rng);
    void enable(int p, int pair, std::mt19937& rng);
    void disable(int p, int pair);
    void kill(int p, bool inDelivery);
    void deathThread();

    // --- reporting threads -------------------------------------------------------------------
    void legacyThread(unsigned seed);
    void libraryThread(unsigned seed);
    bool paced(int batch);
    void expectPlain(const std::vector<activity_event>& events);
    void expectWhole(int64_t id, bool environmentSide);

    artest::LogCapture log;  // keeps the log quiet and cheap: lines are captured, not printed
    sp<ar::V1_1::IActivityRecognition> service;

    std::shared_mutex gModel;
    Process processes[kProcesses];
    std::vector<std::shared_ptr<Received>> everyReceived;
    std::mutex expectLock;
    std::map<Received*, std::vector<int64_t>> expectedPlain, expectedBatches;
    std::set<const Received*> diedMidBatch;  // clients whose process died in a delivery
    // Processes that a callback killed from inside a delivery, for the death-notice thread.
    std::mutex deathLock;
    std::condition_variable deathQueued;
    std::vector<int> deathQueue;
    bool reportsDone = false;
    std::atomic<int64_t> nextTimestamp{1};
    Figures figures;
    std::chrono::steady_clock::time_point deadline;
    std::atomic<int> bindersRunning{kBinderThreads};
};

void LoadTest::registerCallback(int p, Role role, std::mt19937& rng) {
    Slot& slot = *processes[p].slots()[role];
    // Now and then a process hands in a new object where one is registered (replace or refuse).
    if (slot.got != nullptr && rng() % 4 != 0) return;
    std::function<void()> dieInDelivery;
    if (rng() % 8 == 0) {
        dieInDelivery = [this, p] {
            std::lock_guard<std::mutex> guard(deathLock);
            deathQueue.push_back(p);
            deathQueued.notify_one();
        };
    }
    const bool failing = rng() % 5 == 0, refuseLink = rng() % 10 == 0;
    sp<RecordingClient> callback = new RecordingClient(
            kFirstPid + p, refuseLink ? artest::Link::kRefused : artest::Link::kLinked);
    callback->failing = failing;
    // A process that dies in a delivery fails that call and every later one.
    if (dieInDelivery) {
        RecordingClient* client = callback.get();  // the observer lives and dies with the client
        callback->observer = [client, die = std::move(dieInDelivery)](RecordingClient::Call call,
                                                                      size_t) mutable {
            if (call == RecordingClient::Call::kLink || call == RecordingClient::Call::kUnlink ||
                !die) {
                return;
            }
            die();
            die = nullptr;
            client->failing = true;
        };
    }
    everyReceived.push_back(callback->got);
    const Slot registered = refuseLink ? Slot() : Slot{callback, callback->got};
    if (role == kActivity10) activity()->registerActivityCallback(callback);
    if (role == kActivity11) activity()->registerActivityCallbackV1_1(callback);
    if (role == kEnvironment10) environment()->registerEnvironmentCallback(callback);
    if (role == kEnvironment11) environment()->registerEnvironmentCallbackV1_1(callback);
    // A process keeps its first registration of each kind, but a 1.1 activity registration replaces
    // the process's entry; a refused link adds nothing (and leaves a replaced 1.1 entry with none).
    if (role == kActivity11 || slot.got == nullptr) slot = registered;
}

void LoadTest::enable(int p, int pair, std::mt19937& rng) {
    const uint32_t a = pairActivity(pair), t = pairType(pair);
    const bool library = (kLibraryMask >> a) & 1;
    // One call in eight fails below: the legacy entry or the library's command.
    const bool fail = rng() % 8 == 0;
    if (fail) {
        if (library) {
            simulated_zel::setCommandResult("ar-on", -1);
        } else {
            simulated_legacy::setResult("enable_activity_event", 1);
            simulated_legacy::setResult("enable_activity_event_extend", 1);
        }
    }
    int32_t result;
    if (rng() % 3 == 0) {
        ar::V1_0::OtherParams params;
        params.params[0] = rng() % 2 ? 1.0 : 0.5;  // the no-wake pattern, or an ordinary one
        params.extra = std::string(rng() % 33, 'x');
        result = activity()->enableActivityEventExtend(a, t, 1000000000LL * (1 + rng() % 5), params);
    } else {
        result = activity()->enableActivityEvent(a, t, 1000000000LL * (1 + rng() % 5));
    }
    if (fail) {
        simulated_zel::setCommandResult("ar-on", 0);
        simulated_legacy::setResult("enable_activity_event", 0);
        simulated_legacy::setResult("enable_activity_event_extend", 0);
    }
    // A failed enable withdraws the request, also one that was open before.
    if (result == 0) {
        processes[p].open.insert(pair);
    } else {
        processes[p].open.erase(pair);
    }
}

void LoadTest::disable(int p, int pair) {
    activity()->disableActivityEvent(pairActivity(pair), pairType(pair));
    processes[p].open.erase(pair);
}

// Each recipient linked to a live callback of the process hears of its death, then the model
// forgets the process. The test holds no reference meanwhile: the HAL frees the callbacks.
void LoadTest::kill(int p, bool inDelivery) {
    Process& process = processes[p];
    std::vector<std::function<void()>> notices;
    for (Slot* slot : process.slots()) {
        if (sp<RecordingClient> callback = slot->callback.promote())
            notices.push_back(callback->obituary());
    }
    for (const auto& notice : notices) notice();
    std::lock_guard<std::mutex> guard(expectLock);  // batches read the model beside death notices
    // Only a live 1.1 registration takes the process's requests with it.
    if (process.activity11.got != nullptr) process.open.clear();
    for (Slot* slot : process.slots()) {
        if (inDelivery && slot->got != nullptr) diedMidBatch.insert(slot->got.get());
        *slot = Slot();
    }
    ++figures.deaths;
}

// Death notices of processes that died in a delivery arrive here while batches go on; they are
// kept apart from registrations, whose recipient list the death handling reads unlocked. The HAL
// forgets the process before the model does, so batches meanwhile may miss its callbacks.
void LoadTest::deathThread() {
    std::unique_lock<std::mutex> queue(deathLock);
    for (;;) {
        deathQueued.wait(queue, [this] { return reportsDone || !deathQueue.empty(); });
        if (deathQueue.empty()) return;
        const int p = deathQueue.back();
        deathQueue.pop_back();
        queue.unlock();
        {
            std::shared_lock<std::shared_mutex> model(gModel);
            kill(p, true);
        }
        queue.lock();
    }
}

void LoadTest::binderThread(unsigned seed) {
    std::mt19937 rng(seed);
    for (int i = 0; i < kOpsPerThread && std::chrono::steady_clock::now() < deadline; ++i) {
        const int p = rng() % kProcesses;
        ScopedCallingIdentity as(kFirstPid + p);
        const int op = rng() % 40;
        ++figures.operations;
        if (op < 12) {
            std::unique_lock<std::shared_mutex> model(gModel);
            enable(p, rng() % kPairs, rng);
        } else if (op < 20) {
            std::unique_lock<std::shared_mutex> model(gModel);
            disable(p, rng() % kPairs);
        } else if (op < 28) {
            std::unique_lock<std::shared_mutex> model(gModel);
            registerCallback(p, static_cast<Role>(rng() % 4), rng);
        } else if (op < 31) {
            std::shared_lock<std::shared_mutex> model(gModel);
            activity()->getCurrentActivity([](const auto&) {});
            activity()->getCurrentActivityV1_1([](const auto&) {});
            activity()->getSupportedActivitiesList([](const auto&) {});
        } else if (op < 36) {
            ar::V1_0::OtherParams params;
            params.extra = "env";
            environment()->enableEnvironment(rng() % 4, 1, 1000000000, params);
            environment()->getCurrentEnvironmentV1_1([](const auto&) {});
            environment()->disableEnvironment(rng() % 4, 1);
        } else if (op < 39) {
            activity()->flush();
        } else {
            std::unique_lock<std::shared_mutex> model(gModel);
            kill(p, false);
        }
    }
}

// Spreads the batches over the binder threads' work: batch i waits for its share of operations.
bool LoadTest::paced(int batch) {
    while (bindersRunning > 0 &&
           figures.operations < batch * kBinderThreads * kOpsPerThread / kBatches) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return std::chrono::steady_clock::now() < deadline;
}

// Under the shared model lock: the registrations and requests the batch meets are fixed.
void LoadTest::expectPlain(const std::vector<activity_event>& events) {
    std::lock_guard<std::mutex> guard(expectLock);
    for (const activity_event& e : events) {
        if (e.event_type == 0) continue;
        for (const Process& process : processes) {
            if (process.activity11.got == nullptr) continue;
            for (int pair : process.open) {
                if (pairActivity(pair) == e.activity && pairType(pair) == e.event_type) {
                    expectedPlain[process.activity11.got.get()].push_back(e.timestamp);
                }
            }
        }
    }
}

void LoadTest::expectWhole(int64_t id, bool environmentSide) {
    std::lock_guard<std::mutex> guard(expectLock);
    for (Process& process : processes) {
        const int first = environmentSide ? kEnvironment10 : kActivity10;
        for (const Slot* slot : {process.slots()[first], process.slots()[first + 1]}) {
            if (slot->got != nullptr) expectedBatches[slot->got.get()].push_back(id);
        }
    }
}

std::vector<activity_event> makeEvents(std::mt19937& rng, std::atomic<int64_t>& timestamps,
                                       int count) {
    std::vector<activity_event> events(count);
    for (activity_event& e : events) {
        const int pair = rng() % kPairs;
        e = {.event_type = rng() % 10 == 0 ? 0u : pairType(pair),
             .activity = pairActivity(pair),
             .timestamp = timestamps++,
             .confidence = static_cast<int32_t>(rng() % 100)};
    }
    return events;
}

void LoadTest::legacyThread(unsigned seed) {
    std::mt19937 rng(seed);
    for (int i = 0; i < kBatches && paced(i); ++i) {
        std::shared_lock<std::shared_mutex> model(gModel);
        switch (rng() % 5) {
            case 0:
            case 1: {
                auto events = makeEvents(rng, nextTimestamp, 1 + rng() % 24);
                expectPlain(events);
                simulated_legacy::reportActivities(events.data(), events.size());
                ++figures.plainBatches;
                break;
            }
            case 2: {
                std::vector<ar_context_event> events(1 + rng() % 8);
                for (auto& e : events) e.timestamp = nextTimestamp++;
                expectWhole(events[0].timestamp, false);
                simulated_legacy::reportExtendedActivities(events.data(), events.size());
                ++figures.extendedBatches;
                break;
            }
            case 3: {
                std::vector<ar_context_event> events(1 + rng() % 8);
                for (auto& e : events) e.timestamp = nextTimestamp++;
                expectWhole(events[0].timestamp, true);
                simulated_legacy::reportEnvironments(events.data(), events.size());
                ++figures.environmentBatches;
                break;
            }
            default: {
                // Malformed: no records, too many, or no array.
                std::vector<activity_event> events(193);
                const int kind = rng() % 3;
                if (kind == 0) simulated_legacy::reportActivities(events.data(), 0);
                if (kind == 1) simulated_legacy::reportActivities(events.data(), 193);
                if (kind == 2) simulated_legacy::reportActivities(nullptr, 5);
                ar_context_event extended{};
                simulated_legacy::reportExtendedActivities(&extended, -1);
                simulated_legacy::reportEnvironments(nullptr, 1);
                ++figures.malformed;
                break;
            }
        }
    }
}

void LoadTest::libraryThread(unsigned seed) {
    std::mt19937 rng(seed);
    for (int i = 0; i < kBatches && paced(i); ++i) {
        std::shared_lock<std::shared_mutex> model(gModel);
        if (rng() % 6 == 0) {
            simulated_zel::notify(0, 0, simulated_zel::pack({}));
            ++figures.malformed;
            continue;
        }
        auto events = makeEvents(rng, nextTimestamp, 1 + rng() % 24);
        expectPlain(events);
        simulated_zel::notify(1, events.size() * sizeof(activity_event),
                              simulated_zel::pack(events));
        ++figures.libraryBatches;
    }
}

TEST_F(LoadTest, ManyProcessesEventsDeathsAndFaults) {
    deadline = std::chrono::steady_clock::now() + kTimeLimit;
    std::vector<std::thread> threads;
    for (int i = 0; i < kBinderThreads; ++i) {
        threads.emplace_back([this, i] {
            binderThread(100 + i);
            --bindersRunning;
        });
    }
    threads.emplace_back([this] { legacyThread(7); });
    threads.emplace_back([this] { libraryThread(11); });
    std::thread deaths([this] { deathThread(); });
    for (std::thread& thread : threads) thread.join();
    {
        std::lock_guard<std::mutex> guard(deathLock);
        reportsDone = true;
        deathQueued.notify_one();
    }
    deaths.join();

    // Every plain event that matched a live 1.1 client's open request reached it exactly once;
    // every extended and environment batch reached every client registered throughout it, in
    // order. A client whose process died in a delivery received no more than that.
    size_t deliveries = 0;
    for (const std::shared_ptr<Received>& got : everyReceived) {
        const bool died = diedMidBatch.count(got.get()) != 0;
        deliveries += plainTimestamps(*got).size() + batchIds(*got).size();
        for (bool plain : {false, true}) {
            auto& expected = plain ? expectedPlain : expectedBatches;
            if (plain && expected.count(got.get()) == 0) continue;
            std::vector<int64_t> want = expected[got.get()],
                                 have = plain ? plainTimestamps(*got) : batchIds(*got);
            if (plain || died) {
                std::sort(want.begin(), want.end());
                std::sort(have.begin(), have.end());
            }
            if (died) {
                EXPECT_TRUE(std::includes(want.begin(), want.end(), have.begin(), have.end()));
            } else {
                EXPECT_EQ(want, have);
            }
        }
    }

    // Every process withdraws every request it may hold (dead 1.0-only processes included);
    // then one more process switches every pair on and off again. Every pair ends off below.
    for (int p = 0; p < kProcesses; ++p) {
        ScopedCallingIdentity as(kFirstPid + p);
        for (int pair = 0; pair < kPairs; ++pair) disable(p, pair);
    }
    {
        ScopedCallingIdentity as(kSweepPid);
        for (int pair = 0; pair < kPairs; ++pair) {
            ASSERT_EQ(0, activity()->enableActivityEvent(pairActivity(pair), pairType(pair), 1));
            ASSERT_EQ(0, activity()->disableActivityEvent(pairActivity(pair), pairType(pair)));
        }
    }
    std::map<std::pair<int64_t, int64_t>, std::string> lastLegacy;
    for (const auto& call : simulated_legacy::calls()) {
        if (call.entry.find("_activity_event") != std::string::npos) {
            lastLegacy[{call.args[0], call.args[1]}] = call.entry;
        }
    }
    for (int pair = 0; pair < kPairs; ++pair) {
        const uint32_t a = pairActivity(pair), t = pairType(pair);
        if (((kLibraryMask >> a) & 1) == 0) {
            EXPECT_EQ("disable_activity_event", (lastLegacy[{a, t}])) << a << "," << t;
        }
    }
    std::set<std::string> libraryOn;  // "activity,type": each "ar-on" names every pair on
    for (const auto& command : simulated_zel::commands()) {
        if (command.name == "ar-off") libraryOn.erase(command.param);
        if (command.name != "ar-on") continue;
        libraryOn.clear();
        std::istringstream entries(command.param);
        for (std::string entry; std::getline(entries, entry, ';');) {
            libraryOn.insert(entry.substr(0, entry.find(',', entry.find(',') + 1)));
        }
    }
    EXPECT_EQ(std::set<std::string>{}, libraryOn);

    printf("load: %d operations, %d plain + %d client-library + %d extended + %d environment "
           "batches, %d malformed, %zu deliveries, %d deaths, %zu clients died in a delivery\n",
           figures.operations.load(), figures.plainBatches.load(), figures.libraryBatches.load(),
           figures.extendedBatches.load(), figures.environmentBatches.load(),
           figures.malformed.load(), deliveries, figures.deaths.load(), diedMidBatch.size());
}

}  // namespace
