#pragma once
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <kestrel/osg/Attachment.h>

namespace osg {

KS_FC_TYPEDEFS(JsonAttachment)
KS_FC_TYPEDEFS(MetadataSet)
KS_FC_TYPEDEFS(Metadata)

using Json = nlohmann::json;

class JsonAttachment : public Attachment {
    KS_FIELD_CONTAINER_DECL(JsonAttachment, Attachment)
public:
    static constexpr BitVector MetadataFieldMask = 1ull << 2;

    JsonAttachment() : _json(Json::object()) {}
    // The JSON object; record MetadataFieldMask after editing it.
    Json& getMetadata() { return _json; }
    const Json& getMetadata() const { return _json; }
    void setMetadata(Json j);

private:
    Json _json;
};

} // namespace osg
