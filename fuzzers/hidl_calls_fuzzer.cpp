// Sequences of HIDL calls from a few processes, reports of the lower layers and client deaths,
// decoded from the input: any latencies, parameters and texts (out-of-range doubles included).
#include <android-base/properties.h>
#include <hwbinder/IPCThreadState.h>
#include <math.h>
#include <string.h>

#include <vector>

#include "FuzzService.h"
#include "simulated_legacy_module.h"
#include "simulated_zel_client.h"

using namespace arfuzz;
using ::android::hardware::host::ScopedCallingIdentity;

namespace {

constexpr int kPids = 4;
constexpr uint32_t kActivities[] = {0, 1, 2, 3, 31, 64};

// Callback objects per (pid, interface, version); a dead one is replaced on next use.
sp<Client> gClients[kPids][4];

uint32_t activity(Input& in) {
    uint8_t b = in.byte();
    return b < 240 ? kActivities[b % 6] : in.value<uint32_t>();
}

uint32_t eventType(Input& in) {
    return in.byte() % 4;
}

int64_t latency(Input& in) {
    switch (in.byte() % 4) {
        case 0:
            return 1;
        case 1:
            return 2500000000;
        case 2:
            return -1;
        default:
            return in.value<int64_t>();
    }
}

double number(Input& in) {
    static const double kSpecial[] = {0.0, 1.0, -1.0, 1e10, -1e10, NAN, INFINITY, 2147483648.0};
    uint8_t b = in.byte();
    return b < 128 ? kSpecial[b % 8] : in.value<double>();
}

ar::V1_0::OtherParams params(Input& in) {
    ar::V1_0::OtherParams p;
    for (size_t i = 0; i < 4; ++i) p.params[i] = number(in);
    p.extra = in.text(40);
    return p;
}

void report(Input& in, uint8_t kind) {
    const int count = in.byte() % 8;
    if (kind == 0 || kind == 3) {
        std::vector<activity_event> events(count);
        for (auto& e : events) {
            e = {.event_type = eventType(in),
                 .activity = activity(in),
                 .timestamp = in.value<int8_t>(),
                 .confidence = in.value<int8_t>()};
        }
        if (kind == 0) {
            simulated_legacy::reportActivities(events.data(), count);
        } else {
            simulated_zel::notify(0, count * sizeof(activity_event), simulated_zel::pack(events));
        }
        return;
    }
    std::vector<ar_context_event> events(count);
    for (auto& e : events) {
        e.event_type = eventType(in);
        e.activity = activity(in);
        e.timestamp = in.value<int8_t>();
        std::string text = in.text(31);
        memcpy(e.params.extra, text.data(), text.size());
    }
    if (kind == 1) {
        simulated_legacy::reportExtendedActivities(events.data(), count);
    } else {
        simulated_legacy::reportEnvironments(events.data(), count);
    }
}

void currentState(Input& in) {
    simulated_legacy::StateAnswer answer;
    answer.count = static_cast<int>(in.byte() % 9) - 1;
    for (int i = 0; i < answer.count.value(); ++i) {
        ar_context_event e{};
        e.activity = activity(in);
        e.event_type = eventType(in);
        e.timestamp = in.value<int8_t>();
        answer.records.push_back(e);
    }
    answer.nullArray = in.byte() % 8 == 0;
    simulated_legacy::setStateAnswer(simulated_legacy::Side::kActivity, answer);
}

void call(Input& in) {
    Service& s = service();
    const int pid = 1 + in.byte() % kPids;
    ScopedCallingIdentity as(pid);
    const uint8_t op = in.byte() % 16;
    if (op < 4) {
        sp<Client>& client = gClients[pid - 1][op];
        if (client == nullptr) {
            client = new Client();
            client->failing = in.byte() % 4 == 0;
            client->setLink(in.byte() % 8 == 0 ? artest::Link::kRefused : artest::Link::kLinked);
        }
        switch (op) {
            case 0:
                s.activity->registerActivityCallback(client);
                break;
            case 1:
                s.activity->registerActivityCallbackV1_1(client);
                break;
            case 2:
                s.environment->registerEnvironmentCallback(client);
                break;
            default:
                s.environment->registerEnvironmentCallbackV1_1(client);
                break;
        }
        return;
    }
    switch (op) {
        case 4:
            s.activity->enableActivityEvent(activity(in), eventType(in), latency(in));
            break;
        case 5: {
            uint32_t a = activity(in), t = eventType(in);
            int64_t l = latency(in);
            s.activity->enableActivityEventExtend(a, t, l, params(in));
            break;
        }
        case 6:
            s.activity->disableActivityEvent(activity(in), eventType(in));
            break;
        case 7:
            s.activity->flush();
            break;
        case 8:
            s.activity->getCurrentActivity([](const auto&) {});
            s.activity->getCurrentActivityV1_1([](const auto&) {});
            s.activity->getSupportedActivitiesList([](const auto&) {});
            break;
        case 9: {
            uint32_t environment = activity(in);
            switch (in.byte() % 4) {
                case 0:
                    s.environment->initEnvironment(environment, params(in));
                    break;
                case 1:
                    s.environment->exitEnvironment(environment, params(in));
                    break;
                case 2: {
                    uint32_t t = eventType(in);
                    int64_t l = latency(in);
                    s.environment->enableEnvironment(environment, t, l, params(in));
                    break;
                }
                default:
                    s.environment->disableEnvironment(environment, eventType(in));
                    break;
            }
            break;
        }
        case 10:
            s.environment->getCurrentEnvironment([](const auto&) {});
            s.environment->getCurrentEnvironmentV1_1([](const auto&) {});
            s.environment->getSupportedEnvironmentsList([](const auto&) {});
            break;
        case 11:
            report(in, in.byte() % 3);
            break;
        case 12: {
            sp<Client>& client = gClients[pid - 1][in.byte() % 4];
            if (client != nullptr) {
                client->die();
                client.clear();
            }
            break;
        }
        case 13:
            currentState(in);
            break;
        case 14: {
            static const char* kEntries[] = {"enable_activity_event",
                                             "disable_activity_event",
                                             "enable_activity_event_extend",
                                             "flush",
                                             "init_environment",
                                             "enable_environment"};
            simulated_legacy::setResult(kEntries[in.byte() % 6], in.value<int8_t>());
            break;
        }
        default:
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Activities 2, 3 and 31 are the client library's; the others stay with the legacy module.
    android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
    simulated_zel::setConfigMask(0x8000000c);
    service();
    simulated_legacy::setRecording(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    for (int step = 0; step < 64 && !in.empty(); ++step) call(in);
    return 0;
}
