// The test executable replaces the non-throwing operator new (and exports it, so the dlopen'ed
// HAL uses it too). Tests arm it to make a coming allocation fail.
#pragma once

#include <gtest/gtest.h>
#include <stddef.h>

namespace artest {

// False where the sanitizer runtime owns operator new (ThreadSanitizer): tests of allocation
// failures skip themselves there.
bool canFailNothrowNew();

// Makes the next non-throwing allocation, after `skip` successful ones, answer null.
void failNextNothrowNew(int skip = 0);

}  // namespace artest

#define SKIP_WITHOUT_FAILING_NEW()                                                           \
    do {                                                                                     \
        if (!artest::canFailNothrowNew()) GTEST_SKIP() << "operator new is the sanitizer's"; \
    } while (0)
