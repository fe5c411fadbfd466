#include <algorithm>
#include <limits>

#include <kestrel/osg/Node.h>
#include <kestrel/osg/NodeCore.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(NodeCore)

NodeCore::NodeCore(const NodeCore& o) : AttachmentContainer(o) {}

NodeCore::~NodeCore() = default; // nodes hold their core, so no node refers to it here

std::vector<NodePtr> NodeCore::getParents() const {
    std::vector<NodePtr> out;
    out.reserve(_parents.size());
    for (Node* n : _parents)
        out.push_back(getPtr(n));
    return out;
}

} // namespace osg
