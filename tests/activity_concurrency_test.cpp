// Batches, registrations and deaths on several threads at once. Run under ThreadSanitizer, this
// checks the locking of the client maps, the request list and the fan-out. The recipient lookup of
// death is unlocked by design, so deaths never overlap 1.1 registrations here.
#include <atomic>
#include <thread>

#include "ActivityTestSupport.h"

namespace {

using namespace artest;

class ActivityConcurrencyTest : public ActivityTest {};

constexpr int kClients = 8;
constexpr int kBatches = 40;

TEST_F(ActivityConcurrencyTest, EventsRegistrationsAndDeaths) {
    for (int i = 0; i < kClients; ++i) {
        Peer::requests().push_back({static_cast<uint64_t>(1000 + i), 1, 1, 1000000000, {}});
    }
    // The shared 1.0 recipient exists before the threads start.
    auto first = registerV1_0(999);
    std::atomic<bool> stop{false};
    auto events = [&](int pid) {
        ar_context_event extended{};
        const std::vector<int32_t> zel = {1, 1, 0, 0, 0, 0};  // one record: type 1, activity 1
        for (int n = 0; n < kBatches || !stop; ++n) {
            report(pid, {event(1, 1, n), event(2, 1, n)});
            simulated_legacy::reportExtendedActivities(&extended, 1);
            Peer::zelNotify(0, 24, zel);
        }
    };
    std::vector<sp<Client>> v10(kClients), v11(kClients);
    {
        std::vector<std::thread> threads;
        threads.emplace_back(events, 1);
        threads.emplace_back(events, 2);
        threads.emplace_back([&] {
            for (int i = 0; i < kClients; ++i) v11[i] = registerV1_1(1000 + i);
        });
        threads.emplace_back([&] {
            for (int i = 0; i < kClients; ++i) v10[i] = registerV1_0(2000 + i);
        });
        threads[3].join();
        threads[2].join();
        stop = true;
        threads[1].join();
        threads[0].join();
    }
    for (int i = 0; i < kClients; ++i) {
        // Every plain batch after the registration reached the client, with its own event only.
        for (const auto& batch : v11[i]->v11) {
            ASSERT_EQ(1u, batch.size());
            EXPECT_EQ(1u, batch[0].activity);
        }
        EXPECT_FALSE(v11[i]->ext11.empty());
        EXPECT_FALSE(v10[i]->ext10.empty());
    }
    stop = false;
    {
        std::vector<std::thread> threads;
        threads.emplace_back(events, 3);
        threads.emplace_back([&] {
            for (int i = 0; i < kClients; i += 2) v11[i]->die(), v10[i]->die();
        });
        threads.emplace_back([&] {
            for (int i = 1; i < kClients; i += 2) v11[i]->die(), v10[i]->die();
        });
        threads[2].join();
        threads[1].join();
        stop = true;
        threads[0].join();
    }
    EXPECT_TRUE(Peer::requests().empty());
    std::vector<size_t> before;
    for (const auto& c : v10) before.push_back(c->v10.size());
    report(4, {event(1, 1, 1)});
    for (int i = 0; i < kClients; ++i) EXPECT_EQ(before[i], v10[i]->v10.size());
    EXPECT_EQ(kClients, static_cast<int>(Peer::packageNames().size()));
    EXPECT_FALSE(first->v10.empty());
}

}  // namespace
