// Host stand-in for the HIDL base interface: the death-notification, liveness and debug methods
// that every interface inherits. Implementations in tests override linkToDeath/unlinkToDeath to act
// as a remote process.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {
namespace host {
// The links of in-process objects (IBase is declared by <hidl/HidlSupport.h>), kept by hwbinder's
// host stand-in.
bool linkToProcessDeath(::android::hidl::base::V1_0::IBase* object,
                        const sp<hidl_death_recipient>& recipient, uint64_t cookie);
void unlinkFromProcessDeath(const ::android::hidl::base::V1_0::IBase* object,
                            const sp<hidl_death_recipient>& recipient);
}  // namespace host
}  // namespace hardware

namespace hidl {
namespace base {
namespace V1_0 {

struct IBase : virtual public ::android::RefBase {
    typedef ::android::hardware::details::i_tag _hidl_tag;

    static const char* descriptor;

    virtual bool isRemote() const { return false; }

    // An in-process object stands for one that the calling process of the moment handed in: the
    // link is kept with that process and fires when the host simulates its death
    // (host::simulateProcessDeath() in <hwbinder/IPCThreadState.h>).
    virtual ::android::hardware::Return<bool> linkToDeath(
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient,
            uint64_t cookie) {
        return ::android::hardware::host::linkToProcessDeath(this, recipient, cookie);
    }
    virtual ::android::hardware::Return<bool> unlinkToDeath(
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient) {
        ::android::hardware::host::unlinkFromProcessDeath(this, recipient);
        return true;
    }
    virtual ::android::hardware::Return<void> ping() { return ::android::hardware::Void(); }
    // Writes a report of the object's state to the handle's first fd (lshal debug); by default
    // nothing.
    virtual ::android::hardware::Return<void> debug(
            const ::android::hardware::hidl_handle& fd,
            const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options) {
        (void)fd;
        (void)options;
        return ::android::hardware::Void();
    }
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
