// The value-type table.
#include "value_type.h"

#include <array>

namespace qdxsdk::detail {

namespace {
// How one storage alternative is written, read and seen as doubles.
template <class T> struct Storage;

template <> struct Storage<std::monostate> {
    static constexpr int kComponents = 0;
    static void Write(const std::monostate&, ValueWriter& w) { w.Null(); }
    static bool Read(ValueReader& r, std::monostate&) { return r.Null(); }
};
template <> struct Storage<bool> {
    static constexpr int kComponents = 1;
    static void Write(const bool& v, ValueWriter& w) { w.Bool(v); }
    static bool Read(ValueReader& r, bool& v) { return r.Bool(v); }
};
template <> struct Storage<int> {
    static constexpr int kComponents = 1;
    static void Write(const int& v, ValueWriter& w) { w.Int32(v); }
    static bool Read(ValueReader& r, int& v) { return r.Int32(v); }
};
template <> struct Storage<long long> {
    static constexpr int kComponents = 1;
    static void Write(const long long& v, ValueWriter& w) { w.Int64(v); }
    static bool Read(ValueReader& r, long long& v) {
        int64_t x = 0;
        if (!r.Int64(x)) return false;
        v = x;
        return true;
    }
};
template <> struct Storage<float> {
    static constexpr int kComponents = 1;
    static void Write(const float& v, ValueWriter& w) { w.Float(v); }
    static bool Read(ValueReader& r, float& v) { return r.Float(v); }
};
template <> struct Storage<double> {
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
};
template <> struct Storage<QdxDouble2> : DoublesStorage<QdxDouble2, 2, 2> {};
template <> struct Storage<QdxDouble3> : DoublesStorage<QdxDouble3, 3, 3> {};
template <> struct Storage<QdxDouble4> : DoublesStorage<QdxDouble4, 4, 4> {};
template <> struct Storage<QdxAMatrix> {
    static constexpr int kComponents = 0;
    static void Write(const QdxAMatrix& v, ValueWriter& w) { w.Doubles(&v.m[0][0], 16); }
    static bool Read(ValueReader& r, QdxAMatrix& v) { return r.Doubles(&v.m[0][0], 16); }
};
template <> struct Storage<std::string> {
    static constexpr int kComponents = 0;
    static void Write(const std::string& v, ValueWriter& w) { w.String(v); }
    static bool Read(ValueReader& r, std::string& v) { return r.String(v); }
};
template <> struct Storage<std::vector<std::string>> {
    static constexpr int kComponents = 0;
    static void Write(const std::vector<std::string>& v, ValueWriter& w) { w.Strings(v); }
    static bool Read(ValueReader& r, std::vector<std::string>& v) { return r.Strings(v); }
};
// Year, month, day, hour, minute, second, millisecond.
template <> struct Storage<QdxDateTime> {
    static constexpr int kComponents = 0;
    static void Write(const QdxDateTime& d, ValueWriter& w) {
        const int32_t f[7] = {d.year(),   d.month(),  d.day(),        d.hour(),
                              d.minute(), d.second(), d.millisecond()};
        w.Int32s(f, 7);
    }
    static bool Read(ValueReader& r, QdxDateTime& d) {
        int32_t f[7];
        if (!r.Int32s(f, 7)) return false;
        d = QdxDateTime(f[2], f[1], f[0], f[3], f[4], f[5], f[6]);
        return true;
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
            Ops<I>::FromDoubles};
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

} // namespace qdxsdk::detail
