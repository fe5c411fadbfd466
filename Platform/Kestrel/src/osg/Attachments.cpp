#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/TimeShapeCache.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(DeformerCluster)
KS_FIELD_CONTAINER_IMPL(SkinAttachment)
KS_FIELD_CONTAINER_IMPL(TimeShapeData)
KS_FIELD_CONTAINER_IMPL(TimeShapeCache)
KS_FIELD_CONTAINER_IMPL(ConstraintObject)
KS_FIELD_CONTAINER_IMPL(AimConstraint)

void DeformerCluster::setWeights(std::vector<IndexWeight> w) {
    _weights = std::move(w);
    changed(WeightsFieldMask);
}
KS_FIELD_SETTER(DeformerCluster, NodeBindPose, const Matrix&, _nodeBindPose, NodeBindPoseFieldMask)
KS_FIELD_SETTER(DeformerCluster, GeoBindPose, const Matrix&, _geoBindPose, GeoBindPoseFieldMask)
NodePtr DeformerCluster::getNode() const {
    return NodePtr(std::static_pointer_cast<Node>(_node.lock()));
}
void DeformerCluster::setNode(const NodePtr& node) {
    _node = node.shared();
    changed(NodeFieldMask);
}

void SkinAttachment::addJoint(const DeformerClusterPtr& cluster) {
    if (!cluster) return;
    _joints.push_back(cluster);
    changed(JointsFieldMask);
}

AttachmentPtr SkinAttachment::clone() const {
    auto copy = SkinAttachmentPtr::dcast(shallowCopy());
    for (auto& cluster : copy->_joints)
        cluster = DeformerClusterPtr::dcast(cluster->shallowCopy());
    return copy;
}

void TimeShapeData::setTime(Real32 seconds) {
    _time = seconds;
    changed(TimeFieldMask);
}

void TimeShapeCache::addShape(const TimeShapeDataPtr& shape) {
    if (!shape) return;
    auto it =
        std::upper_bound(_shapes.begin(), _shapes.end(), shape->getTime(),
                         [](Real32 t, const TimeShapeDataPtr& s) { return t < s->getTime(); });
    _shapes.insert(it, shape);
    changed(ShapesFieldMask);
}

AttachmentPtr TimeShapeCache::clone() const {
    auto copy = TimeShapeCachePtr::dcast(shallowCopy());
    for (auto& shape : copy->_shapes)
        shape = TimeShapeDataPtr::dcast(shape->shallowCopy());
    return copy;
}

TimeShapeDataPtr TimeShapeCache::getShapeAt(Real32 seconds) const {
    TimeShapeDataPtr found;
    for (const auto& s : _shapes) {
        if (s->getTime() > seconds) break;
        found = s;
    }
    if (!found && !_shapes.empty()) found = _shapes.front();
    return found;
}

void ConstraintObject::setReferenceNode(const NodePtr& node) {
    _node = node;
    changed(1ull << 1);
}
void ConstraintObject::setWeight(Real32 w) {
    _weight = w;
    changed(1ull << 2);
}

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
