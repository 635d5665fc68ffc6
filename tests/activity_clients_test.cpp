// Registration of activity clients at both versions, and what their death changes.
#include "ActivityTestSupport.h"
#include "FailingNew.h"

namespace {

using namespace artest;

class ActivityClientsTest : public ActivityTest {};

std::string linked(int pid, int version, int total) {
    return "3 Pid[" + std::to_string(pid) + "] link to V1_" + std::to_string(version) +
           " ActivityInterface death notification successful, total cb[" + std::to_string(total) +
           "]";
}

// Clients that receive an extended batch, which reaches every registered client.
int reached(const std::vector<sp<Client>>& clients) {
    ar_context_event record{};
    simulated_legacy::reportExtendedActivities(&record, 1);
    int n = 0;
    for (const auto& c : clients) n += static_cast<int>(c->ext10.size() + c->ext11.size());
    for (const auto& c : clients) c->ext10.clear(), c->ext11.clear();
    return n;
}

// 1.0 shares one recipient and refuses the same object or pid; 1.1 refuses the same object, and
// a new object of a known pid replaces the old one without unlinking it. The pid's requests
// carry over, and the old recipient entry is gone.
TEST_F(ActivityClientsTest, DuplicatesAtBothVersions) {
    enable(200, 1, 1);
    log.clear();
    iface->registerActivityCallback(nullptr);
    iface->registerActivityCallbackV1_1(nullptr);
    auto a = add(0, 100);
    reg(0, a);
    auto samePid = add(0, 100);
    auto other = add(0, 101);
    auto old = add(1, 200);
    reg(1, old);
    auto bystander = add(1, 300);
    auto replacing = add(1, 200);
    EXPECT_EQ((Lines{"6 invalid Callback", "6 invalid Callback", linked(100, 0, 1),
                     "4 It's already register pid[100] V1_0 callback",
                     "4 It's already register pid[100] V1_0 callback", linked(101, 0, 2),
                     linked(200, 1, 1), "4 It's already register pid[200] V1_1 callback",
                     linked(300, 1, 2), "4 It's already register pid[200] V1_1 callback, delete...",
                     linked(200, 1, 2)}),
              lines());
    EXPECT_TRUE(samePid->links.empty());
    EXPECT_EQ(a->links[0].first, other->links[0].first);
    EXPECT_EQ(101u, other->links[0].second);
    EXPECT_EQ(1u, old->links.size());
    EXPECT_TRUE(old->unlinked.empty());
    report(7, {event(1, 1, 5)});
    EXPECT_TRUE(old->v11.empty());
    EXPECT_EQ(1u, replacing->v11.size());
    old->die();
    EXPECT_EQ((std::vector{replacing->links[0].first, a->links[0].first}), old->unlinked);
    bystander->die();  // its recipient is still filed
    EXPECT_EQ((std::vector{bystander->links[0].first, a->links[0].first}), bystander->unlinked);
    EXPECT_EQ(0, disable(200, 1, 1));  // the pid's request is still there
    EXPECT_EQ(3, reached({a, samePid, other, old, replacing}));
}

// Version (0 or 1) and how the link fails.
class ActivityLinkFailureTest : public ActivityTest,
                                public ::testing::WithParamInterface<std::tuple<int, Link>> {};

// Not added; a 1.1 recipient filed before linking stays and is found again at death. (The log
// lines of each failure: the registration scenarios.)
TEST_P(ActivityLinkFailureTest, ClientIsNotAdded) {
    const auto [version, link] = GetParam();
    auto client = add(version, 100, link);
    EXPECT_EQ(0, reached({client}));
    log.clear();
    client->die();
    Lines expected = {"4 serviceDied, cookie is 100", "6 DeathRecipient is nullptr", "4 finish"};
    if (version == 1) expected.erase(expected.begin() + 1);
    EXPECT_EQ(expected, lines());
    EXPECT_EQ(std::vector{client->links[0].first}, client->unlinked);
}

INSTANTIATE_TEST_SUITE_P(Versions, ActivityLinkFailureTest,
                         ::testing::Combine(::testing::Values(0, 1),
                                            ::testing::Values(Link::kRefused,
                                                              Link::kTransportError)));

// A recipient kept from a refused link shares its pid with the next registration's: the death
// unlinks the first of the two in the recipient map, which orders them by address.
TEST_F(ActivityClientsTest, DeathUnlinksThePidsFirstRecipient) {
    auto refused = add(1, 100, Link::kRefused);
    auto linked = add(1, 100);
    linked->die();
    ASSERT_FALSE(linked->unlinked.empty());
    EXPECT_EQ(std::min(refused->links[0].first, linked->links[0].first), linked->unlinked[0]);
}

// A 1.1 callback replaced under its pid takes its recipient along: the new callback's death
// unlinks the recipient it was linked with, whatever the two recipients' addresses.
TEST_F(ActivityClientsTest, ReplacedCallbackLeavesNoRecipientBehind) {
    for (int pid = 100; pid < 108; ++pid) {
        auto replaced = add(1, pid);
        auto current = add(1, pid);
        current->die();
        ASSERT_EQ(1u, current->unlinked.size());
        EXPECT_EQ(current->links[0].first, current->unlinked[0]);
    }
}

TEST_F(ActivityClientsTest, RecipientAllocationFailureRegistersNothing) {
    SKIP_WITHOUT_FAILING_NEW();
    sp<Client> client = new Client(100);
    failNextNothrowNew();
    reg(0, client);
    failNextNothrowNew();
    reg(1, client);
    EXPECT_EQ((Lines{"6 registerActivityCallback mDeathRecipient new failed",
                     "6 registerActivityCallbackV1_1 deathRecipient new failed"}),
              lines());
    EXPECT_TRUE(client->links.empty());
}

// Death erases the requests of a 1.1 client only and sends nothing below; a process under both
// versions leaves both maps; an object that cannot be promoted is not unlinked.
TEST_F(ActivityClientsTest, Death) {
    auto c11 = add(1, 100);
    auto c10 = add(0, 200);
    sp<Client> both = new Client(300);
    reg(0, both);
    reg(1, both);
    enable(100, 1, 1);
    enable(200, 1, 1);
    enable(100, 2, 2);
    report(7, {event(1, 1, 5)});
    simulated_legacy::clearCalls();
    log.clear();
    c11->die();
    c10->die();
    both->die();
    wp<IBase> gone = sp<IBase>((new Client(5))->base());
    both->links[0].first->serviceDied(400, gone);
    EXPECT_EQ((Lines{"4 serviceDied, cookie is 100", "4 ######V1_1 Match, remainder cb[1]!!!######",
                     "4 finish", "4 serviceDied, cookie is 200", "6 DeathRecipient is nullptr",
                     "4 ######V1_0 Match, remainder cb[1]!!!######", "4 serviceDied, cookie is 300",
                     "4 ######V1_1 Match, remainder cb[0]!!!######",
                     "4 ######V1_0 Match, remainder cb[0]!!!######", "4 serviceDied, cookie is 400",
                     "6 Invalide IBase object", "4 finish"}),
              lines());
    // Its own recipient, then the shared 1.0 one.
    EXPECT_EQ((std::vector{c11->links[0].first, c10->links[0].first}), c11->unlinked);
    EXPECT_TRUE(simulated_legacy::calls().empty());
    EXPECT_EQ(0, reached({c11, c10, both}));
    EXPECT_EQ((std::vector{1, 0}), (std::vector{disable(100, 2, 2), disable(200, 1, 1)}));
}

}  // namespace
