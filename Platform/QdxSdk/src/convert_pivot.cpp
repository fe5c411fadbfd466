// Pivot conversion: rewrites a node's local translation, rotation and
// scaling (values and animation) so that another pivot set gives the same
// local matrix, and bakes geometric transforms into the node's geometry.
#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "format_gltf.h"
#include "node_walk.h"
#include "qdxsdk/anim.h"
#include "qdxsdk/conversion_notes.h"
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

// The most samples one node's bake may take per stack: beyond it the bake
// period grows so that a long span cannot take unbounded memory.
constexpr size_t kMaxBakeSamples = 200000;

bool Animates(QdxProperty prop, QdxAnimStack* stack) {
    for (int l = 0; stack && l < stack->GetLayerCount(); ++l)
        if (prop.IsAnimated(stack->GetLayer(l))) return true;
    return false;
}

void KeyTimes(QdxAnimCurveNode* cn, std::set<long long>& times) {
    for (unsigned int c = 0; c < cn->GetChannelsCount(); ++c)
        for (int k = 0; k < cn->GetCurveCount(c); ++k) {
            QdxAnimCurve* cv = cn->GetCurve(c, static_cast<unsigned int>(k));
            for (int i = 0; i < cv->KeyGetCount(); ++i)
                times.insert(cv->KeyGetTime(i).Get());
        }
}

// Whether layer l of stack contributes, by the rules of property evaluation.
bool LayerActive(QdxAnimStack* stack, int l) {
    bool anySolo = false;
    for (int k = 0; k < stack->GetLayerCount(); ++k)
        anySolo |= stack->GetLayer(k)->Solo.Get();
    QdxAnimLayer* layer = stack->GetLayer(l);
    return !layer->Mute.Get() && !(anySolo && l > 0 && !layer->Solo.Get());
}

// Adds k to what the layers that set the value (the base layer and
// overriding layers) give for prop; additive layers stay as they are, so
// the stack's result moves by k exactly.
void ShiftTranslation(QdxProperty prop, QdxAnimStack* stack, const QdxVector4& k) {
    for (int l = 0; stack && l < stack->GetLayerCount(); ++l) {
        QdxAnimLayer* layer = stack->GetLayer(l);
        if (l > 0 && layer->BlendMode.Get() == QdxAnimLayer::eBlendAdditive) continue;
        QdxAnimCurveNode* cn = prop.GetCurveNode(layer, false);
        for (unsigned int c = 0; cn && c < 3 && c < cn->GetChannelsCount(); ++c) {
            cn->SetChannelValue(c, cn->GetChannelValue(c, 0.0) + k[static_cast<int>(c)]);
            for (int i = 0; i < cn->GetCurveCount(c); ++i) {
                QdxAnimCurve* cv = cn->GetCurve(c, static_cast<unsigned int>(i));
                for (int key = 0; key < cv->KeyGetCount(); ++key)
                    cv->KeySetValue(key, cv->KeyGetValue(key) + k[static_cast<int>(c)]);
            }
        }
    }
}

// How the value of the base layer reaches the stack's result for one
// channel at one time: result = alpha * base + (terms without the base).
// Overriding layers above scale it by (1 - weight); additive scaling layers
// multiply it by their value ^ weight; other additive layers only add.
double BaseFactor(QdxProperty prop, QdxAnimStack* stack, unsigned int c, QdxTime t,
                  bool multiplicative) {
    double alpha = 1.0;
    for (int l = 1; l < stack->GetLayerCount(); ++l) {
        if (!LayerActive(stack, l)) continue;
        QdxAnimLayer* layer = stack->GetLayer(l);
        QdxAnimCurveNode* cn = prop.GetCurveNode(layer, false);
        if (!cn || c >= cn->GetChannelsCount()) continue;
        double w = layer->Weight.Get() / 100.0;
        if (layer->BlendMode.Get() != QdxAnimLayer::eBlendAdditive) {
            alpha *= 1.0 - w;
        } else if (multiplicative) {
            QdxAnimCurve* cv = cn->GetCurve(c);
            double lv = cv && cv->KeyGetCount() > 0 ? cv->Evaluate(t) : cn->GetChannelValue(c, 1.0);
            alpha *= std::pow(lv, w);
        }
    }
    return alpha;
}

struct BakeResult {
    bool capped = false, singular = false;
};

// Rewrites the base layer of stack so that, with every other layer
// unchanged, the stack evaluates to the destination set's values at every
// sample (every frame across the keys, and the keys themselves).
BakeResult BakeStack(QdxNode* n, QdxAnimStack* stack, const SetValues& vf, const SetValues& vt,
                     Set from, double fps, bool reduce, bool bakeRotation) {
    BakeResult result;
    QdxProperty props[3] = {n->LclTranslation, n->LclRotation, n->LclScaling};
    std::set<long long> keyTimes;
    for (int l = 0; l < stack->GetLayerCount(); ++l)
        for (QdxProperty& p : props)
            if (QdxAnimCurveNode* cn = p.GetCurveNode(stack->GetLayer(l), false))
                KeyTimes(cn, keyTimes);
    if (keyTimes.empty()) return result;
    long long first = *keyTimes.begin(), last = *keyTimes.rbegin();
    double period = QdxTime::kTicksPerSecond / (fps > 0 ? fps : 30.0);
    double frames = (static_cast<double>(last) - static_cast<double>(first)) / period;
    if (frames + static_cast<double>(keyTimes.size()) > static_cast<double>(kMaxBakeSamples)) {
        result.capped = true;
        period = (static_cast<double>(last) - static_cast<double>(first)) /
                 static_cast<double>(kMaxBakeSamples / 2);
        if (keyTimes.size() > kMaxBakeSamples / 2) {
            // Too many keys as well: keep every so many of them.
            std::set<long long> fewer;
            size_t step = keyTimes.size() / (kMaxBakeSamples / 2) + 1, i = 0;
            for (long long t : keyTimes)
                if (i++ % step == 0) fewer.insert(t);
            fewer.insert(last);
            keyTimes.swap(fewer);
        }
    }
    std::set<long long> samples = keyTimes;
    long long f0 = static_cast<long long>(std::ceil(static_cast<double>(first) / period));
    long long f1 = static_cast<long long>(std::floor(static_cast<double>(last) / period));
    for (long long f = f0; f <= f1; ++f)
        samples.insert(std::clamp(
            static_cast<long long>(std::llround(static_cast<double>(f) * period)), first, last));
    std::vector<long long> times(samples.begin(), samples.end());

    QdxAnimLayer* base = stack->GetLayer(0);
    double w0 = base->Weight.Get() / 100.0;
    QdxScene* scene = n->GetScene();
    QdxAnimStack* previous = scene ? scene->GetCurrentAnimationStack() : nullptr;
    if (scene) scene->SetCurrentAnimationStack(stack);
    // New base-layer values per property and channel. Scaling keeps its
    // values, and rotation too when both sets rotate alike.
    const int baked = bakeRotation ? 2 : 1;
    std::vector<double> values[9];
    QdxVector4 prevR;
    for (size_t i = 0; i < times.size(); ++i) {
        QdxTime t(times[i]);
        QdxVector4 now[3] = {n->EvaluateLocalTranslation(t), n->EvaluateLocalRotation(t, from),
                             n->EvaluateLocalScaling(t)};
        QdxVector4 conv[3];
        Solve(vf, vt, now[0], now[1], now[2], i ? &prevR : nullptr, conv[0], conv[1], conv[2]);
        prevR = conv[1];
        for (int p = 0; p < baked; ++p) {
            QdxAnimCurveNode* cn = props[p].GetCurveNode(base, false);
            QdxDouble3 stat = QdxPropertyT<QdxDouble3>(props[p]).Get();
            for (unsigned int c = 0; c < 3; ++c) {
                int ci = static_cast<int>(c);
                QdxAnimCurve* cv = cn ? cn->GetCurve(c) : nullptr;
                double lv = cv && cv->KeyGetCount() > 0
                                ? cv->Evaluate(t)
                                : (cn ? cn->GetChannelValue(c, stat[ci]) : stat[ci]);
                double alpha = BaseFactor(props[p], stack, c, t, p == 2) * w0;
                double delta = conv[p][ci] - now[p][ci];
                if (std::fabs(alpha) < 1e-12) {
                    if (delta != 0.0) result.singular = true;
                    alpha = 1.0, delta = 0.0;
                }
                values[p * 3 + ci].push_back(lv + delta / alpha);
            }
        }
    }
    if (scene) scene->SetCurrentAnimationStack(previous);

    QdxAnimCurveFilterConstantKeyReducer reducer;
    reducer.SetKeepOneKey(true);
    for (int p = 0; p < baked; ++p) {
        QdxAnimCurveNode* cn = props[p].GetCurveNode(base, true);
        for (unsigned int c = 0; cn && c < 3 && c < cn->GetChannelsCount(); ++c) {
            QdxAnimCurve* cv = cn->GetCurve(c);
            if (!cv) cv = cn->CreateCurve(n->GetName(), c);
            cv->KeyClear();
            cv->KeyAppend(times.data(), values[p * 3 + c].data(), static_cast<int>(times.size()),
                          QdxAnimCurveDef::eInterpolationLinear);
            if (reduce) reducer.Apply(*cv);
        }
    }
    return result;
}

// Attributes already baked in this conversion: an instanced mesh is baked
// once, with the first of its nodes' geometric transforms.
using Baked = std::set<const QdxNodeAttribute*>;

struct Report {
    std::vector<std::string> notes;
};

void ConvertNode(QdxNode* n, const std::vector<QdxAnimStack*>& stacks, Set to, double fps,
                 bool reduce, Baked& baked, Report& report) {
    Set from =
        to == QdxNode::eDestinationPivot ? QdxNode::eSourcePivot : QdxNode::eDestinationPivot;
    QdxAMatrix geoFrom = n->GetGeometricTransform(from), geoTo = n->GetGeometricTransform(to);
    if (!(geoFrom == geoTo) && baked.insert(n->GetNodeAttribute()).second)
        BakeGeometry(n, geoTo.Inverse() * geoFrom);

    if (!SameLocal(n, from, to)) {
        SetValues vf = ValuesOf(n, from), vt = ValuesOf(n, to);
        // t' = t + c0 + Rot * (c1 + S * c2), with Rot the node's own
        // rotation; rotation and scaling keep their values when both sets
        // rotate alike.
        bool sameRotation = vf.pre == vt.pre && vf.post == vt.post && vf.order == vt.order;
        QdxVector4 c1 = vt.rp - vf.rp + vf.soff - vt.soff + vf.sp - vt.sp;
        QdxVector4 c2 = vt.sp - vf.sp;
        bool zero1 = c1[0] == 0 && c1[1] == 0 && c1[2] == 0;
        bool zero2 = c2[0] == 0 && c2[1] == 0 && c2[2] == 0;
        bool animR = false, animS = false;
        for (QdxAnimStack* st : stacks)
            animR |= Animates(n->LclRotation, st), animS |= Animates(n->LclScaling, st);
        bool constantShift = sameRotation && (zero1 || !animR) && (zero2 || (!animR && !animS));

        // The values without animation first: they are what a stack that
        // does not animate the node evaluates to.
        QdxVector4 t = n->LclTranslation.Get(), r = n->LclRotation.Get(), sc = n->LclScaling.Get();
        QdxVector4 t2, r2, s2;
        Solve(vf, vt, t, r, sc, nullptr, t2, r2, s2);
        if (sameRotation) r2 = r;
        for (QdxAnimStack* st : stacks) {
            if (constantShift) {
                // The shift is the same at every time; with a stack that
                // sets rotation or scaling values, take them from it.
                QdxScene* scene = n->GetScene();
                QdxAnimStack* previous = scene ? scene->GetCurrentAnimationStack() : nullptr;
                if (scene) scene->SetCurrentAnimationStack(st);
                QdxVector4 et = n->EvaluateLocalTranslation(),
                           er = n->EvaluateLocalRotation(QdxTime(), from),
                           es = n->EvaluateLocalScaling(), et2, er2, es2;
                if (scene) scene->SetCurrentAnimationStack(previous);
                Solve(vf, vt, et, er, es, nullptr, et2, er2, es2);
                ShiftTranslation(n->LclTranslation, st, et2 - et);
            } else {
                BakeResult b = BakeStack(n, st, vf, vt, from, fps, reduce, !sameRotation);
                if (b.capped)
                    report.notes.push_back(std::string("Pivot conversion of node '") +
                                           n->GetName() + "' in stack '" + st->GetName() +
                                           "' was baked at a coarser period than one frame: its "
                                           "animated span has too many frames");
                if (b.singular)
                    report.notes.push_back(std::string("Pivot conversion of node '") +
                                           n->GetName() + "' in stack '" + st->GetName() +
                                           "' left times where an overriding layer hides the "
                                           "base layer unconverted");
            }
        }
        n->LclTranslation.Set(QdxDouble3(t2[0], t2[1], t2[2]));
        n->LclRotation.Set(QdxDouble3(r2[0], r2[1], r2[2]));
        n->LclScaling.Set(QdxDouble3(s2[0], s2[1], s2[2]));
    }
    n->CopyPivotSet(to, from);
}

} // namespace

void QdxNode::ConvertPivotAnimationRecursive(QdxAnimStack* stack, EPivotSet convertTo,
                                             double frameRate, bool keyReduce) {
    QdxScene* scene = GetScene();
    std::vector<QdxAnimStack*> stacks;
    if (stack) {
        stacks.push_back(stack);
    } else if (scene) {
        for (int i = 0; i < scene->GetSrcObjectCount<QdxAnimStack>(); ++i)
            if (QdxAnimStack* s = scene->GetSrcObject<QdxAnimStack>(i)) stacks.push_back(s);
    }
    Baked baked;
    Report report;
    detail::VisitPreOrder(this, [&](QdxNode* n) {
        ConvertNode(n, stacks, convertTo, frameRate, keyReduce, baked, report);
        return true;
    });
    if (scene && !report.notes.empty()) {
        std::vector<std::string> notes = QdxGetConversionNotes(scene);
        notes.insert(notes.end(), report.notes.begin(), report.notes.end());
        format::SetConversionNotes(scene, notes);
    }
}

} // namespace qdxsdk
