#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/ColorComponents.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(ColorComponents)

ColorComponents::ColorComponents()
    : _diffuse(ColorComponent::create()), _glossy(ColorComponent::create()),
      _specular(ColorComponent::create()), _incandescence(ColorComponent::create()),
      _bump(ColorComponent::create()), _transparency(ColorComponent::create()) {
    _diffuse->setColor(Color3f(0.8f, 0.8f, 0.8f));
}

} // namespace osg
