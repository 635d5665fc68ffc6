// The environment interface: registration under both versions, death, the fan-out of batches,
// control calls and queries, and what each holds the client-map lock across. What a client sees
// of the common paths and the failures is in harness/scenarios/environment.scenario and
// scenarios/environment-calls.scenario.
#include <functional>
#include <mutex>
#include <thread>
#include <tuple>

#include "EnvironmentInterface.h"
#include "FailingNew.h"
#include "HalTest.h"

namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation {
struct EnvironmentInterfaceTestPeer {
    // Whether another thread (or this one) holds the client-map lock right now.
    static bool listLockHeld() {
        if (EnvironmentInterface::mListMutex.tryLock() != 0) return true;
        EnvironmentInterface::mListMutex.unlock();
        return false;
    }
};
}  // namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation

namespace {

using namespace artest;
using Env = ar::V1_1::implementation::EnvironmentInterface;
using Peer = ar::V1_1::implementation::EnvironmentInterfaceTestPeer;
using IEnv = ar::V1_1::IEnvironmentInterface;
using Params = ar::V1_0::OtherParams;
using simulated_legacy::Side;

constexpr char kTag[] = "AR_impl_Env";

// One delivery: the client, its version (10 or 11) and the number of records.
using Delivery = std::tuple<const void*, int, size_t>;
std::mutex gJournalLock;
std::vector<Delivery> gJournal;

// A client process's callback object; it notes whether the client-map lock was held in its calls,
// and journals its deliveries. Its unlinks fail: a failed unlink is ignored by the HAL.
struct Client : RecordingClient {
    Client() {
        failUnlink = true;
        observer = [this](Call call, size_t count) {
            const bool held = Peer::listLockHeld();
            if (call == Call::kLink) {
                lockedWhileLinking = held;
            } else if (call == Call::kUnlink) {
                lockedWhileUnlinking = held;
            } else {
                lockedInCalls = lockedInCalls && held;
                std::lock_guard<std::mutex> guard(gJournalLock);
                gJournal.emplace_back(this, call == Call::kEnvironmentV1_0 ? 10 : 11, count);
            }
        };
    }
    // The recipient and cookie of the last link, and the last recipient unlinked.
    sp<hidl_death_recipient> recipient() const {
        return links.empty() ? nullptr : links.back().first;
    }
    uint64_t cookie() const { return links.empty() ? 0 : links.back().second; }
    sp<hidl_death_recipient> lastUnlinked() const {
        return unlinked.empty() ? nullptr : unlinked.back();
    }
    void die() { recipient()->serviceDied(cookie(), wp<IBase>(base())); }

    bool lockedInCalls = true, lockedWhileLinking = false, lockedWhileUnlinking = true;
};

// A batch of `count` records (the fields' values are checked in the conversions' tests).
const ar_context_event* records() {
    static const std::vector<ar_context_event> all(193);
    return all.data();
}

class EnvironmentTest : public HalTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(HalTest::SetUp());
        env = service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
        ASSERT_NE(nullptr, env);
        simulated_legacy::clearCalls();
        log.clear();
    }
    void reg(int pid, const sp<Client>& client, int version) {
        ScopedCallingIdentity guard(pid);
        if (version == 10) {
            env->registerEnvironmentCallback(client);
        } else {
            env->registerEnvironmentCallbackV1_1(client);
        }
    }
    // The deliveries of one batch.
    std::vector<Delivery> report(int count, const ar_context_event* events = records()) {
        std::unique_lock<std::mutex> guard(gJournalLock);
        gJournal.clear();
        guard.unlock();
        simulated_legacy::reportEnvironments(events, count);
        guard.lock();
        return gJournal;
    }
    Lines lines() const { return log.withTag(kTag); }

    sp<IEnv> env;
};

// Registration under one version (10 or 11); in expected log lines "Vx" stands for its suffix.
class RegistrationTest : public EnvironmentTest, public ::testing::WithParamInterface<int> {
  protected:
    void reg(int pid, const sp<Client>& client) { EnvironmentTest::reg(pid, client, GetParam()); }
    Lines versioned(Lines expected) {
        for (std::string& line : expected) {
            size_t at = line.find("Vx");
            if (at != std::string::npos) line.replace(at, 2, GetParam() == 10 ? "V1_0" : "V1_1");
        }
        return expected;
    }
};

// Same object or same process: refused, whatever the other one is. Without a thread state the
// process is 1. Every client shares one recipient, linked under the lock.
TEST_P(RegistrationTest, OneRegistrationPerProcessSharingOneRecipient) {
    sp<Client> a = new Client, b = new Client, c = new Client, d = new Client;
    reg(100, a);
    reg(100, a);
    reg(200, a);
    reg(100, b);
    reg(200, c);
    ::android::hardware::host::setThreadStateAvailable(false);
    reg(300, d);
    reg(300, b);
    ::android::hardware::host::setThreadStateAvailable(true);
    const std::string linked = " link to EnvironmentInterfaceVx death notification successful, ";
    EXPECT_EQ(versioned({"3 Pid[100]" + linked + "total cb[1]",
                         "4 It's already register pid[100] callback, Vx",
                         "4 It's already register pid[200] callback, Vx",
                         "4 It's already register pid[100] callback, Vx",
                         "3 Pid[200]" + linked + "total cb[2]",
                         "6 IPCThreadState::self() Vx returns nullptr",
                         "3 Pid[1]" + linked + "total cb[3]",
                         "6 IPCThreadState::self() Vx returns nullptr",
                         "4 It's already register pid[1] callback, Vx"}),
              lines());
    EXPECT_EQ(100u, a->cookie());
    EXPECT_EQ(1u, d->cookie());
    EXPECT_EQ(a->recipient(), d->recipient());
    EXPECT_EQ(nullptr, b->recipient());
    EXPECT_TRUE(a->lockedWhileLinking);
    EXPECT_EQ(3u, report(1).size());
}

TEST_P(RegistrationTest, RecipientAllocationFailureRegistersNothing) {
    SKIP_WITHOUT_FAILING_NEW();
    failNextNothrowNew();
    reg(100, new Client);
    EXPECT_EQ(Lines{GetParam() == 10 ? "6 registerEnvironmentCallback new mDeathRecipient failed"
                                     : "6 registerEnvironmentCallbackV1_1 Death new failed"},
              lines());
    EXPECT_TRUE(report(1).empty());
}

INSTANTIATE_TEST_SUITE_P(Versions, RegistrationTest, ::testing::Values(10, 11),
                         [](const auto& info) { return "V" + std::to_string(info.param); });

// All 1.1 clients first, then all 1.0 ones, each in the order of the objects' addresses, under
// the lock.
TEST_F(EnvironmentTest, EveryClientGetsEveryBatchV1_1First) {
    EXPECT_TRUE(report(1).empty());
    EXPECT_TRUE(lines().empty());
    sp<Client> lo = new Client, hi = new Client;
    if (lo.get() > hi.get()) std::swap(lo, hi);
    reg(200, hi, 11);
    reg(100, lo, 11);
    reg(200, hi, 10);
    reg(100, lo, 10);
    EXPECT_EQ((std::vector<Delivery>{{lo.get(), 11, 192},
                                     {hi.get(), 11, 192},
                                     {lo.get(), 10, 192},
                                     {hi.get(), 10, 192}}),
              report(192));
    EXPECT_TRUE(lo->lockedInCalls && hi->lockedInCalls);
}

// Matching is by object; "finish" follows when the 1.0 map holds no match. The recipient is
// unlinked outside the lock; an unknown object, or one that is gone, changes nothing.
TEST_F(EnvironmentTest, Death) {
    sp<Client> both = new Client, other = new Client, stranger = new Client;
    reg(100, both, 11);
    reg(100, both, 10);
    reg(200, other, 11);
    wp<IBase> gone = sp<IBase>((new Client)->base());
    log.clear();
    both->die();
    other->recipient()->serviceDied(77, wp<IBase>(stranger->base()));
    other->recipient()->serviceDied(78, gone);
    other->recipient()->serviceDied(79, wp<IBase>());
    EXPECT_EQ(1u, report(1).size());
    EXPECT_EQ((Lines{"4 ENV serviceDied, cookie is 100",
                     "4 ######V1_1 ENV Match, remainder cb[1]!!!######",
                     "4 ######V1_0 ENV Match, remainder cb[0]!!!######",
                     "4 ENV serviceDied, cookie is 77", "4 finish",
                     "4 ENV serviceDied, cookie is 78", "6 Invalide IBase object, ENV", "4 finish",
                     "4 ENV serviceDied, cookie is 79", "6 Invalide IBase object, ENV", "4 finish"}),
              lines());
    EXPECT_EQ(both->recipient(), both->lastUnlinked());
    EXPECT_EQ(both->recipient(), stranger->lastUnlinked());
    EXPECT_FALSE(both->lockedWhileUnlinking);
}

// Run under ThreadSanitizer: registrations and deaths on two binder threads, batches from the
// module's thread.
TEST_F(EnvironmentTest, BatchesFromTheModuleThreadWhileClientsRegisterAndDie) {
    sp<Client> first = new Client;  // creates the shared recipient before the race
    reg(1, first, 11);
    std::thread module([] {
        simulated_legacy::runOnModuleThread([] {
            for (int i = 0; i < 200; ++i) simulated_legacy::reportEnvironments(records(), 4);
        });
    });
    std::vector<std::thread> binders;
    for (int t = 0; t < 2; ++t) {
        binders.emplace_back([this, t] {
            for (int i = 0; i < 50; ++i) {
                sp<Client> c = new Client;
                reg(1000 + 100 * t + i, c, i % 2 ? 10 : 11);
                c->die();
            }
        });
    }
    for (auto& b : binders) b.join();
    module.join();
    for (const auto& d : gJournal) EXPECT_EQ(4u, std::get<2>(d));
    EXPECT_EQ((std::vector<Delivery>{{first.get(), 11, 1}}), report(1));
}

TEST(EnvironmentInterfaceDeathTest, SecondInstanceAborts) {
    sp<Env> first = new Env(nullptr);
    EXPECT_DEATH(sp<Env>(new Env(nullptr)), "AR_impl_Env.*sInterfaceExists");
}

Params params(const std::string& extra) {
    return {{{1.5, -2.0, 0.0, 1e300}}, extra};
}

// The control calls: "init" is initEnvironment and the module's "init_environment".
struct Control {
    std::string name;
    std::vector<int64_t> args;
    bool hasParams;
    std::function<int32_t(IEnv&, const Params&)> call;
};
const std::vector<Control> kControls = {
        {"init", {7}, true, [](IEnv& e, const Params& p) { return e.initEnvironment(7, p); }},
        {"exit", {7}, true, [](IEnv& e, const Params& p) { return e.exitEnvironment(7, p); }},
        {"enable",
         {7, 2, -5000},
         true,
         [](IEnv& e, const Params& p) { return e.enableEnvironment(7, 2, -5000, p); }},
        {"disable", {7, 2}, false, [](IEnv& e, const Params&) { return e.disableEnvironment(7, 2); }},
};

// Calls go down as they came, without the lock; the text in a cleared 32-byte field (32 bytes
// carry no terminator).
TEST_F(EnvironmentTest, ControlCallsGoDownWithoutTheLock) {
    for (const std::string& extra : Lines{"", "abc", std::string(32, 'x')}) {
        for (const Control& c : kControls) {
            SCOPED_TRACE(c.name + " " + extra);
            bool locked = true;
            simulated_legacy::setHook(c.name + "_environment",
                                      [&] { locked = Peer::listLockHeld(); });
            simulated_legacy::clearCalls();
            EXPECT_EQ(0, c.call(*env, params(extra)));
            const auto calls = simulated_legacy::calls();
            ASSERT_EQ(1u, calls.size());
            EXPECT_EQ(c.name + "_environment", calls[0].entry);
            EXPECT_EQ(c.args, calls[0].args);
            EXPECT_FALSE(locked);
            ASSERT_EQ(c.hasParams, calls[0].hasParams);
            if (!c.hasParams) continue;
            const other_params& sent = calls[0].params;
            EXPECT_EQ(std::vector<double>({1.5, -2.0, 0.0, 1e300}),
                      std::vector<double>(sent.params, sent.params + 4));
            EXPECT_EQ(extra + std::string(32 - extra.size(), '\0'), std::string(sent.extra, 32));
        }
    }
    EXPECT_TRUE(lines().empty());
}

TEST_F(EnvironmentTest, SupportedList) {
    Lines many;
    for (int i = 0; i < 1000; ++i) many.push_back("generated_" + std::to_string(i));
    simulated_legacy::setListAnswer(Side::kEnvironment, {{}, 1000, false});
    std::vector<Lines> answers;
    auto ask = [&] {
        env->getSupportedEnvironmentsList(
                [&](const auto& names) { answers.emplace_back(names.begin(), names.end()); });
    };
    ask();
    EXPECT_EQ(std::vector<Lines>{many}, answers);
    if (!canFailNothrowNew()) return;
    failNextNothrowNew();
    ask();
    EXPECT_EQ(1u, answers.size());
    EXPECT_EQ(Lines{"6 env new failed"}, lines());
}

// Without a table every method logs once and answers a failure, never calling down; once that
// interface is gone, the service creates one of its own.
TEST(EnvironmentWithoutTable, EveryMethodLogsAndAnswersFailure) {
    LogCapture log;
    sp<Env> env = new Env(nullptr);
    for (const Control& c : kControls) EXPECT_EQ(1, c.call(*env, params("")));
    int empty = 0;
    env->getSupportedEnvironmentsList([&](const auto& v) { empty += v.size() == 0; });
    env->getCurrentEnvironment([&](const auto& v) { empty += v.size() == 0; });
    env->getCurrentEnvironmentV1_1([&](const auto& v) { empty += v.size() == 0; });
    EXPECT_EQ(3, empty);
    EXPECT_EQ((Lines{"6 EnvironmentInterface: mImpl interface is not available",
                     "6 initEnvironment: initEnvironment mImpl interface is not available",
                     "6 exitEnvironment: exitEnvironment mImpl interface is not available",
                     "6 enableEnvironment: enableEnvironment mImpl interface is not available",
                     "6 disableEnvironment: mImpl interface is not available",
                     "6 getSupportedEnvironmentsList: mImpl interface is not available",
                     "6 getCurrentEnvironment: mImpl V1_0 interface is not available",
                     "6 getCurrentEnvironmentV1_1: mImpl V1_1 interface is not available"}),
              log.withTag(kTag));
    EXPECT_TRUE(simulated_legacy::calls().empty());
    EXPECT_FALSE(simulated_legacy::environmentCallbacksRegistered());
    env.clear();
    EXPECT_EQ(1, log.count(4, kTag, "Deconstruct EnvironmentInterface"));
    auto service = fetchService();
    ASSERT_NE(nullptr, service);
    EXPECT_NE(nullptr, service->getEnvironmentInterface().withDefault(nullptr));
    EXPECT_TRUE(simulated_legacy::environmentCallbacksRegistered());
}

}  // namespace
