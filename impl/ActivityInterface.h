#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/KeyedVector.h>
#include <utils/Mutex.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityInterface.h>

#include <string>
#include <vector>

#include "ZelClient.h"
#include "activity_recognition_legacy.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::KeyedVector;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;

// Records of the activity side. Pids are calling process ids sign-extended to 64 bits.

// One client's enable request. A plain request has all-zero params; the first double tells the
// kind (0.0 plain, anything else extended).
struct EnableRequestData {
    uint64_t pid;
    uint32_t activity;
    uint32_t eventType;
    int64_t reportLatencyNs;
    other_params params;
};

// One (activity, event type) pair as switched on below: in the legacy module or, with pid 0, in
// the client library's list.
struct __attribute__((packed, aligned(4))) EnableToNativeData {
    uint64_t pid;
    uint32_t activity;
    uint32_t eventType;
    int64_t reportLatencyNs;
    uint32_t noWake;
};

// One event addressed to one client pid.
struct __attribute__((packed, aligned(4))) EventResponseData {
    uint64_t pid;
    uint32_t activity;
    uint32_t eventType;
    int64_t timestamp;
    other_params params;
    int32_t confidence;
};

// The newest state seen when a client's request joined a pair that was already on; older events
// are not passed on to that request.
struct FirstReport {
    uint64_t pid;
    uint32_t activity;
    uint32_t eventType;
    int64_t timestamp;
};

// A batch of plain activity events on its way from the intake to the clients, and the intake's
// lookups over the request lists; both are defined in ActivityInterface.cpp.
struct ActivityBatch;
struct IntakeLookups;

struct ActivityInterface : public V1_1::IActivityInterface {
    explicit ActivityInterface(const activity_interface* impl);
    ~ActivityInterface() override;

    // V1_0::IActivityInterface
    Return<void> registerActivityCallback(
            const sp<V1_0::IActivityChangedCallback>& callback) override;
    Return<void> getSupportedActivitiesList(getSupportedActivitiesList_cb _hidl_cb) override;
    Return<int32_t> enableActivityEvent(uint32_t activity, uint32_t eventType,
                                        int64_t reportLatencyNs) override;
    Return<int32_t> enableActivityEventExtend(uint32_t activity, uint32_t eventType,
                                              int64_t reportLatencyNs,
                                              const V1_0::OtherParams& params) override;
    Return<void> getCurrentActivity(getCurrentActivity_cb _hidl_cb) override;
    Return<int32_t> disableActivityEvent(uint32_t activity, uint32_t eventType) override;
    Return<int32_t> flush() override;

    // V1_1::IActivityInterface
    Return<void> registerActivityCallbackV1_1(
            const sp<V1_1::IActivityChangedCallback>& callback) override;
    Return<void> getCurrentActivityV1_1(getCurrentActivityV1_1_cb _hidl_cb) override;

    // Appends this side's state to the dump of ActivityRecognition::debug: takes mListMutex, then
    // eventMutex, as the fan-out does, and releases both; writes no log line and calls nothing
    // below.
    void DumpState(std::string* out) const;

    // Legacy records to HIDL records; used by the environment side too. Their established names
    // are kept.
    // NOLINTBEGIN(readability-identifier-naming)
    static V1_0::ActivityEvent convertAEToAEV1_0(activity_event event);
    static V1_1::ActivityEventV1_1 convertAEToAEV1_1(activity_event event);
    static V1_0::ActivityEventExtend convertACEToAEEV1_0(ar_context_event event);
    static V1_1::ActivityEventExtendV1_1 convertACEToAEEV1_1(ar_context_event event);
    // NOLINTEND(readability-identifier-naming)

  private:
    // Test access to the class-wide state and the helpers; not part of the product's API.
    friend struct ActivityInterfaceTestPeer;

    // Forwards a client's death to the interface. One is shared by all 1.0 registrations, one is
    // made per 1.1 registration; each holds its owner strongly, as the owner holds it.
    class RemoteListenerHidlDeathRecipient : public hidl_death_recipient {
      public:
        // A new recipient for `owner`, or null when it cannot be allocated.
        static sp<RemoteListenerHidlDeathRecipient> Create(const sp<ActivityInterface>& owner);
        void serviceDied(uint64_t cookie, const wp<IBase>& who) override;

      private:
        explicit RemoteListenerHidlDeathRecipient(const sp<ActivityInterface>& owner)
            : mOwner(owner) {}

        sp<ActivityInterface> mOwner;
    };

    // Life cycle: binds the client library, when the property asks for it.
    static void BindZelClient();

    void HandleHidlDeath(uint64_t cookie, const wp<IBase>& who);

    // Intake of the legacy module's batches and the fan-out to the clients. A batch of plain
    // events travels as an ActivityBatch: PackageNamePush fills it, ActivitiesReport delivers it.
    static void ActChangedCb(const activity_event* events, int count);
    static void ActExtendChangedCb(const ar_context_event* events, int count);
    static size_t PackageNamePush(const activity_event* events, int count, int pid,
                                  ActivityBatch& batch) REQUIRES(mListMutex);
    static size_t MatchEvent(const activity_event& event, int pid, ActivityBatch& batch)
            REQUIRES(mListMutex);
    static void ActivitiesReport(ActivityBatch& batch) REQUIRES(mListMutex);
    static void ActChangedCbV1_0(const std::vector<V1_0::ActivityEvent>& events)
            REQUIRES(mListMutex);
    static void ActExtendChangedCbV1_0(const std::vector<V1_0::ActivityEventExtend>& events)
            REQUIRES(mListMutex);
    // Notification function registered with the client library.
    static void ZelNotify(int32_t status, int32_t byteLength, const std::vector<int32_t>& data);

    // Enable and disable: merging of the clients' requests into one request per pair below.
    int32_t EnableActivityEvent(uint32_t activity, uint32_t eventType, int64_t reportLatencyNs,
                                const V1_0::OtherParams& params);
    bool UpdateEnableNative(const EnableToNativeData& record);
    bool UpdateEnableNativeExend(const EnableToNativeData& record, const V1_0::OtherParams& params);
    int32_t DisableOtherActivityEvent(uint32_t activity, uint32_t eventType);
    void HandleFirstReport(uint64_t pid, uint32_t activity, uint32_t eventType);
    static int64_t MinReportLatencyNsFunc(uint32_t activity, uint32_t eventType,
                                          const std::vector<EnableRequestData>& requests);
    static int64_t RoundNumbers(int64_t reportLatencyNs);
    static bool ValidEventType(uint32_t eventType);
    static int32_t ValidActivityEventExtend(uint32_t eventType, int pid,
                                            const V1_0::OtherParams& params);
    static bool ValidEventActivity(size_t index, uint32_t activity, uint32_t eventType, bool& plain,
                                   other_params& out) REQUIRES(eventMutex);
    static bool IsNoWake(const V1_0::OtherParams& params);
    static bool IsRequestWake(const EnableRequestData& request);
    static void RemoveActivityEvent(uint64_t pid, uint32_t activity, uint32_t eventType,
                                    std::vector<EnableRequestData>& requests);
    static void RemoveFirst(uint64_t pid, uint32_t activity, uint32_t eventType)
            REQUIRES(eventMutex);
    static void RemoveLastActivityEvent(uint64_t pid, uint32_t activity, uint32_t eventType,
                                        std::vector<EventResponseData>& events);
    static int FindEnableRequestDataIndex(uint64_t pid, uint32_t activity, uint32_t eventType,
                                          const std::vector<EnableRequestData>& requests);
    static EnableToNativeData FindEnableToNativeData(uint32_t activity, uint32_t eventType,
                                                     const std::vector<EnableToNativeData>& list);
    static int FindEnableToNativeDataIndex(uint32_t activity, uint32_t eventType,
                                           const std::vector<EnableToNativeData>& list);
    static bool FindEnableToNativeDataExist(uint32_t activity, uint32_t eventType,
                                            const std::vector<EnableToNativeData>& list);
    static void RemoveEnableToNativeData(uint32_t activity, uint32_t eventType,
                                         std::vector<EnableToNativeData>& list);

    // The client library's list of pairs that are on, and its commands.
    static bool IsZelActivity(uint32_t activity);
    static int FindZelEnableDataIndex(uint32_t activity, uint32_t eventType);
    static void UpdateZelEnableData(uint32_t activity, uint32_t eventType, int64_t reportLatencyNs,
                                    uint32_t noWake);
    static void RemoveZelEnableData(uint32_t activity, uint32_t eventType);
    static void UpsertZelEnableData(uint32_t activity, uint32_t eventType, int64_t reportLatencyNs,
                                    uint32_t noWake);
    static std::string BuildZelEnableStr();
    static int32_t SendZelEnable(const char* caller, uint32_t activity, uint32_t eventType,
                                 int64_t reportLatencyNs, uint32_t noWake = 0,
                                 bool commaBeforeCode = false);
    static int32_t RunZelCommand(const char* command, const std::string& param);
    static std::vector<ar_context_event> ZelStateRecords();
    static int32_t ZelEnableEvent(uint32_t activity, uint32_t eventType, int64_t reportLatencyNs);
    int32_t ZelEnableEventExtend(uint32_t activity, uint32_t eventType, int64_t reportLatencyNs,
                                 other_params params);

    // Queries: the current state of both sources, logged with the version's texts.
    std::vector<ar_context_event> CurrentStates(const char* caller, bool v1_1);

    // Kept but never called: the system must have them, and nothing reaches them, so a change
    // here changes no behaviour.
    static int64_t GetLastTime(uint64_t pid, uint32_t activity, uint32_t eventType)
            REQUIRES(eventMutex);
    static bool CheckRepeatedEvent(uint64_t pid, uint32_t activity, uint32_t eventType,
                                   uint64_t timestamp, std::vector<EventResponseData>& list);
    static EnableRequestData FindEnableRequestData(uint64_t pid, uint32_t activity,
                                                   uint32_t eventType,
                                                   const std::vector<EnableRequestData>& requests);

    // Locked state reached without its lock, by design: each accessor is the only way in without
    // the lock, and says why it may go without.
    // disableActivityEvent erases a last event without any lock, while the intake writes the list
    // under eventMutex.
    static std::vector<EventResponseData>& LastEventsWithoutLock() NO_THREAD_SAFETY_ANALYSIS {
        return mLastActivityEvent;
    }
    // HandleHidlDeath looks up the dead client's 1.1 recipient before it takes mListMutex, so that
    // unlinkToDeath is called without the lock.
    const KeyedVector<sp<RemoteListenerHidlDeathRecipient>, uint64_t>& DeathRecipientsWithoutLock()
            const NO_THREAD_SAFETY_ANALYSIS {
        return mDeathRecipientVectorV1_1;
    }

    // Class-wide state: the legacy layer calls back into plain functions, without an object.
    static bool sInterfaceExists;
    static const activity_callbacks sActCb;

    // Lock order: mListMutex, then eventMutex; eventMutex is never held across a call below.
    static ::android::Mutex mListMutex ACQUIRED_BEFORE(eventMutex);
    static ::android::Mutex eventMutex ACQUIRED_AFTER(mListMutex);
    // mListMutex: the client maps and packageNames, held across the whole intake and fan-out of a
    // batch (every client call included) and across linkToDeath.
    static KeyedVector<sp<V1_1::IActivityChangedCallback>, uint64_t> mClientVectorV1_1
            GUARDED_BY(mListMutex);
    static KeyedVector<sp<V1_0::IActivityChangedCallback>, uint64_t> mClientVectorV1_0
            GUARDED_BY(mListMutex);
    static std::vector<uint64_t> packageNames GUARDED_BY(mListMutex);
    // The batch on its way to the clients, kept with its buffers' capacity between batches.
    static ActivityBatch sBatch GUARDED_BY(mListMutex);
    // eventMutex: the request lists, and the last events while the intake writes them.
    static std::vector<EventResponseData> mLastActivityEvent GUARDED_BY(eventMutex);
    static std::vector<EnableRequestData> mEventData GUARDED_BY(eventMutex);
    static std::vector<FirstReport> firstReport GUARDED_BY(eventMutex);
    // Moved by every change of mEventData and firstReport; the intake's lookups are rebuilt when
    // it has moved.
    static uint64_t sEventListsGeneration GUARDED_BY(eventMutex);
    static IntakeLookups sIntakeLookups GUARDED_BY(eventMutex);

    // Not locked, by design: the recipient shared by the 1.0 clients is created without a lock,
    // and the pairs switched on below are used without one by enable, disable and the dump, like
    // the client library's list and binding in ActivityInterface.cpp.
    sp<RemoteListenerHidlDeathRecipient> mDeathRecipient;
    const activity_interface* mImpl;
    std::vector<EnableToNativeData> mEnableToNativeData;
    // Written under mListMutex by registration; read without it on death (see above).
    KeyedVector<sp<RemoteListenerHidlDeathRecipient>, uint64_t> mDeathRecipientVectorV1_1
            GUARDED_BY(mListMutex);
};

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
