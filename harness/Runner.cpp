// The runner's own work: a scenario's lines, the step each command begins, dispatch through the
// command table, help, and the summary of the run.
#include "Runner.h"

#include <errno.h>
#include <string.h>

namespace arharness {

Runner::Runner(Trace* trace, ModuleLayer* module, ZelLayer* zel)
    : mTrace(trace), mModule(module), mZel(zel) {}

// Messages quote what was written: they go to the terminal escaped.
bool Runner::fail(const std::string& message) {
    mError = escapeMessage(message);
    return false;
}

void Runner::note(Kind kind, const std::string& text, const std::vector<Event::Field>& more) {
    Event event(kind, "{text}");
    event.addString("text", text).fields.insert(event.fields.end(), more.begin(), more.end());
    mTrace->emit(std::move(event));
}

// A scenario error as an event: its first line is the text, the indented lines under it (the
// closest commands, say) its hint.
void Runner::traceError(const std::string& message) {
    size_t end = message.find('\n');
    std::vector<Event::Field> hint;
    if (end != std::string::npos) {
        std::vector<std::string> lines;
        for (const std::string& line : splitLines(message.substr(end + 1))) {
            lines.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
        }
        std::string text = join(lines, "\n");
        hint.push_back({"hint", text, jsonString(text)});
    }
    note(Kind::kError, message.substr(0, end), hint);
}

// ---- the run ----

namespace {

// The lines of a stream, after a prompt each on a terminal.
class StreamSource : public LineSource {
  public:
    StreamSource(std::istream& in, bool prompt) : mIn(in), mPrompt(prompt) {}
    bool next(std::string* line) override {
        if (mPrompt) fputs("ar-harness> ", stderr);
        return readLine(mIn, line, lineLimit());
    }

  private:
    std::istream& mIn;
    bool mPrompt;
};

}  // namespace

Runner::Summary Runner::run(const std::string& name, std::istream& in, const Options& options) {
    StreamSource source(in, options.interactive);
    return run(name, &source, options);
}

Runner::Summary Runner::run(const std::string& name, LineSource* source, const Options& options) {
    std::string text;
    int lines = 0;
    mKeepLines = options.interactive;
    if (options.interactive) fputs("ar-harness: one command a line; help lists them\n", stderr);
    for (int line = 1; options.maxLines == 0 || static_cast<size_t>(line) <= options.maxLines;
         ++line) {
        if (!source->next(&text)) break;
        lines = line;
        mSaved = false;
        bool ok = runLine(name, line, text);
        if (ok && mKeepLines && !mSaved) mTyped.push_back(text);
        if (ok) continue;
        ++mSummary.errors;
        fprintf(stderr, "%s:%d: %s\n", name.c_str(), line, mError.c_str());
        if (mTrace->format() == Format::kJsonl) traceError(mError);
        if (!options.interactive) break;
    }
    if (options.interactive) fputs("\n", stderr);
    if (mCommandsRun == 0 && mSummary.errors == 0 && !options.interactive) {
        fprintf(stderr, "%s: empty scenario: no commands\n", escapeText(name).c_str());
    }
    Event summary(Kind::kSummary,
                  "{held} expectations held, {failed} failed, {errors} scenario errors");
    summary.addNumber("held", mSummary.held).addNumber("failed", mSummary.failed);
    mTrace->setLocation(name, lines);
    mTrace->emit(std::move(summary.addNumber("errors", mSummary.errors)));
    if (mSummary.failed > 0) {
        fprintf(stderr, "%s: %d expectation%s failed\n", name.c_str(), mSummary.failed,
                mSummary.failed == 1 ? "" : "s");
    }
    return mSummary;
}

bool Runner::runLine(const std::string& file, int line, const std::string& text) {
    mFile = file;
    mLine = line;
    mError.clear();
    mTrace->setLocation(file, line);
    if (text.size() > lineLimit()) {
        return fail("a line holds at most " + std::to_string(lineLimit()) +
                    " bytes; this one holds more");
    }
    Args args;
    std::string error;
    bool byteOrderMark = line == 1 && text.compare(0, 3, kByteOrderMark) == 0;
    if (!tokenize(byteOrderMark ? text.substr(3) : text, &args, &error)) return fail(error);
    if (args.empty()) return true;
    ++mCommandsRun;
    // An expectation looks at the step before it; its check is its line in the trace.
    if (args[0] != "expect" && args[0] != "help" && args[0] != "save") {
        mTrace->beginStep();
        mResult = Result();
        // JSON also has the words as they were read, as UTF-8 text.
        std::vector<std::string> words;
        for (const std::string& word : args) words.push_back(jsonString(word));
        note(Kind::kCommand, rest(args, 0), {{"words", "", "[" + join(words, ",") + "]"}});
    }
    size_t words = 0;
    mCommand = find(args, &words);
    bool ok = false;
    if (mCommand == nullptr) {
        ok = unknown(args);
    } else {
        mCommandWords.assign(args.begin(), args.begin() + words);
        ok = (this->*mCommand->handler)(args);
    }
    mModule->flush();
    mZel->flush();
    return ok;
}

const Runner::Command* Runner::find(const Args& args, size_t* words) {
    const Command* best = nullptr;
    for (const Command& command : commands()) {
        Args name = splitWords(command.name);
        size_t i = 0;
        while (i < name.size() && i < args.size() &&
               (name[i] == "NAME" ? findClient(args[i]) != nullptr : name[i] == args[i])) {
            ++i;
        }
        if (i == name.size() && (best == nullptr || i > *words)) {
            best = &command;
            *words = i;
        }
    }
    return best;
}

// A line that no command takes: names the closest commands (and clients), or the forms of the
// command it begins with and the closest of their second words.
bool Runner::unknown(const Args& args) {
    bool expectation = args[0] == "expect" && args.size() > 1;
    size_t at = expectation ? 1 : 0;
    std::vector<std::string> known;
    std::vector<std::string> forms;
    std::vector<std::string> seconds;
    for (const Command& command : commands()) {
        Args name = splitWords(command.name);
        if (name[0] == args[0] && !expectation) {
            forms.push_back(form(command));
            if (name.size() > 1) seconds.push_back(name[1]);
        }
        if (name.size() > at && name[at] != "NAME" && (!expectation || name[0] == "expect")) {
            known.push_back(name[at]);
        }
    }
    if (!forms.empty()) {
        std::vector<std::string> closest =
                args.size() > 1 ? closestWords(args[1], seconds) : std::vector<std::string>();
        for (std::string& second : closest) second = args[0] + " " + second;
        return fail("usage: " + join(forms, " | ") +
                    (closest.empty() ? "" : "\n    did you mean: " + join(closest, ", ")));
    }
    for (const Client& client : mClients) known.push_back(client.state->name);
    const std::string& word = args[at];
    return fail((expectation ? "expect what? " + quoteWord(word) +
                                       " is neither a kind of expectation nor a client"
                             : "unknown command or client " + quoteWord(word)) +
                suggestions(word, known));
}

// A second line for an error about an unknown word.
std::string Runner::suggestions(const std::string& word, const std::vector<std::string>& known) {
    std::vector<std::string> closest = closestWords(word, known);
    return closest.empty() ? "\n    help lists the commands"
                           : "\n    did you mean: " + join(closest, ", ");
}

bool Runner::failUsage() {
    Args words = mCommandWords;
    if (mCommand->synopsis[0] != '\0') words.push_back(mCommand->synopsis);
    return fail("usage: " + join(words, " "));
}

std::string Runner::form(const Command& command) {
    return std::string(command.name) + (command.synopsis[0] != '\0' ? " " : "") + command.synopsis;
}

bool Runner::reserved(const std::string& name) {
    for (const Command& command : commands()) {
        Args words = splitWords(command.name);
        if (name == words[0] || (words[0] == "expect" && words.size() > 1 && name == words[1])) {
            return true;
        }
    }
    return false;
}

// help [COMMAND|records|METHOD|ENTRY]
bool Runner::help(const Args& args) {
    Args topic(args.begin() + 1, args.end());
    if (printHelp(stderr, topic)) return true;
    return fail("no help on " + quoteWord(join(topic, " ")) + suggestions(topic[0], topics()));
}

// save FILE
bool Runner::save(const Args& args) {
    if (args.size() != 2) return failUsage();
    if (!mKeepLines) return fail("save writes the lines typed at a terminal (ar-harness -)");
    FILE* out = fopen(args[1].c_str(), "w");
    bool ok = out != nullptr;
    for (size_t i = 0; ok && i < mTyped.size(); ++i) {
        ok = fputs(mTyped[i].c_str(), out) >= 0 && fputc('\n', out) != EOF;
    }
    if (out != nullptr && fclose(out) != 0) ok = false;
    if (!ok) return fail("save: cannot write " + escapeText(args[1]) + ": " + strerror(errno));
    fprintf(stderr, "saved %zu lines to %s\n", mTyped.size(), escapeText(args[1]).c_str());
    mSaved = true;
    return true;
}

bool Runner::printHelp(FILE* out, const Args& topic) {
    if (topic.size() == 1 && printTopicHelp(out, topic[0])) return true;
    bool any = false;
    for (const Command& command : commands()) {
        Args name = splitWords(command.name);
        bool matches = topic.size() <= name.size();
        for (size_t i = 0; matches && i < topic.size(); ++i) matches = name[i] == topic[i];
        if (!matches) continue;
        fprintf(out, "  %s\n      %s\n", form(command).c_str(), command.help);
        any = true;
    }
    if (topic.empty()) {
        fputs("help records: the fields of a RECORD, their units and the limits; help METHOD: the "
              "arguments of a client method or a module entry\n",
              out);
    }
    return any;
}

Client* Runner::findClient(const std::string& name) {
    for (Client& client : mClients) {
        if (client.state->name == name) return &client;
    }
    return nullptr;
}

}  // namespace arharness
