#pragma once
#include <vector>

#include <kestrel/osg/FieldContainer.h>

namespace osg {

KS_FC_TYPEDEFS(Attachment)
KS_FC_TYPEDEFS(AttachmentContainer)

class AttachmentContainer : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(AttachmentContainer, FieldContainer)
public:
    static constexpr BitVector AttachmentsFieldMask = 1ull << 1;

    struct Entry {
        const FieldContainerType* group;
        UInt16 binding;
        AttachmentPtr attachment;
    };

    void addAttachment(const AttachmentPtr& attachment, UInt16 binding = 0);
    void subAttachment(const AttachmentPtr& attachment);
    // The attachment of the given type group and binding, or null.
    AttachmentPtr findAttachment(const FieldContainerType& group, UInt16 binding = 0) const;
    template <class T> FCPtr<T> findAttachment(UInt16 binding = 0) const {
        return FCPtr<T>::dcast(findAttachment(T::getClassType(), binding));
    }
    const std::vector<Entry>& getAttachments() const { return _attachments; }
    // Replaces every attachment by its clone(), so that this container no
    // longer shares attachments with the one it was copied from.
    void unshareAttachments();

private:
    std::vector<Entry> _attachments;
};

} // namespace osg
