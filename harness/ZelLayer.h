// The simulated sensor-framework client library as the harness drives it: which variant the run
// has (present, without "ZelMotionEnable", or absent), its configuration, the trace of every call
// the HAL makes into it, and the notifications it sends from its own thread.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "Syntax.h"
#include "Trace.h"
#include "ZelControl.h"

namespace arharness {

class ZelLayer {
  public:
    enum class Variant { kPresent, kNoMotion, kAbsent };

    explicit ZelLayer(Trace* trace);

    // Chooses the variant of the run; only before the library is loaded.
    bool choose(Variant variant, std::string* error);
    // Loads the chosen variant (the present one unless chosen otherwise), once. The HAL then finds
    // it by its file name, as it is already loaded; an absent library is simply never loaded.
    bool load(std::string* error);
    bool absent() const { return mVariant == Variant::kAbsent; }
    // Null until loaded, and for an absent library.
    const ZelControl* control() const { return mControl; }

    // Traces the calls made into the library that were not yet traced. Safe from any thread.
    void flush();
    // Back to the library's defaults, with no call recorded, for the next run in the same
    // process. The variant stays: a process loads the library once.
    void reset();

  private:
    Trace* mTrace;
    Variant mVariant = Variant::kPresent;
    bool mLoaded = false;
    const ZelControl* mControl = nullptr;
    std::mutex mLock;
    size_t mSeen = 0;
};

}  // namespace arharness
