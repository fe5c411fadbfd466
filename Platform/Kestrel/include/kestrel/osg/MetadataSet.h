#pragma once
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/JsonAttachment.h>

namespace osg {

KS_FC_TYPEDEFS(JsonAttachment)
KS_FC_TYPEDEFS(MetadataSet)
KS_FC_TYPEDEFS(Metadata)

class MetadataSet : public JsonAttachment {
    KS_FIELD_CONTAINER_DECL(MetadataSet, JsonAttachment)
public:
    static constexpr BitVector LockedFieldMask = 1ull << 3;
    bool isLocked() const { return _locked; }
    void setLocked(bool locked);

private:
    bool _locked = false;
};

} // namespace osg
