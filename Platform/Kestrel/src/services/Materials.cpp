#include <kestrel/ksMaterials.h>
#include <kestrel/osg/ChangeList.h>

using namespace osg;

std::string ksMaterials::getName(const MaterialPtr& material) {
    return material ? material->getName() : std::string();
}

void ksMaterials::setName(const MaterialPtr& material, const std::string& name, bool recordChange) {
    if (!material) return;
    bool was = ChangeList::current().isEnabled();
    if (!recordChange) ChangeList::current().setEnabled(false);
    material->setName(name);
    ChangeList::current().setEnabled(was);
}

MaterialPtr ksMaterials::getRealMaterial(const MaterialPtr& material) {
    return material;
}
