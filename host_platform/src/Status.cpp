#include <android/hidl/base/1.0/IBase.h>
#include <hidl/Status.h>

namespace android {
namespace hardware {

namespace {
const char* exceptionName(int32_t exception) {
    switch (exception) {
        case Status::EX_NONE:
            return "EX_NONE";
        case Status::EX_SECURITY:
            return "EX_SECURITY";
        case Status::EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case Status::EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case Status::EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case Status::EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case Status::EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case Status::EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case Status::EX_HAS_REPLY_HEADER:
            return "EX_HAS_REPLY_HEADER";
        case Status::EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return "EX_UNKNOWN";
    }
}
}  // namespace

std::string Status::description() const {
    if (isOk()) return "No error";
    return std::string("Status(") + exceptionName(mException) + "): '" + mMessage + "'";
}

}  // namespace hardware
}  // namespace android

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {
const char* IBase::descriptor = "android.hidl.base@1.0::IBase";
}  // namespace V1_0
}  // namespace base
}  // namespace hidl
}  // namespace android
