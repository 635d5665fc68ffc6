// The state dump of a service object as text, for the harness and the tests: IBase::debug writes
// into an in-memory file, which is then read back whole. An in-memory file rather than a pipe,
// because debug writes the whole report on the caller's thread before it returns: a pipe would
// block on a report longer than its buffer.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <cutils/native_handle.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace artest {

// What `service` writes for these options (empty when it writes nothing).
inline std::string DumpText(const ::android::sp<::android::hidl::base::V1_0::IBase>& service,
                            const std::vector<std::string>& options) {
    std::string text;
    const int fd = memfd_create("ar-dump", MFD_CLOEXEC);
    if (fd < 0) return text;
    native_handle_t* native = native_handle_create(1, 0);
    if (native != nullptr) {
        native->data[0] = fd;
        ::android::hardware::hidl_vec<::android::hardware::hidl_string> args(options.size());
        for (size_t i = 0; i < options.size(); ++i) args[i] = options[i];
        service->debug(::android::hardware::hidl_handle(native), args).isOk();
        native_handle_delete(native);
        char buffer[4096];
        ssize_t n = 0;
        lseek(fd, 0, SEEK_SET);
        while ((n = read(fd, buffer, sizeof(buffer))) > 0) text.append(buffer, n);
    }
    close(fd);
    return text;
}

}  // namespace artest
