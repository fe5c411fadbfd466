#include <algorithm>

#include <kestrel/osg/Metadata.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Metadata)

AttachmentPtr Metadata::clone() const {
    auto copy = MetadataPtr::dcast(shallowCopy());
    for (auto& set : copy->_sets)
        set = MetadataSetPtr::dcast(set->shallowCopy());
    return copy;
}

void Metadata::addMetadataSet(const MetadataSetPtr& set) {
    if (!set || std::find(_sets.begin(), _sets.end(), set) != _sets.end()) return;
    _sets.push_back(set);
    changed(SetsFieldMask);
}

bool Metadata::subMetadataSet(const MetadataSetPtr& set) {
    auto it = std::find(_sets.begin(), _sets.end(), set);
    if (it == _sets.end()) return false;
    _sets.erase(it);
    changed(SetsFieldMask);
    return true;
}

MetadataSetPtr Metadata::findMetadataSet(const std::string& name) const {
    for (const auto& s : _sets)
        if (s->getName() == name) return s;
    return MetadataSetPtr();
}

} // namespace osg
