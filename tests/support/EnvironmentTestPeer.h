// Tells the environment tests whether the client-map lock is held, for what each call holds it
// across.
#pragma once

#include "EnvironmentInterface.h"

namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation {

struct EnvironmentInterfaceTestPeer {
    // Whether another thread (or this one) holds the client-map lock right now.
    static bool listLockHeld() {
        if (EnvironmentInterface::mListMutex.tryLock() != 0) return true;
        EnvironmentInterface::mListMutex.unlock();
        return false;
    }
};

}  // namespace vendor::quarn::hardware::activity_recognition::V1_1::implementation
