#include <algorithm>
#include <cmath>

#include <kestrel/osg/AnimAttachment.h>
#include <kestrel/osg/Animation.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(AnimAttachment)

AnimAttachment::AnimAttachment() : _root(AnimNode::create()) {
    _root->setName("root");
}
AnimAttachment::AnimAttachment(const AnimAttachment& o)
    : Attachment(o), _root(o._root), _channels(o._channels) {}

namespace {
// Copies an animation tree: every node and curve, with its points.
AnimNodePtr copyAnimTree(const AnimNodePtr& node) {
    AnimNodePtr copy = AnimNodePtr::dcast(node->shallowCopy());
    for (const auto& c : node->getChildren())
        copy->addChild(copyAnimTree(c));
    return copy;
}
} // namespace

AttachmentPtr AnimAttachment::clone() const {
    auto copy = FCPtr<AnimAttachment>::dcast(shallowCopy());
    if (_root) copy->_root = copyAnimTree(_root);
    return copy;
}

void AnimAttachment::addChannel(const std::string& name, const std::string& component) {
    if (hasChannel(name, component)) return;
    _channels.push_back(Channel{name, component});
    changed(ChannelsFieldMask);
}

bool AnimAttachment::hasChannel(const std::string& name, const std::string& component) const {
    for (const auto& c : _channels)
        if (c.name == name && c.component == component) return true;
    return false;
}

} // namespace osg
