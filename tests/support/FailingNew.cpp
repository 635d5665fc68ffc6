#include "FailingNew.h"

#include <stdlib.h>

#include <atomic>
#include <new>

namespace artest {
namespace {
// -1: disarmed; otherwise the number of allocations still to let through.
std::atomic<int> gCountdown{-1};

[[maybe_unused]] bool shouldFail() {
    int current = gCountdown.load();
    while (current >= 0) {
        if (gCountdown.compare_exchange_weak(current, current - 1)) return current == 0;
    }
    return false;
}
}  // namespace

bool canFailNothrowNew() {
#ifdef AR_NO_FAILING_NEW
    return false;
#else
    return true;
#endif
}

void failNextNothrowNew(int skip) {
    gCountdown = skip;
}

}  // namespace artest

#ifndef AR_NO_FAILING_NEW
// Forwarding to the throwing forms keeps the pairing with the sanitizers' delete correct.
__attribute__((visibility("default"))) void* operator new(size_t size,
                                                          const std::nothrow_t&) noexcept {
    if (artest::shouldFail()) return nullptr;
    return ::operator new(size);
}

__attribute__((visibility("default"))) void* operator new[](size_t size,
                                                            const std::nothrow_t&) noexcept {
    if (artest::shouldFail()) return nullptr;
    return ::operator new[](size);
}
#endif  // AR_NO_FAILING_NEW
