#pragma once
// The metadata of a node or material as JSON and as indented tree lines:
// each set with its name, lock and entries (key, value type, value), and
// the container's own entries as a set without a name.
#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Attachment.h>

// An array of sets, or null when the container has no metadata.
nlohmann::json describeMetadata(const osg::AttachmentContainerPtr& container);
// One line per set and one per entry, each line starting with indent.
void printMetadata(std::ostream& os, const std::string& indent, const nlohmann::json& sets);
