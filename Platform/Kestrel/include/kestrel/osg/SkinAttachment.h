#pragma once
#include <vector>

#include <kestrel/osg/Vector.h>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(DeformerCluster)
KS_FC_TYPEDEFS(SkinAttachment)

class SkinAttachment : public Attachment {
    KS_FIELD_CONTAINER_DECL(SkinAttachment, Attachment)
public:
    AttachmentPtr clone() const override;
    static constexpr BitVector JointsFieldMask = 1ull << 2;

    const std::vector<DeformerClusterPtr>& getJoints() const { return _joints; }
    std::vector<DeformerClusterPtr>& editJoints() { return _joints; }
    void addJoint(const DeformerClusterPtr& cluster);

    // The geometry's positions deformed by the clusters at the driving
    // nodes' current world matrices (linear blend with the bind poses, see
    // Skin.h), returned in the space of the geometry whose world matrix is
    // geometryWorld. A vertex that no cluster weighs keeps its position; a
    // cluster without a node holds its vertices at the bind pose.
    std::vector<Pnt3f> deform(const std::vector<Pnt3f>& positions,
                              const Matrix& geometryWorld) const;
    // Keeps the skin's result when the geometry's positions are multiplied
    // by m (a transform baked into them): the geometry bind poses absorb
    // the inverse.
    void bakeTransform(const Matrix& m);

private:
    std::vector<DeformerClusterPtr> _joints;
};

} // namespace osg
