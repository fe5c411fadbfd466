#include <algorithm>
#include <cmath>

#include <kestrel/osg/AnimNode.h>
#include <kestrel/osg/Animation.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(AnimNode)

AnimNode::AnimNode(const AnimNode& o)
    : FieldContainer(o), _blendMode(o._blendMode), _weight(o._weight) {}

AnimNode::~AnimNode() {
    for (auto& c : _children)
        c->_parent = nullptr;
}

AnimNodePtr AnimNode::getParent() const {
    return getPtr(_parent);
}

AnimNodePtr AnimNode::getChild(UInt32 i) const {
    return i < _children.size() ? _children[i] : AnimNodePtr();
}

bool AnimNode::addChild(const AnimNodePtr& child) {
    if (!child) return false;
    for (const AnimNode* p = this; p; p = p->_parent)
        if (p == child.get()) return false;
    AnimNodePtr keep = child;
    if (child->_parent) child->_parent->subChild(child);
    _children.push_back(child);
    child->_parent = this;
    changed(ChildrenFieldMask);
    return true;
}

bool AnimNode::subChild(const AnimNodePtr& child) {
    auto it = std::find(_children.begin(), _children.end(), child);
    if (it == _children.end()) return false;
    child->_parent = nullptr;
    _children.erase(it);
    changed(ChildrenFieldMask);
    return true;
}

void AnimNode::collectCurves(std::vector<AnimCurvePtr>& out) const {
    for (const auto& c : _children) {
        if (auto curve = AnimCurvePtr::dcast(c)) out.push_back(curve);
        c->collectCurves(out);
    }
}

void AnimNode::setBlendMode(BlendMode mode) {
    _blendMode = mode;
    changed(BlendModeFieldMask);
}

void AnimNode::setWeight(Real64 percent) {
    if (!std::isfinite(percent)) return;
    _weight = percent;
    changed(WeightFieldMask);
}

} // namespace osg
