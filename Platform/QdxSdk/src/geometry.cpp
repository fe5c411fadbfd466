// Layer elements, layers and geometry classes.
#include <algorithm>
#include <cstring>

#include "impl.h"
#include "qdxsdk/geometry.h"
#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"

namespace qdxsdk {

using detail::ArrayKind;
using detail::ArrayRec;

namespace {
// Arrays are looked up by position; classes add theirs in the constructor.
int AddArrayIndex(QdxObject* o, const char* name, ArrayKind kind) {
    o->AddArray(name, kind);
    return static_cast<int>(o->Arrays().size()) - 1;
}
} // namespace

// ---------------------------------------------------------------- layer elements

QDX_IMPLEMENT_ABSTRACT(QdxLayerElement, QdxObject, "QdxLayerElement")

QdxLayerElement::QdxLayerElement(QdxManager& m, const char* name) : QdxObject(m, name) {
    MappingMode = AddProperty(QdxEnumDT, "MappingMode", static_cast<int>(eByControlPoint));
    ReferenceMode = AddProperty(QdxEnumDT, "ReferenceMode", static_cast<int>(eDirect));
    LayerIndex = AddProperty(QdxIntDT, "LayerIndex", -1);
    LayerSlot = AddProperty(QdxIntDT, "LayerSlot", 0);
}

ArrayRec& QdxLayerElementArray::Rec() const {
    return mOwner->ArrayAt(mArray);
}
int QdxLayerElementArray::GetCount() const {
    return static_cast<int>(Rec().Count() / static_cast<size_t>(mStride));
}
void QdxLayerElementArray::Clear() {
    Rec().Clear();
}
void QdxLayerElementArray::Resize(int count) {
    Rec().Resize(static_cast<size_t>(std::max(count, 0)) * static_cast<size_t>(mStride));
}
void QdxLayerElementArray::Reserve(int count) {
    size_t n = static_cast<size_t>(std::max(count, 0)) * static_cast<size_t>(mStride);
    if (Rec().kind == ArrayKind::Int32)
        Rec().i32.reserve(n);
    else
        Rec().f64.reserve(n);
}

template <class T>
QdxLayerElementTemplate<T>::QdxLayerElementTemplate(QdxManager& m, const char* name)
    : QdxLayerElement(m, name), mDirect(this, AddArrayIndex(this, "Direct", ArrayKind::Double)),
      mIndex(this, AddArrayIndex(this, "Index", ArrayKind::Int32)) {}

template <class T> bool QdxLayerElementTemplate<T>::GetValue(int element, T& value) const {
    int i = element;
    if (GetReferenceMode() != eDirect) i = mIndex.GetAt(element);
    if (i < 0 || i >= mDirect.GetCount()) return false;
    value = mDirect.GetAt(i);
    return true;
}

bool QdxLayerElement::MapsPolygonVertices() const {
    switch (GetMappingMode()) {
    case eByControlPoint:
    case eByPolygonVertex:
    case eByPolygon:
    case eAllSame:
        return true;
    default:
        return false;
    }
}

int QdxLayerElement::GetMappedIndex(int polygon, int polygonVertex, int controlPoint) const {
    switch (GetMappingMode()) {
    case eByControlPoint:
        return controlPoint;
    case eByPolygonVertex:
        return polygonVertex;
    case eByPolygon:
        return polygon;
    case eAllSame:
        return 0;
    default:
        return -1;
    }
}

template <class T>
int QdxLayerElementTemplate<T>::GetCornerIndex(int polygon, int polygonVertex,
                                               int controlPoint) const {
    int i = GetMappedIndex(polygon, polygonVertex, controlPoint);
    if (i < 0) return -1;
    return GetReferenceMode() == eDirect ? i : mIndex.GetAt(i);
}

template <class T>
int QdxLayerElementTemplate<T>::GetCornerDirectIndex(int polygon, int polygonVertex,
                                                     int controlPoint) const {
    int i = GetCornerIndex(polygon, polygonVertex, controlPoint);
    return i >= 0 && i < mDirect.GetCount() ? i : -1;
}

template <class T>
bool QdxLayerElementTemplate<T>::GetPolygonVertexValue(const QdxMesh& mesh, int polygon, int corner,
                                                       T& value) const {
    value = T();
    int polygonVertex, controlPoint;
    if (!mesh.GetCorner(polygon, corner, polygonVertex, controlPoint)) return false;
    int i = GetCornerDirectIndex(polygon, polygonVertex, controlPoint);
    if (i < 0) return false;
    value = mDirect.GetAt(i);
    return true;
}

template <class T>
bool QdxLayerElementTemplate<T>::GetPolygonVertexValues(const QdxMesh& mesh, std::vector<T>& values,
                                                        std::vector<uint8_t>* unmapped,
                                                        bool reverseCorners) const {
    const int polygons = mesh.GetPolygonCount();
    size_t total = 0;
    for (int p = 0; p < polygons; ++p)
        total += static_cast<size_t>(std::max(mesh.GetPolygonSize(p), 0));
    values.assign(total, T());
    if (unmapped) unmapped->assign(total, 1);
    if (!MapsPolygonVertices()) return false;
    size_t out = 0;
    for (int p = 0; p < polygons; ++p) {
        const int size = std::max(mesh.GetPolygonSize(p), 0);
        for (int k = 0; k < size; ++k, ++out) {
            int polygonVertex, controlPoint;
            if (!mesh.GetCorner(p, reverseCorners ? size - 1 - k : k, polygonVertex, controlPoint))
                continue;
            int i = GetCornerDirectIndex(p, polygonVertex, controlPoint);
            if (i < 0) continue;
            values[out] = mDirect.GetAt(i);
            if (unmapped) (*unmapped)[out] = 0;
        }
    }
    return true;
}

template class QdxLayerElementTemplate<QdxVector4>;
template class QdxLayerElementTemplate<QdxVector2>;
template class QdxLayerElementTemplate<QdxColor>;

QDX_IMPLEMENT_OBJECT(QdxLayerElementNormal, QdxLayerElement, "QdxLayerElementNormal")
QdxLayerElementNormal::QdxLayerElementNormal(QdxManager& m, const char* n)
    : QdxLayerElementTemplate<QdxVector4>(m, n) {}
QDX_IMPLEMENT_OBJECT(QdxLayerElementUV, QdxLayerElement, "QdxLayerElementUV")
QdxLayerElementUV::QdxLayerElementUV(QdxManager& m, const char* n)
    : QdxLayerElementTemplate<QdxVector2>(m, n) {}
QDX_IMPLEMENT_OBJECT(QdxLayerElementVertexColor, QdxLayerElement, "QdxLayerElementVertexColor")
QdxLayerElementVertexColor::QdxLayerElementVertexColor(QdxManager& m, const char* n)
    : QdxLayerElementTemplate<QdxColor>(m, n) {}
QDX_IMPLEMENT_OBJECT(QdxLayerElementMaterial, QdxLayerElement, "QdxLayerElementMaterial")
QdxLayerElementMaterial::QdxLayerElementMaterial(QdxManager& m, const char* n)
    : QdxLayerElementTemplate<QdxVector4>(m, n) {
    SetMappingMode(eAllSame);
    SetReferenceMode(eIndexToDirect);
}

// ---------------------------------------------------------------- layers

QdxLayerElement* QdxLayer::GetLayerElementOfType(QdxLayerElement::EType slot) const {
    if (slot <= 0 || slot >= QdxLayerElement::eTypeCount) return nullptr;
    QdxLayerElement* e = mSlots[slot];
    return e && mOwner->IsConnectedSrcObject(e) ? e : nullptr;
}

void QdxLayer::SetLayerElementOfType(QdxLayerElement* element, QdxLayerElement::EType slot) {
    if (slot <= 0 || slot >= QdxLayerElement::eTypeCount) return;
    if (QdxLayerElement* old = GetLayerElementOfType(slot)) old->LayerIndex.Set(-1);
    mSlots[slot] = element;
    if (!element) return;
    element->LayerIndex.Set(mIndex);
    element->LayerSlot.Set(slot);
    detail::JoinSceneOf(mOwner, element);
    mOwner->ConnectSrcObject(element);
}

QdxLayerElementNormal* QdxLayer::GetNormals() const {
    return static_cast<QdxLayerElementNormal*>(GetLayerElementOfType(QdxLayerElement::eNormal));
}
void QdxLayer::SetNormals(QdxLayerElementNormal* e) {
    SetLayerElementOfType(e, QdxLayerElement::eNormal);
}
QdxLayerElementMaterial* QdxLayer::GetMaterials() const {
    return static_cast<QdxLayerElementMaterial*>(GetLayerElementOfType(QdxLayerElement::eMaterial));
}
void QdxLayer::SetMaterials(QdxLayerElementMaterial* e) {
    SetLayerElementOfType(e, QdxLayerElement::eMaterial);
}
QdxLayerElementVertexColor* QdxLayer::GetVertexColors() const {
    return static_cast<QdxLayerElementVertexColor*>(
        GetLayerElementOfType(QdxLayerElement::eVertexColor));
}
void QdxLayer::SetVertexColors(QdxLayerElementVertexColor* e) {
    SetLayerElementOfType(e, QdxLayerElement::eVertexColor);
}
QdxLayerElementUV* QdxLayer::GetUVs(QdxLayerElement::EType type) const {
    if (type < QdxLayerElement::eTextureDiffuse) return nullptr;
    return static_cast<QdxLayerElementUV*>(GetLayerElementOfType(type));
}
void QdxLayer::SetUVs(QdxLayerElementUV* e, QdxLayerElement::EType type) {
    if (type >= QdxLayerElement::eTextureDiffuse) SetLayerElementOfType(e, type);
}
int QdxLayer::GetUVSetCount() const {
    int n = 0;
    for (int s = QdxLayerElement::eTextureDiffuse; s < QdxLayerElement::eTypeCount; ++s)
        if (GetLayerElementOfType(static_cast<QdxLayerElement::EType>(s))) ++n;
    return n;
}

QDX_IMPLEMENT_ABSTRACT(QdxLayerContainer, QdxNodeAttribute, "QdxLayerContainer")

QdxLayerContainer::QdxLayerContainer(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {}
QdxLayerContainer::~QdxLayerContainer() = default;

int QdxLayerContainer::CreateLayer() {
    mLayers.emplace_back(new QdxLayer(this, static_cast<int>(mLayers.size())));
    return static_cast<int>(mLayers.size()) - 1;
}

int QdxLayerContainer::GetLayerCount(QdxLayerElement::EType slot) const {
    int n = 0;
    for (const auto& l : mLayers)
        if (l->GetLayerElementOfType(slot)) ++n;
    return n;
}

QdxLayer* QdxLayerContainer::GetLayer(int index) const {
    return index >= 0 && index < GetLayerCount() ? mLayers[static_cast<size_t>(index)].get()
                                                 : nullptr;
}

QdxLayer* QdxLayerContainer::GetLayer(int index, QdxLayerElement::EType slot) const {
    for (const auto& l : mLayers)
        if (l->GetLayerElementOfType(slot) && index-- == 0) return l.get();
    return nullptr;
}

bool QdxLayerContainer::FinishRead(QdxStatus& status) {
    constexpr int kMaxLayers = 1024;
    for (int i = 0; i < GetSrcObjectCount<QdxLayerElement>(); ++i) {
        QdxLayerElement* e = GetSrcObject<QdxLayerElement>(i);
        int layer = e->GetLayerIndex();
        int slot = e->LayerSlot.Get();
        if (layer < 0) continue;
        if (layer >= kMaxLayers || slot <= 0 || slot >= QdxLayerElement::eTypeCount) {
            status.SetCode(QdxStatus::eInvalidFile, std::string("Layer element '") + e->GetName() +
                                                        "' has a bad layer slot");
            return false;
        }
        while (GetLayerCount() <= layer)
            CreateLayer();
        mLayers[static_cast<size_t>(layer)]->mSlots[slot] = e;
    }
    return true;
}

// ---------------------------------------------------------------- geometry base

QDX_IMPLEMENT_ABSTRACT(QdxGeometryBase, QdxLayerContainer, "QdxGeometryBase")

QdxGeometryBase::QdxGeometryBase(QdxManager& m, const char* name) : QdxLayerContainer(m, name) {
    mControlPointsArray = AddArrayIndex(this, "ControlPoints", ArrayKind::Double);
}

static_assert(sizeof(QdxVector4) == 4 * sizeof(double), "packed control points");

void QdxGeometryBase::InitControlPoints(int count) {
    auto& a = ArrayOf<double>(mControlPointsArray);
    size_t old = a.size() / 4;
    a.resize(static_cast<size_t>(std::max(count, 0)) * 4);
    for (size_t i = old; i < a.size() / 4; ++i)
        a[i * 4 + 3] = 1.0;
}

int QdxGeometryBase::GetControlPointsCount() const {
    return static_cast<int>(ArrayOf<double>(mControlPointsArray).size() / 4);
}

QdxVector4* QdxGeometryBase::GetControlPoints() {
    return reinterpret_cast<QdxVector4*>(ArrayOf<double>(mControlPointsArray).data());
}

const QdxVector4* QdxGeometryBase::GetControlPoints() const {
    return reinterpret_cast<const QdxVector4*>(ArrayOf<double>(mControlPointsArray).data());
}

void QdxGeometryBase::SetControlPointAt(const QdxVector4& p, int index) {
    if (index < 0) return;
    if (index >= QdxGeometryBase::GetControlPointsCount()) InitControlPoints(index + 1);
    GetControlPoints()[index] = p;
}

QdxVector4 QdxGeometryBase::GetControlPointAt(int index) const {
    if (index < 0 || index >= QdxGeometryBase::GetControlPointsCount()) return QdxVector4();
    return GetControlPoints()[index];
}

QdxLayerElementNormal* QdxGeometryBase::GetElementNormal(int index) const {
    QdxLayer* l = GetLayer(index, QdxLayerElement::eNormal);
    return l ? l->GetNormals() : nullptr;
}
int QdxGeometryBase::GetElementNormalCount() const {
    return GetLayerCount(QdxLayerElement::eNormal);
}
QdxLayerElementVertexColor* QdxGeometryBase::GetElementVertexColor(int index) const {
    QdxLayer* l = GetLayer(index, QdxLayerElement::eVertexColor);
    return l ? l->GetVertexColors() : nullptr;
}
int QdxGeometryBase::GetElementVertexColorCount() const {
    return GetLayerCount(QdxLayerElement::eVertexColor);
}
QdxLayerElementMaterial* QdxGeometryBase::GetElementMaterial(int index) const {
    QdxLayer* l = GetLayer(index, QdxLayerElement::eMaterial);
    return l ? l->GetMaterials() : nullptr;
}

namespace {
template <class F> void ForEachUV(const QdxLayerContainer* c, F f) {
    for (int i = 0; i < c->GetLayerCount(); ++i)
        for (int s = QdxLayerElement::eTextureDiffuse; s < QdxLayerElement::eTypeCount; ++s)
            if (QdxLayerElementUV* uv =
                    c->GetLayer(i)->GetUVs(static_cast<QdxLayerElement::EType>(s)))
                if (f(uv)) return;
}
} // namespace

QdxLayerElementUV* QdxGeometryBase::GetElementUV(const char* name) const {
    QdxLayerElementUV* found = nullptr;
    ForEachUV(this, [&](QdxLayerElementUV* uv) {
        if (std::strcmp(uv->GetName(), name ? name : "") == 0) found = uv;
        return found != nullptr;
    });
    return found;
}

QdxLayerElementUV* QdxGeometryBase::GetElementUV(int index) const {
    QdxLayerElementUV* found = nullptr;
    ForEachUV(this, [&](QdxLayerElementUV* uv) {
        if (index-- == 0) found = uv;
        return found != nullptr;
    });
    return found;
}

int QdxGeometryBase::GetElementUVCount() const {
    int n = 0;
    ForEachUV(this, [&](QdxLayerElementUV*) {
        ++n;
        return false;
    });
    return n;
}

void QdxGeometryBase::GetUVSetNames(QdxStringList& names) const {
    names.Clear();
    ForEachUV(this, [&](QdxLayerElementUV* uv) {
        if (names.Find(uv->GetName()) < 0) names.Add(uv->GetName());
        return false;
    });
}

namespace {
QdxLayer* Layer0(QdxLayerContainer* c) {
    if (c->GetLayerCount() == 0) c->CreateLayer();
    return c->GetLayer(0);
}
} // namespace

QdxLayerElementNormal* QdxGeometryBase::CreateElementNormal() {
    auto* e = QdxLayerElementNormal::Create(this, "");
    Layer0(this)->SetNormals(e);
    return e;
}
QdxLayerElementUV* QdxGeometryBase::CreateElementUV(const char* name, QdxLayerElement::EType type) {
    auto* e = QdxLayerElementUV::Create(this, name);
    QdxLayer* target = nullptr;
    for (int i = 0; i < GetLayerCount() && !target; ++i)
        if (!GetLayer(i)->GetUVs(type)) target = GetLayer(i);
    if (!target) target = GetLayer(CreateLayer());
    target->SetUVs(e, type);
    return e;
}
QdxLayerElementVertexColor* QdxGeometryBase::CreateElementVertexColor() {
    auto* e = QdxLayerElementVertexColor::Create(this, "");
    Layer0(this)->SetVertexColors(e);
    return e;
}
QdxLayerElementMaterial* QdxGeometryBase::CreateElementMaterial() {
    auto* e = QdxLayerElementMaterial::Create(this, "");
    Layer0(this)->SetMaterials(e);
    return e;
}

// ---------------------------------------------------------------- deformers

QDX_IMPLEMENT_ABSTRACT(QdxDeformer, QdxObject, "QdxDeformer")
QdxDeformer::QdxDeformer(QdxManager& m, const char* name) : QdxObject(m, name) {}

QDX_IMPLEMENT_ABSTRACT(QdxGeometry, QdxGeometryBase, "QdxGeometry")
QdxGeometry::QdxGeometry(QdxManager& m, const char* name) : QdxGeometryBase(m, name) {}

int QdxGeometry::AddDeformer(QdxDeformer* deformer) {
    if (!deformer) return -1;
    detail::JoinSceneOf(this, deformer);
    ConnectSrcObject(deformer);
    return GetDeformerCount() - 1;
}
int QdxGeometry::GetDeformerCount() const {
    return GetSrcObjectCount<QdxDeformer>();
}
int QdxGeometry::GetDeformerCount(QdxDeformer::EDeformerType type) const {
    int n = 0;
    for (int i = 0; i < GetDeformerCount(); ++i)
        if (GetSrcObject<QdxDeformer>(i)->GetDeformerType() == type) ++n;
    return n;
}
QdxDeformer* QdxGeometry::GetDeformer(int index, QdxStatus* status) const {
    QdxDeformer* d = GetSrcObject<QdxDeformer>(index);
    if (status) status->SetCode(d ? QdxStatus::eSuccess : QdxStatus::eIndexOutOfRange);
    return d;
}
QdxDeformer* QdxGeometry::GetDeformer(int index, QdxDeformer::EDeformerType type,
                                      QdxStatus* status) const {
    for (int i = 0; i < GetDeformerCount(); ++i) {
        QdxDeformer* d = GetSrcObject<QdxDeformer>(i);
        if (d->GetDeformerType() == type && index-- == 0) {
            if (status) status->Clear();
            return d;
        }
    }
    if (status) status->SetCode(QdxStatus::eIndexOutOfRange);
    return nullptr;
}

QDX_IMPLEMENT_OBJECT(QdxCluster, QdxObject, "QdxCluster")
QdxCluster::QdxCluster(QdxManager& m, const char* name) : QdxObject(m, name) {
    TransformMatrix = AddProperty(QdxDouble4x4DT, "TransformMatrix", QdxAMatrix());
    TransformLinkMatrix = AddProperty(QdxDouble4x4DT, "TransformLinkMatrix", QdxAMatrix());
    LinkMode = AddProperty(QdxEnumDT, "LinkMode", static_cast<int>(eNormalize));
    LinkProperty = AddProperty(QdxReferenceDT, "Link", std::monostate());
    AddArray("Indices", ArrayKind::Int32);
    AddArray("Weights", ArrayKind::Double);
}
void QdxCluster::AddControlPointIndex(int index, double weight) {
    ArrayOf<int32_t>(0).push_back(index);
    ArrayOf<double>(1).push_back(weight);
}
int QdxCluster::GetControlPointIndicesCount() const {
    return static_cast<int>(std::min(ArrayOf<int32_t>(0).size(), ArrayOf<double>(1).size()));
}
int* QdxCluster::GetControlPointIndices() {
    return ArrayOf<int32_t>(0).data();
}
double* QdxCluster::GetControlPointWeights() {
    return ArrayOf<double>(1).data();
}
void QdxCluster::SetControlPointIWCount(int count) {
    ArrayOf<int32_t>(0).resize(static_cast<size_t>(std::max(count, 0)));
    ArrayOf<double>(1).resize(static_cast<size_t>(std::max(count, 0)));
}
void QdxCluster::SetLink(QdxNode* node) {
    LinkProperty.DisconnectAllSrcObject();
    if (node) LinkProperty.ConnectSrcObject(node);
}
QdxNode* QdxCluster::GetLink() const {
    return LinkProperty.GetSrcObject<QdxNode>();
}

QDX_IMPLEMENT_OBJECT(QdxSkin, QdxDeformer, "QdxSkin")
QdxSkin::QdxSkin(QdxManager& m, const char* name) : QdxDeformer(m, name) {
    SkinningType = AddProperty(QdxEnumDT, "SkinningType", static_cast<int>(eLinear));
    DeformAccuracy = AddProperty(QdxDoubleDT, "DeformAccuracy", 50.0);
}
bool QdxSkin::AddCluster(QdxCluster* cluster) {
    if (!cluster) return false;
    detail::JoinSceneOf(this, cluster);
    return ConnectSrcObject(cluster);
}
int QdxSkin::GetClusterCount() const {
    return GetSrcObjectCount<QdxCluster>();
}
QdxCluster* QdxSkin::GetCluster(int index) const {
    return GetSrcObject<QdxCluster>(index);
}

QDX_IMPLEMENT_OBJECT(QdxVertexCacheDeformer, QdxDeformer, "QdxVertexCacheDeformer")
QdxVertexCacheDeformer::QdxVertexCacheDeformer(QdxManager& m, const char* name)
    : QdxDeformer(m, name) {
    CacheFileName = AddProperty(QdxStringDT, "CacheFileName", std::string());
    Channel = AddProperty(QdxStringDT, "Channel", std::string());
    CacheFileFormat = AddProperty(QdxEnumDT, "CacheFileFormat", static_cast<int>(eUnknownFormat));
    Active = AddProperty(QdxBoolDT, "Active", true);
}

// ---------------------------------------------------------------- mesh

QDX_IMPLEMENT_OBJECT(QdxMesh, QdxGeometry, "QdxMesh")
QdxMesh::QdxMesh(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    mVerticesArray = AddArrayIndex(this, "PolygonVertexIndex", ArrayKind::Int32);
    mStartsArray = AddArrayIndex(this, "PolygonStart", ArrayKind::Int32);
}

#define QDX_MESH_ARRAYS                                                                            \
    auto& verts = const_cast<QdxMesh*>(this)->ArrayOf<int32_t>(mVerticesArray);                    \
    auto& starts = const_cast<QdxMesh*>(this)->ArrayOf<int32_t>(mStartsArray);                     \
    (void)verts;                                                                                   \
    (void)starts;

int QdxMesh::GetPolygonCount() const {
    QDX_MESH_ARRAYS
    return static_cast<int>(starts.size());
}

int QdxMesh::GetPolygonSize(int p) const {
    QDX_MESH_ARRAYS
    if (p < 0 || static_cast<size_t>(p) >= starts.size()) return -1;
    size_t end = static_cast<size_t>(p) + 1 < starts.size()
                     ? static_cast<size_t>(starts[static_cast<size_t>(p) + 1])
                     : verts.size();
    return static_cast<int>(end) - starts[static_cast<size_t>(p)];
}

int QdxMesh::GetPolygonVertex(int p, int c) const {
    QDX_MESH_ARRAYS
    int size = GetPolygonSize(p);
    if (size < 0 || c < 0 || c >= size) return -1;
    return verts[static_cast<size_t>(starts[static_cast<size_t>(p)] + c)];
}

int QdxMesh::GetPolygonVertexIndex(int p) const {
    QDX_MESH_ARRAYS
    if (p < 0 || static_cast<size_t>(p) >= starts.size()) return -1;
    return starts[static_cast<size_t>(p)];
}

int QdxMesh::GetPolygonVertexCount() const {
    QDX_MESH_ARRAYS
    return static_cast<int>(verts.size());
}

int* QdxMesh::GetPolygonVertices() {
    return ArrayOf<int32_t>(mVerticesArray).data();
}
const int* QdxMesh::GetPolygonVertices() const {
    return ArrayOf<int32_t>(mVerticesArray).data();
}

void QdxMesh::ReservePolygonCount(int count) {
    ArrayOf<int32_t>(mStartsArray).reserve(static_cast<size_t>(std::max(count, 0)));
}
void QdxMesh::ReservePolygonVertexCount(int count) {
    ArrayOf<int32_t>(mVerticesArray).reserve(static_cast<size_t>(std::max(count, 0)));
}

void QdxMesh::BeginPolygon(int material, int, int, bool) {
    QDX_MESH_ARRAYS
    starts.push_back(static_cast<int32_t>(verts.size()));
    mInPolygon = true;
    if (material >= 0)
        if (QdxLayerElementMaterial* e = GetElementMaterial())
            if (e->GetMappingMode() == QdxLayerElement::eByPolygon)
                e->GetIndexArray().Add(material);
}

void QdxMesh::AddPolygon(int index, int textureUVIndex) {
    QDX_MESH_ARRAYS
    if (!mInPolygon) return;
    verts.push_back(index);
    if (textureUVIndex >= 0 && GetLayerCount() > 0)
        if (QdxLayerElementUV* uv = GetLayer(0)->GetUVs())
            if (uv->GetMappingMode() == QdxLayerElement::eByPolygonVertex &&
                uv->GetReferenceMode() != QdxLayerElement::eDirect)
                uv->GetIndexArray().Add(textureUVIndex);
}

void QdxMesh::EndPolygon() {
    mInPolygon = false;
}

bool QdxMesh::FinishRead(QdxStatus& status) {
    if (!QdxGeometry::FinishRead(status)) return false;
    QDX_MESH_ARRAYS
    int32_t prev = 0;
    for (size_t i = 0; i < starts.size(); ++i) {
        if (starts[i] < prev || static_cast<size_t>(starts[i]) > verts.size() ||
            (i == 0 && starts[i] != 0)) {
            status.SetCode(QdxStatus::eInvalidFile,
                           std::string("Mesh '") + GetName() + "' has bad polygon starts");
            return false;
        }
        prev = starts[i];
    }
    if (starts.empty() && !verts.empty()) {
        status.SetCode(QdxStatus::eInvalidFile,
                       std::string("Mesh '") + GetName() + "' has corners but no polygons");
        return false;
    }
    return true;
}

void QdxMesh::AddPolygons(const int* sizes, int count, const int* vertices) {
    QDX_MESH_ARRAYS
    size_t total = 0;
    starts.reserve(starts.size() + static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        starts.push_back(static_cast<int32_t>(verts.size() + total));
        total += static_cast<size_t>(sizes[i]);
    }
    verts.insert(verts.end(), vertices, vertices + total);
}

bool QdxMesh::GetCorner(int p, int c, int& polygonVertex, int& controlPoint) const {
    QDX_MESH_ARRAYS
    polygonVertex = controlPoint = -1;
    int size = GetPolygonSize(p);
    if (size < 0 || c < 0 || c >= size) return false;
    size_t at = static_cast<size_t>(starts[static_cast<size_t>(p)]) + static_cast<size_t>(c);
    if (at >= verts.size()) return false;
    polygonVertex = static_cast<int>(at);
    controlPoint = verts[at];
    return true;
}

bool QdxMesh::GetPolygonVertexNormal(int p, int c, QdxVector4& normal) const {
    normal = QdxVector4();
    const QdxLayerElementNormal* e = GetElementNormal();
    return e && e->GetPolygonVertexValue(*this, p, c, normal);
}

bool QdxMesh::GetPolygonVertexUV(int p, int c, const char* name, QdxVector2& uv,
                                 bool& unmapped) const {
    uv = QdxVector2();
    unmapped = true;
    const QdxLayerElementUV* e = GetElementUV(name);
    if (!e || !e->MapsPolygonVertices()) return false;
    unmapped = !e->GetPolygonVertexValue(*this, p, c, uv);
    return true;
}

bool QdxMesh::GetPolygonVertexColor(int p, int c, QdxColor& color) const {
    color = QdxColor();
    const QdxLayerElementVertexColor* e = GetElementVertexColor();
    return e && e->GetPolygonVertexValue(*this, p, c, color);
}

bool QdxMesh::GetTextureUV(QdxLayerElementArrayTemplate<QdxVector2>** array,
                           QdxLayerElement::EType type) {
    if (!array) return false;
    *array = nullptr;
    QdxLayerElementUV* e = GetLayerCount() > 0 ? GetLayer(0)->GetUVs(type) : nullptr;
    if (!e) return false;
    *array = &e->GetDirectArray();
    return true;
}

int QdxMesh::GetTextureUVIndex(int p, int c, QdxLayerElement::EType type) const {
    QdxLayerElementUV* e = GetLayerCount() > 0 ? GetLayer(0)->GetUVs(type) : nullptr;
    int polygonVertex, controlPoint;
    if (!e || !GetCorner(p, c, polygonVertex, controlPoint)) return -1;
    return e->GetCornerIndex(p, polygonVertex, controlPoint);
}

bool QdxMesh::GetMaterialIndices(QdxLayerElementArrayTemplate<int>** array) const {
    if (!array) return false;
    QdxLayerElementMaterial* e = GetElementMaterial();
    *array = e ? &e->GetIndexArray() : nullptr;
    return e != nullptr;
}

// ---------------------------------------------------------------- NURBS

QDX_IMPLEMENT_OBJECT(QdxNurbsSurface, QdxGeometry, "QdxNurbsSurface")
QdxNurbsSurface::QdxNurbsSurface(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    UOrder = AddProperty(QdxIntDT, "UOrder", 4);
    VOrder = AddProperty(QdxIntDT, "VOrder", 4);
    UCount = AddProperty(QdxIntDT, "UCount", 0);
    VCount = AddProperty(QdxIntDT, "VCount", 0);
    UType = AddProperty(QdxEnumDT, "UType", static_cast<int>(eOpen));
    VType = AddProperty(QdxEnumDT, "VType", static_cast<int>(eOpen));
    UStep = AddProperty(QdxIntDT, "UStep", 4);
    VStep = AddProperty(QdxIntDT, "VStep", 4);
    FlipUV = AddProperty(QdxBoolDT, "FlipUV", false);
    AddArray("UKnots", ArrayKind::Double);
    AddArray("VKnots", ArrayKind::Double);
}

int QdxNurbsSurface::KnotCountFor(int count, int order, EType type) {
    if (count <= 0 || order <= 0) return 0;
    switch (type) {
    case ePeriodic:
        return count + 2 * order - 1;
    case eClosed:
        return count + order + 1;
    default:
        return count + order;
    }
}

void QdxNurbsSurface::ResizeKnots() {
    FindArray("UKnots")->f64.resize(
        static_cast<size_t>(KnotCountFor(GetUCount(), GetUOrder(), GetNurbsUType())));
    FindArray("VKnots")->f64.resize(
        static_cast<size_t>(KnotCountFor(GetVCount(), GetVOrder(), GetNurbsVType())));
}

void QdxNurbsSurface::InitControlPoints(int uCount, EType uType, int vCount, EType vType) {
    UCount.Set(std::max(uCount, 0));
    VCount.Set(std::max(vCount, 0));
    UType.Set(uType);
    VType.Set(vType);
    QdxGeometryBase::InitControlPoints(std::max(uCount, 0) * std::max(vCount, 0));
    ResizeKnots();
}

void QdxNurbsSurface::SetOrder(int uOrder, int vOrder) {
    UOrder.Set(uOrder);
    VOrder.Set(vOrder);
    ResizeKnots();
}

int QdxNurbsSurface::GetUKnotCount() const {
    return static_cast<int>(FindArray("UKnots")->f64.size());
}
int QdxNurbsSurface::GetVKnotCount() const {
    return static_cast<int>(FindArray("VKnots")->f64.size());
}
double* QdxNurbsSurface::GetUKnotVector() {
    return FindArray("UKnots")->f64.data();
}
double* QdxNurbsSurface::GetVKnotVector() {
    return FindArray("VKnots")->f64.data();
}

bool QdxNurbsSurface::IsRational() const {
    const QdxVector4* p = GetControlPoints();
    for (int i = 0; i < QdxGeometryBase::GetControlPointsCount(); ++i)
        if (p[i][3] != 1.0) return true;
    return false;
}

QDX_IMPLEMENT_OBJECT(QdxNurbs, QdxNurbsSurface, "QdxNurbs")
QdxNurbs::QdxNurbs(QdxManager& m, const char* name) : QdxNurbsSurface(m, name) {}

QDX_IMPLEMENT_OBJECT(QdxPatch, QdxGeometry, "QdxPatch")
QdxPatch::QdxPatch(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    UCount = AddProperty(QdxIntDT, "UCount", 0);
    VCount = AddProperty(QdxIntDT, "VCount", 0);
    UType = AddProperty(QdxEnumDT, "UType", static_cast<int>(eBezier));
    VType = AddProperty(QdxEnumDT, "VType", static_cast<int>(eBezier));
}

void QdxPatch::InitControlPoints(int uCount, EType uType, int vCount, EType vType) {
    UCount.Set(uCount);
    VCount.Set(vCount);
    UType.Set(uType);
    VType.Set(vType);
    QdxGeometryBase::InitControlPoints(std::max(uCount, 0) * std::max(vCount, 0));
}

QDX_IMPLEMENT_OBJECT(QdxNurbsCurve, QdxGeometry, "QdxNurbsCurve")
QdxNurbsCurve::QdxNurbsCurve(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    Order = AddProperty(QdxIntDT, "Order", 4);
    CurveType = AddProperty(QdxEnumDT, "CurveType", static_cast<int>(eOpen));
    Dimension = AddProperty(QdxEnumDT, "Dimension", static_cast<int>(e3D));
    AddArray("Knots", ArrayKind::Double);
}

int QdxNurbsCurve::KnotCountFor(int count, int order, EType type) {
    if (count <= 0 || order <= 0) return 0;
    return count + order + (type == ePeriodic ? order - 1 : 0) + (type == eClosed ? 1 : 0);
}

void QdxNurbsCurve::ResizeKnots() {
    FindArray("Knots")->f64.resize(static_cast<size_t>(
        KnotCountFor(QdxGeometryBase::GetControlPointsCount(), GetOrder(), GetType())));
}

void QdxNurbsCurve::InitControlPoints(int count, EType type) {
    CurveType.Set(type);
    QdxGeometryBase::InitControlPoints(count);
    ResizeKnots();
}

void QdxNurbsCurve::SetOrder(int order) {
    Order.Set(order);
    ResizeKnots();
}

int QdxNurbsCurve::GetKnotCount() const {
    return static_cast<int>(FindArray("Knots")->f64.size());
}
double* QdxNurbsCurve::GetKnotVector() {
    return FindArray("Knots")->f64.data();
}
bool QdxNurbsCurve::IsRational() const {
    const QdxVector4* p = GetControlPoints();
    for (int i = 0; i < QdxGeometryBase::GetControlPointsCount(); ++i)
        if (p[i][3] != 1.0) return true;
    return false;
}

QDX_IMPLEMENT_OBJECT(QdxBoundary, QdxGeometry, "QdxBoundary")
QdxBoundary::QdxBoundary(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    Curves = AddProperty(QdxReferenceDT, "Curves", std::monostate());
}
bool QdxBoundary::AddCurve(QdxNurbsCurve* curve) {
    if (!curve) return false;
    detail::JoinSceneOf(this, curve);
    return Curves.ConnectSrcObject(curve);
}
int QdxBoundary::GetCurveCount() const {
    return Curves.GetSrcObjectCount<QdxNurbsCurve>();
}
QdxNurbsCurve* QdxBoundary::GetCurve(int index) const {
    return Curves.GetSrcObject<QdxNurbsCurve>(index);
}

QDX_IMPLEMENT_OBJECT(QdxTrimNurbsSurface, QdxGeometry, "QdxTrimNurbsSurface")
QdxTrimNurbsSurface::QdxTrimNurbsSurface(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    Surface = AddProperty(QdxReferenceDT, "Surface", std::monostate());
    Boundaries = AddProperty(QdxReferenceDT, "Boundaries", std::monostate());
    mRegionsArray = AddArrayIndex(this, "RegionStarts", ArrayKind::Int32);
}

void QdxTrimNurbsSurface::SetNurbsSurface(QdxNurbsSurface* surface) {
    Surface.DisconnectAllSrcObject();
    if (!surface) return;
    detail::JoinSceneOf(this, surface);
    Surface.ConnectSrcObject(surface);
}
QdxNurbsSurface* QdxTrimNurbsSurface::GetNurbsSurface() const {
    return Surface.GetSrcObject<QdxNurbsSurface>();
}
void QdxTrimNurbsSurface::BeginTrimRegion() {
    ArrayOf<int32_t>(mRegionsArray).push_back(Boundaries.GetSrcObjectCount<QdxBoundary>());
    mInRegion = true;
}
bool QdxTrimNurbsSurface::AddBoundary(QdxBoundary* boundary) {
    if (!boundary) return false;
    if (!mInRegion && GetTrimRegionCount() == 0) BeginTrimRegion();
    detail::JoinSceneOf(this, boundary);
    return Boundaries.ConnectSrcObject(boundary);
}
void QdxTrimNurbsSurface::EndTrimRegion() {
    mInRegion = false;
}
int QdxTrimNurbsSurface::GetTrimRegionCount() const {
    return static_cast<int>(ArrayOf<int32_t>(mRegionsArray).size());
}
int QdxTrimNurbsSurface::GetBoundaryCount(int region) const {
    const auto& starts = ArrayOf<int32_t>(mRegionsArray);
    int total = Boundaries.GetSrcObjectCount<QdxBoundary>();
    if (region < 0 || static_cast<size_t>(region) >= starts.size()) return 0;
    int begin = std::clamp(starts[static_cast<size_t>(region)], 0, total);
    int end = static_cast<size_t>(region) + 1 < starts.size()
                  ? std::clamp(starts[static_cast<size_t>(region) + 1], begin, total)
                  : total;
    return end - begin;
}
QdxBoundary* QdxTrimNurbsSurface::GetBoundary(int index, int region) const {
    if (index < 0 || index >= GetBoundaryCount(region)) return nullptr;
    int begin = ArrayOf<int32_t>(mRegionsArray)[static_cast<size_t>(region)];
    return Boundaries.GetSrcObject<QdxBoundary>(begin + index);
}
int QdxTrimNurbsSurface::GetControlPointsCount() const {
    QdxNurbsSurface* s = GetNurbsSurface();
    return s ? s->GetControlPointsCount() : 0;
}

QDX_IMPLEMENT_OBJECT(QdxLine, QdxGeometry, "QdxLine")
QdxLine::QdxLine(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    mIndexArray = AddArrayIndex(this, "PointIndex", ArrayKind::Int32);
    mEndArray = AddArrayIndex(this, "EndPoints", ArrayKind::Int32);
}
void QdxLine::SetIndexArraySize(int count) {
    ArrayOf<int32_t>(mIndexArray).resize(static_cast<size_t>(std::max(count, 0)));
}
int QdxLine::GetIndexArraySize() const {
    return static_cast<int>(ArrayOf<int32_t>(mIndexArray).size());
}
bool QdxLine::SetPointIndexAt(int pointIndex, int arrayIndex, bool asEndPoint) {
    auto& a = ArrayOf<int32_t>(mIndexArray);
    if (arrayIndex < 0 || static_cast<size_t>(arrayIndex) >= a.size()) return false;
    a[static_cast<size_t>(arrayIndex)] = pointIndex;
    return !asEndPoint || AddEndPoint(arrayIndex);
}
int QdxLine::GetPointIndexAt(int arrayIndex) const {
    const auto& a = ArrayOf<int32_t>(mIndexArray);
    return arrayIndex >= 0 && static_cast<size_t>(arrayIndex) < a.size()
               ? a[static_cast<size_t>(arrayIndex)]
               : -1;
}
bool QdxLine::AddPointIndex(int pointIndex, bool asEndPoint) {
    auto& a = ArrayOf<int32_t>(mIndexArray);
    a.push_back(pointIndex);
    return !asEndPoint || AddEndPoint(static_cast<int>(a.size()) - 1);
}
bool QdxLine::AddEndPoint(int arrayIndex) {
    ArrayOf<int32_t>(mEndArray).push_back(arrayIndex);
    return true;
}
int QdxLine::GetEndPointCount() const {
    return static_cast<int>(ArrayOf<int32_t>(mEndArray).size());
}
int QdxLine::GetEndPointAt(int index) const {
    const auto& a = ArrayOf<int32_t>(mEndArray);
    return index >= 0 && static_cast<size_t>(index) < a.size() ? a[static_cast<size_t>(index)] : -1;
}

} // namespace qdxsdk
