// Reaches the environment interface's class-wide state from tests. It takes no lock of its own.
#pragma once

#include "EnvironmentInterface.h"

namespace vendor {
namespace quarn {
namespace hardware {
namespace activity_recognition {
namespace V1_1 {
namespace implementation {

struct EnvironmentInterfaceTestPeer {
    // Whether another thread (or this one) holds the client-map lock right now.
    static bool listLockHeld() {
        if (EnvironmentInterface::mListMutex.tryLock() != 0) return true;
        EnvironmentInterface::mListMutex.unlock();
        return false;
    }
    static size_t clientsV1_0() { return EnvironmentInterface::mClientVectorV1_0.size(); }
    static size_t clientsV1_1() { return EnvironmentInterface::mClientVectorV1_1.size(); }
};

}  // namespace implementation
}  // namespace V1_1
}  // namespace activity_recognition
}  // namespace hardware
}  // namespace quarn
}  // namespace vendor
