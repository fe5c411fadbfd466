// Geometry: layer elements and layers, meshes, NURBS, lines, trimmed
// surfaces, deformers (skins with clusters, vertex caches).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qdxsdk/attributes.h"

namespace qdxsdk {

class QdxLayerContainer;
class QdxMesh;
class QdxNode;

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
    // Element index of a mesh corner under the mapping mode, before the
    // reference mode applies. The corner is given by its polygon, its
    // position in the mesh's polygon-vertex array and its control point.
    // -1 when the mapping mode does not map corners.
    int GetMappedIndex(int polygon, int polygonVertex, int controlPoint) const;

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
        const auto& v = Rec().f64;
        size_t at = static_cast<size_t>(index) * Traits::kStride;
        if (index < 0 || at + Traits::kStride > v.size()) return T();
        return Traits::Load(v.data() + at);
    }
    T operator[](int index) const { return GetAt(index); }
    bool SetAt(int index, const T& value) {
        auto& v = Rec().f64;
        size_t at = static_cast<size_t>(index) * Traits::kStride;
        if (index < 0 || at + Traits::kStride > v.size()) return false;
        Traits::Store(v.data() + at, value);
        return true;
    }
    int Add(const T& value) {
        auto& v = Rec().f64;
        v.resize(v.size() + Traits::kStride);
        Traits::Store(v.data() + v.size() - Traits::kStride, value);
        return GetCount() - 1;
    }
    // Packed doubles, GetCount() * stride of them.
    double* GetDoubles() { return Rec().f64.data(); }
    const double* GetDoubles() const { return Rec().f64.data(); }
};

template <> class QdxLayerElementArrayTemplate<int> : public QdxLayerElementArray {
public:
    QdxLayerElementArrayTemplate(QdxObject* owner, int arrayIndex)
        : QdxLayerElementArray(owner, arrayIndex, 1) {}
    int GetAt(int index) const {
        const auto& v = Rec().i32;
        return index >= 0 && static_cast<size_t>(index) < v.size() ? v[static_cast<size_t>(index)]
                                                                   : -1;
    }
    int operator[](int index) const { return GetAt(index); }
    bool SetAt(int index, int value) {
        auto& v = Rec().i32;
        if (index < 0 || static_cast<size_t>(index) >= v.size()) return false;
        v[static_cast<size_t>(index)] = value;
        return true;
    }
    int Add(int value) {
        Rec().i32.push_back(value);
        return GetCount() - 1;
    }
    int* GetInts() { return Rec().i32.data(); }
    const int* GetInts() const { return Rec().i32.data(); }
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
    // Index of a mesh corner (see GetMappedIndex) with the reference mode
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
    void SetLayerElementOfType(QdxLayerElement* element, QdxLayerElement::EType slot);

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

private:
    std::vector<std::unique_ptr<QdxLayer>> mLayers;
};

class QdxGeometryBase : public QdxLayerContainer {
    QDX_DECLARE_ABSTRACT(QdxGeometryBase)
public:
    void InitControlPoints(int count);
    virtual int GetControlPointsCount() const;
    // Packed (x, y, z, w) points; w is 1 for polygons, the weight for NURBS.
    QdxVector4* GetControlPoints();
    const QdxVector4* GetControlPoints() const;
    void SetControlPointAt(const QdxVector4& point, int index);
    QdxVector4 GetControlPointAt(int index) const;

    // Elements of layer 0 (normals, colours) and UV sets by name or index.
    QdxLayerElementNormal* GetElementNormal(int index = 0) const;
    int GetElementNormalCount() const;
    QdxLayerElementVertexColor* GetElementVertexColor(int index = 0) const;
    int GetElementVertexColorCount() const;
    QdxLayerElementMaterial* GetElementMaterial(int index = 0) const;
    QdxLayerElementUV* GetElementUV(const char* name) const;
    QdxLayerElementUV* GetElementUV(int index = 0) const;
    int GetElementUVCount() const;
    void GetUVSetNames(QdxStringList& names) const;
    // Creates an element on layer 0 (made when missing) in its natural slot.
    QdxLayerElementNormal* CreateElementNormal();
    QdxLayerElementUV*
    CreateElementUV(const char* name,
                    QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse);
    QdxLayerElementVertexColor* CreateElementVertexColor();
    QdxLayerElementMaterial* CreateElementMaterial();

protected:
    int mControlPointsArray = -1;
};

class QdxDeformer : public QdxObject {
    QDX_DECLARE_ABSTRACT(QdxDeformer)
public:
    enum EDeformerType { eUnknown = 0, eSkin = 1, eBlendShape = 2, eVertexCache = 3 };
    virtual EDeformerType GetDeformerType() const = 0;
};

class QdxGeometry : public QdxGeometryBase {
    QDX_DECLARE_ABSTRACT(QdxGeometry)
public:
    int AddDeformer(QdxDeformer* deformer);
    int GetDeformerCount() const;
    int GetDeformerCount(QdxDeformer::EDeformerType type) const;
    QdxDeformer* GetDeformer(int index, QdxStatus* status = nullptr) const;
    QdxDeformer* GetDeformer(int index, QdxDeformer::EDeformerType type,
                             QdxStatus* status = nullptr) const;
};

class QdxCluster : public QdxObject {
    QDX_DECLARE_OBJECT(QdxCluster)
public:
    enum ELinkMode { eNormalize = 0, eAdditive = 1, eTotalOne = 2 };
    void AddControlPointIndex(int index, double weight);
    int GetControlPointIndicesCount() const;
    int* GetControlPointIndices();
    double* GetControlPointWeights();
    void SetControlPointIWCount(int count);
    // The mesh's global matrix at binding time, and the link's.
    void SetTransformMatrix(const QdxAMatrix& m) { TransformMatrix.Set(m); }
    QdxAMatrix& GetTransformMatrix(QdxAMatrix& m) const { return m = TransformMatrix.Get(); }
    void SetTransformLinkMatrix(const QdxAMatrix& m) { TransformLinkMatrix.Set(m); }
    QdxAMatrix& GetTransformLinkMatrix(QdxAMatrix& m) const {
        return m = TransformLinkMatrix.Get();
    }
    void SetLink(QdxNode* node);
    QdxNode* GetLink() const;
    void SetLinkMode(ELinkMode mode) { LinkMode.Set(mode); }
    ELinkMode GetLinkMode() const { return static_cast<ELinkMode>(LinkMode.Get()); }

    QdxPropertyT<QdxAMatrix> TransformMatrix, TransformLinkMatrix;
    QdxPropertyT<int> LinkMode;
    QdxProperty LinkProperty;
};

class QdxSkin : public QdxDeformer {
    QDX_DECLARE_OBJECT(QdxSkin)
public:
    enum EType { eRigid = 0, eLinear = 1, eDualQuaternion = 2, eBlend = 3 };
    EDeformerType GetDeformerType() const override { return eSkin; }
    bool AddCluster(QdxCluster* cluster);
    int GetClusterCount() const;
    QdxCluster* GetCluster(int index) const;
    QdxPropertyT<int> SkinningType;
    QdxPropertyT<double> DeformAccuracy;
};

// A vertex-cache deformer record: where the cache is and its format.
class QdxVertexCacheDeformer : public QdxDeformer {
    QDX_DECLARE_OBJECT(QdxVertexCacheDeformer)
public:
    enum ECacheFormat { eUnknownFormat = 0, eChannelCache = 1, eToveCache = 2, ePC2 = 3 };
    EDeformerType GetDeformerType() const override { return eVertexCache; }
    QdxPropertyT<QdxString> CacheFileName, Channel;
    QdxPropertyT<int> CacheFileFormat;
    QdxPropertyT<bool> Active;
};

class QdxMesh : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxMesh)
public:
    EType GetAttributeType() const override { return eMesh; }

    int GetPolygonCount() const;
    int GetPolygonSize(int polygon) const;
    // Control point of a corner, -1 when polygon or corner is out of range.
    int GetPolygonVertex(int polygon, int corner) const;
    int GetPolygonVertexIndex(int polygon) const; // first corner's index
    // A corner's position in the polygon-vertex array and its control point;
    // false (both -1) when polygon or corner is out of range.
    bool GetCorner(int polygon, int corner, int& polygonVertex, int& controlPoint) const;
    int GetPolygonVertexCount() const;
    int* GetPolygonVertices();
    const int* GetPolygonVertices() const;

    void ReservePolygonCount(int count);
    void ReservePolygonVertexCount(int count);
    // Polygon construction. A material index >= 0 is appended to the layer 0
    // material element when it maps by polygon; a texture UV index >= 0 to
    // the layer 0 diffuse UV element's index array when it is indexed.
    void BeginPolygon(int material = -1, int texture = -1, int group = -1, bool legacy = true);
    void AddPolygon(int index, int textureUVIndex = -1);
    void EndPolygon();
    // Appends polygons in bulk: sizes[i] corners each, corner indices packed.
    void AddPolygons(const int* sizes, int polygonCount, const int* vertices);

    // Per-corner values; see QdxLayerElementTemplate::GetPolygonVertexValue
    // for when a corner has none.
    // Normal of a corner from the first normal element. False with a zero
    // normal when the mesh has no normal element or the corner has none.
    bool GetPolygonVertexNormal(int polygon, int corner, QdxVector4& normal) const;
    // UV of a corner from the named UV set. False (and unmapped) when the
    // mesh has no such set or its mapping mode cannot map corners. Otherwise
    // true; a corner without a value, an index past the UV data included,
    // is unmapped with UV (0, 0).
    bool GetPolygonVertexUV(int polygon, int corner, const char* uvSetName, QdxVector2& uv,
                            bool& unmapped) const;
    // Colour of a corner from the first vertex colour element. False with a
    // default colour when there is none or the corner has none.
    bool GetPolygonVertexColor(int polygon, int corner, QdxColor& color) const;
    bool GetTextureUV(QdxLayerElementArrayTemplate<QdxVector2>** array,
                      QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse);
    int GetTextureUVIndex(int polygon, int corner,
                          QdxLayerElement::EType type = QdxLayerElement::eTextureDiffuse) const;
    bool GetMaterialIndices(QdxLayerElementArrayTemplate<int>** array) const;
    bool FinishRead(QdxStatus& status) override;

private:
    int mVerticesArray = -1, mStartsArray = -1;
    bool mInPolygon = false;
};

// NURBS surface. U and V types: periodic, closed or open. Knot counts are
// count + order (open), + 1 (closed), + order - 1 (periodic).
class QdxNurbsSurface : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxNurbsSurface)
public:
    enum EType { ePeriodic = 0, eClosed = 1, eOpen = 2 };
    QdxNodeAttribute::EType GetAttributeType() const override { return eNurbsSurface; }
    void InitControlPoints(int uCount, EType uType, int vCount, EType vType);
    void SetOrder(int uOrder, int vOrder);
    int GetUOrder() const { return UOrder.Get(); }
    int GetVOrder() const { return VOrder.Get(); }
    int GetUCount() const { return UCount.Get(); }
    int GetVCount() const { return VCount.Get(); }
    EType GetNurbsUType() const { return static_cast<EType>(UType.Get()); }
    EType GetNurbsVType() const { return static_cast<EType>(VType.Get()); }
    int GetUKnotCount() const;
    int GetVKnotCount() const;
    double* GetUKnotVector();
    double* GetVKnotVector();
    bool GetApplyFlipUV() const { return FlipUV.Get(); }
    void SetApplyFlipUV(bool flip) { FlipUV.Set(flip); }
    // True when any control point weight differs from 1.
    bool IsRational() const;
    // Knot count a direction needs for its count, order and type.
    static int KnotCountFor(int count, int order, EType type);

    QdxPropertyT<int> UOrder, VOrder, UCount, VCount, UType, VType, UStep, VStep;
    QdxPropertyT<bool> FlipUV;

    using QdxGeometryBase::InitControlPoints;

protected:
    void ResizeKnots();
};

// Legacy NURBS attribute kind; same data as a NURBS surface.
class QdxNurbs : public QdxNurbsSurface {
    QDX_DECLARE_OBJECT(QdxNurbs)
public:
    QdxNodeAttribute::EType GetAttributeType() const override { return eNurbs; }
};

class QdxPatch : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxPatch)
public:
    enum EType { eBezier = 0, eBezierQuadric = 1, eCardinal = 2, eBSpline = 3, eLinear = 4 };
    QdxNodeAttribute::EType GetAttributeType() const override { return ePatch; }
    void InitControlPoints(int uCount, EType uType, int vCount, EType vType);
    QdxPropertyT<int> UCount, VCount, UType, VType;
};

// NURBS curve. Types: open, closed, periodic. Knot count is count + order,
// + 1 when closed, + order - 1 when periodic. 2D curves (trim curves) live in
// a surface's parameter space.
class QdxNurbsCurve : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxNurbsCurve)
public:
    enum EType { eOpen = 0, eClosed = 1, ePeriodic = 2 };
    enum EDimension { e2D = 2, e3D = 3 };
    QdxNodeAttribute::EType GetAttributeType() const override { return eNurbsCurve; }
    void InitControlPoints(int count, EType type);
    void SetOrder(int order);
    int GetOrder() const { return Order.Get(); }
    EType GetType() const { return static_cast<EType>(CurveType.Get()); }
    void SetDimension(EDimension d) { Dimension.Set(d); }
    EDimension GetDimension() const { return static_cast<EDimension>(Dimension.Get()); }
    int GetKnotCount() const;
    double* GetKnotVector();
    bool IsRational() const;
    static int KnotCountFor(int count, int order, EType type);
    QdxPropertyT<int> Order, CurveType, Dimension;
    using QdxGeometryBase::InitControlPoints;

private:
    void ResizeKnots();
};

// A closed loop of trim curves.
class QdxBoundary : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxBoundary)
public:
    EType GetAttributeType() const override { return eBoundary; }
    bool AddCurve(QdxNurbsCurve* curve);
    int GetCurveCount() const;
    QdxNurbsCurve* GetCurve(int index) const;
    QdxProperty Curves;
};

// A NURBS surface with trim regions, each a list of boundaries.
class QdxTrimNurbsSurface : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxTrimNurbsSurface)
public:
    EType GetAttributeType() const override { return eTrimNurbsSurface; }
    void SetNurbsSurface(QdxNurbsSurface* surface);
    QdxNurbsSurface* GetNurbsSurface() const;
    void BeginTrimRegion();
    bool AddBoundary(QdxBoundary* boundary);
    void EndTrimRegion();
    int GetTrimRegionCount() const;
    int GetBoundaryCount(int region = 0) const;
    QdxBoundary* GetBoundary(int index, int region = 0) const;
    // The untrimmed surface's control points count.
    int GetControlPointsCount() const override;
    QdxProperty Surface, Boundaries;

private:
    int mRegionsArray = -1;
    bool mInRegion = false;
};

// Poly-lines over control points: an index array and the indices of the
// corners that end each segment.
class QdxLine : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxLine)
public:
    EType GetAttributeType() const override { return eLine; }
    void SetIndexArraySize(int count);
    int GetIndexArraySize() const;
    bool SetPointIndexAt(int pointIndex, int arrayIndex, bool asEndPoint = false);
    int GetPointIndexAt(int arrayIndex) const;
    bool AddPointIndex(int pointIndex, bool asEndPoint = false);
    bool AddEndPoint(int arrayIndex);
    int GetEndPointCount() const;
    int GetEndPointAt(int index) const;

private:
    int mIndexArray = -1, mEndArray = -1;
};

} // namespace qdxsdk
