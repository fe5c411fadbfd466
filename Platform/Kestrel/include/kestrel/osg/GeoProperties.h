#pragma once
// Typed geometry property arrays.
//
// Each property holds one std::vector of its value type. Bulk access goes
// through getField()/editField() (no per-element virtual calls); the
// generic GeoProperty interface (size, dimension, raw bytes) serves code that
// handles any property without knowing its type. Writing through editField()
// does not record a change; call changed(ValuesFieldMask) afterwards.
#include <vector>

#include <kestrel/osg/FieldContainer.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(GeoProperty)

class GeoProperty : public FieldContainer {
public:
    using Ptr = FCPtr<GeoProperty>;
    static constexpr BitVector ValuesFieldMask = 1ull << 1;
    static const FieldContainerType& getClassType();
    const FieldContainerType& getType() const override;

    virtual UInt32 size() const = 0;
    bool empty() const { return size() == 0; }
    // Number of components of one value (3 for a three-float position).
    virtual UInt32 getDimension() const = 0;
    // Bytes of one value, and the raw storage of all values.
    virtual UInt32 getElementSize() const = 0;
    virtual const void* getData() const = 0;
    virtual void* editData() = 0;
    virtual void resize(UInt32 n) = 0;
    virtual void clear() = 0;
    // Component c of value i widened to double (0 when out of range).
    virtual Real64 getComponent(UInt32 i, UInt32 c) const = 0;
};

#define KS_GEO_KIND(Kind)                                                                          \
    KS_FC_TYPEDEFS(Kind)                                                                           \
    class Kind : public GeoProperty {                                                              \
    public:                                                                                        \
        using Ptr = FCPtr<Kind>;                                                                   \
        static const FieldContainerType& getClassType();                                           \
        const FieldContainerType& getType() const override;                                        \
    };

KS_GEO_KIND(GeoPTypes)
KS_GEO_KIND(GeoPLengths)
KS_GEO_KIND(GeoIndices)
KS_GEO_KIND(GeoPositions)
KS_GEO_KIND(GeoNormals)
KS_GEO_KIND(GeoColors)
KS_GEO_KIND(GeoTexCoords)
#undef KS_GEO_KIND

namespace detail {
template <class T> struct Components {
    static constexpr UInt32 n = T::Size;
    static Real64 get(const T& v, UInt32 c) { return c < n ? Real64(v[static_cast<int>(c)]) : 0.0; }
};
template <> struct Components<UInt8> {
    static constexpr UInt32 n = 1;
    static Real64 get(UInt8 v, UInt32 c) { return c == 0 ? Real64(v) : 0.0; }
};
template <> struct Components<UInt32> {
    static constexpr UInt32 n = 1;
    static Real64 get(UInt32 v, UInt32 c) { return c == 0 ? Real64(v) : 0.0; }
};
} // namespace detail

#define KS_GEO_PROPERTY(Class, Kind, Value)                                                        \
    KS_FC_TYPEDEFS(Class)                                                                          \
    class Class : public Kind {                                                                    \
        KS_FIELD_CONTAINER_DECL(Class, Kind)                                                       \
    public:                                                                                        \
        using StoredType = Value;                                                                  \
        UInt32 size() const override { return static_cast<UInt32>(_values.size()); }               \
        UInt32 getDimension() const override { return detail::Components<Value>::n; }              \
        UInt32 getElementSize() const override { return sizeof(Value); }                           \
        const void* getData() const override { return _values.data(); }                            \
        void* editData() override { return _values.data(); }                                       \
        void resize(UInt32 n) override {                                                           \
            _values.resize(n);                                                                     \
            changed(ValuesFieldMask);                                                              \
        }                                                                                          \
        void clear() override {                                                                    \
            _values.clear();                                                                       \
            changed(ValuesFieldMask);                                                              \
        }                                                                                          \
        Real64 getComponent(UInt32 i, UInt32 c) const override {                                   \
            return i < _values.size() ? detail::Components<Value>::get(_values[i], c) : 0.0;       \
        }                                                                                          \
        const std::vector<Value>& getField() const { return _values; }                             \
        std::vector<Value>& editField() { return _values; }                                        \
        void setValues(std::vector<Value> values) {                                                \
            _values = std::move(values);                                                           \
            changed(ValuesFieldMask);                                                              \
        }                                                                                          \
        void push_back(const Value& v) { _values.push_back(v); }                                   \
        void reserve(UInt32 n) { _values.reserve(n); }                                             \
        const Value& getValue(UInt32 i) const { return _values[i]; }                               \
        void setValue(const Value& v, UInt32 i) { _values[i] = v; }                                \
                                                                                                   \
    private:                                                                                       \
        std::vector<Value> _values;                                                                \
    };

KS_GEO_PROPERTY(GeoPTypesUI8, GeoPTypes, UInt8)
KS_GEO_PROPERTY(GeoPLengthsUI32, GeoPLengths, UInt32)
KS_GEO_PROPERTY(GeoIndicesUI32, GeoIndices, UInt32)
KS_GEO_PROPERTY(GeoPositions3f, GeoPositions, Pnt3f)
KS_GEO_PROPERTY(GeoPositions4f, GeoPositions, Pnt4f)
KS_GEO_PROPERTY(GeoNormals3f, GeoNormals, Vec3f)
KS_GEO_PROPERTY(GeoColors3f, GeoColors, Color3f)
KS_GEO_PROPERTY(GeoColors4f, GeoColors, Color4f)
KS_GEO_PROPERTY(GeoTexCoords2f, GeoTexCoords, Vec2f)
KS_GEO_PROPERTY(GeoTexCoords3f, GeoTexCoords, Vec3f)
KS_GEO_PROPERTY(GeoTexCoords4f, GeoTexCoords, Vec4f)
#undef KS_GEO_PROPERTY

} // namespace osg
