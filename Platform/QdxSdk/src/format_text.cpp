// The text flavour: JSON with every number written so that it reads back
// bit-exactly (shortest round-trip decimal; non-finite doubles as their bit
// pattern in hex).
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "format_descriptor.h"

namespace qdxsdk::format {

namespace {
constexpr size_t kBase64Min = 64; // version 3 stores arrays this long as base64
constexpr int kMaxDepth = 32;

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

bool ValidUtf8(const std::string& s) {
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

class Emitter {
public:
    explicit Emitter(const Sink& sink) : mSink(sink) {}
    void Raw(const char* s, size_t n) {
        mBuf.append(s, n);
        if (mBuf.size() > (1u << 20)) Flush();
    }
    void Raw(const char* s) { Raw(s, std::strlen(s)); }
    void Str(const std::string& s) {
        if (!ValidUtf8(s)) {
            Raw("{\"hex\":\"");
            static const char* hex = "0123456789abcdef";
            for (unsigned char c : s) {
                char h[2] = {hex[c >> 4], hex[c & 15]};
                Raw(h, 2);
            }
            Raw("\"}");
            return;
        }
        Raw("\"");
        for (char ch : s) {
            unsigned char c = static_cast<unsigned char>(ch);
            if (c == '"')
                Raw("\\\"");
            else if (c == '\\')
                Raw("\\\\");
            else if (c < 0x20) {
                char u[8];
                std::snprintf(u, sizeof u, "\\u%04x", c);
                Raw(u);
            } else
                Raw(&ch, 1);
        }
        Raw("\"");
    }
    void Int(long long v) {
        char b[32];
        auto r = std::to_chars(b, b + sizeof b, v);
        Raw(b, static_cast<size_t>(r.ptr - b));
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
        char b[64];
        auto r = std::to_chars(b, b + sizeof b, v);
        Raw(b, static_cast<size_t>(r.ptr - b));
    }
    void Base64(const uint8_t* p, size_t n) {
        Raw("\"");
        char q[4];
        for (size_t i = 0; i < n; i += 3) {
            uint32_t v = static_cast<uint32_t>(p[i]) << 16;
            if (i + 1 < n) v |= static_cast<uint32_t>(p[i + 1]) << 8;
            if (i + 2 < n) v |= p[i + 2];
            q[0] = kB64[(v >> 18) & 63];
            q[1] = kB64[(v >> 12) & 63];
            q[2] = i + 1 < n ? kB64[(v >> 6) & 63] : '=';
            q[3] = i + 2 < n ? kB64[v & 63] : '=';
            Raw(q, 4);
        }
        Raw("\"");
    }
    bool Flush() {
        mOk = mOk && mSink(mBuf.data(), mBuf.size());
        mBuf.clear();
        return mOk;
    }

private:
    const Sink& mSink;
    std::string mBuf;
    bool mOk = true;
};

void EmitValue(Emitter& e, const detail::Value& v) {
    switch (v.index()) {
    case 0:
        e.Raw("null");
        break;
    case 1:
        e.Raw(std::get<bool>(v) ? "true" : "false");
        break;
    case 2:
        e.Int(std::get<int>(v));
        break;
    case 3:
        e.Double(static_cast<double>(std::get<float>(v)));
        break;
    case 4:
        e.Double(std::get<double>(v));
        break;
    case 5:
    case 6:
    case 7:
    case 8: {
        const double* d = v.index() == 5   ? std::get<QdxDouble2>(v).Buffer()
                          : v.index() == 6 ? std::get<QdxDouble3>(v).Buffer()
                          : v.index() == 7 ? std::get<QdxDouble4>(v).Buffer()
                                           : &std::get<QdxAMatrix>(v).m[0][0];
        int n = v.index() == 5 ? 2 : v.index() == 6 ? 3 : v.index() == 7 ? 4 : 16;
        e.Raw("[");
        for (int i = 0; i < n; ++i) {
            if (i) e.Raw(",");
            e.Double(d[i]);
        }
        e.Raw("]");
        break;
    }
    case 9:
        e.Str(std::get<std::string>(v));
        break;
    case 10: {
        e.Raw("[");
        bool first = true;
        for (const auto& s : std::get<std::vector<std::string>>(v)) {
            if (!first) e.Raw(",");
            first = false;
            e.Str(s);
        }
        e.Raw("]");
        break;
    }
    case 11: {
        const QdxDateTime& d = std::get<QdxDateTime>(v);
        e.Raw("[");
        int f[7] = {d.year(),   d.month(),  d.day(),        d.hour(),
                    d.minute(), d.second(), d.millisecond()};
        for (int i = 0; i < 7; ++i) {
            if (i) e.Raw(",");
            e.Int(f[i]);
        }
        e.Raw("]");
        break;
    }
    case 12:
        e.Int(std::get<long long>(v));
        break;
    }
}

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
            e.Int(rec.i32[i]);
            break;
        case detail::ArrayKind::Int64:
            e.Int(rec.i64[i]);
            break;
        case detail::ArrayKind::Double:
            e.Double(rec.f64[i]);
            break;
        case detail::ArrayKind::UInt8:
            e.Int(rec.u8[i]);
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
            EmitValue(e, p.value);
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

namespace {
using json = nlohmann::json;

struct BadText {
    std::string why;
};

[[noreturn]] void Bad(const std::string& why) {
    throw BadText{why};
}

const json& Member(const json& o, const char* key) {
    if (!o.is_object()) Bad(std::string("expected an object holding '") + key + "'");
    auto it = o.find(key);
    if (it == o.end()) Bad(std::string("missing '") + key + "'");
    return *it;
}

std::string String(const json& j) {
    if (j.is_string()) return j.get<std::string>();
    if (j.is_object() && j.size() == 1 && j.contains("hex") && j["hex"].is_string()) {
        const std::string& h = j["hex"].get_ref<const std::string&>();
        if (h.size() % 2) Bad("odd hex string");
        std::string out(h.size() / 2, '\0');
        for (size_t i = 0; i < out.size(); ++i) {
            unsigned v = 0;
            auto r = std::from_chars(h.data() + 2 * i, h.data() + 2 * i + 2, v, 16);
            if (r.ec != std::errc() || r.ptr != h.data() + 2 * i + 2) Bad("bad hex string");
            out[i] = static_cast<char>(v);
        }
        return out;
    }
    Bad("expected a string");
}

double Double(const json& j) {
    if (j.is_number()) return j.get<double>();
    if (j.is_string()) {
        const std::string& s = j.get_ref<const std::string&>();
        uint64_t bits = 0;
        if (s.size() == 18 && s[0] == '0' && s[1] == 'x') {
            auto r = std::from_chars(s.data() + 2, s.data() + s.size(), bits, 16);
            if (r.ec == std::errc() && r.ptr == s.data() + s.size()) {
                double d;
                std::memcpy(&d, &bits, 8);
                return d;
            }
        }
    }
    Bad("expected a number");
}

long long Integer(const json& j, long long lo, long long hi) {
    long long v;
    if (j.is_number_integer())
        v = j.get<long long>();
    else if (j.is_number_unsigned() &&
             j.get<unsigned long long>() <= static_cast<unsigned long long>(hi))
        v = static_cast<long long>(j.get<unsigned long long>());
    else
        Bad("expected an integer");
    if (v < lo || v > hi) Bad("an integer is out of range");
    return v;
}

void Doubles(const json& j, double* out, size_t n) {
    if (!j.is_array() || j.size() != n) Bad("expected " + std::to_string(n) + " numbers");
    for (size_t i = 0; i < n; ++i)
        out[i] = Double(j[i]);
}

detail::Value ParseValue(const json& j, size_t storage) {
    switch (storage) {
    case 0:
        if (!j.is_null()) Bad("expected null");
        return std::monostate();
    case 1:
        if (!j.is_boolean()) Bad("expected a boolean");
        return j.get<bool>();
    case 2:
        return static_cast<int>(Integer(j, INT32_MIN, INT32_MAX));
    case 3: {
        double d = Double(j);
        float f = static_cast<float>(d);
        if (std::isfinite(d) && static_cast<double>(f) != d) Bad("a float value is not a float");
        return f;
    }
    case 4:
        return Double(j);
    case 5: {
        QdxDouble2 d;
        Doubles(j, d.Buffer(), 2);
        return d;
    }
    case 6: {
        QdxDouble3 d;
        Doubles(j, d.Buffer(), 3);
        return d;
    }
    case 7: {
        QdxDouble4 d;
        Doubles(j, d.Buffer(), 4);
        return d;
    }
    case 8: {
        QdxAMatrix m;
        Doubles(j, &m.m[0][0], 16);
        return m;
    }
    case 9:
        return String(j);
    case 10: {
        if (!j.is_array()) Bad("expected a string list");
        std::vector<std::string> l;
        for (const json& s : j)
            l.push_back(String(s));
        return l;
    }
    case 11: {
        if (!j.is_array() || j.size() != 7) Bad("expected a date-time of 7 numbers");
        int f[7];
        for (int i = 0; i < 7; ++i)
            f[i] = static_cast<int>(Integer(j[static_cast<size_t>(i)], INT32_MIN, INT32_MAX));
        return QdxDateTime(f[2], f[1], f[0], f[3], f[4], f[5], f[6]);
    }
    case 12:
        return static_cast<long long>(Integer(j, INT64_MIN, INT64_MAX));
    }
    Bad("unknown value storage");
}

void DecodeBase64(const std::string& s, uint8_t* out, size_t expected) {
    if (s.size() % 4 || s.size() / 4 * 3 < expected || s.size() / 4 * 3 > expected + 2)
        Bad("base64 data has the wrong length");
    auto val = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    size_t o = 0;
    for (size_t i = 0; i < s.size(); i += 4) {
        uint32_t v = 0;
        for (int k = 0; k < 4; ++k) {
            char c = s[i + static_cast<size_t>(k)];
            int d = c == '=' && i + 4 == s.size() && k >= 2 ? 0 : val(c);
            if (d < 0) Bad("bad base64 character");
            v = (v << 6) | static_cast<uint32_t>(d);
        }
        for (int k = 0; k < 3 && o < expected; ++k)
            out[o++] = static_cast<uint8_t>(v >> (16 - 8 * k));
    }
}

void ParseArray(const json& j, FlatArray& a, int version) {
    a.name = String(Member(j, "name"));
    if (!KindFromName(String(Member(j, "kind")), a.kind))
        Bad("array '" + a.name + "' has an unknown kind");
    a.owned.kind = a.kind;
    long long count = Integer(Member(j, "count"), 0, INT64_MAX);
    size_t elem = detail::ArrayElementSize(a.kind);
    if (j.contains("b64")) {
        if (version < 3) Bad("array '" + a.name + "' uses base64 before version 3");
        const json& b = j["b64"];
        if (!b.is_string()) Bad("array '" + a.name + "' has bad base64 data");
        const std::string& s = b.get_ref<const std::string&>();
        if (static_cast<unsigned long long>(count) > s.size() / elem + 1)
            Bad("array '" + a.name + "' is longer than its data");
        void* dst = a.owned.Resize(static_cast<size_t>(count));
        DecodeBase64(s, static_cast<uint8_t*>(dst), static_cast<size_t>(count) * elem);
    } else {
        const json& d = Member(j, "data");
        if (!d.is_array() || d.size() != static_cast<size_t>(count))
            Bad("array '" + a.name + "' has the wrong count");
        a.owned.Resize(static_cast<size_t>(count));
        for (size_t i = 0; i < d.size(); ++i)
            switch (a.kind) {
            case detail::ArrayKind::Int32:
                a.owned.i32[i] = static_cast<int32_t>(Integer(d[i], INT32_MIN, INT32_MAX));
                break;
            case detail::ArrayKind::Int64:
                a.owned.i64[i] = Integer(d[i], INT64_MIN, INT64_MAX);
                break;
            case detail::ArrayKind::Double:
                a.owned.f64[i] = Double(d[i]);
                break;
            case detail::ArrayKind::UInt8:
                a.owned.u8[i] = static_cast<uint8_t>(Integer(d[i], 0, 255));
                break;
            }
    }
    if (version >= 2) {
        long long crc = Integer(Member(j, "crc32"), 0, UINT32_MAX);
        if (Crc32(a.owned.Data(), a.owned.Count() * elem) != static_cast<uint32_t>(crc))
            Bad("array '" + a.name + "' fails its checksum");
    }
}
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
        json::parser_callback_t limit = [](int depth, json::parse_event_t, json&) {
            if (depth > kMaxDepth) Bad("the text is nested too deeply");
            return true;
        };
        json root = json::parse(data, data + size, limit);
        if (progress) progress(0.5);
        if (String(Member(root, "qdx")) != "text") Bad("not a Qdx text file");
        if (Integer(Member(root, "version"), 0, 1000) != doc.version) Bad("the version changed");
        const json& objects = Member(root, "objects");
        if (!objects.is_array()) Bad("'objects' is not a list");
        doc.objects.resize(objects.size());
        for (size_t i = 0; i < objects.size(); ++i) {
            const json& o = objects[i];
            FlatObject& f = doc.objects[i];
            f.className = String(Member(o, "class"));
            f.name = String(Member(o, "name"));
            const json& props = Member(o, "properties");
            if (!props.is_array()) Bad("'properties' is not a list");
            for (const json& p : props) {
                FlatProperty fp;
                fp.name = String(Member(p, "name"));
                fp.label = p.contains("label") ? String(p["label"]) : std::string();
                fp.type = String(Member(p, "type"));
                fp.flags = static_cast<uint32_t>(Integer(Member(p, "flags"), 0, UINT32_MAX));
                if (p.contains("enum")) {
                    const json& e = p["enum"];
                    if (!e.is_array()) Bad("'enum' is not a list");
                    for (const json& s : e)
                        fp.enumItems.push_back(String(s));
                }
                QdxDataType t = QdxDataType::FromName(fp.type.c_str());
                if (!t.Valid()) Bad("property '" + fp.name + "' has an unknown type");
                fp.value = ParseValue(Member(p, "value"), detail::StorageIndex(t.GetType()));
                f.properties.push_back(std::move(fp));
            }
            const json& arrays = Member(o, "arrays");
            if (!arrays.is_array()) Bad("'arrays' is not a list");
            f.arrays.resize(arrays.size());
            for (size_t k = 0; k < arrays.size(); ++k)
                ParseArray(arrays[k], f.arrays[k], doc.version);
            if (progress)
                progress(0.5 +
                         0.5 * static_cast<double>(i + 1) / static_cast<double>(objects.size()));
        }
        const json& cons = Member(root, "connections");
        if (!cons.is_array()) Bad("'connections' is not a list");
        for (const json& c : cons) {
            if (!c.is_array() || c.size() < 2 || c.size() > 3)
                Bad("a connection is not [src, dst, property]");
            FlatConnection k;
            k.src = static_cast<uint32_t>(Integer(c[0], 0, UINT32_MAX));
            k.dst = static_cast<uint32_t>(Integer(c[1], 0, UINT32_MAX));
            if (c.size() == 3) {
                k.property = String(c[2]);
                if (k.property.empty()) Bad("a connection names an empty property");
            }
            doc.connections.push_back(std::move(k));
        }
    } catch (const BadText& e) {
        status.SetCode(QdxStatus::eInvalidFile, "Bad text file: " + e.why);
        return false;
    } catch (const std::bad_alloc&) {
        status.SetCode(QdxStatus::eInsufficientMemory, "Out of memory reading the text file");
        return false;
    } catch (const std::exception& e) {
        status.SetCode(QdxStatus::eInvalidFile, std::string("Bad text file: ") + e.what());
        return false;
    }
    status.Clear();
    return true;
}

// ---------------------------------------------------------------- descriptor

namespace {
const char* const kSuffixes[] = {"qdx", nullptr};

std::unique_ptr<Decoded> Read(const ReadInput& input, QdxStatus& status, const Progress& progress) {
    return DecodeDocument(input, status, progress, ReadText);
}

bool Write(QdxScene* scene, int version, const Sink& sink, QdxStatus& status,
           const Progress& progress) {
    return WriteDocument(scene, version, sink, status, progress, WriteText);
}
} // namespace

extern const FormatDescriptor kQdxTextFormat;
const FormatDescriptor kQdxTextFormat = {
    "Qdx ascii (*.qdx)", "ascii", kSuffixes,       false, kQdxVersions,
    kQdxVersionNumbers,  IsText,  ReadTextVersion, Read,  Write};

} // namespace qdxsdk::format
