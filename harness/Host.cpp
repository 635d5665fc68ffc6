// The process as the service host: the trace, liblog's lines into it, the simulated lower layers
// and the runner above them, set up once and never destroyed.
#include <android/log.h>
#include <hwbinder/IPCThreadState.h>
#include <stdlib.h>

#include "Runner.h"

// Never destroyed: the HAL may still log while the process exits, and like a service host the
// harness never lets go of the service (held by the runner). Outside the anonymous namespace, so
// that they stay real globals, where the leak checker of the sanitized builds finds them.
arharness::Trace* gTrace = nullptr;
arharness::ModuleLayer* gModule = nullptr;
arharness::ZelLayer* gZel = nullptr;
arharness::Runner* gRunner = nullptr;
::android::hardware::host::ScopedCallingIdentity* gHostIdentity = nullptr;

namespace arharness {
namespace {

void traceLogger(const struct __android_logger_data* data, const char* message) {
    Event event(Kind::kLog, "{priority} {tag}: {text}");
    event.subject = data->tag != nullptr ? data->tag : "";
    event.name = std::string(1, priorityLetter(data->priority));
    event.detail = message != nullptr ? message : "";
    event.addString("priority", event.name).addString("tag", event.subject);
    event.add("text", escapeText(event.detail), jsonString(event.detail));
    gTrace->emit(std::move(event));
}

}  // namespace

Runner* startHost(FILE* out, Format format, const TraceFilter& filter) {
    if (gRunner != nullptr) return gRunner;
    // The harness is the service host: its own thread, and the threads that play the lower
    // layers, act as the host process; clients act as theirs only during their calls.
    gHostIdentity = new ::android::hardware::host::ScopedCallingIdentity(kHostPid, kHostUid);
    // The simulated module is the one below the HAL, whatever the environment says.
    unsetenv("HAL_LIBRARY_PATH");
    gTrace = new Trace(out, format);
    gTrace->setFilter(filter);
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    __android_log_set_logger(traceLogger);
    gModule = new ModuleLayer(gTrace);
    gModule->install();
    gZel = new ZelLayer(gTrace);
    // The client library only records its calls: they are traced just ahead of the next event.
    gTrace->setBeforeEmit([] { gZel->flush(); });
    gRunner = new Runner(gTrace, gModule, gZel);
    return gRunner;
}

Runner* freshRunner() {
    gRunner->endProcesses();
    delete gRunner;
    unsetenv("HAL_LIBRARY_PATH");
    gModule->reset();
    gZel->reset();
    gTrace->beginStep();
    gRunner = new Runner(gTrace, gModule, gZel);
    return gRunner;
}

}  // namespace arharness
