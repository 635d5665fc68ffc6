// Environment clients: registration under both versions, death, and the fan-out of batches.
#include <android/log.h>
#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>
#include <limits.h>

#include <algorithm>
#include <mutex>
#include <thread>
#include <tuple>

#include "EnvironmentInterface.h"
#include "EnvironmentTestPeer.h"
#include "FailingNew.h"
#include "LogCapture.h"
#include "Passthrough.h"
#include "simulated_legacy_module.h"

namespace {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::host::ScopedCallingIdentity;
using ::android::hidl::base::V1_0::IBase;
using artest::LoggedOnce;
using Env = ar::V1_1::implementation::EnvironmentInterface;
using Peer = ar::V1_1::implementation::EnvironmentInterfaceTestPeer;

constexpr char kTag[] = "AR_impl_Env";

bool listLockHeld() {
    return ar::V1_1::implementation::EnvironmentInterfaceTestPeer::listLockHeld();
}

// One delivery: the client, its version (10 or 11) and the number of records.
using Delivery = std::tuple<const void*, int, size_t>;
std::mutex gJournalLock;
std::vector<Delivery> gJournal;

struct Client : ar::V1_1::IEnvironmentChangedCallback {
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override {
        lastV1_0 = e;
        return record(10, e.size());
    }
    Return<void> onEnvironmentChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override {
        lastV1_1 = e;
        return record(11, e.size());
    }
    Return<void> record(int version, size_t count) {
        lockedInCalls = lockedInCalls && listLockHeld();
        std::lock_guard<std::mutex> guard(gJournalLock);
        gJournal.emplace_back(this, version, count);
        if (failCalls) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
        return ::android::hardware::Void();
    }
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& r, uint64_t cookie) override {
        lockedWhileLinking = listLockHeld();
        recipient = r;
        this->cookie = cookie;
        if (linkFails) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "gone");
        return linkAnswer;
    }
    // A failed unlink is ignored by the HAL.
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& r) override {
        lockedWhileUnlinking = listLockHeld();
        unlinked = r;
        return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
    }
    void die() { recipient->serviceDied(cookie, wp<IBase>(this)); }

    bool failCalls = false, linkFails = false, linkAnswer = true;
    bool lockedInCalls = true, lockedWhileLinking = false, lockedWhileUnlinking = true;
    sp<hidl_death_recipient> recipient, unlinked;
    uint64_t cookie = 0;
    std::vector<ar::V1_0::ActivityEventExtend> lastV1_0;
    std::vector<ar::V1_1::ActivityEventExtendV1_1> lastV1_1;
};

// Records whose fields differ from record to record, so order and content show.
const std::vector<ar_context_event>& records() {
    static const std::vector<ar_context_event> all = [] {
        std::vector<ar_context_event> r(193);
        for (int i = 0; i < 193; ++i) {
            r[i].event_type = 1 + i % 2;
            r[i].activity = i;
            r[i].timestamp = 1000 + i;
            r[i].confidence = 50 + i;
            r[i].status = -i;
            r[i].params.params[2] = i * 0.5;
            snprintf(r[i].params.extra, sizeof(r[i].params.extra), "env%d", i);
        }
        return r;
    }();
    return all;
}

class EnvironmentClientsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        simulated_legacy::reset();
        service = artest::fetchService();
        ASSERT_NE(nullptr, service);
        env = service->getEnvironmentInterfaceV1_1().withDefault(nullptr);
        ASSERT_NE(nullptr, env);
        log.clear();
    }
    void registerAs(int pid, const sp<Client>& client, int version) {
        ScopedCallingIdentity guard(pid);
        if (version == 10) {
            env->registerEnvironmentCallback(client);
        } else {
            env->registerEnvironmentCallbackV1_1(client);
        }
    }
    // The deliveries of one batch.
    std::vector<Delivery> report(int count, const ar_context_event* events = records().data()) {
        {
            std::lock_guard<std::mutex> guard(gJournalLock);
            gJournal.clear();
        }
        simulated_legacy::reportEnvironments(events, count);
        std::lock_guard<std::mutex> guard(gJournalLock);
        return gJournal;
    }

    artest::LogCapture log;
    sp<artest::IActivityRecognition> service;
    sp<ar::V1_1::IEnvironmentInterface> env;
};

// Registration under one version (10 or 11); in expected log lines "Vx" stands for its suffix.
class RegistrationTest : public EnvironmentClientsTest, public ::testing::WithParamInterface<int> {
  protected:
    void registerAs(int pid, const sp<Client>& client) {
        EnvironmentClientsTest::registerAs(pid, client, GetParam());
    }
    std::vector<std::string> lines(std::vector<std::string> expected) {
        for (std::string& line : expected) {
            size_t at = line.find("Vx");
            if (at != std::string::npos) line.replace(at, 2, GetParam() == 10 ? "V1_0" : "V1_1");
        }
        return expected;
    }
};

// Same object or same process: refused, whatever the other one is. Without a thread state the
// process is 1.
TEST_P(RegistrationTest, OneRegistrationPerProcessSharingOneRecipient) {
    sp<Client> a = new Client, b = new Client, c = new Client, d = new Client;
    registerAs(100, a);
    registerAs(100, a);
    registerAs(200, a);
    registerAs(100, b);
    registerAs(200, c);
    android::hardware::host::setThreadStateAvailable(false);
    registerAs(300, d);
    registerAs(300, b);
    android::hardware::host::setThreadStateAvailable(true);
    const std::string linked = " link to EnvironmentInterfaceVx death notification successful, ";
    EXPECT_EQ(lines({"3 Pid[100]" + linked + "total cb[1]",
                     "4 It's already register pid[100] callback, Vx",
                     "4 It's already register pid[200] callback, Vx",
                     "4 It's already register pid[100] callback, Vx",
                     "3 Pid[200]" + linked + "total cb[2]",
                     "6 IPCThreadState::self() Vx returns nullptr",
                     "3 Pid[1]" + linked + "total cb[3]",
                     "6 IPCThreadState::self() Vx returns nullptr",
                     "4 It's already register pid[1] callback, Vx"}),
              log.withTag(kTag));
    EXPECT_EQ(100u, a->cookie);
    EXPECT_EQ(1u, d->cookie);
    EXPECT_EQ(a->recipient, d->recipient);
    EXPECT_EQ(nullptr, b->recipient);
    EXPECT_TRUE(a->lockedWhileLinking);
    EXPECT_EQ(3u, report(1).size());
}

TEST_P(RegistrationTest, FailuresRegisterNothing) {
    sp<Client> failing = new Client, refusing = new Client, good = new Client;
    failing->linkFails = true;
    refusing->linkAnswer = false;
    registerAs(100, nullptr);
    registerAs(100, failing);
    registerAs(100, refusing);
    EXPECT_TRUE(report(1).empty());
    registerAs(100, good);
    const std::string status =
            Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "gone").description();
    EXPECT_EQ(lines({"6 invalid Callback",
                     "6 Transaction error in linking to EnvironmentInterfaceVx death: " + status,
                     "5 Unable to link to EnvironmentInterfaceVx death notifications",
                     "3 Pid[100] link to EnvironmentInterfaceVx death notification successful, "
                     "total cb[1]"}),
              log.withTag(kTag));
}

TEST_P(RegistrationTest, RecipientAllocationFailureRegistersNothing) {
    SKIP_WITHOUT_FAILING_NEW();
    sp<Client> a = new Client;
    artest::failNextNothrowNew();
    registerAs(100, a);
    EXPECT_EQ(
            std::vector<std::string>{
                    GetParam() == 10 ? "6 registerEnvironmentCallback new mDeathRecipient failed"
                                     : "6 registerEnvironmentCallbackV1_1 Death new failed"},
            log.withTag(kTag));
    EXPECT_TRUE(report(1).empty());
}

INSTANTIATE_TEST_SUITE_P(Versions, RegistrationTest, ::testing::Values(10, 11),
                         [](const auto& info) { return "V" + std::to_string(info.param); });

// All version 1.1 clients first, then all version 1.0 ones, each in the order of the objects'
// addresses; every client gets every record, in order.
TEST_F(EnvironmentClientsTest, EveryClientGetsEveryRecordV1_1First) {
    EXPECT_TRUE(report(1).empty());
    EXPECT_TRUE(log.withTag(kTag).empty());
    sp<Client> lo = new Client, hi = new Client;
    if (lo.get() > hi.get()) std::swap(lo, hi);
    registerAs(200, hi, 11);
    registerAs(100, lo, 11);
    registerAs(200, hi, 10);
    registerAs(100, lo, 10);
    const std::vector<Delivery> expected = {
            {lo.get(), 11, 192}, {hi.get(), 11, 192}, {lo.get(), 10, 192}, {hi.get(), 10, 192}};
    EXPECT_EQ(expected, report(192));
    EXPECT_TRUE(lo->lockedInCalls);
    for (int i : {0, 1, 191}) {
        EXPECT_EQ(static_cast<uint32_t>(i), hi->lastV1_1[i].activity);
        EXPECT_EQ(50 + i, hi->lastV1_1[i].confidence);
        EXPECT_EQ(-i, hi->lastV1_0[i].status);
        EXPECT_EQ(i * 0.5, hi->lastV1_0[i].otherParams.params[2]);
        EXPECT_EQ("env" + std::to_string(i), std::string(hi->lastV1_0[i].otherParams.extra));
    }
}

TEST_F(EnvironmentClientsTest, BatchesOutsideOneTo192AreDropped) {
    sp<Client> a = new Client;
    registerAs(100, a, 11);
    registerAs(100, a, 10);
    log.clear();
    for (int count : {193, 0, -1, INT_MIN}) {
        EXPECT_TRUE(report(count).empty()) << count;
        EXPECT_TRUE(LoggedOnce(
                log, ANDROID_LOG_ERROR, kTag,
                "(EnvChangedCb:73) Invalid envChangedCb. Count: " + std::to_string(count)));
    }
    EXPECT_TRUE(report(1, nullptr).empty());
    EXPECT_EQ(1, log.count(ANDROID_LOG_ERROR, kTag,
                           "(EnvChangedCb:73) Invalid envChangedCb. Count: 1"));
}

TEST_F(EnvironmentClientsTest, FailingClientIsLoggedOncePerBatchAndServedAgain) {
    sp<Client> bad = new Client, good = new Client;
    bad->failCalls = true;
    for (int v : {10, 11}) {
        registerAs(101, bad, v);
        registerAs(102, good, v);
    }
    EXPECT_EQ(4u, report(3).size());
    EXPECT_EQ(4u, report(3).size());
    EXPECT_EQ(2, log.count(ANDROID_LOG_ERROR, kTag,
                           "EnvChangedCb: Unable to invoke onEnvironmentChanged V1_1, PID[101]"));
    EXPECT_EQ(2, log.count(ANDROID_LOG_ERROR, kTag,
                           "env_extend_changed_cb_v1_0: Unable to invoke onEnvironmentChanged "
                           "V1_0 PID[101]"));
    EXPECT_EQ(4, log.countContaining(kTag, "Unable to invoke"));
}

// Matching is by object; the "finish" line follows the version 1.0 map only.
TEST_F(EnvironmentClientsTest, DeathRemovesTheObjectFromEachMap) {
    sp<Client> both = new Client, other = new Client;
    registerAs(100, both, 11);
    registerAs(100, both, 10);
    registerAs(200, other, 11);
    log.clear();
    both->die();
    EXPECT_EQ(both->recipient, both->unlinked);
    EXPECT_FALSE(both->lockedWhileUnlinking);
    other->die();
    const std::vector<std::string> expected = {"4 ENV serviceDied, cookie is 100",
                                               "4 ######V1_1 ENV Match, remainder cb[1]!!!######",
                                               "4 ######V1_0 ENV Match, remainder cb[0]!!!######",
                                               "4 ENV serviceDied, cookie is 200",
                                               "4 ######V1_1 ENV Match, remainder cb[0]!!!######",
                                               "4 finish"};
    EXPECT_EQ(expected, log.withTag(kTag));
    EXPECT_EQ(0u, Peer::clientsV1_0());
    EXPECT_EQ(0u, Peer::clientsV1_1());
    EXPECT_TRUE(report(1).empty());
    for (const auto& call : simulated_legacy::calls()) EXPECT_NE("disable_environment", call.entry);
}

TEST_F(EnvironmentClientsTest, DeathOfAnUnknownObjectChangesNothing) {
    sp<Client> a = new Client, stranger = new Client;
    registerAs(100, a, 11);
    wp<IBase> gone;
    {
        sp<Client> shortLived = new Client;
        gone = shortLived;
    }
    log.clear();
    a->recipient->serviceDied(77, wp<IBase>(stranger.get()));
    a->recipient->serviceDied(78, gone);
    a->recipient->serviceDied(79, wp<IBase>());
    const std::vector<std::string> expected = {
            "4 ENV serviceDied, cookie is 77", "4 finish", "4 ENV serviceDied, cookie is 78",
            "6 Invalide IBase object, ENV",    "4 finish", "4 ENV serviceDied, cookie is 79",
            "6 Invalide IBase object, ENV",    "4 finish"};
    EXPECT_EQ(expected, log.withTag(kTag));
    EXPECT_EQ(a->recipient, stranger->unlinked);
    EXPECT_EQ(1u, report(1).size());
}

// Run under ThreadSanitizer: registrations and deaths on two binder threads, batches from the
// module's thread.
TEST_F(EnvironmentClientsTest, BatchesFromTheModuleThreadWhileClientsRegisterAndDie) {
    sp<Client> first = new Client;  // creates the shared recipient before the race
    registerAs(1, first, 11);
    std::thread module([] {
        simulated_legacy::runOnModuleThread([] {
            for (int i = 0; i < 200; ++i) simulated_legacy::reportEnvironments(records().data(), 4);
        });
    });
    std::vector<std::thread> binders;
    for (int t = 0; t < 2; ++t) {
        binders.emplace_back([this, t] {
            for (int i = 0; i < 50; ++i) {
                sp<Client> c = new Client;
                registerAs(1000 + 100 * t + i, c, i % 2 ? 10 : 11);
                c->die();
            }
        });
    }
    for (auto& b : binders) b.join();
    module.join();
    EXPECT_EQ(1u, Peer::clientsV1_1());
    EXPECT_EQ(0u, Peer::clientsV1_0());
    std::lock_guard<std::mutex> guard(gJournalLock);
    for (const auto& d : gJournal) EXPECT_EQ(4u, std::get<2>(d));
}

TEST(EnvironmentInterfaceLifetime, NullTableAndDestructionAllowANewInstance) {
    artest::LogCapture log;
    sp<Env> lone = new Env(nullptr);
    lone.clear();
    EXPECT_EQ(std::vector<std::string>({"6 EnvironmentInterface: mImpl interface is not available",
                                        "4 Deconstruct EnvironmentInterface"}),
              log.withTag(kTag));
    EXPECT_FALSE(simulated_legacy::environmentCallbacksRegistered());
    auto service = artest::fetchService();
    ASSERT_NE(nullptr, service);
    EXPECT_NE(nullptr, service->getEnvironmentInterface().withDefault(nullptr));
    EXPECT_TRUE(simulated_legacy::environmentCallbacksRegistered());
}

TEST(EnvironmentInterfaceDeathTest, SecondInstanceAborts) {
    sp<Env> first = new Env(nullptr);
    EXPECT_DEATH(sp<Env>(new Env(nullptr)), "AR_impl_Env.*sInterfaceExists");
}

}  // namespace
