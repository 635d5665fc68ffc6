// Clients of the HAL as the harness plays them: each has a name, a process id, an interface
// version and a side (activity or environment), and owns one callback object that records every
// call the HAL makes on it (deliveries, links to death) into the trace.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <sys/types.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityChangedCallback.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityInterface.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentInterface.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Trace.h"

namespace arharness {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::hardware::hidl_death_recipient;

// How the client's process answers linkToDeath: true, false, or a transport error.
enum class LinkMode { kOk, kRefuse, kError };

// What the callback objects share with the runner. Owned jointly, so that callback objects
// that the HAL keeps until the process ends never point at freed state.
struct ClientState {
    std::string name;
    pid_t pid = 0;
    bool v1_1 = true;
    bool activity = true;
    LinkMode link = LinkMode::kOk;
    bool failCalls = false;  // every delivery answers a transport error
    bool dead = false;
    Trace* trace = nullptr;
    // Recipients linked to the callback object and not unlinked, in link order.
    std::vector<std::pair<sp<hidl_death_recipient>, uint64_t>> links;

    std::string label() const;  // "app1[1234]"
    // An event about the client: its subject, with the fields client and pid ("{client}[{pid}]"
    // in the layout shows the label).
    Event event(Kind kind, const std::string& layout) const;
};

struct Client {
    std::shared_ptr<ClientState> state;
    // The callback object, through each interface it implements (null where it does not).
    sp<::android::hidl::base::V1_0::IBase> object;
    sp<ar::V1_0::IActivityChangedCallback> activityV1_0;
    sp<ar::V1_1::IActivityChangedCallback> activityV1_1;
    sp<ar::V1_0::IEnvironmentChangedCallback> environmentV1_0;
    sp<ar::V1_1::IEnvironmentChangedCallback> environmentV1_1;
    // The interface objects the client got from the service.
    sp<ar::V1_0::IActivityInterface> activityInterfaceV1_0;
    sp<ar::V1_1::IActivityInterface> activityInterfaceV1_1;
    sp<ar::V1_0::IEnvironmentInterface> environmentInterfaceV1_0;
    sp<ar::V1_1::IEnvironmentInterface> environmentInterfaceV1_1;
};

// A client with a fresh callback object of its version and side.
Client makeClient(std::shared_ptr<ClientState> state);

// The callback methods of a side and version, for checking expectation names.
const std::vector<std::string>& callbackMethods(bool activity, bool v1_1);

// ---- the methods a client calls ----

// The arguments of a control call in the order they are written: the activity (or environment),
// the event type and the latency, as many of them as the method takes, and the extra parameters.
struct ControlArgs {
    uint32_t target = 0;
    uint32_t eventType = 0;
    int64_t latency = 0;
    ar::V1_0::OtherParams params;
};

// What a method is to the harness: how it is called and what it answers.
enum class MethodKind {
    kGetter,        // a getter of the service: an interface object
    kRegistration,  // registers the client's callback object (or null): no answer
    kList,          // the supported names
    kCurrent,       // the current-state records
    kControl,       // numbers (and extra parameters) in, a result code out
};
const char* methodKindName(MethodKind kind);

// One method of the service or of a side's interface, as a client names it. Every method is one
// row: dispatch, help and --methods read them all from here.
struct ClientMethod {
    const char* name;
    bool activity;  // the side: activity or environment
    bool v1_1;      // only in version 1.1
    MethodKind kind;
    const char* arguments;  // as written after the name
    const char* help;       // what it does, with the units of its arguments
    size_t arity;           // numbers a control method takes: target, event type, latency
    bool takesParams;       // p= and x=
    ::android::hardware::Return<int32_t> (*control)(const Client& client, const ControlArgs& args);
};
const std::vector<ClientMethod>& clientMethods();
// The row of a method of the side, by its name; null when there is none.
const ClientMethod* findClientMethod(bool activity, const std::string& name);
// The method of a side and version for a kind: "connect" and "register" name the client's own.
const ClientMethod* methodFor(bool activity, bool v1_1, MethodKind kind);

}  // namespace arharness
