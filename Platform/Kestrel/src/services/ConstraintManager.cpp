#include <cmath>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksUberCameraPool.h>

using namespace osg;

ksConstraintManager& ksConstraintManager::the() {
    static ksConstraintManager m;
    return m;
}

AimConstraintPtr ksConstraintManager::findAimConstraintForTarget(const NodePtr& node) const {
    if (!node) return AimConstraintPtr();
    for (const auto& c : _aims)
        if (c->getConstrainedNode() == node) return c;
    return AimConstraintPtr();
}

bool ksConstraintManager::removeConstraint(const AimConstraintPtr& c) {
    for (auto it = _aims.begin(); it != _aims.end(); ++it)
        if (*it == c) {
            _aims.erase(it);
            return true;
        }
    return false;
}

void ksConstraintManager::clear() {
    _aims.clear();
}

namespace {
bool weightedPosition(const std::vector<ConstraintObjectPtr>& objs, Pnt3f& out) {
    Pnt3f sum;
    Real32 w = 0;
    for (const auto& o : objs) {
        if (!o->getReferenceNode()) continue;
        sum += o->getReferenceNode()->getWorldMatrix().multPnt(Pnt3f()) * o->getWeight();
        w += o->getWeight();
    }
    if (w <= 0) return false;
    out = sum / w;
    return true;
}

// The world rotation that points the node's -Z at the targets, or false
// when there is nothing to aim at.
bool aimRotation(const AimConstraintPtr& c, Quaternion& out) {
    NodePtr node = c->getConstrainedNode();
    Pnt3f target;
    if (!node || !weightedPosition(c->getTargets(), target)) return false;
    Pnt3f eye = node->getWorldMatrix().multPnt(Pnt3f());
    Vec3f up = ksSceneDataManager::getSceneData(0)->isZUp() ? Vec3f(0, 0, 1) : Vec3f(0, 1, 0);
    Pnt3f upPos;
    if (weightedPosition(c->getUpTargets(), upPos)) up = upPos - eye;
    Vec3f z = eye - target; // the node looks along -Z
    if (z.length() <= 0) return false;
    z.normalize();
    Vec3f x = up.cross(z);
    if (x.length() <= 1e-12f)
        x = (std::abs(z[0]) < 0.9f ? Vec3f(1, 0, 0) : Vec3f(0, 1, 0)).cross(z);
    x.normalize();
    Vec3f y = z.cross(x);
    Matrix rot;
    for (int i = 0; i < 3; ++i) {
        rot.at(i, 0) = x[i];
        rot.at(i, 1) = y[i];
        rot.at(i, 2) = z[i];
    }
    out = Quaternion(rot);
    return true;
}

Quaternion worldRotation(const Matrix& m) {
    Vec3f t, s;
    Quaternion r, so;
    m.getTransform(t, r, s, so);
    return r;
}
} // namespace

AimConstraintPtr ksConstraintManager::createAimConstraint(const std::vector<NodePtr>& targets,
                                                          const std::vector<NodePtr>& ups,
                                                          const NodePtr& constrained,
                                                          bool maintainOffset) {
    if (!constrained) return AimConstraintPtr();
    AimConstraintPtr c = AimConstraint::create();
    c->setConstrainedNode(constrained);
    for (const auto& t : targets)
        if (t) c->addTarget(t);
    for (const auto& u : ups)
        if (u) c->addUpTarget(u);
    c->setMaintainOffset(maintainOffset);
    Quaternion aim;
    if (maintainOffset && aimRotation(c, aim)) {
        Quaternion offset = aim.inverse() * worldRotation(constrained->getWorldMatrix());
        offset.normalize();
        c->setOffset(offset);
    }
    _aims.push_back(c);
    return c;
}

UInt32 ksConstraintManager::update() {
    UInt32 applied = 0;
    for (const auto& c : _aims) {
        NodePtr node = c->getConstrainedNode();
        auto t3d = node ? Transform3DPtr::dcast(node->getCore()) : Transform3DPtr();
        Quaternion aim;
        if (!t3d || !aimRotation(c, aim)) continue;
        // Local rotation = inverse(parent world rotation) * desired world rotation.
        Matrix parentWorld = node->getParent() ? node->getParent()->getWorldMatrix() : Matrix();
        Quaternion local = worldRotation(parentWorld).inverse() * aim * c->getOffset();
        local.normalize();
        t3d->setEulerRotationOrientation(Vec3f());
        t3d->setRotation(local);
        ++applied;
    }
    return applied;
}
