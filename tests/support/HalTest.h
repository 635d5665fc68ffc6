// What every suite of the HAL shares: the names it uses (the recording client's among them) and a
// fixture that loads the HAL as the platform's passthrough host does.
#pragma once

#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "Passthrough.h"
#include "RecordingClient.h"
#include "simulated_legacy_module.h"

namespace artest {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using Lines = std::vector<std::string>;
using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::host::ScopedCallingIdentity;
using IBase = ::android::hidl::base::V1_0::IBase;

// The simulated module at its defaults and the service fetched; each test runs in a process of
// its own, so the HAL's process-wide state starts empty.
class HalTest : public ::testing::Test {
  protected:
    void SetUp() override {
        simulated_legacy::reset();
        service = fetchService();
        ASSERT_NE(nullptr, service);
    }

    LogCapture log;
    sp<IActivityRecognition> service;
};

}  // namespace artest
