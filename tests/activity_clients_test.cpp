// Registration of activity clients at both versions, and what their death changes.
#include "ActivityTestSupport.h"
#include "FailingNew.h"

namespace {

using namespace artest;
using Lines = std::vector<std::string>;

class ActivityClientsTest : public ActivityTest {};
using ::android::hardware::host::setThreadStateAvailable;

void addRequest(uint64_t pid, uint32_t activity, uint32_t eventType) {
    Peer::requests().push_back({pid, activity, eventType, 1000000000, {}});
}

std::string linked(int pid, const char* version, int total) {
    return "3 Pid[" + std::to_string(pid) + "] link to " + version +
           " ActivityInterface death notification successful, total cb[" + std::to_string(total) +
           "]";
}

// Clients that receive an extended batch; it reaches every registered client.
int reached(const std::vector<sp<Client>>& clients) {
    ar_context_event record{};
    record.event_type = 1;
    simulated_legacy::reportExtendedActivities(&record, 1);
    int n = 0;
    for (const auto& c : clients) {
        n += static_cast<int>(c->ext10.size() + c->ext11.size());
        c->ext10.clear();
        c->ext11.clear();
    }
    return n;
}

TEST_F(ActivityClientsTest, NullCallbacksAreRefused) {
    iface->registerActivityCallback(nullptr);
    iface->registerActivityCallbackV1_1(nullptr);
    EXPECT_EQ((Lines{"6 invalid Callback", "6 invalid Callback"}), lines());
}

// 1.0 shares one recipient and refuses both the same object and the same pid.
TEST_F(ActivityClientsTest, V1_0RefusesTheSameObjectAndTheSamePid) {
    auto first = registerV1_0(100);
    {
        ScopedCallingIdentity guard(100);
        iface->registerActivityCallback(first);
    }
    auto samePid = registerV1_0(100);
    auto other = registerV1_0(101);
    const std::string already = "4 It's already register pid[100] V1_0 callback";
    EXPECT_EQ((Lines{linked(100, "V1_0", 1), already, already, linked(101, "V1_0", 2)}), lines());
    EXPECT_TRUE(samePid->links.empty());
    ASSERT_EQ(1u, first->links.size());
    EXPECT_EQ(100u, first->links[0].second);
    EXPECT_EQ(first->links[0].first, other->links[0].first);
    EXPECT_EQ(101u, other->links[0].second);
    EXPECT_EQ(2, reached({first, samePid, other}));
}

// 1.1 refuses the same object, and a new object of a known pid replaces the old one without
// unlinking it; the pid's requests carry over, and the old recipient entry is gone.
TEST_F(ActivityClientsTest, V1_1ReplacesTheRegistrationOfAKnownPid) {
    auto first = registerV1_1(100);
    {
        ScopedCallingIdentity guard(100);
        iface->registerActivityCallbackV1_1(first);
    }
    addRequest(100, 1, 1);
    auto second = registerV1_1(100);
    EXPECT_EQ((Lines{linked(100, "V1_1", 1), "4 It's already register pid[100] V1_1 callback",
                     "4 It's already register pid[100] V1_1 callback, delete...",
                     linked(100, "V1_1", 1)}),
              lines());
    EXPECT_EQ(1u, first->links.size());
    EXPECT_TRUE(first->unlinked.empty());
    report(7, {event(1, 1, 5)});
    EXPECT_TRUE(first->v11.empty());
    EXPECT_EQ(1u, second->v11.size());
    // The old object's death finds the new recipient under the pid, but no client entry.
    first->die(0);
    ASSERT_EQ(1u, first->unlinked.size());
    EXPECT_EQ(second->links[0].first, first->unlinked[0]);
    EXPECT_EQ(1u, Peer::requests().size());
    EXPECT_EQ(1, reached({first, second}));
}

TEST_F(ActivityClientsTest, WithoutThreadStateClientsAreFiledUnderPidZero) {
    sp<Client> a = new Client(0);
    sp<Client> b = new Client(0);
    setThreadStateAvailable(false);
    iface->registerActivityCallbackV1_1(a);
    iface->registerActivityCallback(a);
    iface->registerActivityCallback(b);
    setThreadStateAvailable(true);
    EXPECT_EQ((Lines{"6 IPCThreadState::self() V1_1 returns nullptr", linked(0, "V1_1", 1),
                     "6 IPCThreadState::self() V1_0 returns nullptr", linked(0, "V1_0", 1),
                     "6 IPCThreadState::self() V1_0 returns nullptr",
                     "4 It's already register pid[0] V1_0 callback"}),
              lines());
    EXPECT_EQ(0u, a->links[0].second);
    EXPECT_EQ(0u, a->links[1].second);
}

struct LinkFailure {
    const char* name;
    bool v1_1;
    Link link;
    std::string line;
};

void PrintTo(const LinkFailure& p, std::ostream* os) {
    *os << p.name;
}

class ActivityLinkFailureTest : public ActivityTest,
                                public ::testing::WithParamInterface<LinkFailure> {};

// Not added; a 1.1 recipient filed before linking stays and is found again at death.
TEST_P(ActivityLinkFailureTest, ClientIsNotAdded) {
    const LinkFailure& p = GetParam();
    auto client = p.v1_1 ? registerV1_1(100, p.link) : registerV1_0(100, p.link);
    EXPECT_EQ(Lines{p.line}, lines());
    EXPECT_EQ(0, reached({client}));
    log.clear();
    client->die();
    Lines expected = {"4 serviceDied, cookie is 100"};
    if (!p.v1_1) expected.push_back("6 DeathRecipient is nullptr");
    expected.push_back("4 finish");
    EXPECT_EQ(expected, lines());
    ASSERT_EQ(1u, client->unlinked.size());
    EXPECT_EQ(client->links[0].first, client->unlinked[0]);
}

const std::string kBroken =
        Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "link broke").description();

INSTANTIATE_TEST_SUITE_P(
        Versions, ActivityLinkFailureTest,
        ::testing::Values(
                LinkFailure{"V1_0Refused", false, Link::kRefused,
                            "5 Unable to link to V1_0 ActivityInterface death notifications"},
                LinkFailure{"V1_0TransportError", false, Link::kTransportError,
                            "6 Transaction error in linking to V1_0 ActivityInterface death: " +
                                    kBroken},
                LinkFailure{"V1_1Refused", true, Link::kRefused,
                            "5 Unable to link to V1_1 ActivityInterface death notifications"},
                LinkFailure{"V1_1TransportError", true, Link::kTransportError,
                            "6 Transaction error in linking to V1_1 ActivityInterface death: " +
                                    kBroken}),
        [](const auto& info) { return std::string(info.param.name); });

TEST_F(ActivityClientsTest, RecipientAllocationFailureRegistersNothing) {
    SKIP_WITHOUT_FAILING_NEW();
    sp<Client> client = new Client(100);
    failNextNothrowNew();
    iface->registerActivityCallback(client);
    failNextNothrowNew();
    iface->registerActivityCallbackV1_1(client);
    EXPECT_EQ((Lines{"6 registerActivityCallback mDeathRecipient new failed",
                     "6 registerActivityCallbackV1_1 deathRecipient new failed"}),
              lines());
    EXPECT_TRUE(client->links.empty());
}

// Death erases the requests of a 1.1 client only, and sends nothing below.
TEST_F(ActivityClientsTest, DeathErasesRequestsOfA1_1ClientOnly) {
    auto c11 = registerV1_1(100);
    auto c10 = registerV1_0(200);
    addRequest(100, 1, 1);
    addRequest(200, 1, 1);
    addRequest(100, 2, 2);
    report(7, {event(1, 1, 5)});
    simulated_legacy::clearCalls();
    log.clear();
    c11->die();
    EXPECT_EQ((Lines{"4 serviceDied, cookie is 100", "4 ######V1_1 Match, remainder cb[0]!!!######",
                     "4 finish"}),
              lines());
    // Its own recipient, then the shared 1.0 one.
    EXPECT_EQ((std::vector<sp<hidl_death_recipient>>{c11->links[0].first, c10->links[0].first}),
              c11->unlinked);
    ASSERT_EQ(1u, Peer::requests().size());
    EXPECT_EQ(200u, Peer::requests()[0].pid);
    log.clear();
    c10->die();
    EXPECT_EQ((Lines{"4 serviceDied, cookie is 200", "6 DeathRecipient is nullptr",
                     "4 ######V1_0 Match, remainder cb[0]!!!######"}),
              lines());
    EXPECT_EQ(1u, Peer::requests().size());
    EXPECT_EQ(2u, Peer::lastEvents().size());
    EXPECT_EQ((std::vector<uint64_t>{100, 200}), Peer::packageNames());
    EXPECT_TRUE(simulated_legacy::calls().empty());
    EXPECT_EQ(0, reached({c11, c10}));
}

TEST_F(ActivityClientsTest, DeathOfAProcessUnderBothVersionsRemovesBothEntries) {
    sp<Client> client = new Client(100);
    {
        ScopedCallingIdentity guard(100);
        iface->registerActivityCallback(client);
        iface->registerActivityCallbackV1_1(client);
    }
    log.clear();
    client->die();
    EXPECT_EQ((Lines{"4 serviceDied, cookie is 100", "4 ######V1_1 Match, remainder cb[0]!!!######",
                     "4 ######V1_0 Match, remainder cb[0]!!!######"}),
              lines());
    EXPECT_EQ(2u, client->unlinked.size());
    EXPECT_EQ(0, reached({client}));
}

// Nothing is unlinked, and no client entry matches.
TEST_F(ActivityClientsTest, DeathOfAnObjectThatCannotBePromoted) {
    auto client = registerV1_1(100);
    using IBase = ::android::hidl::base::V1_0::IBase;
    wp<IBase> gone;
    {
        sp<Client> dead = new Client(100);
        gone = dead;
    }
    log.clear();
    client->links[0].first->serviceDied(100, gone);
    client->links[0].first->serviceDied(100, wp<IBase>());
    const Lines once = {"4 serviceDied, cookie is 100", "6 Invalide IBase object", "4 finish"};
    Lines expected = once;
    expected.insert(expected.end(), once.begin(), once.end());
    EXPECT_EQ(expected, lines());
    EXPECT_TRUE(client->unlinked.empty());
    EXPECT_EQ(1, reached({client}));
}

}  // namespace
