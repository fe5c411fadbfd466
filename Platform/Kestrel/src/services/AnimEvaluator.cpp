#include <algorithm>
#include <cmath>
#include <functional>

#include <kestrel/ksAnimEvaluator.h>
#include <kestrel/ksAnimManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

using namespace osg;

ksAnimEvaluator& ksAnimEvaluator::the() {
    static ksAnimEvaluator e;
    return e;
}

std::vector<NodePtr> ksAnimEvaluator::getAnimatedNodes() const {
    std::vector<NodePtr> out;
    for (const auto& e : _map)
        if (auto n = e.first.lock()) out.push_back(NodePtr(std::static_pointer_cast<Node>(n)));
    return out;
}

NodePtr ksAnimEvaluator::getAnimParent(const NodePtr& node) const {
    for (const auto& e : _map)
        if (e.first.lock().get() == node.get())
            if (auto p = e.second.lock()) return NodePtr(std::static_pointer_cast<Node>(p));
    return NodePtr();
}

namespace {
int axis(const std::string& c) {
    if (c == "X" || c == "R") return 0;
    if (c == "Y" || c == "G") return 1;
    if (c == "Z" || c == "B") return 2;
    return -1;
}

// One scalar of a channel, bound to its getter and setter on a node; the
// same table serves reading and writing so the two cannot disagree.
struct ChannelAccess {
    std::function<Real64()> get;
    std::function<void(Real64)> set;
    explicit operator bool() const { return bool(get); }
};

template <class V, class Get, class Set>
ChannelAccess vectorAccess(int a, int size, Get get, Set set) {
    if (a < 0 || a >= size) return {};
    return {[=] { return Real64(get()[a]); },
            [=](Real64 v) {
                V x = get();
                x[a] = static_cast<Real32>(v);
                set(x);
            }};
}

template <class Get, class Set> ChannelAccess scalarAccess(Get get, Set set) {
    return {[=] { return Real64(get()); }, [=](Real64 v) { set(static_cast<Real32>(v)); }};
}

ChannelAccess access(const NodePtr& node, const std::string& ch, const std::string& comp) {
    if (!node || !node->getCore()) return {};
    int a = axis(comp);
    if (ch == "visible") {
        Node* n = node.get();
        return {[n] { return n->getTraversalMask() != 0 ? 1.0 : 0.0; },
                [n](Real64 v) { n->setTraversalMask(v >= 0.5 ? 0xFFFFFFFFu : 0u); }};
    }
    if (auto t3d = ksNodeUtils::getTransform3D(node)) {
        Transform3D* t = t3d.get();
        if (ch == "translation")
            return vectorAccess<Vec3f>(
                a, 3, [t] { return t->getTranslation(); },
                [t](const Vec3f& v) { t->setTranslation(v); });
        if (ch == "eulerRotation")
            return vectorAccess<Vec3f>(
                a, 3, [t] { return t->getEulerRotation(); },
                [t](const Vec3f& v) { t->setEulerRotation(v); });
        if (ch == "scale")
            return vectorAccess<Vec3f>(
                a, 3, [t] { return t->getScale(); }, [t](const Vec3f& v) { t->setScale(v); });
    }
    if (auto camPtr = UberCameraPtr::dcast(node->getCore())) {
        UberCamera* cam = camPtr.get();
        if (ch == "focalLength")
            return scalarAccess([cam] { return cam->getFocalLength(); },
                                [cam](Real32 v) { cam->setFocalLength(v); });
        if (ch == "fov")
            return scalarAccess([cam] { return cam->getFov(); },
                                [cam](Real32 v) { cam->setFov(v); });
        if (ch == "near")
            return scalarAccess([cam] { return cam->getNear(); },
                                [cam](Real32 v) { cam->setNear(v); });
        if (ch == "far")
            return scalarAccess([cam] { return cam->getFar(); },
                                [cam](Real32 v) { cam->setFar(v); });
        if (ch == "roll")
            return scalarAccess([cam] { return cam->getRoll(); },
                                [cam](Real32 v) { cam->setRoll(v); });
        if (ch == "focusDistance")
            return scalarAccess([cam] { return cam->getFocusDistance(); },
                                [cam](Real32 v) { cam->setFocusDistance(v); });
        if (ch == "sensorSize")
            return vectorAccess<Vec2f>(
                a, 2, [cam] { return cam->getSensorSize(); },
                [cam](const Vec2f& v) { cam->setSensorSize(v); });
        if (ch == "principalPointOffset")
            return vectorAccess<Vec2f>(
                a, 2, [cam] { return cam->getPrincipalPointOffset(); },
                [cam](const Vec2f& v) { cam->setPrincipalPointOffset(v); });
        return {};
    }
    if (auto lightPtr = UberLightPtr::dcast(node->getCore())) {
        UberLight* light = lightPtr.get();
        if (ch == "intensity")
            return scalarAccess([light] { return light->getLightValue(); },
                                [light](Real32 v) { light->setLightValue(v); });
        if (ch == "coneAngle")
            return scalarAccess([light] { return light->getConeAngle(); },
                                [light](Real32 v) { light->setConeAngle(v); });
        if (ch == "penumbraAngle")
            return scalarAccess([light] { return light->getPenumbraAngle(); },
                                [light](Real32 v) { light->setPenumbraAngle(v); });
        if (ch == "diffuse")
            return vectorAccess<Color3f>(
                a, 3, [light] { return light->getDiffuse(); },
                [light](const Color3f& v) { light->setDiffuse(v); });
        if (ch == "glossy")
            return vectorAccess<Color3f>(
                a, 3, [light] { return light->getGlossy(); },
                [light](const Color3f& v) { light->setGlossy(v); });
    }
    return {};
}

// The curves of an attachment sorted into the base (ungrouped) and blocks.
struct Layers {
    std::vector<AnimCurvePtr> base;
    std::vector<std::pair<const AnimNode*, std::vector<AnimCurvePtr>>> blocks;
};

Layers gatherLayers(const AnimAttachment& att) {
    Layers l;
    const AnimNodePtr& root = att.getRoot();
    if (!root) return l;
    for (const auto& child : root->getChildren()) {
        if (auto curve = AnimCurvePtr::dcast(child)) {
            l.base.push_back(curve);
        } else {
            std::vector<AnimCurvePtr> curves;
            child->collectCurves(curves);
            l.blocks.emplace_back(child.get(), std::move(curves));
        }
    }
    return l;
}

const AnimCurve* findKeyed(const std::vector<AnimCurvePtr>& curves, const std::string& ch,
                           const std::string& comp) {
    for (const auto& c : curves)
        if (c->size() > 0 && c->getChannel() == ch && c->getComponent() == comp) return c.get();
    return nullptr;
}

Real64 combine(const Layers& layers, const std::string& ch, const std::string& comp, Real64 rest,
               Real64 t) {
    Real64 v = rest;
    if (const AnimCurve* base = findKeyed(layers.base, ch, comp)) v = base->evaluateDouble(t);
    const bool multiplicative = ch == "scale";
    for (const auto& [block, curves] : layers.blocks) {
        const AnimCurve* c = findKeyed(curves, ch, comp);
        if (!c) continue;
        Real64 lv = c->evaluateDouble(t), w = block->getWeight() / 100.0;
        if (block->getBlendMode() != AnimNode::BlendMode::Additive)
            v += (lv - v) * w;
        else if (multiplicative)
            v *= std::pow(lv, w);
        else
            v += lv * w;
    }
    return v;
}

// Distinct (channel, component) pairs that have a curve with points.
std::vector<std::pair<std::string, std::string>> keyedChannels(const Layers& layers) {
    std::vector<std::pair<std::string, std::string>> out;
    auto add = [&out](const std::vector<AnimCurvePtr>& curves) {
        for (const auto& c : curves) {
            if (c->size() == 0) continue;
            std::pair<std::string, std::string> id(c->getChannel(), c->getComponent());
            if (std::find(out.begin(), out.end(), id) == out.end()) out.push_back(std::move(id));
        }
    };
    add(layers.base);
    for (const auto& b : layers.blocks)
        add(b.second);
    return out;
}
} // namespace

bool ksAnimEvaluator::readChannel(const NodePtr& node, const std::string& channel,
                                  const std::string& component, Real64& out) {
    ChannelAccess acc = access(node, channel, component);
    if (!acc) return false;
    out = acc.get();
    return true;
}

bool ksAnimEvaluator::writeChannel(const NodePtr& node, const std::string& channel,
                                   const std::string& component, Real64 value) {
    ChannelAccess acc = access(node, channel, component);
    if (!acc) return false;
    acc.set(value);
    return true;
}

const ksAnimEvaluator::RestSet* ksAnimEvaluator::findRest(const NodePtr& node) const {
    auto it = _rest.find(node.get());
    if (it == _rest.end() || it->second.node.lock().get() != node.get()) return nullptr;
    return &it->second;
}

ksAnimEvaluator::RestSet& ksAnimEvaluator::restSet(const NodePtr& node) {
    RestSet& set = _rest[node.get()];
    // A set left by a destroyed node at the same address belongs to no one.
    if (set.node.lock().get() != node.get()) set = RestSet{node.shared(), {}};
    return set;
}

bool ksAnimEvaluator::captureRest(const NodePtr& node, const std::string& channel,
                                  const std::string& component, Real64& out) {
    RestSet& set = restSet(node);
    for (const auto& r : set.values)
        if (r.channel == channel && r.component == component) {
            out = r.value;
            return true;
        }
    if (!readChannel(node, channel, component, out)) return false;
    set.values.push_back({channel, component, out});
    return true;
}

bool ksAnimEvaluator::getRestValue(const NodePtr& node, const std::string& channel,
                                   const std::string& component, Real64& out) const {
    if (const RestSet* set = findRest(node))
        for (const auto& r : set->values)
            if (r.channel == channel && r.component == component) {
                out = r.value;
                return true;
            }
    return readChannel(node, channel, component, out);
}

bool ksAnimEvaluator::setRestValue(const NodePtr& node, const std::string& channel,
                                   const std::string& component, Real64 value) {
    Real64 current;
    if (!readChannel(node, channel, component, current)) return false;
    RestSet& set = restSet(node);
    for (auto& r : set.values)
        if (r.channel == channel && r.component == component) {
            r.value = value;
            return true;
        }
    set.values.push_back({channel, component, value});
    return true;
}

void ksAnimEvaluator::updateSceneAnimParentMap(const NodePtr& root) {
    _map.clear();
    std::erase_if(_rest, [](const auto& e) { return e.second.node.expired(); });
    ksNodeUtils::traverse(root, [&](const NodePtr& n) {
        if (auto att = n->findAttachment<AnimAttachment>()) {
            NodePtr parent = n->getParent();
            _map.emplace_back(n.shared(), parent ? parent.shared() : nullptr);
            Real64 rest;
            for (const auto& [ch, comp] : keyedChannels(gatherLayers(*att)))
                captureRest(n, ch, comp, rest);
        }
        return true;
    });
}

UInt32 ksAnimEvaluator::evaluate(Real64 seconds) {
    UInt32 n = 0;
    for (const NodePtr& node : getAnimatedNodes()) {
        auto att = node->findAttachment<AnimAttachment>();
        if (!att) continue;
        Layers layers = gatherLayers(*att);
        for (const auto& [ch, comp] : keyedChannels(layers)) {
            Real64 rest;
            if (!captureRest(node, ch, comp, rest)) continue;
            if (writeChannel(node, ch, comp, combine(layers, ch, comp, rest, seconds))) ++n;
        }
    }
    return n;
}

bool ksAnimEvaluator::evaluateChannel(const NodePtr& node, const std::string& channel,
                                      const std::string& component, Real64 seconds,
                                      Real64& out) const {
    Real64 rest;
    if (!getRestValue(node, channel, component, rest)) return false;
    auto att = node->findAttachment<AnimAttachment>();
    out = att ? combine(gatherLayers(*att), channel, component, rest, seconds) : rest;
    return true;
}
