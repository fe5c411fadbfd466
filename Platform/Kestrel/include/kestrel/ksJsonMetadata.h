#pragma once
#include <string>
#include <vector>

#include <kestrel/ksMetadataTypes.h>
#include <kestrel/osg/Metadata.h>

class ksJsonMetadata {
public:
    // Keys of a JSON object in iteration order (empty for non-objects).
    static std::vector<std::string> getKeys(const osg::Json& json);
    // Value type of json[key][member] as described above.
    static ksMetadataTypes::ValueType getPropertyType(const osg::Json& json, const std::string& key,
                                                      const std::string& member = "value");
    static bool hasProperty(const osg::Json& json, const std::string& key,
                            const std::string& member = "value");
    // Text of json[key][member]: strings as they are, other values as JSON.
    static std::string getString(const osg::Json& json, const std::string& key,
                                 const std::string& member = "value");
    // JSON text, or an error message in error; never throws.
    static bool parse(const std::string& text, osg::Json& out, std::string* error = nullptr);
};
