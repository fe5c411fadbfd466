// A pull parser over JSON text held in memory. The caller walks the text in
// the order it expects and reads each value straight into its own storage,
// so no tree of the document is ever built. Any error throws TextError with
// the line and column where the text went wrong; the reader that owns the
// cursor catches it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qdxsdk::format {

struct TextError {
    std::string why;
};

// True when s is well-formed UTF-8 (no overlong forms, surrogates or code
// points beyond U+10FFFF).
bool ValidUtf8(std::string_view s);

class TextCursor {
public:
    // Containers nested deeper than this are refused.
    static constexpr int kMaxDepth = 32;

    TextCursor(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    // A place in the text to come back to (a value skipped earlier).
    struct Mark {
        size_t pos = 0;
        int depth = 0;
    };
    Mark Here() const { return {mPos, mDepth}; }
    void Seek(Mark m) {
        mPos = m.pos;
        mDepth = m.depth;
    }
    size_t Pos() const { return mPos; }
    // Where the next token starts (past whitespace).
    size_t At() {
        SkipSpace();
        return mPos;
    }
    size_t Size() const { return mSize; }
    const uint8_t* Data() const { return mData; }

    // The next byte after whitespace, 0 at the end of the text.
    char Peek();
    // Consumes c when it comes next.
    bool Take(char c);
    void Expect(char c);
    // Fails unless only whitespace is left.
    void ExpectEnd();

    // Objects: if (BeginObject(key)) do { value of key } while (NextMember(key));
    bool BeginObject(std::string& key);
    bool NextMember(std::string& key);
    // Lists: if (BeginList()) do { item } while (NextItem());
    bool BeginList();
    bool NextItem();

    // A string with its escapes resolved, valid UTF-8.
    void String(std::string& out);
    // A string without escapes as a view into the text; false (nothing
    // consumed) when it has escapes, so the caller falls back to String.
    bool PlainString(std::string_view& out);
    // The bytes up to the next '"' as they stand, unchecked (escapes not
    // resolved), for a reader that checks every byte itself.
    std::string_view RawString();
    // Consumes the literal when it comes next.
    bool TakeLiteral(std::string_view word);
    // An integer token (no fraction or exponent) within [lo, hi].
    long long Integer(long long lo, long long hi);
    // Any number token, as the nearest double.
    double Number();
    // Any value.
    void Skip();

    [[noreturn]] void Fail(const std::string& why) const { FailAt(mPos, why); }
    [[noreturn]] void FailAt(size_t pos, const std::string& why) const;

private:
    void SkipSpace() {
        while (mPos < mSize) {
            uint8_t c = mData[mPos];
            if (c != ' ' && c != '\n' && c != '\r' && c != '\t') break;
            ++mPos;
        }
    }
    // Scans a number token at mPos; returns its end, sets integral.
    size_t NumberEnd(bool& integral) const;
    void Enter();
    void EscapedString(std::string& out);

    const uint8_t* mData;
    size_t mSize;
    size_t mPos = 0;
    int mDepth = 0;
};

} // namespace qdxsdk::format
