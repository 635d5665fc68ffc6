// The trace: text as JSON, the names of event kinds, and what a filter lets through.
#include "Trace.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include "Syntax.h"

namespace {

using namespace arharness;

// Well-formed UTF-8 travels as itself; controls as \u escapes; every byte of an ill-formed
// sequence (overlong, surrogate, above U+10FFFF, cut short, stray continuation) as \udcXX.
TEST(HarnessTraceTest, TextAsJson) {
    struct Case {
        const char* text;
        const char* json;
    };
    for (const Case& c : std::vector<Case>{
                 {"caf\xc3\xa9", "\"caf\xc3\xa9\""},
                 {"\xe2\x82\xac \xf0\x9f\x98\x80", "\"\xe2\x82\xac \xf0\x9f\x98\x80\""},
                 {"\x1b[2J\x7f", "\"\\u001b[2J\\u007f\""},
                 {"\xc2\x85\xc2\xa0", "\"\\u0085\xc2\xa0\""},  // C1 control NEL, then NBSP
                 {"q\"\\\t\r\n", "\"q\\\"\\\\\\t\\r\\n\""},
                 {"\xc0\xaf", "\"\\udcc0\\udcaf\""},             // overlong '/'
                 {"\xed\xa0\x80", "\"\\udced\\udca0\\udc80\""},  // a surrogate
                 {"\xf4\x90\x80\x80", "\"\\udcf4\\udc90\\udc80\\udc80\""},
                 {"\xe2\x82", "\"\\udce2\\udc82\""},  // cut short
                 {"\x80z", "\"\\udc80z\""},
         }) {
        EXPECT_EQ(c.json, jsonString(c.text)) << escapeText(c.text);
    }
}

TEST(HarnessTraceTest, KindNames) {
    for (size_t i = 0; i < kKindCount; ++i) {
        Kind kind = static_cast<Kind>(i);
        Kind parsed = Kind::kNote;
        ASSERT_TRUE(parseKind(kindText(kind), &parsed)) << kindText(kind);
        EXPECT_EQ(kind, parsed);
        ASSERT_TRUE(parseKind(kindJson(kind), &parsed)) << kindJson(kind);
        EXPECT_EQ(kind, parsed);
    }
    Kind parsed = Kind::kNote;
    EXPECT_FALSE(parseKind("", &parsed));
    EXPECT_FALSE(parseKind("Deliver", &parsed));
}

// What a filtered trace prints, and that the step keeps every event whatever it prints.
TEST(HarnessTraceTest, Filter) {
    struct Case {
        std::vector<Kind> kinds;  // empty: all
        bool quiet;
        const char* printed;
    };
    for (const Case& c : std::vector<Case>{
                 {{}, false, "command call check FAILED summary "},
                 {{Kind::kCall}, false, "call summary "},
                 {{}, true, "FAILED summary "},
                 {{Kind::kCall}, true, "summary "},
         }) {
        char* buffer = nullptr;
        size_t size = 0;
        FILE* out = open_memstream(&buffer, &size);
        ASSERT_NE(nullptr, out);
        Trace trace(out, Format::kText);
        TraceFilter filter;
        if (!c.kinds.empty()) filter.kinds.reset();
        for (Kind kind : c.kinds) filter.kinds.set(static_cast<size_t>(kind));
        filter.quiet = c.quiet;
        trace.setFilter(filter);
        trace.emit(Event(Kind::kCommand, "command"));
        trace.emit(Event(Kind::kCall, "call"));
        trace.emit(Event(Kind::kCheck, "check"));
        Event failed(Kind::kCheck, "FAILED");
        failed.failure = true;
        trace.emit(failed);
        trace.emit(Event(Kind::kSummary, "summary"));
        fclose(out);
        std::string printed;
        for (const std::string& line : splitLines(buffer)) {
            printed += line.substr(line.rfind(' ') + 1) + " ";
        }
        free(buffer);
        EXPECT_EQ(c.printed, printed);
        size_t kept = 0;
        trace.withStep([&](std::vector<Event>& events) { kept = events.size(); });
        EXPECT_EQ(5u, kept);
    }
}

TEST(HarnessTraceTest, ShownRecords) {
    std::vector<int> records(12);
    Trace trace(stdout, Format::kText);
    EXPECT_EQ(8u, trace.shownRecords(records).size());
    EXPECT_EQ(3u, trace.shownRecords(std::vector<int>(3)).size());
    TraceFilter all;
    all.records = 0;
    trace.setFilter(all);
    EXPECT_EQ(12u, trace.shownRecords(records).size());
}

}  // namespace
