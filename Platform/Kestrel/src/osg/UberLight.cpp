#include "Setters.h"

#include <kestrel/osg/UberLight.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(UberLight)

KS_FIELD_SETTER(UberLight, LightType, UInt32, _type, LightFieldMask)

KS_FIELD_SETTER(UberLight, On, bool, _on, LightFieldMask)

KS_FIELD_SETTER(UberLight, ShadowIntensity, Real32, _shadowIntensity, LightFieldMask)

KS_FIELD_SETTER(UberLight, GroundShadowIntensity, Real32, _groundShadowIntensity, LightFieldMask)

KS_FIELD_SETTER(UberLight, LightScale, Real32, _lightScale, LightFieldMask)

KS_FIELD_SETTER(UberLight, Diffuse, const Color3f&, _diffuse, LightFieldMask)

KS_FIELD_SETTER(UberLight, Glossy, const Color3f&, _glossy, LightFieldMask)

KS_FIELD_SETTER(UberLight, LightValue, Real32, _lightValue, LightFieldMask)

KS_FIELD_SETTER(UberLight, Attenuation, UInt32, _attenuation, LightFieldMask)

KS_FIELD_SETTER(UberLight, ConeAngle, Real32, _coneAngle, LightFieldMask)

KS_FIELD_SETTER(UberLight, PenumbraAngle, Real32, _penumbraAngle, LightFieldMask)

KS_FIELD_SETTER(UberLight, AreaSize, const Vec2f&, _areaSize, LightFieldMask)

void UberLight::getPositionDirection(Pnt3f& position, Vec3f& direction) const {
    std::vector<NodePtr> nodes = getParents();
    Matrix m = nodes.empty() ? getMatrix() : nodes.front()->getWorldMatrix();
    position = m.multPnt(Pnt3f(0, 0, 0));
    direction = m.multVec(Vec3f(0, 0, -1));
    direction.normalize();
}

} // namespace osg
