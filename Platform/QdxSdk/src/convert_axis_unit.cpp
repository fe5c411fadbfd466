// Axis-system and unit conversion of whole scenes. Both keep the physical
// scene: world-space points end up the same, expressed in the new axes or
// the new unit.
#include <cmath>
#include <cstdio>
#include <vector>

#include "qdxsdk/anim.h"
#include "qdxsdk/geometry.h"
#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"
#include "value_type.h"

namespace qdxsdk {

// ---------------------------------------------------------------- axis systems

const QdxAxisSystem QdxAxisSystem::ToveYUp(eYAxis, eParityOdd, eRightHanded, 1, 1);
const QdxAxisSystem QdxAxisSystem::ToveZUp(eZAxis, eParityOdd, eRightHanded, 1, -1);

QdxAxisSystem::QdxAxisSystem(EUpVector up, EFrontVector front, ECoordSystem coord, int upSign,
                             int frontSign)
    : mUp(up), mFront(front), mCoord(coord), mUpSign(upSign < 0 ? -1 : 1),
      mFrontSign(frontSign < 0 ? -1 : 1) {}

bool operator==(const QdxAxisSystem& a, const QdxAxisSystem& b) {
    return a.mUp == b.mUp && a.mFront == b.mFront && a.mCoord == b.mCoord &&
           a.mUpSign == b.mUpSign && a.mFrontSign == b.mFrontSign;
}

QdxAMatrix QdxAxisSystem::GetBasis() const {
    int upAxis = static_cast<int>(mUp) - 1;
    int rest[2], r = 0;
    for (int a = 0; a < 3; ++a)
        if (a != upAxis) rest[r++] = a;
    int frontAxis = rest[mFront == eParityEven ? 0 : 1];
    QdxVector4 u(0, 0, 0, 0), f(0, 0, 0, 0);
    u[upAxis] = mUpSign;
    f[frontAxis] = mFrontSign;
    QdxVector4 right(u[1] * f[2] - u[2] * f[1], u[2] * f[0] - u[0] * f[2],
                     u[0] * f[1] - u[1] * f[0], 0);
    if (mCoord == eLeftHanded) right = right * -1.0;
    QdxAMatrix m;
    m.SetRow(0, QdxVector4(right[0], right[1], right[2], 0));
    m.SetRow(1, QdxVector4(u[0], u[1], u[2], 0));
    m.SetRow(2, QdxVector4(f[0], f[1], f[2], 0));
    return m;
}

QdxAMatrix QdxAxisSystem::GetConversionFrom(const QdxAxisSystem& from) const {
    return GetBasis() * from.GetBasis().Transpose();
}

namespace {
using Vec = QdxVector4;

// Column-vector element (row, col) of an axis conversion (a signed
// permutation): component i of a converted vector is sign[i] * v[perm[i]].
void SignedPermutation(const QdxAMatrix& c, int perm[3], double sign[3]) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (std::fabs(c.m[j][i]) > 0.5) {
                perm[i] = j;
                sign[i] = c.m[j][i] > 0 ? 1.0 : -1.0;
            }
}

// Applies new[i] = sign[i] * old[perm[i]] + offset[i] to a three-channel
// property: its value and, in every layer, its curve nodes (the offset only
// where a layer replaces the value rather than adding to it).
void RemapVectorProperty(QdxPropertyT<QdxDouble3>& prop, const int perm[3], const double sign[3],
                         const double offset[3]) {
    QdxDouble3 v = prop.Get(), nv;
    for (int i = 0; i < 3; ++i)
        nv[i] = sign[i] * v[perm[i]] + offset[i];
    prop.Set(nv);
    for (int n = 0; n < prop.GetSrcObjectCount<QdxAnimCurveNode>(); ++n) {
        QdxAnimCurveNode* cn = prop.GetSrcObject<QdxAnimCurveNode>(n);
        if (cn->GetChannelsCount() < 3) continue;
        QdxAnimLayer* layer = cn->GetLayer();
        QdxAnimStack* stack = layer ? layer->GetDstObject<QdxAnimStack>() : nullptr;
        bool replaces = !layer || !stack || stack->GetLayer(0) == layer ||
                        layer->BlendMode.Get() != QdxAnimLayer::eBlendAdditive;
        std::vector<QdxAnimCurve*> curves[3];
        double values[3];
        for (unsigned int c = 0; c < 3; ++c) {
            values[c] = cn->GetChannelValue(c, 0.0);
            for (int k = 0; k < cn->GetCurveCount(c); ++k)
                curves[c].push_back(cn->GetCurve(c, static_cast<unsigned int>(k)));
            for (QdxAnimCurve* cv : curves[c])
                cn->DisconnectFromChannel(cv, c);
        }
        for (unsigned int i = 0; i < 3; ++i) {
            double off = replaces ? offset[i] : 0.0;
            cn->SetChannelValue(i, sign[i] * values[perm[i]] + off);
            for (QdxAnimCurve* cv : curves[perm[i]]) {
                for (int k = 0; k < cv->KeyGetCount(); ++k) {
                    cv->KeySetValue(k, sign[i] * cv->KeyGetValue(k) + off);
                    cv->KeySetLeftDerivative(k, sign[i] * cv->KeyGetLeftDerivative(k));
                    cv->KeySetRightDerivative(k, sign[i] * cv->KeyGetRightDerivative(k));
                }
                cn->ConnectToChannel(cv, i);
            }
        }
    }
}

template <class T> std::vector<T*> Members(QdxScene* scene) {
    std::vector<T*> out;
    for (int i = 0; i < scene->GetSrcObjectCount<T>(); ++i)
        out.push_back(scene->GetSrcObject<T>(i));
    return out;
}
} // namespace

namespace {
// Turns node n's local transform into C * local: C * (T * Roff * Rp * Rpre ...)
// = T' * Roff * Rp * (C * Rpre) ... with T' = C (T + Roff + Rp) - Roff - Rp.
void ConvertNodeAxes(QdxNode* n, const QdxAMatrix& c, const int perm[3], const double sign[3]) {
    const auto set = QdxNode::eSourcePivot;
    Vec pivot = n->GetRotationOffset(set) + n->GetRotationPivot(set);
    Vec rotated = c.MultR(pivot);
    double offset[3];
    for (int k = 0; k < 3; ++k)
        offset[k] = rotated[k] - pivot[k];
    RemapVectorProperty(n->LclTranslation, perm, sign, offset);
    bool active = n->GetRotationActive();
    QdxAMatrix pre = active ? QdxEulerToMatrix(n->GetPreRotation(set), eEulerXYZ) : QdxAMatrix();
    Vec hint = active ? n->GetPreRotation(set) : Vec(0, 0, 0);
    Vec newPre = QdxMatrixToEuler(c * pre, eEulerXYZ, &hint);
    if (!active) {
        for (auto s : {QdxNode::eSourcePivot, QdxNode::eDestinationPivot}) {
            n->SetPostRotation(s, Vec(0, 0, 0));
            n->SetRotationOrder(s, eEulerXYZ);
        }
        n->SetRotationActive(true);
    }
    n->SetPreRotation(set, newPre);
}

// A root node that moves its subtree: a local transform other than the
// identity, or animation of its translation, rotation or scaling.
bool CarriesTransform(QdxNode* root) {
    return !root->EvaluateLocalTransform().IsIdentity() || root->LclTranslation.IsAnimated() ||
           root->LclRotation.IsAnimated() || root->LclScaling.IsAnimated();
}
} // namespace

bool QdxAxisSystem::ConvertScene(QdxScene* scene) const {
    if (!scene) return false;
    QdxGlobalSettings& gs = scene->GetGlobalSettings();
    QdxAxisSystem from = gs.GetAxisSystem();
    if (from == *this) return true;
    if (from.mCoord != mCoord) return false;
    QdxAMatrix c = GetConversionFrom(from);
    int perm[3] = {0, 1, 2};
    double sign[3] = {1, 1, 1};
    SignedPermutation(c, perm, sign);
    // The conversion goes in where the world starts: on the root itself when
    // it moves its subtree, else on each of its children.
    if (QdxNode* root = scene->GetRootNode()) {
        if (CarriesTransform(root))
            ConvertNodeAxes(root, c, perm, sign);
        else
            for (int i = 0; i < root->GetChildCount(); ++i)
                ConvertNodeAxes(root->GetChild(i), c, perm, sign);
    }
    // World-space values.
    const double none[3] = {0, 0, 0};
    for (QdxCamera* cam : Members<QdxCamera>(scene))
        for (auto* prop : {&cam->Position, &cam->InterestPosition, &cam->UpVector})
            RemapVectorProperty(*prop, perm, sign, none);
    for (QdxCluster* cl : Members<QdxCluster>(scene)) {
        cl->TransformMatrix.Set(c * cl->TransformMatrix.Get());
        cl->TransformLinkMatrix.Set(c * cl->TransformLinkMatrix.Get());
    }
    gs.SetAxisSystem(*this);
    return true;
}

// ---------------------------------------------------------------- units

const QdxSystemUnit::ConversionOptions QdxSystemUnit::DefaultConversionOptions{};
const QdxSystemUnit QdxSystemUnit::mm(0.1);
const QdxSystemUnit QdxSystemUnit::cm(1.0);
const QdxSystemUnit QdxSystemUnit::dm(10.0);
const QdxSystemUnit QdxSystemUnit::m(100.0);
const QdxSystemUnit QdxSystemUnit::km(100000.0);
const QdxSystemUnit QdxSystemUnit::Inch(2.54);
const QdxSystemUnit QdxSystemUnit::Foot(30.48);
const QdxSystemUnit QdxSystemUnit::Yard(91.44);
const QdxSystemUnit QdxSystemUnit::Mile(160934.4);

QdxSystemUnit::QdxSystemUnit(double centimetresPerUnit, double multiplier)
    : mScale(centimetresPerUnit), mMultiplier(multiplier) {}

QdxString QdxSystemUnit::GetScaleFactorAsString(bool abbreviated) const {
    struct Named {
        double scale;
        const char* abbr;
        const char* full;
    };
    static const Named names[] = {
        {0.1, "mm", "millimeter"}, {1.0, "cm", "centimeter"},     {10.0, "dm", "decimeter"},
        {100.0, "m", "meter"},     {100000.0, "km", "kilometer"}, {2.54, "inch", "inch"},
        {30.48, "foot", "foot"},   {91.44, "yard", "yard"},       {160934.4, "mile", "mile"}};
    double s = mScale * mMultiplier;
    for (const Named& n : names)
        if (std::fabs(n.scale - s) <= 1e-12 * n.scale)
            return QdxString(abbreviated ? n.abbr : n.full);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.17g %s", s, abbreviated ? "cm" : "centimeter");
    return QdxString(buf);
}

double QdxSystemUnit::GetConversionFactorTo(const QdxSystemUnit& target) const {
    return (mScale * mMultiplier) / (target.mScale * target.mMultiplier);
}

namespace {
// Multiplies a numeric property, its curve-node channel values and its
// curves (values and slopes) by f.
void ScaleProperty(QdxProperty prop, double f) {
    if (!prop.IsValid()) return;
    detail::Value* v = prop.RawValue();
    const detail::ValueType& type = detail::ValueTypeOf(*v);
    if (!type.scalesWithUnit) return;
    double d[4];
    int count = type.toDoubles(*v, d);
    for (int i = 0; i < count; ++i)
        d[i] *= f;
    type.fromDoubles(*v, d);
    for (int n = 0; n < prop.GetSrcObjectCount<QdxAnimCurveNode>(); ++n) {
        QdxAnimCurveNode* cn = prop.GetSrcObject<QdxAnimCurveNode>(n);
        for (unsigned int c = 0; c < cn->GetChannelsCount(); ++c) {
            cn->SetChannelValue(c, cn->GetChannelValue(c, 0.0) * f);
            for (int k = 0; k < cn->GetCurveCount(c); ++k) {
                QdxAnimCurve* cv = cn->GetCurve(c, static_cast<unsigned int>(k));
                for (int i = 0; i < cv->KeyGetCount(); ++i) {
                    cv->KeySetValue(i, cv->KeyGetValue(i) * f);
                    cv->KeySetLeftDerivative(i, cv->KeyGetLeftDerivative(i) * f);
                    cv->KeySetRightDerivative(i, cv->KeyGetRightDerivative(i) * f);
                }
            }
        }
    }
}

bool IsTrimCurve(QdxNurbsCurve* curve) {
    if (curve->GetDimension() == QdxNurbsCurve::e2D) return true;
    for (int d = 0; d < curve->GetDstPropertyCount(); ++d)
        if (curve->GetDstProperty(d).GetQdxObject()->Is<QdxBoundary>()) return true;
    return false;
}
} // namespace

bool QdxSystemUnit::ConvertScene(QdxScene* scene, const ConversionOptions& options) const {
    if (!scene) return false;
    QdxGlobalSettings& gs = scene->GetGlobalSettings();
    double f = gs.GetSystemUnit().GetConversionFactorTo(*this);
    if (f == 1.0) {
        gs.SetSystemUnit(*this);
        return true;
    }
    for (QdxNode* n : Members<QdxNode>(scene)) {
        ScaleProperty(n->LclTranslation, f);
        for (auto s : {QdxNode::eSourcePivot, QdxNode::eDestinationPivot}) {
            n->SetRotationOffset(s, n->GetRotationOffset(s) * f);
            n->SetRotationPivot(s, n->GetRotationPivot(s) * f);
            n->SetScalingOffset(s, n->GetScalingOffset(s) * f);
            n->SetScalingPivot(s, n->GetScalingPivot(s) * f);
            n->SetGeometricTranslation(s, n->GetGeometricTranslation(s) * f);
        }
    }
    for (QdxGeometryBase* g : Members<QdxGeometryBase>(scene)) {
        if (auto* curve = QdxCast<QdxNurbsCurve>(g))
            if (IsTrimCurve(curve)) continue;
        if (g->Is<QdxTrimNurbsSurface>()) continue; // its surface is converted on its own
        QdxVector4* p = g->GetControlPoints();
        int count = g->QdxGeometryBase::GetControlPointsCount();
        for (int i = 0; i < count; ++i)
            for (int k = 0; k < 3; ++k)
                p[i][k] *= f;
    }
    for (QdxCamera* cam : Members<QdxCamera>(scene)) {
        ScaleProperty(cam->Position, f);
        ScaleProperty(cam->InterestPosition, f);
        ScaleProperty(cam->FocusDistance, f);
        if (options.mConvertCameraClipPlanes) {
            ScaleProperty(cam->NearPlane, f);
            ScaleProperty(cam->FarPlane, f);
        }
    }
    for (QdxLight* light : Members<QdxLight>(scene))
        ScaleProperty(light->DecayStart, f);
    if (options.mConvertClusters)
        for (QdxCluster* cl : Members<QdxCluster>(scene))
            for (auto* prop : {&cl->TransformMatrix, &cl->TransformLinkMatrix}) {
                QdxAMatrix mtx = prop->Get();
                mtx.SetT(mtx.GetT() * f);
                prop->Set(mtx);
            }
    gs.SetSystemUnit(*this);
    return true;
}

} // namespace qdxsdk
