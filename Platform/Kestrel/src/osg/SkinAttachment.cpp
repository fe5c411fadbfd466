#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/SkinAttachment.h>
#include <kestrel/osg/TimeShapeCache.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(SkinAttachment)

void SkinAttachment::addJoint(const DeformerClusterPtr& cluster) {
    if (!cluster) return;
    _joints.push_back(cluster);
    changed(JointsFieldMask);
}

std::vector<Pnt3f> SkinAttachment::deform(const std::vector<Pnt3f>& positions,
                                          const Matrix& geometryWorld) const {
    std::vector<Vec3f> sum(positions.size());
    std::vector<bool> weighed(positions.size(), false);
    for (const auto& cluster : _joints) {
        if (!cluster) continue;
        // An unlinked cluster's node stays at its bind pose: no motion.
        Matrix move;
        if (NodePtr node = cluster->getNode()) {
            Matrix unbind;
            cluster->getNodeBindPose().inverse(unbind);
            move = node->getWorldMatrix() * unbind;
        }
        move = move * cluster->getGeoBindPose();
        for (const IndexWeight& iw : cluster->getWeights()) {
            if (iw.index >= positions.size()) continue;
            const Pnt3f p = move.multPnt(positions[iw.index]);
            sum[iw.index] += Vec3f(p[0], p[1], p[2]) * iw.weight;
            weighed[iw.index] = true;
        }
    }
    Matrix toLocal;
    geometryWorld.inverse(toLocal);
    std::vector<Pnt3f> result(positions);
    for (std::size_t i = 0; i < positions.size(); ++i)
        if (weighed[i]) result[i] = toLocal.multPnt(Pnt3f(sum[i][0], sum[i][1], sum[i][2]));
    return result;
}

void SkinAttachment::bakeTransform(const Matrix& m) {
    Matrix inverse;
    if (!m.inverse(inverse)) return;
    for (const auto& cluster : _joints)
        if (cluster) cluster->setGeoBindPose(cluster->getGeoBindPose() * inverse);
}

AttachmentPtr SkinAttachment::clone() const {
    auto copy = SkinAttachmentPtr::dcast(shallowCopy());
    for (auto& cluster : copy->_joints)
        cluster = DeformerClusterPtr::dcast(cluster->shallowCopy());
    return copy;
}

} // namespace osg
