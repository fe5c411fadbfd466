#pragma once
// Metadata: JSON documents attached to nodes, cores and materials.
//
// A container's metadata is one Metadata attachment. It holds a JSON object
// of its own and a list of named MetadataSets, each holding a JSON object.
// Entries of a set have the form  key -> { "value": v }  (see
// ksJsonMetadata for the value types). A locked set is read-only for the
// user interface; the program can still write it.
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Attachment.h>

namespace osg {

using Json = nlohmann::json;

KS_FC_TYPEDEFS(JsonAttachment)
KS_FC_TYPEDEFS(MetadataSet)
KS_FC_TYPEDEFS(Metadata)

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

class MetadataSet : public JsonAttachment {
    KS_FIELD_CONTAINER_DECL(MetadataSet, JsonAttachment)
public:
    static constexpr BitVector LockedFieldMask = 1ull << 3;
    bool isLocked() const { return _locked; }
    void setLocked(bool locked);

private:
    bool _locked = false;
};

class Metadata : public JsonAttachment {
    KS_FIELD_CONTAINER_DECL(Metadata, JsonAttachment)
public:
    AttachmentPtr clone() const override;
    static constexpr BitVector SetsFieldMask = 1ull << 4;

    void addMetadataSet(const MetadataSetPtr& set);
    bool subMetadataSet(const MetadataSetPtr& set);
    const std::vector<MetadataSetPtr>& getMetadataSets() const { return _sets; }
    // The first set with this name, or null.
    MetadataSetPtr findMetadataSet(const std::string& name) const;

private:
    std::vector<MetadataSetPtr> _sets;
};

} // namespace osg
