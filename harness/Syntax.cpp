#include "Syntax.h"

#include <errno.h>
#include <inttypes.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace arharness {
namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool hasField(Fields fields, char name) {
    switch (name) {
        case 'e':
        case 'a':
        case 't':
            return true;
        case 'c':
            return fields == Fields::kShortC || fields == Fields::kLongC;
        case 's':
        case 'p':
        case 'x':
            return fields == Fields::kLong || fields == Fields::kLongC;
        default:
            return false;
    }
}

const char* fieldList(Fields fields) {
    switch (fields) {
        case Fields::kShort:
            return "e a t";
        case Fields::kShortC:
            return "e a t c";
        case Fields::kLong:
            return "e a t s p x";
        case Fields::kLongC:
            return "e a t c s p x";
    }
    return "";
}

bool parseDoubles(const std::string& text, double* out, std::string* error) {
    size_t start = 0;
    for (int i = 0; i < 4; ++i) out[i] = 0;
    for (int i = 0;; ++i) {
        size_t end = text.find(':', start);
        std::string part = text.substr(start, end == std::string::npos ? end : end - start);
        if (i >= 4) {
            *error = "p takes at most four numbers: " + quoteWord(text);
            return false;
        }
        if (!parseDouble(part, &out[i])) {
            *error = "not a number in p: " + quoteWord(part);
            return false;
        }
        if (end == std::string::npos) return true;
        start = end + 1;
    }
}

bool needsQuotes(const std::string& text) {
    if (text.empty() || text[0] == '#') return true;
    for (unsigned char c : text) {
        if (c <= ' ' || c == '"' || c == '\\' || c >= 0x7f) return true;
    }
    return false;
}

size_t gLineLimit = kMaxLineBytes;

// A byte as escapeText shows it.
void appendEscaped(std::string* out, unsigned char c) {
    if (c == '\n') {
        *out += "\\n";
    } else if (c == '\t') {
        *out += "\\t";
    } else if (c < ' ' || c >= 0x7f) {
        char buffer[8];
        snprintf(buffer, sizeof(buffer), "\\x%02x", c);
        *out += buffer;
    } else {
        *out += static_cast<char>(c);
    }
}

}  // namespace

// ---- lines ----

size_t lineLimit() {
    return gLineLimit;
}

void setLineLimit(size_t bytes) {
    gLineLimit = bytes;
}

bool readLine(std::istream& in, std::string* line, size_t limit) {
    line->clear();
    std::streambuf* buffer = in.rdbuf();
    bool any = false;
    for (int c; (c = buffer->sbumpc()) != std::char_traits<char>::eof();) {
        any = true;
        if (c == '\n') return true;
        if (line->size() <= limit) line->push_back(static_cast<char>(c));
    }
    in.setstate(std::ios::eofbit);
    return any;
}

bool tokenize(const std::string& line, std::vector<std::string>* tokens, std::string* error) {
    tokens->clear();
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
        if (i >= line.size() || line[i] == '#') return true;
        std::string token;
        bool quoted = false;
        for (; i < line.size(); ++i) {
            char c = line[i];
            if (!quoted && (c == ' ' || c == '\t' || c == '\r')) break;
            if (c == '"') {
                quoted = !quoted;
                continue;
            }
            if (quoted && c == '\\') {
                if (i + 1 >= line.size()) break;
                char next = line[++i];
                switch (next) {
                    case 'n':
                        token += '\n';
                        break;
                    case 't':
                        token += '\t';
                        break;
                    case 'x': {
                        int high = i + 1 < line.size() ? hexDigit(line[i + 1]) : -1;
                        int low = i + 2 < line.size() ? hexDigit(line[i + 2]) : -1;
                        if (high < 0 || low < 0) {
                            *error = "\\x needs two hexadecimal digits";
                            return false;
                        }
                        token += static_cast<char>(high * 16 + low);
                        i += 2;
                        break;
                    }
                    case '"':
                    case '\\':
                        token += next;
                        break;
                    default:
                        *error = std::string("unknown escape \\") + next;
                        return false;
                }
                continue;
            }
            token += c;
        }
        if (quoted) {
            *error = "unterminated quote";
            return false;
        }
        tokens->push_back(token);
    }
    return true;
}

bool parseInt64(const std::string& text, int64_t* value) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    const char* s = text.c_str();
    bool negative = s[0] == '-';
    const char* digits = (s[0] == '-' || s[0] == '+') ? s + 1 : s;
    if (!isdigit(static_cast<unsigned char>(digits[0]))) return false;
    char* end = nullptr;
    errno = 0;
    if (digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        uint64_t v = strtoull(digits + 2, &end, 16);
        if (errno != 0 || *end != '\0' || end == digits + 2) return false;
        if (v > static_cast<uint64_t>(INT64_MAX) + (negative ? 1 : 0)) return false;
        *value = negative ? static_cast<int64_t>(0 - v) : static_cast<int64_t>(v);
        return true;
    }
    long long v = strtoll(s, &end, 10);
    if (errno != 0 || *end != '\0') return false;
    *value = v;
    return true;
}

bool parseInt32(const std::string& text, int32_t* value) {
    int64_t v;
    if (!parseInt64(text, &v) || v < INT32_MIN || v > INT32_MAX) return false;
    *value = static_cast<int32_t>(v);
    return true;
}

bool parseUint32(const std::string& text, uint32_t* value) {
    int64_t v;
    if (!parseInt64(text, &v) || v < 0 || v > UINT32_MAX) return false;
    *value = static_cast<uint32_t>(v);
    return true;
}

bool parseDouble(const std::string& text, double* value) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    errno = 0;
    double v = strtod(text.c_str(), &end);
    if (errno == ERANGE || *end != '\0') return false;
    *value = v;
    return true;
}

bool parseDuration(const std::string& text, int64_t* nanoseconds) {
    size_t numberEnd = text.find_first_not_of("+-0123456789.xXabcdefABCDEF");
    std::string number = text.substr(0, numberEnd);
    std::string unit = numberEnd == std::string::npos ? "" : text.substr(numberEnd);
    int64_t scale;
    if (unit.empty() || unit == "ns") {
        scale = 1;
    } else if (unit == "us") {
        scale = 1000;
    } else if (unit == "ms") {
        scale = 1000000;
    } else if (unit == "s") {
        scale = 1000000000;
    } else {
        return false;
    }
    size_t dot = number.find('.');
    if (dot == std::string::npos) {
        int64_t v;
        if (!parseInt64(number, &v)) return false;
        return !__builtin_mul_overflow(v, scale, nanoseconds);
    }
    // A fraction must come out as whole nanoseconds.
    std::string whole = number.substr(0, dot);
    std::string fraction = number.substr(dot + 1);
    bool negative = !whole.empty() && whole[0] == '-';
    if (whole.empty() || whole == "-" || whole == "+") whole += "0";
    int64_t w;
    if (fraction.empty() || fraction.size() > 9 || !parseInt64(whole, &w)) return false;
    int64_t f = 0;
    int64_t divisor = 1;
    for (char c : fraction) {
        if (!isdigit(static_cast<unsigned char>(c))) return false;
        f = f * 10 + (c - '0');
        divisor *= 10;
    }
    if ((f * scale) % divisor != 0) return false;
    int64_t part = f * scale / divisor;
    int64_t result;
    if (__builtin_mul_overflow(w, scale, &result)) return false;
    if (negative ? __builtin_sub_overflow(result, part, &result)
                 : __builtin_add_overflow(result, part, &result)) {
        return false;
    }
    *nanoseconds = result;
    return true;
}

bool looksLikeRecord(const std::string& token) {
    return token.size() >= 2 && token[1] == '=' && strchr("eatcspx", token[0]) != nullptr;
}

bool parseRecord(const std::string& token, Fields fields, Record* record, std::string* error) {
    *record = Record();
    std::string seen;
    size_t start = 0;
    while (start <= token.size()) {
        size_t comma = token.find(',', start);
        bool lastIsText = token.compare(start, 2, "x=") == 0;
        size_t end = lastIsText || comma == std::string::npos ? token.size() : comma;
        std::string field = token.substr(start, end - start);
        if (field.size() < 2 || field[1] != '=') {
            *error = "bad record field " + quoteWord(field) + " in " + quoteWord(token) +
                     " (write name=value)";
            return false;
        }
        char name = field[0];
        std::string value = field.substr(2);
        if (!hasField(fields, name)) {
            *error = std::string("records here have no field ") + name +
                     " (fields: " + fieldList(fields) + ")";
            return false;
        }
        if (seen.find(name) != std::string::npos) {
            *error = std::string("field ") + name + " given twice in " + quoteWord(token);
            return false;
        }
        seen += name;
        bool ok = true;
        switch (name) {
            case 'e':
                ok = parseUint32(value, &record->e);
                break;
            case 'a':
                ok = parseUint32(value, &record->a);
                break;
            case 't':
                ok = parseDuration(value, &record->t);
                break;
            case 'c':
                ok = parseInt32(value, &record->c);
                break;
            case 's':
                ok = parseInt32(value, &record->s);
                break;
            case 'p':
                if (!parseDoubles(value, record->params.p, error)) return false;
                break;
            case 'x':
                record->params.x = value;
                break;
        }
        if (!ok) {
            *error = std::string("bad value for ") + name + ": " + quoteWord(value);
            return false;
        }
        if (end == token.size()) break;
        start = end + 1;
    }
    return true;
}

std::string formatRecord(const Record& r, Fields fields) {
    char buffer[128];
    snprintf(buffer, sizeof(buffer), "e=%" PRIu32 ",a=%" PRIu32 ",t=%" PRId64, r.e, r.a, r.t);
    std::string text = buffer;
    if (hasField(fields, 'c')) text += ",c=" + std::to_string(r.c);
    if (hasField(fields, 's')) {
        text += ",s=" + std::to_string(r.s);
        const double* p = r.params.p;
        if (p[0] != 0 || p[1] != 0 || p[2] != 0 || p[3] != 0 || signbit(p[0]) || signbit(p[1]) ||
            signbit(p[2]) || signbit(p[3])) {
            text += ",p=" + formatDouble(p[0]) + ":" + formatDouble(p[1]) + ":" +
                    formatDouble(p[2]) + ":" + formatDouble(p[3]);
        }
        if (!r.params.x.empty()) text += ",x=" + quoteToken(r.params.x);
    }
    return text;
}

std::string formatRecords(const std::vector<Record>& records, Fields fields) {
    std::string text = "[";
    for (size_t i = 0; i < records.size(); ++i) {
        if (i > 0) text += " ";
        text += formatRecord(records[i], fields);
    }
    return text + "]";
}

std::string recordsJson(const std::vector<Record>& records, Fields fields) {
    std::string json = "[";
    for (size_t i = 0; i < records.size(); ++i) {
        const Record& r = records[i];
        if (i > 0) json += ",";
        json += "{\"e\":" + std::to_string(r.e) + ",\"a\":" + std::to_string(r.a) +
                ",\"t\":" + std::to_string(r.t);
        if (hasField(fields, 'c')) json += ",\"c\":" + std::to_string(r.c);
        if (hasField(fields, 's')) {
            json += ",\"s\":" + std::to_string(r.s);
            std::string params = paramsJson(r.params);
            json += "," + params.substr(1, params.size() - 2);
        }
        json += "}";
    }
    return json + "]";
}

bool parseParamsToken(const std::string& token, Params* params, bool* matched, std::string* error) {
    *matched = false;
    if (token.compare(0, 2, "p=") == 0) {
        *matched = true;
        return parseDoubles(token.substr(2), params->p, error);
    }
    if (token.compare(0, 2, "x=") == 0) {
        *matched = true;
        params->x = token.substr(2);
    }
    return true;
}

std::string formatParams(const Params& params) {
    return "p=" + formatDouble(params.p[0]) + ":" + formatDouble(params.p[1]) + ":" +
           formatDouble(params.p[2]) + ":" + formatDouble(params.p[3]) +
           " x=" + quoteToken(params.x);
}

std::string paramsJson(const Params& params) {
    std::string json = "{\"p\":[";
    for (int i = 0; i < 4; ++i) {
        if (i > 0) json += ",";
        // JSON has no NaN or infinity: those travel as strings.
        json += isfinite(params.p[i]) ? formatDouble(params.p[i])
                                      : jsonString(formatDouble(params.p[i]));
    }
    return json + "],\"x\":" + jsonString(params.x) + "}";
}

std::string formatDouble(double value) {
    char buffer[64];
    for (int precision = 1; precision <= 17; ++precision) {
        snprintf(buffer, sizeof(buffer), "%.*g", precision, value);
        if (strtod(buffer, nullptr) == value || isnan(value)) break;
    }
    return buffer;
}

std::string quoteToken(const std::string& text) {
    if (!needsQuotes(text)) return text;
    std::string quoted = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += static_cast<char>(c);
        } else if (c == '\n') {
            quoted += "\\n";
        } else if (c == '\t') {
            quoted += "\\t";
        } else if (c < ' ' || c >= 0x7f) {
            char buffer[8];
            snprintf(buffer, sizeof(buffer), "\\x%02x", c);
            quoted += buffer;
        } else {
            quoted += static_cast<char>(c);
        }
    }
    return quoted + "\"";
}

std::string escapeText(const std::string& text) {
    std::string escaped;
    for (unsigned char c : text) appendEscaped(&escaped, c);
    return escaped;
}

std::string quoteWord(const std::string& word) {
    std::string quoted = "'";
    for (size_t i = 0; i < word.size() && i < kMaxQuotedBytes; ++i) {
        appendEscaped(&quoted, static_cast<unsigned char>(word[i]));
    }
    if (word.size() <= kMaxQuotedBytes) return quoted + "'";
    return quoted + "...' (" + std::to_string(word.size()) + " bytes)";
}

std::string escapeMessage(const std::string& text) {
    std::string escaped;
    for (unsigned char c : text) {
        if (c == '\n') {
            escaped += '\n';
        } else {
            appendEscaped(&escaped, c);
        }
    }
    return escaped;
}

namespace {

// The length of the well-formed UTF-8 sequence at `at` (shortest form, no surrogates, at most
// U+10FFFF), or 0 when the byte there does not begin one.
size_t utf8SequenceAt(const std::string& text, size_t at) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char lead = byte(at);
    size_t length = lead < 0x80                    ? 1
                    : lead >= 0xc2 && lead <= 0xdf ? 2
                    : lead >= 0xe0 && lead <= 0xef ? 3
                    : lead >= 0xf0 && lead <= 0xf4 ? 4
                                                   : 0;
    if (length == 0 || at + length > text.size()) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xc0) != 0x80) return 0;
    }
    unsigned char second = length > 1 ? byte(at + 1) : 0;
    if ((lead == 0xe0 && second < 0xa0) || (lead == 0xed && second >= 0xa0) ||
        (lead == 0xf0 && second < 0x90) || (lead == 0xf4 && second >= 0x90)) {
        return 0;
    }
    return length;
}

}  // namespace

std::string jsonString(const std::string& text) {
    std::string json = "\"";
    char buffer[8];
    for (size_t at = 0; at < text.size();) {
        unsigned char c = static_cast<unsigned char>(text[at]);
        size_t length = utf8SequenceAt(text, at);
        // C1 controls (U+0080 to U+009F) are two bytes beginning with 0xc2.
        bool control = c < 0x20 || c == 0x7f ||
                       (c == 0xc2 && length == 2 && static_cast<unsigned char>(text[at + 1]) < 0xa0);
        if (c == '"' || c == '\\') {
            json += '\\';
            json += static_cast<char>(c);
        } else if (c == '\n') {
            json += "\\n";
        } else if (c == '\t') {
            json += "\\t";
        } else if (c == '\r') {
            json += "\\r";
        } else if (control) {
            // Control characters never reach a terminal raw: as their code points.
            unsigned code = length == 2 ? static_cast<unsigned char>(text[at + 1]) : c;
            snprintf(buffer, sizeof(buffer), "\\u%04x", code);
            json += buffer;
        } else if (length == 0) {
            // A byte that is not UTF-8 travels as the lone low surrogate U+DC00 + byte (U+DC80 to
            // U+DCFF), which no UTF-8 text can hold: a reader gets the bytes back exactly, as
            // Python's "surrogateescape" error handler does.
            snprintf(buffer, sizeof(buffer), "\\udc%02x", c);
            json += buffer;
            length = 1;
        } else {
            json.append(text, at, length);
        }
        at += length;
    }
    return json + "\"";
}

namespace {

int32_t gBatchLimit = kMaxBatch;

bool batchTooLong(std::string* error) {
    *error = "a batch holds at most " + std::to_string(gBatchLimit) + " records";
    return false;
}

}  // namespace

int32_t batchLimit() {
    return gBatchLimit;
}

void setBatchLimit(int32_t records) {
    gBatchLimit = records;
}

bool parseBatchOptions(const std::vector<std::string>& tokens, size_t from, const char* allowed,
                       Fields fields, bool names, BatchOptions* batch, std::string* error) {
    const std::vector<std::string> options = splitWords(allowed);
    const std::string limit = " (at most " + std::to_string(batchLimit()) + ")";
    for (size_t i = from; i < tokens.size(); ++i) {
        const std::string& token = tokens[i];
        auto option = std::find_if(options.begin(), options.end(), [&](const std::string& o) {
            return o.back() == '=' ? token.compare(0, o.size(), o) == 0 : token == o;
        });
        std::string value = option != options.end() ? token.substr(option->size()) : "";
        auto bad = [&](const char* what, const std::string& hint = "") {
            *error = std::string("bad ") + what + " " + quoteWord(token) + hint;
            return false;
        };
        if (option == options.end()) {
            if (names) {
                if (batch->names.size() == kMaxNames) {
                    *error = "a list holds at most " + std::to_string(kMaxNames) + " names";
                    return false;
                }
                batch->names.push_back(token);
                continue;
            }
            Record record;
            if (!looksLikeRecord(token)) {
                *error = "bad argument " + quoteWord(token) +
                         " (a record such as e=1,a=3,t=1000, or " + join(options, ", ") + ")";
                return false;
            }
            if (!parseRecord(token, fields, &record, error)) return false;
            if (record.params.x.size() > 32) {
                *error = "x holds at most 32 bytes in a legacy record";
                return false;
            }
            if ((batch->records.size() + 1) * batch->repeat > static_cast<size_t>(batchLimit())) {
                return batchTooLong(error);
            }
            batch->records.push_back(record);
        } else if (*option == "count=") {
            if (!parseInt32(value, &batch->count)) return bad("count");
            if (batch->count > batchLimit()) return bad("count", limit);
            batch->hasCount = true;
        } else if (*option == "repeat=") {
            if (!parseInt32(value, &batch->repeat) || batch->repeat < 1 || batch->repeat > 10000) {
                return bad("repeat", " (1 to 10000)");
            }
        } else if (*option == "status=") {
            if (!parseInt32(value, &batch->status)) return bad("status");
        } else if (*option == "bytes=") {
            if (!parseInt32(value, &batch->bytes)) return bad("byte length");
            if (batch->bytes > batchLimit()) return bad("byte length", limit);
            batch->hasBytes = true;
        } else if (*option == "as=") {
            if (!parseInt32(value, &batch->pid)) return bad("pid");
        } else {
            (*option == "null" ? batch->null : batch->noState) = true;
        }
    }
    if (batch->records.size() * batch->repeat > static_cast<size_t>(batchLimit())) {
        return batchTooLong(error);
    }
    return true;
}

char priorityLetter(int priority) {
    static const char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority <= 8 ? kLetters[priority] : '?';
}

std::string join(const std::vector<std::string>& parts, const std::string& separator) {
    std::string text;
    for (size_t i = 0; i < parts.size(); ++i) text += (i > 0 ? separator : "") + parts[i];
    return text;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

std::string rest(const std::vector<std::string>& tokens, size_t from) {
    std::vector<std::string> quoted;
    for (size_t i = from; i < tokens.size(); ++i) quoted.push_back(quoteToken(tokens[i]));
    return join(quoted, " ");
}

std::vector<std::string> splitWords(const std::string& text) {
    std::vector<std::string> words;
    for (size_t at = 0; (at = text.find_first_not_of(' ', at)) != std::string::npos;) {
        size_t end = std::min(text.find(' ', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

namespace {

// Insertions, deletions and substitutions that turn one text into the other.
size_t editDistance(const std::string& from, const std::string& to) {
    std::vector<size_t> row(to.size() + 1);
    for (size_t j = 0; j <= to.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            size_t above = row[j];
            row[j] = std::min(
                    {above + 1, row[j - 1] + 1, diagonal + (from[i - 1] == to[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[to.size()];
}

// Edit distance of `part` to the closest span of `text` (Sellers): a span may start anywhere.
size_t spanDistance(const std::string& part, const std::string& text) {
    std::vector<size_t> row(text.size() + 1, 0);
    for (size_t i = 1; i <= part.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= text.size(); ++j) {
            size_t above = row[j];
            row[j] = std::min(
                    {above + 1, row[j - 1] + 1, diagonal + (part[i - 1] == text[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return *std::min_element(row.begin(), row.end());
}

}  // namespace

std::vector<std::string> splitItems(const std::string& text, const std::string& separator) {
    std::vector<std::string> items;
    if (text.empty()) return items;
    bool quoted = false;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (quoted && text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            quoted = !quoted;
        } else if (!quoted && text.compare(i, separator.size(), separator) == 0) {
            items.push_back(text.substr(start, i - start));
            start = i + separator.size();
            i = start - 1;
        }
    }
    items.push_back(text.substr(start));
    return items;
}

bool itemsMatch(const std::vector<std::string>& expected, const std::vector<std::string>& actual) {
    if (expected.size() != actual.size()) return false;
    for (size_t i = 0; i < expected.size(); ++i) {
        if (expected[i] != "*" && expected[i] != actual[i]) return false;
    }
    return true;
}

size_t distanceToPart(const std::string& part, const std::string& text) {
    return spanDistance(part.substr(0, kMaxComparedBytes), text.substr(0, kMaxComparedBytes));
}

size_t distance(const std::string& from, const std::string& to) {
    return editDistance(from.substr(0, kMaxComparedBytes), to.substr(0, kMaxComparedBytes));
}

std::string shorten(const std::string& text, size_t bytes) {
    if (text.size() <= bytes) return text;
    return text.substr(0, bytes) + "... (" + std::to_string(text.size()) + " bytes)";
}

std::vector<std::string> closestWords(const std::string& word,
                                      const std::vector<std::string>& known) {
    // Farther than this, a word is not taken for a typing mistake.
    size_t best = std::max<size_t>(2, word.size() / 2);
    std::vector<std::string> closest;
    for (const std::string& candidate : known) {
        // The distance is at least the difference of the lengths: no need to count it.
        size_t shorter = std::min(word.size(), candidate.size());
        if (std::max(word.size(), candidate.size()) - shorter > best) continue;
        size_t distance = editDistance(word, candidate);
        if (distance < best) closest.clear();
        if (distance <= best &&
            std::find(closest.begin(), closest.end(), candidate) == closest.end()) {
            best = distance;
            closest.push_back(candidate);
        }
    }
    if (closest.size() > 3) closest.resize(3);
    return closest;
}

}  // namespace arharness
