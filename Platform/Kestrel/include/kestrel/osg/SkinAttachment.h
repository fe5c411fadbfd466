#pragma once
#include <vector>

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

private:
    std::vector<DeformerClusterPtr> _joints;
};

} // namespace osg
