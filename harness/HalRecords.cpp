#include "HalRecords.h"

#include <string>

namespace arharness {

Record toRecord(const ar::V1_0::ActivityEvent& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    return r;
}

Record toRecord(const ar::V1_1::ActivityEventV1_1& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    r.c = event.confidence;
    return r;
}

Record toRecord(const ar::V1_0::ActivityEventExtend& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    r.s = event.status;
    r.params = toParams(event.otherParams);
    return r;
}

Record toRecord(const ar::V1_1::ActivityEventExtendV1_1& event) {
    Record r;
    r.e = event.eventType;
    r.a = event.activity;
    r.t = event.timestamp;
    r.c = event.confidence;
    r.s = event.status;
    r.params = toParams(event.otherParams);
    return r;
}

Params toParams(const ar::V1_0::OtherParams& params) {
    Params p;
    for (int i = 0; i < 4; ++i) p.p[i] = params.params[i];
    p.x = std::string(params.extra.c_str(), params.extra.size());
    return p;
}

ar::V1_0::OtherParams toOtherParams(const Params& params) {
    ar::V1_0::OtherParams out;
    for (int i = 0; i < 4; ++i) out.params[i] = params.p[i];
    out.extra = params.x;
    return out;
}

}  // namespace arharness
