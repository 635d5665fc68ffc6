#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/KeyedVector.h>
#include <utils/Mutex.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentInterface.h>

#include <string>
#include <vector>

#include "activity_recognition_legacy.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::KeyedVector;
using ::android::Mutex;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;

// The environment half of the HAL: a pass-through to the legacy environment table, with one
// registry of client callbacks per interface version. Every registered client receives every
// environment event; a client leaves its registry only when its process dies.
struct EnvironmentInterface : public V1_1::IEnvironmentInterface {
    explicit EnvironmentInterface(const environment_interface* impl);
    ~EnvironmentInterface() override;

    // V1_0::IEnvironmentInterface
    Return<void> registerEnvironmentCallback(
            const sp<V1_0::IEnvironmentChangedCallback>& callback) override;
    Return<void> getSupportedEnvironmentsList(getSupportedEnvironmentsList_cb _hidl_cb) override;
    Return<int32_t> initEnvironment(uint32_t environment, const V1_0::OtherParams& params) override;
    Return<int32_t> exitEnvironment(uint32_t environment, const V1_0::OtherParams& params) override;
    Return<int32_t> enableEnvironment(uint32_t environment, uint32_t eventType,
                                      int64_t reportLatencyNs,
                                      const V1_0::OtherParams& params) override;
    Return<int32_t> disableEnvironment(uint32_t environment, uint32_t eventType) override;
    Return<void> getCurrentEnvironment(getCurrentEnvironment_cb _hidl_cb) override;

    // V1_1::IEnvironmentInterface
    Return<void> registerEnvironmentCallbackV1_1(
            const sp<V1_1::IEnvironmentChangedCallback>& callback) override;
    Return<void> getCurrentEnvironmentV1_1(getCurrentEnvironmentV1_1_cb _hidl_cb) override;

    // Appends this side's state to the dump of ActivityRecognition::debug: takes mListMutex alone
    // and releases it; writes no log line and calls nothing below.
    void DumpState(std::string* out) const;

  private:
    friend struct EnvironmentInterfaceTestPeer;

    // Class-wide state: the legacy layer calls back into a plain function, without an object.
    // mListMutex guards both client maps; it is held across registration and across the
    // delivery of a batch, and never together with another lock.
    static bool sInterfaceExists;
    static Mutex mListMutex;
    static KeyedVector<sp<V1_1::IEnvironmentChangedCallback>, uint64_t> mClientVectorV1_1
            GUARDED_BY(mListMutex);
    static KeyedVector<sp<V1_0::IEnvironmentChangedCallback>, uint64_t> mClientVectorV1_0
            GUARDED_BY(mListMutex);
    // The client map of a callback's version, for the registration shared by both versions.
    static KeyedVector<sp<V1_1::IEnvironmentChangedCallback>, uint64_t>& ClientsOf(
            const sp<V1_1::IEnvironmentChangedCallback>& /* callback */) REQUIRES(mListMutex) {
        return mClientVectorV1_1;
    }
    static KeyedVector<sp<V1_0::IEnvironmentChangedCallback>, uint64_t>& ClientsOf(
            const sp<V1_0::IEnvironmentChangedCallback>& /* callback */) REQUIRES(mListMutex) {
        return mClientVectorV1_0;
    }
    static const environment_callbacks sEnvCb;  // NOLINT(readability-identifier-naming)

    // Shared by the links of all clients of both versions. It and its owner hold each other
    // for the life of the process.
    struct RemoteListenerHidlDeathRecipient : public hidl_death_recipient {
        // Null when the non-throwing allocation fails.
        static sp<RemoteListenerHidlDeathRecipient> Create(const sp<EnvironmentInterface>& owner);
        void serviceDied(uint64_t cookie, const wp<IBase>& who) override;

        sp<EnvironmentInterface> mOwner;

      private:
        explicit RemoteListenerHidlDeathRecipient(const sp<EnvironmentInterface>& owner);
    };

    // The log texts that tell the two registration paths apart.
    // What each version logs on registration; the lines with arguments are logged by functions of
    // their own, so that each format is a literal checked against its arguments.
    struct RegistrationTexts {
        const char* recipientFailed;
        const char* noThreadState;
        void (*alreadyRegistered)(uint64_t pid);
        void (*linkTransactionError)(const char* description);
        void (*linked)(uint64_t pid, int total);
        const char* linkRefused;
    };

    // Registers the callback in the client map of its version (ClientsOf).
    template <typename Callback>
    void RegisterClient(const sp<Callback>& callback, const RegistrationTexts& texts);

    // The legacy layer's `environment_changed`.
    static void EnvChangedCb(const ar_context_event* events, int count);
    // Delivers to the version 1.0 clients; the caller holds mListMutex. Its established name is
    // kept.
    static void env_extend_changed_cb_v1_0(  // NOLINT(readability-identifier-naming)
            const std::vector<V1_0::ActivityEventExtend>& events) REQUIRES(mListMutex);

    void HandleHidlDeath(uint64_t cookie, const wp<IBase>& who);

    const environment_interface* mImpl;
    // Not locked, by design: two racing first registrations may each create one.
    sp<RemoteListenerHidlDeathRecipient> mDeathRecipient;
};

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
