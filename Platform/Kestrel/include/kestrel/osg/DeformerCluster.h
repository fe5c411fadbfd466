#pragma once
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(DeformerCluster)
KS_FC_TYPEDEFS(SkinAttachment)

struct IndexWeight {
    UInt32 index = 0; // vertex (position index) of the geometry
    Real32 weight = 0.f;
    IndexWeight() = default;
    IndexWeight(UInt32 i, Real32 w) : index(i), weight(w) {}
    bool operator==(const IndexWeight&) const = default;
};

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

} // namespace osg
