#define LOG_TAG "HAL"

#include <dlfcn.h>
#include <errno.h>
#include <hardware/hardware.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#ifndef HOST_HAL_DEFAULT_PATH
#error "HOST_HAL_DEFAULT_PATH must name the folder of the development modules"
#endif

namespace {

// The folders to search: HAL_LIBRARY_PATH when it is set (even empty), else the build's own.
std::string searchPath() {
    const char* path = getenv("HAL_LIBRARY_PATH");
    return path != nullptr ? path : HOST_HAL_DEFAULT_PATH;
}

int load(const char* id, const std::string& file, const hw_module_t** module) {
    void* handle = dlopen(file.c_str(), RTLD_NOW);
    if (handle == nullptr) {
        ALOGE("load: module=%s\n%s", file.c_str(), dlerror());
        return -EINVAL;
    }
    auto* hmi = static_cast<hw_module_t*>(dlsym(handle, HAL_MODULE_INFO_SYM_AS_STR));
    if (hmi == nullptr) {
        ALOGE("load: couldn't find symbol %s", HAL_MODULE_INFO_SYM_AS_STR);
        dlclose(handle);
        return -EINVAL;
    }
    if (hmi->id == nullptr || strcmp(id, hmi->id) != 0) {
        ALOGE("load: id=%s != hmi->id=%s", id, hmi->id == nullptr ? "(null)" : hmi->id);
        dlclose(handle);
        return -EINVAL;
    }
    hmi->dso = handle;
    *module = hmi;
    return 0;
}

}  // namespace

int hw_get_module(const char* id, const hw_module_t** module) {
    const std::string name = std::string(id) + ".default.so";
    const std::string path = searchPath();
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) end = path.size();
        if (end > start) {
            std::string file = path.substr(start, end - start) + "/" + name;
            if (access(file.c_str(), R_OK) == 0) return load(id, file, module);
        }
        start = end + 1;
    }
    return -ENOENT;
}
