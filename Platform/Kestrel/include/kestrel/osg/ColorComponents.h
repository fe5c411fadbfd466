#pragma once
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UberMaterialForward.h>

namespace osg {

// The colour components of an uber material, by channel.
class ColorComponents : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(ColorComponents, FieldContainer)
public:
    ColorComponents();
    ColorComponentSettingsPtr getDiffuseComponent() const { return _diffuse; }
    ColorComponentSettingsPtr getGlossyComponent() const { return _glossy; }
    ColorComponentSettingsPtr getSpecularComponent() const { return _specular; }
    ColorComponentSettingsPtr getIncandescenceComponent() const { return _incandescence; }
    ColorComponentSettingsPtr getBumpComponent() const { return _bump; }
    ColorComponentSettingsPtr getTransparencyComponent() const { return _transparency; }

private:
    ColorComponentPtr _diffuse, _glossy, _specular, _incandescence, _bump, _transparency;
};

} // namespace osg
