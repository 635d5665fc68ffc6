// Captures the platform log of the test process through liblog's logger hook.
#pragma once

#include <string>
#include <vector>

namespace artest {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

// Installs the capturing logger (minimum priority: debug) for its lifetime and keeps the lines.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();

    std::vector<LogLine> lines() const;
    void clear();
    // Number of captured lines equal to (priority, tag, message).
    int count(int priority, const std::string& tag, const std::string& message) const;
    // Lines with this tag, formatted as "P message", for readable failure output.
    std::vector<std::string> withTag(const std::string& tag) const;
};

}  // namespace artest
