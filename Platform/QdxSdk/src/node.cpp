// Nodes: hierarchy, attributes, materials, pivot sets and transform
// evaluation.
#include <cmath>
#include <cstring>

#include "impl.h"
#include "qdxsdk/anim.h"
#include "qdxsdk/attributes.h"
#include "qdxsdk/geometry.h"
#include "qdxsdk/material.h"
#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"
#include "transform_math.h"

namespace qdxsdk {

QDX_IMPLEMENT_OBJECT(QdxNode, QdxObject, "QdxNode")

namespace {
QdxDouble3 D3(const QdxVector4& v) {
    return QdxDouble3(v[0], v[1], v[2]);
}
QdxVector4 V4(const QdxDouble3& d) {
    return QdxVector4(d[0], d[1], d[2], 1.0);
}
} // namespace

QdxNode::QdxNode(QdxManager& m, const char* name) : QdxObject(m, name) {
    LclTranslation = AddProperty(QdxDouble3DT, "Lcl Translation", QdxDouble3());
    LclRotation = AddProperty(QdxDouble3DT, "Lcl Rotation", QdxDouble3());
    LclScaling = AddProperty(QdxDouble3DT, "Lcl Scaling", QdxDouble3(1, 1, 1));
    Visibility = AddProperty(QdxDoubleDT, "Visibility", 1.0);
    VisibilityInheritance = AddProperty(QdxBoolDT, "Visibility Inheritance", true);
    Show = AddProperty(QdxBoolDT, "Show", true);
    InheritType = AddProperty(QdxEnumDT, "InheritType", static_cast<int>(eInheritRSrs));
    ShadingMode = AddProperty(QdxEnumDT, "ShadingMode", static_cast<int>(eFullShading));
    RotationActive = AddProperty(QdxBoolDT, "RotationActive", false);
    LookAtProperty = AddProperty(QdxReferenceDT, "LookAtProperty", std::monostate());
    UpVectorProperty = AddProperty(QdxReferenceDT, "UpVectorProperty", std::monostate());
    for (int s = 0; s < 2; ++s) {
        std::string p = s == 0 ? "" : "Dst|";
        PivotProps& set = mSets[s];
        auto add3 = [&](const char* n, QdxDouble3 v) {
            return AddProperty(QdxDouble3DT, (p + n).c_str(), v);
        };
        set.RotationOffset = add3("RotationOffset", QdxDouble3());
        set.RotationPivot = add3("RotationPivot", QdxDouble3());
        set.ScalingOffset = add3("ScalingOffset", QdxDouble3());
        set.ScalingPivot = add3("ScalingPivot", QdxDouble3());
        set.PreRotation = add3("PreRotation", QdxDouble3());
        set.PostRotation = add3("PostRotation", QdxDouble3());
        set.GeometricTranslation = add3("GeometricTranslation", QdxDouble3());
        set.GeometricRotation = add3("GeometricRotation", QdxDouble3());
        set.GeometricScaling = add3("GeometricScaling", QdxDouble3(1, 1, 1));
        set.RotationOrder = AddProperty(QdxEnumDT, (p + "RotationOrder").c_str(), 0);
        set.PivotState = AddProperty(QdxEnumDT, (p + "PivotState").c_str(), 0);
        set.QuaternionInterpolate =
            AddProperty(QdxEnumDT, (p + "QuaternionInterpolate").c_str(), 0);
    }
}

// ---------------------------------------------------------------- hierarchy

bool QdxNode::AddChild(QdxNode* child) {
    if (!child || child == this) return false;
    for (QdxNode* p = this; p; p = p->GetParent())
        if (p == child) return false; // no cycles
    if (QdxNode* old = child->GetParent()) old->DisconnectSrcObject(child);
    if (QdxScene* s = GetScene()) s->AddMember(child);
    return ConnectSrcObject(child);
}

QdxNode* QdxNode::RemoveChild(QdxNode* child) {
    return child && child->GetParent() == this && DisconnectSrcObject(child) ? child : nullptr;
}

int QdxNode::GetChildCount(bool recursive) const {
    int n = GetSrcObjectCount<QdxNode>();
    if (recursive)
        for (int i = 0, c = n; i < c; ++i)
            n += GetChild(i)->GetChildCount(true);
    return n;
}

QdxNode* QdxNode::GetChild(int index) const {
    return GetSrcObject<QdxNode>(index);
}

QdxNode* QdxNode::GetParent() const {
    return GetDstObject<QdxNode>(0);
}

QdxNode* QdxNode::FindChild(const char* name, bool recursive) const {
    for (int i = 0; i < GetChildCount(); ++i) {
        QdxNode* c = GetChild(i);
        if (std::strcmp(c->GetName(), name ? name : "") == 0) return c;
        if (recursive)
            if (QdxNode* f = c->FindChild(name, true)) return f;
    }
    return nullptr;
}

// ---------------------------------------------------------------- attribute

QdxNodeAttribute* QdxNode::SetNodeAttribute(QdxNodeAttribute* attribute) {
    QdxNodeAttribute* old = GetNodeAttribute();
    if (old) DisconnectSrcObject(old);
    if (attribute) {
        if (QdxScene* s = GetScene()) s->AddMember(attribute);
        ConnectSrcObject(attribute);
    }
    return old;
}

QdxNodeAttribute* QdxNode::GetNodeAttribute() const {
    return GetSrcObject<QdxNodeAttribute>(0);
}
int QdxNode::GetNodeAttributeCount() const {
    return GetSrcObjectCount<QdxNodeAttribute>();
}
QdxNodeAttribute* QdxNode::GetNodeAttributeByIndex(int index) const {
    return GetSrcObject<QdxNodeAttribute>(index);
}

namespace {
template <class T> T* AttributeOf(const QdxNode* n, QdxNodeAttribute::EType type) {
    QdxNodeAttribute* a = n->GetNodeAttribute();
    return a && a->GetAttributeType() == type ? static_cast<T*>(a) : nullptr;
}
} // namespace

QdxGeometry* QdxNode::GetGeometry() const {
    return QdxCast<QdxGeometry>(GetNodeAttribute());
}
QdxMesh* QdxNode::GetMesh() const {
    return AttributeOf<QdxMesh>(this, QdxNodeAttribute::eMesh);
}
QdxNurbs* QdxNode::GetNurbs() const {
    return AttributeOf<QdxNurbs>(this, QdxNodeAttribute::eNurbs);
}
QdxNurbsSurface* QdxNode::GetNurbsSurface() const {
    return AttributeOf<QdxNurbsSurface>(this, QdxNodeAttribute::eNurbsSurface);
}
QdxNurbsCurve* QdxNode::GetNurbsCurve() const {
    return AttributeOf<QdxNurbsCurve>(this, QdxNodeAttribute::eNurbsCurve);
}
QdxTrimNurbsSurface* QdxNode::GetTrimNurbsSurface() const {
    return AttributeOf<QdxTrimNurbsSurface>(this, QdxNodeAttribute::eTrimNurbsSurface);
}
QdxPatch* QdxNode::GetPatch() const {
    return AttributeOf<QdxPatch>(this, QdxNodeAttribute::ePatch);
}
QdxCamera* QdxNode::GetCamera() const {
    return AttributeOf<QdxCamera>(this, QdxNodeAttribute::eCamera);
}
QdxLight* QdxNode::GetLight() const {
    return AttributeOf<QdxLight>(this, QdxNodeAttribute::eLight);
}
QdxSkeleton* QdxNode::GetSkeleton() const {
    return AttributeOf<QdxSkeleton>(this, QdxNodeAttribute::eSkeleton);
}
QdxLine* QdxNode::GetLine() const {
    return AttributeOf<QdxLine>(this, QdxNodeAttribute::eLine);
}

// ---------------------------------------------------------------- materials

int QdxNode::AddMaterial(QdxSurfaceMaterial* material) {
    if (!material) return -1;
    if (QdxScene* s = GetScene()) s->AddMember(material);
    if (!ConnectSrcObject(material)) {
        for (int i = 0; i < GetMaterialCount(); ++i)
            if (GetMaterial(i) == material) return i;
        return -1;
    }
    return GetMaterialCount() - 1;
}

bool QdxNode::RemoveMaterial(QdxSurfaceMaterial* material) {
    return DisconnectSrcObject(material);
}
int QdxNode::GetMaterialCount() const {
    return GetSrcObjectCount<QdxSurfaceMaterial>();
}
QdxSurfaceMaterial* QdxNode::GetMaterial(int index) const {
    return GetSrcObject<QdxSurfaceMaterial>(index);
}
int QdxNode::GetMaterialIndex(const char* name) const {
    for (int i = 0; i < GetMaterialCount(); ++i)
        if (std::strcmp(GetMaterial(i)->GetName(), name ? name : "") == 0) return i;
    return -1;
}
void QdxNode::SetShadingMode(EShadingMode mode) {
    ShadingMode.Set(mode);
}
QdxNode::EShadingMode QdxNode::GetShadingMode() const {
    return static_cast<EShadingMode>(ShadingMode.Get());
}

void QdxNode::SetVisibility(bool visible) {
    Visibility.Set(visible ? 1.0 : 0.0);
}
bool QdxNode::GetVisibility() const {
    return Visibility.Get() > 0.0;
}

void QdxNode::SetTarget(QdxNode* node) {
    LookAtProperty.DisconnectAllSrcObject();
    if (node) LookAtProperty.ConnectSrcObject(node);
}
QdxNode* QdxNode::GetTarget() const {
    return LookAtProperty.GetSrcObject<QdxNode>();
}
void QdxNode::SetTargetUp(QdxNode* node) {
    UpVectorProperty.DisconnectAllSrcObject();
    if (node) UpVectorProperty.ConnectSrcObject(node);
}
QdxNode* QdxNode::GetTargetUp() const {
    return UpVectorProperty.GetSrcObject<QdxNode>();
}

// ---------------------------------------------------------------- pivot sets

void QdxNode::SetPivotState(EPivotSet s, EPivotState state) {
    Set(s).PivotState.Set(state);
}
void QdxNode::GetPivotState(EPivotSet s, EPivotState& state) const {
    state = static_cast<EPivotState>(Set(s).PivotState.Get());
}
void QdxNode::SetRotationActive(bool active) {
    RotationActive.Set(active);
}
bool QdxNode::GetRotationActive() const {
    return RotationActive.Get();
}
void QdxNode::SetRotationOrder(EPivotSet s, EQdxRotationOrder order) {
    Set(s).RotationOrder.Set(order);
}
void QdxNode::GetRotationOrder(EPivotSet s, EQdxRotationOrder& order) const {
    order = GetRotationOrder(s);
}
EQdxRotationOrder QdxNode::GetRotationOrder(EPivotSet s) const {
    int o = Set(s).RotationOrder.Get();
    return o >= 0 && o <= eSphericXYZ ? static_cast<EQdxRotationOrder>(o) : eEulerXYZ;
}
void QdxNode::SetQuaternionInterpolation(EPivotSet s, EQdxQuatInterpMode mode) {
    Set(s).QuaternionInterpolate.Set(mode);
}
EQdxQuatInterpMode QdxNode::GetQuaternionInterpolation(EPivotSet s) const {
    return static_cast<EQdxQuatInterpMode>(Set(s).QuaternionInterpolate.Get());
}

#define QDX_PIVOT_ACCESSORS(Name)                                                                  \
    void QdxNode::Set##Name(EPivotSet s, const QdxVector4& v) {                                    \
        Set(s).Name.Set(D3(v));                                                                    \
    }                                                                                              \
    QdxVector4 QdxNode::Get##Name(EPivotSet s) const {                                             \
        return V4(Set(s).Name.Get());                                                              \
    }

QDX_PIVOT_ACCESSORS(RotationOffset)
QDX_PIVOT_ACCESSORS(RotationPivot)
QDX_PIVOT_ACCESSORS(PreRotation)
QDX_PIVOT_ACCESSORS(PostRotation)
QDX_PIVOT_ACCESSORS(ScalingOffset)
QDX_PIVOT_ACCESSORS(ScalingPivot)
QDX_PIVOT_ACCESSORS(GeometricTranslation)
QDX_PIVOT_ACCESSORS(GeometricRotation)
QDX_PIVOT_ACCESSORS(GeometricScaling)
#undef QDX_PIVOT_ACCESSORS

void QdxNode::CopyPivotSet(EPivotSet from, EPivotSet to) {
    if (from == to) return;
    const PivotProps& a = Set(from);
    PivotProps& b = Set(to);
    b.RotationOffset.Set(a.RotationOffset.Get());
    b.RotationPivot.Set(a.RotationPivot.Get());
    b.ScalingOffset.Set(a.ScalingOffset.Get());
    b.ScalingPivot.Set(a.ScalingPivot.Get());
    b.PreRotation.Set(a.PreRotation.Get());
    b.PostRotation.Set(a.PostRotation.Get());
    b.GeometricTranslation.Set(a.GeometricTranslation.Get());
    b.GeometricRotation.Set(a.GeometricRotation.Get());
    b.GeometricScaling.Set(a.GeometricScaling.Get());
    b.RotationOrder.Set(a.RotationOrder.Get());
    b.PivotState.Set(a.PivotState.Get());
    b.QuaternionInterpolate.Set(a.QuaternionInterpolate.Get());
}

void QdxNode::ResetPivotSet(EPivotSet s) {
    PivotProps& b = Set(s);
    for (auto* p : {&b.RotationOffset, &b.RotationPivot, &b.ScalingOffset, &b.ScalingPivot,
                    &b.PreRotation, &b.PostRotation, &b.GeometricTranslation, &b.GeometricRotation})
        p->Set(QdxDouble3());
    b.GeometricScaling.Set(QdxDouble3(1, 1, 1));
    b.RotationOrder.Set(eEulerXYZ);
}

void QdxNode::SetTransformationInheritType(EQdxTransformInheritType type) {
    InheritType.Set(type);
}
void QdxNode::GetTransformationInheritType(EQdxTransformInheritType& type) const {
    type = GetTransformationInheritType();
}
EQdxTransformInheritType QdxNode::GetTransformationInheritType() const {
    int t = InheritType.Get();
    return t >= 0 && t <= 2 ? static_cast<EQdxTransformInheritType>(t) : eInheritRSrs;
}

// ---------------------------------------------------------------- evaluation

namespace {
QdxAMatrix Translation(const QdxVector4& t) {
    return detail::TranslationMatrix(t);
}
QdxAMatrix Scaling(const QdxVector4& s) {
    return detail::ScalingMatrix(s);
}
QdxVector4 Cross(const QdxVector4& a, const QdxVector4& b) {
    return QdxVector4(a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                      a[0] * b[1] - a[1] * b[0], 0);
}

QdxVector4 Eval3(const QdxPropertyT<QdxDouble3>& p, QdxTime t) {
    return V4(p.EvaluateValue(t));
}

// Shorter aim directions, and up hints closer to the forward direction,
// count as none.
constexpr double kAimMinLength = 1e-12;

// The rotation whose rows are the unit forward direction, the up hint made
// perpendicular to it, and their cross product: it turns +X into forward
// and +Y into up. An up hint along forward is replaced by the axis least
// aligned with forward. False when forward has no direction.
bool AimFrame(const QdxVector4& forward, const QdxVector4& upHint, QdxAMatrix& out) {
    QdxVector4 x = detail::UnitDirection(forward, kAimMinLength);
    if (x.Length() == 0.0) return false;
    QdxVector4 z = detail::UnitDirection(Cross(x, upHint), kAimMinLength);
    if (z.Length() == 0.0) {
        int least = 0;
        for (int i = 1; i < 3; ++i)
            if (std::fabs(x[i]) < std::fabs(x[least])) least = i;
        QdxVector4 axis(0, 0, 0, 0);
        axis[least] = 1;
        z = detail::UnitDirection(Cross(x, axis), kAimMinLength);
    }
    QdxVector4 y = Cross(z, x);
    out.SetIdentity();
    out.SetRow(0, x);
    out.SetRow(1, y);
    out.SetRow(2, z);
    return true;
}

// The scene's up direction in world space; +Y without a scene.
QdxVector4 WorldUp(QdxScene* scene) {
    if (!scene) return QdxVector4(0, 1, 0, 0);
    QdxVector4 up = scene->GetGlobalSettings().GetAxisSystem().GetBasis().GetRow(1);
    up[3] = 0;
    return up;
}
} // namespace

QdxVector4 QdxNode::EvaluateLocalTranslation(QdxTime t, EPivotSet, bool, bool) {
    return Eval3(LclTranslation, t);
}

QdxVector4 QdxNode::EvaluateLocalScaling(QdxTime t, EPivotSet, bool, bool) {
    return Eval3(LclScaling, t);
}

namespace {
// With quaternion interpolation the orientation moves between the rotation
// keys along the shortest arc at constant angular speed (slerp) instead of
// interpolating each Euler angle.
QdxVector4 SlerpBetweenKeys(QdxNode* n, QdxTime t, EQdxRotationOrder order, const QdxVector4& r) {
    QdxScene* scene = n->GetScene();
    QdxAnimStack* stack = scene ? scene->GetCurrentAnimationStack() : nullptr;
    QdxAnimLayer* layer = stack ? stack->GetLayer(0) : nullptr;
    QdxAnimCurveNode* cn = layer ? n->LclRotation.GetCurveNode(layer, false) : nullptr;
    if (!cn) return r;
    long long before = QdxTime::kMinusInfinite, after = QdxTime::kInfinite;
    for (unsigned int c = 0; c < cn->GetChannelsCount(); ++c)
        if (QdxAnimCurve* curve = cn->GetCurve(c))
            for (int k = 0; k < curve->KeyGetCount(); ++k) {
                long long kt = curve->KeyGetTime(k).Get();
                if (kt <= t.Get() && kt > before) before = kt;
                if (kt > t.Get() && kt < after) after = kt;
            }
    if (before == QdxTime::kMinusInfinite || after == QdxTime::kInfinite || before == t.Get())
        return r;
    QdxVector4 a = V4(n->LclRotation.EvaluateValue(QdxTime(before)));
    QdxVector4 b = V4(n->LclRotation.EvaluateValue(QdxTime(after)));
    double u = static_cast<double>(t.Get() - before) / static_cast<double>(after - before);
    QdxQuaternion q = QdxQuaternion::Slerp(QdxEulerToMatrix(a, order).GetQ(),
                                           QdxEulerToMatrix(b, order).GetQ(), u);
    QdxAMatrix m;
    m.SetQ(q);
    QdxVector4 e = QdxMatrixToEuler(m, order, &r);
    return QdxVector4(e[0], e[1], e[2], 1.0);
}
} // namespace

QdxVector4 QdxNode::EvaluateLocalRotation(QdxTime t, EPivotSet s, bool applyTarget, bool) {
    QdxVector4 r = Eval3(LclRotation, t);
    if (GetQuaternionInterpolation(s) != eQuatInterpOff && LclRotation.IsAnimated())
        r = SlerpBetweenKeys(this, t, GetRotationActive() ? GetRotationOrder(s) : eEulerXYZ, r);
    QdxNode* target = applyTarget ? GetTarget() : nullptr;
    if (!target) return r;
    // Aim the attribute's forward axis at the target and turn its up axis
    // towards the up target, or else towards the scene's up axis; all in the
    // parent's space.
    QdxAMatrix parent = GetParent() ? GetParent()->EvaluateGlobalTransform(t, s) : QdxAMatrix();
    QdxAMatrix parentInv = parent.Inverse();
    QdxVector4 here = EvaluateLocalTransform(t, s).GetT();
    QdxVector4 there = parentInv.MultT(target->EvaluateGlobalTransform(t, s).GetT());
    QdxVector4 upHint;
    if (QdxNode* up = GetTargetUp())
        upHint = parentInv.MultT(up->EvaluateGlobalTransform(t, s).GetT()) - here;
    else
        upHint = parentInv.MultR(WorldUp(GetScene()));
    QdxAMatrix aim;
    if (!AimFrame(there - here, upHint, aim)) return r;
    if (QdxNodeAttribute* attribute = GetNodeAttribute()) {
        // The attribute's axes as its geometric transform turns them.
        QdxAMatrix geometric = GetGeometricTransform(s);
        QdxAMatrix own;
        if (AimFrame(geometric.MultR(attribute->GetForwardAxis()),
                     geometric.MultR(attribute->GetUpAxis()), own))
            aim = aim * own.Transpose();
    }
    bool active = GetRotationActive();
    QdxAMatrix pre = active ? QdxEulerToMatrix(GetPreRotation(s), eEulerXYZ) : QdxAMatrix();
    QdxAMatrix post = active ? QdxEulerToMatrix(GetPostRotation(s), eEulerXYZ) : QdxAMatrix();
    EQdxRotationOrder order = active ? GetRotationOrder(s) : eEulerXYZ;
    QdxAMatrix R = pre.Inverse() * aim * post;
    QdxVector4 e = QdxMatrixToEuler(R, order, &r);
    return QdxVector4(e[0], e[1], e[2], 1.0);
}

QdxAMatrix QdxNode::EvaluateLocalTransform(QdxTime t, EPivotSet s, bool applyTarget, bool) {
    return detail::ComposeLocal(detail::PivotValuesOf(this, s), EvaluateLocalTranslation(t, s),
                                EvaluateLocalRotation(t, s, applyTarget),
                                EvaluateLocalScaling(t, s));
}

namespace {
struct GlobalState {
    QdxAMatrix matrix;
    QdxAMatrix rotation;
    QdxVector4 scale{1, 1, 1, 1};
};

GlobalState EvaluateGlobalState(QdxNode* node, QdxTime t, QdxNode::EPivotSet s, bool applyTarget) {
    GlobalState g;
    QdxAMatrix local = node->EvaluateLocalTransform(t, s, applyTarget);
    QdxAMatrix rl = detail::ComposeRotation(detail::PivotValuesOf(node, s),
                                            node->EvaluateLocalRotation(t, s, applyTarget));
    QdxVector4 sl = node->EvaluateLocalScaling(t, s);
    QdxNode* parent = node->GetParent();
    if (!parent) {
        g.matrix = local;
        g.rotation = rl;
        g.scale = sl;
        return g;
    }
    GlobalState p = EvaluateGlobalState(parent, t, s, applyTarget);
    EQdxTransformInheritType type = node->GetTransformationInheritType();
    g.rotation = p.rotation * rl;
    if (type == eInheritRSrs) {
        g.matrix = p.matrix * local;
        g.scale = QdxVector4(p.scale[0] * sl[0], p.scale[1] * sl[1], p.scale[2] * sl[2]);
        return g;
    }
    QdxVector4 origin = p.matrix.MultT(local.GetT());
    g.scale = type == eInheritRrSs
                  ? QdxVector4(p.scale[0] * sl[0], p.scale[1] * sl[1], p.scale[2] * sl[2])
                  : sl;
    g.matrix = Translation(origin) * g.rotation * Scaling(g.scale);
    return g;
}
} // namespace

QdxAMatrix QdxNode::EvaluateGlobalTransform(QdxTime t, EPivotSet s, bool applyTarget, bool) {
    return EvaluateGlobalState(this, t, s, applyTarget).matrix;
}

QdxAMatrix QdxNode::GetGeometricTransform(EPivotSet s) const {
    return Translation(GetGeometricTranslation(s)) *
           QdxEulerToMatrix(GetGeometricRotation(s), eEulerXYZ) * Scaling(GetGeometricScaling(s));
}

} // namespace qdxsdk

namespace qdxsdk::detail {

QdxAMatrix TranslationMatrix(const QdxVector4& t) {
    QdxAMatrix m;
    m.SetT(t);
    return m;
}

QdxVector4 UnitDirection(const QdxVector4& d, double minLength) {
    QdxVector4 v(d[0], d[1], d[2], 0);
    double len = v.Length();
    if (!(len > minLength) || !std::isfinite(1.0 / len)) return QdxVector4(0, 0, 0, 0);
    v = v * (1.0 / len);
    v[3] = 0;
    return v;
}

QdxAMatrix ScalingMatrix(const QdxVector4& s) {
    QdxAMatrix m;
    for (int i = 0; i < 3; ++i)
        m.m[i][i] = s[i];
    return m;
}

PivotValues PivotValuesOf(const QdxNode* n, QdxNode::EPivotSet s) {
    PivotValues v;
    if (n->GetRotationActive()) {
        v.pre = QdxEulerToMatrix(n->GetPreRotation(s), eEulerXYZ);
        v.post = QdxEulerToMatrix(n->GetPostRotation(s), eEulerXYZ);
        v.order = n->GetRotationOrder(s);
    }
    v.roff = n->GetRotationOffset(s);
    v.rp = n->GetRotationPivot(s);
    v.soff = n->GetScalingOffset(s);
    v.sp = n->GetScalingPivot(s);
    return v;
}

QdxAMatrix ComposeRotation(const PivotValues& v, const QdxVector4& r) {
    return v.pre * QdxEulerToMatrix(r, v.order) * v.post.Inverse();
}

QdxAMatrix ComposeLocal(const PivotValues& v, const QdxVector4& t, const QdxVector4& r,
                        const QdxVector4& s) {
    return TranslationMatrix(t) * TranslationMatrix(v.roff) * TranslationMatrix(v.rp) *
           ComposeRotation(v, r) * TranslationMatrix(v.rp * -1.0) * TranslationMatrix(v.soff) *
           TranslationMatrix(v.sp) * ScalingMatrix(s) * TranslationMatrix(v.sp * -1.0);
}

} // namespace qdxsdk::detail
