// Host stand-in for the subset of the HIDL runtime's <hidl/HidlSupport.h> that the generated
// headers and the HAL use. Layouts match the platform's (16-byte hidl_string and hidl_vec) so
// the generated static_asserts hold.
#pragma once

#include <cutils/native_handle.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {

namespace details {
// Type tag of generated interface classes.
struct i_tag {};

// Pointer padded to 64 bits, as it travels in the wire layout.
template <typename T>
struct hidl_pointer {
    hidl_pointer() : _pad(0) {}
    hidl_pointer(T* ptr) : hidl_pointer() {
        mPointer = ptr;
    }  // NOLINT: implicit like the platform's
    hidl_pointer& operator=(T* ptr) {
        mPointer = ptr;
        return *this;
    }
    operator T*() const { return mPointer; }  // NOLINT: implicit like the platform's
    T* operator->() const { return mPointer; }
    T& operator[](size_t index) const { return mPointer[index]; }
    T* get() const { return mPointer; }

  private:
    union {
        T* mPointer;
        uint64_t _pad;
    };
};
}  // namespace details

struct hidl_death_recipient : public virtual RefBase {
    virtual void serviceDied(uint64_t cookie, const wp<::android::hidl::base::V1_0::IBase>& who) = 0;
};

// A native handle (file descriptors and integers) passed by the caller. Built from a
// native_handle_t* it only refers to it; a copy clones the handle, fds included, and owns the clone
// (closed and freed when the copy goes).
struct hidl_handle {
    hidl_handle() = default;
    ~hidl_handle();
    hidl_handle(const native_handle_t* handle) : mHandle(handle) {}  // NOLINT: implicit
    hidl_handle(const hidl_handle& other);
    hidl_handle(hidl_handle&& other) noexcept;

    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(const native_handle_t* handle);
    hidl_handle& operator=(hidl_handle&& other) noexcept;

    void setTo(native_handle_t* handle, bool shouldOwn = false);

    const native_handle_t* operator->() const { return mHandle; }
    operator const native_handle_t*() const { return mHandle; }  // NOLINT: implicit
    const native_handle_t* getNativeHandle() const { return mHandle; }

  private:
    void freeHandle();

    details::hidl_pointer<const native_handle_t> mHandle{nullptr};
    bool mOwnsHandle = false;  // padded to 16 bytes, as on the wire
};
static_assert(sizeof(hidl_handle) == 16, "hidl_handle layout");

struct hidl_string {
    hidl_string() = default;
    ~hidl_string() { clear(); }
    hidl_string(const hidl_string& other) { copyFrom(other.c_str(), other.size()); }
    hidl_string(const char* s) { copyFrom(s, s == nullptr ? 0 : strlen(s)); }  // NOLINT
    hidl_string(const char* s, size_t length) { copyFrom(s, length); }
    hidl_string(const std::string& s) { copyFrom(s.c_str(), s.size()); }  // NOLINT
    hidl_string(hidl_string&& other) noexcept { moveFrom(other); }

    hidl_string& operator=(const hidl_string& other) {
        if (this != &other) {
            clear();
            copyFrom(other.c_str(), other.size());
        }
        return *this;
    }
    hidl_string& operator=(hidl_string&& other) noexcept {
        if (this != &other) {
            clear();
            moveFrom(other);
        }
        return *this;
    }
    hidl_string& operator=(const char* s) { return *this = hidl_string(s); }
    hidl_string& operator=(const std::string& s) { return *this = hidl_string(s); }

    const char* c_str() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    operator std::string() const { return std::string(mBuffer, mSize); }  // NOLINT

    void clear() {
        if (mOwnsBuffer) delete[] mBuffer.get();
        mBuffer = kEmpty;
        mSize = 0;
        mOwnsBuffer = false;
    }

    // Refers to a buffer owned by somebody else; the buffer must outlive this string.
    void setToExternal(const char* data, size_t size) {
        clear();
        mBuffer = data;
        mSize = static_cast<uint32_t>(size);
    }

  private:
    static constexpr const char* kEmpty = "";

    void copyFrom(const char* data, size_t size) {
        if (size == 0) return;
        char* buffer = new char[size + 1];
        memcpy(buffer, data, size);
        buffer[size] = '\0';
        mBuffer = buffer;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }
    void moveFrom(hidl_string& other) {
        mBuffer = other.mBuffer;
        mSize = other.mSize;
        mOwnsBuffer = other.mOwnsBuffer;
        other.mBuffer = kEmpty;
        other.mSize = 0;
        other.mOwnsBuffer = false;
    }

    details::hidl_pointer<const char> mBuffer{kEmpty};
    uint32_t mSize = 0;
    bool mOwnsBuffer = false;
};

inline bool operator==(const hidl_string& a, const hidl_string& b) {
    return a.size() == b.size() && memcmp(a.c_str(), b.c_str(), a.size()) == 0;
}
inline bool operator!=(const hidl_string& a, const hidl_string& b) {
    return !(a == b);
}
inline bool operator==(const hidl_string& a, const char* b) {
    return strcmp(a.c_str(), b) == 0;
}
inline bool operator!=(const hidl_string& a, const char* b) {
    return !(a == b);
}

template <typename T>
struct hidl_vec {
    hidl_vec() = default;
    ~hidl_vec() { clear(); }
    explicit hidl_vec(size_t size) { resize(size); }
    hidl_vec(const hidl_vec& other) { copyFrom(other.data(), other.size()); }
    hidl_vec(hidl_vec&& other) noexcept { moveFrom(other); }
    hidl_vec(std::initializer_list<T> list) { copyFrom(list.begin(), list.size()); }
    hidl_vec(const std::vector<T>& v) { copyFrom(v.data(), v.size()); }  // NOLINT

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) {
            clear();
            copyFrom(other.data(), other.size());
        }
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) {
            clear();
            moveFrom(other);
        }
        return *this;
    }
    hidl_vec& operator=(const std::vector<T>& v) { return *this = hidl_vec(v); }

    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }  // NOLINT

    // Refers to (or, with shouldOwn, takes) a buffer allocated with new[].
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        clear();
        mBuffer = data;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = shouldOwn;
    }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    size_t size() const { return mSize; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    T* begin() { return mBuffer; }
    T* end() { return mBuffer.get() + mSize; }
    const T* begin() const { return mBuffer; }
    const T* end() const { return mBuffer.get() + mSize; }

    void resize(size_t size) {
        T* buffer = size == 0 ? nullptr : new T[size];
        for (size_t i = 0; i < std::min(size, static_cast<size_t>(mSize)); ++i) {
            buffer[i] = std::move(mBuffer[i]);
        }
        clear();
        mBuffer = buffer;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }

  private:
    void clear() {
        if (mOwnsBuffer) delete[] mBuffer.get();
        mBuffer = nullptr;
        mSize = 0;
        mOwnsBuffer = true;
    }
    void copyFrom(const T* data, size_t size) {
        if (size == 0) return;
        T* buffer = new T[size];
        std::copy(data, data + size, buffer);
        mBuffer = buffer;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }
    void moveFrom(hidl_vec& other) {
        mBuffer = other.mBuffer;
        mSize = other.mSize;
        mOwnsBuffer = other.mOwnsBuffer;
        other.mBuffer = nullptr;
        other.mSize = 0;
        other.mOwnsBuffer = true;
    }

    details::hidl_pointer<T> mBuffer;
    uint32_t mSize = 0;
    bool mOwnsBuffer = true;
};

template <typename T>
bool operator==(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}
template <typename T>
bool operator!=(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return !(a == b);
}

// One-dimensional fixed-size array, the only form the vendor package uses.
template <typename T, size_t SIZE1>
struct hidl_array {
    hidl_array() = default;
    hidl_array(const T (&source)[SIZE1]) { std::copy(source, source + SIZE1, mBuffer); }  // NOLINT

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    static constexpr size_t size() { return SIZE1; }

    bool operator==(const hidl_array& other) const {
        return std::equal(mBuffer, mBuffer + SIZE1, other.mBuffer);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

  private:
    T mBuffer[SIZE1];
};

// toString() for the types that the generated structs print.
template <typename T, typename = std::enable_if_t<std::is_arithmetic<T>::value>>
std::string toString(T value) {
    return std::to_string(value);
}
inline std::string toString(const hidl_string& s) {
    return "\"" + std::string(s.c_str(), s.size()) + "\"";
}
template <typename T>
std::string toString(const hidl_vec<T>& v) {
    std::string out = "[";
    for (size_t i = 0; i < v.size(); ++i) {
        if (i > 0) out += ", ";
        out += toString(v[i]);
    }
    return out + "]";
}
template <typename T, size_t SIZE1>
std::string toString(const hidl_array<T, SIZE1>& a) {
    std::string out = "[";
    for (size_t i = 0; i < SIZE1; ++i) {
        if (i > 0) out += ", ";
        out += toString(a[i]);
    }
    return out + "]";
}

}  // namespace hardware
}  // namespace android
