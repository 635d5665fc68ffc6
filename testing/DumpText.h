// The state dump of a service object as text, for the harness and the tests: IBase::debug writes
// into an in-memory file, which is then read back whole. An in-memory file rather than a pipe,
// because debug writes the whole report on the caller's thread before it returns: a pipe would
// block on a report longer than its buffer. The file cannot grow past a size no report comes near,
// so a writer that never ends fails there instead of filling memory.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <cutils/native_handle.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace artest {

// What `service` writes for these options (empty when it writes nothing).
inline std::string DumpText(const ::android::sp<::android::hidl::base::V1_0::IBase>& service,
                            const std::vector<std::string>& options) {
    constexpr off_t kLimit = 16 << 20;
    std::string text;
    const int fd = memfd_create("ar-dump", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) return text;
    native_handle_t* native = native_handle_create(1, 0);
    if (native != nullptr && ftruncate(fd, kLimit) == 0 &&
        fcntl(fd, F_ADD_SEALS, F_SEAL_GROW) == 0) {
        native->data[0] = fd;
        ::android::hardware::hidl_vec<::android::hardware::hidl_string> args(options.size());
        for (size_t i = 0; i < options.size(); ++i) args[i] = options[i];
        service->debug(::android::hardware::hidl_handle(native), args).isOk();
        // What was written ends at the file offset; the rest of the file is zeros.
        text.resize(static_cast<size_t>(lseek(fd, 0, SEEK_CUR)));
        if (pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
            text.clear();
    }
    if (native != nullptr) native_handle_delete(native);
    close(fd);
    return text;
}

}  // namespace artest
