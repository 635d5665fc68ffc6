// Host stand-in for the part of libcutils' property API that the HAL uses, backed by libbase's
// in-process host properties.
#pragma once

#include <stdbool.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

bool property_get_bool(const char* key, bool default_value);

__END_DECLS
