#include "Host/Script/TscriptLexer.h"

#include <charconv>
#include <cstdio>
#include <system_error>

namespace {

bool isIdentStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isIdentChar(char c) {
    return isIdentStart(c) || isDigit(c);
}
bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

std::string charText(char c) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u >= 0x21 && u < 0x7f) return std::string("'") + c + "'";
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%02x", u);
    return std::string("character ") + buf;
}

// Longest first, so that "<<" wins over "<".
constexpr std::string_view kOps[] = {
    "<<", ">>", "++", "--", "+=", "-=", "*=", "/=", "==", "!=", "<=", ">=", "&&", "||", "+", "-", "*", "/",
    "%",  "^",  "<",  ">",  "=",  "!",  "?",  ":",  ";",  ",",  "(",  ")",  "{",  "}",  "[", "]", "."};

} // namespace

TscriptTok readScriptNumber(std::string_view s, int& intValue, double& floatValue) {
    bool negative = false;
    if (!s.empty() && (s[0] == '-' || s[0] == '+')) {
        negative = s[0] == '-';
        s.remove_prefix(1);
    }
    if (s.empty() || !(isDigit(s[0]) || (s[0] == '.' && s.size() > 1 && isDigit(s[1]))))
        return TscriptTok::End;
    const char* end = s.data() + s.size();
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        unsigned long long v = 0;
        auto [p, ec] = std::from_chars(s.data() + 2, end, v, 16);
        if (ec != std::errc() || p != end || v > 0xffffffffull) return TscriptTok::End;
        // Hex literals give the bit pattern, as in C.
        unsigned u = static_cast<unsigned>(v);
        intValue = static_cast<int>(negative ? 0u - u : u);
        return TscriptTok::Int;
    }
    bool integral = true;
    for (char c : s) {
        if (!isDigit(c)) {
            integral = false;
            break;
        }
    }
    if (integral) {
        long long v = 0;
        auto [p, ec] = std::from_chars(s.data(), end, v);
        if (ec == std::errc() && p == end) {
            if (negative) v = -v;
            if (v >= -2147483648LL && v <= 2147483647LL) {
                intValue = static_cast<int>(v);
                return TscriptTok::Int;
            }
        }
        // Too big for an int: it stays a number, as a float.
    }
    double d = 0;
    auto [p, ec] = std::from_chars(s.data(), end, d);
    if (p != end || (ec != std::errc() && ec != std::errc::result_out_of_range)) return TscriptTok::End;
    floatValue = negative ? -d : d;
    return TscriptTok::Float;
}

TscriptLexer::TscriptLexer(std::string_view source, int firstLine) : fSrc(source), fLine(firstLine) {
    // A byte-order mark, and a "#!" first line that makes a script executable,
    // are not part of the text.
    if (fSrc.substr(0, 3) == "\xEF\xBB\xBF") fPos = 3;
    if (fSrc.substr(fPos, 2) == "#!")
        while (fPos < fSrc.size() && fSrc[fPos] != '\n')
            ++fPos;
}

std::string TscriptLexer::describe(const TscriptToken& t) {
    switch (t.kind) {
    case TscriptTok::End:
        return "end of input";
    case TscriptTok::Var:
        return "'$" + t.text + "'";
    case TscriptTok::String:
        return "string \"" + t.text + "\"";
    case TscriptTok::Backtick:
        return "'`'";
    default:
        return "'" + t.text + "'";
    }
}

bool TscriptLexer::skipSpace(bool& sawSpace, std::string& error) {
    sawSpace = false;
    while (fPos < fSrc.size()) {
        char c = fSrc[fPos];
        if (isSpace(c)) {
            if (c == '\n') ++fLine;
            ++fPos;
            sawSpace = true;
        } else if (c == '/' && fPos + 1 < fSrc.size() && fSrc[fPos + 1] == '/') {
            while (fPos < fSrc.size() && fSrc[fPos] != '\n')
                ++fPos;
            sawSpace = true;
        } else if (c == '/' && fPos + 1 < fSrc.size() && fSrc[fPos + 1] == '*') {
            int startLine = fLine;
            size_t close = fSrc.find("*/", fPos + 2);
            if (close == std::string_view::npos) {
                error = "unterminated comment starting on line " + std::to_string(startLine);
                fPos = fSrc.size();
                return false;
            }
            for (size_t i = fPos; i < close; ++i)
                if (fSrc[i] == '\n') ++fLine;
            fPos = close + 2;
            sawSpace = true;
        } else {
            break;
        }
    }
    return true;
}

TscriptToken TscriptLexer::make(TscriptTok kind, size_t begin, int line, bool space) const {
    TscriptToken t;
    t.kind = kind;
    t.begin = begin;
    t.line = line;
    t.spaceBefore = space;
    if (kind != TscriptTok::Error) t.text = std::string(fSrc.substr(begin, fPos - begin));
    return t;
}

TscriptToken TscriptLexer::scanString(size_t begin, int line, bool space) {
    ++fPos; // opening quote
    std::string text;
    while (true) {
        if (fPos >= fSrc.size()) {
            TscriptToken t = make(TscriptTok::Error, begin, line, space);
            t.text = "unterminated string starting on line " + std::to_string(line);
            return t;
        }
        char c = fSrc[fPos++];
        if (c == '"') break;
        if (c == '\n') ++fLine;
        if (c != '\\' || fPos >= fSrc.size()) {
            text += c;
            continue;
        }
        char e = fSrc[fPos++];
        switch (e) {
        case 'n':
            text += '\n';
            break;
        case 't':
            text += '\t';
            break;
        case 'r':
            text += '\r';
            break;
        case '"':
            text += '"';
            break;
        case '\\':
            text += '\\';
            break;
        case '\'':
            text += '\'';
            break;
        case '`':
            text += '`';
            break;
        case '\n':
            // A backslash at the end of a line continues the string.
            ++fLine;
            break;
        default:
            // Unknown escapes keep their backslash, so Windows-style paths survive.
            text += '\\';
            text += e;
            break;
        }
    }
    TscriptToken t = make(TscriptTok::String, begin, line, space);
    t.text = std::move(text);
    return t;
}

TscriptToken TscriptLexer::scanNumber(size_t begin, int line, bool space) {
    // Take the longest run that could be part of a number, then read it whole.
    size_t p = fPos;
    if (p + 1 < fSrc.size() && fSrc[p] == '0' && (fSrc[p + 1] == 'x' || fSrc[p + 1] == 'X')) {
        p += 2;
        while (p < fSrc.size() && isIdentChar(fSrc[p]))
            ++p;
    } else {
        while (p < fSrc.size()) {
            char c = fSrc[p];
            if (isIdentChar(c) || c == '.') {
                ++p;
            } else if ((c == '+' || c == '-') && (fSrc[p - 1] == 'e' || fSrc[p - 1] == 'E') &&
                       p + 1 < fSrc.size() && isDigit(fSrc[p + 1])) {
                ++p;
            } else {
                break;
            }
        }
    }
    fPos = p;
    TscriptToken t = make(TscriptTok::Int, begin, line, space);
    TscriptTok kind = readScriptNumber(t.text, t.intValue, t.floatValue);
    if (kind == TscriptTok::End) {
        t.kind = TscriptTok::Error;
        t.text = "bad number '" + t.text + "'";
        return t;
    }
    t.kind = kind;
    return t;
}

TscriptToken TscriptLexer::next() {
    bool space = false;
    std::string error;
    if (!skipSpace(space, error)) {
        TscriptToken t = make(TscriptTok::Error, fPos, fLine, space);
        t.text = error;
        return t;
    }
    size_t begin = fPos;
    int line = fLine;
    if (fPos >= fSrc.size()) return make(TscriptTok::End, begin, line, space);
    char c = fSrc[fPos];
    if (isIdentStart(c)) {
        while (fPos < fSrc.size() && isIdentChar(fSrc[fPos]))
            ++fPos;
        return make(TscriptTok::Ident, begin, line, space);
    }
    if (c == '$') {
        ++fPos;
        if (fPos >= fSrc.size() || !isIdentStart(fSrc[fPos])) {
            TscriptToken t = make(TscriptTok::Error, begin, line, space);
            t.text = "expected a variable name after '$'";
            return t;
        }
        while (fPos < fSrc.size() && isIdentChar(fSrc[fPos]))
            ++fPos;
        TscriptToken t = make(TscriptTok::Var, begin, line, space);
        t.text.erase(0, 1);
        return t;
    }
    if (isDigit(c) || (c == '.' && fPos + 1 < fSrc.size() && isDigit(fSrc[fPos + 1])))
        return scanNumber(begin, line, space);
    if (c == '"') return scanString(begin, line, space);
    if (c == '`') {
        ++fPos;
        return make(TscriptTok::Backtick, begin, line, space);
    }
    for (std::string_view op : kOps) {
        if (fSrc.substr(fPos, op.size()) == op) {
            fPos += op.size();
            return make(TscriptTok::Op, begin, line, space);
        }
    }
    ++fPos;
    TscriptToken t = make(TscriptTok::Error, begin, line, space);
    t.text = "unexpected " + charText(c);
    return t;
}

bool TscriptLexer::atCallOpen(const TscriptToken& word) const {
    if (word.text.empty() || !isIdentStart(word.text[0])) return false;
    for (char c : word.text)
        if (!isIdentChar(c)) return false;
    size_t end = word.begin + word.text.size();
    return end < fSrc.size() && fSrc[end] == '(';
}

bool TscriptLexer::atWordStop(size_t pos) const {
    char c = fSrc[pos];
    if (isSpace(c)) return true;
    switch (c) {
    case ';':
    case '"':
    case '`':
    case '(':
    case ')':
    case '{':
    case '}':
    case '$':
    case ',':
        return true;
    case '/':
        return pos + 1 < fSrc.size() && (fSrc[pos + 1] == '/' || fSrc[pos + 1] == '*');
    default:
        return false;
    }
}

TscriptToken TscriptLexer::nextArg() {
    bool space = false;
    std::string error;
    if (!skipSpace(space, error)) {
        TscriptToken t = make(TscriptTok::Error, fPos, fLine, space);
        t.text = error;
        return t;
    }
    size_t begin = fPos;
    int line = fLine;
    if (fPos >= fSrc.size()) return make(TscriptTok::End, begin, line, space);
    char c = fSrc[fPos];
    // Everything that is not a plain word is lexed as in ordinary mode.
    if (atWordStop(fPos) || fSrc.substr(fPos, 2) == "<<") {
        fPos = begin;
        fLine = line;
        TscriptToken t = next();
        t.spaceBefore = space;
        return t;
    }
    while (fPos < fSrc.size() && !atWordStop(fPos))
        ++fPos;
    TscriptToken t = make(TscriptTok::Word, begin, line, space);
    if (c == '-' && t.text.size() > 1 && isIdentStart(t.text[1])) {
        t.kind = TscriptTok::Flag;
        return t;
    }
    TscriptTok num = readScriptNumber(t.text, t.intValue, t.floatValue);
    if (num != TscriptTok::End) t.kind = num;
    return t;
}
