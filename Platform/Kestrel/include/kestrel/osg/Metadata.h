#pragma once
// Metadata: JSON documents attached to nodes, cores and materials.
//
// A container's metadata is one Metadata attachment. It holds a JSON object
// of its own and a list of named MetadataSets, each holding a JSON object.
// Entries of a set have the form  key -> { "value": v }  (see
// ksJsonMetadata for the value types). A locked set is read-only for the
// user interface; the program can still write it.
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/JsonAttachment.h>
#include <kestrel/osg/MetadataSet.h>

namespace osg {

KS_FC_TYPEDEFS(JsonAttachment)
KS_FC_TYPEDEFS(MetadataSet)
KS_FC_TYPEDEFS(Metadata)

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
