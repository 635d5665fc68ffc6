// The terminal: libedit reads the line, through a character reader of ours that sees Ctrl-C.
#include "Terminal.h"

#include <errno.h>
#include <histedit.h>
#include <locale.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <wchar.h>

namespace arharness {
namespace {

constexpr char kPrompt[] = "ar-harness> ";
constexpr int kHistorySize = 1000;

// ---- Ctrl-C ----

// Set by SIGINT, which interrupts the read of the character being waited for.
volatile sig_atomic_t gInterrupted = 0;
// Whether the line was empty when Ctrl-C came.
bool gInterruptedEmpty = false;

void onInterrupt(int) {
    gInterrupted = 1;
}

// libedit's character reader, replaced so that Ctrl-C ends the read at once: libedit's own retries
// a read that a signal interrupted, and its signal handling leaves the terminal in cooked mode.
// Decodes the locale's multibyte characters byte by byte; a byte that is none is taken as itself.
int readCharacter(EditLine* edit, wchar_t* out) {
    mbstate_t state;
    memset(&state, 0, sizeof(state));
    for (;;) {
        if (gInterrupted != 0) {
            const LineInfoW* line = el_wline(edit);
            gInterruptedEmpty = line->lastchar == line->buffer;
            return -1;
        }
        char byte;
        ssize_t got = read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return 0;
        wchar_t character;
        size_t used = mbrtowc(&character, &byte, 1, &state);
        if (used == static_cast<size_t>(-2)) continue;
        if (used == static_cast<size_t>(-1)) {
            memset(&state, 0, sizeof(state));
            character = static_cast<unsigned char>(byte);
        }
        *out = character;
        return 1;
    }
}

char* prompt(EditLine*) {
    return const_cast<char*>(kPrompt);
}

}  // namespace

// ---- the terminal ----

Terminal::Terminal() {
    // Characters as the user's locale encodes them; only the terminal's line depends on it.
    setlocale(LC_CTYPE, "");
    mHistory = history_init();
    HistEvent event;
    history(mHistory, &event, H_SETSIZE, kHistorySize);
    history(mHistory, &event, H_SETUNIQUE, 1);
    mEdit = el_init("ar-harness", stdin, stderr, stderr);
    el_set(mEdit, EL_EDITOR, "emacs");
    el_set(mEdit, EL_SIGNAL, 0);
    el_set(mEdit, EL_PROMPT, prompt);
    el_set(mEdit, EL_HIST, history, mHistory);
    el_set(mEdit, EL_GETCFN, readCharacter);
    el_source(mEdit, nullptr);  // the user's ~/.editrc, if any
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = onInterrupt;  // no SA_RESTART: the read ends
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

Terminal::~Terminal() {
    signal(SIGINT, SIG_DFL);
    el_end(mEdit);
    history_end(mHistory);
}

bool Terminal::next(std::string* line) {
    for (;;) {
        gInterrupted = 0;  // a Ctrl-C while a command ran is over
        int count = 0;
        const char* text = el_gets(mEdit, &count);
        if (gInterrupted != 0) {
            gInterrupted = 0;
            fputs("^C\n", stderr);
            if (gInterruptedEmpty) return false;
            continue;  // the line is abandoned
        }
        if (text == nullptr || count <= 0) return false;
        line->assign(text, static_cast<size_t>(count));
        if (!line->empty() && line->back() == '\n') line->pop_back();
        if (line->find_first_not_of(" \t") != std::string::npos) {
            HistEvent event;
            history(mHistory, &event, H_ENTER, line->c_str());
        }
        return true;
    }
}

}  // namespace arharness
