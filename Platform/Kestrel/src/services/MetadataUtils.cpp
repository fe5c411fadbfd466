#include <QDate>
#include <QDateTime>
#include <QString>
#include <QTime>
#include <exception>

#include <kestrel/ksMetadataUtils.h>

using namespace osg;

MetadataPtr ksMetadataUtils::getMetadata(const AttachmentContainerPtr& container) {
    return container ? container->findAttachment<Metadata>() : MetadataPtr();
}

MetadataPtr ksMetadataUtils::createMetadata(const AttachmentContainerPtr& container) {
    if (!container) return MetadataPtr();
    if (auto m = getMetadata(container)) return m;
    MetadataPtr m = Metadata::create();
    container->addAttachment(m);
    return m;
}

MetadataPtr ksMetadataUtils::getMetadata(const AttachmentContainerPtr& container,
                                         std::vector<MetadataSetPtr>& sets) {
    MetadataPtr m = getMetadata(container);
    sets = m ? m->getMetadataSets() : std::vector<MetadataSetPtr>();
    return m;
}

MetadataSetPtr ksMetadataUtils::createMetadataSet(const std::string& name) {
    MetadataSetPtr s = MetadataSet::create();
    s->setName(name);
    return s;
}

MetadataSetPtr ksMetadataUtils::getMetadataSet(const std::string& name,
                                               const AttachmentContainerPtr& container) {
    MetadataPtr m = createMetadata(container);
    if (!m) return MetadataSetPtr();
    if (auto s = m->findMetadataSet(name)) return s;
    MetadataSetPtr s = createMetadataSet(name);
    m->addMetadataSet(s);
    return s;
}

std::string ksMetadataUtils::getName(const MetadataSetPtr& set) {
    return set ? set->getName() : std::string();
}

void ksMetadataUtils::setName(const MetadataSetPtr& set, const std::string& name) {
    if (set) set->setName(name);
}

void ksMetadataUtils::setLock(const MetadataSetPtr& set, bool locked) {
    if (set) set->setLocked(locked);
}

bool ksMetadataUtils::isLocked(const MetadataSetPtr& set) {
    return set && set->isLocked();
}

bool ksMetadataUtils::setValue(const MetadataSetPtr& set, const std::string& key,
                               const osg::Json& value, bool force) {
    if (!set || (set->isLocked() && !force)) return false;
    set->getMetadata()[key] = osg::Json{{"value", value}};
    set->changed(MetadataSet::MetadataFieldMask);
    return true;
}
