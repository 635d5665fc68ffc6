#include "LogCapture.h"

#include <android/log.h>

#include <mutex>

namespace artest {
namespace {

std::mutex gLock;
std::vector<LogLine>* gLines = nullptr;

void captureLogger(const struct __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> guard(gLock);
    if (gLines != nullptr) {
        gLines->push_back({data->priority, data->tag ? data->tag : "", message ? message : ""});
    }
}

}  // namespace

// liblog calls the logger under a lock of its own: never hold gLock while setting the logger.
LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> guard(gLock);
        gLines = new std::vector<LogLine>();
    }
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    __android_log_set_logger(captureLogger);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    std::lock_guard<std::mutex> guard(gLock);
    delete gLines;
    gLines = nullptr;
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> guard(gLock);
    return *gLines;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> guard(gLock);
    gLines->clear();
}

int LogCapture::count(int priority, const std::string& tag, const std::string& message) const {
    int n = 0;
    for (const LogLine& line : lines()) {
        n += line.priority == priority && line.tag == tag && line.message == message;
    }
    return n;
}

std::vector<std::string> LogCapture::withTag(const std::string& tag) const {
    std::vector<std::string> out;
    for (const LogLine& line : lines()) {
        if (line.tag == tag) out.push_back(std::to_string(line.priority) + " " + line.message);
    }
    return out;
}

}  // namespace artest
