// The text flavour: JSON with every number written so that it reads back
// bit-exactly (shortest round-trip decimal; non-finite doubles as their bit
// pattern in hex).
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "format_descriptor.h"
#include "text_cursor.h"
#include "value_type.h"

namespace qdxsdk::format {

namespace {
constexpr size_t kBase64Min = 64; // version 3 stores arrays this long as base64

const char* KindName(detail::ArrayKind k) {
    switch (k) {
    case detail::ArrayKind::Int32:
        return "i32";
    case detail::ArrayKind::Int64:
        return "i64";
    case detail::ArrayKind::Double:
        return "f64";
    case detail::ArrayKind::UInt8:
        return "u8";
    }
    return "";
}

bool KindFromName(const std::string& s, detail::ArrayKind& k) {
    for (auto c : {detail::ArrayKind::Int32, detail::ArrayKind::Int64, detail::ArrayKind::Double,
                   detail::ArrayKind::UInt8})
        if (s == KindName(c)) {
            k = c;
            return true;
        }
    return false;
}

const char kB64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Output goes through one fixed buffer, handed to the sink whenever it fills.
class Emitter {
public:
    static constexpr size_t kBuffer = 1u << 20;
    explicit Emitter(const Sink& sink) : mSink(sink), mBuf(new char[kBuffer]) {}
    // Room for n (at most kBuffer) more bytes; Commit says where they end.
    char* Room(size_t n) {
        if (kBuffer - mLen < n) Flush();
        return mBuf.get() + mLen;
    }
    void Commit(const char* end) { mLen = static_cast<size_t>(end - mBuf.get()); }
    void Raw(const char* s, size_t n) {
        if (kBuffer - mLen < n) {
            Flush();
            if (n > kBuffer) {
                mOk = mOk && mSink(s, n);
                return;
            }
        }
        std::memcpy(mBuf.get() + mLen, s, n);
        mLen += n;
    }
    void Raw(const char* s) { Raw(s, std::strlen(s)); }
    void Str(const std::string& s) {
        static const char* hex = "0123456789abcdef";
        if (!ValidUtf8(s)) {
            Raw("{\"hex\":\"");
            for (unsigned char c : s) {
                char* p = Room(2);
                p[0] = hex[c >> 4];
                p[1] = hex[c & 15];
                Commit(p + 2);
            }
            Raw("\"}");
            return;
        }
        Raw("\"", 1);
        size_t run = 0; // start of the bytes that need no escape
        for (size_t i = 0; i < s.size(); ++i) {
            unsigned char c = static_cast<unsigned char>(s[i]);
            if (c >= 0x20 && c != '"' && c != '\\') continue;
            Raw(s.data() + run, i - run);
            run = i + 1;
            if (c == '"') {
                Raw("\\\"", 2);
            } else if (c == '\\') {
                Raw("\\\\", 2);
            } else {
                const char u[6] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 15]};
                Raw(u, 6);
            }
        }
        Raw(s.data() + run, s.size() - run);
        Raw("\"", 1);
    }
    void Int(long long v) {
        char* p = Room(24);
        Commit(std::to_chars(p, p + 24, v).ptr);
    }
    void Double(double v) {
        if (!std::isfinite(v)) {
            uint64_t bits;
            std::memcpy(&bits, &v, 8);
            char b[32];
            std::snprintf(b, sizeof b, "\"0x%016llx\"", static_cast<unsigned long long>(bits));
            Raw(b);
            return;
        }
        if (v == 0.0 && std::signbit(v)) {
            Raw("-0.0"); // "-0" would read back as the integer 0
            return;
        }
        char* p = Room(32);
        Commit(std::to_chars(p, p + 32, v).ptr);
    }
    void Base64(const uint8_t* p, size_t n) {
        Raw("\"", 1);
        size_t i = 0;
        while (n - i >= 3) {
            const size_t groups = std::min((n - i) / 3, kBuffer / 4);
            char* q = Room(groups * 4);
            for (size_t g = 0; g < groups; ++g, i += 3, q += 4) {
                const uint32_t v = static_cast<uint32_t>(p[i]) << 16 |
                                   static_cast<uint32_t>(p[i + 1]) << 8 | p[i + 2];
                q[0] = kB64[v >> 18];
                q[1] = kB64[(v >> 12) & 63];
                q[2] = kB64[(v >> 6) & 63];
                q[3] = kB64[v & 63];
            }
            Commit(q);
        }
        if (i < n) {
            uint32_t v = static_cast<uint32_t>(p[i]) << 16;
            if (i + 1 < n) v |= static_cast<uint32_t>(p[i + 1]) << 8;
            const char q[4] = {kB64[v >> 18], kB64[(v >> 12) & 63],
                               i + 1 < n ? kB64[(v >> 6) & 63] : '=', '='};
            Raw(q, 4);
        }
        Raw("\"", 1);
    }
    bool Flush() {
        if (mLen) mOk = mOk && mSink(mBuf.get(), mLen);
        mLen = 0;
        return mOk;
    }

private:
    const Sink& mSink;
    std::unique_ptr<char[]> mBuf;
    size_t mLen = 0;
    bool mOk = true;
};

// Values as JSON: scalars as numbers, vectors, matrices and dates as lists.
class ValueEmitter : public detail::ValueWriter {
public:
    explicit ValueEmitter(Emitter& e) : mE(e) {}
    void Null() override { mE.Raw("null"); }
    void Bool(bool v) override { mE.Raw(v ? "true" : "false"); }
    void Int32(int32_t v) override { mE.Int(v); }
    void Int64(int64_t v) override { mE.Int(v); }
    void Float(float v) override { mE.Double(static_cast<double>(v)); }
    void Double(double v) override { mE.Double(v); }
    void Doubles(const double* v, int n) override {
        List(n, [&](int i) { mE.Double(v[i]); });
    }
    void Int32s(const int32_t* v, int n) override {
        List(n, [&](int i) { mE.Int(v[i]); });
    }
    void String(const std::string& v) override { mE.Str(v); }
    void Strings(const std::vector<std::string>& v) override {
        List(static_cast<int>(v.size()), [&](int i) { mE.Str(v[static_cast<size_t>(i)]); });
    }

private:
    template <class F> void List(int n, const F& item) {
        mE.Raw("[");
        for (int i = 0; i < n; ++i) {
            if (i) mE.Raw(",");
            item(i);
        }
        mE.Raw("]");
    }
    Emitter& mE;
};

void EmitArray(Emitter& e, const FlatArray& a, int version) {
    const detail::ArrayRec& rec = a.Get();
    size_t n = rec.Count();
    e.Raw("{\"name\":");
    e.Str(a.name);
    e.Raw(",\"kind\":\"");
    e.Raw(KindName(rec.kind));
    e.Raw("\",\"count\":");
    e.Int(static_cast<long long>(n));
    size_t bytes = n * detail::ArrayElementSize(rec.kind);
    if (version >= 2) {
        e.Raw(",\"crc32\":");
        e.Int(Crc32(rec.Data(), bytes));
    }
    if (version >= 3 && n >= kBase64Min) {
        e.Raw(",\"b64\":");
        e.Base64(static_cast<const uint8_t*>(rec.Data()), bytes);
        e.Raw("}");
        return;
    }
    e.Raw(",\"data\":[");
    for (size_t i = 0; i < n; ++i) {
        if (i) e.Raw(",");
        switch (rec.kind) {
        case detail::ArrayKind::Int32:
            e.Int(rec.Elements<int32_t>()[i]);
            break;
        case detail::ArrayKind::Int64:
            e.Int(rec.Elements<int64_t>()[i]);
            break;
        case detail::ArrayKind::Double:
            e.Double(rec.Elements<double>()[i]);
            break;
        case detail::ArrayKind::UInt8:
            e.Int(rec.Elements<uint8_t>()[i]);
            break;
        }
    }
    e.Raw("]}");
}
} // namespace

bool WriteText(const FlatDocument& doc, const Sink& sink, QdxStatus& status,
               const Progress& progress) {
    if (doc.version < kOldestVersion || doc.version > kNewestVersion) {
        status.SetCode(QdxStatus::eInvalidFileVersion, "Unsupported file version");
        return false;
    }
    Emitter e(sink);
    e.Raw("{\"qdx\":\"text\",\"version\":");
    e.Int(doc.version);
    e.Raw(",\n\"objects\":[\n");
    for (size_t i = 0; i < doc.objects.size(); ++i) {
        const FlatObject& o = doc.objects[i];
        if (i) e.Raw(",\n");
        e.Raw("{\"class\":");
        e.Str(o.className);
        e.Raw(",\"name\":");
        e.Str(o.name);
        e.Raw(",\"properties\":[");
        for (size_t k = 0; k < o.properties.size(); ++k) {
            const FlatProperty& p = o.properties[k];
            e.Raw(k ? ",\n {\"name\":" : "\n {\"name\":");
            e.Str(p.name);
            if (!p.label.empty()) {
                e.Raw(",\"label\":");
                e.Str(p.label);
            }
            e.Raw(",\"type\":");
            e.Str(p.type);
            e.Raw(",\"flags\":");
            e.Int(p.flags);
            if (!p.enumItems.empty()) {
                e.Raw(",\"enum\":[");
                for (size_t j = 0; j < p.enumItems.size(); ++j) {
                    if (j) e.Raw(",");
                    e.Str(p.enumItems[j]);
                }
                e.Raw("]");
            }
            e.Raw(",\"value\":");
            ValueEmitter emitter(e);
            detail::ValueTypeOf(p.value).write(p.value, emitter);
            e.Raw("}");
        }
        e.Raw("],\"arrays\":[");
        for (size_t k = 0; k < o.arrays.size(); ++k) {
            e.Raw(k ? ",\n " : "\n ");
            EmitArray(e, o.arrays[k], doc.version);
        }
        e.Raw("]}");
        if (progress)
            progress(static_cast<double>(i + 1) / static_cast<double>(doc.objects.size()));
    }
    e.Raw("],\n\"connections\":[");
    for (size_t i = 0; i < doc.connections.size(); ++i) {
        const FlatConnection& c = doc.connections[i];
        e.Raw(i ? ",\n[" : "\n[");
        e.Int(c.src);
        e.Raw(",");
        e.Int(c.dst);
        if (!c.property.empty()) {
            e.Raw(",");
            e.Str(c.property);
        }
        e.Raw("]");
    }
    e.Raw("]}\n");
    if (!e.Flush()) {
        status.SetCode(QdxStatus::eFailure, "Cannot write the file");
        return false;
    }
    return true;
}

// ---------------------------------------------------------------- reading
//
// The reader walks the text once with a TextCursor: objects and properties
// become the flat document as they are met, and array data is decoded
// straight into the array's own storage, never into a tree of the text. A
// member that needs another one not read yet (an array's data before its
// kind or count, a value before its type) is skipped and read once the
// enclosing object has been seen whole.

namespace {
// How much consumed input piles up before its pages are handed back.
constexpr size_t kReleaseStep = size_t{8} << 20;

constexpr int Base64Digit(uint8_t c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

// Each character's six bits already shifted to their place in a group of
// four; characters outside the alphabet carry kBase64Bad instead.
constexpr uint32_t kBase64Bad = 1u << 24;
struct Base64Table {
    uint32_t shifted[4][256];
    constexpr Base64Table() : shifted() {
        for (int c = 0; c < 256; ++c) {
            const int d = Base64Digit(static_cast<uint8_t>(c));
            for (int k = 0; k < 4; ++k)
                shifted[k][c] = d < 0 ? kBase64Bad : static_cast<uint32_t>(d) << (18 - 6 * k);
        }
    }
};
constexpr Base64Table kBase64Table;

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A string, or {"hex":"..."} holding bytes that are not UTF-8.
std::string ReadString(TextCursor& c) {
    std::string out;
    if (c.Peek() != '{') {
        if (c.Peek() != '"') c.Fail("expected a string");
        c.String(out);
        return out;
    }
    const size_t at = c.Pos();
    std::string key, hex;
    bool have = false;
    if (c.BeginObject(key)) do {
            if (key != "hex" || have || c.Peek() != '"') c.FailAt(at, "expected a string");
            c.String(hex);
            have = true;
        } while (c.NextMember(key));
    if (!have) c.FailAt(at, "expected a string");
    if (hex.size() % 2) c.FailAt(at, "odd hex string");
    out.resize(hex.size() / 2);
    for (size_t i = 0; i < out.size(); ++i) {
        int hi = HexValue(hex[2 * i]), lo = HexValue(hex[2 * i + 1]);
        if (hi < 0 || lo < 0) c.FailAt(at, "bad hex string");
        out[i] = static_cast<char>(hi << 4 | lo);
    }
    return out;
}

// A number, or "0x" and the 16 hex digits of a double's bits.
double ReadDouble(TextCursor& c) {
    if (c.Peek() != '"') {
        if (c.Peek() != '-' && (c.Peek() < '0' || c.Peek() > '9')) c.Fail("expected a number");
        return c.Number();
    }
    const size_t at = c.Pos();
    std::string_view s;
    uint64_t bits = 0;
    if (!c.PlainString(s) || s.size() != 18 || s[0] != '0' || s[1] != 'x')
        c.FailAt(at, "expected a number");
    auto r = std::from_chars(s.data() + 2, s.data() + s.size(), bits, 16);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) c.FailAt(at, "expected a number");
    double d;
    std::memcpy(&d, &bits, 8);
    return d;
}

// Reads one value's fields from the cursor; a mismatch throws TextError.
class ValueParser : public detail::ValueReader {
public:
    explicit ValueParser(TextCursor& c) : mC(c) {}
    bool Null() override {
        if (!mC.TakeLiteral("null")) mC.Fail("expected null");
        return true;
    }
    bool Bool(bool& v) override {
        if (mC.TakeLiteral("true"))
            v = true;
        else if (mC.TakeLiteral("false"))
            v = false;
        else
            mC.Fail("expected a boolean");
        return true;
    }
    bool Int32(int32_t& v) override {
        v = static_cast<int32_t>(mC.Integer(INT32_MIN, INT32_MAX));
        return true;
    }
    bool Int64(int64_t& v) override {
        v = mC.Integer(INT64_MIN, INT64_MAX);
        return true;
    }
    bool Float(float& v) override {
        const size_t at = mC.Pos();
        double d = ReadDouble(mC);
        v = static_cast<float>(d);
        if (std::isfinite(d) && static_cast<double>(v) != d)
            mC.FailAt(at, "a float value is not a float");
        return true;
    }
    bool Double(double& v) override {
        v = ReadDouble(mC);
        return true;
    }
    bool Doubles(double* v, int n) override {
        List(n, "numbers", [&](int i) { v[i] = ReadDouble(mC); });
        return true;
    }
    bool Int32s(int32_t* v, int n) override {
        List(n, "integers",
             [&](int i) { v[i] = static_cast<int32_t>(mC.Integer(INT32_MIN, INT32_MAX)); });
        return true;
    }
    bool String(std::string& v) override {
        v = ReadString(mC);
        return true;
    }
    bool Strings(std::vector<std::string>& v) override {
        if (mC.Peek() != '[') mC.Fail("expected a string list");
        if (mC.BeginList()) do
                v.push_back(ReadString(mC));
            while (mC.NextItem());
        return true;
    }

private:
    template <class F> void List(int n, const char* what, const F& item) {
        const size_t at = mC.At();
        const std::string wrong = "expected " + std::to_string(n) + " " + what;
        if (mC.Peek() != '[') mC.Fail(wrong);
        int got = 0;
        if (mC.BeginList()) do {
                if (got == n) mC.FailAt(at, wrong);
                item(got++);
            } while (mC.NextItem());
        if (got != n) mC.FailAt(at, wrong);
    }
    TextCursor& mC;
};

class TextReader {
public:
    TextReader(const uint8_t* data, size_t size, int version, const Progress& progress)
        : mC(data, size), mVersion(version), mProgress(progress) {}

    void Document(FlatDocument& doc) {
        std::string key;
        bool qdx = false, version = false, objects = false, connections = false;
        if (mC.BeginObject(key)) do {
                const size_t at = mC.Pos();
                if (key == "qdx") {
                    if (ReadString(mC) != "text") mC.FailAt(at, "not a Qdx text file");
                    qdx = true;
                } else if (key == "version") {
                    if (mC.Integer(0, 1000) != mVersion) mC.FailAt(at, "the version changed");
                    version = true;
                } else if (key == "objects") {
                    Objects(doc);
                    objects = true;
                } else if (key == "connections") {
                    Connections(doc);
                    connections = true;
                } else {
                    mC.Skip();
                }
            } while (mC.NextMember(key));
        mC.ExpectEnd();
        Require(0, qdx, "qdx");
        Require(0, version, "version");
        Require(0, objects, "objects");
        Require(0, connections, "connections");
    }

private:
    void Require(size_t at, bool present, const char* key) const {
        if (!present) mC.FailAt(at, std::string("missing '") + key + "'");
    }
    void ExpectList(const char* what) {
        if (mC.Peek() != '[') mC.Fail(std::string("'") + what + "' is not a list");
    }
    // A list member: its items, each read in place by read.
    template <class T, class F> void ListOf(const char* what, std::vector<T>& out, const F& read) {
        ExpectList(what);
        out.clear();
        if (mC.BeginList()) do {
                out.emplace_back();
                read(out.back());
            } while (mC.NextItem());
    }
    // Hands the pages of the input read so far back to the system.
    void Release(size_t upTo) {
        if (upTo > mReleased && upTo - mReleased >= kReleaseStep) {
            ReleaseMappedBytes(mC.Data() + mReleased, upTo - mReleased);
            mReleased = upTo;
        }
    }

    void Objects(FlatDocument& doc) {
        ListOf("objects", doc.objects, [&](FlatObject& o) {
            Object(o);
            if (mProgress)
                mProgress(static_cast<double>(mC.Pos()) / static_cast<double>(mC.Size()));
        });
    }

    void Object(FlatObject& f) {
        const size_t at = mC.At();
        if (mC.Peek() != '{') mC.Fail("an object is not a JSON object");
        std::string key;
        bool cls = false, name = false, properties = false, arrays = false;
        if (mC.BeginObject(key)) do {
                if (key == "class") {
                    f.className = ReadString(mC);
                    cls = true;
                } else if (key == "name") {
                    f.name = ReadString(mC);
                    name = true;
                } else if (key == "properties") {
                    ListOf("properties", f.properties, [&](FlatProperty& p) { Property(p); });
                    properties = true;
                } else if (key == "arrays") {
                    ListOf("arrays", f.arrays, [&](FlatArray& a) { Array(a); });
                    arrays = true;
                } else {
                    mC.Skip();
                }
            } while (mC.NextMember(key));
        Require(at, cls, "class");
        Require(at, name, "name");
        Require(at, properties, "properties");
        Require(at, arrays, "arrays");
    }

    void Property(FlatProperty& fp) {
        const size_t at = mC.At();
        if (mC.Peek() != '{') mC.Fail("a property is not a JSON object");
        std::string key;
        bool name = false, type = false, flags = false, value = false;
        TextCursor::Mark valueAt;
        if (mC.BeginObject(key)) do {
                if (key == "name") {
                    fp.name = ReadString(mC);
                    name = true;
                } else if (key == "label") {
                    fp.label = ReadString(mC);
                } else if (key == "type") {
                    fp.type = ReadString(mC);
                    type = true;
                } else if (key == "flags") {
                    fp.flags = static_cast<uint32_t>(mC.Integer(0, UINT32_MAX));
                    flags = true;
                } else if (key == "enum") {
                    ListOf("enum", fp.enumItems, [&](std::string& e) { e = ReadString(mC); });
                } else if (key == "value") {
                    // Read once the type is known, which may come later.
                    mC.Peek();
                    valueAt = mC.Here();
                    value = true;
                    mC.Skip();
                } else {
                    mC.Skip();
                }
            } while (mC.NextMember(key));
        Require(at, name, "name");
        Require(at, type, "type");
        Require(at, flags, "flags");
        Require(at, value, "value");
        QdxDataType t = QdxDataType::FromName(fp.type.c_str());
        if (!t.Valid()) mC.FailAt(at, "property '" + fp.name + "' has an unknown type");
        const TextCursor::Mark end = mC.Here();
        mC.Seek(valueAt);
        ValueParser parser(mC);
        if (!detail::ValueTypeOf(t.GetType()).read(parser, fp.value))
            mC.Fail("property '" + fp.name + "' has a bad value");
        mC.Seek(end);
    }

    void Array(FlatArray& a) {
        const size_t at = mC.At();
        if (mC.Peek() != '{') mC.Fail("an array is not a JSON object");
        std::string key;
        bool name = false, kind = false, checksum = false, parsed = false;
        long long count = -1, crc = 0;
        enum class Form { None, Numbers, Base64 } form = Form::None;
        TextCursor::Mark dataAt;
        if (mC.BeginObject(key)) do {
                const size_t valueAt = mC.At();
                if (key == "name") {
                    a.name = ReadString(mC);
                    name = true;
                } else if (key == "kind") {
                    if (!KindFromName(ReadString(mC), a.kind))
                        mC.FailAt(valueAt, "array '" + a.name + "' has an unknown kind");
                    a.owned.kind = a.kind;
                    kind = true;
                } else if (key == "count") {
                    count = mC.Integer(0, INT64_MAX);
                } else if (key == "crc32") {
                    crc = mC.Integer(0, UINT32_MAX);
                    checksum = true;
                } else if (key == "data" || key == "b64") {
                    const bool b64 = key == "b64";
                    if (b64 && mVersion < 3)
                        mC.Fail("array '" + a.name + "' uses base64 before version 3");
                    if (form != Form::None)
                        mC.Fail("array '" + a.name + "' holds both data and b64");
                    form = b64 ? Form::Base64 : Form::Numbers;
                    if (kind && count >= 0) {
                        Data(a, form == Form::Base64, static_cast<uint64_t>(count));
                        parsed = true;
                    } else {
                        dataAt = mC.Here();
                        mC.Skip();
                    }
                } else {
                    mC.Skip();
                }
            } while (mC.NextMember(key));
        Require(at, name, "name");
        Require(at, kind, "kind");
        Require(at, count >= 0, "count");
        Require(at, form != Form::None, "data");
        if (!parsed) {
            const TextCursor::Mark end = mC.Here();
            mC.Seek(dataAt);
            Data(a, form == Form::Base64, static_cast<uint64_t>(count));
            mC.Seek(end);
        }
        if (mVersion >= 2) {
            Require(at, checksum, "crc32");
            const size_t bytes = a.owned.Count() * detail::ArrayElementSize(a.kind);
            if (Crc32(a.owned.Data(), bytes) != static_cast<uint32_t>(crc))
                mC.FailAt(at, "array '" + a.name + "' fails its checksum");
        }
        Release(mC.Pos());
    }

    void Data(FlatArray& a, bool b64, uint64_t count) {
        if (b64) return Base64(a, count);
        switch (a.kind) {
        case detail::ArrayKind::Int32:
            return Numbers(a, a.owned.Elements<int32_t>(), count,
                           [&] { return static_cast<int32_t>(mC.Integer(INT32_MIN, INT32_MAX)); });
        case detail::ArrayKind::Int64:
            return Numbers(a, a.owned.Elements<int64_t>(), count,
                           [&] { return static_cast<int64_t>(mC.Integer(INT64_MIN, INT64_MAX)); });
        case detail::ArrayKind::Double:
            return Numbers(a, a.owned.Elements<double>(), count, [&] { return ReadDouble(mC); });
        case detail::ArrayKind::UInt8:
            return Numbers(a, a.owned.Elements<uint8_t>(), count,
                           [&] { return static_cast<uint8_t>(mC.Integer(0, 255)); });
        }
    }

    // A list of count numbers, parsed into out as they are read.
    template <class T, class F>
    void Numbers(const FlatArray& a, std::vector<T>& out, uint64_t count, const F& item) {
        const size_t at = mC.At();
        if (mC.Peek() != '[') mC.Fail("array '" + a.name + "' has data that is not a list");
        const std::string wrong =
            "array '" + a.name + "' has the wrong count: " + std::to_string(count) + " declared";
        // Every item takes at least two bytes of text ("0,"): a count the
        // rest of the text cannot hold is refused before anything is reserved.
        if (count > (mC.Size() - at) / 2) mC.FailAt(at, wrong + ", more than the text holds");
        out.clear();
        out.reserve(static_cast<size_t>(count));
        if (mC.BeginList()) do {
                if (out.size() == count) mC.Fail(wrong + ", more found");
                out.push_back(item());
                Release(mC.Pos());
            } while (mC.NextItem());
        if (out.size() != count)
            mC.FailAt(at, wrong + ", " + std::to_string(out.size()) + " found");
    }

    // A base64 string of count elements, decoded into the array.
    void Base64(FlatArray& a, uint64_t count) {
        const size_t at = mC.At();
        if (mC.Peek() != '"') mC.Fail("array '" + a.name + "' has bad base64 data");
        const TextCursor::Mark start = mC.Here();
        const std::string_view raw = mC.RawString();
        Base64Fault fault = DecodeBase64(a, count, raw, at + 1);
        if (!fault.why) return;
        if (std::memchr(raw.data(), '\\', raw.size())) {
            // Escapes are never written but are valid text: decode the string
            // they stand for (a fault is then placed at the string's start).
            mC.Seek(start);
            std::string unescaped;
            mC.String(unescaped);
            fault = DecodeBase64(a, count, unescaped, std::string_view::npos);
            if (!fault.why) return;
            fault.pos = 0;
        }
        mC.FailAt(at + 1 + fault.pos, "array '" + a.name + "' " + fault.why);
    }

    struct Base64Fault {
        const char* why = nullptr; // null: decoded
        size_t pos = 0;            // offset in the string
    };
    // Decodes s into count elements of the array; textAt is where s starts in
    // the text (npos when it is a copy), so that read input can be released.
    Base64Fault DecodeBase64(FlatArray& a, uint64_t count, std::string_view s, size_t textAt) {
        const size_t elem = detail::ArrayElementSize(a.kind);
        // Four characters hold three bytes; the last group may be padded.
        if (count > s.size() || s.size() % 4 || s.size() / 4 * 3 < count * elem ||
            s.size() / 4 * 3 > count * elem + 2)
            return {"has base64 data of the wrong length", 0};
        const size_t bytes = static_cast<size_t>(count) * elem;
        uint8_t* out = static_cast<uint8_t*>(a.owned.Resize(static_cast<size_t>(count)));
        const uint8_t* in = reinterpret_cast<const uint8_t*>(s.data());
        const size_t quads = s.size() / 4;
        const auto& t = kBase64Table.shifted;
        size_t q = 0;
        // All groups but the last: three bytes each, stored as four with the
        // fourth overwritten by the next group (the last group's bytes follow,
        // so the store stays inside the array).
        while (q + 1 < quads) {
            const size_t stop = std::min(quads - 1, q + (kReleaseStep / 4));
            for (; q < stop; ++q) {
                const uint8_t* p = in + 4 * q;
                const uint32_t v = t[0][p[0]] | t[1][p[1]] | t[2][p[2]] | t[3][p[3]];
                if (v & kBase64Bad) return {"has a bad base64 character", 4 * q};
                const uint8_t b[4] = {static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
                                      static_cast<uint8_t>(v), 0};
                std::memcpy(out + 3 * q, b, 4);
            }
            if (textAt != std::string_view::npos) Release(textAt + 4 * q);
        }
        if (quads > 0) {
            // The last group: '=' may pad its third and fourth characters.
            uint32_t v = 0;
            for (size_t k = 0; k < 4; ++k) {
                const uint8_t ch = in[4 * q + k];
                const uint32_t d = ch == '=' && k >= 2 ? 0 : t[k][ch];
                if (d & kBase64Bad) return {"has a bad base64 character", 4 * q + k};
                v |= d;
            }
            for (size_t k = 0, o = 3 * q; k < 3 && o < bytes; ++k, ++o)
                out[o] = static_cast<uint8_t>(v >> (16 - 8 * k));
        }
        return {};
    }

    void Connections(FlatDocument& doc) {
        ExpectList("connections");
        doc.connections.clear();
        if (mC.BeginList()) do {
                const size_t at = mC.At();
                const char* shape = "a connection is not [src, dst, property]";
                if (mC.Peek() != '[') mC.Fail(shape);
                FlatConnection k;
                int n = 0;
                if (mC.BeginList()) do {
                        if (n == 0)
                            k.src = static_cast<uint32_t>(mC.Integer(0, UINT32_MAX));
                        else if (n == 1)
                            k.dst = static_cast<uint32_t>(mC.Integer(0, UINT32_MAX));
                        else if (n == 2)
                            k.property = ReadString(mC);
                        else
                            mC.FailAt(at, shape);
                        ++n;
                    } while (mC.NextItem());
                if (n < 2) mC.FailAt(at, shape);
                if (n == 3 && k.property.empty())
                    mC.FailAt(at, "a connection names an empty property");
                doc.connections.push_back(std::move(k));
            } while (mC.NextItem());
    }

    TextCursor mC;
    int mVersion;
    const Progress& mProgress;
    size_t mReleased = 0; // input before this offset has been handed back
};
} // namespace

bool IsText(const uint8_t* data, size_t size) {
    size_t i = 0;
    auto ws = [&] {
        while (i < size &&
               (data[i] == ' ' || data[i] == '\n' || data[i] == '\r' || data[i] == '\t'))
            ++i;
    };
    ws();
    if (i >= size || data[i] != '{') return false;
    ++i;
    ws();
    return size - i >= 5 && std::memcmp(data + i, "\"qdx\"", 5) == 0;
}

bool ReadTextVersion(const uint8_t* data, size_t size, int& version, QdxStatus& status) {
    if (!IsText(data, size)) {
        status.SetCode(QdxStatus::eInvalidFile, "Not a text Qdx file");
        return false;
    }
    std::string head(reinterpret_cast<const char*>(data), std::min<size_t>(size, 256));
    size_t at = head.find("\"version\"");
    if (at == std::string::npos) {
        status.SetCode(QdxStatus::eInvalidFile, "The text file names no version");
        return false;
    }
    at = head.find(':', at);
    int v = 0;
    size_t p = at == std::string::npos ? head.size() : at + 1;
    while (p < head.size() && head[p] == ' ')
        ++p;
    auto r = std::from_chars(head.data() + p, head.data() + head.size(), v);
    if (r.ec != std::errc() || v < kOldestVersion || v > kNewestVersion) {
        status.SetCode(QdxStatus::eInvalidFileVersion, "Unsupported text file version");
        return false;
    }
    version = v;
    return true;
}

bool ReadText(const uint8_t* data, size_t size, FlatDocument& doc, QdxStatus& status,
              const Progress& progress) {
    doc = FlatDocument();
    if (!ReadTextVersion(data, size, doc.version, status)) return false;
    try {
        TextReader reader(data, size, doc.version, progress);
        reader.Document(doc);
    } catch (const TextError& e) {
        doc = FlatDocument();
        status.SetCode(QdxStatus::eInvalidFile, "Bad text file: " + e.why);
        return false;
    } catch (const std::bad_alloc&) {
        doc = FlatDocument();
        status.SetCode(QdxStatus::eInsufficientMemory, "Out of memory reading the text file");
        return false;
    } catch (const std::exception& e) {
        doc = FlatDocument();
        status.SetCode(QdxStatus::eInvalidFile, std::string("Bad text file: ") + e.what());
        return false;
    }
    status.Clear();
    return true;
}

// ---------------------------------------------------------------- descriptor

namespace {
const char* const kSuffixes[] = {"qdx", nullptr};
} // namespace

extern const FormatDescriptor kQdxTextFormat;
const FormatDescriptor kQdxTextFormat = {
    .description = "Qdx ascii (*.qdx)",
    .name = "ascii",
    .suffixes = kSuffixes,
    .binary = false,
    .versions = kQdxVersions,
    .versionNumbers = kQdxVersionNumbers,
    .detect = IsText,
    .readVersion = ReadTextVersion,
    .read = ReadDocument<ReadText>,
    .write = WriteDocument<WriteText>,
};

} // namespace qdxsdk::format
