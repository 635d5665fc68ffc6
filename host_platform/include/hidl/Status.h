// Host stand-in for <hidl/Status.h>: the transport status and Return<T>. As on the platform, a
// Return whose status failed aborts when it is destroyed without its status being looked at.
#pragma once

#include <log/log.h>
#include <stdint.h>

#include <string>
#include <utility>

namespace android {
namespace hardware {

class Status final {
  public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_HAS_REPLY_HEADER = -128,
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok() { return Status(); }
    static Status fromExceptionCode(int32_t exceptionCode, const char* message = nullptr) {
        return Status(exceptionCode, message == nullptr ? "" : message);
    }

    Status() = default;
    bool isOk() const { return mException == EX_NONE; }
    int32_t exceptionCode() const { return mException; }
    const std::string& exceptionMessage() const { return mMessage; }
    std::string description() const;

  private:
    Status(int32_t exception, std::string message)
        : mException(exception), mMessage(std::move(message)) {}

    int32_t mException = EX_NONE;
    std::string mMessage;
};

namespace details {
class return_status {
  public:
    return_status() = default;
    explicit return_status(const Status& status) : mStatus(status) {}
    return_status(return_status&& other) noexcept { *this = std::move(other); }
    return_status& operator=(return_status&& other) noexcept {
        if (this != &other) {
            assertOk();
            mStatus = other.mStatus;
            mCheckedStatus = other.mCheckedStatus;
            other.mCheckedStatus = true;
        }
        return *this;
    }
    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    ~return_status() { assertOk(); }

    bool isOk() const {
        mCheckedStatus = true;
        return mStatus.isOk();
    }
    bool isDeadObject() const {
        mCheckedStatus = true;
        return mStatus.exceptionCode() == Status::EX_TRANSACTION_FAILED;
    }
    std::string description() const {
        mCheckedStatus = true;
        return mStatus.description();
    }

  protected:
    void assertOk() const {
        LOG_ALWAYS_FATAL_IF(!mCheckedStatus && !mStatus.isOk(),
                            "Failed HIDL return status not checked: %s",
                            mStatus.description().c_str());
    }

  private:
    Status mStatus;
    mutable bool mCheckedStatus = false;
};
}  // namespace details

template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : mVal(std::move(value)) {}  // NOLINT: implicit like the platform's
    Return(const Status& status) : details::return_status(status), mVal() {}  // NOLINT
    Return(Return&& other) noexcept = default;
    Return& operator=(Return&& other) noexcept = default;

    T withDefault(T t) { return isOk() ? mVal : t; }
    operator T() const {  // NOLINT: implicit like the platform's
        assertOk();
        return mVal;
    }

  private:
    T mVal;
};

template <>
class Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(const Status& status) : details::return_status(status) {}  // NOLINT
    Return(Return&& other) noexcept = default;
    Return& operator=(Return&& other) noexcept = default;
};

inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
