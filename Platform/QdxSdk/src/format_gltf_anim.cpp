// Animations between glTF and the SDK (see format_gltf_anim.h).
#include "format_gltf_anim.h"

#include <algorithm>
#include <cmath>

#include "qdxsdk/scene.h"

namespace qdxsdk::format {

namespace {
// The most frames a cubic rotation is sampled at.
constexpr double kMaxFrameSamples = 1.0e6;

bool Fail(QdxStatus& status, const std::string& text) {
    status.SetCode(QdxStatus::eInvalidFile, text);
    return false;
}

QdxTime Seconds(double s) {
    QdxTime t;
    t.SetSecondDouble(s);
    return t;
}

// The value of a rotation channel at key k (cubic: the middle element).
QdxQuaternion KeyQuaternion(const GltfChannelData& c, size_t k) {
    const size_t stride = c.interpolation == GltfChannelData::eCubic ? 3 : 1;
    const size_t offset = c.interpolation == GltfChannelData::eCubic ? 1 : 0;
    const double* v = &c.values[(k * stride + offset) * 4];
    QdxQuaternion q(v[0], v[1], v[2], v[3]);
    q.Normalize();
    return q;
}

// A cubic rotation channel at time t: Hermite on the components, normalised.
QdxQuaternion CubicQuaternion(const GltfChannelData& c, double t) {
    const std::vector<double>& times = c.times;
    size_t k = size_t(std::upper_bound(times.begin(), times.end(), t) - times.begin());
    k = k == 0 ? 0 : k - 1;
    if (k + 1 >= times.size()) return KeyQuaternion(c, times.size() - 1);
    const double dt = times[k + 1] - times[k], u = (t - times[k]) / dt;
    const double u2 = u * u, u3 = u2 * u;
    double q[4];
    for (size_t i = 0; i < 4; ++i) {
        const double v0 = c.values[(k * 3 + 1) * 4 + i], b0 = c.values[(k * 3 + 2) * 4 + i];
        const double v1 = c.values[((k + 1) * 3 + 1) * 4 + i], a1 = c.values[((k + 1) * 3) * 4 + i];
        q[i] = (2 * u3 - 3 * u2 + 1) * v0 + (u3 - 2 * u2 + u) * dt * b0 + (-2 * u3 + 3 * u2) * v1 +
               (u3 - u2) * dt * a1;
    }
    QdxQuaternion r(q[0], q[1], q[2], q[3]);
    r.Normalize();
    return r;
}

void KeyEuler(QdxAnimCurve* const curves[3], QdxTime time, const QdxVector4& e,
              QdxAnimCurveDef::EInterpolationType interpolation) {
    for (int i = 0; i < 3; ++i)
        curves[i]->KeySet(curves[i]->KeyAdd(time), time, e[i], interpolation);
}

void BuildRotation(const GltfChannelData& c, QdxNode* node, QdxAnimLayer* layer, double fps,
                   std::vector<std::string>& notes) {
    QdxAnimCurve* curves[3];
    for (int i = 0; i < 3; ++i)
        curves[i] = node->LclRotation.GetCurve(layer, i == 0 ? "X" : i == 1 ? "Y" : "Z", true);
    const QdxDouble3 rest = node->LclRotation.Get();
    QdxVector4 previous(rest[0], rest[1], rest[2]);
    const size_t n = c.times.size();
    if (c.interpolation == GltfChannelData::eCubic) {
        // Every frame and every key, slerped between.
        std::vector<double> times = c.times;
        const double first = c.times.front(), last = c.times.back();
        if ((last - first) * fps <= kMaxFrameSamples)
            for (double f = std::ceil(first * fps); f / fps < last; f += 1)
                times.push_back(f / fps);
        else
            notes.push_back(std::string("Node '") + node->GetName() +
                            "': a cubic rotation too long to sample per frame is keyed at its "
                            "keys only");
        std::sort(times.begin(), times.end());
        times.erase(std::unique(times.begin(), times.end()), times.end());
        for (double t : times) {
            previous = GltfContinuousEuler(CubicQuaternion(c, t), previous);
            KeyEuler(curves, Seconds(t), previous, QdxAnimCurveDef::eInterpolationLinear);
        }
    } else {
        const bool step = c.interpolation == GltfChannelData::eStep;
        for (size_t k = 0; k < n; ++k) {
            previous = GltfContinuousEuler(KeyQuaternion(c, k), previous);
            KeyEuler(curves, Seconds(c.times[k]), previous,
                     step ? QdxAnimCurveDef::eInterpolationConstant
                          : QdxAnimCurveDef::eInterpolationLinear);
            // A held key again just before the next one, so that slerping
            // between keys holds it too.
            if (step && k + 1 < n) {
                QdxTime hold(Seconds(c.times[k + 1]).Get() - 1);
                if (hold.Get() > Seconds(c.times[k]).Get())
                    KeyEuler(curves, hold, previous, QdxAnimCurveDef::eInterpolationConstant);
            }
        }
    }
    if (c.interpolation != GltfChannelData::eStep)
        node->SetQuaternionInterpolation(QdxNode::eSourcePivot, eQuatInterpSlerp);
}

void BuildVector(const GltfChannelData& c, QdxNode* node, QdxAnimLayer* layer) {
    QdxPropertyT<QdxDouble3>& property =
        c.path == GltfChannelData::eTranslation ? node->LclTranslation : node->LclScaling;
    const bool cubic = c.interpolation == GltfChannelData::eCubic;
    for (int i = 0; i < 3; ++i) {
        QdxAnimCurve* curve = property.GetCurve(layer, i == 0 ? "X" : i == 1 ? "Y" : "Z", true);
        for (size_t k = 0; k < c.times.size(); ++k) {
            const QdxTime time = Seconds(c.times[k]);
            const int key = curve->KeyAdd(time);
            if (!cubic) {
                curve->KeySet(key, time, c.values[k * 3 + size_t(i)],
                              c.interpolation == GltfChannelData::eStep
                                  ? QdxAnimCurveDef::eInterpolationConstant
                                  : QdxAnimCurveDef::eInterpolationLinear);
                continue;
            }
            // In-tangent, value, out-tangent: per second, as the curve's
            // derivatives are; weights of a third make the curve Hermite.
            const double in = c.values[(k * 3) * 3 + size_t(i)];
            const double value = c.values[(k * 3 + 1) * 3 + size_t(i)];
            const double out = c.values[(k * 3 + 2) * 3 + size_t(i)];
            curve->KeySet(key, time, value, QdxAnimCurveDef::eInterpolationCubic,
                          QdxAnimCurveDef::eTangentBreak, out, in);
        }
    }
}
} // namespace

QdxVector4 GltfContinuousEuler(const QdxQuaternion& q, const QdxVector4& previous) {
    const QdxVector4 e = q.DecomposeSphericalXYZ();
    QdxVector4 best;
    double bestDistance = -1;
    for (const QdxVector4& candidate : {e, QdxVector4(e[0] + 180, 180 - e[1], e[2] + 180)}) {
        QdxVector4 c;
        double distance = 0;
        for (int i = 0; i < 3; ++i) {
            c[i] = candidate[i] + 360.0 * std::round((previous[i] - candidate[i]) / 360.0);
            distance += std::fabs(c[i] - previous[i]);
        }
        if (bestDistance < 0 || distance < bestDistance) {
            best = c;
            bestDistance = distance;
        }
    }
    return best;
}

bool DecodeGltfAnimations(const tinygltf::Model& m, const GltfAccessorReader& read,
                          std::vector<GltfAnimationData>& out, std::vector<std::string>& notes,
                          QdxStatus& status) {
    for (size_t a = 0; a < m.animations.size(); ++a) {
        const tinygltf::Animation& animation = m.animations[a];
        GltfAnimationData data;
        data.name = animation.name.empty() ? "animation" + std::to_string(a) : animation.name;
        for (size_t ci = 0; ci < animation.channels.size(); ++ci) {
            const tinygltf::AnimationChannel& channel = animation.channels[ci];
            const std::string what =
                "Animation " + std::to_string(a) + " channel " + std::to_string(ci);
            if (channel.sampler < 0 || size_t(channel.sampler) >= animation.samplers.size())
                return Fail(status, what + " names a sampler that does not exist");
            if (channel.target_node < 0 || size_t(channel.target_node) >= m.nodes.size())
                return Fail(status, what + " names a node that does not exist");
            GltfChannelData c;
            c.node = channel.target_node;
            if (channel.target_path == "translation") {
                c.path = GltfChannelData::eTranslation;
            } else if (channel.target_path == "rotation") {
                c.path = GltfChannelData::eRotation;
                c.components = 4;
            } else if (channel.target_path == "scale") {
                c.path = GltfChannelData::eScale;
            } else {
                notes.push_back(what + ": animated " + channel.target_path + " is not carried");
                continue;
            }
            const tinygltf::AnimationSampler& sampler = animation.samplers[size_t(channel.sampler)];
            if (sampler.interpolation == "LINEAR")
                c.interpolation = GltfChannelData::eLinear;
            else if (sampler.interpolation == "STEP")
                c.interpolation = GltfChannelData::eStep;
            else if (sampler.interpolation == "CUBICSPLINE")
                c.interpolation = GltfChannelData::eCubic;
            else
                return Fail(status, what + " has an unknown interpolation");
            int comps = 0;
            if (!read(sampler.input, {TINYGLTF_TYPE_SCALAR}, c.times, comps, status,
                      what + " input") ||
                !read(sampler.output, {c.components == 4 ? TINYGLTF_TYPE_VEC4 : TINYGLTF_TYPE_VEC3},
                      c.values, comps, status, what + " output"))
                return false;
            if (c.times.empty()) return Fail(status, what + " has no keys");
            for (size_t k = 0; k < c.times.size(); ++k)
                if (!std::isfinite(c.times[k]) || (k > 0 && !(c.times[k] > c.times[k - 1])))
                    return Fail(status, what + ": its input times are not increasing");
            if (!(std::fabs(c.times.back()) < 1e7))
                return Fail(status, what + ": its input times are out of range");
            const size_t perKey = c.interpolation == GltfChannelData::eCubic ? 3 : 1;
            if (c.values.size() != c.times.size() * perKey * size_t(c.components))
                return Fail(status, what + ": its output count does not match its input");
            for (double v : c.values)
                if (!std::isfinite(v)) return Fail(status, what + ": an output is not finite");
            data.channels.push_back(std::move(c));
        }
        out.push_back(std::move(data));
    }
    return true;
}

void BuildGltfAnimations(QdxScene* scene, const std::vector<GltfAnimationData>& animations,
                         const std::vector<QdxNode*>& nodes, std::vector<std::string>& notes) {
    const double fps = scene->GetGlobalSettings().GetFrameRate();
    QdxAnimStack* current = nullptr;
    for (const GltfAnimationData& animation : animations) {
        QdxAnimStack* stack = QdxAnimStack::Create(scene, animation.name.c_str());
        QdxAnimLayer* layer = QdxAnimLayer::Create(scene, "Base Layer");
        stack->AddMember(layer);
        if (!current) current = stack;
        double first = 0, last = 0;
        bool any = false;
        for (const GltfChannelData& c : animation.channels) {
            QdxNode* node = nodes[size_t(c.node)];
            if (!node) {
                notes.push_back("Animation '" + animation.name +
                                "': a channel of a node outside the scene is not carried");
                continue;
            }
            first = any ? std::min(first, c.times.front()) : c.times.front();
            last = any ? std::max(last, c.times.back()) : c.times.back();
            any = true;
            if (c.path == GltfChannelData::eRotation)
                BuildRotation(c, node, layer, fps, notes);
            else
                BuildVector(c, node, layer);
        }
        const QdxTimeSpan span(Seconds(first), Seconds(last));
        stack->SetLocalTimeSpan(span);
        stack->SetReferenceTimeSpan(span);
    }
    if (current) scene->SetCurrentAnimationStack(current);
}

} // namespace qdxsdk::format
