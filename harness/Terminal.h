// Scenario lines typed at a terminal (standard input and standard error both terminals), edited
// through libedit: emacs keys, the history of the lines typed in this run (the up arrow recalls
// the previous one), the user's ~/.editrc. Ctrl-C abandons the line being typed, and at an empty
// prompt ends the run with its summary, as the end of the input does. SIGINT is caught while
// the terminal lives.
#pragma once

#include <string>

#include "Runner.h"

struct editline;
struct history;

namespace arharness {

class Terminal : public LineSource {
  public:
    Terminal();
    ~Terminal() override;
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // The next line; false at the end of the input or on Ctrl-C at an empty prompt.
    bool next(std::string* line) override;

  private:
    editline* mEdit = nullptr;
    history* mHistory = nullptr;
};

}  // namespace arharness
