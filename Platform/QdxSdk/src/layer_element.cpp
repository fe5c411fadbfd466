// Layer elements, layers and the layer container.
#include <algorithm>
#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include "impl.h"
#include "qdxsdk/layer_element.h"
#include "qdxsdk/mesh.h"

namespace qdxsdk {

using detail::ArrayKind;
using detail::ArrayRec;

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
        Elements<int32_t>().reserve(n);
    else
        Elements<double>().reserve(n);
}

template <class T>
QdxLayerElementTemplate<T>::QdxLayerElementTemplate(QdxManager& m, const char* name)
    : QdxLayerElement(m, name), mDirect(this, AddOwnArray("Direct", ArrayKind::Double)),
      mIndex(this, AddOwnArray("Index", ArrayKind::Int32)) {}

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

const QdxClassId* QdxLayerElement::GetSlotClass(EType slot) {
    switch (slot) {
    case eNormal:
        return &QdxLayerElementNormal::ClassId;
    case eMaterial:
        return &QdxLayerElementMaterial::ClassId;
    case eVertexColor:
        return &QdxLayerElementVertexColor::ClassId;
    case eUV:
        return &QdxLayerElementUV::ClassId;
    default:
        return slot >= eTextureDiffuse && slot < eTypeCount ? &QdxLayerElementUV::ClassId : nullptr;
    }
}

bool QdxLayerElement::FitsSlot(EType slot) const {
    const QdxClassId* id = GetSlotClass(slot);
    return id && GetClassId().Is(*id);
}

namespace {
// An element's modes and arrays, read once, and the one place a mesh corner
// is turned into an element index: every per-corner call and the bulk call
// go through DirectIndex.
struct CornerMap {
    QdxLayerElement::EMappingMode mapping;
    bool indexed;
    const int* index;
    int indexCount;
    int directCount;

    template <class T>
    explicit CornerMap(const QdxLayerElementTemplate<T>& e)
        : mapping(e.GetMappingMode()), indexed(e.GetReferenceMode() != QdxLayerElement::eDirect),
          index(e.GetIndexArray().GetInts()), indexCount(e.GetIndexArray().GetCount()),
          directCount(e.GetDirectArray().GetCount()) {}

    // Element index with the reference mode applied; -1 when the mapping
    // mode does not map corners or the index array has no entry there.
    int Index(int polygon, int polygonVertex, int controlPoint) const {
        int i;
        switch (mapping) {
        case QdxLayerElement::eByControlPoint:
            i = controlPoint;
            break;
        case QdxLayerElement::eByPolygonVertex:
            i = polygonVertex;
            break;
        case QdxLayerElement::eByPolygon:
            i = polygon;
            break;
        case QdxLayerElement::eAllSame:
            i = 0;
            break;
        default:
            return -1;
        }
        if (!indexed) return i;
        return i >= 0 && i < indexCount ? index[i] : -1;
    }
    int DirectIndex(int polygon, int polygonVertex, int controlPoint) const {
        int i = Index(polygon, polygonVertex, controlPoint);
        return i >= 0 && i < directCount ? i : -1;
    }
};
} // namespace

template <class T>
int QdxLayerElementTemplate<T>::GetCornerIndex(int polygon, int polygonVertex,
                                               int controlPoint) const {
    return CornerMap(*this).Index(polygon, polygonVertex, controlPoint);
}

template <class T>
int QdxLayerElementTemplate<T>::GetCornerDirectIndex(int polygon, int polygonVertex,
                                                     int controlPoint) const {
    return CornerMap(*this).DirectIndex(polygon, polygonVertex, controlPoint);
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
    return GetPolygonVertexValues(mesh, 0, mesh.GetPolygonCount(), values, unmapped,
                                  reverseCorners);
}

namespace {
// The polygons of a mesh as their corner spans in the polygon-vertex array,
// read from the mesh's arrays once instead of a call per polygon.
struct PolygonSpans {
    explicit PolygonSpans(const QdxMesh& mesh)
        : starts(mesh.GetPolygonStarts()), count(std::max(mesh.GetPolygonCount(), 0)),
          corners(mesh.GetPolygonVertexCount()) {}
    int Start(int p) const { return starts[p]; }
    int End(int p) const { return p + 1 < count ? starts[p + 1] : corners; }
    int Size(int p) const { return std::max(End(p) - Start(p), 0); }

    const int* starts;
    int count;
    int corners;
};
} // namespace

template <class T>
bool QdxLayerElementTemplate<T>::GetPolygonVertexValues(const QdxMesh& mesh, int firstPolygon,
                                                        int polygonCount, std::vector<T>& values,
                                                        std::vector<uint8_t>* unmapped,
                                                        bool reverseCorners) const {
    const PolygonSpans spans(mesh);
    const int begin = std::clamp(firstPolygon, 0, spans.count);
    const int end = static_cast<int>(std::clamp<int64_t>(
        static_cast<int64_t>(begin) + std::max(polygonCount, 0), begin, spans.count));
    size_t total = 0;
    for (int p = begin; p < end; ++p)
        total += static_cast<size_t>(spans.Size(p));
    values.assign(total, T());
    if (unmapped) unmapped->assign(total, 1);
    if (!MapsPolygonVertices()) return false;
    const CornerMap map(*this);
    const int* vertices = mesh.GetPolygonVertices();
    const int vertexCount = spans.corners;
    using Traits = QdxLayerElementTraits<T>;
    // The direct values the range reads: for a direct array still in its
    // file and mapped by polygon vertex without an index, only the entries
    // the range's corners address are streamed (the polygons' corners are
    // one run of the polygon-vertex array, and so are their entries); any
    // other mapping reads the direct array at random and decodes it whole.
    const double* direct = nullptr;
    size_t lowest = 0;
    std::vector<double> window;
    const ArrayRec& rec = mDirect.Rec();
    if (rec.IsPending() && map.mapping == eByPolygonVertex && !map.indexed) {
        const int low = begin < end ? std::max(spans.Start(begin), 0) : 0;
        const int high = begin < end ? std::min(spans.End(end - 1), map.directCount) : 0;
        if (high > low) {
            lowest = static_cast<size_t>(low);
            window.resize(static_cast<size_t>(high - low) * Traits::kStride);
            rec.ReadRange(lowest * Traits::kStride, window.size(), window.data());
            direct = window.data();
        }
    } else {
        direct = mDirect.GetDoubles();
    }
    size_t out = 0;
    for (int p = begin; p < end; ++p) {
        const int size = spans.Size(p);
        const int start = spans.Start(p);
        for (int k = 0; k < size; ++k, ++out) {
            // The corner as QdxMesh::GetCorner resolves it.
            const int polygonVertex = start + (reverseCorners ? size - 1 - k : k);
            if (polygonVertex < 0 || polygonVertex >= vertexCount) continue;
            const int i = map.DirectIndex(p, polygonVertex, vertices[polygonVertex]);
            if (i < 0) continue;
            values[out] =
                Traits::Load(direct + (static_cast<size_t>(i) - lowest) * Traits::kStride);
            if (unmapped) (*unmapped)[out] = 0;
        }
    }
    return true;
}

template <class T> bool QdxLayerElementTemplate<T>::MapsEveryCorner(const QdxMesh& mesh) const {
    const PolygonSpans spans(mesh);
    if (!MapsPolygonVertices()) return spans.count == 0;
    const CornerMap map(*this);
    const int* vertices = mesh.GetPolygonVertices();
    for (int p = 0; p < spans.count; ++p) {
        const int start = spans.Start(p), size = spans.Size(p);
        for (int k = 0; k < size; ++k) {
            const int polygonVertex = start + k;
            if (polygonVertex < 0 || polygonVertex >= spans.corners) return false;
            if (map.DirectIndex(p, polygonVertex, vertices[polygonVertex]) < 0) return false;
        }
    }
    return true;
}

template <class T>
bool QdxLayerElementArrayTemplate<T>::GetRange(int first, int count, std::vector<T>& out) const {
    out.clear();
    if (first < 0 || count < 0 || first > GetCount() || count > GetCount() - first) return false;
    out.resize(static_cast<size_t>(count));
    // Converted a block at a time, so that a range of an array still in its
    // file is streamed without a second copy of the whole range.
    constexpr size_t kBlock = size_t(1) << 14;
    std::vector<double> block(std::min(kBlock, out.size()) * Traits::kStride);
    for (size_t at = 0; at < out.size(); at += kBlock) {
        const size_t n = std::min(kBlock, out.size() - at);
        Rec().ReadRange((static_cast<size_t>(first) + at) * Traits::kStride, n * Traits::kStride,
                        block.data());
        for (size_t i = 0; i < n; ++i)
            out[at + i] = Traits::Load(block.data() + i * Traits::kStride);
    }
    return true;
}

template class QdxLayerElementArrayTemplate<QdxVector4>;
template class QdxLayerElementArrayTemplate<QdxVector2>;
template class QdxLayerElementArrayTemplate<QdxColor>;
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

bool QdxLayer::SetLayerElementOfType(QdxLayerElement* element, QdxLayerElement::EType slot) {
    if (slot <= 0 || slot >= QdxLayerElement::eTypeCount) return false;
    if (element && !element->FitsSlot(slot)) return false;
    if (QdxLayerElement* old = GetLayerElementOfType(slot)) old->LayerIndex.Set(-1);
    mSlots[slot] = element;
    if (!element) return true;
    element->LayerIndex.Set(mIndex);
    element->LayerSlot.Set(slot);
    detail::JoinSceneOf(mOwner, element);
    mOwner->ConnectSrcObject(element);
    return true;
}

// The typed accessors cast through the class check: a slot filled by any
// other means than the typed setters still never yields a wrong type.
QdxLayerElementNormal* QdxLayer::GetNormals() const {
    return QdxCast<QdxLayerElementNormal>(GetLayerElementOfType(QdxLayerElement::eNormal));
}
void QdxLayer::SetNormals(QdxLayerElementNormal* e) {
    SetLayerElementOfType(e, QdxLayerElement::eNormal);
}
QdxLayerElementMaterial* QdxLayer::GetMaterials() const {
    return QdxCast<QdxLayerElementMaterial>(GetLayerElementOfType(QdxLayerElement::eMaterial));
}
void QdxLayer::SetMaterials(QdxLayerElementMaterial* e) {
    SetLayerElementOfType(e, QdxLayerElement::eMaterial);
}
QdxLayerElementVertexColor* QdxLayer::GetVertexColors() const {
    return QdxCast<QdxLayerElementVertexColor>(
        GetLayerElementOfType(QdxLayerElement::eVertexColor));
}
void QdxLayer::SetVertexColors(QdxLayerElementVertexColor* e) {
    SetLayerElementOfType(e, QdxLayerElement::eVertexColor);
}
QdxLayerElementUV* QdxLayer::GetUVs(QdxLayerElement::EType type) const {
    if (type < QdxLayerElement::eTextureDiffuse) return nullptr;
    return QdxCast<QdxLayerElementUV>(GetLayerElementOfType(type));
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
        const auto type = static_cast<QdxLayerElement::EType>(slot);
        if (!e->FitsSlot(type)) {
            const QdxClassId* wanted = QdxLayerElement::GetSlotClass(type);
            status.SetCode(QdxStatus::eInvalidFile,
                           std::string("Layer element '") + e->GetName() + "' of class " +
                               e->GetClassId().GetName() + " cannot fill layer slot " +
                               std::to_string(slot) + ", which holds " +
                               (wanted ? wanted->GetName() : "no element class"));
            return false;
        }
        while (GetLayerCount() <= layer)
            CreateLayer();
        mLayers[static_cast<size_t>(layer)]->mSlots[slot] = e;
    }
    return true;
}

void QdxLayerContainer::DecodeArrays() {
    std::vector<const ArrayRec*> pending;
    auto collect = [&pending](const QdxObject* o) {
        for (const ArrayRec& a : o->Arrays())
            if (a.IsPending()) pending.push_back(&a);
    };
    collect(this);
    for (int i = 0; i < GetSrcObjectCount<QdxLayerElement>(); ++i)
        collect(GetSrcObject<QdxLayerElement>(i));
    // Largest first, so that the threads finish close together.
    std::sort(pending.begin(), pending.end(),
              [](const ArrayRec* a, const ArrayRec* b) { return a->Count() > b->Count(); });
    std::atomic<size_t> next{0};
    auto work = [&pending, &next] {
        for (size_t i = next++; i < pending.size(); i = next++)
            pending[i]->Data();
    };
    const size_t helpers = std::min<size_t>(pending.size() > 0 ? pending.size() - 1 : 0,
                                            std::max(std::thread::hardware_concurrency(), 1u) - 1);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < helpers; ++t) {
        try {
            threads.emplace_back(work);
        } catch (...) {
            break; // fewer threads: the calling thread decodes the rest
        }
    }
    work();
    for (std::thread& t : threads)
        t.join();
}

void QdxLayerContainer::ReleaseArrays() {
    for (ArrayRec& a : Arrays())
        a.Release();
    for (int i = 0; i < GetSrcObjectCount<QdxLayerElement>(); ++i) {
        QdxLayerElement* e = GetSrcObject<QdxLayerElement>(i);
        if (e->GetDstObjectCount<QdxLayerContainer>() != 1) continue;
        for (ArrayRec& a : e->Arrays())
            a.Release();
    }
}

} // namespace qdxsdk
