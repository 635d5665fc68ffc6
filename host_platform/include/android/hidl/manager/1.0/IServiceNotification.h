// Host stand-in: the generated headers only name this interface in declarations.
#pragma once

namespace android {
namespace hidl {
namespace manager {
namespace V1_0 {
struct IServiceNotification;
}  // namespace V1_0
}  // namespace manager
}  // namespace hidl
}  // namespace android
