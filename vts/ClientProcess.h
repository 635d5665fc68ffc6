// What the conformance test needs from the place it runs in: another client process that dies,
// and events from the legacy module. A device and the host build provide these differently.
#pragma once

#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

#include <functional>
#include <string>

namespace vts_ar {

using ServiceV1_1 = ::vendor::quarn::hardware::activity_recognition::V1_1::IActivityRecognition;

// Runs `client` in a client process of its own, with that process's service of `instance`, and
// lets the process die once `client` returns. Returns after the service was told of the death.
void runClientThatDies(const std::string& instance,
                       const std::function<void(const ::android::sp<ServiceV1_1>&)>& client);

// Makes the legacy module report one extended activity record and one environment record, each in
// a batch of its own from the module's thread, and answers true; false where the module reports
// only what it senses (a device).
bool reportFromModule();

}  // namespace vts_ar
