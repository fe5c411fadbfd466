#include <cmath>

#include <kestrel/osg/AimConstraint.h>
#include <kestrel/osg/Transform3D.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(AimConstraint)

void AimConstraint::setConstrainedNode(const NodePtr& node) {
    _constrained = node.shared();
    changed(ConstrainedNodeFieldMask);
}

namespace {
ConstraintObjectPtr entry(const NodePtr& node, Real32 weight) {
    auto o = ConstraintObject::create();
    o->setReferenceNode(node);
    o->setWeight(weight);
    return o;
}

Node* topOf(Node* n) {
    while (Node* p = n->getParent().get())
        n = p;
    return n;
}

// The weighted centre of the entries whose node is alive and in the tree
// whose top node is top; false when there is none (or no positive weight).
bool weightedCentre(const std::vector<ConstraintObjectPtr>& entries, Node* top, Pnt3f& out) {
    Pnt3f sum;
    Real32 total = 0;
    for (const auto& e : entries) {
        NodePtr n = e->getReferenceNode();
        if (!n || topOf(n.get()) != top || !(e->getWeight() > 0.f)) continue;
        sum += n->getWorldMatrix().multPnt(Pnt3f()) * e->getWeight();
        total += e->getWeight();
    }
    if (!(total > 0.f)) return false;
    out = sum / total;
    return true;
}

Quaternion rotationOf(const Matrix& m) {
    Vec3f t, s;
    Quaternion r, so;
    m.getTransform(t, r, s, so);
    return r;
}

// A unit vector along up with its part along the unit vector z removed;
// false when up is (nearly) parallel to z.
bool perpendicular(const Vec3f& up, const Vec3f& z, Vec3f& out) {
    Vec3f u = up;
    if (!(u.length() > 0.f)) return false;
    u.normalize();
    out = u - z * u.dot(z);
    if (out.length() < 1e-4f) return false;
    out.normalize();
    return true;
}
} // namespace

void AimConstraint::addTarget(const NodePtr& node, Real32 weight) {
    _targets.push_back(entry(node, weight));
    changed(TargetsFieldMask);
}

void AimConstraint::addUpTarget(const NodePtr& node, Real32 weight) {
    _ups.push_back(entry(node, weight));
    changed(UpTargetsFieldMask);
}

void AimConstraint::setMaintainOffset(bool on) {
    _maintainOffset = on;
    changed(MaintainOffsetFieldMask);
}

void AimConstraint::setOffset(const Quaternion& q) {
    _offset = q;
    changed(OffsetFieldMask);
}

bool AimConstraint::computeAimRotation(const Vec3f& sceneUp, Quaternion& rotation) const {
    NodePtr node = getConstrainedNode();
    if (!node) return false;
    Node* top = topOf(node.get());
    Pnt3f target;
    if (!weightedCentre(_targets, top, target)) return false;
    const Pnt3f eye = node->getWorldMatrix().multPnt(Pnt3f());
    Vec3f z = eye - target; // the node looks along its -Z
    if (!(z.length() > 1e-6f)) return false;
    z.normalize();

    // Up: towards the up nodes, else the scene's up axis turned by the
    // parent, else any axis of the parent that is not along the aim.
    const NodePtr parent = node->getParent();
    const Matrix parentWorld = parent ? parent->getWorldMatrix() : Matrix();
    Vec3f y;
    Pnt3f upPos;
    bool haveUp = weightedCentre(_ups, top, upPos) && perpendicular(upPos - eye, z, y);
    if (!haveUp) haveUp = perpendicular(parentWorld.multVec(sceneUp), z, y);
    for (int axis = 0; axis < 3 && !haveUp; ++axis) {
        Vec3f a;
        a[axis] = 1.f;
        haveUp = perpendicular(parentWorld.multVec(a), z, y);
    }
    if (!haveUp) return false;
    const Vec3f x = y.cross(z);

    Matrix m;
    for (int i = 0; i < 3; ++i) {
        m.at(i, 0) = x[i];
        m.at(i, 1) = y[i];
        m.at(i, 2) = z[i];
    }
    rotation = Quaternion(m);
    rotation.normalize();
    return true;
}

bool AimConstraint::apply(const Vec3f& sceneUp) const {
    NodePtr node = getConstrainedNode();
    auto t3d = node ? Transform3DPtr::dcast(node->getCore()) : Transform3DPtr();
    Quaternion aim;
    if (!t3d || !computeAimRotation(sceneUp, aim)) return false;
    // world = parentWorld * Ro * R, so R = inverse(Ro) * inverse(parentWorld) * world.
    const NodePtr parent = node->getParent();
    const Quaternion parentRotation = parent ? rotationOf(parent->getWorldMatrix()) : Quaternion();
    Quaternion local =
        t3d->getRotationOrientation().inverse() * parentRotation.inverse() * aim * _offset;
    local.normalize();
    t3d->setRotation(local);
    return true;
}

} // namespace osg
