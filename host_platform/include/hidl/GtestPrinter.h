// Host stand-in for the HIDL test helper that names parameterised test cases by instance.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace android {
namespace hardware {

// The instance name with every character that is not a letter or digit replaced by '_'.
inline std::string PrintInstanceNameToString(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    for (char& c : name) {
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    return name;
}

}  // namespace hardware
}  // namespace android
