#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/DeformerCluster.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/TimeShapeCache.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(DeformerCluster)

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

} // namespace osg
