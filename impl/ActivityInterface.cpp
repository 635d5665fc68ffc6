#define LOG_TAG "AR_impl"

// The activity side of the HAL. The file reads top to bottom in these sections:
//   1. Constants and small conversions.
//   2. Class-wide state, and the client library's binding (g_zel*).
//   3. Life cycle and the binding of the client library (ZelNotify registered there).
//   4. Registration and death.
//   5. Intake and fan-out: the intake's index, the batch, ActChangedCb and ZelNotify,
//      PackageNamePush, ActivitiesReport, the 1.0 deliveries, the extended path.
//   6. Enable and disable: merging the clients' requests into one request per pair below.
//   7. Client-library commands.
//   8. Queries.
//   9. Conversions of legacy records to HIDL records.
//  10. Kept but never called.
//  11. State dump.
//
// The path of a plain batch. The legacy module calls ActChangedCb (through sActCb); the client
// library calls ZelNotify, which unpacks its 24-byte records. Either takes mListMutex for the whole
// batch and then
//   - PackageNamePush(events, count, pid, batch) matches each event, under eventMutex, against
//     the open requests and files one copy per matching request in `batch`, under the request's
//     pid (recording the pid in packageNames and the event type in mLastActivityEvent);
//   - ActivitiesReport(batch) walks packageNames: each pid's events go to that pid's 1.1 clients
//     (onActivityChangedV1_1), and in their 1.0 form to every 1.0 client (ActChangedCbV1_0),
//     which gets a call for every pid, possibly empty.
// Extended batches (ActExtendChangedCb) are not matched: every client of both versions gets all.
//
// Locks, declared with the state they guard in ActivityInterface.h and checked by clang's
// thread-safety analysis: mListMutex (client maps, packageNames, the batch; held across every
// client call and linkToDeath), then eventMutex (mEventData, firstReport, the intake's
// mLastActivityEvent and index; never held across a call below). The pairs switched on below,
// the client library's list, its supported set and its binding are used without a lock, and so
// are the few locked lists reached through the *WithoutLock accessors of the header.

#include "ActivityInterface.h"

#include <cutils/properties.h>
#include <dlfcn.h>
#include <hwbinder/IPCThreadState.h>
#include <log/log.h>
#include <math.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <new>
#include <set>
#include <string_view>

#include "StateDump.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

// The device loads the sensor-framework client library from the vendor partition; host builds
// name the bare file, found through the library search path.
#ifndef ZEL_CLIENT_LIBRARY_PATH
#define ZEL_CLIENT_LIBRARY_PATH "/vendor/lib64/libZelClient.so"
#endif

// ---------------------------------------------------------------------------------------------
// 1. Constants and small conversions.

namespace {

// Batches of the layers below hold 1 to 192 records.
constexpr int kMaxActivityBatch = 192;
// Size of one activity record in the client library's notifications.
constexpr int kZelRecordBytes = 24;
// Size of one extended record in the client library's state answers.
constexpr size_t kZelStateRecordBytes = sizeof(ar_context_event);
// Requests of the no-wake pattern (1.0, 0, 0, 0) are stored with a latency of seven days.
constexpr int64_t kNoWakeLatencyNs = 604800000000000;
constexpr int64_t kSecondNs = 1000000000;
// A legacy `extra` field holds at most 32 bytes.
constexpr size_t kMaxExtraLength = sizeof(other_params::extra);
// The name this program gives itself in every client-library call.
constexpr char kZelClient[] = "ar-client";

// The calling process id of this thread's transaction, 0 when the thread has no state (the
// environment side answers 1 instead); `noState`, when given, is logged in that case.
int CallingPidOrZero(const char* noState = nullptr) {
    ::android::hardware::IPCThreadState* state = ::android::hardware::IPCThreadState::self();
    if (state != nullptr) return state->getCallingPid();
    if (noState != nullptr) ALOGE("%s", noState);
    return 0;
}

uint64_t PidKey(int pid) {
    return static_cast<uint64_t>(static_cast<int64_t>(pid));
}

// The text of a legacy `extra` field: up to its terminating NUL, never past its 32 bytes.
::android::hardware::hidl_string ExtraText(const other_params& params) {
    return ::android::hardware::hidl_string(params.extra,
                                            strnlen(params.extra, sizeof(params.extra)));
}

// The HIDL form of a legacy record's extra values.
V1_0::OtherParams ToHidlParams(const other_params& params) {
    V1_0::OtherParams out;
    for (size_t i = 0; i < 4; ++i) out.params[i] = params.params[i];
    out.extra = ExtraText(params);
    return out;
}

bool IsNoWakePattern(const double* params) {
    return params[0] == 1.0 && params[1] == 0.0 && params[2] == 0.0 && params[3] == 0.0;
}

// The legacy form of a request's extra values, the text cut at 32 bytes: the field is zeroed
// first, so a NUL follows the text unless it fills all 32 bytes.
other_params ToLegacyParamsTruncating(const V1_0::OtherParams& params) {
    other_params out;
    memset(&out, 0, sizeof(out));
    for (size_t i = 0; i < 4; ++i) out.params[i] = params.params[i];
    memcpy(out.extra, params.extra.c_str(), std::min(params.extra.size(), kMaxExtraLength));
    return out;
}

// Truncation toward zero; values beyond the 32-bit range saturate and NaN gives 0.
int32_t TruncateToInt32(double value) {
    if (isnan(value)) return 0;
    return static_cast<int32_t>(std::clamp(value, -2147483648.0, 2147483647.0));
}

const char* LoaderError() {
    const char* error = dlerror();
    return error != nullptr ? error : "";
}

// Whether a client map entry stands for the object that `who` refers to.
template <typename Callback>
bool IsSameRemote(const sp<Callback>& callback, const wp<IBase>& who) {
    if (callback == nullptr) return who.unsafe_get() == nullptr;
    return who.unsafe_get() != nullptr && callback->getWeakRefs() == who.get_refs();
}

// The position of the client map entry for `who`, -1 when there is none (a map holds an object
// once).
template <typename Callback>
ssize_t IndexOfRemote(const KeyedVector<sp<Callback>, uint64_t>& clients, const wp<IBase>& who) {
    for (size_t i = 0; i < clients.size(); ++i) {
        if (IsSameRemote(clients.keyAt(i), who)) return static_cast<ssize_t>(i);
    }
    return -1;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// 2. Class-wide state, constructed in this order at load. The client library's binding (g_zel*) is
// written by the constructor and destructor only and read without a lock.

bool ActivityInterface::sInterfaceExists = false;
const activity_callbacks ActivityInterface::sActCb = {
        .activity_changed = ActivityInterface::ActChangedCb,
        .activity_extend_changed = ActivityInterface::ActExtendChangedCb,
};
// NOLINTNEXTLINE(readability-identifier-naming): the library binding's g_zel* names are kept.
static const std::string g_zelLibPath = ZEL_CLIENT_LIBRARY_PATH;
::android::Mutex ActivityInterface::mListMutex;
::android::Mutex ActivityInterface::eventMutex;
KeyedVector<sp<V1_1::IActivityChangedCallback>, uint64_t> ActivityInterface::mClientVectorV1_1;
KeyedVector<sp<V1_0::IActivityChangedCallback>, uint64_t> ActivityInterface::mClientVectorV1_0;
std::vector<EventResponseData> ActivityInterface::mLastActivityEvent;
std::vector<EnableRequestData> ActivityInterface::mEventData;
std::vector<FirstReport> ActivityInterface::firstReport;
std::vector<uint64_t> ActivityInterface::packageNames;
uint64_t ActivityInterface::sEventListsGeneration;       // zero-initialised, like every static
static std::set<int32_t> g_zelSupportedActivities;       // activities routed to the library
static std::vector<EnableToNativeData> g_zelEnableData;  // pairs on in the library; not locked
static void* g_zelHandle = nullptr;
static ZelRunCommandFunc g_zelRunCommand = nullptr;
static ZelRunCommandIntFunc g_zelRunCommandInt = nullptr;
static ZelGetDataFunc g_zelGetData = nullptr;
// Used by the binding only, which sets both before it calls them, so nothing clears them.
static ZelSetCallbackFunc g_zelSetCallback = nullptr;
static ZelMotionEnableFunc g_zelArEnable = nullptr;
// How far the binding got and how many registration attempts it made, for the state dump;
// written and read like the pointers.
enum class ZelBinding { kNotEnabled, kLoadFailed, kSymbolsMissing, kRefused, kRegistered };
static ZelBinding g_zelBinding = ZelBinding::kNotEnabled;
static int g_zelAttempts = 0;
// sIntakeLookups and sBatch are defined with their types, in section 5.

// ---------------------------------------------------------------------------------------------
// 3. Life cycle and client-library binding.

ActivityInterface::ActivityInterface(const activity_interface* impl) : mImpl(impl) {
    ALOGI("Construct ActivityInterface");
    LOG_ALWAYS_FATAL_IF(sInterfaceExists);
    if (mImpl != nullptr) {
        mImpl->register_callbacks(&sActCb);
    } else {
        ALOGE("%s: mImpl interface is not available", "ActivityInterface");
    }
    sInterfaceExists = true;
    if (!property_get_bool("ro.odm.config.zel_service_enable", false)) {
        ALOGE("%s: [ZEL]zel service not enable!", "ActivityInterface");
        return;
    }
    BindZelClient();
}

// The supported set and the client library's list of pairs outlive the object.
ActivityInterface::~ActivityInterface() {
    ALOGI("Deconstruct ActivityInterface");
    sInterfaceExists = false;
    mClientVectorV1_0.clear();
    mClientVectorV1_1.clear();
    if (g_zelHandle != nullptr) {
        dlclose(g_zelHandle);
        g_zelHandle = nullptr;
        g_zelRunCommand = nullptr;
        g_zelRunCommandInt = nullptr;
        g_zelGetData = nullptr;
    }
    g_zelBinding = ZelBinding::kNotEnabled;
    g_zelAttempts = 0;
}

// Binds the client library and registers ZelNotify with it; on success its configuration mask
// names the activities routed to it from now on. Any failure leaves everything on the legacy
// module.
void ActivityInterface::BindZelClient() {
    g_zelHandle = dlopen(g_zelLibPath.c_str(), RTLD_LAZY);
    if (g_zelHandle == nullptr) {
        ALOGE("%s: [ZEL]zel hidl interface dlopen err:%s, used tradition case\n",
              "ActivityInterface", LoaderError());
        g_zelBinding = ZelBinding::kLoadFailed;
        return;
    }
    g_zelSetCallback = reinterpret_cast<ZelSetCallbackFunc>(dlsym(g_zelHandle, "ZelSetCallback"));
    g_zelRunCommand = reinterpret_cast<ZelRunCommandFunc>(dlsym(g_zelHandle, "ZelRunCommand"));
    g_zelRunCommandInt =
            reinterpret_cast<ZelRunCommandIntFunc>(dlsym(g_zelHandle, "ZelRunCommandInt"));
    g_zelGetData = reinterpret_cast<ZelGetDataFunc>(dlsym(g_zelHandle, "ZelGetData"));
    g_zelArEnable = reinterpret_cast<ZelMotionEnableFunc>(dlsym(g_zelHandle, "ZelMotionEnable"));
    if (g_zelSetCallback == nullptr || g_zelRunCommand == nullptr ||
        g_zelRunCommandInt == nullptr || g_zelGetData == nullptr || g_zelArEnable == nullptr) {
        // The handle stays open until the destructor.
        g_zelRunCommand = nullptr;
        g_zelRunCommandInt = nullptr;
        g_zelGetData = nullptr;
        ALOGE("%s:[ZEL]zel interface dlsym err:%s\n", "ActivityInterface", LoaderError());
        g_zelBinding = ZelBinding::kSymbolsMissing;
        return;
    }
    g_zelBinding = ZelBinding::kRefused;
    for (int attempt = 0; attempt < 3; ++attempt) {
        ALOGI("%s:[ZEL]retry count[%d]\n", "ActivityInterface", attempt);
        g_zelAttempts = attempt + 1;
        if (!g_zelArEnable(30) || g_zelSetCallback(kZelClient, ZelNotify) < 0) {
            ALOGE("%s:[ZEL]g_zelSetCallback or g_zelArEnable failed\n", "ActivityInterface");
            continue;
        }
        std::vector<int32_t> config;
        if (g_zelGetData("ar_config", 0, config) < 0) {
            ALOGE("%s:[ZEL]g_zelGetData failed\n", "ActivityInterface");
            continue;
        }
        // An answer without any word reads as an empty mask.
        const uint32_t mask = config.empty() ? 0 : static_cast<uint32_t>(config[0]);
        ALOGI("%s: [ZEL]AR config : 0x%x", "ActivityInterface", mask);
        for (int bit = 0; bit < 32; ++bit) {
            if ((mask >> bit) & 1u) g_zelSupportedActivities.insert(bit);
        }
        g_zelBinding = ZelBinding::kRegistered;
        return;
    }
}

// ---------------------------------------------------------------------------------------------
// 4. Registration and death.

sp<ActivityInterface::RemoteListenerHidlDeathRecipient>
ActivityInterface::RemoteListenerHidlDeathRecipient::Create(const sp<ActivityInterface>& owner) {
    return new (std::nothrow) RemoteListenerHidlDeathRecipient(owner);
}

void ActivityInterface::RemoteListenerHidlDeathRecipient::serviceDied(uint64_t cookie,
                                                                      const wp<IBase>& who) {
    mOwner->HandleHidlDeath(cookie, who);
}

// Version 1.0: one shared recipient; a second registration from the same pid is refused.
Return<void> ActivityInterface::registerActivityCallback(
        const sp<V1_0::IActivityChangedCallback>& callback) {
    if (callback == nullptr) {
        ALOGE("invalid Callback");
        return Void();
    }
    if (mDeathRecipient == nullptr) {
        mDeathRecipient = RemoteListenerHidlDeathRecipient::Create(this);
        if (mDeathRecipient == nullptr) {
            ALOGE("registerActivityCallback mDeathRecipient new failed");
            return Void();
        }
    }
    const uint64_t pid = PidKey(CallingPidOrZero("IPCThreadState::self() V1_0 returns nullptr"));

    ::android::Mutex::Autolock lock(mListMutex);
    for (size_t i = 0; i < mClientVectorV1_0.size(); ++i) {
        if (mClientVectorV1_0.keyAt(i) == callback || mClientVectorV1_0.valueAt(i) == pid) {
            ALOGI("It's already register pid[%lu] V1_0 callback", pid);
            return Void();
        }
    }
    Return<bool> linked = callback->linkToDeath(mDeathRecipient, pid);
    if (!linked.isOk()) {
        ALOGE("Transaction error in linking to V1_0 ActivityInterface death: %s",
              linked.description().c_str());
    } else if (linked) {
        mClientVectorV1_0.add(callback, pid);
        ALOGD("Pid[%lu] link to V1_0 ActivityInterface death notification successful, total cb[%d]",
              pid, static_cast<int>(mClientVectorV1_0.size()));
    } else {
        ALOGW("Unable to link to V1_0 ActivityInterface death notifications");
    }
    return Void();
}

// Version 1.1: a recipient per registration; a registration from a pid that is already known
// replaces the earlier one, whose requests carry over (they are keyed by pid).
Return<void> ActivityInterface::registerActivityCallbackV1_1(
        const sp<V1_1::IActivityChangedCallback>& callback) {
    if (callback == nullptr) {
        ALOGE("invalid Callback");
        return Void();
    }
    sp<RemoteListenerHidlDeathRecipient> recipient = RemoteListenerHidlDeathRecipient::Create(this);
    if (recipient == nullptr) {
        ALOGE("registerActivityCallbackV1_1 deathRecipient new failed");
        return Void();
    }
    const uint64_t pid = PidKey(CallingPidOrZero("IPCThreadState::self() V1_1 returns nullptr"));

    ::android::Mutex::Autolock lock(mListMutex);
    for (size_t i = 0; i < mClientVectorV1_1.size(); ++i) {
        if (mClientVectorV1_1.keyAt(i) == callback) {
            ALOGI("It's already register pid[%lu] V1_1 callback", pid);
            return Void();
        }
        if (mClientVectorV1_1.valueAt(i) == pid) {
            // The old callback stays linked.
            mClientVectorV1_1.removeItemsAt(i);
            for (size_t j = 0; j < mDeathRecipientVectorV1_1.size(); ++j) {
                if (mDeathRecipientVectorV1_1.valueAt(j) == pid) {
                    const sp<RemoteListenerHidlDeathRecipient> old =
                            mDeathRecipientVectorV1_1.keyAt(j);
                    mDeathRecipientVectorV1_1.removeItem(old);
                    break;
                }
            }
            ALOGI("It's already register pid[%lu] V1_1 callback, delete...", pid);
            break;
        }
    }
    // Filed before linking, and kept when linking fails.
    mDeathRecipientVectorV1_1.add(recipient, pid);
    Return<bool> linked = callback->linkToDeath(recipient, pid);
    if (!linked.isOk()) {
        ALOGE("Transaction error in linking to V1_1 ActivityInterface death: %s",
              linked.description().c_str());
    } else if (linked) {
        mClientVectorV1_1.add(callback, pid);
        ALOGD("Pid[%lu] link to V1_1 ActivityInterface death notification successful, total cb[%d]",
              pid, static_cast<int>(mClientVectorV1_1.size()));
    } else {
        ALOGW("Unable to link to V1_1 ActivityInterface death notifications");
    }
    return Void();
}

// Forgets the dead client. Only a 1.1 client's requests are erased; nothing is sent below, and
// the pairs it switched on stay on until a later disable.
void ActivityInterface::HandleHidlDeath(uint64_t cookie, const wp<IBase>& who) {
    ALOGI("serviceDied, cookie is %lu", cookie);
    // Deliberate: the recipient is looked up without mListMutex, before unlinkToDeath.
    const KeyedVector<sp<RemoteListenerHidlDeathRecipient>, uint64_t>& recipients =
            DeathRecipientsWithoutLock();
    sp<RemoteListenerHidlDeathRecipient> recipient;
    for (size_t i = 0; i < recipients.size(); ++i) {
        if (recipients.valueAt(i) == cookie) {
            recipient = recipients.keyAt(i);
            break;
        }
    }
    sp<IBase> object = who.promote();
    if (object == nullptr) {
        ALOGE("Invalide IBase object");
    } else {
        if (recipient != nullptr) {
            object->unlinkToDeath(recipient).isOk();
        } else {
            ALOGE("DeathRecipient is nullptr");
        }
        if (mDeathRecipient != nullptr) object->unlinkToDeath(mDeathRecipient).isOk();
    }

    ::android::Mutex::Autolock lock(mListMutex);
    const ssize_t v1_1 = IndexOfRemote(mClientVectorV1_1, who);
    if (v1_1 >= 0) {
        const uint64_t pid = mClientVectorV1_1.valueAt(v1_1);
        {
            ::android::Mutex::Autolock events(eventMutex);
            mEventData.erase(std::remove_if(mEventData.begin(), mEventData.end(),
                                            [pid](const EnableRequestData& request) {
                                                return request.pid == pid;
                                            }),
                             mEventData.end());
            ++sEventListsGeneration;
        }
        mClientVectorV1_1.removeItemsAt(v1_1);
        ALOGI("######V1_1 Match, remainder cb[%d]!!!######",
              static_cast<int>(mClientVectorV1_1.size()));
    }
    const ssize_t v1_0 = IndexOfRemote(mClientVectorV1_0, who);
    if (v1_0 >= 0) {
        mClientVectorV1_0.removeItemsAt(v1_0);
        ALOGI("######V1_0 Match, remainder cb[%d]!!!######",
              static_cast<int>(mClientVectorV1_0.size()));
    } else {
        ALOGI("finish");
    }
}

// ---------------------------------------------------------------------------------------------
// 5. Intake and fan-out.

// The intake's index: what PackageNamePush looks up for each event, kept beside the lists it
// indexes and guarded by eventMutex (sIntakeLookups); rebuilt whenever sEventListsGeneration has
// moved since it was built. It remembers positions in mLastActivityEvent and packageNames; those
// in mLastActivityEvent are checked before use, since a disable erases last events without any
// lock. Why it is built
// this way, and what it costs against the floor of a delivery, is in BENCHMARKS.md.

namespace {

constexpr uint32_t kUnknown = UINT32_MAX;
// No pid key: keys are 32-bit pids sign-extended to 64 bits.
constexpr uint64_t kNoPid = static_cast<uint64_t>(INT64_MIN);

// The event type in the high half, the activity in the low half: the key is its own hash, the
// activities spreading the pairs over the table.
uint64_t PairKey(uint32_t activity, uint32_t eventType) {
    return static_cast<uint64_t>(eventType) << std::numeric_limits<uint32_t>::digits | activity;
}

// A request of mEventData, filed under its pair.
struct IndexedRequest {
    uint64_t pair;
    uint32_t request;      // position in mEventData
    uint32_t last;         // position of its (pid, activity) in mLastActivityEvent, if known
    uint32_t pidPosition;  // position of its pid in packageNames, if known
};

// The requests of one pair, positions [begin, end) of IntakeLookups::requests (end 0: a free
// slot), and the first-report limit last looked up for it, with the intake pid it was for.
struct PairSlot {
    uint64_t pair{};
    uint32_t begin{};
    uint32_t end{};
    uint64_t limitPid = kNoPid;
    int64_t limit{};
};

}  // namespace

struct IntakeLookups {
    uint64_t generation = UINT64_MAX;      // that of the lists when built; none at first
    std::vector<IndexedRequest> requests;  // by pair, then position
    std::vector<PairSlot> slots;           // open addressing over the pairs of `requests`
    size_t mask = 0;

    // The position of the pair's slot, else of the first free one on its probe sequence; the
    // table's size when neither is found once round the table.
    size_t Probe(uint64_t pair) const {
        size_t i = pair & mask;
        for (size_t left = slots.size(); left != 0; --left, i = (i + 1) & mask) {
            if (slots[i].end == 0 || slots[i].pair == pair) return i;
        }
        return slots.size();
    }

    // The slot of the pair, or null when no request is for it. Build leaves a free slot.
    PairSlot* Find(uint64_t pair) {
        PairSlot& slot = slots[Probe(pair)];
        return slot.end != 0 ? &slot : nullptr;
    }

    void Build(const std::vector<EnableRequestData>& eventData);

    // The timestamp of the first `firstReport` entry of (pid, the slot's pair), 0 when none;
    // remembered for the pid last asked about, until the next rebuild.
    static int64_t Limit(PairSlot& slot, uint64_t pid, const std::vector<FirstReport>& firstReport) {
        if (slot.limitPid != pid) {
            auto found = std::find_if(firstReport.begin(), firstReport.end(), [&](const auto& entry) {
                return entry.pid == pid && PairKey(entry.activity, entry.eventType) == slot.pair;
            });
            slot.limit = found != firstReport.end() ? found->timestamp : 0;
            slot.limitPid = pid;
        }
        return slot.limit;
    }
};

// Out of line: it runs only when the lists changed, and would crowd the intake loop. The
// positions of each request's last event and pid are found at its first match after a rebuild.
__attribute__((noinline)) void IntakeLookups::Build(const std::vector<EnableRequestData>& eventData) {
    requests.clear();
    for (size_t i = 0; i < eventData.size(); ++i) {
        const EnableRequestData& request = eventData[i];
        requests.push_back({PairKey(request.activity, request.eventType), static_cast<uint32_t>(i),
                            kUnknown, kUnknown});
    }
    // A pair's requests stay in list order.
    std::stable_sort(requests.begin(), requests.end(),
                     [](const auto& a, const auto& b) { return a.pair < b.pair; });
    size_t size = 2;
    while (size < 2 * requests.size()) size *= 2;
    slots.assign(size, PairSlot{});
    mask = size - 1;
    for (size_t begin = 0, end = 0; begin < requests.size(); begin = end) {
        const uint64_t pair = requests[begin].pair;
        for (end = begin + 1; end < requests.size() && requests[end].pair == pair; ++end) {
        }
        const size_t i = Probe(pair);
        LOG_ALWAYS_FATAL_IF(i == slots.size(), "intake table of %zu slots is full", slots.size());
        slots[i].pair = pair;
        slots[i].begin = static_cast<uint32_t>(begin);
        slots[i].end = static_cast<uint32_t>(end);
    }
}

namespace {

// The lists that the intake appends to, with where their contents lie as read under eventMutex
// for one event.
struct IntakeLists {
    std::vector<EventResponseData>& lastEvents;
    std::vector<uint64_t>& pids;
    std::vector<std::vector<V1_1::ActivityEventV1_1>>& eventsByPid;
    EventResponseData* lastData;
    size_t lastCount;
    std::vector<V1_1::ActivityEventV1_1>* buffers;

    IntakeLists(std::vector<EventResponseData>& last, std::vector<uint64_t>& pidList,
                std::vector<std::vector<V1_1::ActivityEventV1_1>>& buffersByPid)
        : lastEvents(last),
          pids(pidList),
          eventsByPid(buffersByPid),
          lastData(last.data()),
          lastCount(last.size()),
          buffers(buffersByPid.data()) {}
    // After an append, which may move a list.
    void Reread() {
        lastData = lastEvents.data();
        lastCount = lastEvents.size();
        buffers = eventsByPid.data();
    }
};

// The position of the first last event of the request's (pid, activity), searched from the
// front; a new entry with the event's timestamp when there is none.
uint32_t FindOrAddLastEvent(IntakeLists& lists, const EnableRequestData& request,
                            int64_t timestamp) {
    std::vector<EventResponseData>& last = lists.lastEvents;
    auto found = std::find_if(last.begin(), last.end(), [&](const EventResponseData& entry) {
        return entry.pid == request.pid && entry.activity == request.activity;
    });
    if (found == last.end()) {
        EventResponseData entry{};
        entry.pid = request.pid;
        entry.activity = request.activity;
        entry.timestamp = timestamp;
        found = last.insert(found, entry);
    }
    const auto position = static_cast<uint32_t>(found - last.begin());
    lists.Reread();
    return position;
}

// The position of the pid in packageNames, appended when new.
uint32_t FindOrAddPackageName(IntakeLists& lists, uint64_t pid) {
    auto found = std::find(lists.pids.begin(), lists.pids.end(), pid);
    if (found == lists.pids.end()) found = lists.pids.insert(found, pid);
    const auto position = static_cast<uint32_t>(found - lists.pids.begin());
    lists.eventsByPid.resize(lists.pids.size());
    lists.Reread();
    return position;
}

// For an event that passed the first-report limit, one matching request: records the event type
// last passed on for the request's (pid, activity) and files the event under the request's pid.
// The intake keeps one last event per (pid, activity), so an entry of the request's (pid,
// activity) at the remembered position is the first one. packageNames only grows, under the lock
// held throughout an intake, so a known position of a pid stays its position.
inline void OneDataPush(const V1_1::ActivityEventV1_1& event, const EnableRequestData& request,
                        IndexedRequest& indexed, IntakeLists& lists) {
    if (indexed.last >= lists.lastCount || lists.lastData[indexed.last].pid != request.pid ||
        lists.lastData[indexed.last].activity != request.activity) {
        indexed.last = FindOrAddLastEvent(lists, request, event.timestamp);
    }
    lists.lastData[indexed.last].eventType = event.eventType;
    if (indexed.pidPosition == kUnknown)
        indexed.pidPosition = FindOrAddPackageName(lists, request.pid);
    lists.buffers[indexed.pidPosition].push_back(event);
}

// The 1.0 form of a delivered event.
V1_0::ActivityEvent ShortForm(const V1_1::ActivityEventV1_1& event) {
    V1_0::ActivityEvent out;
    out.eventType = event.eventType;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    return out;
}

}  // namespace

// A batch of plain events on its way to the clients. Kept between batches (sBatch) with the
// capacity of its buffers.
struct ActivityBatch {
    // Each pid's events of the batch, at the pid's position in packageNames; emptied as they are
    // delivered.
    std::vector<std::vector<V1_1::ActivityEventV1_1>> eventsByPid;
    // The 1.1 clients by pid, each pid's in map order: the fan-out's working list.
    std::vector<std::pair<uint64_t, size_t>> clientsByPid;
};

IntakeLookups ActivityInterface::sIntakeLookups;
ActivityBatch ActivityInterface::sBatch;

void ActivityInterface::ActChangedCb(const activity_event* events, int count) {
    ALOGI("ActChangedCb start count[%d]", count);
    if (events == nullptr || count < 1 || count > kMaxActivityBatch) {
        // Deliberate: the line number is part of the text. Guarded by the test scenario
        // tests/scenarios/activity-intake.scenario.
        ALOGE("(%s:%d) Invalid actChangedCb. Count: %d", "ActChangedCb", 413, count);
        return;
    }
    const int pid = CallingPidOrZero();
    ::android::Mutex::Autolock lock(mListMutex);
    PackageNamePush(events, count, pid, sBatch);
    ActivitiesReport(sBatch);
    ALOGI("ActChangedCb end, pid[%d]", pid);
}

// Notifications of the client library: 24-byte activity records back to back in `data`.
void ActivityInterface::ZelNotify(int32_t status, int32_t byteLength,
                                  const std::vector<int32_t>& data) {
    const int count = byteLength / kZelRecordBytes;
    if (count > kMaxActivityBatch || byteLength < 1 || data.data() == nullptr) {
        // Deliberate: the line number is part of the text. Guarded by the test scenario
        // tests/scenarios/client-library-notify.scenario.
        ALOGE("(%s:%d) [ZEL]Invalid ZelNotify. Count: %d", "ZelNotify", 151, count);
        return;
    }
    // Records past the end of the storage are never read, whatever the byte length says; the
    // count logged is still the one the byte length gives.
    const size_t storedRecords = data.size() * sizeof(int32_t) / kZelRecordBytes;
    const int readable = static_cast<int>(std::min(static_cast<size_t>(count), storedRecords));
    std::vector<activity_event> events(readable);
    for (int i = 0; i < readable; ++i) {
        memcpy(&events[i],
               reinterpret_cast<const uint8_t*>(data.data()) +
                       static_cast<size_t>(i) * kZelRecordBytes,
               kZelRecordBytes);
        ALOGI("%s: [ZEL]AR_REPORT_EVENT: [%d] e: %d, a:%d, t:%ld, c:%d, arStatus: %d", "ZelNotify",
              i, events[i].event_type, events[i].activity, events[i].timestamp,
              events[i].confidence, status);
    }
    const int pid = CallingPidOrZero();
    ::android::Mutex::Autolock lock(mListMutex);
    const size_t entries = PackageNamePush(events.data(), readable, pid, sBatch);
    ALOGI("%s: [ZEL]PackageNamePush, events size:%d, eventDataFit size:%ld", "ZelNotify", count,
          static_cast<long>(entries));
    ActivitiesReport(sBatch);
    ALOGI("%s: [ZEL]Notify end, pid[%d]", "ZelNotify", pid);
}

// Matches each event against the requests, in list order, as of the moment the event is taken
// (an enable or disable may land between two events), and files one entry per matching request
// in `batch`, under the request's pid. Returns the number of entries.
size_t ActivityInterface::PackageNamePush(const activity_event* events, int count, int pid,
                                          ActivityBatch& batch) {
    size_t entries = 0;
    for (int i = 0; i < count; ++i) {
        // An event of type 0 is skipped without taking the lock.
        if (events[i].event_type != 0) entries += MatchEvent(events[i], pid, batch);
    }
    return entries;
}

// One event of PackageNamePush, matched under eventMutex; returns the number of entries filed.
size_t ActivityInterface::MatchEvent(const activity_event& event, int pid, ActivityBatch& batch) {
    ::android::Mutex::Autolock lock(eventMutex);
    IntakeLookups& lookups = sIntakeLookups;
    if (lookups.generation != sEventListsGeneration) {
        lookups.Build(mEventData);
        lookups.generation = sEventListsGeneration;
    }
    PairSlot* slot = lookups.Find(PairKey(event.activity, event.event_type));
    if (slot == nullptr) return 0;
    // Deliberate: the limit is the one filed under the pid that delivers the batch, not under the
    // request's pid. Guarded by the test scenario tests/scenarios/activity-enable.scenario.
    if (event.timestamp < IntakeLookups::Limit(*slot, PidKey(pid), firstReport)) return 0;
    // The request's activity is the event's.
    V1_1::ActivityEventV1_1 entry;
    entry.eventType = event.event_type;
    entry.activity = event.activity;
    entry.timestamp = event.timestamp;
    entry.confidence = event.confidence;
    // Read afresh for each event: a disable may have erased last events meanwhile.
    IntakeLists lists(mLastActivityEvent, packageNames, batch.eventsByPid);
    IndexedRequest* const first = lookups.requests.data() + slot->begin;
    IndexedRequest* const end = lookups.requests.data() + slot->end;
    const EnableRequestData* const requests = mEventData.data();
    for (IndexedRequest* indexed = first; indexed != end; ++indexed) {
        OneDataPush(entry, requests[indexed->request], *indexed, lists);
    }
    return static_cast<size_t>(end - first);
}

// Delivers `batch`. For each pid that was ever sent an event: its 1.1 clients get its events of the
// batch when there are any, and every 1.0 client gets them, possibly none.
void ActivityInterface::ActivitiesReport(ActivityBatch& batch) {
    if (packageNames.empty()) return;
    const size_t pidCount = packageNames.size();
    // The 1.1 clients by pid, each pid's in map order. The map holds still meanwhile: changing it
    // takes mListMutex.
    std::vector<std::pair<uint64_t, size_t>>& clients = batch.clientsByPid;
    clients.clear();
    for (size_t j = 0; j < mClientVectorV1_1.size(); ++j) {
        clients.emplace_back(mClientVectorV1_1.valueAt(j), j);
    }
    std::sort(clients.begin(), clients.end());
    for (size_t i = 0; i < pidCount; ++i) {
        const uint64_t pid = packageNames[i];
        std::vector<V1_1::ActivityEventV1_1>& eventsV1_1 = batch.eventsByPid[i];
        if (!eventsV1_1.empty() && !mClientVectorV1_1.isEmpty()) {
            auto first = std::lower_bound(clients.begin(), clients.end(),
                                          std::make_pair(pid, size_t{0}));
            for (auto client = first; client != clients.end() && client->first == pid; ++client) {
                const size_t j = client->second;
                const sp<V1_1::IActivityChangedCallback>& callback = mClientVectorV1_1.keyAt(j);
                if (callback == nullptr) continue;
                Return<void> ret = callback->onActivityChangedV1_1(
                        hidl_vec<V1_1::ActivityEventV1_1>(eventsV1_1));
                if (!ret.isOk()) {
                    // Deliberate: names the map entry at the pid's position in packageNames, not
                    // the client that failed (past the end of the map, the client that failed).
                    // Guarded by ActivityEventsTest.FailingClientsAreLoggedAndTheOthersServed.
                    const size_t shown = i < mClientVectorV1_1.size() ? i : j;
                    ALOGI("%s: Unable to invoke onActivityChangedV1_1 PID[%lu]", "ActivitiesReport",
                          mClientVectorV1_1.valueAt(shown));
                }
                ALOGI("able to onActivityChangedV1_1");
            }
        }
        // The 1.0 list is only built when there is a 1.0 client to hand it to.
        std::vector<V1_0::ActivityEvent> eventsV1_0;
        if (!mClientVectorV1_0.isEmpty()) {
            eventsV1_0.resize(eventsV1_1.size());
            std::transform(eventsV1_1.begin(), eventsV1_1.end(), eventsV1_0.begin(), ShortForm);
        }
        eventsV1_1.clear();
        ActChangedCbV1_0(eventsV1_0);
    }
}

void ActivityInterface::ActChangedCbV1_0(const std::vector<V1_0::ActivityEvent>& events) {
    if (mClientVectorV1_0.isEmpty()) return;
    for (size_t i = 0; i < mClientVectorV1_0.size(); ++i) {
        const sp<V1_0::IActivityChangedCallback>& callback = mClientVectorV1_0.keyAt(i);
        if (callback == nullptr) {
            ALOGE("actChangedCb V1_0 callback is nullptr, PID[%lu]", mClientVectorV1_0.valueAt(i));
        } else {
            Return<void> ret =
                    callback->onActivityChangedV1_0(hidl_vec<V1_0::ActivityEvent>(events));
            if (!ret.isOk()) {
                ALOGE("%s: Unable to invoke onActivityChangedV1_0 PID[%lu]", "ActChangedCbV1_0",
                      mClientVectorV1_0.valueAt(i));
            }
        }
    }
}

// Extended events are not matched against the requests: every client gets the whole batch.
void ActivityInterface::ActExtendChangedCb(const ar_context_event* events, int count) {
    if (events == nullptr || count < 1 || count > kMaxActivityBatch) {
        // Deliberate: the line number is part of the text. Guarded by the test scenario
        // tests/scenarios/activity-intake.scenario.
        ALOGE("(%s:%d) Invalid actExtendChangedCb. Count: %d", "ActExtendChangedCb", 180, count);
        return;
    }
    std::vector<V1_1::ActivityEventExtendV1_1> eventsV1_1;
    std::vector<V1_0::ActivityEventExtend> eventsV1_0;
    for (int i = 0; i < count; ++i) {
        eventsV1_1.push_back(convertACEToAEEV1_1(events[i]));
        eventsV1_0.push_back(convertACEToAEEV1_0(events[i]));
    }
    ::android::Mutex::Autolock lock(mListMutex);
    for (size_t i = 0; i < mClientVectorV1_1.size(); ++i) {
        const sp<V1_1::IActivityChangedCallback>& callback = mClientVectorV1_1.keyAt(i);
        if (callback == nullptr) {
            ALOGE("actExtendChangedCb V1_1 callback is nullptr, PID[%lu]",
                  mClientVectorV1_1.valueAt(i));
        } else {
            Return<void> ret = callback->onActivityExtendChangedV1_1(
                    hidl_vec<V1_1::ActivityEventExtendV1_1>(eventsV1_1));
            if (!ret.isOk()) {
                ALOGE("%s: Unable to invoke onActivityExtendChangedV1_1, PID[%lu]",
                      "ActExtendChangedCb", mClientVectorV1_1.valueAt(i));
            }
        }
    }
    ActExtendChangedCbV1_0(eventsV1_0);
}

void ActivityInterface::ActExtendChangedCbV1_0(const std::vector<V1_0::ActivityEventExtend>& events) {
    if (mClientVectorV1_0.isEmpty()) return;
    for (size_t i = 0; i < mClientVectorV1_0.size(); ++i) {
        const sp<V1_0::IActivityChangedCallback>& callback = mClientVectorV1_0.keyAt(i);
        if (callback == nullptr) {
            ALOGE("actExtendChangedCb V1_0 callback is nullptr, PID[%lu]",
                  mClientVectorV1_0.valueAt(i));
        } else {
            Return<void> ret = callback->onActivityExtendChangedV1_0(
                    hidl_vec<V1_0::ActivityEventExtend>(events));
            if (!ret.isOk()) {
                ALOGE("%s: Unable to invoke onActivityExtendChangedV1_0 PID[%lu]",
                      "ActExtendChangedCbV1_0", mClientVectorV1_0.valueAt(i));
            }
        }
    }
}

// ---------------------------------------------------------------------------------------------
// 6. Enable and disable merging. Every client's request is kept under its pid in mEventData; the
// pairs switched on below are kept in mEnableToNativeData, and a pair goes down as one request
// with the smallest latency of its requests.

Return<int32_t> ActivityInterface::enableActivityEvent(uint32_t activity, uint32_t eventType,
                                                       int64_t reportLatencyNs) {
    ALOGI("enableActivityEvent activity[%d], event[%d] reportLatency[%ld]ns", activity, eventType,
          reportLatencyNs);
    if (!ValidEventType(eventType)) return 1;
    const int64_t latency = RoundNumbers(reportLatencyNs);
    const int callingPid = CallingPidOrZero();
    const uint64_t pid = PidKey(callingPid);
    {
        ::android::Mutex::Autolock lock(eventMutex);
        RemoveActivityEvent(pid, activity, eventType, mEventData);
        EnableRequestData request;
        memset(&request, 0, sizeof(request));
        request.pid = pid;
        request.activity = activity;
        request.eventType = eventType;
        request.reportLatencyNs = latency;
        mEventData.push_back(request);
        ++sEventListsGeneration;
    }
    bool enabled;
    if (FindEnableToNativeDataExist(activity, eventType, mEnableToNativeData)) {
        enabled = UpdateEnableNative({pid, activity, eventType, latency, 0});
    } else {
        int64_t merged;
        {
            ::android::Mutex::Autolock lock(eventMutex);
            merged = MinReportLatencyNsFunc(activity, eventType, mEventData);
        }
        int32_t status = 1;
        if (mImpl == nullptr) {
            ALOGE("%s: mImpl interface is not available", "enableActivityEvent");
        } else if (IsZelActivity(activity)) {
            status = g_zelRunCommand == nullptr
                             ? 0
                             : SendZelEnable("enableActivityEvent", activity, eventType, merged);
        } else {
            status = mImpl->enable_activity_event(activity, eventType, merged);
        }
        if (status == 0) HandleFirstReport(pid, activity, eventType);
        enabled = status == 0;
    }
    if (!enabled) {
        ::android::Mutex::Autolock lock(eventMutex);
        RemoveActivityEvent(pid, activity, eventType, mEventData);
        ++sEventListsGeneration;
    }
    ALOGI("enableActivityEvent end, pid[%d]", callingPid);
    return enabled ? 0 : 1;
}

// Switches a pair on below for the first time and records it.
bool ActivityInterface::UpdateEnableNative(const EnableToNativeData& record) {
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl interface is not available", "UpdateEnableNative");
        return false;
    }
    if (IsZelActivity(record.activity)) {
        if (g_zelRunCommand != nullptr &&
            SendZelEnable("UpdateEnableNative", record.activity, record.eventType,
                          record.reportLatencyNs, 0) != 0) {
            return false;
        }
    } else if (mImpl->enable_activity_event(record.activity, record.eventType,
                                            record.reportLatencyNs) != 0) {
        return false;
    }
    mEnableToNativeData.push_back(record);
    return true;
}

// A request joined a pair that was already on: the newest state below becomes its first-report
// limit (0 when only the client library answered).
void ActivityInterface::HandleFirstReport(uint64_t pid, uint32_t activity, uint32_t eventType) {
    ar_context_event* events = nullptr;
    const int n = mImpl->get_current_activity(&events);
    size_t zelRecords = 0;
    if (!g_zelEnableData.empty() && g_zelGetData != nullptr) zelRecords = ZelStateRecords().size();
    if (n == 0 && zelRecords == 0) return;
    // The newest state is the module's last record.
    const int64_t timestamp = events != nullptr && n > 0 ? events[n - 1].timestamp : 0;
    ::android::Mutex::Autolock lock(eventMutex);
    RemoveFirst(pid, activity, eventType);
    firstReport.push_back({pid, activity, eventType, timestamp});
    ++sEventListsGeneration;
}

Return<int32_t> ActivityInterface::enableActivityEventExtend(uint32_t activity, uint32_t eventType,
                                                             int64_t reportLatencyNs,
                                                             const V1_0::OtherParams& params) {
    ALOGI("enableActivityEventExtend activity[%d], event[%d] report_latency[%ld]ns", activity,
          eventType, reportLatencyNs);
    const int callingPid = CallingPidOrZero();
    if (ValidActivityEventExtend(eventType, callingPid, params) != 0) return 1;
    const uint64_t pid = PidKey(callingPid);
    int64_t latency = RoundNumbers(reportLatencyNs);
    const uint32_t noWake = IsNoWake(params) ? 1 : 0;
    if (noWake) latency = kNoWakeLatencyNs;
    {
        ::android::Mutex::Autolock lock(eventMutex);
        RemoveActivityEvent(pid, activity, eventType, mEventData);
        mEventData.push_back({pid, activity, eventType, latency, ToLegacyParamsTruncating(params)});
        ++sEventListsGeneration;
    }
    bool enabled;
    // A pair first switched on for pid 0 counts as not on: each request adds another entry.
    if (FindEnableToNativeData(activity, eventType, mEnableToNativeData).pid != 0) {
        int64_t merged;
        {
            ::android::Mutex::Autolock lock(eventMutex);
            merged = MinReportLatencyNsFunc(activity, eventType, mEventData);
        }
        enabled = EnableActivityEvent(activity, eventType, merged, params) == 0;
        if (enabled) HandleFirstReport(pid, activity, eventType);
    } else {
        enabled = UpdateEnableNativeExend({pid, activity, eventType, latency, noWake}, params);
    }
    if (activity == 64 && !g_zelEnableData.empty() && g_zelRunCommandInt != nullptr) {
        const int32_t code =
                g_zelRunCommandInt(kZelClient, "modem-update", TruncateToInt32(params.params[0]),
                                   TruncateToInt32(params.params[1]));
        ALOGI("%s: [ZEL]m-update retCode(%d)\n", "enableActivityEventExtend", code);
    }
    if (!enabled) {
        ::android::Mutex::Autolock lock(eventMutex);
        RemoveActivityEvent(pid, activity, eventType, mEventData);
        ++sEventListsGeneration;
    }
    ALOGI("enableActivityEventExtend end, pid[%d]", callingPid);
    return enabled ? 0 : 1;
}

// The extended request below. The over-long text is refused with the same message as a missing
// table, at info level.
int32_t ActivityInterface::EnableActivityEvent(uint32_t activity, uint32_t eventType,
                                               int64_t reportLatencyNs,
                                               const V1_0::OtherParams& params) {
    if (mImpl == nullptr || params.extra.size() > kMaxExtraLength) {
        ALOGI("%s: mImpl interface is not available", "EnableActivityEvent");
        return 1;
    }
    other_params legacy = ToLegacyParamsTruncating(params);
    if (!IsZelActivity(activity)) {
        return mImpl->enable_activity_event_extend(activity, eventType, reportLatencyNs, &legacy);
    }
    if (g_zelRunCommand == nullptr) return 0;
    return SendZelEnable("EnableActivityEvent", activity, eventType, reportLatencyNs,
                         IsNoWake(params) ? 1 : 0);
}

bool ActivityInterface::UpdateEnableNativeExend(const EnableToNativeData& record,
                                                const V1_0::OtherParams& params) {
    if (EnableActivityEvent(record.activity, record.eventType, record.reportLatencyNs, params) != 0) {
        return false;
    }
    mEnableToNativeData.push_back(record);
    return true;
}

Return<int32_t> ActivityInterface::disableActivityEvent(uint32_t activity, uint32_t eventType) {
    ALOGI("disableActivityEvent acivity[%d] event[%d]", activity, eventType);
    if (!ValidEventType(eventType)) return 1;
    const int callingPid = CallingPidOrZero();
    const uint64_t pid = PidKey(callingPid);
    {
        ::android::Mutex::Autolock lock(eventMutex);
        if (mEventData.empty() ||
            FindEnableRequestDataIndex(pid, activity, eventType, mEventData) < 0) {
            return 1;
        }
        RemoveActivityEvent(pid, activity, eventType, mEventData);
        RemoveFirst(pid, activity, eventType);
        ++sEventListsGeneration;
    }
    // Deliberate: without a lock, unlike the intake that writes the list.
    RemoveLastActivityEvent(pid, activity, eventType, LastEventsWithoutLock());
    return DisableOtherActivityEvent(activity, eventType) != 0 ? 1 : 0;
}

// What stays below once a request of the pair is gone: the merged latency of the remaining
// requests (extended ones with the last no-wake parameters), or the pair switched off.
int32_t ActivityInterface::DisableOtherActivityEvent(uint32_t activity, uint32_t eventType) {
    bool remains = false;
    bool noPlain = true;  // cleared by a plain request of the pair
    other_params kept;    // parameters of the last no-wake request, else zero
    memset(&kept, 0, sizeof(kept));
    int64_t merged = 0;
    {
        ::android::Mutex::Autolock lock(eventMutex);
        for (size_t i = 0; i < mEventData.size(); ++i) {
            if (ValidEventActivity(i, activity, eventType, noPlain, kept)) remains = true;
        }
        if (remains) merged = MinReportLatencyNsFunc(activity, eventType, mEventData);
    }
    if (remains) {
        if (mEnableToNativeData.empty()) return -1;
        if (!noPlain) {
            if (!IsZelActivity(activity)) {
                return mImpl->enable_activity_event(activity, eventType, merged);
            }
            return g_zelRunCommand == nullptr ? 0 : ZelEnableEvent(activity, eventType, merged);
        }
        if (mImpl == nullptr) return 1;
        return ZelEnableEventExtend(activity, eventType, merged, kept);
    }
    RemoveEnableToNativeData(activity, eventType, mEnableToNativeData);
    if (!IsZelActivity(activity)) {
        return mImpl == nullptr ? 0 : mImpl->disable_activity_event(activity, eventType);
    }
    if (g_zelRunCommand == nullptr) return 0;
    RemoveZelEnableData(activity, eventType);
    const int32_t code =
            RunZelCommand("ar-off", std::to_string(activity) + "," + std::to_string(eventType));
    ALOGI("%s: [ZEL]ar-off retCode(%d)\n", "DisableOtherActivityEvent", code);
    return code;
}

Return<int32_t> ActivityInterface::flush() {
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl interface is not available", "flush");
        return 1;
    }
    return mImpl->flush() != 0 ? 1 : 0;
}

// Activities named by the client library's configuration go to it; all others to the legacy
// module.
bool ActivityInterface::IsZelActivity(uint32_t activity) {
    return !g_zelSupportedActivities.empty() &&
           g_zelSupportedActivities.count(static_cast<int32_t>(activity)) != 0;
}

// Whole seconds, at least one. The latency is taken as unsigned, so a negative one counts as a
// huge value and is truncated as such.
int64_t ActivityInterface::RoundNumbers(int64_t reportLatencyNs) {
    uint64_t latency = static_cast<uint64_t>(reportLatencyNs);
    const uint64_t second = static_cast<uint64_t>(kSecondNs);
    latency = latency < second ? second : latency / second * second;
    return static_cast<int64_t>(latency);
}

// The smallest latency of the pair's requests; 0 when it has none, which happens only when a
// client's death erases the request between its filing and this look-up. Filed latencies are
// whole seconds, so none equals the starting value.
int64_t ActivityInterface::MinReportLatencyNsFunc(uint32_t activity, uint32_t eventType,
                                                  const std::vector<EnableRequestData>& requests) {
    constexpr int64_t kNoRequest = std::numeric_limits<int64_t>::max();
    int64_t smallest = kNoRequest;
    for (const EnableRequestData& request : requests) {
        if (request.activity == activity && request.eventType == eventType)
            smallest = std::min(smallest, request.reportLatencyNs);
    }
    return smallest == kNoRequest ? int64_t{} : smallest;
}

bool ActivityInterface::ValidEventType(uint32_t eventType) {
    return eventType == 1 || eventType == 2;
}

int32_t ActivityInterface::ValidActivityEventExtend(uint32_t eventType, int pid,
                                                    const V1_0::OtherParams& params) {
    if (!ValidEventType(eventType) || pid == -1 || params.extra.size() > kMaxExtraLength) return -1;
    return 0;
}

// `plain` is cleared by a plain request (first double 0.0); a no-wake request's parameters are
// copied out.
bool ActivityInterface::ValidEventActivity(size_t index, uint32_t activity, uint32_t eventType,
                                           bool& plain, other_params& out) {
    const EnableRequestData& request = mEventData[index];
    if (request.activity != activity || request.eventType != eventType) return false;
    if (request.params.params[0] == 0.0) {
        plain = false;
    } else if (IsRequestWake(request)) {
        out = request.params;
    }
    return true;
}

bool ActivityInterface::IsNoWake(const V1_0::OtherParams& params) {
    return IsNoWakePattern(params.params.data());
}

// True for the no-wake pattern, like IsNoWake.
bool ActivityInterface::IsRequestWake(const EnableRequestData& request) {
    return IsNoWakePattern(request.params.params);
}

void ActivityInterface::RemoveActivityEvent(uint64_t pid, uint32_t activity, uint32_t eventType,
                                            std::vector<EnableRequestData>& requests) {
    const int index = FindEnableRequestDataIndex(pid, activity, eventType, requests);
    if (index >= 0) requests.erase(requests.begin() + index);
}

void ActivityInterface::RemoveFirst(uint64_t pid, uint32_t activity, uint32_t eventType) {
    for (auto it = firstReport.begin(); it != firstReport.end(); ++it) {
        if (it->pid == pid && it->activity == activity && it->eventType == eventType) {
            firstReport.erase(it);
            return;
        }
    }
}

void ActivityInterface::RemoveLastActivityEvent(uint64_t pid, uint32_t activity, uint32_t eventType,
                                                std::vector<EventResponseData>& events) {
    for (auto it = events.begin(); it != events.end(); ++it) {
        if (it->pid == pid && it->activity == activity && it->eventType == eventType) {
            events.erase(it);
            return;
        }
    }
}

int ActivityInterface::FindEnableRequestDataIndex(uint64_t pid, uint32_t activity,
                                                  uint32_t eventType,
                                                  const std::vector<EnableRequestData>& requests) {
    for (size_t i = 0; i < requests.size(); ++i) {
        const EnableRequestData& request = requests[i];
        if (request.pid == pid && request.activity == activity && request.eventType == eventType) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

EnableToNativeData ActivityInterface::FindEnableToNativeData(
        uint32_t activity, uint32_t eventType, const std::vector<EnableToNativeData>& list) {
    for (const EnableToNativeData& entry : list) {
        if (entry.activity == activity && entry.eventType == eventType) return entry;
    }
    return EnableToNativeData{};  // all zero: pid 0
}

// Deliberate: -1 for an empty list, but 0 (the first entry) for a pair missing from a non-empty
// one. Guarded by ActivityBindingTest.RecreatedInterfaceKeepsTheRequests.
int ActivityInterface::FindEnableToNativeDataIndex(uint32_t activity, uint32_t eventType,
                                                   const std::vector<EnableToNativeData>& list) {
    if (list.empty()) return -1;
    const auto found = std::find_if(list.begin(), list.end(), [&](const EnableToNativeData& entry) {
        return entry.activity == activity && entry.eventType == eventType;
    });
    return found == list.end() ? 0 : static_cast<int>(found - list.begin());
}

// Deliberate: true when the pair is NOT in the list. Guarded by the test scenario
// tests/scenarios/activity-enable.scenario.
bool ActivityInterface::FindEnableToNativeDataExist(uint32_t activity, uint32_t eventType,
                                                    const std::vector<EnableToNativeData>& list) {
    for (const EnableToNativeData& entry : list) {
        if (entry.activity == activity && entry.eventType == eventType) return false;
    }
    return true;
}

// Deliberate: erases the pair's entry, or the first entry when the pair is missing. Guarded by
// ActivityBindingTest.RecreatedInterfaceKeepsTheRequests.
void ActivityInterface::RemoveEnableToNativeData(uint32_t activity, uint32_t eventType,
                                                 std::vector<EnableToNativeData>& list) {
    const int index = FindEnableToNativeDataIndex(activity, eventType, list);
    if (index >= 0) list.erase(list.begin() + index);
}

// ---------------------------------------------------------------------------------------------
// 7. Client-library commands: the list of pairs on in the library, sent whole with every "ar-on".

int ActivityInterface::FindZelEnableDataIndex(uint32_t activity, uint32_t eventType) {
    for (size_t i = 0; i < g_zelEnableData.size(); ++i) {
        if (g_zelEnableData[i].activity == activity && g_zelEnableData[i].eventType == eventType) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void ActivityInterface::UpdateZelEnableData(uint32_t activity, uint32_t eventType,
                                            int64_t reportLatencyNs, uint32_t noWake) {
    EnableToNativeData entry;
    entry.pid = 0;
    entry.activity = activity;
    entry.eventType = eventType;
    entry.reportLatencyNs = reportLatencyNs;
    entry.noWake = noWake;
    g_zelEnableData.push_back(entry);
}

void ActivityInterface::RemoveZelEnableData(uint32_t activity, uint32_t eventType) {
    const int index = FindZelEnableDataIndex(activity, eventType);
    if (index >= 0) g_zelEnableData.erase(g_zelEnableData.begin() + index);
}

// An existing entry only gets the new latency; its place and flag stay.
void ActivityInterface::UpsertZelEnableData(uint32_t activity, uint32_t eventType,
                                            int64_t reportLatencyNs, uint32_t noWake) {
    const int index = FindZelEnableDataIndex(activity, eventType);
    ALOGI("[ZEL]tmpIndex:%d\n", index);
    if (index >= 0) {
        g_zelEnableData[index].reportLatencyNs = reportLatencyNs;
    } else {
        UpdateZelEnableData(activity, eventType, reportLatencyNs, noWake);
    }
}

// "activity,eventType,latency,noWake,;" per entry, in list order, the last ";" included.
std::string ActivityInterface::BuildZelEnableStr() {
    std::string text;
    for (const EnableToNativeData& entry : g_zelEnableData) {
        text += std::to_string(entry.activity) + "," + std::to_string(entry.eventType) + "," +
                std::to_string(entry.reportLatencyNs) + "," + std::to_string(entry.noWake) + ",;";
    }
    return text;
}

// Upserts the pair, sends the whole list with "ar-on" and logs the parameter and the code.
int32_t ActivityInterface::SendZelEnable(const char* caller, uint32_t activity, uint32_t eventType,
                                         int64_t reportLatencyNs, uint32_t noWake,
                                         bool commaBeforeCode) {
    UpsertZelEnableData(activity, eventType, reportLatencyNs, noWake);
    const std::string param = BuildZelEnableStr();
    ALOGI("%s: [ZEL]enable activityHandle:%d, eventType:%d, cmdParam:%s\n", caller, activity,
          eventType, param.c_str());
    const int32_t code = RunZelCommand("ar-on", param);
    if (commaBeforeCode) {
        ALOGI("%s: [ZEL]ar-on, retCode(%d)", caller, code);
    } else {
        ALOGI("%s: [ZEL]ar-on retCode(%d)\n", caller, code);
    }
    return code;
}

int32_t ActivityInterface::ZelEnableEvent(uint32_t activity, uint32_t eventType,
                                          int64_t reportLatencyNs) {
    return SendZelEnable("ZelEnableEvent", activity, eventType, reportLatencyNs);
}

int32_t ActivityInterface::ZelEnableEventExtend(uint32_t activity, uint32_t eventType,
                                                int64_t reportLatencyNs, other_params params) {
    if (!IsZelActivity(activity)) {
        return mImpl->enable_activity_event_extend(activity, eventType, reportLatencyNs, &params);
    }
    if (g_zelRunCommand == nullptr) return 0;
    // Deliberate: this re-send logs its code with a comma and no line end. Guarded by the test
    // scenario tests/scenarios/activity-enable.scenario.
    return SendZelEnable("ZelEnableEventExtend", activity, eventType, reportLatencyNs,
                         IsNoWakePattern(params.params) ? 1 : 0, true);
}

int32_t ActivityInterface::RunZelCommand(const char* command, const std::string& param) {
    std::vector<uint8_t> output;
    return g_zelRunCommand(kZelClient, command, param.c_str(), static_cast<int32_t>(param.size()),
                           output);
}

// The records of the client library's "ar_status" item, 88 bytes each.
std::vector<ar_context_event> ActivityInterface::ZelStateRecords() {
    std::vector<int32_t> data;
    g_zelGetData("ar_status", 0, data);
    std::vector<ar_context_event> records(data.size() * sizeof(int32_t) / kZelStateRecordBytes);
    if (!records.empty())
        memcpy(records.data(), data.data(), records.size() * kZelStateRecordBytes);
    return records;
}

// ---------------------------------------------------------------------------------------------
// 8. Queries.

Return<void> ActivityInterface::getSupportedActivitiesList(getSupportedActivitiesList_cb _hidl_cb) {
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl interface is not available", "getSupportedActivitiesList");
        _hidl_cb({});
        return Void();
    }
    char const* const* list = nullptr;
    const int n = mImpl->get_supported_activities_list(&list);
    if (n < 1 || list == nullptr) {
        ALOGE("%s: can not get support activity, list_size(%d)", "getSupportedActivitiesList", n);
        _hidl_cb({});
        return Void();
    }
    ::android::hardware::hidl_string* names = new (std::nothrow)::android::hardware::hidl_string[n];
    if (names == nullptr) {
        // The only query that leaves its callback uncalled.
        ALOGE("getSupportedActivitiesList hidl string new failed");
        return Void();
    }
    for (int i = 0; i < n; ++i) names[i] = list[i];
    hidl_vec<::android::hardware::hidl_string> activities;
    activities.setToExternal(names, n);
    _hidl_cb(activities);
    delete[] names;
    return Void();
}

// The current state from both sources: the client library's records first (only when pairs are
// on in it), then the legacy module's records for the activities it did not report.
std::vector<ar_context_event> ActivityInterface::CurrentStates(const char* caller, bool v1_1) {
    std::vector<ar_context_event> answer;
    std::set<int32_t> fromZel;
    if (!g_zelEnableData.empty() && g_zelGetData != nullptr) {
        answer = ZelStateRecords();
        for (size_t i = 0; i < answer.size(); ++i) {
            const ar_context_event& record = answer[i];
            ALOGI("%s: [ZEL]AR_GET_STATE_REPORT_EVENT: [%d] a: %d, e: %d, t: %ld, c: %d\n", caller,
                  static_cast<int>(i), record.activity, record.event_type, record.timestamp,
                  record.confidence);
            fromZel.insert(static_cast<int32_t>(record.activity));
        }
    }
    if (mImpl == nullptr) {
        if (v1_1) {
            ALOGE("%s: mImpl V1_1 interface is not available", caller);
        } else {
            ALOGE("%s: mImpl V1_0 interface is not available", caller);
        }
        return answer;
    }
    ar_context_event* events = nullptr;
    const int n = mImpl->get_current_activity(&events);
    if (n < 1 || n > 5 || events == nullptr) {
        if (v1_1) {
            ALOGE("%s: mImpl V1_1 getCurrentActivity error size(%d)", caller, n);
        } else {
            ALOGE("%s: mImpl V1_0 getCurrentActivity error size(%d)", caller, n);
        }
        return answer;
    }
    for (int i = 0; i < n; ++i) {
        if (fromZel.count(static_cast<int32_t>(events[i].activity)) == 0)
            answer.push_back(events[i]);
    }
    return answer;
}

Return<void> ActivityInterface::getCurrentActivity(getCurrentActivity_cb _hidl_cb) {
    const std::vector<ar_context_event> states = CurrentStates("getCurrentActivity", false);
    std::vector<V1_0::ActivityEventExtend> answer(states.size());
    std::transform(states.begin(), states.end(), answer.begin(), convertACEToAEEV1_0);
    _hidl_cb(answer);
    return Void();
}

Return<void> ActivityInterface::getCurrentActivityV1_1(getCurrentActivityV1_1_cb _hidl_cb) {
    const std::vector<ar_context_event> states = CurrentStates("getCurrentActivityV1_1", true);
    std::vector<V1_1::ActivityEventExtendV1_1> answer(states.size());
    std::transform(states.begin(), states.end(), answer.begin(), convertACEToAEEV1_1);
    _hidl_cb(answer);
    return Void();
}

// ---------------------------------------------------------------------------------------------
// 9. Conversions of legacy records to HIDL records, used by the environment side too (the plain
// ones are in section 10: the intake builds its records in place).

V1_0::ActivityEventExtend ActivityInterface::convertACEToAEEV1_0(ar_context_event event) {
    V1_0::ActivityEventExtend out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.status = event.status;
    out.otherParams = ToHidlParams(event.params);
    return out;
}

V1_1::ActivityEventExtendV1_1 ActivityInterface::convertACEToAEEV1_1(ar_context_event event) {
    V1_1::ActivityEventExtendV1_1 out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.confidence = event.confidence;
    out.status = event.status;
    out.otherParams = ToHidlParams(event.params);
    return out;
}

// ---------------------------------------------------------------------------------------------
// 10. Kept but never called. The system must have these, and nothing reaches them: the intake
// does their work with its index (GetLastTime, CheckRepeatedEvent) and builds its records in place
// (convertAEToAEV1_0, convertAEToAEV1_1; the benchmark's floor uses the 1.1 one), and enable and
// disable find requests by position (FindEnableRequestData). A change here changes no behaviour.

V1_0::ActivityEvent ActivityInterface::convertAEToAEV1_0(activity_event event) {
    V1_0::ActivityEvent out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    return out;
}

V1_1::ActivityEventV1_1 ActivityInterface::convertAEToAEV1_1(activity_event event) {
    V1_1::ActivityEventV1_1 out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.confidence = event.confidence;
    return out;
}

int64_t ActivityInterface::GetLastTime(uint64_t pid, uint32_t activity, uint32_t eventType) {
    for (const FirstReport& entry : firstReport) {
        if (entry.pid == pid && entry.activity == activity && entry.eventType == eventType) {
            return entry.timestamp;
        }
    }
    return 0;
}

// Keeps the last event type passed on per (pid, activity); the timestamp stays the first one.
bool ActivityInterface::CheckRepeatedEvent(uint64_t pid, uint32_t activity, uint32_t eventType,
                                           uint64_t timestamp,
                                           std::vector<EventResponseData>& list) {
    for (EventResponseData& entry : list) {
        if (entry.pid == pid && entry.activity == activity) {
            entry.eventType = eventType;
            return true;
        }
    }
    EventResponseData entry{};
    entry.pid = pid;
    entry.activity = activity;
    entry.eventType = eventType;
    entry.timestamp = static_cast<int64_t>(timestamp);
    list.push_back(entry);
    return true;
}

EnableRequestData ActivityInterface::FindEnableRequestData(
        uint64_t pid, uint32_t activity, uint32_t eventType,
        const std::vector<EnableRequestData>& requests) {
    const int index = FindEnableRequestDataIndex(pid, activity, eventType, requests);
    EnableRequestData none;
    memset(&none, 0, sizeof(none));
    return index >= 0 ? requests[index] : none;
}

// ---------------------------------------------------------------------------------------------
// 11. State dump (ActivityRecognition::debug). Read only: it writes no log line, calls neither the
// legacy module nor the client library, and changes nothing. The client maps and packageNames are
// read under mListMutex and the request lists under eventMutex inside it, the order the fan-out
// takes them in. The lists that enable and disable use without a lock (mEnableToNativeData,
// g_zelEnableData, the supported set, the binding state and pointers) are read without one here
// too, as the system's other readers do: a dump racing an enable or disable may show them
// mid-change.

namespace {
// The `extra` text, up to its NUL or its 32 bytes, quoted; bytes outside printable ASCII, quotes
// and backslashes as \xHH.
std::string QuotedExtra(const other_params& params) {
    std::string text = "\"";
    for (const char byte :
         std::string_view(params.extra, strnlen(params.extra, sizeof(params.extra)))) {
        const unsigned char c = static_cast<unsigned char>(byte);
        if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
            text += static_cast<char>(c);
        } else {
            StringAppendF(&text, "\\x%02x", c);
        }
    }
    return text + "\"";
}

// Whether a plain request (first double 0) carries other values.
bool HasParams(const other_params& params) {
    return params.params[1] != 0.0 || params.params[2] != 0.0 || params.params[3] != 0.0 ||
           params.extra[0] != '\0';
}

void AppendParams(std::string* out, const other_params& params) {
    StringAppendF(out, " params[%g,%g,%g,%g] extra[%s]", params.params[0], params.params[1],
                  params.params[2], params.params[3], QuotedExtra(params).c_str());
}

void AppendPairs(std::string* out, const char* name, const std::vector<EnableToNativeData>& list) {
    StringAppendF(out, "%s (%zu):\n", name, list.size());
    for (const EnableToNativeData& entry : list) {
        StringAppendF(out, "  pid[%lu] activity[%d] event[%d] latency[%ld]ns noWake[%d]\n",
                      static_cast<uint64_t>(entry.pid), entry.activity, entry.eventType,
                      static_cast<int64_t>(entry.reportLatencyNs), entry.noWake);
    }
}

void AppendZelBinding(std::string* out) {
    static const char* const kStates[] = {"not enabled", "load failed", "symbols missing",
                                          "registration refused", "registered"};
    StringAppendF(out, "client library: %s (%s), attempts[%d]\n",
                  kStates[static_cast<int>(g_zelBinding)], g_zelLibPath.c_str(), g_zelAttempts);
    uint32_t mask = 0;
    std::string activities;
    for (int32_t activity : g_zelSupportedActivities) {
        mask |= 1u << activity;  // the set holds bits of a 32-bit mask
        StringAppendF(&activities, " %d", activity);
    }
    StringAppendF(out, "  AR config : 0x%x, supported activities (%zu):%s\n", mask,
                  g_zelSupportedActivities.size(), activities.c_str());
}
}  // namespace

void ActivityInterface::DumpState(std::string* out) const {
    StringAppendF(out, "legacy activity table: %s\n", mImpl != nullptr ? "present" : "absent");
    {
        ::android::Mutex::Autolock lists(mListMutex);
        AppendClients(out, "V1_1", mClientVectorV1_1);
        AppendClients(out, "V1_0", mClientVectorV1_0);
        ::android::Mutex::Autolock events(eventMutex);
        StringAppendF(out, "mEventData (%zu), in order:\n", mEventData.size());
        for (const EnableRequestData& request : mEventData) {
            const bool plain = request.params.params[0] == 0.0;
            StringAppendF(out, "  pid[%lu] activity[%d] event[%d] latency[%ld]ns %s", request.pid,
                          request.activity, request.eventType, request.reportLatencyNs,
                          plain ? "plain" : "extended");
            if (!plain || HasParams(request.params)) AppendParams(out, request.params);
            out->append("\n");
        }
        StringAppendF(out, "firstReport (%zu):\n", firstReport.size());
        for (const FirstReport& entry : firstReport) {
            StringAppendF(out, "  pid[%lu] activity[%d] event[%d] timestamp[%ld]\n", entry.pid,
                          entry.activity, entry.eventType, entry.timestamp);
        }
        StringAppendF(out, "packageNames (%zu):", packageNames.size());
        for (uint64_t pid : packageNames) StringAppendF(out, " %lu", pid);
        StringAppendF(out, "\nmLastActivityEvent: %zu entries\n", mLastActivityEvent.size());
    }
    AppendPairs(out, "mEnableToNativeData", mEnableToNativeData);
    AppendPairs(out, "g_zelEnableData", g_zelEnableData);
    StringAppendF(out, "  ar-on cmdParam:%s\n", BuildZelEnableStr().c_str());
    AppendZelBinding(out);
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
