#include <kestrel/ksAnimManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

using namespace osg;

ksAnimManager& ksAnimManager::the() {
    static ksAnimManager m;
    return m;
}

void ksAnimManager::setFPS(double fps) {
    if (fps > 0) _fps = fps;
}
void ksAnimManager::setPlaybackFPS(double fps) {
    if (fps > 0) _playbackFps = fps;
}
void ksAnimManager::reset() {
    *this = ksAnimManager();
}

AnimAttachmentPtr ksAnimManager::getAnimAttachment(const NodePtr& node) const {
    return node ? node->findAttachment<AnimAttachment>() : AnimAttachmentPtr();
}

AnimAttachmentPtr ksAnimManager::createAnimAttachment(const NodePtr& node) {
    if (!node) return AnimAttachmentPtr();
    if (auto a = getAnimAttachment(node)) return a;
    AnimAttachmentPtr a = AnimAttachment::create();
    node->addAttachment(a);
    return a;
}

bool ksAnimManager::getKeyableChannels(const NodePtr& node,
                                       std::vector<ksOSGChannelData>& list) const {
    list.clear();
    if (!node || !node->getCore()) return false;
    NodeCorePtr core = node->getCore();
    const std::vector<std::string> xyz{"X", "Y", "Z"}, xy{"X", "Y"}, rgb{"R", "G", "B"};
    if (TransformPtr::dcast(core) || DrawablePtr::dcast(core)) {
        list.push_back({"translation", "translation", xyz});
        list.push_back({"eulerRotation", "rotation", xyz});
        list.push_back({"scale", "scale", xyz});
    }
    list.push_back({"visible", "visible", {}});
    if (UberCameraPtr::dcast(core)) {
        for (const char* n : {"focalLength", "fov", "near", "far"})
            list.push_back({n, n, {}});
        list.push_back({"sensorSize", "sensorSize", xy});
        list.push_back({"roll", "roll", {}});
        list.push_back({"principalPointOffset", "principalPointOffset", xy});
        list.push_back({"focusDistance", "focusDistance", {}});
    }
    if (auto light = UberLightPtr::dcast(core)) {
        list.push_back({"diffuse", "diffuse", rgb});
        list.push_back({"glossy", "glossy", rgb});
        list.push_back({"intensity", "intensity", {}});
        if (light->getLightType() == UberLight::SpotLight) {
            list.push_back({"coneAngle", "coneAngle", {}});
            list.push_back({"penumbraAngle", "penumbraAngle", {}});
        }
    }
    return true;
}

namespace {
AnimCurvePtr findUngrouped(const AnimAttachmentPtr& a, const std::string& channel,
                           const std::string& component) {
    for (const auto& c : a->getRoot()->getChildren()) {
        auto curve = AnimCurvePtr::dcast(c);
        if (curve && curve->getChannel() == channel && curve->getComponent() == component)
            return curve;
    }
    return AnimCurvePtr();
}

AnimCurvePtr makeCurve(const AnimAttachmentPtr& a, const std::string& channel,
                       const std::string& component) {
    AnimCurvePtr curve = AnimCurve::create();
    curve->setChannel(channel, component);
    a->getRoot()->addChild(curve);
    return curve;
}
} // namespace

AnimNodePtr ksAnimManager::createChannelCurveNode(const ksOSGChannelData& channel,
                                                  const AnimAttachmentPtr& attachment) {
    if (!attachment || channel.name.empty()) return AnimNodePtr();
    std::vector<std::string> comps = channel.components;
    if (comps.empty()) comps.push_back("");
    AnimNodePtr first;
    for (const auto& comp : comps) {
        attachment->addChannel(channel.name, comp);
        AnimCurvePtr c = findUngrouped(attachment, channel.name, comp);
        if (!c) c = makeCurve(attachment, channel.name, comp);
        if (!first) first = c;
    }
    return first;
}

AnimCurvePtr ksAnimManager::findChannelCurve(const std::string& channel,
                                             const std::string& component,
                                             const AnimAttachmentPtr& attachment) {
    if (!attachment) return AnimCurvePtr();
    if (auto c = findUngrouped(attachment, channel, component)) return c;
    if (!attachment->hasChannel(channel, component)) return AnimCurvePtr();
    return makeCurve(attachment, channel, component);
}

AnimNodePtr ksAnimManager::createBlock(const AnimAttachmentPtr& attachment,
                                       const std::string& name) {
    if (!attachment) return AnimNodePtr();
    AnimNodePtr block = AnimNode::create();
    block->setName(name);
    std::vector<AnimNodePtr> ungrouped;
    for (const auto& c : attachment->getRoot()->getChildren())
        if (AnimCurvePtr::dcast(c)) ungrouped.push_back(c);
    for (const auto& c : ungrouped)
        block->addChild(c);
    attachment->getRoot()->addChild(block);
    return block;
}

// --- evaluator --------------------------------------------------------------

ksAnimEvaluator& ksAnimEvaluator::the() {
    static ksAnimEvaluator e;
    return e;
}

void ksAnimEvaluator::updateSceneAnimParentMap(const NodePtr& root) {
    _map.clear();
    ksNodeUtils::traverse(root, [&](const NodePtr& n) {
        if (n->findAttachment<AnimAttachment>()) {
            NodePtr parent = n->getParent();
            _map.emplace_back(n.shared(), parent ? parent.shared() : nullptr);
        }
        return true;
    });
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

bool apply(const NodePtr& node, const AnimCurvePtr& curve, Real32 t) {
    if (curve->size() == 0) return false;
    Real32 v = curve->evaluate(t);
    const std::string& ch = curve->getChannel();
    int a = axis(curve->getComponent());
    if (ch == "visible") {
        node->setTraversalMask(v >= 0.5f ? 0xFFFFFFFFu : 0u);
        return true;
    }
    if (auto t3d = ksNodeUtils::getTransform3D(node); t3d && a >= 0) {
        if (ch == "translation") {
            Vec3f x = t3d->getTranslation();
            x[a] = v;
            t3d->setTranslation(x);
            return true;
        }
        if (ch == "eulerRotation") {
            Vec3f x = t3d->getEulerRotation();
            x[a] = v;
            t3d->setEulerRotation(x);
            return true;
        }
        if (ch == "scale") {
            Vec3f x = t3d->getScale();
            x[a] = v;
            t3d->setScale(x);
            return true;
        }
    }
    if (auto cam = UberCameraPtr::dcast(node->getCore())) {
        if (ch == "focalLength")
            cam->setFocalLength(v);
        else if (ch == "fov")
            cam->setFov(v);
        else if (ch == "near")
            cam->setNear(v);
        else if (ch == "far")
            cam->setFar(v);
        else if (ch == "roll")
            cam->setRoll(v);
        else if (ch == "focusDistance")
            cam->setFocusDistance(v);
        else if (ch == "sensorSize" && a >= 0 && a < 2) {
            Vec2f s = cam->getSensorSize();
            s[a] = v;
            cam->setSensorSize(s);
        } else if (ch == "principalPointOffset" && a >= 0 && a < 2) {
            Vec2f s = cam->getPrincipalPointOffset();
            s[a] = v;
            cam->setPrincipalPointOffset(s);
        } else
            return false;
        return true;
    }
    if (auto light = UberLightPtr::dcast(node->getCore())) {
        if (ch == "intensity")
            light->setLightValue(v);
        else if (ch == "coneAngle")
            light->setConeAngle(v);
        else if (ch == "penumbraAngle")
            light->setPenumbraAngle(v);
        else if ((ch == "diffuse" || ch == "glossy") && a >= 0) {
            Color3f c = ch == "diffuse" ? light->getDiffuse() : light->getGlossy();
            c[a] = v;
            if (ch == "diffuse")
                light->setDiffuse(c);
            else
                light->setGlossy(c);
        } else
            return false;
        return true;
    }
    return false;
}
} // namespace

UInt32 ksAnimEvaluator::evaluate(Real32 seconds) {
    UInt32 n = 0;
    for (const NodePtr& node : getAnimatedNodes()) {
        auto att = node->findAttachment<AnimAttachment>();
        if (!att) continue;
        std::vector<AnimCurvePtr> curves;
        att->getRoot()->collectCurves(curves);
        for (const auto& c : curves)
            if (apply(node, c, seconds)) ++n;
    }
    return n;
}
