// Batches, registrations and deaths on several threads at once, for ThreadSanitizer: the locking
// of the client maps, the request list and the fan-out. The recipient lookup of death is unlocked
// by design, so deaths never overlap 1.1 registrations here.
#include <atomic>
#include <thread>

#include "ActivityZelSupport.h"

namespace {

using namespace artest;

class ActivityConcurrencyTest : public ZelActivityTest {};

constexpr int kClients = 8;

TEST_F(ActivityConcurrencyTest, EventsRegistrationsAndDeaths) {
    for (int i = 0; i < kClients; ++i) enable(1000 + i, 1, 1);
    auto first = add(0, 999);  // the shared 1.0 recipient exists before the threads start
    std::atomic<bool> stop{false};
    auto events = [&](int pid) {
        ar_context_event extended{};
        const std::vector<int32_t> zel = simulated_zel::pack({event(1, 1, 0)});
        // The last round starts after `stop`, so after all the work it runs beside.
        for (int n = 0;; ++n) {
            const bool last = stop && n >= 40;
            report(pid, {event(1, 1, n), event(2, 1, n)});
            simulated_legacy::reportExtendedActivities(&extended, 1);
            simulated_zel::notify(0, 24, zel);
            if (last) break;
        }
    };
    // Runs `work` next to two event threads, then stops them.
    auto withEvents = [&](std::vector<std::function<void()>> work) {
        stop = false;
        std::thread a(events, 1), b(events, 2);
        std::vector<std::thread> threads;
        for (auto& w : work) threads.emplace_back(w);
        for (auto& t : threads) t.join();
        stop = true;
        a.join();
        b.join();
    };
    std::vector<sp<Client>> v10(kClients), v11(kClients);
    withEvents({[&] {
                    for (int i = 0; i < kClients; ++i) v11[i] = add(1, 1000 + i);
                },
                [&] {
                    for (int i = 0; i < kClients; ++i) v10[i] = add(0, 2000 + i);
                }});
    for (int i = 0; i < kClients; ++i) {
        for (const auto& batch : v11[i]->v11) EXPECT_EQ(1u, batch.size());  // its own event
        EXPECT_FALSE(v11[i]->ext11.empty() || v10[i]->ext10.empty());
    }
    withEvents({[&] {
                    for (int i = 0; i < kClients; i += 2) v11[i]->die(), v10[i]->die();
                },
                [&] {
                    for (int i = 1; i < kClients; i += 2) v11[i]->die(), v10[i]->die();
                }});
    for (int i = 0; i < kClients; ++i) EXPECT_EQ(1, disable(1000 + i, 1, 1));  // erased at death
    std::vector<size_t> before;
    for (const auto& c : v10) before.push_back(c->v10.size());
    report(4, {event(1, 1, 1)});
    for (int i = 0; i < kClients; ++i) EXPECT_EQ(before[i], v10[i]->v10.size());
    EXPECT_FALSE(first->v10.empty());
}

}  // namespace
