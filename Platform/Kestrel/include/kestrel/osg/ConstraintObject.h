#pragma once
// One target or up entry of a constraint: a node and its weight.
//
// The entry does not keep its node alive: once the node has been deleted
// (its last handle dropped), getReferenceNode() returns null and the
// constraint ignores the entry.
#include <memory>

#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(ConstraintObject)

class ConstraintObject : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(ConstraintObject, FieldContainer)
public:
    static constexpr BitVector ReferenceNodeFieldMask = 1ull << 1;
    static constexpr BitVector WeightFieldMask = 1ull << 2;

    NodePtr getReferenceNode() const { return NodePtr(_node.lock()); }
    void setReferenceNode(const NodePtr& node);
    Real32 getWeight() const { return _weight; }
    void setWeight(Real32 w);

private:
    std::weak_ptr<Node> _node;
    Real32 _weight = 1.f;
};

} // namespace osg
