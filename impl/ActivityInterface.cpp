#define LOG_TAG "AR_impl"

#include "ActivityInterface.h"

#include <hwbinder/IPCThreadState.h>
#include <log/log.h>
#include <string.h>

#include <new>

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

bool ActivityInterface::sInterfaceExists = false;
const activity_callbacks ActivityInterface::sActCb = {
        .activity_changed = ActivityInterface::ActChangedCb,
        .activity_extend_changed = ActivityInterface::ActExtendChangedCb,
};

// Class-wide state, constructed in this order.
::android::Mutex ActivityInterface::mListMutex;
::android::Mutex ActivityInterface::eventMutex;
KeyedVector<sp<V1_1::IActivityChangedCallback>, uint64_t> ActivityInterface::mClientVectorV1_1;
KeyedVector<sp<V1_0::IActivityChangedCallback>, uint64_t> ActivityInterface::mClientVectorV1_0;
std::vector<EventResponseData> ActivityInterface::mLastActivityEvent;
std::vector<EnableRequestData> ActivityInterface::mEventData;
std::vector<FirstReport> ActivityInterface::firstReport;
std::vector<uint64_t> ActivityInterface::packageNames;

namespace {
// The text of a legacy `extra` field: up to its terminating NUL, never past its 32 bytes.
::android::hardware::hidl_string extraText(const other_params& params) {
    return ::android::hardware::hidl_string(params.extra,
                                            strnlen(params.extra, sizeof(params.extra)));
}

V1_0::OtherParams convertOtherParams(const other_params& params) {
    V1_0::OtherParams out;
    for (size_t i = 0; i < 4; ++i) out.params[i] = params.params[i];
    out.extra = extraText(params);
    return out;
}

// Batches of the layers below hold 1 to 192 records.
constexpr int kMaxBatch = 192;
// Size of one activity record in the client library's notifications.
constexpr int kZelRecordBytes = 24;

// The calling process id of this thread's transaction, sign-extended; false (and 0) when the
// thread has no state.
bool CallingPid(int* pid) {
    ::android::hardware::IPCThreadState* state = ::android::hardware::IPCThreadState::self();
    *pid = state != nullptr ? state->getCallingPid() : 0;
    return state != nullptr;
}

uint64_t PidKey(int pid) {
    return static_cast<uint64_t>(static_cast<int64_t>(pid));
}

// Whether a client map entry stands for the object that `who` refers to.
template <typename Callback>
bool IsSameRemote(const sp<Callback>& callback, const wp<IBase>& who) {
    if (callback == nullptr) return who.unsafe_get() == nullptr;
    return who.unsafe_get() != nullptr && callback->getWeakRefs() == who.get_refs();
}
}  // namespace

ActivityInterface::ActivityInterface(const activity_interface* impl) : mImpl(impl) {
    ALOGI("Construct ActivityInterface");
    LOG_ALWAYS_FATAL_IF(sInterfaceExists);
    if (mImpl != nullptr) {
        mImpl->register_callbacks(&sActCb);
    } else {
        ALOGE("%s: mImpl interface is not available", "ActivityInterface");
    }
    sInterfaceExists = true;
}

ActivityInterface::~ActivityInterface() {
    ALOGI("Deconstruct ActivityInterface");
    sInterfaceExists = false;
}

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

V1_0::ActivityEventExtend ActivityInterface::convertACEToAEEV1_0(ar_context_event event) {
    V1_0::ActivityEventExtend out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.status = event.status;
    out.otherParams = convertOtherParams(event.params);
    return out;
}

V1_1::ActivityEventExtendV1_1 ActivityInterface::convertACEToAEEV1_1(ar_context_event event) {
    V1_1::ActivityEventExtendV1_1 out;
    out.eventType = event.event_type;
    out.activity = event.activity;
    out.timestamp = event.timestamp;
    out.confidence = event.confidence;
    out.status = event.status;
    out.otherParams = convertOtherParams(event.params);
    return out;
}

// Client registration and death.

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
    int callingPid = 0;
    if (!CallingPid(&callingPid)) ALOGE("IPCThreadState::self() V1_0 returns nullptr");
    const uint64_t pid = PidKey(callingPid);

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
        ALOGD("Pid[%lu] link to V1_0 ActivityInterface death notification successful, total "
              "cb[%d]",
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
    int callingPid = 0;
    if (!CallingPid(&callingPid)) ALOGE("IPCThreadState::self() V1_1 returns nullptr");
    const uint64_t pid = PidKey(callingPid);

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
                    mDeathRecipientVectorV1_1.removeItem(mDeathRecipientVectorV1_1.keyAt(j));
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
        ALOGD("Pid[%lu] link to V1_1 ActivityInterface death notification successful, total "
              "cb[%d]",
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
    sp<RemoteListenerHidlDeathRecipient> recipient;
    for (size_t i = 0; i < mDeathRecipientVectorV1_1.size(); ++i) {
        if (mDeathRecipientVectorV1_1.valueAt(i) == cookie) {
            recipient = mDeathRecipientVectorV1_1.keyAt(i);
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
    for (size_t i = 0; i < mClientVectorV1_1.size(); ++i) {
        if (!IsSameRemote(mClientVectorV1_1.keyAt(i), who)) continue;
        const uint64_t pid = mClientVectorV1_1.valueAt(i);
        {
            ::android::Mutex::Autolock events(eventMutex);
            for (auto it = mEventData.begin(); it != mEventData.end();) {
                it = it->pid == pid ? mEventData.erase(it) : it + 1;
            }
        }
        mClientVectorV1_1.removeItemsAt(i);
        ALOGI("######V1_1 Match, remainder cb[%d]!!!######",
              static_cast<int>(mClientVectorV1_1.size()));
        break;
    }
    bool matched = false;
    for (size_t i = 0; i < mClientVectorV1_0.size(); ++i) {
        if (!IsSameRemote(mClientVectorV1_0.keyAt(i), who)) continue;
        mClientVectorV1_0.removeItemsAt(i);
        ALOGI("######V1_0 Match, remainder cb[%d]!!!######",
              static_cast<int>(mClientVectorV1_0.size()));
        matched = true;
        break;
    }
    if (!matched) ALOGI("finish");
}

// Event intake and fan-out.

void ActivityInterface::ActChangedCb(const activity_event* events, int count) {
    ALOGI("ActChangedCb start count[%d]", count);
    if (events == nullptr || count < 1 || count > kMaxBatch) {
        ALOGE("(%s:%d) Invalid actChangedCb. Count: %d", "ActChangedCb", 413, count);
        return;
    }
    int pid = 0;
    CallingPid(&pid);
    ::android::Mutex::Autolock lock(mListMutex);
    std::vector<EventResponseData> batch;
    PackageNamePush(events, count, pid, batch);
    ActivitiesReport(batch);
    ALOGI("ActChangedCb end, pid[%d]", pid);
}

// One batch entry per (event, matching request), in event order.
void ActivityInterface::PackageNamePush(const activity_event* events, int count, int pid,
                                        std::vector<EventResponseData>& batch) {
    for (int i = 0; i < count; ++i) {
        const activity_event& event = events[i];
        if (event.event_type == 0) continue;
        ::android::Mutex::Autolock lock(eventMutex);
        for (const EnableRequestData& request : mEventData) {
            if (request.activity == event.activity && request.eventType == event.event_type) {
                OneDataPush(event.activity, event, pid, request, batch);
            }
        }
    }
}

// Runs under mListMutex and eventMutex. The first-report limit is looked up under the pid that
// delivers the batch, not under the request's pid.
void ActivityInterface::OneDataPush(int activity, activity_event event, int pid,
                                    EnableRequestData request,
                                    std::vector<EventResponseData>& batch) {
    const int64_t limit =
            GetLastTime(PidKey(pid), static_cast<uint32_t>(activity), event.event_type);
    if (event.timestamp < limit) return;

    CheckRepeatedEvent(request.pid, request.activity, event.event_type,
                       static_cast<uint64_t>(event.timestamp), mLastActivityEvent);

    EventResponseData response{};
    response.pid = request.pid;
    response.activity = request.activity;
    response.eventType = event.event_type;
    response.timestamp = event.timestamp;
    response.confidence = event.confidence;
    batch.push_back(response);

    for (uint64_t known : packageNames) {
        if (known == request.pid) return;
    }
    packageNames.push_back(request.pid);
}

// Runs under mListMutex. For each pid that was ever sent an event: its 1.1 clients get its events
// when there are any, and every 1.0 client gets them, possibly empty.
void ActivityInterface::ActivitiesReport(const std::vector<EventResponseData>& batch) {
    if (packageNames.empty()) return;
    const size_t pidCount = packageNames.size();
    for (size_t i = 0; i < pidCount; ++i) {
        const uint64_t pid = packageNames[i];
        std::vector<OxActivityRecognitionExtEvent> events;
        for (const EventResponseData& entry : batch) {
            if (entry.pid != pid) continue;
            OxActivityRecognitionExtEvent event{};
            event.activity = entry.activity;
            event.eventType = entry.eventType;
            event.timestamp = entry.timestamp;
            event.confidence = entry.confidence;
            events.push_back(event);
        }
        std::vector<V1_1::ActivityEventV1_1> eventsV1_1;
        std::vector<V1_0::ActivityEvent> eventsV1_0;
        for (const OxActivityRecognitionExtEvent& event : events) {
            activity_event record{};
            record.event_type = event.eventType;
            record.activity = event.activity;
            record.timestamp = event.timestamp;
            record.confidence = event.confidence;
            eventsV1_1.push_back(convertAEToAEV1_1(record));
            eventsV1_0.push_back(convertAEToAEV1_0(record));
        }
        if (!eventsV1_1.empty() && !mClientVectorV1_1.isEmpty()) {
            const hidl_vec<V1_1::ActivityEventV1_1> list(eventsV1_1);
            for (size_t j = 0; j < mClientVectorV1_1.size(); ++j) {
                if (mClientVectorV1_1.valueAt(j) != pid) continue;
                const sp<V1_1::IActivityChangedCallback>& callback = mClientVectorV1_1.keyAt(j);
                if (callback == nullptr) continue;
                Return<void> ret = callback->onActivityChangedV1_1(list);
                if (!ret.isOk()) {
                    // Names the map entry at the pid's position in packageNames; past the end of
                    // the map, the client that failed.
                    const size_t shown = i < mClientVectorV1_1.size() ? i : j;
                    ALOGI("%s: Unable to invoke onActivityChangedV1_1 PID[%lu]", "ActivitiesReport",
                          mClientVectorV1_1.valueAt(shown));
                }
                ALOGI("able to onActivityChangedV1_1");
            }
        }
        ActChangedCbV1_0(eventsV1_0);
    }
}

void ActivityInterface::ActChangedCbV1_0(const std::vector<V1_0::ActivityEvent>& events) {
    if (mClientVectorV1_0.isEmpty()) return;
    const hidl_vec<V1_0::ActivityEvent> list(events);
    for (size_t i = 0; i < mClientVectorV1_0.size(); ++i) {
        const sp<V1_0::IActivityChangedCallback>& callback = mClientVectorV1_0.keyAt(i);
        if (callback == nullptr) {
            ALOGE("actChangedCb V1_0 callback is nullptr, PID[%lu]", mClientVectorV1_0.valueAt(i));
            continue;
        }
        Return<void> ret = callback->onActivityChangedV1_0(list);
        if (!ret.isOk()) {
            ALOGE("%s: Unable to invoke onActivityChangedV1_0 PID[%lu]", "ActChangedCbV1_0",
                  mClientVectorV1_0.valueAt(i));
        }
    }
}

// Extended events are not matched against the requests: every client gets the whole batch.
void ActivityInterface::ActExtendChangedCb(const ar_context_event* events, int count) {
    if (events == nullptr || count < 1 || count > kMaxBatch) {
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
    const hidl_vec<V1_1::ActivityEventExtendV1_1> list(eventsV1_1);
    for (size_t i = 0; i < mClientVectorV1_1.size(); ++i) {
        const sp<V1_1::IActivityChangedCallback>& callback = mClientVectorV1_1.keyAt(i);
        if (callback == nullptr) {
            ALOGE("actExtendChangedCb V1_1 callback is nullptr, PID[%lu]",
                  mClientVectorV1_1.valueAt(i));
            continue;
        }
        Return<void> ret = callback->onActivityExtendChangedV1_1(list);
        if (!ret.isOk()) {
            ALOGE("%s: Unable to invoke onActivityExtendChangedV1_1, PID[%lu]",
                  "ActExtendChangedCb", mClientVectorV1_1.valueAt(i));
        }
    }
    ActExtendChangedCbV1_0(eventsV1_0);
}

void ActivityInterface::ActExtendChangedCbV1_0(const std::vector<V1_0::ActivityEventExtend>& events) {
    if (mClientVectorV1_0.isEmpty()) return;
    const hidl_vec<V1_0::ActivityEventExtend> list(events);
    for (size_t i = 0; i < mClientVectorV1_0.size(); ++i) {
        const sp<V1_0::IActivityChangedCallback>& callback = mClientVectorV1_0.keyAt(i);
        if (callback == nullptr) {
            ALOGE("actExtendChangedCb V1_0 callback is nullptr, PID[%lu]",
                  mClientVectorV1_0.valueAt(i));
            continue;
        }
        Return<void> ret = callback->onActivityExtendChangedV1_0(list);
        if (!ret.isOk()) {
            ALOGE("%s: Unable to invoke onActivityExtendChangedV1_0 PID[%lu]",
                  "ActExtendChangedCbV1_0", mClientVectorV1_0.valueAt(i));
        }
    }
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

// Notifications of the client library: 24-byte activity records back to back in `data`.
void ActivityInterface::ZelNotify(int32_t status, int32_t byteLength,
                                  const std::vector<int32_t>& data) {
    int count = byteLength / kZelRecordBytes;
    if (count > kMaxBatch || byteLength < 1 || data.data() == nullptr) {
        ALOGE("(%s:%d) [ZEL]Invalid ZelNotify. Count: %d", "ZelNotify", 151, count);
        return;
    }
    // Records past the end of the storage are never read, whatever the byte length says.
    const size_t storedRecords = data.size() * sizeof(int32_t) / kZelRecordBytes;
    if (static_cast<size_t>(count) > storedRecords) count = static_cast<int>(storedRecords);
    std::vector<activity_event> events(count);
    for (int i = 0; i < count; ++i) {
        memcpy(&events[i], reinterpret_cast<const uint8_t*>(data.data()) + i * kZelRecordBytes,
               kZelRecordBytes);
        ALOGI("%s: [ZEL]AR_REPORT_EVENT: [%d] e: %d, a:%d, t:%ld, c:%d, arStatus: %d", "ZelNotify",
              i, events[i].event_type, events[i].activity, events[i].timestamp,
              events[i].confidence, status);
    }
    int pid = 0;
    CallingPid(&pid);
    ::android::Mutex::Autolock lock(mListMutex);
    std::vector<EventResponseData> batch;
    PackageNamePush(events.data(), count, pid, batch);
    ALOGI("%s: [ZEL]PackageNamePush, events size:%d, eventDataFit size:%ld", "ZelNotify", count,
          static_cast<long>(batch.size()));
    ActivitiesReport(batch);
    ALOGI("%s: [ZEL]Notify end, pid[%d]", "ZelNotify", pid);
}

Return<void> ActivityInterface::getSupportedActivitiesList(getSupportedActivitiesList_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

Return<int32_t> ActivityInterface::enableActivityEvent(uint32_t /* activity */,
                                                       uint32_t /* eventType */,
                                                       int64_t /* reportLatencyNs */) {
    return 1;
}

Return<int32_t> ActivityInterface::enableActivityEventExtend(uint32_t /* activity */,
                                                             uint32_t /* eventType */,
                                                             int64_t /* reportLatencyNs */,
                                                             const V1_0::OtherParams& /* params */) {
    return 1;
}

Return<void> ActivityInterface::getCurrentActivity(getCurrentActivity_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

Return<int32_t> ActivityInterface::disableActivityEvent(uint32_t /* activity */,
                                                        uint32_t /* eventType */) {
    return 1;
}

Return<int32_t> ActivityInterface::flush() {
    return 1;
}

Return<void> ActivityInterface::getCurrentActivityV1_1(getCurrentActivityV1_1_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
