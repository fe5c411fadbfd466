// Typed properties of objects, their data types and flags.
#pragma once

#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "qdxsdk/classid.h"
#include "qdxsdk/time.h"
#include "qdxsdk/types.h"

namespace qdxsdk {

class QdxObject;
class QdxAnimLayer;
class QdxAnimCurveNode;
class QdxAnimCurve;
class QdxAnimStack;

// Storage types of property values. Numbers are part of the file formats.
enum EQdxType {
    eQdxUndefined = 0,
    eQdxBool = 1,
    eQdxInt = 2,
    eQdxFloat = 3,
    eQdxDouble = 4,
    eQdxDouble2 = 5,
    eQdxDouble3 = 6,
    eQdxDouble4 = 7,
    eQdxDouble4x4 = 8,
    eQdxString = 9,
    eQdxStringList = 10,
    eQdxDateTime = 11,
    eQdxLongLong = 12,
    eQdxEnum = 13,
    eQdxTime = 14,
    eQdxReference = 15,
    eQdxTypeCount = 16
};

// A named data type over a storage type ("Color3" and "Double3" share one
// storage type but are different data types).
class QdxDataType {
public:
    constexpr QdxDataType() : mType(eQdxUndefined), mName("") {}
    constexpr QdxDataType(EQdxType type, const char* name) : mType(type), mName(name) {}
    EQdxType GetType() const { return mType; }
    const char* GetName() const { return mName; }
    bool Is(const QdxDataType& other) const;
    bool Valid() const { return mType != eQdxUndefined; }
    friend bool operator==(const QdxDataType& a, const QdxDataType& b) { return a.Is(b); }
    // The data type with this name, or an invalid one.
    static QdxDataType FromName(const char* name);

private:
    EQdxType mType;
    const char* mName;
};

extern const QdxDataType QdxUndefinedDT;
extern const QdxDataType QdxBoolDT;
extern const QdxDataType QdxIntDT;
extern const QdxDataType QdxFloatDT;
extern const QdxDataType QdxDoubleDT;
extern const QdxDataType QdxDouble2DT;
extern const QdxDataType QdxDouble3DT;
extern const QdxDataType QdxDouble4DT;
extern const QdxDataType QdxColor3DT;
extern const QdxDataType QdxColor4DT;
extern const QdxDataType QdxDouble4x4DT;
extern const QdxDataType QdxStringDT;
extern const QdxDataType QdxStringListDT;
extern const QdxDataType QdxDateTimeDT;
extern const QdxDataType QdxLongLongDT;
extern const QdxDataType QdxEnumDT;
extern const QdxDataType QdxTimeDT;
extern const QdxDataType QdxReferenceDT;

class QdxPropertyFlags {
public:
    enum EFlags {
        eNone = 0,
        eStatic = 1,
        eAnimatable = 2,
        eAnimated = 4,
        eImported = 8,
        eUserDefined = 16,
        eHidden = 32,
        eNotSavable = 64,
        eLockedAll = 128,
    };
};

namespace detail {
// Alternatives in EQdxType order up to eQdxLongLong; enum, time and reference
// reuse int, long long and monostate. The SDK's value-type table (one entry
// per EQdxType: name, storage, default, file encoding, numeric components)
// is the one place that maps codes to alternatives.
using Value =
    std::variant<std::monostate, bool, int, float, double, QdxDouble2, QdxDouble3, QdxDouble4,
                 QdxAMatrix, std::string, std::vector<std::string>, QdxDateTime, long long>;
size_t StorageIndex(EQdxType type);
Value DefaultValue(EQdxType type);
// Every value as text, and back without loss: numbers in their shortest
// exact form ("true"/"false" for booleans), vectors and matrices as their
// components joined with "," (a matrix row by row), string lists as a JSON
// array of strings, date-times as ISO-8601 ("YYYY-MM-DDTHH:MM:SS[.mmm]",
// "YYYY-MM-DD" for a date alone, "HH:MM:SS[.mmm]" for a time alone, "" when
// unset). ValueFromText parses into the type the value already holds and
// leaves it unchanged (false) when the text is not of that form.
std::string ValueToText(const Value& value);
bool ValueFromText(Value& value, const std::string& text);
} // namespace detail

// Handle of one property of an object. Cheap to copy; invalid after the
// object is destroyed. A default-constructed handle is invalid.
class QdxProperty {
public:
    QdxProperty() = default;
    QdxProperty(QdxObject* object, int index) : mObject(object), mIndex(index) {}

    // Adds a property to object; an existing property of that name is
    // returned when its data type matches, else an invalid handle.
    static QdxProperty Create(QdxObject* object, const QdxDataType& type, const char* name,
                              const char* label = "");
    static QdxProperty Create(const QdxProperty& parent, const QdxDataType& type, const char* name,
                              const char* label = "");

    bool IsValid() const;
    QdxObject* GetQdxObject() const { return mObject; }
    int GetIndex() const { return mIndex; }
    QdxString GetName() const;
    QdxString GetHierarchicalName() const { return GetName(); }
    // The label, or the name when no label was set.
    QdxString GetLabel(bool returnNameIfEmpty = true) const;
    void SetLabel(const QdxString& label);
    QdxDataType GetPropertyDataType() const;
    bool Is(const QdxDataType& type) const { return GetPropertyDataType().Is(type); }

    bool GetFlag(QdxPropertyFlags::EFlags flag) const;
    bool ModifyFlag(QdxPropertyFlags::EFlags flag, bool value);
    // The same with a flag given as its number (16: user-defined).
    bool GetFlag(unsigned int flag) const {
        return GetFlag(static_cast<QdxPropertyFlags::EFlags>(flag));
    }
    bool ModifyFlag(unsigned int flag, bool value) {
        return ModifyFlag(static_cast<QdxPropertyFlags::EFlags>(flag), value);
    }
    unsigned int GetFlags() const;
    void SetFlags(unsigned int flags);

    // Typed access with the usual numeric conversions (bool, int, enum,
    // float, double, long long, time are mutually convertible; colours and
    // double vectors of the same size likewise). Get of a mismatching type
    // returns T(); Set of a mismatching type returns false. QdxString reads
    // and sets a value of any type through its text (detail::ValueToText).
    template <class T> T Get() const;
    template <class T> bool Set(const T& value);
    template <class T> T EvaluateValue(QdxTime time = QdxTime()) const;

    // Enumerations: the names of the values.
    int GetEnumCount() const;
    int AddEnumValue(const char* name);
    const char* GetEnumValue(int index) const;
    // String lists.
    int GetStringListCount() const;
    const char* GetStringListItem(int index) const;
    bool AddStringListItem(const char* item);

    // Connections of source objects to this property.
    int GetSrcObjectCount(const QdxCriteria& criteria = QdxCriteria()) const;
    QdxObject* GetSrcObject(const QdxCriteria& criteria, int index = 0) const;
    QdxObject* GetSrcObject(int index = 0) const { return GetSrcObject(QdxCriteria(), index); }
    template <class T> int GetSrcObjectCount() const {
        return GetSrcObjectCount(QdxCriteria::ObjectType(T::ClassId));
    }
    template <class T> T* GetSrcObject(int index = 0) const {
        return static_cast<T*>(GetSrcObject(QdxCriteria::ObjectType(T::ClassId), index));
    }
    bool ConnectSrcObject(QdxObject* object);
    bool DisconnectSrcObject(QdxObject* object);
    bool DisconnectAllSrcObject();
    bool IsConnectedSrcObject(const QdxObject* object) const;

    // Animation: the curve node connected to this property in a layer.
    QdxAnimCurveNode* GetCurveNode(QdxAnimLayer* layer, bool create = false);
    QdxAnimCurveNode* GetCurveNode(bool create = false); // first layer of the current stack
    QdxAnimCurve* GetCurve(QdxAnimLayer* layer, const char* channel, bool create = false);
    bool IsAnimated(QdxAnimLayer* layer = nullptr) const;
    // The property's value at a time with every layer of the current (or the
    // given) stack combined; count components of a numeric type.
    bool EvaluateDoubles(QdxTime time, double* out, int count, QdxAnimStack* stack = nullptr) const;

    // Walking an object's properties: the root handle (index -1) of an object
    // has every property as descendent, in creation order.
    QdxProperty GetFirstDescendent() const;
    QdxProperty GetNextDescendent(const QdxProperty& current) const;
    QdxProperty Find(const char* name, bool caseSensitive = true) const;

    friend bool operator==(const QdxProperty& a, const QdxProperty& b) {
        return a.mObject == b.mObject && a.mIndex == b.mIndex;
    }

    // Raw storage; the format readers and writers use it.
    const detail::Value* RawValue() const;
    detail::Value* RawValue();

protected:
    QdxObject* mObject = nullptr;
    int mIndex = -1;
};
using QdxPropertyHandle = QdxProperty;

namespace detail {
template <class T> struct ValueCodec;
// The scalar numeric alternatives (bool, int, float, double, long long)
// convert into each other; other alternatives give N() and refuse a Set.
template <class T> constexpr bool kIsNumber = std::is_arithmetic_v<T>;
template <class N> struct NumberCodec {
    static N Get(const Value& v) {
        return std::visit(
            [](const auto& x) -> N {
                if constexpr (kIsNumber<std::decay_t<decltype(x)>>)
                    return static_cast<N>(x);
                else
                    return N();
            },
            v);
    }
    static bool Set(Value& v, N x) {
        return std::visit(
            [x](auto& y) {
                using T = std::decay_t<decltype(y)>;
                if constexpr (std::is_same_v<T, bool>) {
                    y = x != N();
                    return true;
                } else if constexpr (kIsNumber<T>) {
                    y = static_cast<T>(x);
                    return true;
                } else {
                    return false;
                }
            },
            v);
    }
};
template <> struct ValueCodec<bool> : NumberCodec<bool> {};
template <> struct ValueCodec<int> : NumberCodec<int> {};
template <> struct ValueCodec<float> : NumberCodec<float> {};
template <> struct ValueCodec<double> : NumberCodec<double> {};
template <> struct ValueCodec<long long> : NumberCodec<long long> {};
template <> struct ValueCodec<QdxTime> {
    static QdxTime Get(const Value& v) { return QdxTime(NumberCodec<long long>::Get(v)); }
    static bool Set(Value& v, QdxTime t) { return NumberCodec<long long>::Set(v, t.Get()); }
};
// Types stored as themselves: only a value of exactly that type matches.
template <class V> struct ExactCodec {
    static V Get(const Value& v) {
        const V* x = std::get_if<V>(&v);
        return x ? *x : V();
    }
    static bool Set(Value& v, const V& x) {
        if (!std::holds_alternative<V>(v)) return false;
        v = x;
        return true;
    }
};
template <> struct ValueCodec<QdxDouble2> : ExactCodec<QdxDouble2> {};
template <> struct ValueCodec<QdxDouble3> : ExactCodec<QdxDouble3> {};
template <> struct ValueCodec<QdxDouble4> : ExactCodec<QdxDouble4> {};
template <> struct ValueCodec<QdxAMatrix> : ExactCodec<QdxAMatrix> {};
template <> struct ValueCodec<QdxDateTime> : ExactCodec<QdxDateTime> {};
template <> struct ValueCodec<std::vector<std::string>> : ExactCodec<std::vector<std::string>> {};
template <> struct ValueCodec<std::string> : ExactCodec<std::string> {};
// Text reads and writes a value of any type through its text form.
template <> struct ValueCodec<QdxString> {
    static QdxString Get(const Value& v) {
        if (const auto* s = std::get_if<std::string>(&v)) return QdxString(*s);
        return QdxString(ValueToText(v));
    }
    static bool Set(Value& v, const QdxString& s) { return ValueFromText(v, s.Str()); }
};
template <> struct ValueCodec<QdxVector4> {
    static QdxVector4 Get(const Value& v) {
        if (const auto* d = std::get_if<QdxDouble3>(&v)) return QdxVector4(*d);
        if (const auto* d = std::get_if<QdxDouble4>(&v))
            return QdxVector4((*d)[0], (*d)[1], (*d)[2], (*d)[3]);
        return QdxVector4();
    }
    static bool Set(Value& v, const QdxVector4& x) {
        if (std::holds_alternative<QdxDouble3>(v))
            v = QdxDouble3(x[0], x[1], x[2]);
        else if (std::holds_alternative<QdxDouble4>(v))
            v = QdxDouble4(x[0], x[1], x[2], x[3]);
        else
            return false;
        return true;
    }
};
template <> struct ValueCodec<QdxColor> {
    static QdxColor Get(const Value& v) {
        QdxVector4 c = ValueCodec<QdxVector4>::Get(v);
        return QdxColor(c[0], c[1], c[2], std::holds_alternative<QdxDouble4>(v) ? c[3] : 1.0);
    }
    static bool Set(Value& v, const QdxColor& c) {
        return ValueCodec<QdxVector4>::Set(v, QdxVector4(c.mRed, c.mGreen, c.mBlue, c.mAlpha));
    }
};
// Numeric components of a value type, for animation evaluation.
template <class T> struct Components {
    static constexpr int kCount = 0;
    static void Apply(T&, const double*) {}
};
template <class N> struct ScalarComponents {
    static constexpr int kCount = 1;
    static void Apply(N& v, const double* d) { v = static_cast<N>(d[0]); }
};
template <> struct Components<bool> {
    static constexpr int kCount = 1;
    static void Apply(bool& v, const double* d) { v = d[0] != 0.0; }
};
template <> struct Components<int> : ScalarComponents<int> {};
template <> struct Components<float> : ScalarComponents<float> {};
template <> struct Components<double> : ScalarComponents<double> {};
template <> struct Components<long long> : ScalarComponents<long long> {};
template <int N, class V> struct VectorComponents {
    static constexpr int kCount = N;
    static void Apply(V& v, const double* d) {
        for (int i = 0; i < N; ++i)
            v[i] = d[i];
    }
};
template <> struct Components<QdxDouble2> : VectorComponents<2, QdxDouble2> {};
template <> struct Components<QdxDouble3> : VectorComponents<3, QdxDouble3> {};
template <> struct Components<QdxDouble4> : VectorComponents<4, QdxDouble4> {};
template <> struct Components<QdxVector4> : VectorComponents<3, QdxVector4> {};
template <> struct Components<QdxColor> {
    static constexpr int kCount = 3;
    static void Apply(QdxColor& c, const double* d) {
        c.mRed = d[0];
        c.mGreen = d[1];
        c.mBlue = d[2];
    }
};
} // namespace detail

template <class T> T QdxProperty::Get() const {
    const detail::Value* v = RawValue();
    return v ? detail::ValueCodec<T>::Get(*v) : T();
}
template <class T> bool QdxProperty::Set(const T& value) {
    detail::Value* v = RawValue();
    return v && detail::ValueCodec<T>::Set(*v, value);
}
template <class T> T QdxProperty::EvaluateValue(QdxTime time) const {
    T v = Get<T>();
    constexpr int n = detail::Components<T>::kCount;
    if constexpr (n > 0) {
        double d[n];
        if (EvaluateDoubles(time, d, n)) detail::Components<T>::Apply(v, d);
    }
    return v;
}
template <> inline bool QdxProperty::Set<const char*>(const char* const& value) {
    return Set(QdxString(value));
}

// A property handle typed for the value type it holds; objects expose their
// built-in properties as members of this type (node->LclTranslation).
template <class T> class QdxPropertyT : public QdxProperty {
public:
    QdxPropertyT() = default;
    QdxPropertyT(const QdxProperty& p) : QdxProperty(p) {}
    T Get() const { return QdxProperty::Get<T>(); }
    bool Set(const T& v) { return QdxProperty::Set<T>(v); }
    QdxPropertyT& operator=(const T& v) {
        Set(v);
        return *this;
    }
    T EvaluateValue(QdxTime time = QdxTime()) const { return QdxProperty::EvaluateValue<T>(time); }
};

} // namespace qdxsdk
