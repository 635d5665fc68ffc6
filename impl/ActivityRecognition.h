#pragma once

#include <hidl/Status.h>
#include <utils/Mutex.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

#include <atomic>
#include <string>

#include "ActivityInterface.h"
#include "EnvironmentInterface.h"
#include "activity_recognition_legacy.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::sp;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;

// The service object: owns the opened legacy device and hands out the one activity interface
// and the one environment interface, each created on first demand.
struct ActivityRecognition : public V1_1::IActivityRecognition {
    ActivityRecognition(activity_recognition_module* module, activity_recognition_device* device);
    ~ActivityRecognition() override;

    // V1_0::IActivityRecognition
    Return<sp<V1_0::IActivityInterface>> getActivityInterface() override;
    Return<sp<V1_0::IEnvironmentInterface>> getEnvironmentInterface() override;

    // V1_1::IActivityRecognition
    Return<sp<V1_1::IActivityInterface>> getActivityInterfaceV1_1() override;
    Return<sp<V1_1::IEnvironmentInterface>> getEnvironmentInterfaceV1_1() override;

    // IBase: the state dump behind `lshal debug` and the bug report. Writes a plain-text report
    // to the handle's first fd: the legacy module and device, which interface objects exist, and
    // each side's state. Options: none for everything, "--activity" or "--environment" for one
    // side, "--help" (or any unknown option) for the usage text.
    // It writes no log line, calls neither lower layer and changes nothing. It takes the activity
    // side's mListMutex, then its eventMutex, releases both, then takes the environment side's
    // mListMutex alone; the report is written after all of them are released. A null handle, one
    // without fds or an fd that cannot be written writes nothing, and a reader that has gone does
    // not kill the process (no SIGPIPE).
    // Re-entrancy: a dump waits for a fan-out in progress. A client that asks for a dump from
    // inside its own event callback, on the delivering thread, would take the non-recursive
    // mListMutex of that side a second time and deadlock, the same hazard as registering from
    // inside a callback.
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override;

  private:
    // The text of the report (or the usage text) for these options.
    std::string DumpReport(const hidl_vec<hidl_string>& options) const;

    // The activity interface once published: set under sActivityInterfaceLock before
    // mActivityInterfaceReady, never written again, so a reader that has seen the flag set reads
    // it without the lock.
    const sp<ActivityInterface>& PublishedActivityInterface() const NO_THREAD_SAFETY_ANALYSIS {
        return mActivityInterface;
    }

    // Serialises the lazy creation of the activity interface.
    // NOLINTNEXTLINE(readability-identifier-naming): the lock keeps its established name.
    static ::android::Mutex sActivityInterfaceLock;

    activity_recognition_device* mDevice;
    activity_recognition_module* mModule;
    // Declared before mEnvironmentInterface, so released after it; guarded by
    // ServiceTest.DestructorClosesOnceThenReleasesEnvironmentThenActivity.
    sp<ActivityInterface> mActivityInterface GUARDED_BY(sActivityInterfaceLock);
    // Not locked, by design: the environment getter is not serialised.
    sp<EnvironmentInterface> mEnvironmentInterface;
    // Set once mActivityInterface is stored, and never cleared: the getters test it without the
    // lock, and a caller that sees it set also sees the stored interface.
    std::atomic<bool> mActivityInterfaceReady;
};

extern "C" IActivityRecognition* HIDL_FETCH_IActivityRecognition(const char* name);

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
