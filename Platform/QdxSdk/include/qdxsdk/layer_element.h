// Layer elements (per-element data mapped onto a geometry), layers and
// the layer container geometries derive from.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qdxsdk/attributes.h"

namespace qdxsdk {

class QdxLayerContainer;
class QdxMesh;

// Per-element data of a geometry layer, mapped onto the geometry.
class QdxLayerElement : public QdxObject {
    QDX_DECLARE_ABSTRACT(QdxLayerElement)
public:
    // Element types; the texture types name the UV channel a UV set feeds.
    enum EType {
        eUnknown = 0,
        eNormal = 1,
        eBinormal = 2,
        eTangent = 3,
        eMaterial = 4,
        ePolygonGroup = 5,
        eUV = 6,
        eVertexColor = 7,
        eSmoothing = 8,
        eVertexCrease = 9,
        eEdgeCrease = 10,
        eHole = 11,
        eUserData = 12,
        eVisibility = 13,
        eTextureDiffuse = 14,
        eTextureDiffuseFactor = 15,
        eTextureEmissive = 16,
        eTextureEmissiveFactor = 17,
        eTextureAmbient = 18,
        eTextureAmbientFactor = 19,
        eTextureSpecular = 20,
        eTextureSpecularFactor = 21,
        eTextureShininess = 22,
        eTextureNormalMap = 23,
        eTextureBump = 24,
        eTextureTransparency = 25,
        eTextureTransparencyFactor = 26,
        eTextureReflection = 27,
        eTextureReflectionFactor = 28,
        eTextureDisplacement = 29,
        eTypeCount = 30
    };
    enum EMappingMode {
        eNone = 0,
        eByControlPoint = 1,
        eByPolygonVertex = 2,
        eByPolygon = 3,
        eByEdge = 4,
        eAllSame = 5
    };
    enum EReferenceMode { eDirect = 0, eIndex = 1, eIndexToDirect = 2 };

    void SetMappingMode(EMappingMode mode) { MappingMode.Set(mode); }
    EMappingMode GetMappingMode() const { return static_cast<EMappingMode>(MappingMode.Get()); }
    void SetReferenceMode(EReferenceMode mode) { ReferenceMode.Set(mode); }
    EReferenceMode GetReferenceMode() const {
        return static_cast<EReferenceMode>(ReferenceMode.Get());
    }
    // Where the element sits: layer index and slot (an EType), or -1.
    int GetLayerIndex() const { return LayerIndex.Get(); }
    EType GetLayerSlot() const { return static_cast<EType>(LayerSlot.Get()); }

    // True for the mapping modes a mesh corner can be looked up by: by
    // control point, by polygon vertex, by polygon and all same.
    bool MapsPolygonVertices() const;

    // The one element class a layer slot holds: normals, materials, vertex
    // colours, and UV sets in eUV and the texture slots. Null for a slot no
    // class may fill (and for numbers outside the slots).
    static const QdxClassId* GetSlotClass(EType slot);
    // True when this element's class may fill slot.
    bool FitsSlot(EType slot) const;

    QdxPropertyT<int> MappingMode, ReferenceMode, LayerIndex, LayerSlot;
};

// View of one array of a layer element. Elements are stored as packed
// doubles (vectors, colours) or 32-bit integers (indices).
class QdxLayerElementArray {
public:
    QdxLayerElementArray(QdxObject* owner, int arrayIndex, int stride)
        : mOwner(owner), mArray(arrayIndex), mStride(stride) {}
    int GetCount() const;
    void Clear();
    void Resize(int count);
    void Reserve(int count);
    int GetStride() const { return mStride; }
    detail::ArrayRec& Rec() const;

protected:
    template <class E> std::vector<E>& Elements() const { return mOwner->ArrayOf<E>(mArray); }

    QdxObject* mOwner;
    int mArray;
    int mStride;
};

template <class T> struct QdxLayerElementTraits;
template <> struct QdxLayerElementTraits<QdxVector4> {
    static constexpr int kStride = 4;
    static QdxVector4 Load(const double* d) { return QdxVector4(d[0], d[1], d[2], d[3]); }
    static void Store(double* d, const QdxVector4& v) {
        for (int i = 0; i < 4; ++i)
            d[i] = v[i];
    }
};
template <> struct QdxLayerElementTraits<QdxVector2> {
    static constexpr int kStride = 2;
    static QdxVector2 Load(const double* d) { return QdxVector2(d[0], d[1]); }
    static void Store(double* d, const QdxVector2& v) {
        d[0] = v[0];
        d[1] = v[1];
    }
};
template <> struct QdxLayerElementTraits<QdxColor> {
    static constexpr int kStride = 4;
    static QdxColor Load(const double* d) { return QdxColor(d[0], d[1], d[2], d[3]); }
    static void Store(double* d, const QdxColor& c) {
        d[0] = c.mRed;
        d[1] = c.mGreen;
        d[2] = c.mBlue;
        d[3] = c.mAlpha;
    }
};

template <class T> class QdxLayerElementArrayTemplate : public QdxLayerElementArray {
public:
    using Traits = QdxLayerElementTraits<T>;
    QdxLayerElementArrayTemplate(QdxObject* owner, int arrayIndex)
        : QdxLayerElementArray(owner, arrayIndex, Traits::kStride) {}
    // Out-of-range reads give T().
    T GetAt(int index) const {
        const auto& v = Elements<double>();
        size_t at = static_cast<size_t>(index) * Traits::kStride;
        if (index < 0 || at + Traits::kStride > v.size()) return T();
        return Traits::Load(v.data() + at);
    }
    T operator[](int index) const { return GetAt(index); }
    bool SetAt(int index, const T& value) {
        auto& v = Elements<double>();
        size_t at = static_cast<size_t>(index) * Traits::kStride;
        if (index < 0 || at + Traits::kStride > v.size()) return false;
        Traits::Store(v.data() + at, value);
        return true;
    }
    int Add(const T& value) {
        auto& v = Elements<double>();
        v.resize(v.size() + Traits::kStride);
        Traits::Store(v.data() + v.size() - Traits::kStride, value);
        return GetCount() - 1;
    }
    // Packed doubles, GetCount() * stride of them.
    double* GetDoubles() { return Elements<double>().data(); }
    const double* GetDoubles() const { return Elements<double>().data(); }
    // Elements [first, first + count) into out (resized to count). False,
    // with out empty, when the range does not lie inside the array. Reading
    // an array front to back in ranges needs memory for one range only:
    // values still held in their file are decoded as they are read.
    bool GetRange(int first, int count, std::vector<T>& out) const;
};

template <> class QdxLayerElementArrayTemplate<int> : public QdxLayerElementArray {
public:
    QdxLayerElementArrayTemplate(QdxObject* owner, int arrayIndex)
        : QdxLayerElementArray(owner, arrayIndex, 1) {}
    int GetAt(int index) const {
        const auto& v = Elements<int32_t>();
        return index >= 0 && static_cast<size_t>(index) < v.size() ? v[static_cast<size_t>(index)]
                                                                   : -1;
    }
    int operator[](int index) const { return GetAt(index); }
    bool SetAt(int index, int value) {
        auto& v = Elements<int32_t>();
        if (index < 0 || static_cast<size_t>(index) >= v.size()) return false;
        v[static_cast<size_t>(index)] = value;
        return true;
    }
    int Add(int value) {
        Elements<int32_t>().push_back(value);
        return GetCount() - 1;
    }
    int* GetInts() { return Elements<int32_t>().data(); }
    const int* GetInts() const { return Elements<int32_t>().data(); }
};

// A layer element with a direct array of T and an index array.
template <class T> class QdxLayerElementTemplate : public QdxLayerElement {
public:
    QdxLayerElementArrayTemplate<T>& GetDirectArray() { return mDirect; }
    const QdxLayerElementArrayTemplate<T>& GetDirectArray() const { return mDirect; }
    QdxLayerElementArrayTemplate<int>& GetIndexArray() { return mIndex; }
    const QdxLayerElementArrayTemplate<int>& GetIndexArray() const { return mIndex; }
    // The direct value of an element index with the reference mode applied.
    bool GetValue(int elementIndex, T& value) const;

    // Mesh corner lookups. Every one of them, and the mesh's per-corner
    // normal, UV and colour calls, resolves a corner through
    // GetCornerDirectIndex, so they agree corner by corner.
    //
    // Element index of a mesh corner, given by its polygon, its position in
    // the mesh's polygon-vertex array and its control point: the mapping
    // mode picks one of them (0 for all same) and the reference mode is
    // applied (eIndex and eIndexToDirect both go through the index array).
    // -1 when unmapped or the index array holds no entry there; otherwise it
    // may still lie past the direct array.
    int GetCornerIndex(int polygon, int polygonVertex, int controlPoint) const;
    // As GetCornerIndex, and -1 unless the index addresses a direct entry.
    int GetCornerDirectIndex(int polygon, int polygonVertex, int controlPoint) const;
    // Value of corner `corner` of polygon `polygon` of `mesh`. A corner
    // without a value (polygon or corner out of range, mapping mode that
    // cannot map corners, missing or negative index, index past the direct
    // array) gives T() and false.
    bool GetPolygonVertexValue(const QdxMesh& mesh, int polygon, int corner, T& value) const;
    // Values of every polygon corner of `mesh`, in polygon order and, within
    // a polygon, corner order (last to first with reverseCorners). A corner
    // without a value gets T() and, when `unmapped` is given, a 1 at its
    // position there (0 otherwise). False, with every value T() and every
    // corner unmapped, when the mapping mode cannot map corners.
    bool GetPolygonVertexValues(const QdxMesh& mesh, std::vector<T>& values,
                                std::vector<uint8_t>* unmapped = nullptr,
                                bool reverseCorners = false) const;
    // As above, for the corners of polygons [firstPolygon, firstPolygon +
    // polygonCount) of `mesh` only (the range clipped to the mesh). Reading a
    // mesh's polygons front to back in ranges needs memory for one range
    // only: direct values still held in their file are decoded as they are
    // read.
    bool GetPolygonVertexValues(const QdxMesh& mesh, int firstPolygon, int polygonCount,
                                std::vector<T>& values, std::vector<uint8_t>* unmapped = nullptr,
                                bool reverseCorners = false) const;
    // True when every polygon corner of `mesh` has a value, that is when
    // GetPolygonVertexValues flags no corner unmapped. Found from the
    // mapping, the index array and the counts, without reading the direct
    // values.
    bool MapsEveryCorner(const QdxMesh& mesh) const;

protected:
    QdxLayerElementTemplate(QdxManager& manager, const char* name);

private:
    QdxLayerElementArrayTemplate<T> mDirect;
    QdxLayerElementArrayTemplate<int> mIndex;
};

class QdxLayerElementNormal : public QdxLayerElementTemplate<QdxVector4> {
    QDX_DECLARE_OBJECT(QdxLayerElementNormal)
};
class QdxLayerElementUV : public QdxLayerElementTemplate<QdxVector2> {
    QDX_DECLARE_OBJECT(QdxLayerElementUV)
};
class QdxLayerElementVertexColor : public QdxLayerElementTemplate<QdxColor> {
    QDX_DECLARE_OBJECT(QdxLayerElementVertexColor)
};
// Material indices: the index array holds one material slot per polygon
// (eByPolygon) or one for all (eAllSame); the direct array is unused.
class QdxLayerElementMaterial : public QdxLayerElementTemplate<QdxVector4> {
    QDX_DECLARE_OBJECT(QdxLayerElementMaterial)
};

// One layer of a geometry: at most one element per slot.
class QdxLayer {
public:
    QdxLayerElementNormal* GetNormals() const;
    void SetNormals(QdxLayerElementNormal* element);
    QdxLayerElementMaterial* GetMaterials() const;
    void SetMaterials(QdxLayerElementMaterial* element);
    QdxLayerElementVertexColor* GetVertexColors() const;
    void SetVertexColors(QdxLayerElementVertexColor* element);
    QdxLayerElementUV* GetUVs(QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse) const;
    void SetUVs(QdxLayerElementUV* element,
                QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse);
    int GetUVSetCount() const;
    QdxLayerElement* GetLayerElementOfType(QdxLayerElement::EType slot) const;
    // Puts element (or nothing, for null) in slot. Refuses, and returns
    // false, an element whose class does not fit the slot.
    bool SetLayerElementOfType(QdxLayerElement* element, QdxLayerElement::EType slot);

private:
    friend class QdxLayerContainer;
    QdxLayer(QdxLayerContainer* owner, int index) : mOwner(owner), mIndex(index) {}
    QdxLayerContainer* mOwner;
    int mIndex;
    QdxLayerElement* mSlots[QdxLayerElement::eTypeCount] = {};
};

class QdxLayerContainer : public QdxNodeAttribute {
    QDX_DECLARE_ABSTRACT(QdxLayerContainer)
public:
    ~QdxLayerContainer() override;
    int CreateLayer();
    int GetLayerCount() const { return static_cast<int>(mLayers.size()); }
    int GetLayerCount(QdxLayerElement::EType slot) const;
    QdxLayer* GetLayer(int index) const;
    QdxLayer* GetLayer(int index, QdxLayerElement::EType slot) const;
    bool FinishRead(QdxStatus& status) override;
    // Frees the storage of every array of this object and of the layer
    // elements that belong to it alone: a reader that has copied the
    // geometry elsewhere calls it to give the memory back early. The
    // geometry then reads as empty (no points, polygons or layer values);
    // its layers, properties and connections stay.
    void ReleaseArrays();
    // Decodes every array of the geometry and of its layer elements that is
    // still in its file, several at a time on the machine's cores, and
    // returns when all are decoded: for a reader about to read them whole.
    void DecodeArrays();

private:
    std::vector<std::unique_ptr<QdxLayer>> mLayers;
};

} // namespace qdxsdk
