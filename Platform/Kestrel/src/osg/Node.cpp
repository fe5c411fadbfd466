#include <algorithm>
#include <limits>

#include <kestrel/osg/Node.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Node)

Node::Node(const Node& o) : AttachmentContainer(o), _traversalMask(o._traversalMask) {
    // The copy takes the core through setCore once it is owned by a handle;
    // here we only remember it.
    _core = o._core;
    if (_core) _core->_parents.push_back(this);
}

Node::~Node() {
    if (_core) {
        auto& ps = _core->_parents;
        ps.erase(std::remove(ps.begin(), ps.end(), this), ps.end());
    }
    // A child whose last handle is ours would be destroyed inside this
    // destructor, and its children inside its own: a deep tree would exhaust
    // the stack. Children that die here hand their own children over first,
    // so every node is destroyed with no children left.
    std::vector<NodePtr> pending;
    pending.swap(_children);
    while (!pending.empty()) {
        NodePtr child = std::move(pending.back());
        pending.pop_back();
        child->_parent = nullptr;
        if (child.shared().use_count() == 1) {
            for (NodePtr& grandChild : child->_children)
                pending.push_back(std::move(grandChild));
            child->_children.clear();
        }
    }
}

void Node::setCore(const NodeCorePtr& core) {
    if (core == _core) return;
    if (_core) {
        auto& ps = _core->_parents;
        ps.erase(std::remove(ps.begin(), ps.end(), this), ps.end());
        _core->changed(NodeCore::ParentsFieldMask);
    }
    _core = core;
    if (_core) {
        _core->_parents.push_back(this);
        _core->changed(NodeCore::ParentsFieldMask);
    }
    changed(CoreFieldMask);
}

NodePtr Node::getParent() const {
    return getPtr(_parent);
}

NodePtr Node::getChild(UInt32 index) const {
    return index < _children.size() ? _children[index] : NodePtr();
}

void Node::detachChild(Node* child) {
    auto it = std::find_if(_children.begin(), _children.end(),
                           [&](const NodePtr& c) { return c.get() == child; });
    if (it == _children.end()) return;
    child->_parent = nullptr;
    _children.erase(it);
    changed(ChildrenFieldMask);
}

bool Node::insertChild(UInt32 index, const NodePtr& child) {
    if (!child) return false;
    // A cycle needs child to be an ancestor of this node, which a leaf
    // cannot be (unless it is this node): adding leaves, as trees are built
    // top down, then costs no walk up, whatever the depth.
    if (child.get() == this) return false;
    if (!child->_children.empty())
        for (const Node* p = this; p; p = p->_parent)
            if (p == child.get()) return false; // would make a cycle
    NodePtr keep = child;                       // keeps it alive while it moves
    if (child->_parent) {
        if (child->_parent == this) {
            Int32 at = findChild(child);
            if (at >= 0 && static_cast<UInt32>(at) < index) --index;
        }
        child->_parent->detachChild(child.get());
    }
    index = std::min<UInt32>(index, static_cast<UInt32>(_children.size()));
    _children.insert(_children.begin() + index, child);
    child->_parent = this;
    child->changed(ParentFieldMask);
    changed(ChildrenFieldMask);
    return true;
}

bool Node::addChild(const NodePtr& child) {
    return insertChild(std::numeric_limits<UInt32>::max(), child);
}

bool Node::replaceChild(UInt32 index, const NodePtr& child) {
    if (index >= _children.size() || !child) return false;
    NodePtr old = _children[index];
    if (!insertChild(index, child)) return false;
    return subChild(old);
}

bool Node::subChild(const NodePtr& child) {
    if (!child || child->_parent != this) return false;
    detachChild(child.get());
    child->changed(ParentFieldMask);
    return true;
}

bool Node::subChild(UInt32 index) {
    if (index >= _children.size()) return false;
    return subChild(NodePtr(_children[index]));
}

Int32 Node::findChild(const NodePtr& child) const {
    for (std::size_t i = 0; i < _children.size(); ++i)
        if (_children[i] == child) return static_cast<Int32>(i);
    return -1;
}

void Node::setTraversalMask(UInt32 mask) {
    _traversalMask = mask;
    changed(TraversalMaskFieldMask);
}

Matrix Node::getLocalMatrix() const {
    return _core ? _core->getLocalMatrix() : Matrix();
}

Matrix Node::getWorldMatrix() const {
    Matrix m = getLocalMatrix();
    for (const Node* p = _parent; p; p = p->_parent)
        m.multLeft(p->getLocalMatrix());
    return m;
}

} // namespace osg
