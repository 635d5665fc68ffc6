#define LOG_TAG "AR_impl_Env"

#include "EnvironmentInterface.h"

#include <hwbinder/IPCThreadState.h>
#include <log/log.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <new>

#include "ActivityInterface.h"
#include "StateDump.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::IPCThreadState;

namespace {

// The calling process, sign-extended; 1, after logging the text, when this thread has no binder
// state (the activity side answers 0 instead).
uint64_t CallingPidOrOne(const char* noThreadStateText) {
    IPCThreadState* self = IPCThreadState::self();
    if (self == nullptr) {
        ALOGE("%s", noThreadStateText);
        return 1;
    }
    return static_cast<uint64_t>(static_cast<int64_t>(self->getCallingPid()));
}

// The legacy form of the extra values, the text copied whole: the caller has checked that it fits.
// A text of exactly 32 bytes fills the field and carries no terminator; a shorter one is followed
// by the zeros of the cleared field.
other_params ToLegacyParams(const V1_0::OtherParams& params) {
    other_params out = {};
    for (size_t i = 0; i < 4; ++i) out.params[i] = params.params[i];
    memcpy(out.extra, params.extra.c_str(), params.extra.size());
    return out;
}

bool ExtraFits(const V1_0::OtherParams& params) {
    return params.extra.size() <= sizeof(other_params::extra);
}

// The legacy layer's value is not passed on: any failure is 1.
int32_t ConvertResult(int legacyResult) {
    return legacyResult != 0 ? 1 : 0;
}

// Larger answers are refused whole, not cut.
bool ValidCurrentAnswer(int count, const ar_context_event* records) {
    constexpr int kMaxCurrentEnvironments = 5;
    return count >= 1 && count <= kMaxCurrentEnvironments && records != nullptr;
}

// Removes the object's entry (a map holds an object at most once); whether there was one.
template <typename Callback>
bool RemoveClient(KeyedVector<sp<Callback>, uint64_t>* clients, const wp<IBase>& who) {
    for (size_t i = 0; i < clients->size(); ++i) {
        if (who == clients->keyAt(i)) {
            clients->removeItemsAt(i);
            return true;
        }
    }
    return false;
}

}  // namespace

bool EnvironmentInterface::sInterfaceExists = false;
// Constructed in this order at load.
Mutex EnvironmentInterface::mListMutex;
KeyedVector<sp<V1_1::IEnvironmentChangedCallback>, uint64_t> EnvironmentInterface::mClientVectorV1_1;
KeyedVector<sp<V1_0::IEnvironmentChangedCallback>, uint64_t> EnvironmentInterface::mClientVectorV1_0;
const environment_callbacks EnvironmentInterface::sEnvCb = {
        .environment_changed = EnvironmentInterface::EnvChangedCb,
};

EnvironmentInterface::EnvironmentInterface(const environment_interface* impl)
    : mImpl(impl), mDeathRecipient(nullptr) {
    LOG_ALWAYS_FATAL_IF(sInterfaceExists);
    sInterfaceExists = true;
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl interface is not available", "EnvironmentInterface");
        return;
    }
    mImpl->register_callbacks(&sEnvCb);
}

// Nothing else runs against a dying instance, so the maps are cleared without the lock. The
// callback table stays registered below and no link to death is undone.
EnvironmentInterface::~EnvironmentInterface() {
    ALOGI("Deconstruct EnvironmentInterface");
    sInterfaceExists = false;
    mClientVectorV1_1.clear();
    mClientVectorV1_0.clear();
}

EnvironmentInterface::RemoteListenerHidlDeathRecipient::RemoteListenerHidlDeathRecipient(
        const sp<EnvironmentInterface>& owner)
    : mOwner(owner) {}

sp<EnvironmentInterface::RemoteListenerHidlDeathRecipient>
EnvironmentInterface::RemoteListenerHidlDeathRecipient::Create(const sp<EnvironmentInterface>& owner) {
    return new (std::nothrow) RemoteListenerHidlDeathRecipient(owner);
}

void EnvironmentInterface::RemoteListenerHidlDeathRecipient::serviceDied(uint64_t cookie,
                                                                         const wp<IBase>& who) {
    mOwner->HandleHidlDeath(cookie, who);
}

// A process holds at most one registration per version: a second one, with the same object or
// another, is refused. A callback that cannot be watched for death is not registered.
template <typename Callback>
void EnvironmentInterface::RegisterClient(const sp<Callback>& callback,
                                          const RegistrationTexts& texts) {
    if (callback == nullptr) {
        ALOGE("invalid Callback");
        return;
    }
    // Not guarded: two racing first registrations may each create one; the later one stays.
    if (mDeathRecipient == nullptr) {
        mDeathRecipient = RemoteListenerHidlDeathRecipient::Create(this);
        if (mDeathRecipient == nullptr) {
            ALOGE("%s", texts.recipientFailed);
            return;
        }
    }
    const uint64_t pid = CallingPidOrOne(texts.noThreadState);

    Mutex::Autolock lock(mListMutex);
    KeyedVector<sp<Callback>, uint64_t>& clients = ClientsOf(callback);
    for (size_t i = 0; i < clients.size(); ++i) {
        if (clients.keyAt(i) == callback || clients.valueAt(i) == pid) {
            texts.alreadyRegistered(pid);
            return;
        }
    }
    Return<bool> linked = callback->linkToDeath(mDeathRecipient, pid);
    if (!linked.isOk()) {
        texts.linkTransactionError(linked.description().c_str());
    } else if (linked) {
        clients.add(callback, pid);
        texts.linked(pid, static_cast<int>(clients.size()));
    } else {
        ALOGW("%s", texts.linkRefused);
    }
}

Return<void> EnvironmentInterface::registerEnvironmentCallback(
        const sp<V1_0::IEnvironmentChangedCallback>& callback) {
    static const RegistrationTexts kTexts = {
            "registerEnvironmentCallback new mDeathRecipient failed",
            "IPCThreadState::self() V1_0 returns nullptr",
            [](uint64_t pid) { ALOGI("It's already register pid[%lu] callback, V1_0", pid); },
            [](const char* description) {
                ALOGE("Transaction error in linking to EnvironmentInterfaceV1_0 death: %s",
                      description);
            },
            [](uint64_t pid, int total) {
                ALOGD("Pid[%lu] link to EnvironmentInterfaceV1_0 death notification successful, total cb[%d]",
                      pid, total);
            },
            "Unable to link to EnvironmentInterfaceV1_0 death notifications",
    };
    RegisterClient(callback, kTexts);
    return Void();
}

Return<void> EnvironmentInterface::registerEnvironmentCallbackV1_1(
        const sp<V1_1::IEnvironmentChangedCallback>& callback) {
    static const RegistrationTexts kTexts = {
            "registerEnvironmentCallbackV1_1 Death new failed",
            "IPCThreadState::self() V1_1 returns nullptr",
            [](uint64_t pid) { ALOGI("It's already register pid[%lu] callback, V1_1", pid); },
            [](const char* description) {
                ALOGE("Transaction error in linking to EnvironmentInterfaceV1_1 death: %s",
                      description);
            },
            [](uint64_t pid, int total) {
                ALOGD("Pid[%lu] link to EnvironmentInterfaceV1_1 death notification successful, total cb[%d]",
                      pid, total);
            },
            "Unable to link to EnvironmentInterfaceV1_1 death notifications",
    };
    RegisterClient(callback, kTexts);
    return Void();
}

// Matching is by object identity; the cookie is only logged. At most one entry per map goes.
// Nothing enabled below is disabled for the dead client.
void EnvironmentInterface::HandleHidlDeath(uint64_t cookie, const wp<IBase>& who) {
    ALOGI("ENV serviceDied, cookie is %lu", cookie);
    sp<IBase> object = who.promote();
    if (object == nullptr) {
        ALOGE("Invalide IBase object, ENV");
    } else {
        Return<bool> unlinked = object->unlinkToDeath(mDeathRecipient);
        (void)unlinked.isOk();  // the outcome changes nothing here
    }

    Mutex::Autolock lock(mListMutex);
    if (RemoveClient(&mClientVectorV1_1, who)) {
        ALOGI("######V1_1 ENV Match, remainder cb[%d]!!!######",
              static_cast<int>(mClientVectorV1_1.size()));
    }
    if (RemoveClient(&mClientVectorV1_0, who)) {
        ALOGI("######V1_0 ENV Match, remainder cb[%d]!!!######",
              static_cast<int>(mClientVectorV1_0.size()));
        return;
    }
    // Only the version 1.0 outcome decides this line.
    ALOGI("finish");
}

// Every client gets every record of the batch, all version 1.1 clients first, each its own copy.
void EnvironmentInterface::EnvChangedCb(const ar_context_event* events, int count) {
    // A batch holds 1 to 192 records. Unsigned arithmetic sends zero and negative counts above
    // the limit too.
    constexpr unsigned int kMaxEnvironmentBatch = 192;
    if (events == nullptr || static_cast<unsigned int>(count) - 1u > kMaxEnvironmentBatch - 1u) {
        ALOGE("(%s:%d) Invalid envChangedCb. Count: %d", "EnvChangedCb", 73, count);
        return;
    }
    std::vector<V1_1::ActivityEventExtendV1_1> eventsV1_1(count);
    std::vector<V1_0::ActivityEventExtend> eventsV1_0(count);
    std::transform(events, events + count, eventsV1_1.begin(),
                   ActivityInterface::convertACEToAEEV1_1);
    std::transform(events, events + count, eventsV1_0.begin(),
                   ActivityInterface::convertACEToAEEV1_0);

    Mutex::Autolock lock(mListMutex);
    for (size_t i = 0; i < mClientVectorV1_1.size(); ++i) {
        // A reference of its own for the duration of the call.
        sp<V1_1::IEnvironmentChangedCallback>
                callback =  // NOLINT(performance-unnecessary-copy-initialization)
                mClientVectorV1_1.keyAt(i);
        const uint64_t pid = mClientVectorV1_1.valueAt(i);
        if (callback == nullptr) {
            ALOGE("envChangedCb V1_1 callback is nullptr, PID[%lu]", pid);
        } else {
            hidl_vec<V1_1::ActivityEventExtendV1_1> copy(eventsV1_1);
            Return<void> ret = callback->onEnvironmentChangedV1_1(copy);
            if (!ret.isOk()) {
                ALOGE("%s: Unable to invoke onEnvironmentChanged V1_1, PID[%lu]", "EnvChangedCb",
                      pid);
            }
        }
    }
    env_extend_changed_cb_v1_0(eventsV1_0);
}

void EnvironmentInterface::env_extend_changed_cb_v1_0(
        const std::vector<V1_0::ActivityEventExtend>& events) {
    if (mClientVectorV1_0.isEmpty()) return;
    for (size_t i = 0; i < mClientVectorV1_0.size(); ++i) {
        // A reference of its own for the duration of the call.
        sp<V1_0::IEnvironmentChangedCallback>
                callback =  // NOLINT(performance-unnecessary-copy-initialization)
                mClientVectorV1_0.keyAt(i);
        const uint64_t pid = mClientVectorV1_0.valueAt(i);
        if (callback == nullptr) {
            ALOGE("onEnvironmentChanged V1_0 callback is nullptr, PID[%lu]", pid);
        } else {
            hidl_vec<V1_0::ActivityEventExtend> copy(events);
            Return<void> ret = callback->onEnvironmentChanged(copy);
            if (!ret.isOk()) {
                ALOGE("%s: Unable to invoke onEnvironmentChanged V1_0 PID[%lu]",
                      "env_extend_changed_cb_v1_0", pid);
            }
        }
    }
}

// The control and query methods below pass straight down, without a lock and without any
// per-client state: one client's disable turns off what another enabled.

Return<void> EnvironmentInterface::getSupportedEnvironmentsList(
        getSupportedEnvironmentsList_cb _hidl_cb) {
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl interface is not available", "getSupportedEnvironmentsList");
        _hidl_cb({});
        return Void();
    }
    char const* const* list = nullptr;
    const int count = mImpl->get_supported_environments_list(&list);
    if (count < 1 || list == nullptr) {
        ALOGE("%s: can not get support env, list_size(%d)", "getSupportedEnvironmentsList", count);
        _hidl_cb({});
        return Void();
    }
    std::unique_ptr<hidl_string[]> names(new (std::nothrow) hidl_string[count]);
    if (names == nullptr) {
        // The one answer that never reaches the caller.
        ALOGE("env new failed");
        return Void();
    }
    for (int i = 0; i < count; ++i) names[i] = list[i];
    hidl_vec<hidl_string> environments;
    environments.setToExternal(names.get(), count);
    _hidl_cb(environments);
    return Void();
}

Return<int32_t> EnvironmentInterface::initEnvironment(uint32_t environment,
                                                      const V1_0::OtherParams& params) {
    // A text that is too long is reported with the words of a missing table.
    if (mImpl == nullptr || !ExtraFits(params)) {
        ALOGE("%s: initEnvironment mImpl interface is not available", "initEnvironment");
        return 1;
    }
    const other_params legacyParams = ToLegacyParams(params);
    return ConvertResult(mImpl->init_environment(environment, &legacyParams));
}

Return<int32_t> EnvironmentInterface::exitEnvironment(uint32_t environment,
                                                      const V1_0::OtherParams& params) {
    if (mImpl == nullptr || !ExtraFits(params)) {
        ALOGE("%s: exitEnvironment mImpl interface is not available", "exitEnvironment");
        return 1;
    }
    const other_params legacyParams = ToLegacyParams(params);
    return ConvertResult(mImpl->exit_environment(environment, &legacyParams));
}

// The latency goes down as it is.
Return<int32_t> EnvironmentInterface::enableEnvironment(uint32_t environment, uint32_t eventType,
                                                        int64_t reportLatencyNs,
                                                        const V1_0::OtherParams& params) {
    if (mImpl == nullptr || !ExtraFits(params)) {
        ALOGE("%s: enableEnvironment mImpl interface is not available", "enableEnvironment");
        return 1;
    }
    const other_params legacyParams = ToLegacyParams(params);
    return ConvertResult(
            mImpl->enable_environment(environment, eventType, reportLatencyNs, &legacyParams));
}

Return<int32_t> EnvironmentInterface::disableEnvironment(uint32_t environment, uint32_t eventType) {
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl interface is not available", "disableEnvironment");
        return 1;
    }
    return ConvertResult(mImpl->disable_environment(environment, eventType));
}

Return<void> EnvironmentInterface::getCurrentEnvironment(getCurrentEnvironment_cb _hidl_cb) {
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl V1_0 interface is not available", "getCurrentEnvironment");
        _hidl_cb({});
        return Void();
    }
    ar_context_event* records = nullptr;
    const int count = mImpl->get_current_environment(&records);
    if (!ValidCurrentAnswer(count, records)) {
        ALOGE("%s: mImpl V1_0 getCurrentENV error size(%d)", "getCurrentEnvironment", count);
        _hidl_cb({});
        return Void();
    }
    hidl_vec<V1_0::ActivityEventExtend> events(count);
    for (int i = 0; i < count; ++i) events[i] = ActivityInterface::convertACEToAEEV1_0(records[i]);
    _hidl_cb(events);
    return Void();
}

Return<void> EnvironmentInterface::getCurrentEnvironmentV1_1(getCurrentEnvironmentV1_1_cb _hidl_cb) {
    if (mImpl == nullptr) {
        ALOGE("%s: mImpl V1_1 interface is not available", "getCurrentEnvironmentV1_1");
        _hidl_cb({});
        return Void();
    }
    ar_context_event* records = nullptr;
    const int count = mImpl->get_current_environment(&records);
    if (!ValidCurrentAnswer(count, records)) {
        ALOGE("%s: mImpl V1_1 getCurrentEnvironment error size(%d)", "getCurrentEnvironmentV1_1",
              count);
        _hidl_cb({});
        return Void();
    }
    hidl_vec<V1_1::ActivityEventExtendV1_1> events(count);
    for (int i = 0; i < count; ++i) events[i] = ActivityInterface::convertACEToAEEV1_1(records[i]);
    _hidl_cb(events);
    return Void();
}

// State dump (ActivityRecognition::debug). Read only: no log line, no call below, no change. The
// client maps are read under mListMutex, which is taken alone, as everywhere on this side.

void EnvironmentInterface::DumpState(std::string* out) const {
    StringAppendF(out, "legacy environment table: %s\n", mImpl != nullptr ? "present" : "absent");
    Mutex::Autolock lock(mListMutex);
    AppendClients(out, "V1_1", mClientVectorV1_1);
    AppendClients(out, "V1_0", mClientVectorV1_0);
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
