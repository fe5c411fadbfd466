#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/AimConstraint.h>
#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/TimeShapeCache.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(AimConstraint)

void AimConstraint::setConstrainedNode(const NodePtr& node) {
    _constrained = node;
    changed(1ull << 1);
}
namespace {
ConstraintObjectPtr entry(const NodePtr& node, Real32 weight) {
    auto o = ConstraintObject::create();
    o->setReferenceNode(node);
    o->setWeight(weight);
    return o;
}
} // namespace

void AimConstraint::addTarget(const NodePtr& node, Real32 weight) {
    _targets.push_back(entry(node, weight));
    changed(1ull << 2);
}
void AimConstraint::addUpTarget(const NodePtr& node, Real32 weight) {
    _ups.push_back(entry(node, weight));
    changed(1ull << 3);
}
void AimConstraint::setMaintainOffset(bool on) {
    _maintainOffset = on;
    changed(1ull << 4);
}
void AimConstraint::setOffset(const Quaternion& q) {
    _offset = q;
    changed(1ull << 5);
}

} // namespace osg
