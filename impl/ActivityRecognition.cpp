#define LOG_TAG "AR_impl_Act"

#include "ActivityRecognition.h"

#include <errno.h>
#include <log/log.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <utils/Mutex.h>

#include <new>
#include <string_view>

#include "StateDump.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

::android::Mutex ActivityRecognition::sActivityInterfaceLock;

ActivityRecognition::ActivityRecognition(activity_recognition_module* module,
                                         activity_recognition_device* device)
    : mDevice(device),
      mModule(module),
      mActivityInterface(nullptr),
      mEnvironmentInterface(nullptr),
      mActivityInterfaceReady(false) {}

ActivityRecognition::~ActivityRecognition() {
    if (mDevice != nullptr) {
        mDevice->common.close(&mDevice->common);
    }
    ALOGI("Deconstruct ActivityRecognition");
    // The members then release the environment interface, then the activity interface (their
    // order of declaration, reversed); either may outlive this object while clients hold it.
}

// Creation happens in the 1.1 getter; its answer is dropped and the stored interface returned.
Return<sp<V1_0::IActivityInterface>> ActivityRecognition::getActivityInterface() {
    ALOGI("1.1 Activity compatible 1.0");
    getActivityInterfaceV1_1();
    if (!mActivityInterfaceReady.load(std::memory_order_acquire)) {
        return sp<V1_0::IActivityInterface>(nullptr);
    }
    return sp<V1_0::IActivityInterface>(PublishedActivityInterface());
}

Return<sp<V1_0::IEnvironmentInterface>> ActivityRecognition::getEnvironmentInterface() {
    ALOGI("1.1 ENV compatible 1.0");
    getEnvironmentInterfaceV1_1();
    return sp<V1_0::IEnvironmentInterface>(mEnvironmentInterface);
}

// Double-checked: the first test is made without the lock, on the flag that is set only once
// the interface is stored. Until then the pointer is read and written under the lock alone.
Return<sp<V1_1::IActivityInterface>> ActivityRecognition::getActivityInterfaceV1_1() {
    if (!mActivityInterfaceReady.load(std::memory_order_acquire)) {
        ::android::Mutex::Autolock lock(sActivityInterfaceLock);
        if (mActivityInterface == nullptr) {
            const activity_interface* table = mDevice->get_activity_interface(mDevice);
            if (table == nullptr) {
                ALOGE("%s ActivityInterface interface not implemented by ar HAL",
                      "getActivityInterfaceV1_1");
            } else {
                mActivityInterface = new (std::nothrow) ActivityInterface(table);
                if (mActivityInterface == nullptr) {
                    ALOGE("getActivityInterfaceV1_1 mActivityInterface new failed");
                    return sp<V1_1::IActivityInterface>(nullptr);
                }
                mActivityInterfaceReady.store(true, std::memory_order_release);
            }
        }
        return sp<V1_1::IActivityInterface>(mActivityInterface);
    }
    return sp<V1_1::IActivityInterface>(PublishedActivityInterface());
}

// Unlike the activity side, creation here is not serialised.
Return<sp<V1_1::IEnvironmentInterface>> ActivityRecognition::getEnvironmentInterfaceV1_1() {
    if (mEnvironmentInterface == nullptr) {
        const environment_interface* table = mDevice->get_environment_interface(mDevice);
        if (table == nullptr) {
            ALOGE("%s EnvironmentInterface interface not implemented by ar HAL",
                  "getEnvironmentInterfaceV1_1");
        } else {
            mEnvironmentInterface = new (std::nothrow) EnvironmentInterface(table);
            if (mEnvironmentInterface == nullptr) {
                ALOGE("getEnvironmentInterfaceV1_1 mEnvironmentInterface new failed");
                return sp<V1_1::IEnvironmentInterface>(nullptr);
            }
        }
    }
    return sp<V1_1::IEnvironmentInterface>(mEnvironmentInterface);
}

IActivityRecognition* HIDL_FETCH_IActivityRecognition(const char* /* name */) {
    const hw_module_t* hwModule = nullptr;
    int err = hw_get_module(ACTIVITY_RECOGNITION_HARDWARE_MODULE_ID, &hwModule);
    if (err != 0) {
        ALOGE("hw_get_module %s failed: %d", ACTIVITY_RECOGNITION_HARDWARE_MODULE_ID, err);
        return nullptr;
    }
    hw_device_t* hwDevice = nullptr;
    err = hwModule->methods->open(hwModule, ACTIVITY_RECOGNITION_HIDL_DEVICE, &hwDevice);
    ActivityRecognition* service = nullptr;
    if (err == 0) {
        // The legacy records begin with the platform's module and device records.
        auto* module =
                reinterpret_cast<activity_recognition_module*>(const_cast<hw_module_t*>(hwModule));
        auto* device = reinterpret_cast<activity_recognition_device*>(hwDevice);
        service = new (std::nothrow) ActivityRecognition(module, device);
        if (service == nullptr) {
            // The device stays open: nothing owns it any more.
            ALOGE("iface new failed");
            return nullptr;
        }
    }
    ALOGI("activity_recognition_impl V1.1 open %s result: %d", ACTIVITY_RECOGNITION_HIDL_DEVICE,
          err);
    return service;
}

// State dump (lshal debug).

namespace {
constexpr char kDumpUsage[] =
        "usage: lshal debug vendor.quarn.hardware.activity_recognition@1.1::IActivityRecognition"
        "/default [OPTION...]\n"
        "  (none)         the whole report\n"
        "  --activity     the service and the activity side\n"
        "  --environment  the service and the environment side\n"
        "  --help         this text\n";

// The first fd of the handle, or -1.
int FirstFd(const hidl_handle& handle) {
    const native_handle_t* native = handle.getNativeHandle();
    if (native == nullptr || native->numFds < 1) return -1;
    return native->data[0];
}

// Writes until all of the text is out or a write fails; a write that a signal interrupted before
// it wrote anything is made again.
void WriteAll(int fd, bool socket, std::string_view text) {
    while (!text.empty()) {
        const ssize_t n = socket ? send(fd, text.data(), text.size(), MSG_NOSIGNAL)
                                 : write(fd, text.data(), text.size());
        if (n != -1) {
            text.remove_prefix(static_cast<size_t>(n));
        } else if (errno != EINTR) {
            return;
        }
    }
}

// Writes the text, giving up at the first error (a closed or read-only fd writes nothing). A
// reader that has gone must not kill the process, and signal dispositions are the process's to
// set, not ours: a socket is written with send(MSG_NOSIGNAL); anything else (a pipe, a file) with
// write() while SIGPIPE is blocked on this thread, and the SIGPIPE that a failed write raised, if
// any, is taken without waiting before the mask is restored. A SIGPIPE that was pending before is
// left for its owner.
void WriteReport(int fd, const std::string& text) {
    struct stat info;
    if (fstat(fd, &info) != 0) return;
    if (S_ISSOCK(info.st_mode)) {
        WriteAll(fd, true, text);
        return;
    }
    sigset_t pipeSignal;
    sigset_t saved;
    sigset_t pending;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &saved);
    const bool alreadyPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    WriteAll(fd, false, text);
    if (!alreadyPending) {
        const struct timespec noWait = {};
        sigtimedwait(&pipeSignal, nullptr, &noWait);
    }
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

// Module texts may be missing.
const char* OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}
}  // namespace

Return<void> ActivityRecognition::debug(const hidl_handle& fd,
                                        const hidl_vec<hidl_string>& options) {
    const int out = FirstFd(fd);
    if (out >= 0) WriteReport(out, DumpReport(options));
    return Void();
}

std::string ActivityRecognition::DumpReport(const hidl_vec<hidl_string>& options) const {
    bool activity = options.size() == 0;
    bool environment = options.size() == 0;
    std::string report;
    for (const hidl_string& option : options) {
        if (option == "--activity") {
            activity = true;
        } else if (option == "--environment") {
            environment = true;
        } else {
            if (option != "--help") StringAppendF(&report, "unknown option: %s\n", option.c_str());
            return report + kDumpUsage;
        }
    }
    // The interfaces are read as the getters read them: the activity one through its published
    // flag, the environment one without a lock.
    const bool activityExists = mActivityInterfaceReady.load(std::memory_order_acquire);
    const sp<EnvironmentInterface> environmentInterface = mEnvironmentInterface;
    report += "== service ==\n";
    if (mModule != nullptr) {
        StringAppendF(&report, "legacy module: id \"%s\" name \"%s\" module api 0x%x hal api 0x%x\n",
                      OrEmpty(mModule->common.id), OrEmpty(mModule->common.name),
                      mModule->common.module_api_version, mModule->common.hal_api_version);
    }
    if (mDevice != nullptr) {
        StringAppendF(&report, "legacy device: \"%s\" open, version 0x%x\n",
                      ACTIVITY_RECOGNITION_HIDL_DEVICE, mDevice->common.version);
    }
    StringAppendF(&report, "activity interface: %s\nenvironment interface: %s\n",
                  activityExists ? "created" : "not created",
                  environmentInterface != nullptr ? "created" : "not created");
    if (activity && activityExists) {
        report += "== activity ==\n";
        PublishedActivityInterface()->DumpState(&report);
    }
    if (environment && environmentInterface != nullptr) {
        report += "== environment ==\n";
        environmentInterface->DumpState(&report);
    }
    return report;
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
