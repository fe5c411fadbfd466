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
