#pragma once
// Metadata services: sets on containers, and the typed JSON entries in them.
//
// Entries of a metadata set have the form  key -> { "value": v }. The value
// type of an entry (ksJsonMetadata::getPropertyType) is taken from an
// explicit member "type" when the entry has one (a number 0..7 or one of the
// names below), otherwise from the JSON value: string 0 (or 4, 5, 6 when
// the text is an ISO-8601 time "hh:mm:ss[.fff]", date "yyyy-mm-dd" or
// date-time "yyyy-mm-ddThh:mm:ss[.fff][zone]" with a valid date and time, a
// space allowed for the "T"), integer 1, floating point 2, boolean 3, array or
// object 7. A missing entry, a missing member or null gives Invalid (8).
#include <string>
#include <vector>

#include <kestrel/ksMetadataTypes.h>
#include <kestrel/osg/Metadata.h>

class ksMetadataUtils {
public:
    // The container's metadata; createMetadata adds it when missing.
    static osg::MetadataPtr getMetadata(const osg::AttachmentContainerPtr& container);
    static osg::MetadataPtr createMetadata(const osg::AttachmentContainerPtr& container);
    // The metadata and its sets (sets empty when there is no metadata).
    static osg::MetadataPtr getMetadata(const osg::AttachmentContainerPtr& container,
                                        std::vector<osg::MetadataSetPtr>& sets);
    // The set of that name on the container, created (with the metadata) when
    // missing; null for a null container.
    static osg::MetadataSetPtr getMetadataSet(const std::string& name,
                                              const osg::AttachmentContainerPtr& container);
    static osg::MetadataSetPtr createMetadataSet(const std::string& name);

    static std::string getName(const osg::MetadataSetPtr& set);
    static void setName(const osg::MetadataSetPtr& set, const std::string& name);
    static void setLock(const osg::MetadataSetPtr& set, bool locked);
    static bool isLocked(const osg::MetadataSetPtr& set);
    // Sets an entry { key: { "value": value } } and records the change;
    // refused (false) on a locked set unless force is true.
    static bool setValue(const osg::MetadataSetPtr& set, const std::string& key,
                         const osg::Json& value, bool force = false);
};
