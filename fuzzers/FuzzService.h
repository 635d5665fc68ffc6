// The HAL as the fuzzers see it: loaded once per process as a passthrough host does, with client
// callbacks that act as processes of their own and can be made to fail or die.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IActivityRecognition.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/IEnvironmentChangedCallback.h>

#include <string>
#include <vector>

#include "RecordingClient.h"
#include "activity_recognition_legacy.h"

namespace arfuzz {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;

// Reads the fuzzer's input front to back; past the end it answers zeros.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : mData(data), mSize(size) {}
    bool empty() const { return mPos >= mSize; }
    uint8_t byte() { return mPos < mSize ? mData[mPos++] : 0; }
    template <typename T>
    T value() {
        T out{};
        uint8_t* raw = reinterpret_cast<uint8_t*>(&out);
        for (size_t i = 0; i < sizeof(T); ++i) raw[i] = byte();
        return out;
    }
    std::string text(size_t maxLength) {
        size_t length = byte() % (maxLength + 1);
        std::string out;
        for (size_t i = 0; i < length; ++i) out.push_back(static_cast<char>(byte()));
        return out;
    }
    void bytes(void* out, size_t size) {
        auto* raw = static_cast<uint8_t*>(out);
        for (size_t i = 0; i < size; ++i) raw[i] = byte();
    }

  private:
    const uint8_t* mData;
    size_t mSize;
    size_t mPos = 0;
};

// A client of every callback interface: the shared recording client, keeping only the count of
// what it receives. Its death reaches every recipient it was linked to.
struct Client : artest::RecordingClient {
    Client() : RecordingClient(0, artest::Link::kLinked, Keep::kCount) {}
    void die() { obituary()(); }
};

struct Service {
    sp<ar::V1_1::IActivityRecognition> service;
    sp<ar::V1_1::IActivityInterface> activity;
    sp<ar::V1_1::IEnvironmentInterface> environment;
};

// Loads the HAL and creates both interfaces, once per process; quiet logging.
Service& service();

}  // namespace arfuzz
