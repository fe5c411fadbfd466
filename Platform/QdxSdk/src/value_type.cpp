// The value-type table.
#include "value_type.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include <nlohmann/json.hpp>

namespace qdxsdk::detail {

namespace {
// Text of one number, the shortest that reads back to the same value.
template <class N> std::string NumberText(N v) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

// A number that fills the whole of [first, last), blanks around it allowed.
template <class N> bool ParseNumber(const char* first, const char* last, N& v) {
    while (first < last && *first == ' ')
        ++first;
    while (last > first && last[-1] == ' ')
        --last;
    N x{};
    auto r = std::from_chars(first, last, x);
    if (r.ec != std::errc() || r.ptr != last || first == last) return false;
    v = x;
    return true;
}

// Components joined with ",".
std::string DoublesText(const double* v, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        if (i) text += ',';
        text += NumberText(v[i]);
    }
    return text;
}

bool ParseDoubles(const std::string& text, double* out, int count) {
    double parsed[16];
    const char* p = text.c_str();
    const char* end = p + text.size();
    for (int i = 0; i < count; ++i) {
        const char* comma =
            i + 1 < count
                ? static_cast<const char*>(std::memchr(p, ',', static_cast<size_t>(end - p)))
                : end;
        if (!comma || !ParseNumber(p, comma, parsed[i])) return false;
        p = comma + 1;
    }
    std::copy(parsed, parsed + count, out);
    return true;
}

// How one storage alternative is written, read, seen as doubles and as
// text. Every text reads back to the value it was made from.
template <class T> struct Storage;

template <> struct Storage<std::monostate> {
    static constexpr int kComponents = 0;
    static void Write(const std::monostate&, ValueWriter& w) { w.Null(); }
    static bool Read(ValueReader& r, std::monostate&) { return r.Null(); }
    static std::string Text(const std::monostate&) { return std::string(); }
    static bool Parse(const std::string& text, std::monostate&) { return text.empty(); }
};
template <> struct Storage<bool> {
    static constexpr int kComponents = 1;
    static void Write(const bool& v, ValueWriter& w) { w.Bool(v); }
    static bool Read(ValueReader& r, bool& v) { return r.Bool(v); }
    static std::string Text(const bool& v) { return v ? "true" : "false"; }
    static bool Parse(const std::string& text, bool& v) {
        if (text != "true" && text != "false" && text != "1" && text != "0") return false;
        v = text == "true" || text == "1";
        return true;
    }
};
template <class N> struct NumberStorage {
    static std::string Text(const N& v) { return NumberText(v); }
    static bool Parse(const std::string& text, N& v) {
        return ParseNumber(text.data(), text.data() + text.size(), v);
    }
};
template <> struct Storage<int> : NumberStorage<int> {
    static constexpr int kComponents = 1;
    static void Write(const int& v, ValueWriter& w) { w.Int32(v); }
    static bool Read(ValueReader& r, int& v) { return r.Int32(v); }
};
template <> struct Storage<long long> : NumberStorage<long long> {
    static constexpr int kComponents = 1;
    static void Write(const long long& v, ValueWriter& w) { w.Int64(v); }
    static bool Read(ValueReader& r, long long& v) {
        int64_t x = 0;
        if (!r.Int64(x)) return false;
        v = x;
        return true;
    }
};
template <> struct Storage<float> : NumberStorage<float> {
    static constexpr int kComponents = 1;
    static void Write(const float& v, ValueWriter& w) { w.Float(v); }
    static bool Read(ValueReader& r, float& v) { return r.Float(v); }
};
template <> struct Storage<double> : NumberStorage<double> {
    static constexpr int kComponents = 1;
    static void Write(const double& v, ValueWriter& w) { w.Double(v); }
    static bool Read(ValueReader& r, double& v) { return r.Double(v); }
};
template <class V, int N, int Components> struct DoublesStorage {
    static constexpr int kComponents = Components;
    static const double* Data(const V& v) { return v.Buffer(); }
    static double* Data(V& v) { return v.Buffer(); }
    static void Write(const V& v, ValueWriter& w) { w.Doubles(Data(v), N); }
    static bool Read(ValueReader& r, V& v) { return r.Doubles(Data(v), N); }
    static std::string Text(const V& v) { return DoublesText(Data(v), N); }
    static bool Parse(const std::string& text, V& v) { return ParseDoubles(text, Data(v), N); }
};
template <> struct Storage<QdxDouble2> : DoublesStorage<QdxDouble2, 2, 2> {};
template <> struct Storage<QdxDouble3> : DoublesStorage<QdxDouble3, 3, 3> {};
template <> struct Storage<QdxDouble4> : DoublesStorage<QdxDouble4, 4, 4> {};
template <> struct Storage<QdxAMatrix> {
    static constexpr int kComponents = 0;
    static void Write(const QdxAMatrix& v, ValueWriter& w) { w.Doubles(&v.m[0][0], 16); }
    static bool Read(ValueReader& r, QdxAMatrix& v) { return r.Doubles(&v.m[0][0], 16); }
    // Sixteen components, row by row.
    static std::string Text(const QdxAMatrix& v) { return DoublesText(&v.m[0][0], 16); }
    static bool Parse(const std::string& text, QdxAMatrix& v) {
        return ParseDoubles(text, &v.m[0][0], 16);
    }
};
template <> struct Storage<std::string> {
    static constexpr int kComponents = 0;
    static void Write(const std::string& v, ValueWriter& w) { w.String(v); }
    static bool Read(ValueReader& r, std::string& v) { return r.String(v); }
    static std::string Text(const std::string& v) { return v; }
    static bool Parse(const std::string& text, std::string& v) {
        v = text;
        return true;
    }
};
template <> struct Storage<std::vector<std::string>> {
    static constexpr int kComponents = 0;
    static void Write(const std::vector<std::string>& v, ValueWriter& w) { w.Strings(v); }
    static bool Read(ValueReader& r, std::vector<std::string>& v) { return r.Strings(v); }
    // A JSON array of strings, so that any item text survives.
    static std::string Text(const std::vector<std::string>& v) {
        return nlohmann::json(v).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    static bool Parse(const std::string& text, std::vector<std::string>& v) {
        nlohmann::json j = nlohmann::json::parse(text, nullptr, false);
        if (!j.is_array()) return false;
        std::vector<std::string> items;
        for (const auto& item : j) {
            if (!item.is_string()) return false;
            items.push_back(item.get<std::string>());
        }
        v = std::move(items);
        return true;
    }
};
// Year, month, day, hour, minute, second, millisecond. A value without a
// date writes -1 as year, month and day, one without a time -1 as its four
// time fields; an unset value (and any value with zeros as its date, as
// older files hold it) is all zeros.
template <> struct Storage<QdxDateTime> {
    static constexpr int kComponents = 0;
    static void Write(const QdxDateTime& d, ValueWriter& w) {
        int32_t f[7] = {0, 0, 0, 0, 0, 0, 0};
        if (d.hasDate() || d.hasTime()) {
            const int32_t date[3] = {d.year(), d.month(), d.day()};
            const int32_t time[4] = {d.hour(), d.minute(), d.second(), d.millisecond()};
            for (int i = 0; i < 3; ++i)
                f[i] = d.hasDate() ? date[i] : -1;
            for (int i = 0; i < 4; ++i)
                f[3 + i] = d.hasTime() ? time[i] : -1;
        }
        w.Int32s(f, 7);
    }
    static bool Read(ValueReader& r, QdxDateTime& d) {
        int32_t f[7];
        if (!r.Int32s(f, 7)) return false;
        QdxDateTime x;
        const bool noDate = f[0] == -1 && f[1] == -1 && f[2] == -1;
        const bool unset = f[0] == 0 && f[1] == 0 && f[2] == 0;
        const bool noTime = f[3] == -1 && f[4] == -1 && f[5] == -1 && f[6] == -1;
        if (!unset) {
            if (!noDate) x.setDate(f[2], f[1], f[0]);
            if (!noTime) x.setTime(f[3], f[4], f[5], f[6]);
        }
        d = x;
        return true;
    }
    static std::string Text(const QdxDateTime& d) { return d.toString(); }
    static bool Parse(const std::string& text, QdxDateTime& d) {
        if (text.empty()) {
            d.clear();
            return true;
        }
        return d.fromString(text.c_str());
    }
};

template <class T> double ToDouble(const T& v) {
    if constexpr (std::is_same_v<T, bool>)
        return v ? 1.0 : 0.0;
    else
        return static_cast<double>(v);
}

template <size_t I> struct Ops {
    using T = std::variant_alternative_t<I, Value>;
    using S = Storage<T>;
    static Value Default() { return T(); }
    static void Write(const Value& v, ValueWriter& w) {
        if (const T* x = std::get_if<I>(&v)) S::Write(*x, w);
    }
    static bool Read(ValueReader& r, Value& v) {
        T x{};
        if (!S::Read(r, x)) return false;
        v.emplace<I>(std::move(x));
        return true;
    }
    static int ToDoubles(const Value& v, double* out) {
        const T* x = std::get_if<I>(&v);
        if (!x || S::kComponents == 0) return 0;
        if constexpr (S::kComponents == 1)
            out[0] = ToDouble(*x);
        else if constexpr (S::kComponents > 1)
            for (int i = 0; i < S::kComponents; ++i)
                out[i] = (*x)[i];
        return S::kComponents;
    }
    static std::string ToText(const Value& v) {
        const T* x = std::get_if<I>(&v);
        return x ? S::Text(*x) : std::string();
    }
    static bool FromText(const std::string& text, Value& v) {
        T* x = std::get_if<I>(&v);
        if (!x) return false;
        T parsed = *x;
        if (!S::Parse(text, parsed)) return false;
        *x = std::move(parsed);
        return true;
    }
    static void FromDoubles(Value& v, const double* in) {
        T* x = std::get_if<I>(&v);
        if (!x) return;
        if constexpr (std::is_same_v<T, bool>)
            *x = in[0] != 0.0;
        else if constexpr (S::kComponents == 1)
            *x = static_cast<T>(in[0]);
        else if constexpr (S::kComponents > 1)
            for (int i = 0; i < S::kComponents; ++i)
                (*x)[i] = in[i];
    }
};

template <size_t I> constexpr ValueType Entry(EQdxType type, const char* name, bool scales) {
    return {type,
            name,
            I,
            Ops<I>::S::kComponents,
            scales,
            Ops<I>::Default,
            Ops<I>::Write,
            Ops<I>::Read,
            Ops<I>::ToDoubles,
            Ops<I>::FromDoubles,
            Ops<I>::ToText,
            Ops<I>::FromText};
}

template <class T> constexpr size_t Alt() {
    constexpr size_t n = std::variant_size_v<Value>;
    size_t i = 0;
    [&]<size_t... K>(std::index_sequence<K...>) {
        (void)((std::is_same_v<T, std::variant_alternative_t<K, Value>> ? (i = K, true) : false) ||
               ...);
    }
    (std::make_index_sequence<n>());
    return i;
}

// In type-code order; the numbers of the codes are part of the file formats.
constexpr ValueType kTypes[] = {
    Entry<Alt<std::monostate>()>(eQdxUndefined, "", false),
    Entry<Alt<bool>()>(eQdxBool, "Bool", false),
    Entry<Alt<int>()>(eQdxInt, "Int", false),
    Entry<Alt<float>()>(eQdxFloat, "Float", true),
    Entry<Alt<double>()>(eQdxDouble, "Double", true),
    Entry<Alt<QdxDouble2>()>(eQdxDouble2, "Double2", false),
    Entry<Alt<QdxDouble3>()>(eQdxDouble3, "Double3", true),
    Entry<Alt<QdxDouble4>()>(eQdxDouble4, "Double4", false),
    Entry<Alt<QdxAMatrix>()>(eQdxDouble4x4, "Matrix", false),
    Entry<Alt<std::string>()>(eQdxString, "String", false),
    Entry<Alt<std::vector<std::string>>()>(eQdxStringList, "StringList", false),
    Entry<Alt<QdxDateTime>()>(eQdxDateTime, "DateTime", false),
    Entry<Alt<long long>()>(eQdxLongLong, "LongLong", false),
    Entry<Alt<int>()>(eQdxEnum, "Enum", false),
    Entry<Alt<long long>()>(eQdxTime, "Time", false),
    Entry<Alt<std::monostate>()>(eQdxReference, "Reference", false),
};
static_assert(std::size(kTypes) == eQdxTypeCount, "one entry per type code");

constexpr bool CodesInOrder() {
    for (size_t i = 0; i < std::size(kTypes); ++i)
        if (kTypes[i].type != static_cast<EQdxType>(i)) return false;
    return true;
}
static_assert(CodesInOrder(), "entries are indexed by type code");

// The first type code of each storage alternative.
constexpr std::array<size_t, std::variant_size_v<Value>> ByStorage() {
    std::array<size_t, std::variant_size_v<Value>> first{};
    std::array<bool, std::variant_size_v<Value>> seen{};
    for (size_t i = 0; i < std::size(kTypes); ++i)
        if (!seen[kTypes[i].storage]) {
            seen[kTypes[i].storage] = true;
            first[kTypes[i].storage] = i;
        }
    return first;
}
constexpr auto kByStorage = ByStorage();
} // namespace

const ValueType& ValueTypeOf(EQdxType type) {
    int i = static_cast<int>(type);
    return kTypes[i >= 0 && i < eQdxTypeCount ? i : 0];
}

const ValueType& ValueTypeOf(const Value& value) {
    return kTypes[kByStorage[value.index()]];
}

std::string ValueToText(const Value& value) {
    return ValueTypeOf(value).toText(value);
}

bool ValueFromText(Value& value, const std::string& text) {
    return ValueTypeOf(value).fromText(text, value);
}

} // namespace qdxsdk::detail
