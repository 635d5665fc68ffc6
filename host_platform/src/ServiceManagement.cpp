// Host passthrough lookup: finds and opens the implementation library of an interface's package.
#include <dlfcn.h>
#include <hidl/ServiceManagement.h>
#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <optional>

#ifndef HOST_PASSTHROUGH_DEFAULT_PATH
#error "HOST_PASSTHROUGH_DEFAULT_PATH must name the build's library folder"
#endif

namespace android {
namespace hardware {

namespace {

constexpr char kPathVariable[] = "HIDL_PASSTHROUGH_PATH";

// "package@major.minor::IName", split.
struct FqName {
    std::string package;
    unsigned major = 0;
    unsigned minor = 0;
};

std::optional<FqName> parseDescriptor(const std::string& descriptor) {
    size_t at = descriptor.find('@');
    size_t colons = descriptor.find("::", at);
    if (at == std::string::npos || colons == std::string::npos) return std::nullopt;
    FqName fq;
    fq.package = descriptor.substr(0, at);
    if (sscanf(descriptor.substr(at + 1, colons - at - 1).c_str(), "%u.%u", &fq.major, &fq.minor) !=
        2) {
        return std::nullopt;
    }
    return fq;
}

std::string libraryName(const FqName& fq, unsigned minor) {
    return fq.package + "@" + std::to_string(fq.major) + "." + std::to_string(minor) + "-impl.so";
}

// The newest "<package>@<major>.<n>-impl.so" with n >= the descriptor's minor, from the first
// folder of the search path that holds one; empty when none does.
std::string findLibrary(const FqName& fq, unsigned* minorFound) {
    const std::string path = host::passthroughSearchPath();
    const std::string prefix = fq.package + "@" + std::to_string(fq.major) + ".";
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        std::error_code error;
        std::optional<unsigned> best;
        if (end > start) {
            for (const auto& entry :
                 std::filesystem::directory_iterator(path.substr(start, end - start), error)) {
                unsigned minor = 0;
                std::string file = entry.path().filename().string();
                if (file.compare(0, prefix.size(), prefix) != 0 ||
                    sscanf(file.c_str() + prefix.size(), "%u", &minor) != 1 ||
                    file != libraryName(fq, minor) || minor < fq.minor) {
                    continue;
                }
                if (!best || minor > *best) best = minor;
            }
        }
        if (best) {
            *minorFound = *best;
            return path.substr(start, end - start) + "/" + libraryName(fq, *best);
        }
        start = end + 1;
    }
    return "";
}

}  // namespace

std::vector<std::string> getAllHalInstanceNames(const std::string& descriptor) {
    std::optional<FqName> fq = parseDescriptor(descriptor);
    unsigned minor = 0;
    if (!fq || findLibrary(*fq, &minor).empty()) return {};
    return {"default"};
}

namespace host {

std::string passthroughSearchPath() {
    const char* path = getenv(kPathVariable);
    return path != nullptr ? path : HOST_PASSTHROUGH_DEFAULT_PATH;
}

void* openPassthroughEntry(const std::string& descriptor, const std::string& symbol) {
    std::optional<FqName> fq = parseDescriptor(descriptor);
    if (!fq) {
        fprintf(stderr, "getService: %s is not a package@version::IName descriptor\n",
                descriptor.c_str());
        return nullptr;
    }
    unsigned minor = 0;
    std::string file = findLibrary(*fq, &minor);
    if (file.empty()) {
        fprintf(stderr, "getService: no %s (nor a later %u.x) for %s in %s\"%s\"\n",
                libraryName(*fq, fq->minor).c_str(), fq->major, descriptor.c_str(),
                getenv(kPathVariable) != nullptr ? "HIDL_PASSTHROUGH_PATH=" : "the build's ",
                passthroughSearchPath().c_str());
        return nullptr;
    }
    void* handle = dlopen(file.c_str(), RTLD_NOW);
    void* entry = handle != nullptr ? dlsym(handle, symbol.c_str()) : nullptr;
    if (entry == nullptr) {
        fprintf(stderr, "getService: %s of %s: %s\n", symbol.c_str(), file.c_str(), dlerror());
    }
    return entry;  // never closed: the service's objects live as long as the process
}

}  // namespace host
}  // namespace hardware
}  // namespace android
