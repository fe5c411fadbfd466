#pragma once
// The light service: creates light nodes and reads and writes their values.
//
// Type names: "PointLight", "DirectionalLight", "SpotLight",
// "RectangularLight", "SphericalLight", "DiskLight". A light node carries an
// osg::UberLight core (which is also its transform); lights emit along -Z.
// The setters and getters take the light's node; they do nothing (getters
// return 0 / false) when the node is not a light. Cone and penumbra angles
// are in degrees: the cone angle is the half angle of the fully lit cone and
// the penumbra widens it on each side.
#include <string>

#include <kestrel/osg/UberLight.h>

class ksLights {
public:
    // A new light node named nodeName, appended to parent when given; null
    // for an unknown type name.
    static osg::NodePtr createLight(const std::string& typeName, const std::string& nodeName,
                                    const osg::NodePtr& parent = osg::NullFC);
    static osg::UberLightPtr getLight(const osg::NodePtr& node);
    static bool isLight(const osg::NodePtr& node) { return bool(getLight(node)); }
    static std::string getTypeName(const osg::NodePtr& node);

    static bool isPointLight(const osg::NodePtr& node);
    static bool isDirectionalLight(const osg::NodePtr& node);
    static bool isSpotLight(const osg::NodePtr& node);
    static bool isAreaLight(const osg::NodePtr& node); // rectangular, spherical or disk
    static bool isRectangularLight(const osg::NodePtr& node);
    static bool isSphericalLight(const osg::NodePtr& node);
    static bool isDiskLight(const osg::NodePtr& node);

    static void setOn(const osg::NodePtr& node, bool on);
    static bool getOn(const osg::NodePtr& node);
    static void setShadowIntensity(const osg::NodePtr& node, osg::Real32 v);
    static osg::Real32 getShadowIntensity(const osg::NodePtr& node);
    static void setGroundShadowIntensity(const osg::NodePtr& node, osg::Real32 v);
    static osg::Real32 getGroundShadowIntensity(const osg::NodePtr& node);
    static void setLightScale(const osg::NodePtr& node, osg::Real32 v);
    static osg::Real32 getLightScale(const osg::NodePtr& node);
    static void setDiffuse(const osg::NodePtr& node, const osg::Color3f& c);
    static osg::Color3f getDiffuse(const osg::NodePtr& node);
    static void setGlossy(const osg::NodePtr& node, const osg::Color3f& c);
    static osg::Color3f getGlossy(const osg::NodePtr& node);
    static void setLightValue(const osg::NodePtr& node, osg::Real32 v);
    static osg::Real32 getLightValue(const osg::NodePtr& node);
    // An osg::UberLight::AttenuationMode: 0 none, 1 linear, 2 quadratic.
    static void setAttenuation(const osg::NodePtr& node, osg::UInt32 a);
    static osg::UInt32 getAttenuation(const osg::NodePtr& node);
    static void setConeAngle(const osg::NodePtr& node, osg::Real32 degrees);
    static osg::Real32 getConeAngle(const osg::NodePtr& node);
    static void setPenumbraAngle(const osg::NodePtr& node, osg::Real32 degrees);
    static osg::Real32 getPenumbraAngle(const osg::NodePtr& node);
    // Area lights' emitter size in local units (see osg::UberLight).
    static void setAreaSize(const osg::NodePtr& node, const osg::Vec2f& size);
    static osg::Vec2f getAreaSize(const osg::NodePtr& node);
};
