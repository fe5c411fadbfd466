#pragma once
// Nodes and node cores.
//
// A node has one core (what it is: group, transform, geometry, light, ...),
// an ordered list of children and at most one parent; adding a node as a
// child of another removes it from its old parent. A core may be shared by
// several nodes (instancing); getParents() lists them. The traversal mask
// (all ones by default) hides a node from traversals whose mask it does not
// share; 0 means invisible.
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Matrix.h>

namespace osg {

KS_FC_TYPEDEFS(Node)
KS_FC_TYPEDEFS(NodeCore)

class Node : public AttachmentContainer {
    KS_FIELD_CONTAINER_DECL(Node, AttachmentContainer)
public:
    static constexpr BitVector CoreFieldMask = 1ull << 2;
    static constexpr BitVector ChildrenFieldMask = 1ull << 3;
    static constexpr BitVector TraversalMaskFieldMask = 1ull << 4;
    static constexpr BitVector ParentFieldMask = 1ull << 5;

    Node() = default;
    // Copies core handle, name, mask and attachments; not children or parent.
    Node(const Node& o);
    ~Node() override;

    NodeCorePtr getCore() const { return _core; }
    void setCore(const NodeCorePtr& core);

    NodePtr getParent() const;
    UInt32 getNChildren() const { return static_cast<UInt32>(_children.size()); }
    NodePtr getChild(UInt32 index) const;
    const std::vector<NodePtr>& getChildren() const { return _children; }
    // Appends child (moving it from its old parent). Adding a node to itself
    // or to one of its descendants is refused (returns false).
    bool addChild(const NodePtr& child);
    bool insertChild(UInt32 index, const NodePtr& child);
    bool replaceChild(UInt32 index, const NodePtr& child);
    bool subChild(const NodePtr& child);
    bool subChild(UInt32 index);
    Int32 findChild(const NodePtr& child) const; // -1 when absent

    UInt32 getTraversalMask() const { return _traversalMask; }
    void setTraversalMask(UInt32 mask);

    // This node's local matrix (its core's), and the product of the local
    // matrices from the root down to and including this node.
    Matrix getLocalMatrix() const;
    Matrix getWorldMatrix() const;

private:
    void detachChild(Node* child);

    NodeCorePtr _core;
    std::vector<NodePtr> _children;
    Node* _parent = nullptr;
    UInt32 _traversalMask = 0xFFFFFFFFu;
};

} // namespace osg

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/osg/NodeCore.h>
