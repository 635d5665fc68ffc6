// The scenario syntax: tokens, numbers, durations and records, and their canonical forms.
#include "Syntax.h"

#include <gtest/gtest.h>

namespace {

using namespace arharness;

std::vector<std::string> tokens(const std::string& line) {
    std::vector<std::string> out;
    std::string error;
    EXPECT_TRUE(tokenize(line, &out, &error)) << line << ": " << error;
    return out;
}

TEST(HarnessSyntaxTest, Tokens) {
    using V = std::vector<std::string>;
    EXPECT_EQ(V({"a", "b", "c"}), tokens("  a\tb   c  "));
    EXPECT_EQ(V({"expect", "log", "I", "AR_impl", "two words"}),
              tokens("expect log I AR_impl \"two words\"  # comment"));
    EXPECT_EQ(V({"x=a b", "a#b"}), tokens("x=\"a b\" a#b"));
    EXPECT_EQ(V({"q\"\\\n\t\x01", ""}), tokens("\"q\\\"\\\\\\n\\t\\x01\" \"\""));
    EXPECT_EQ(V(), tokens("# only a comment"));
    std::vector<std::string> out;
    std::string error;
    EXPECT_FALSE(tokenize("\"open", &out, &error));
    EXPECT_FALSE(tokenize("\"\\q\"", &out, &error));
    EXPECT_FALSE(tokenize("\"\\x4\"", &out, &error));
}

TEST(HarnessSyntaxTest, Numbers) {
    struct Case {
        const char* text;
        bool ok;
        int64_t value;
    };
    for (const Case& c : std::vector<Case>{{"0", true, 0},
                                           {"-1", true, -1},
                                           {"+7", true, 7},
                                           {"0x41", true, 0x41},
                                           {"-0x10", true, -16},
                                           {"9223372036854775807", true, INT64_MAX},
                                           {"9223372036854775808", false, 0},
                                           {"0xffffffffffffffff", false, 0},
                                           {"", false, 0},
                                           {" 1", false, 0},
                                           {"1x", false, 0},
                                           {"abc", false, 0}}) {
        int64_t value = 0;
        EXPECT_EQ(c.ok, parseInt64(c.text, &value)) << c.text;
        if (c.ok) {
            EXPECT_EQ(c.value, value) << c.text;
        }
    }
    uint32_t u;
    EXPECT_TRUE(parseUint32("4294967295", &u));
    EXPECT_FALSE(parseUint32("4294967296", &u));
    EXPECT_FALSE(parseUint32("-1", &u));
    int32_t i;
    EXPECT_TRUE(parseInt32("-2147483648", &i));
    EXPECT_FALSE(parseInt32("2147483648", &i));
}

TEST(HarnessSyntaxTest, Durations) {
    struct Case {
        const char* text;
        bool ok;
        int64_t ns;
    };
    for (const Case& c : std::vector<Case>{{"7", true, 7},
                                           {"7ns", true, 7},
                                           {"3us", true, 3000},
                                           {"500ms", true, 500000000},
                                           {"2s", true, 2000000000},
                                           {"2.5s", true, 2500000000},
                                           {"-1.5s", true, -1500000000},
                                           {"-0.5s", true, -500000000},
                                           {"0.000000001s", true, 1},
                                           {"1.5ns", false, 0},
                                           {"2h", false, 0},
                                           {"s", false, 0},
                                           {"9300000000s", false, 0}}) {
        int64_t ns = 0;
        EXPECT_EQ(c.ok, parseDuration(c.text, &ns)) << c.text;
        if (c.ok) {
            EXPECT_EQ(c.ns, ns) << c.text;
        }
    }
}

TEST(HarnessSyntaxTest, RecordsReadBackInCanonicalForm) {
    struct Case {
        const char* text;
        Fields fields;
        const char* canonical;
    };
    for (const Case& c :
         std::vector<Case>{{"a=3,e=1", Fields::kShort, "e=1,a=3,t=0"},
                           {"e=1,a=3,t=1s,c=-5", Fields::kShortC, "e=1,a=3,t=1000000000,c=-5"},
                           {"e=2,s=4,p=1.5", Fields::kLong, "e=2,a=0,t=0,s=4,p=1.5:0:0:0"},
                           {"e=2,x=a,b c", Fields::kLongC, "e=2,a=0,t=0,c=0,s=0,x=\"a,b c\""},
                           {"p=0.1:-0:0:1e300,x=plain", Fields::kLongC,
                            "e=0,a=0,t=0,c=0,s=0,p=0.1:-0:0:1e+300,x=plain"}}) {
        Record record;
        std::string error;
        ASSERT_TRUE(parseRecord(c.text, c.fields, &record, &error)) << c.text << ": " << error;
        EXPECT_EQ(c.canonical, formatRecord(record, c.fields));
        // The canonical form is itself a scenario token that reads back to the same record.
        std::vector<std::string> parts = tokens(formatRecord(record, c.fields));
        ASSERT_EQ(1u, parts.size());
        Record again;
        ASSERT_TRUE(parseRecord(parts[0], c.fields, &again, &error)) << error;
        EXPECT_EQ(c.canonical, formatRecord(again, c.fields));
    }
}

TEST(HarnessSyntaxTest, BadRecords) {
    Record record;
    std::string error;
    for (const char* text : {"c=1", "s=1", "e=1,e=2", "e=-1", "a", "e=1,", "p=1:2:3:4:5", "t=x"}) {
        EXPECT_FALSE(parseRecord(text, Fields::kShort, &record, &error)) << text;
    }
    EXPECT_FALSE(parseRecord("p=1:2:3:4:5", Fields::kLong, &record, &error));
    EXPECT_TRUE(looksLikeRecord("e=1"));
    EXPECT_FALSE(looksLikeRecord("count=3"));
}

TEST(HarnessSyntaxTest, ParamsAndJson) {
    Params params;
    bool matched = false;
    std::string error;
    ASSERT_TRUE(parseParamsToken("p=1:2", &params, &matched, &error));
    EXPECT_TRUE(matched);
    ASSERT_TRUE(parseParamsToken("x=say \"hi\"", &params, &matched, &error));
    EXPECT_EQ("p=1:2:0:0 x=\"say \\\"hi\\\"\"", formatParams(params));
    EXPECT_EQ("{\"p\":[1,2,0,0],\"x\":\"say \\\"hi\\\"\"}", paramsJson(params));
    ASSERT_TRUE(parseParamsToken("count=1", &params, &matched, &error));
    EXPECT_FALSE(matched);
    EXPECT_EQ("\"\\u0001\\udcff\\n\"", jsonString("\x01\xff\n"));  // a stray byte: U+DC00 + it
    EXPECT_EQ("a\\nb\\x7f", escapeText("a\nb\x7f"));
}

// The options after a batch's fixed words: only those the command allows, and no batch that
// would exhaust the memory.
TEST(HarnessSyntaxTest, BatchOptions) {
    const char* allowed = "count= repeat= as= null nostate";
    BatchOptions batch;
    std::string error;
    ASSERT_TRUE(parseBatchOptions({"e=1,a=2", "count=-1", "repeat=3", "as=7", "null", "nostate"}, 0,
                                  allowed, Fields::kLongC, false, &batch, &error));
    EXPECT_EQ("[e=1,a=2,t=0,c=0,s=0]", formatRecords(batch.records, Fields::kLongC));
    EXPECT_TRUE(batch.hasCount && batch.count == -1 && batch.repeat == 3 && batch.pid == 7 &&
                batch.null && batch.noState);
    std::vector<std::string> many(11, "e=1");
    many.push_back("repeat=10000");
    for (const auto& c : std::vector<std::pair<std::vector<std::string>, std::string>>{
                 {{"status=1"},
                  "bad argument 'status=1' (a record such as e=1,a=3,t=1000, or count=, repeat=, "
                  "as=, null, nostate)"},
                 {{"count=100001"}, "bad count 'count=100001' (at most 100000)"},
                 {{"repeat=0"}, "bad repeat 'repeat=0' (1 to 10000)"},
                 {many, "a batch holds at most 100000 records"},
                 {{"x=0123456789abcdef0123456789abcdefX"},
                  "x holds at most 32 bytes in a legacy record"}}) {
        EXPECT_FALSE(parseBatchOptions(c.first, 0, allowed, Fields::kLongC, false, &batch, &error));
        EXPECT_EQ(c.second, error);
    }
}

TEST(HarnessSyntaxTest, ClosestWords) {
    using V = std::vector<std::string>;
    V known = {"start", "client", "kill", "expect", "zel", "module", "kill"};
    EXPECT_EQ(V({"start"}), closestWords("strat", known));
    EXPECT_EQ(V({"kill"}), closestWords("kil", known));
    EXPECT_EQ(V(), closestWords("foozzzzz", known));
}

}  // namespace
