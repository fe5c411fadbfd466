#include <algorithm>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/AttachmentContainer.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(AttachmentContainer)

void AttachmentContainer::unshareAttachments() {
    for (auto& e : _attachments)
        if (auto copy = e.attachment->clone()) e.attachment = copy;
    changed(AttachmentsFieldMask);
}

void AttachmentContainer::addAttachment(const AttachmentPtr& attachment, UInt16 binding) {
    if (!attachment) return;
    const FieldContainerType* group = &attachment->getGroupType();
    for (auto& e : _attachments) {
        if (e.group == group && e.binding == binding) {
            e.attachment = attachment;
            changed(AttachmentsFieldMask);
            return;
        }
    }
    _attachments.push_back(Entry{group, binding, attachment});
    changed(AttachmentsFieldMask);
}

void AttachmentContainer::subAttachment(const AttachmentPtr& attachment) {
    auto it = std::remove_if(_attachments.begin(), _attachments.end(),
                             [&](const Entry& e) { return e.attachment == attachment; });
    if (it == _attachments.end()) return;
    _attachments.erase(it, _attachments.end());
    changed(AttachmentsFieldMask);
}

AttachmentPtr AttachmentContainer::findAttachment(const FieldContainerType& group,
                                                  UInt16 binding) const {
    for (const auto& e : _attachments) {
        if (e.binding != binding) continue;
        if (e.group == &group || e.attachment->getType().isDerivedFrom(group)) return e.attachment;
    }
    return AttachmentPtr();
}

} // namespace osg
