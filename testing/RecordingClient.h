// The one recording client of the tests, the load test, the benchmarks and the fuzzers: a callback
// object of every callback interface (activity and environment, both versions) that acts as a
// client process of its own. It answers linkToDeath as its process would, records the links and
// unlinks, keeps what it receives (every batch, or only the number of records), can fail its
// deliveries, and delivers its own death.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityChangedCallback.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace artest {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using IBase = ::android::hidl::base::V1_0::IBase;

// How a client's process answers linkToDeath.
enum class Link { kLinked, kRefused, kTransportError };

Return<bool> linkAnswer(Link link);

// What a client received, batch by batch per method. It lives apart from the client, which the
// HAL may free wherever it drops the last reference, so that a test can read it afterwards.
struct Received {
    std::vector<std::vector<ar::V1_0::ActivityEvent>> v10;
    std::vector<std::vector<ar::V1_0::ActivityEventExtend>> ext10;
    std::vector<std::vector<ar::V1_1::ActivityEventV1_1>> v11;
    std::vector<std::vector<ar::V1_1::ActivityEventExtendV1_1>> ext11;
    std::vector<std::vector<ar::V1_0::ActivityEventExtend>> env10;
    std::vector<std::vector<ar::V1_1::ActivityEventExtendV1_1>> env11;
};

class RecordingClient : public ar::V1_1::IActivityChangedCallback,
                        public ar::V1_1::IEnvironmentChangedCallback {
  public:
    // What a delivery leaves behind: every batch (under the client's lock, seen by the observer),
    // or only the count of records (no lock and no observer: for programs that measure the HAL).
    enum class Keep { kBatches, kCount };
    // The calls a client receives, for an observer: the two death links and the six deliveries.
    enum class Call {
        kLink,
        kUnlink,
        kActivityV1_0,
        kActivityExtendV1_0,
        kActivityV1_1,
        kActivityExtendV1_1,
        kEnvironmentV1_0,
        kEnvironmentV1_1,
    };

    explicit RecordingClient(int pid = 0, Link link = Link::kLinked, Keep keep = Keep::kBatches)
        : pid(pid), mLink(link), mKeep(keep) {}

    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override;
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override;

    Return<void> onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& e) override;
    Return<void> onActivityExtendChangedV1_0(
            const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override;
    Return<void> onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& e) override;
    Return<void> onActivityExtendChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override;
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& e) override;
    Return<void> onEnvironmentChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& e) override;

    // Delivers this process's death through the recipient of one link (default: the last).
    void die(int link = -1);
    // The death notices of every link, to be delivered later without a reference to the object.
    std::function<void()> obituary();
    // How the process answers the next linkToDeath.
    void setLink(Link link);
    // The object as IBase (through its activity interface; death notices compare weak references,
    // which both interfaces share).
    IBase* base() { return static_cast<ar::V1_1::IActivityChangedCallback*>(this); }

    const int pid;
    // Deliveries answer a transport failure; set before delivering, or from the observer.
    bool failing = false;
    // unlinkToDeath answers a failure (the HAL ignores its outcome).
    bool failUnlink = false;
    // Called first in every call this client receives, under its lock (a delivery with its number
    // of records): what a test must see from inside the call, such as the locks held.
    std::function<void(Call call, size_t records)> observer;
    // Records received by every method.
    std::atomic<size_t> received{0};
    // Received batches (Keep::kBatches); read them once the calls are over.
    const std::shared_ptr<Received> got = std::make_shared<Received>();
    std::vector<std::vector<ar::V1_0::ActivityEvent>>& v10 = got->v10;
    std::vector<std::vector<ar::V1_0::ActivityEventExtend>>& ext10 = got->ext10;
    std::vector<std::vector<ar::V1_1::ActivityEventV1_1>>& v11 = got->v11;
    std::vector<std::vector<ar::V1_1::ActivityEventExtendV1_1>>& ext11 = got->ext11;
    std::vector<std::vector<ar::V1_0::ActivityEventExtend>>& env10 = got->env10;
    std::vector<std::vector<ar::V1_1::ActivityEventExtendV1_1>>& env11 = got->env11;
    std::vector<std::pair<sp<hidl_death_recipient>, uint64_t>> links;
    std::vector<sp<hidl_death_recipient>> unlinked;

  private:
    template <typename T>
    Return<void> record(Call call, std::vector<std::vector<T>>* into, const hidl_vec<T>& events);
    template <typename T>
    Return<void> deliver(Call call, std::vector<std::vector<T>>* into, const hidl_vec<T>& events);

    std::mutex mLock;
    Link mLink;
    const Keep mKeep;
};

}  // namespace artest
