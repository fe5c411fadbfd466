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
