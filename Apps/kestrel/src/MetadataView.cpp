#include "MetadataView.h"

#include <ostream>
#include <vector>

#include <kestrel/ksJsonMetadata.h>
#include <kestrel/ksMetadataTypes.h>
#include <kestrel/ksMetadataUtils.h>

using nlohmann::json;

namespace {
json describeEntries(const osg::Json& entries) {
    json list = json::array();
    for (const std::string& key : ksJsonMetadata::getKeys(entries)) {
        json e;
        e["key"] = key;
        e["type"] =
            ksMetadataTypes::getName(ksJsonMetadata::getPropertyType(entries, key, "value"));
        e["value"] = ksJsonMetadata::hasProperty(entries, key) ? entries[key]["value"] : json();
        list.push_back(e);
    }
    return list;
}
} // namespace

json describeMetadata(const osg::AttachmentContainerPtr& container) {
    std::vector<osg::MetadataSetPtr> sets;
    osg::MetadataPtr metadata = ksMetadataUtils::getMetadata(container, sets);
    if (!metadata) return json();
    json list = json::array();
    if (!metadata->getMetadata().empty()) {
        json own;
        own["name"] = "";
        own["entries"] = metadata->getMetadata().size();
        own["values"] = describeEntries(metadata->getMetadata());
        list.push_back(own);
    }
    for (const osg::MetadataSetPtr& set : sets) {
        json s;
        s["name"] = ksMetadataUtils::getName(set);
        s["entries"] = set->getMetadata().size();
        if (ksMetadataUtils::isLocked(set)) s["locked"] = true;
        s["values"] = describeEntries(set->getMetadata());
        list.push_back(s);
    }
    return list.empty() ? json() : list;
}

void printMetadata(std::ostream& os, const std::string& indent, const json& sets) {
    if (!sets.is_array()) return;
    for (const json& s : sets) {
        const std::string name = s.value("name", std::string());
        os << indent
           << (name.empty() ? std::string("own metadata") : "metadata set \"" + name + "\"") << ": "
           << s.value("entries", 0) << " entries" << (s.contains("locked") ? " (locked)" : "")
           << "\n";
        if (!s.contains("values")) continue;
        for (const json& e : s["values"]) {
            const json& v = e["value"];
            os << indent << "  " << e.value("key", std::string()) << " ("
               << e.value("type", std::string()) << "): "
               << (v.is_string() ? v.get<std::string>()
                                 : v.dump(-1, ' ', false, json::error_handler_t::replace))
               << "\n";
        }
    }
}
