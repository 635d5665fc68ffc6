#include "Clients.h"

#include <string.h>

#include <algorithm>

#include "Syntax.h"

namespace arharness {
namespace {

using ::android::wp;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::Void;

Record toRecord(const ar::V1_0::ActivityEvent& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    return r;
}

Record toRecord(const ar::V1_1::ActivityEventV1_1& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    r.c = event.confidence;
    return r;
}

Params toParams(const ar::V1_0::OtherParams& params) {
    Params p;
    for (int i = 0; i < 4; ++i) p.p[i] = params.params[i];
    p.x = std::string(params.extra.c_str(), params.extra.size());
    return p;
}

Record toRecord(const ar::V1_0::ActivityEventExtend& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    r.s = event.status;
    r.params = toParams(event.otherParams);
    return r;
}

Record toRecord(const ar::V1_1::ActivityEventExtendV1_1& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    r.c = event.confidence;
    r.s = event.status;
    r.params = toParams(event.otherParams);
    return r;
}

template <typename T>
std::vector<Record> toRecords(const hidl_vec<T>& events) {
    std::vector<Record> records;
    for (const T& event : events) records.push_back(toRecord(event));
    return records;
}

// The part every callback object shares: links to death and the recording of deliveries.
template <typename Interface>
class CallbackObject : public Interface {
  public:
    explicit CallbackObject(std::shared_ptr<ClientState> state) : mState(std::move(state)) {}

    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        std::string answer;
        Return<bool> result(false);
        if (mState->dead) {
            answer = "dead object";
            result = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, "dead object");
        } else if (mState->link == LinkMode::kError) {
            answer = "transport error";
            result = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED,
                                               "link refused by the harness");
        } else if (mState->link == LinkMode::kRefuse) {
            answer = "false";
        } else {
            answer = "true";
            mState->links.emplace_back(recipient, cookie);
            result = true;
        }
        Event event;
        event.kind = "link";
        event.subject = mState->name;
        event.name = "linkToDeath";
        event.detail = std::to_string(cookie);
        event.text = mState->label() + " linkToDeath(cookie " + std::to_string(cookie) + ") -> " +
                     answer;
        event.json = ",\"client\":" + jsonString(mState->name) +
                     ",\"pid\":" + std::to_string(mState->pid) +
                     ",\"method\":\"linkToDeath\",\"cookie\":" + std::to_string(cookie) +
                     ",\"answer\":" + jsonString(answer);
        mState->trace->emit(std::move(event));
        return result;
    }

    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        auto& links = mState->links;
        auto it = std::find_if(links.begin(), links.end(),
                               [&](const auto& link) { return link.first == recipient; });
        bool found = it != links.end();
        if (found) links.erase(it);
        Event event;
        event.kind = "link";
        event.subject = mState->name;
        event.name = "unlinkToDeath";
        event.text = mState->label() + " unlinkToDeath -> " + (found ? "true" : "false");
        event.json = ",\"client\":" + jsonString(mState->name) +
                     ",\"pid\":" + std::to_string(mState->pid) +
                     ",\"method\":\"unlinkToDeath\",\"answer\":" + (found ? "true" : "false");
        mState->trace->emit(std::move(event));
        return found;
    }

  protected:
    Return<void> deliver(const char* method, const std::vector<Record>& records, Fields fields) {
        bool fail = mState->dead || mState->failCalls;
        const char* answer = mState->dead ? "dead object" : "transport error";
        Event event;
        event.kind = "deliver";
        event.subject = mState->name;
        event.name = method;
        event.detail = formatRecords(records, fields);
        event.items = static_cast<int>(records.size());
        // Long batches are shown by their first records; expectations see them whole.
        std::vector<Record> shown(records.begin(),
                                  records.begin() + std::min<size_t>(8, records.size()));
        event.text = mState->label() + " " + method + " " + formatRecords(shown, fields);
        if (shown.size() < records.size()) {
            event.text.insert(event.text.size() - 1,
                              " ... " + std::to_string(records.size()) + " records");
        }
        if (fail) event.text += std::string(" -> ") + answer;
        event.json = ",\"client\":" + jsonString(mState->name) +
                     ",\"pid\":" + std::to_string(mState->pid) +
                     ",\"method\":" + jsonString(method) +
                     ",\"records\":" + recordsJson(records, fields) +
                     ",\"answer\":" + jsonString(fail ? answer : "ok");
        mState->trace->emit(std::move(event));
        if (fail) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, answer);
        return Void();
    }

    std::shared_ptr<ClientState> mState;
};

class ActivityCallbackV1_0 : public CallbackObject<ar::V1_0::IActivityChangedCallback> {
  public:
    using CallbackObject::CallbackObject;
    Return<void> onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& events) override {
        return deliver("onActivityChangedV1_0", toRecords(events), Fields::kShort);
    }
    Return<void> onActivityExtendChangedV1_0(
            const hidl_vec<ar::V1_0::ActivityEventExtend>& events) override {
        return deliver("onActivityExtendChangedV1_0", toRecords(events), Fields::kLong);
    }
};

class ActivityCallbackV1_1 : public CallbackObject<ar::V1_1::IActivityChangedCallback> {
  public:
    using CallbackObject::CallbackObject;
    Return<void> onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& events) override {
        return deliver("onActivityChangedV1_0", toRecords(events), Fields::kShort);
    }
    Return<void> onActivityExtendChangedV1_0(
            const hidl_vec<ar::V1_0::ActivityEventExtend>& events) override {
        return deliver("onActivityExtendChangedV1_0", toRecords(events), Fields::kLong);
    }
    Return<void> onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& events) override {
        return deliver("onActivityChangedV1_1", toRecords(events), Fields::kShortC);
    }
    Return<void> onActivityExtendChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& events) override {
        return deliver("onActivityExtendChangedV1_1", toRecords(events), Fields::kLongC);
    }
};

class EnvironmentCallbackV1_0 : public CallbackObject<ar::V1_0::IEnvironmentChangedCallback> {
  public:
    using CallbackObject::CallbackObject;
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& events) override {
        return deliver("onEnvironmentChanged", toRecords(events), Fields::kLong);
    }
};

class EnvironmentCallbackV1_1 : public CallbackObject<ar::V1_1::IEnvironmentChangedCallback> {
  public:
    using CallbackObject::CallbackObject;
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& events) override {
        return deliver("onEnvironmentChanged", toRecords(events), Fields::kLong);
    }
    Return<void> onEnvironmentChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& events) override {
        return deliver("onEnvironmentChangedV1_1", toRecords(events), Fields::kLongC);
    }
};

}  // namespace

std::string ClientState::label() const {
    return name + "[" + std::to_string(pid) + "]";
}

Client makeClient(std::shared_ptr<ClientState> state) {
    Client client;
    client.state = state;
    if (state->activity && state->v1_1) {
        sp<ActivityCallbackV1_1> object = new ActivityCallbackV1_1(state);
        client.activityV1_1 = object;
        client.activityV1_0 = object;
        client.object = object;
    } else if (state->activity) {
        sp<ActivityCallbackV1_0> object = new ActivityCallbackV1_0(state);
        client.activityV1_0 = object;
        client.object = object;
    } else if (state->v1_1) {
        sp<EnvironmentCallbackV1_1> object = new EnvironmentCallbackV1_1(state);
        client.environmentV1_1 = object;
        client.environmentV1_0 = object;
        client.object = object;
    } else {
        sp<EnvironmentCallbackV1_0> object = new EnvironmentCallbackV1_0(state);
        client.environmentV1_0 = object;
        client.object = object;
    }
    return client;
}

const std::vector<std::string>& callbackMethods(bool activity, bool v1_1) {
    static const std::vector<std::string> kActivityV1_0 = {"onActivityChangedV1_0",
                                                           "onActivityExtendChangedV1_0"};
    static const std::vector<std::string> kActivityV1_1 = {
            "onActivityChangedV1_0", "onActivityExtendChangedV1_0", "onActivityChangedV1_1",
            "onActivityExtendChangedV1_1"};
    static const std::vector<std::string> kEnvironmentV1_0 = {"onEnvironmentChanged"};
    static const std::vector<std::string> kEnvironmentV1_1 = {"onEnvironmentChanged",
                                                              "onEnvironmentChangedV1_1"};
    if (activity) return v1_1 ? kActivityV1_1 : kActivityV1_0;
    return v1_1 ? kEnvironmentV1_1 : kEnvironmentV1_0;
}

}  // namespace arharness
