#pragma once
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(Node)
KS_FC_TYPEDEFS(NodeCore)

class NodeCore : public AttachmentContainer {
    KS_FIELD_CONTAINER_DECL(NodeCore, AttachmentContainer)
public:
    static constexpr BitVector ParentsFieldMask = 1ull << 2;

    NodeCore() = default;
    NodeCore(const NodeCore& o);
    ~NodeCore() override;

    // Nodes that use this core, in the order they took it.
    std::vector<NodePtr> getParents() const;
    UInt32 getNParents() const { return static_cast<UInt32>(_parents.size()); }

    // The matrix this core contributes to its node's local transform
    // (identity for cores that do not transform).
    virtual Matrix getLocalMatrix() const { return Matrix(); }

private:
    friend class Node;
    std::vector<Node*> _parents;
};

} // namespace osg
