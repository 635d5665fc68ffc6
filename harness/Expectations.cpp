// Expectations: each looks at the events of the step before it and uses up the one it matches.
#include <string.h>

#include <algorithm>

#include "Runner.h"

namespace arharness {
namespace {

// Entries of the module that take extra parameters.
bool takesParams(const std::string& entry) {
    return entry == "enable_activity_event_extend" || entry == "init_environment" ||
           entry == "exit_environment" || entry == "enable_environment";
}

// A priority as a letter (V D I W E F) or its number (2 to 7).
bool parsePriority(const std::string& text, char* letter) {
    if (text.size() == 1 && strchr("VDIWEF", text[0]) != nullptr) {
        *letter = text[0];
        return true;
    }
    int64_t number;
    if (parseInt64(text, &number) && number >= 2 && number <= 7) {
        *letter = priorityLetter(static_cast<int>(number));
        return true;
    }
    return false;
}

}  // namespace

// What a failure shows of what was expected and what happened: enough to see the difference.
constexpr size_t kShownBytes = 1024;

void Runner::check(const std::string& expectation, bool ok, const std::string& expected,
                   const std::string& got) {
    Event event(Kind::kCheck, ok ? "{ok} expect {expectation}"
                                 : "{ok} expect {expectation}: expected {expected}; got {got}");
    std::string shownExpectation = shorten(expectation, kShownBytes);
    event.add("ok", ok ? "ok    " : "FAILED", ok ? "true" : "false")
            .addString("expectation", shownExpectation);
    // The text line escapes what the terminal must not interpret; JSON carries the text itself.
    std::string shortExpected = shorten(expected, kShownBytes);
    std::string shortGot = shorten(got, kShownBytes);
    std::string shownExpected = escapeText(shortExpected);
    std::string shownGot = escapeText(shortGot);
    if (!ok) {
        event.add("expected", shownExpected, jsonString(shortExpected))
                .add("got", shownGot, jsonString(shortGot));
    }
    event.failure = !ok;
    mTrace->emit(std::move(event));
    ++(ok ? mSummary.held : mSummary.failed);
    if (!ok) {
        fprintf(stderr, "%s:%d: expectation failed: %s\n    expected: %s\n    got: %s\n",
                escapeText(mFile).c_str(), mLine, shownExpectation.c_str(), shownExpected.c_str(),
                shownGot.c_str());
    }
}

bool Runner::consume(Kind kind, const std::string& subject, const std::string& name,
                     const std::string& detail, std::string* got) {
    return consumeIf(
                   kind, subject,
                   [&](const Event& event) { return event.name == name && event.detail == detail; },
                   false, detail, got) == 1;
}

size_t Runner::consumeIf(Kind kind, const std::string& subject,
                         const std::function<bool(const Event&)>& matches, bool all,
                         const std::string& wanted, std::string* got) {
    size_t found = 0;
    size_t others = 0;
    const Event* closest = nullptr;
    size_t closestDistance = 0;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (Event& event : events) {
            if (event.kind != kind || event.subject != subject) continue;
            if ((all || found == 0) && !event.consumed && matches(event)) {
                event.consumed = true;
                ++found;
                continue;
            }
            ++others;
            size_t d = distance(wanted, event.detail);
            if (closest == nullptr || d < closestDistance) {
                closest = &event;
                closestDistance = d;
            }
        }
        *got = closest == nullptr ? "nothing"
               : others == 1      ? closest->line()
                             : closest->line() + " (the closest of " + std::to_string(others) + ")";
    });
    return found;
}

bool Runner::nothingElse(const std::vector<Kind>& kinds, const std::string& subject,
                         const std::string& name, std::string* got) {
    std::vector<std::string> seen;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (const Event& event : events) {
            if (std::find(kinds.begin(), kinds.end(), event.kind) != kinds.end() &&
                event.subject == subject && !event.consumed &&
                (name.empty() || event.name == name)) {
                seen.push_back(event.line());
            }
        }
    });
    *got = join(seen, " | ");
    return seen.empty();
}

// A trailing count=N: how many matching calls the step must hold (all of them are used up).
bool Runner::takeCount(Args* args, int32_t* count) {
    *count = -1;
    if (args->size() < 2 || args->back().compare(0, 6, "count=") != 0) return true;
    if (!parseInt32(args->back().substr(6), count) || *count < 0 || *count > kMaxBatch) {
        return fail("bad count " + quoteWord(args->back()) + " (0 to " + std::to_string(kMaxBatch) +
                    ")");
    }
    args->pop_back();
    return true;
}

// Checks an expectation of calls that match: one (used up), or exactly `count` of them.
void Runner::checkCalls(const std::string& expectation, Kind kind, const std::string& subject,
                        const std::function<bool(const Event&)>& matches, int32_t count,
                        const std::string& expected, const std::string& what) {
    std::string got;
    size_t found = consumeIf(kind, subject, matches, count >= 0, expected, &got);
    bool ok = count >= 0 ? found == static_cast<size_t>(count) : found == 1;
    if (count < 0) {
        check(expectation, ok, expected, what + got);
    } else {
        check(expectation, ok, std::to_string(count) + " of " + expected,
              std::to_string(found) + " (other " + what + got + ")");
    }
}

// expect result VALUE...
bool Runner::expectResult(const Args& args) {
    std::string expectation = rest(args, 1);
    if (mResult.type == Result::Type::kNone) {
        return fail("expect result: the command before it answered nothing to expect");
    }
    std::string expected;
    bool noAnswer = args.size() == 3 && args[2] == "no-answer";
    switch (mResult.type) {
        case Result::Type::kInt: {
            int64_t value;
            if (args.size() != 3 || !parseInt64(args[2], &value)) {
                return fail("usage: expect result NUMBER (" + mResult.method + " answers a number)");
            }
            expected = std::to_string(value);
            break;
        }
        case Result::Type::kWord:
            if (args.size() != 3) return fail("usage: expect result service|null|@N");
            expected = args[2];
            break;
        case Result::Type::kStrings: {
            std::vector<std::string> quoted;
            for (size_t i = 2; i < args.size(); ++i) quoted.push_back(quoteToken(args[i]));
            expected = noAnswer ? "no answer" : "[" + join(quoted, " ") + "]";
            break;
        }
        case Result::Type::kRecords: {
            std::vector<Record> records;
            for (size_t i = 2; i < args.size() && !noAnswer; ++i) {
                Record record;
                std::string error;
                if (!parseRecord(args[i], mResult.fields, &record, &error)) return fail(error);
                records.push_back(record);
            }
            expected = noAnswer ? "no answer" : formatRecords(records, mResult.fields);
            break;
        }
        case Result::Type::kNone:
            break;
    }
    check(expectation, expected == mResult.text, mResult.method + " = " + expected,
          mResult.method + " = " + mResult.text);
    return true;
}

// expect log PRIORITY TAG TEXT, or log-containing PRIORITY TAG PART (for texts that carry what
// the system says, such as a loader's error).
bool Runner::expectLog(const Args& args) {
    char priority;
    bool part = args[1] == "log-containing";
    if (args.size() != 5) {
        return fail("usage: expect " + args[1] + " PRIORITY TAG " + (part ? "PART" : "TEXT") +
                    " (quote the text)");
    }
    if (!parsePriority(args[2], &priority)) {
        return fail("bad priority " + quoteWord(args[2]) + " (V D I W E F, or 2 to 7)");
    }
    std::string got;
    std::string name(1, priority);
    bool ok = consumeIf(
                      Kind::kLog, args[3],
                      [&](const Event& event) {
                          return event.name == name &&
                                 (part ? event.detail.find(args[4]) != std::string::npos
                                       : event.detail == args[4]);
                      },
                      false, args[4], &got) == 1;
    check(rest(args, 1), ok,
          std::string("a line ") + priority + " " + args[3] + (part ? " containing: " : ": ") +
                  escapeText(args[4]),
          args[3] + " lines: " + got);
    return true;
}

// expect no log TAG TEXT: no line of the tag contains the text.
bool Runner::expectNoLog(const Args& args) {
    if (args.size() != 5) return fail("usage: expect no log TAG TEXT (quote the text)");
    std::vector<std::string> seen;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (const Event& event : events) {
            if (event.kind == Kind::kLog && event.subject == args[3] &&
                event.detail.find(args[4]) != std::string::npos) {
                seen.push_back(event.line());
            }
        }
    });
    check(rest(args, 1), seen.empty(),
          "no " + args[3] + " line containing \"" + escapeText(args[4]) + "\"", join(seen, " | "));
    return true;
}

// expect dump-containing TEXT: a line of the step's dump contains TEXT. Any number of these may
// check one dump: its lines are not used up.
bool Runner::expectDump(const Args& args) {
    if (args.size() != 3) return failUsage();
    int dumps = 0;
    size_t lines = 0;
    bool found = false;
    std::string closest;
    size_t closestDistance = SIZE_MAX;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (const Event& event : events) {
            if (event.kind != Kind::kDump) continue;
            ++dumps;
            for (const std::string& line : splitLines(event.detail)) {
                found = found || line.find(args[2]) != std::string::npos;
                ++lines;
                size_t d = found ? 0 : distanceToPart(args[2], line);
                if (d < closestDistance) {
                    closest = line;
                    closestDistance = d;
                }
            }
        }
    });
    if (dumps == 0) return fail("expect dump-containing: the command before it was not a dump");
    check(rest(args, 1), found, "a line of the dump containing \"" + escapeText(args[2]) + "\"",
          "none of its " + std::to_string(lines) + " lines" +
                  (lines > 0 ? "; the closest: \"" + closest + "\"" : ""));
    return true;
}

// expect module|zel|CLIENT nothing, or no ENTRY|NAME|METHOD: no (other) such event in the step.
// A client's "nothing" covers every call its object received: deliveries and links alike.
bool Runner::expectNone(const Args& args) {
    bool nothing = args[2] == "nothing";
    if (args.size() != (nothing ? 3u : 4u)) return failUsage();
    const std::string& subject = args[1];
    const Client* client = findClient(subject);
    std::string what = client != nullptr     ? "call to " + subject
                       : subject == "module" ? "call to reach the module"
                                             : "call to reach the client library";
    std::vector<Kind> kinds = {client != nullptr     ? Kind::kDeliver
                               : subject == "module" ? Kind::kModule
                                                     : Kind::kZel};
    if (client != nullptr && nothing) kinds.push_back(Kind::kLink);
    if (!nothing) {
        const std::string& name = args[3];
        bool link = name == "linkToDeath" || name == "unlinkToDeath";
        if (client != nullptr && link) kinds = {Kind::kLink};
        if (client != nullptr && !link && !checkCallbackMethod(*client->state, name)) return false;
        if (subject == "module" && !ModuleLayer::isEntry(name)) {
            return fail("the module has no entry " + quoteWord(name));
        }
        what = client != nullptr     ? name + " to " + subject
               : subject == "module" ? "call of " + name
                                     : name;
    }
    std::string got;
    bool ok = nothingElse(kinds, subject, nothing ? "" : args[3], &got);
    check(rest(args, 1), ok, "no (other) " + what, got);
    return true;
}

// expect module ENTRY [ARG|*...] [p=...] [x=...] [count=N]
bool Runner::expectModule(const Args& line) {
    Args args = line;
    int32_t count;
    if (!takeCount(&args, &count)) return false;
    if (args.size() < 3) return failUsage();
    const std::string& entry = args[2];
    if (!ModuleLayer::isEntry(entry)) return fail("the module has no entry " + quoteWord(entry));
    std::vector<std::string> items;
    Params params;
    std::string error;
    for (size_t i = 3; i < args.size(); ++i) {
        bool matched = false;
        if (!parseParamsToken(args[i], &params, &matched, &error)) return fail(error);
        if (matched) {
            if (!takesParams(entry)) return fail(entry + " takes no extra parameters");
            continue;
        }
        int64_t value;
        if (args[i] != "*" && !parseDuration(args[i], &value)) {
            return fail("bad number " + quoteWord(args[i]) + " (or * for any)");
        }
        items.push_back(args[i] == "*" ? "*" : std::to_string(value));
    }
    if (takesParams(entry)) items.push_back(formatParams(params));
    std::string detail = entry + "(" + join(items, ", ") + ")";
    checkCalls(
            rest(line, 1), Kind::kModule, "module",
            [&](const Event& event) {
                size_t open = event.detail.find('(');
                return event.name == entry && open != std::string::npos &&
                       itemsMatch(items,
                                  splitItems(event.detail.substr(open + 1,
                                                                 event.detail.size() - open - 2),
                                             ", "));
            },
            count, detail, "module calls: ");
    return true;
}

// expect zel NAME [ARG|*...] [count=N]: NAME is a command ("ar-on", "ar-off", "modem-update") or
// an entry point ("ZelGetData", ...); the arguments are its text parameter, its two integers, the
// data key, the client name or ZelMotionEnable's argument.
bool Runner::expectZel(const Args& line) {
    Args args = line;
    int32_t count;
    if (!takeCount(&args, &count)) return false;
    if (args.size() < 3) return failUsage();
    std::vector<std::string> items;
    for (size_t i = 3; i < args.size(); ++i) {
        std::vector<std::string> words = args[i] == "*" ? Args{"*"} : splitItems(args[i], " ");
        items.insert(items.end(), words.begin(), words.end());
    }
    const std::string& name = args[2];
    checkCalls(
            rest(line, 1), Kind::kZel, "zel",
            [&](const Event& event) {
                return event.name == name && itemsMatch(items, splitItems(event.detail, " "));
            },
            count, name + " " + quoteToken(join(items, " ")), "client library calls: ");
    return true;
}

// expect order CLIENT CLIENT...: the first delivery of each named client in this step comes in
// this order.
bool Runner::expectOrder(const Args& args) {
    if (args.size() < 4) return fail("usage: expect order CLIENT CLIENT...");
    for (size_t i = 2; i < args.size(); ++i) {
        if (findClient(args[i]) == nullptr) return fail("no client " + args[i]);
    }
    std::vector<std::string> firsts;
    mTrace->withStep([&](std::vector<Event>& events) {
        for (const Event& event : events) {
            if (event.kind == Kind::kDeliver &&
                std::find(firsts.begin(), firsts.end(), event.subject) == firsts.end()) {
                firsts.push_back(event.subject);
            }
        }
    });
    std::vector<std::string> named;
    for (const std::string& name : firsts) {
        if (std::find(args.begin() + 2, args.end(), name) != args.end()) named.push_back(name);
    }
    Args wanted(args.begin() + 2, args.end());
    check(rest(args, 1), named == wanted, "first deliveries in the order " + join(wanted, " "),
          firsts.empty() ? "no deliveries" : "first deliveries in the order " + join(named, " "));
    return true;
}

bool Runner::checkCallbackMethod(const ClientState& state, const std::string& method) {
    const auto& methods = callbackMethods(state.activity, state.v1_1);
    if (std::find(methods.begin(), methods.end(), method) != methods.end()) return true;
    return fail(state.name + " has no callback method '" + method + "' (" + join(methods, ", ") +
                ")");
}

// expect CLIENT linkToDeath COOKIE, or unlinkToDeath
bool Runner::expectLink(const Args& args) {
    const ClientState& state = *findClient(args[1])->state;
    bool link = args[2] == "linkToDeath";
    int64_t cookie = 0;
    if (link ? args.size() != 4 || !parseInt64(args[3], &cookie) : args.size() != 3) {
        return failUsage();
    }
    std::string got;
    bool ok = consume(Kind::kLink, state.name, args[2], link ? std::to_string(cookie) : "", &got);
    check(rest(args, 1), ok, state.label() + " " + args[2] + (link ? " cookie " + args[3] : ""),
          "links of " + state.name + ": " + got);
    return true;
}

// expect CLIENT METHOD [RECORD|*...] [count=N], or METHOD records=N [count=N]
bool Runner::expectClient(const Args& line) {
    Args args = line;
    int32_t count;
    if (!takeCount(&args, &count)) return false;
    const ClientState& state = *findClient(args[1])->state;
    if (args.size() < 3) return failUsage();
    const std::string& method = args[2];
    if (!checkCallbackMethod(state, method)) return false;
    Fields fields = method == "onActivityChangedV1_0"         ? Fields::kShort
                    : method == "onActivityChangedV1_1"       ? Fields::kShortC
                    : method == "onActivityExtendChangedV1_1" ? Fields::kLongC
                    : method == "onEnvironmentChangedV1_1"    ? Fields::kLongC
                                                              : Fields::kLong;
    const std::string what = "deliveries to " + state.name + ": ";
    // METHOD records=N: a delivery of N records, whatever they hold.
    int32_t records;
    if (args.size() == 4 && args[3].compare(0, 8, "records=") == 0) {
        if (!parseInt32(args[3].substr(8), &records)) return fail("bad " + quoteWord(args[3]));
        checkCalls(
                rest(line, 1), Kind::kDeliver, state.name,
                [&](const Event& event) { return event.name == method && event.items == records; },
                count, state.label() + " " + method + " of " + args[3] + " records", what);
        return true;
    }
    if (args.size() - 3 > static_cast<size_t>(kMaxBatch)) {
        return fail("an expectation holds at most " + std::to_string(kMaxBatch) + " records");
    }
    std::vector<std::string> items;
    for (size_t i = 3; i < args.size(); ++i) {
        Record record;
        std::string error;
        if (args[i] == "*") {
            items.emplace_back("*");
        } else if (!parseRecord(args[i], fields, &record, &error)) {
            return fail(method + ": " + error);
        } else {
            items.push_back(formatRecord(record, fields));
        }
    }
    std::string detail = "[" + join(items, " ") + "]";
    checkCalls(
            rest(line, 1), Kind::kDeliver, state.name,
            [&](const Event& event) {
                return event.name == method &&
                       itemsMatch(items,
                                  splitItems(event.detail.substr(1, event.detail.size() - 2), " "));
            },
            count, state.label() + " " + method + " " + detail, what);
    return true;
}

}  // namespace arharness
