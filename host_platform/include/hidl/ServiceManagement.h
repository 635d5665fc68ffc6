// Host stand-in for the HIDL service lookup. There is no service manager on the host: an
// interface's getService() loads the passthrough implementation library of its package, as the
// platform does in passthrough mode, and the instances that can be found are those of a library
// that the search finds.
#pragma once

#include <string>
#include <vector>

namespace android {
namespace hardware {

// The instances of the interface `descriptor` ("package@major.minor::IName") that getService()
// can reach: "default" when its implementation library is on the search path, else none.
std::vector<std::string> getAllHalInstanceNames(const std::string& descriptor);

namespace host {

// Folders searched for passthrough implementation libraries: the colon-separated
// HIDL_PASSTHROUGH_PATH when it is set (even empty), else the build's lib/ folder.
std::string passthroughSearchPath();

// Opens the implementation library of `descriptor`'s package and answers its entry point
// `symbol`. The library is "<package>@<major>.<minor>-impl.so" of the descriptor's major version
// with the newest minor version at or above the descriptor's (a later minor version serves the
// earlier interfaces, as the service registered on a device does), from the first folder of the
// search path that holds one. Null, after one line on
// stderr that names what was searched, when there is none or it cannot be opened. The library
// stays loaded for the life of the process.
void* openPassthroughEntry(const std::string& descriptor, const std::string& symbol);

}  // namespace host
}  // namespace hardware
}  // namespace android
