// Pivot conversion: rewrites a node's local translation, rotation and
// scaling (values and animation) so that another pivot set gives the same
// local matrix, and bakes geometric transforms into the node's geometry.
#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "qdxsdk/anim.h"
#include "qdxsdk/geometry.h"
#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"
#include "transform_math.h"

namespace qdxsdk {

namespace {
using Set = QdxNode::EPivotSet;

using detail::ComposeLocal;
using detail::PivotValues;
using SetValues = PivotValues;

SetValues ValuesOf(QdxNode* n, Set s) {
    return detail::PivotValuesOf(n, s);
}

bool SameLocal(QdxNode* n, Set a, Set b) {
    bool active = n->GetRotationActive();
    bool rot = !active || (n->GetPreRotation(a) == n->GetPreRotation(b) &&
                           n->GetPostRotation(a) == n->GetPostRotation(b) &&
                           n->GetRotationOrder(a) == n->GetRotationOrder(b));
    return rot && n->GetRotationOffset(a) == n->GetRotationOffset(b) &&
           n->GetRotationPivot(a) == n->GetRotationPivot(b) &&
           n->GetScalingOffset(a) == n->GetScalingOffset(b) &&
           n->GetScalingPivot(a) == n->GetScalingPivot(b);
}

// Values (T', R', S') for the destination set that reproduce the source
// set's local matrix for (t, r, s).
void Solve(const SetValues& from, const SetValues& to, const QdxVector4& t, const QdxVector4& r,
           const QdxVector4& s, const QdxVector4* hint, QdxVector4& t2, QdxVector4& r2,
           QdxVector4& s2) {
    QdxAMatrix rl = detail::ComposeRotation(from, r);
    QdxAMatrix rnew = to.pre.Inverse() * rl * to.post;
    r2 = QdxMatrixToEuler(rnew, to.order, hint ? hint : &r);
    s2 = s;
    QdxAMatrix target = ComposeLocal(from, t, r, s);
    QdxAMatrix zero = ComposeLocal(to, QdxVector4(0, 0, 0), r2, s2);
    t2 = target.GetT() - zero.GetT();
    t2[3] = 1.0;
}

void BakeGeometry(QdxNode* n, const QdxAMatrix& change) {
    QdxGeometryBase* g = QdxCast<QdxGeometryBase>(n->GetNodeAttribute());
    if (!g || change.IsIdentity()) return;
    QdxVector4* p = g->GetControlPoints();
    int count = g->QdxGeometryBase::GetControlPointsCount();
    for (int i = 0; i < count; ++i) {
        QdxVector4 q = change.MultT(p[i]);
        p[i] = QdxVector4(q[0], q[1], q[2], p[i][3]);
    }
    // Cache points follow the control points; skin bind poses take the
    // inverse change so that bind * point stays where it was.
    if (auto* geometry = QdxCast<QdxGeometry>(g)) {
        QdxAMatrix undo = change.Inverse();
        for (int d = 0; d < geometry->GetDeformerCount(); ++d) {
            QdxDeformer* deformer = geometry->GetDeformer(d);
            if (auto* cache = QdxCast<QdxVertexCacheDeformer>(deformer))
                cache->PointTransform.Set(change * cache->PointTransform.Get());
            if (auto* skin = QdxCast<QdxSkin>(deformer))
                for (int c = 0; c < skin->GetClusterCount(); ++c) {
                    QdxCluster* cl = skin->GetCluster(c);
                    cl->TransformMatrix.Set(cl->TransformMatrix.Get() * undo);
                }
        }
    }
    // Normals follow the inverse transpose, keeping their length.
    QdxAMatrix nm = change.Inverse().Transpose();
    for (int l = 0; l < g->GetLayerCount(); ++l) {
        QdxLayerElementNormal* e = g->GetLayer(l)->GetNormals();
        if (!e) continue;
        auto& arr = e->GetDirectArray();
        for (int i = 0; i < arr.GetCount(); ++i) {
            QdxVector4 v = arr.GetAt(i);
            double len = v.Length();
            QdxVector4 w = nm.MultR(v);
            double wl = w.Length();
            if (wl > 0) w = w * (len / wl);
            arr.SetAt(i, QdxVector4(w[0], w[1], w[2], v[3]));
        }
    }
}

// Layers of the stack that animate prop, with their curve nodes.
std::vector<QdxAnimCurveNode*> CurveNodesIn(QdxProperty prop, QdxAnimStack* stack) {
    std::vector<QdxAnimCurveNode*> out;
    for (int l = 0; stack && l < stack->GetLayerCount(); ++l)
        if (QdxAnimCurveNode* cn = prop.GetCurveNode(stack->GetLayer(l), false)) out.push_back(cn);
    return out;
}

void KeyTimes(QdxAnimCurveNode* cn, std::set<long long>& times) {
    for (unsigned int c = 0; c < cn->GetChannelsCount(); ++c)
        for (int k = 0; k < cn->GetCurveCount(c); ++k) {
            QdxAnimCurve* cv = cn->GetCurve(c, static_cast<unsigned int>(k));
            for (int i = 0; i < cv->KeyGetCount(); ++i)
                times.insert(cv->KeyGetTime(i).Get());
        }
}

// Attributes already baked in this conversion: an instanced mesh is baked
// once, with the first of its nodes' geometric transforms.
using Baked = std::set<const QdxNodeAttribute*>;

void ConvertNode(QdxNode* n, QdxAnimStack* stack, Set to, double fps, bool reduce, Baked& baked) {
    Set from =
        to == QdxNode::eDestinationPivot ? QdxNode::eSourcePivot : QdxNode::eDestinationPivot;
    QdxAMatrix geoFrom = n->GetGeometricTransform(from), geoTo = n->GetGeometricTransform(to);
    if (!(geoFrom == geoTo) && baked.insert(n->GetNodeAttribute()).second)
        BakeGeometry(n, geoTo.Inverse() * geoFrom);

    if (!SameLocal(n, from, to)) {
        SetValues vf = ValuesOf(n, from), vt = ValuesOf(n, to);
        QdxProperty props[3] = {n->LclTranslation, n->LclRotation, n->LclScaling};
        std::set<long long> keyTimes;
        std::vector<QdxAnimCurveNode*> nodes[3];
        for (int p = 0; p < 3; ++p) {
            nodes[p] = CurveNodesIn(props[p], stack);
            for (QdxAnimCurveNode* cn : nodes[p])
                KeyTimes(cn, keyTimes);
        }
        if (keyTimes.empty()) {
            QdxVector4 t2, r2, s2;
            QdxVector4 t = n->EvaluateLocalTranslation(),
                       r = n->EvaluateLocalRotation(QdxTime(), from), s = n->EvaluateLocalScaling();
            Solve(vf, vt, t, r, s, nullptr, t2, r2, s2);
            n->LclTranslation.Set(QdxDouble3(t2[0], t2[1], t2[2]));
            n->LclRotation.Set(QdxDouble3(r2[0], r2[1], r2[2]));
            n->LclScaling.Set(QdxDouble3(s2[0], s2[1], s2[2]));
        } else {
            // Sample every frame across the keys, plus the keys themselves.
            long long first = *keyTimes.begin(), last = *keyTimes.rbegin();
            double period = QdxTime::kTicksPerSecond / (fps > 0 ? fps : 30.0);
            std::set<long long> samples = keyTimes;
            long long f0 = static_cast<long long>(std::ceil(static_cast<double>(first) / period));
            long long f1 = static_cast<long long>(std::floor(static_cast<double>(last) / period));
            for (long long f = f0; f <= f1 && samples.size() < 10000000; ++f)
                samples.insert(
                    static_cast<long long>(std::llround(static_cast<double>(f) * period)));
            std::vector<long long> times(samples.begin(), samples.end());
            std::vector<double> values[9];
            QdxVector4 prevR;
            for (size_t i = 0; i < times.size(); ++i) {
                QdxTime t(times[i]);
                QdxVector4 tt = n->EvaluateLocalTranslation(t),
                           r = n->EvaluateLocalRotation(t, from), s = n->EvaluateLocalScaling(t),
                           t2, r2, s2;
                Solve(vf, vt, tt, r, s, i ? &prevR : nullptr, t2, r2, s2);
                prevR = r2;
                for (int k = 0; k < 3; ++k) {
                    values[k].push_back(t2[k]);
                    values[3 + k].push_back(r2[k]);
                    values[6 + k].push_back(s2[k]);
                }
            }
            QdxAnimLayer* base = stack->GetLayer(0);
            QdxAnimCurveFilterConstantKeyReducer reducer;
            reducer.SetKeepOneKey(true);
            for (int p = 0; p < 3; ++p) {
                for (QdxAnimCurveNode* cn : nodes[p])
                    cn->Destroy(true);
                QdxProperty prop = props[p];
                QdxAnimCurveNode* cn = prop.GetCurveNode(base, true);
                for (unsigned int c = 0; c < 3 && cn; ++c) {
                    QdxAnimCurve* cv = cn->CreateCurve(n->GetName(), c);
                    cv->KeyAppend(times.data(), values[p * 3 + c].data(),
                                  static_cast<int>(times.size()),
                                  QdxAnimCurveDef::eInterpolationLinear);
                    if (reduce) reducer.Apply(*cv);
                }
                QdxDouble3 v(values[p * 3][0], values[p * 3 + 1][0], values[p * 3 + 2][0]);
                prop.Set(v);
                if (cn)
                    for (unsigned int c = 0; c < 3; ++c)
                        cn->SetChannelValue(c, v[static_cast<int>(c)]);
            }
        }
    }
    n->CopyPivotSet(to, from);
}

void ConvertRecursive(QdxNode* n, QdxAnimStack* stack, Set to, double fps, bool reduce,
                      Baked& baked) {
    ConvertNode(n, stack, to, fps, reduce, baked);
    for (int i = 0; i < n->GetChildCount(); ++i)
        ConvertRecursive(n->GetChild(i), stack, to, fps, reduce, baked);
}
} // namespace

void QdxNode::ConvertPivotAnimationRecursive(QdxAnimStack* stack, EPivotSet convertTo,
                                             double frameRate, bool keyReduce) {
    QdxScene* scene = GetScene();
    QdxAnimStack* previous = scene ? scene->GetCurrentAnimationStack() : nullptr;
    if (!stack) stack = previous;
    if (scene && stack) scene->SetCurrentAnimationStack(stack);
    Baked baked;
    ConvertRecursive(this, stack, convertTo, frameRate, keyReduce, baked);
    if (scene && stack) scene->SetCurrentAnimationStack(previous);
}

} // namespace qdxsdk
