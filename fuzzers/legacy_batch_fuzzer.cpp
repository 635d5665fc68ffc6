// Batches from the legacy module, within its contract: any count, any record bytes, an array of
// exactly `count` records (or none), and the text of each extended record terminated.
//
// Input: kind (activity, extended, environment), a signed count, then record bytes.
#include <hwbinder/IPCThreadState.h>
#include <string.h>

#include <vector>

#include "FuzzService.h"
#include "simulated_legacy_module.h"

using namespace arfuzz;

namespace {

// Clients of both versions in a few processes, each with requests for a few pairs, so that
// plain events find requests to match.
void setUpClients() {
    Service& s = service();
    for (int pid = 1; pid <= 3; ++pid) {
        ::android::hardware::host::ScopedCallingIdentity as(pid);
        sp<Client> v11 = new Client();
        sp<Client> v10 = new Client();
        v11->failing = pid == 3;
        s.activity->registerActivityCallbackV1_1(v11);
        s.activity->registerActivityCallback(v10);
        s.environment->registerEnvironmentCallbackV1_1(v11);
        s.environment->registerEnvironmentCallback(v10);
        for (uint32_t activity = 0; activity < 4; ++activity) {
            s.activity->enableActivityEvent(activity, 1 + activity % 2, 1000000000);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    service();
    simulated_legacy::setRecording(false);
    setUpClients();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    const uint8_t kind = in.byte() % 3;
    // Counts from -8 to 247: around both ends of the accepted range, arrays of bounded size.
    const int count = static_cast<int>(in.byte()) - 8;
    const bool nullArray = in.byte() % 16 == 0;
    const size_t records = count > 0 ? static_cast<size_t>(count) : 0;
    if (kind == 0) {
        std::vector<activity_event> events(records);
        for (auto& e : events) in.bytes(&e, sizeof(e));
        simulated_legacy::reportActivities(nullArray ? nullptr : events.data(), count);
    } else {
        std::vector<ar_context_event> events(records);
        for (auto& e : events) {
            in.bytes(&e, sizeof(e));
            e.params.extra[sizeof(e.params.extra) - 1] = '\0';
        }
        const ar_context_event* array = nullArray ? nullptr : events.data();
        if (kind == 1) {
            simulated_legacy::reportExtendedActivities(array, count);
        } else {
            simulated_legacy::reportEnvironments(array, count);
        }
    }
    return 0;
}
