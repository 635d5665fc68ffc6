// Loads the HAL as the platform's passthrough service host does: dlopen of the implementation
// library by file name, dlsym of the entry point.
#pragma once

#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>

namespace artest {

using IActivityRecognition =
        ::vendor::quarn::hardware::activity_recognition::V1_1::IActivityRecognition;

// The library stays loaded for the life of the process. Null when the entry point answers null,
// or, with a line on stderr, when the library or its entry point cannot be found.
::android::sp<IActivityRecognition> fetchService(const char* instance = "default");

}  // namespace artest
