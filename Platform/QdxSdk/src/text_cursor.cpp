#include "text_cursor.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace qdxsdk::format {

bool ValidUtf8(std::string_view s) {
    size_t i = 0, n = s.size();
    while (i < n) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        if (len == 0 || i + len > n) return false;
        uint32_t cp = len == 1 ? c : len == 2 ? (c & 0x1f) : len == 3 ? (c & 0x0f) : (c & 0x07);
        for (size_t k = 1; k < len; ++k) {
            unsigned char d = static_cast<unsigned char>(s[i + k]);
            if ((d >> 6) != 2) return false;
            cp = (cp << 6) | (d & 0x3f);
        }
        if ((len == 2 && cp < 0x80) || (len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000) ||
            cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff))
            return false;
        i += len;
    }
    return true;
}

namespace {
bool IsDigit(uint8_t c) {
    return c >= '0' && c <= '9';
}

// True when every byte is printable ASCII (no control bytes, no high bit),
// eight bytes at a time.
bool PrintableAscii(const uint8_t* p, size_t n) {
    constexpr uint64_t kHigh = 0x8080808080808080ull, kSpace = 0x2020202020202020ull;
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        uint64_t w;
        std::memcpy(&w, p + i, 8);
        if ((w & kHigh) || ((w - kSpace) & ~w & kHigh)) return false;
    }
    for (; i < n; ++i)
        if (p[i] < 0x20 || p[i] >= 0x80) return false;
    return true;
}

int HexDigit(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

void AppendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xc0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3f));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xe0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (cp & 0x3f));
    } else {
        out += static_cast<char>(0xf0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (cp & 0x3f));
    }
}
} // namespace

void TextCursor::FailAt(size_t pos, const std::string& why) const {
    pos = std::min(pos, mSize);
    size_t line = 1, lineStart = 0;
    for (size_t i = 0; i < pos; ++i)
        if (mData[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    throw TextError{why + " (line " + std::to_string(line) + ", column " +
                    std::to_string(pos - lineStart + 1) + ")"};
}

char TextCursor::Peek() {
    SkipSpace();
    return mPos < mSize ? static_cast<char>(mData[mPos]) : '\0';
}

bool TextCursor::Take(char c) {
    if (Peek() != c || mPos >= mSize) return false;
    ++mPos;
    return true;
}

void TextCursor::Expect(char c) {
    if (!Take(c)) {
        if (mPos >= mSize) Fail("the text ends early");
        Fail(std::string("expected '") + c + "'");
    }
}

void TextCursor::ExpectEnd() {
    if (Peek() != '\0' || mPos < mSize) Fail("unexpected text after the end");
}

void TextCursor::Enter() {
    if (++mDepth > kMaxDepth) Fail("the text is nested too deeply");
}

bool TextCursor::BeginObject(std::string& key) {
    Expect('{');
    Enter();
    if (Take('}')) {
        --mDepth;
        return false;
    }
    if (Peek() != '"') Fail("expected a member name");
    String(key);
    Expect(':');
    return true;
}

bool TextCursor::NextMember(std::string& key) {
    if (Take(',')) {
        if (Peek() != '"') Fail("expected a member name");
        String(key);
        Expect(':');
        return true;
    }
    if (!Take('}')) Fail(mPos >= mSize ? "the text ends early" : "expected ',' or '}'");
    --mDepth;
    return false;
}

bool TextCursor::BeginList() {
    Expect('[');
    Enter();
    if (Take(']')) {
        --mDepth;
        return false;
    }
    return true;
}

bool TextCursor::NextItem() {
    if (Take(',')) return true;
    if (!Take(']')) Fail(mPos >= mSize ? "the text ends early" : "expected ',' or ']'");
    --mDepth;
    return false;
}

bool TextCursor::PlainString(std::string_view& out) {
    if (Peek() != '"') Fail("expected a string");
    const size_t begin = mPos + 1;
    const void* quote = std::memchr(mData + begin, '"', mSize - begin);
    if (!quote) Fail("a string is not closed");
    const size_t end = static_cast<size_t>(static_cast<const uint8_t*>(quote) - mData);
    if (std::memchr(mData + begin, '\\', end - begin)) return false;
    const char* text = reinterpret_cast<const char*>(mData + begin);
    if (!PrintableAscii(mData + begin, end - begin)) {
        for (size_t i = begin; i < end; ++i)
            if (mData[i] < 0x20) FailAt(i, "a control character in a string");
        if (!ValidUtf8({text, end - begin})) FailAt(begin, "a string is not valid UTF-8");
    }
    out = {text, end - begin};
    mPos = end + 1;
    return true;
}

std::string_view TextCursor::RawString() {
    if (Peek() != '"') Fail("expected a string");
    const size_t begin = mPos + 1;
    const void* quote = std::memchr(mData + begin, '"', mSize - begin);
    if (!quote) Fail("a string is not closed");
    const size_t end = static_cast<size_t>(static_cast<const uint8_t*>(quote) - mData);
    mPos = end + 1;
    return {reinterpret_cast<const char*>(mData + begin), end - begin};
}

void TextCursor::String(std::string& out) {
    std::string_view plain;
    if (PlainString(plain))
        out.assign(plain);
    else
        EscapedString(out);
}

void TextCursor::EscapedString(std::string& out) {
    out.clear();
    const size_t begin = ++mPos; // past the opening quote
    auto hex4 = [&](size_t at) {
        if (mSize - at < 4) FailAt(at, "a short \\u escape");
        uint32_t v = 0;
        for (size_t k = 0; k < 4; ++k) {
            int d = HexDigit(mData[at + k]);
            if (d < 0) FailAt(at + k, "a bad \\u escape");
            v = (v << 4) | static_cast<uint32_t>(d);
        }
        return v;
    };
    for (;;) {
        if (mPos >= mSize) FailAt(begin - 1, "a string is not closed");
        uint8_t c = mData[mPos];
        if (c == '"') break;
        if (c < 0x20) Fail("a control character in a string");
        if (c != '\\') {
            out += static_cast<char>(c);
            ++mPos;
            continue;
        }
        if (mSize - mPos < 2) Fail("a string is not closed");
        uint8_t e = mData[mPos + 1];
        mPos += 2;
        switch (e) {
        case '"':
        case '\\':
        case '/':
            out += static_cast<char>(e);
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'u': {
            uint32_t cp = hex4(mPos);
            mPos += 4;
            if (cp >= 0xdc00 && cp <= 0xdfff) FailAt(mPos - 6, "a lone low surrogate");
            if (cp >= 0xd800 && cp <= 0xdbff) {
                if (mSize - mPos < 6 || mData[mPos] != '\\' || mData[mPos + 1] != 'u')
                    FailAt(mPos - 6, "a lone high surrogate");
                uint32_t low = hex4(mPos + 2);
                if (low < 0xdc00 || low > 0xdfff) FailAt(mPos, "a lone high surrogate");
                cp = 0x10000 + ((cp - 0xd800) << 10) + (low - 0xdc00);
                mPos += 6;
            }
            AppendUtf8(out, cp);
            break;
        }
        default:
            FailAt(mPos - 2, "a bad escape in a string");
        }
    }
    ++mPos;
    if (!ValidUtf8(out)) FailAt(begin, "a string is not valid UTF-8");
}

bool TextCursor::TakeLiteral(std::string_view word) {
    SkipSpace();
    if (mSize - mPos < word.size() || std::memcmp(mData + mPos, word.data(), word.size()) != 0)
        return false;
    size_t after = mPos + word.size();
    if (after < mSize && std::isalnum(mData[after])) return false;
    mPos = after;
    return true;
}

size_t TextCursor::NumberEnd(bool& integral) const {
    size_t p = mPos;
    auto digits = [&] {
        size_t from = p;
        while (p < mSize && IsDigit(mData[p]))
            ++p;
        return p > from;
    };
    if (p < mSize && mData[p] == '-') ++p;
    if (p < mSize && mData[p] == '0')
        ++p;
    else if (!digits())
        FailAt(mPos, "a malformed number");
    integral = true;
    if (p < mSize && mData[p] == '.') {
        ++p;
        integral = false;
        if (!digits()) FailAt(mPos, "a malformed number");
    }
    if (p < mSize && (mData[p] == 'e' || mData[p] == 'E')) {
        ++p;
        integral = false;
        if (p < mSize && (mData[p] == '+' || mData[p] == '-')) ++p;
        if (!digits()) FailAt(mPos, "a malformed number");
    }
    // "01", "1x" or "1.5.2" are malformed numbers, not a number and more.
    if (p < mSize &&
        (std::isalnum(mData[p]) || mData[p] == '.' || mData[p] == '-' || mData[p] == '+'))
        FailAt(mPos, "a malformed number");
    return p;
}

long long TextCursor::Integer(long long lo, long long hi) {
    SkipSpace();
    bool integral = false;
    const size_t end = NumberEnd(integral);
    if (!integral) Fail("expected an integer");
    long long v = 0;
    const char* first = reinterpret_cast<const char*>(mData + mPos);
    const char* last = reinterpret_cast<const char*>(mData + end);
    auto r = std::from_chars(first, last, v);
    if (r.ec != std::errc() || r.ptr != last || v < lo || v > hi)
        Fail("an integer is out of range");
    mPos = end;
    return v;
}

double TextCursor::Number() {
    SkipSpace();
    bool integral = false;
    const size_t end = NumberEnd(integral);
    const char* first = reinterpret_cast<const char*>(mData + mPos);
    const char* last = reinterpret_cast<const char*>(mData + end);
    double v = 0;
    auto r = std::from_chars(first, last, v);
    if (r.ec == std::errc::result_out_of_range) {
        // Too small rounds to zero (or a subnormal); too large is refused.
        v = std::strtod(std::string(first, last).c_str(), nullptr);
        if (!std::isfinite(v)) Fail("a number is out of range");
    } else if (r.ec != std::errc() || r.ptr != last) {
        Fail("a malformed number");
    }
    mPos = end;
    // "-0" is the integer zero; only "-0.0" stands for negative zero.
    return integral && v == 0 ? 0.0 : v;
}

void TextCursor::Skip() {
    std::string scratch;
    switch (Peek()) {
    case '{':
        if (BeginObject(scratch)) do
                Skip();
            while (NextMember(scratch));
        return;
    case '[':
        if (BeginList()) do
                Skip();
            while (NextItem());
        return;
    case '"':
        String(scratch);
        return;
    case '\0':
        Fail("the text ends early");
    default:
        if (TakeLiteral("true") || TakeLiteral("false") || TakeLiteral("null")) return;
        Number();
    }
}

} // namespace qdxsdk::format
