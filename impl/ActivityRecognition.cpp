#define LOG_TAG "AR_impl_Act"

#include "ActivityRecognition.h"

#include <log/log.h>
#include <utils/Mutex.h>

#include <new>

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

namespace {
// Serialises the lazy creation of the activity interface.
// NOLINTNEXTLINE(readability-identifier-naming): the file's lock keeps its established name.
::android::Mutex sActivityInterfaceLock;
}  // namespace

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
    mDevice = nullptr;
    mModule = nullptr;
    // The interfaces may outlive this object while clients hold them.
    mEnvironmentInterface.clear();
    mActivityInterface.clear();
}

// Creation happens in the 1.1 getter; its answer is dropped and the stored interface returned.
Return<sp<V1_0::IActivityInterface>> ActivityRecognition::getActivityInterface() {
    ALOGI("1.1 Activity compatible 1.0");
    getActivityInterfaceV1_1();
    if (!mActivityInterfaceReady.load(std::memory_order_acquire)) {
        return sp<V1_0::IActivityInterface>(nullptr);
    }
    return sp<V1_0::IActivityInterface>(mActivityInterface);
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
    return sp<V1_1::IActivityInterface>(mActivityInterface);
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

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
