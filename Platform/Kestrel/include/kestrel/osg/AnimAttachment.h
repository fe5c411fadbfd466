#pragma once
#include <string>
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(AnimNode)
KS_FC_TYPEDEFS(AnimCurve)
KS_FC_TYPEDEFS(AnimAttachment)

class AnimAttachment : public Attachment {
    KS_FIELD_CONTAINER_DECL(AnimAttachment, Attachment)
public:
    AttachmentPtr clone() const override;
    static constexpr BitVector RootFieldMask = 1ull << 2;
    static constexpr BitVector ChannelsFieldMask = 1ull << 3;

    AnimAttachment();
    AnimAttachment(const AnimAttachment& o); // shares the tree
    AnimNodePtr getRoot() const { return _root; }

    // Channels (name, component) that have curve nodes on this attachment;
    // filled by ksAnimManager::createChannelCurveNode.
    struct Channel {
        std::string name, component;
    };
    const std::vector<Channel>& getChannels() const { return _channels; }
    void addChannel(const std::string& name, const std::string& component);
    bool hasChannel(const std::string& name, const std::string& component) const;

private:
    AnimNodePtr _root;
    std::vector<Channel> _channels;
};

} // namespace osg
