#pragma once
// The host's light core. A light is placed by its own transform values (it
// is a Transform3D) and emits along its local -Z axis. An area light's
// emitter has the area size in local units, so its world size follows the
// node's scale.
//
// Light value is the emitted intensity in the host's units; the diffuse
// colour tints it. Shadow intensity 0 means the light casts no shadow.
#include <kestrel/osg/Transform.h>

namespace osg {

KS_FC_TYPEDEFS(UberLight)

class UberLight : public Transform3D {
    KS_FIELD_CONTAINER_DECL(UberLight, Transform3D)
public:
    enum LightType : UInt32 {
        PointLight = 0,
        DirectionalLight = 1,
        SpotLight = 2,
        RectangularLight = 3,
        SphericalLight = 4,
        DiskLight = 5,
    };
    // How the intensity falls off with distance.
    enum AttenuationMode : UInt32 {
        NoAttenuation = 0,
        LinearAttenuation = 1,
        QuadraticAttenuation = 2,
    };
    static constexpr BitVector LightFieldMask = 1ull << 20;

    UInt32 getLightType() const { return _type; }
    void setLightType(UInt32 t);
    bool isAreaLight() const {
        return _type == RectangularLight || _type == SphericalLight || _type == DiskLight;
    }
    bool isSpotLight() const { return _type == SpotLight; }
    bool getOn() const { return _on; }
    void setOn(bool on);
    Real32 getShadowIntensity() const { return _shadowIntensity; }
    void setShadowIntensity(Real32 v);
    bool getCastShadows() const { return _shadowIntensity > 0.f; }
    Real32 getGroundShadowIntensity() const { return _groundShadowIntensity; }
    void setGroundShadowIntensity(Real32 v);
    Real32 getLightScale() const { return _lightScale; }
    void setLightScale(Real32 v);
    const Color3f& getDiffuse() const { return _diffuse; }
    void setDiffuse(const Color3f& c);
    const Color3f& getGlossy() const { return _glossy; }
    void setGlossy(const Color3f& c);
    Real32 getLightValue() const { return _lightValue; }
    void setLightValue(Real32 v);
    UInt32 getAttenuation() const { return _attenuation; }
    void setAttenuation(UInt32 a);
    // Spot cone half angle and penumbra width, degrees.
    Real32 getConeAngle() const { return _coneAngle; }
    void setConeAngle(Real32 deg);
    Real32 getPenumbraAngle() const { return _penumbraAngle; }
    void setPenumbraAngle(Real32 deg);
    // Emitter size in local units: width and height of a rectangle; a disk's
    // or sphere's diameter is the width.
    const Vec2f& getAreaSize() const { return _areaSize; }
    void setAreaSize(const Vec2f& size);

    // World position and unit emission direction, from the first node that
    // uses this core (local values when no node does).
    void getPositionDirection(Pnt3f& position, Vec3f& direction) const;

private:
    UInt32 _type = PointLight;
    bool _on = true;
    Real32 _shadowIntensity = 0.f, _groundShadowIntensity = 0.f, _lightScale = 1.f;
    Color3f _diffuse{1.f, 1.f, 1.f}, _glossy{1.f, 1.f, 1.f};
    Real32 _lightValue = 1.f;
    UInt32 _attenuation = QuadraticAttenuation;
    Real32 _coneAngle = 22.5f, _penumbraAngle = 5.f;
    Vec2f _areaSize{1.f, 1.f};
};

} // namespace osg
