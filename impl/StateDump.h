// Text of the state dump behind `lshal debug` (ActivityRecognition::debug): the formatting that
// the sections of all three classes share. Numbers use the formats of the log lines that print
// them, so that a line of the dump can be matched with a line of the log.
#pragma once

#include <stdarg.h>
#include <stdio.h>
#include <utils/KeyedVector.h>
#include <utils/StrongPointer.h>

#include <string>

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

// Appends the printf-style text to `out`.
__attribute__((format(printf, 2, 3))) inline void AppendFormat(std::string* out, const char* format,
                                                               ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    char buffer[256];
    const int length = vsnprintf(buffer, sizeof(buffer), format, args);
    if (length >= 0 && static_cast<size_t>(length) < sizeof(buffer)) {
        out->append(buffer, length);
    } else if (length >= 0) {
        std::string longer(static_cast<size_t>(length) + 1, '\0');
        vsnprintf(&longer[0], longer.size(), format, again);
        out->append(longer, 0, length);
    }
    va_end(again);
    va_end(args);
}

// One client map, in its own order (the callbacks' addresses): pid and callback identity.
template <typename Callback>
void AppendClients(std::string* out, const char* version,
                   const ::android::KeyedVector<::android::sp<Callback>, uint64_t>& clients) {
    AppendFormat(out, "clients %s (%zu), in map order:\n", version, clients.size());
    for (size_t i = 0; i < clients.size(); ++i) {
        AppendFormat(out, "  pid[%lu] callback[%p]\n", clients.valueAt(i),
                     static_cast<const void*>(clients.keyAt(i).get()));
    }
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
