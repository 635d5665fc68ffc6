// The words of a scenario: tokens, numbers, durations, event records and extra parameters, each
// with one canonical text form (used in the trace and to compare expectations) and a JSON form.
#pragma once

#include <stdint.h>

#include <istream>
#include <string>
#include <vector>

namespace arharness {

// ---- lines ----

// What one scenario line may carry, so that no input can exhaust the memory or flood a terminal:
// a longer line is refused before it is split, and a message quotes at most the first
// kMaxQuotedBytes bytes of a word.
constexpr size_t kMaxLineBytes = 1 << 20;
constexpr size_t kMaxQuotedBytes = 64;
// kMaxLineBytes, unless a program that runs many scenarios (a fuzzer) lowers it.
size_t lineLimit();
void setLineLimit(size_t bytes);
// Reads one line, without its line end, keeping at most `limit` + 1 of its bytes (so that a
// longer one shows as such) and skipping the rest. False at the end of the input.
bool readLine(std::istream& in, std::string* line, size_t limit);
// A byte-order mark that some editors put at the start of a file.
constexpr char kByteOrderMark[] = "\xef\xbb\xbf";

// Splits a line into tokens at blanks. Double quotes group text with blanks into a token (they
// may appear inside a token: x="a b"); inside them \" \\ \n \t and \xHH are escapes. A token that
// starts with # outside quotes begins a comment: it and the rest of the line are dropped.
bool tokenize(const std::string& line, std::vector<std::string>* tokens, std::string* error);

// Decimal with an optional sign, or 0x hexadecimal, range-checked.
bool parseInt64(const std::string& text, int64_t* value);
bool parseInt32(const std::string& text, int32_t* value);
bool parseUint32(const std::string& text, uint32_t* value);
bool parseDouble(const std::string& text, double* value);
// Nanoseconds: a number with an optional unit ns, us, ms or s ("2s", "1.5s", "500ms", "7").
bool parseDuration(const std::string& text, int64_t* nanoseconds);

// Field sets of the event records that cross the two boundaries:
//   kShort        e a t          ActivityEvent
//   kShortC       e a t c        ActivityEventV1_1, legacy activity_event
//   kLong         e a t s p x    ActivityEventExtend
//   kLongC        e a t c s p x  ActivityEventExtendV1_1, legacy ar_context_event
// e event type, a activity (or environment), t timestamp, c confidence, s status, p the four
// doubles of the extra parameters, x their text.
enum class Fields { kShort, kShortC, kLong, kLongC };

struct Params {
    double p[4] = {0, 0, 0, 0};
    std::string x;
};

struct Record {
    uint32_t e = 0;
    uint32_t a = 0;
    int64_t t = 0;
    int32_t c = 0;
    int32_t s = 0;
    Params params;
};

// True when the token is written as a record: it starts with one of the field names and "=".
bool looksLikeRecord(const std::string& token);
// "e=1,a=3,t=1000,c=80" (fields in any order, missing ones are 0). x, when given, is the last
// field and takes the rest of the token, commas included.
bool parseRecord(const std::string& token, Fields fields, Record* record, std::string* error);
std::string formatRecord(const Record& record, Fields fields);
std::string formatRecords(const std::vector<Record>& records, Fields fields);  // "[r1 r2]"
std::string recordsJson(const std::vector<Record>& records, Fields fields);

// "p=1:0:0:0" (up to four doubles, the rest 0) or "x=text". False, without an error, when the
// token is neither.
bool parseParamsToken(const std::string& token, Params* params, bool* matched, std::string* error);
std::string formatParams(const Params& params);  // "p=1:0:0:0 x=text"
std::string paramsJson(const Params& params);

// Shortest text that reads back as the same double.
std::string formatDouble(double value);
// The text as a scenario token: quoted and escaped when it needs it.
std::string quoteToken(const std::string& text);
// The text on one line: control characters and bytes outside ASCII as \n, \t, \xHH.
std::string escapeText(const std::string& text);
// A word as a message quotes it: its first kMaxQuotedBytes bytes escaped as escapeText escapes
// them, with the length of the whole when it was cut ("abc..." (70000 bytes)), in single quotes.
std::string quoteWord(const std::string& word);
// A message for the terminal: escaped as escapeText escapes, except that line ends stay.
std::string escapeMessage(const std::string& text);
// A JSON string literal of the text as UTF-8: control characters as \uXXXX, and each byte that is
// not part of well-formed UTF-8 as the lone surrogate \udcXX (U+DC00 + the byte, so U+DC80 to U+DCFF).
std::string jsonString(const std::string& text);

// A batch that a lower layer answers or reports, as a command writes it after its fixed words:
// records (or, where `names` is asked for, names), and the options that `allowed` lists, out of
// count=N, repeat=N (1 to 10000), status=N, bytes=N, as=PID, null and nostate. Records with an x
// longer than the 32 bytes of a legacy record are refused, and so are batches, counts and byte
// lengths beyond batchLimit() and lists of more than kMaxNames names, which would only exhaust
// the memory; each bound is checked as the line is read, before anything beyond it is kept.
constexpr int32_t kMaxBatch = 100000;
constexpr size_t kMaxNames = 512;
// kMaxBatch, unless a program that runs many scenarios (a fuzzer) lowers it to keep each fast.
int32_t batchLimit();
void setBatchLimit(int32_t records);
struct BatchOptions {
    std::vector<Record> records;
    std::vector<std::string> names;
    bool hasCount = false;
    int32_t count = 0;
    int32_t repeat = 1;
    int32_t status = 0;
    bool hasBytes = false;
    int32_t bytes = 0;
    int32_t pid = 0;  // left as it was unless as= is given
    bool null = false;
    bool noState = false;
};
bool parseBatchOptions(const std::vector<std::string>& tokens, size_t from, const char* allowed,
                       Fields fields, bool names, BatchOptions* batch, std::string* error);

// A log priority's letter: V D I W E F (S for silent, ? for others).
char priorityLetter(int priority);

std::string join(const std::vector<std::string>& parts, const std::string& separator);
// The tokens from `from` on as scenario text again, quoted where they need it.
std::string rest(const std::vector<std::string>& tokens, size_t from);
// The lines of a text, without their line ends (a last line end starts no line).
std::vector<std::string> splitLines(const std::string& text);
// The words of a text separated by blanks.
std::vector<std::string> splitWords(const std::string& text);
// ---- what expectations compare ----

// The items of a canonical list ("1, 2, p=0:0:0:0 x=\"a, b\"" at ", ", or records at " "): the
// separator splits nowhere inside double quotes.
std::vector<std::string> splitItems(const std::string& text, const std::string& separator);
// Whether `actual` has exactly the items of `expected`, where an item "*" stands for any one.
bool itemsMatch(const std::vector<std::string>& expected, const std::vector<std::string>& actual);
// How far a text is from holding `part` (0: it contains it), and how far two texts are from each
// other, each measured on at most their first kMaxComparedBytes bytes, to stay cheap.
constexpr size_t kMaxComparedBytes = 256;
size_t distanceToPart(const std::string& part, const std::string& text);
size_t distance(const std::string& from, const std::string& to);
// A text cut to `bytes` bytes, saying how long it was ("... (52000 bytes)").
std::string shorten(const std::string& text, size_t bytes);

// The known words nearest to `word` by edit distance (at most three), none when every one is
// too far to be a mistyping of it.
std::vector<std::string> closestWords(const std::string& word,
                                      const std::vector<std::string>& known);

}  // namespace arharness
