#include "Clients.h"

#include <string.h>

#include <algorithm>

#include "HalRecords.h"
#include "Syntax.h"

namespace arharness {
namespace {

using ::android::wp;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::Void;

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
        Event event =
                mState->event(Kind::kLink, "{client}[{pid}] {method}(cookie {cookie}) -> {answer}");
        event.name = "linkToDeath";
        event.detail = std::to_string(cookie);
        event.addString("method", event.name).addNumber("cookie", static_cast<int64_t>(cookie));
        // JSON: true or false as booleans, a failure as its text.
        bool answered = answer == "true" || answer == "false";
        mState->trace->emit(
                std::move(event.add("answer", answer, answered ? answer : jsonString(answer))));
        return result;
    }

    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        auto& links = mState->links;
        auto it = std::find_if(links.begin(), links.end(),
                               [&](const auto& link) { return link.first == recipient; });
        bool found = it != links.end();
        if (found) links.erase(it);
        Event event = mState->event(Kind::kLink, "{client}[{pid}] {method} -> {answer}");
        event.name = "unlinkToDeath";
        const char* answer = found ? "true" : "false";
        mState->trace->emit(
                std::move(event.addString("method", event.name).add("answer", answer, answer)));
        return found;
    }

  protected:
    Return<void> deliver(const char* method, const std::vector<Record>& records, Fields fields) {
        bool fail = mState->dead || mState->failCalls;
        const char* answer = mState->dead ? "dead object" : "transport error";
        Event event = mState->event(Kind::kDeliver,
                                    fail ? "{client}[{pid}] {method} {records} -> {answer}"
                                         : "{client}[{pid}] {method} {records}");
        event.name = method;
        event.detail = formatRecords(records, fields);
        event.items = static_cast<int>(records.size());
        // Long batches are shown by their first records; expectations see them whole.
        std::vector<Record> shown = mState->trace->shownRecords(records);
        std::string text = formatRecords(shown, fields);
        if (shown.size() < records.size()) {
            text.insert(text.size() - 1, Trace::moreRecords(records.size()));
        }
        event.addString("method", method).add("records", text, recordsJson(records, fields));
        mState->trace->emit(std::move(event.addString("answer", fail ? answer : "ok")));
        if (fail) return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED, answer);
        return Void();
    }

    std::shared_ptr<ClientState> mState;
};

// The activity callback of either version: the deliveries that version 1.0 already has.
template <typename Interface>
class ActivityCallback : public CallbackObject<Interface> {
  public:
    using CallbackObject<Interface>::CallbackObject;
    Return<void> onActivityChangedV1_0(const hidl_vec<ar::V1_0::ActivityEvent>& events) override {
        return this->deliver("onActivityChangedV1_0", toRecords(events), Fields::kShort);
    }
    Return<void> onActivityExtendChangedV1_0(
            const hidl_vec<ar::V1_0::ActivityEventExtend>& events) override {
        return this->deliver("onActivityExtendChangedV1_0", toRecords(events), Fields::kLong);
    }
};

using ActivityCallbackV1_0 = ActivityCallback<ar::V1_0::IActivityChangedCallback>;

class ActivityCallbackV1_1 : public ActivityCallback<ar::V1_1::IActivityChangedCallback> {
  public:
    using ActivityCallback::ActivityCallback;
    Return<void> onActivityChangedV1_1(const hidl_vec<ar::V1_1::ActivityEventV1_1>& events) override {
        return deliver("onActivityChangedV1_1", toRecords(events), Fields::kShortC);
    }
    Return<void> onActivityExtendChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& events) override {
        return deliver("onActivityExtendChangedV1_1", toRecords(events), Fields::kLongC);
    }
};

// The environment callback of either version: the delivery that version 1.0 already has.
template <typename Interface>
class EnvironmentCallback : public CallbackObject<Interface> {
  public:
    using CallbackObject<Interface>::CallbackObject;
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>& events) override {
        return this->deliver("onEnvironmentChanged", toRecords(events), Fields::kLong);
    }
};

using EnvironmentCallbackV1_0 = EnvironmentCallback<ar::V1_0::IEnvironmentChangedCallback>;

class EnvironmentCallbackV1_1 : public EnvironmentCallback<ar::V1_1::IEnvironmentChangedCallback> {
  public:
    using EnvironmentCallback::EnvironmentCallback;
    Return<void> onEnvironmentChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>& events) override {
        return deliver("onEnvironmentChangedV1_1", toRecords(events), Fields::kLongC);
    }
};

}  // namespace

std::string ClientState::label() const {
    return name + "[" + std::to_string(pid) + "]";
}

Event ClientState::event(Kind kind, const std::string& layout) const {
    Event event(kind, layout);
    event.subject = name;
    event.addString("client", name).addNumber("pid", pid);
    return event;
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
