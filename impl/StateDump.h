// Text of the state dump behind `lshal debug` (ActivityRecognition::debug): the formatting that
// the sections of all three classes share. Numbers use the formats of the log lines that print
// them, so that a line of the dump can be matched with a line of the log.
#pragma once

#include <android-base/stringprintf.h>
#include <utils/KeyedVector.h>
#include <utils/StrongPointer.h>

#include <string>

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

using ::android::base::StringAppendF;

// One client map, in its own order (the callbacks' addresses): pid and callback identity.
template <typename Callback>
void AppendClients(std::string* out, const char* version,
                   const ::android::KeyedVector<::android::sp<Callback>, uint64_t>& clients) {
    StringAppendF(out, "clients %s (%zu), in map order:\n", version, clients.size());
    for (size_t i = 0; i < clients.size(); ++i) {
        StringAppendF(out, "  pid[%lu] callback[%p]\n", clients.valueAt(i),
                      static_cast<const void*>(clients.keyAt(i).get()));
    }
}

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
