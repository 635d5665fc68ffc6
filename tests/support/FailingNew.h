// The test executable replaces the non-throwing operator new (and exports it, so the dlopen'ed
// HAL uses it too). Tests arm it to make a coming allocation fail.
#pragma once

#include <stddef.h>

namespace artest {

// Makes the next non-throwing allocation, after `skip` successful ones, answer null.
void failNextNothrowNew(int skip = 0);
// Disarms a pending failure.
void resetNothrowNew();

}  // namespace artest
