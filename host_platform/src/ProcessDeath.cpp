// Death notices of in-process objects, for the simulated death of a client process.
#include <android/hidl/base/1.0/IBase.h>
#include <hwbinder/IPCThreadState.h>
#include <unistd.h>

#include <mutex>
#include <vector>

namespace android {
namespace hardware {
namespace host {

namespace {

struct Link {
    const hidl::base::V1_0::IBase* object;
    const hidl_death_recipient* recipientAddress;
    wp<hidl::base::V1_0::IBase> who;
    wp<hidl_death_recipient> recipient;
    uint64_t cookie;
    pid_t owner;
};

std::mutex gLock;
std::vector<Link>& links() {
    static auto* all = new std::vector<Link>();  // outlives every object that unlinks at exit
    return *all;
}

}  // namespace

bool linkToProcessDeath(hidl::base::V1_0::IBase* object, const sp<hidl_death_recipient>& recipient,
                        uint64_t cookie) {
    IPCThreadState* state = IPCThreadState::self();
    pid_t owner = state != nullptr ? state->getCallingPid() : getpid();
    std::lock_guard<std::mutex> guard(gLock);
    links().push_back({object, recipient.get(), object, recipient, cookie, owner});
    return true;
}

void unlinkFromProcessDeath(const hidl::base::V1_0::IBase* object,
                            const sp<hidl_death_recipient>& recipient) {
    std::lock_guard<std::mutex> guard(gLock);
    auto& all = links();
    for (auto it = all.begin(); it != all.end(); ++it) {
        if (it->object == object && it->recipientAddress == recipient.get()) {
            all.erase(it);
            return;
        }
    }
}

size_t simulateProcessDeath(pid_t pid) {
    std::vector<Link> dead;
    {
        std::lock_guard<std::mutex> guard(gLock);
        auto& all = links();
        for (auto it = all.begin(); it != all.end();) {
            if (it->owner == pid) {
                dead.push_back(*it);
                it = all.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const Link& link : dead) {
        sp<hidl_death_recipient> recipient = link.recipient.promote();
        if (recipient != nullptr) recipient->serviceDied(link.cookie, link.who);
    }
    return dead.size();
}

}  // namespace host
}  // namespace hardware
}  // namespace android
