#include <hwbinder/IPCThreadState.h>
#include <unistd.h>

namespace android {
namespace hardware {

namespace {
thread_local bool tAvailable = true;
}  // namespace

IPCThreadState* IPCThreadState::self() {
    thread_local IPCThreadState state;
    return tAvailable ? &state : nullptr;
}

IPCThreadState::IPCThreadState() : mCallingPid(getpid()), mCallingUid(getuid()) {}

pid_t IPCThreadState::getCallingPid() const {
    return mCallingPid;
}

uid_t IPCThreadState::getCallingUid() const {
    return mCallingUid;
}

int64_t IPCThreadState::clearCallingIdentity() {
    int64_t token = host::makeCallingIdentityToken(mCallingPid, mCallingUid);
    mCallingPid = getpid();
    mCallingUid = getuid();
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCallingUid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
    mCallingPid = static_cast<pid_t>(static_cast<uint32_t>(token));
}

namespace host {

int64_t makeCallingIdentityToken(pid_t pid, uid_t uid) {
    return static_cast<int64_t>((static_cast<uint64_t>(uid) << 32) | static_cast<uint32_t>(pid));
}

void setThreadStateAvailable(bool available) {
    tAvailable = available;
}

// The guard reaches the state even while self() is switched off on this thread.
ScopedCallingIdentity::ScopedCallingIdentity(pid_t pid, uid_t uid) {
    bool available = tAvailable;
    tAvailable = true;
    IPCThreadState* state = IPCThreadState::self();
    mSaved = state->clearCallingIdentity();
    state->restoreCallingIdentity(makeCallingIdentityToken(pid, uid));
    tAvailable = available;
}

ScopedCallingIdentity::~ScopedCallingIdentity() {
    bool available = tAvailable;
    tAvailable = true;
    IPCThreadState::self()->restoreCallingIdentity(mSaved);
    tAvailable = available;
}

}  // namespace host
}  // namespace hardware
}  // namespace android
