#include <android-base/properties.h>
#include <cutils/properties.h>

bool property_get_bool(const char* key, bool default_value) {
    return android::base::GetBoolProperty(key, default_value);
}
