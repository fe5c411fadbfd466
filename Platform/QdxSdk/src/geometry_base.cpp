// Control points, layer element access and deformer lists of geometries.
#include <algorithm>
#include <cstring>

#include "impl.h"
#include "qdxsdk/geometry_base.h"

namespace qdxsdk {

using detail::ArrayKind;

QDX_IMPLEMENT_ABSTRACT(QdxGeometryBase, QdxLayerContainer, "QdxGeometryBase")

QdxGeometryBase::QdxGeometryBase(QdxManager& m, const char* name) : QdxLayerContainer(m, name) {
    mControlPointsArray = AddOwnArray("ControlPoints", ArrayKind::Double);
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

} // namespace qdxsdk
