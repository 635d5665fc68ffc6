// Event records and extra parameters as they cross the HAL's interface, in the scenario's terms.
#pragma once

#include <hidl/HidlSupport.h>
#include <vendor/quarn/hardware/activity_recognition/1.0/types.h>
#include <vendor/quarn/hardware/activity_recognition/1.1/types.h>

#include <vector>

#include "Syntax.h"

namespace arharness {

namespace ar = ::vendor::quarn::hardware::activity_recognition;

Record toRecord(const ar::V1_0::ActivityEvent& event);
Record toRecord(const ar::V1_1::ActivityEventV1_1& event);
Record toRecord(const ar::V1_0::ActivityEventExtend& event);
Record toRecord(const ar::V1_1::ActivityEventExtendV1_1& event);

template <typename T>
std::vector<Record> toRecords(const ::android::hardware::hidl_vec<T>& events) {
    std::vector<Record> records;
    for (const T& event : events) records.push_back(toRecord(event));
    return records;
}

Params toParams(const ar::V1_0::OtherParams& params);
ar::V1_0::OtherParams toOtherParams(const Params& params);

}  // namespace arharness
