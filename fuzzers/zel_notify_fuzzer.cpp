// Notifications of the sensor-framework client library, within its contract: any byte length
// that the data's storage holds (zero and negative included), any bytes.
//
// Input: a length selector, then the words of the data.
#include <android-base/properties.h>
#include <hwbinder/IPCThreadState.h>
#include <string.h>

#include <vector>

#include "FuzzService.h"
#include "simulated_legacy_module.h"
#include "simulated_zel_client.h"

using namespace arfuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Activities 0 to 3 are the library's: their requests go to it as commands.
    android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
    simulated_zel::setConfigMask(0xf);
    Service& s = service();
    simulated_legacy::setRecording(false);
    for (int pid = 1; pid <= 3; ++pid) {
        ::android::hardware::host::ScopedCallingIdentity as(pid);
        sp<Client> v11 = new Client();
        sp<Client> v10 = new Client();
        s.activity->registerActivityCallbackV1_1(v11);
        s.activity->registerActivityCallback(v10);
        for (uint32_t activity = 0; activity < 6; ++activity) {
            s.activity->enableActivityEvent(activity, 1 + activity % 2, 1000000000);
        }
    }
    simulated_zel::clearCalls();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    const uint8_t selector = in.byte();
    const int32_t status = in.value<int8_t>();
    std::vector<int32_t> words;
    while (!in.empty() && words.size() < 1200) words.push_back(in.value<int32_t>());
    const int32_t storage = static_cast<int32_t>(words.size() * sizeof(int32_t));
    int32_t length;
    switch (selector % 4) {
        case 0:
            length = storage;
            break;
        case 1:
            length = storage == 0 ? 0 : static_cast<int32_t>(selector) % (storage + 1);
            break;
        case 2:
            length = -static_cast<int32_t>(selector);
            break;
        default:
            length = 0;
            break;
    }
    simulated_zel::notify(status, length, words);
    return 0;
}
