#include <hidl/HidlSupport.h>
#include <log/log.h>

namespace android {
namespace hardware {

hidl_handle::~hidl_handle() {
    freeHandle();
}

hidl_handle::hidl_handle(const hidl_handle& other) {
    *this = other;
}

hidl_handle::hidl_handle(hidl_handle&& other) noexcept {
    *this = std::move(other);
}

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) return *this;
    freeHandle();
    if (other.mHandle == nullptr) {
        mHandle = nullptr;
        mOwnsHandle = false;
        return *this;
    }
    native_handle_t* clone = native_handle_clone(other.mHandle);
    LOG_ALWAYS_FATAL_IF(clone == nullptr, "Failed to clone native_handle in hidl_handle");
    setTo(clone, true);
    return *this;
}

hidl_handle& hidl_handle::operator=(const native_handle_t* handle) {
    freeHandle();
    mHandle = handle;
    mOwnsHandle = false;
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this == &other) return *this;
    freeHandle();
    mHandle = other.mHandle;
    mOwnsHandle = other.mOwnsHandle;
    other.mHandle = nullptr;
    other.mOwnsHandle = false;
    return *this;
}

void hidl_handle::setTo(native_handle_t* handle, bool shouldOwn) {
    freeHandle();
    mHandle = handle;
    mOwnsHandle = shouldOwn;
}

// Only a handle this object cloned or was handed with ownership is closed and freed.
void hidl_handle::freeHandle() {
    if (mOwnsHandle && mHandle != nullptr) {
        native_handle_t* handle = const_cast<native_handle_t*>(mHandle.get());
        native_handle_close(handle);
        native_handle_delete(handle);
    }
    mHandle = nullptr;
    mOwnsHandle = false;
}

}  // namespace hardware
}  // namespace android
