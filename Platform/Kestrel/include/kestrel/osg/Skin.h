#pragma once
// Skinning: deformer clusters and the skin attachment of a geometry.
//
// A DeformerCluster binds geometry vertices, with weights, to one driving
// node (a joint). Bind poses: the node bind pose is the driving node's world
// matrix at binding time, the geometry bind pose the geometry's. A deformed
// vertex is sum_i w_i * nodeWorld_i * inverse(nodeBindPose_i) * geoBindPose_i * v;
// weights are used as stored (not normalised). The cluster refers to its
// node weakly: it does not keep the node alive.
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

namespace osg {

struct IndexWeight {
    UInt32 index = 0; // vertex (position index) of the geometry
    Real32 weight = 0.f;
    IndexWeight() = default;
    IndexWeight(UInt32 i, Real32 w) : index(i), weight(w) {}
    bool operator==(const IndexWeight&) const = default;
};

KS_FC_TYPEDEFS(DeformerCluster)
KS_FC_TYPEDEFS(SkinAttachment)

class DeformerCluster : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(DeformerCluster, FieldContainer)
public:
    static constexpr BitVector WeightsFieldMask = 1ull << 1;
    static constexpr BitVector NodeBindPoseFieldMask = 1ull << 2;
    static constexpr BitVector GeoBindPoseFieldMask = 1ull << 3;
    static constexpr BitVector NodeFieldMask = 1ull << 4;

    const std::vector<IndexWeight>& getWeights() const { return _weights; }
    std::vector<IndexWeight>& editWeights() { return _weights; }
    void setWeights(std::vector<IndexWeight> w);
    const Matrix& getNodeBindPose() const { return _nodeBindPose; }
    void setNodeBindPose(const Matrix& m);
    const Matrix& getGeoBindPose() const { return _geoBindPose; }
    void setGeoBindPose(const Matrix& m);
    // The driving node; null when unset or when the node no longer exists.
    NodePtr getNode() const;
    void setNode(const NodePtr& node);
    static void setNode(const DeformerClusterPtr& cluster, const NodePtr& node) {
        if (cluster) cluster->setNode(node);
    }

private:
    std::vector<IndexWeight> _weights;
    Matrix _nodeBindPose, _geoBindPose;
    std::weak_ptr<FieldContainer> _node;
};

class SkinAttachment : public Attachment {
    KS_FIELD_CONTAINER_DECL(SkinAttachment, Attachment)
public:
    AttachmentPtr clone() const override;
    static constexpr BitVector JointsFieldMask = 1ull << 2;

    const std::vector<DeformerClusterPtr>& getJoints() const { return _joints; }
    std::vector<DeformerClusterPtr>& editJoints() { return _joints; }
    void addJoint(const DeformerClusterPtr& cluster);

private:
    std::vector<DeformerClusterPtr> _joints;
};

} // namespace osg
