// Host stand-in for hwbinder's per-thread state: the calling identity of the transaction that
// the current thread serves. Outside a transaction the identity is the process's own.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

namespace android {
namespace hardware {

class IPCThreadState {
  public:
    // The calling thread's state, or null when it has none (see setThreadStateAvailable()).
    static IPCThreadState* self();

    pid_t getCallingPid() const;
    uid_t getCallingUid() const;

    // Resets the calling identity to the process's own and returns a token of the previous one:
    // uid in the high 32 bits, pid in the low 32.
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

  private:
    IPCThreadState();

    pid_t mCallingPid;
    uid_t mCallingUid;
};

// Host-only controls, for tests and tools.
namespace host {

// Token that stands for the given identity, to pass to restoreCallingIdentity().
int64_t makeCallingIdentityToken(pid_t pid, uid_t uid);

// Makes IPCThreadState::self() answer null on the calling thread (false) or not (true).
void setThreadStateAvailable(bool available);

// Simulates the death of process `pid`: each link that an in-process object made through the
// default linkToDeath() while the calling process was `pid` is removed, and its recipient, if it
// is still alive, hears serviceDied(cookie, object) on the calling thread. Answers the number of
// links removed.
size_t simulateProcessDeath(pid_t pid);

// Acts as the given process on this thread for the guard's lifetime.
class ScopedCallingIdentity {
  public:
    explicit ScopedCallingIdentity(pid_t pid, uid_t uid = 1000);
    ~ScopedCallingIdentity();
    ScopedCallingIdentity(const ScopedCallingIdentity&) = delete;
    ScopedCallingIdentity& operator=(const ScopedCallingIdentity&) = delete;

  private:
    int64_t mSaved;
};

}  // namespace host
}  // namespace hardware
}  // namespace android
