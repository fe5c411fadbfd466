// Node attributes: what a node is (null, marker, skeleton, camera, light,
// geometry, ...). An attribute may be shared by several nodes (instances).
#pragma once

#include "qdxsdk/object.h"

namespace qdxsdk {

class QdxNode;

class QdxNodeAttribute : public QdxObject {
    QDX_DECLARE_ABSTRACT(QdxNodeAttribute)
public:
    // Attribute kinds. Numbers are part of the file formats.
    enum EType {
        eUnknown = 0,
        eNull = 1,
        eMarker = 2,
        eSkeleton = 3,
        eMesh = 4,
        eNurbs = 5,
        ePatch = 6,
        eCamera = 7,
        eCameraStereo = 8,
        eCameraSwitcher = 9,
        eLight = 10,
        eOpticalReference = 11,
        eOpticalMarker = 12,
        eNurbsCurve = 13,
        eTrimNurbsSurface = 14,
        eBoundary = 15,
        eNurbsSurface = 16,
        eShape = 17,
        eLODGroup = 18,
        eSubDiv = 19,
        eCachedEffect = 20,
        eLine = 21
    };
    virtual EType GetAttributeType() const = 0;
    // The nodes that carry this attribute.
    int GetNodeCount() const;
    QdxNode* GetNode(int index = 0) const;

    QdxPropertyT<QdxDouble3> Color;
};

class QdxNull : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxNull)
public:
    EType GetAttributeType() const override { return eNull; }
    QdxPropertyT<double> Size;
};

class QdxMarker : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxMarker)
public:
    EType GetAttributeType() const override { return eMarker; }
    QdxPropertyT<double> Size;
};

class QdxSkeleton : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxSkeleton)
public:
    enum EType { eRoot = 0, eLimb = 1, eLimbNode = 2, eEffector = 3 };
    QdxNodeAttribute::EType GetAttributeType() const override { return eSkeleton; }
    void SetSkeletonType(EType type) { SkeletonType.Set(type); }
    EType GetSkeletonType() const { return static_cast<EType>(SkeletonType.Get()); }
    QdxPropertyT<int> SkeletonType;
    QdxPropertyT<double> Size, LimbLength;
};

// A camera looks along its node's local +X axis with +Y up. Film sizes and
// offsets are in inches, the focal length in millimetres, angles in degrees.
class QdxCamera : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxCamera)
public:
    enum EProjectionType { ePerspective = 0, eOrthogonal = 1 };
    enum EApertureMode { eHorizAndVert = 0, eHorizontal = 1, eVertical = 2, eFocalLength = 3 };
    EType GetAttributeType() const override { return eCamera; }

    void SetNearPlane(double d) { NearPlane.Set(d); }
    double GetNearPlane() const { return NearPlane.Get(); }
    void SetFarPlane(double d) { FarPlane.Set(d); }
    double GetFarPlane() const { return FarPlane.Get(); }
    void SetApertureMode(EApertureMode mode) { ApertureMode.Set(mode); }
    EApertureMode GetApertureMode() const { return static_cast<EApertureMode>(ApertureMode.Get()); }
    void SetApertureWidth(double inches) { FilmWidth.Set(inches); }
    double GetApertureWidth() const { return FilmWidth.Get(); }
    void SetApertureHeight(double inches) { FilmHeight.Set(inches); }
    double GetApertureHeight() const { return FilmHeight.Get(); }

    QdxPropertyT<QdxDouble3> Position, InterestPosition, UpVector;
    QdxPropertyT<int> ProjectionType, ApertureMode;
    QdxPropertyT<double> FilmWidth, FilmHeight, FilmOffsetX, FilmOffsetY, FilmRollValue;
    QdxPropertyT<double> FocalLength, FieldOfView, NearPlane, FarPlane, FocusDistance;
    QdxPropertyT<double> Roll, OrthoZoom, AspectWidth, AspectHeight, FStop;
    QdxPropertyT<bool> UseMotionBlur, UseDepthOfField;
};

class QdxCameraSwitcher : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxCameraSwitcher)
public:
    EType GetAttributeType() const override { return eCameraSwitcher; }
    QdxPropertyT<int> CameraIndex;
};

// Spot, directional and area lights emit along their node's local -Y axis.
// Angles in degrees; Intensity 100 is the nominal brightness.
class QdxLight : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxLight)
public:
    enum EType { ePoint = 0, eDirectional = 1, eSpot = 2, eArea = 3, eVolume = 4 };
    enum EDecayType { eNone = 0, eLinear = 1, eQuadratic = 2, eCubic = 3 };
    enum EAreaLightShape { eRectangle = 0, eSphere = 1 };
    QdxNodeAttribute::EType GetAttributeType() const override { return QdxNodeAttribute::eLight; }

    QdxPropertyT<int> LightType, DecayType, AreaLightShape;
    QdxPropertyT<bool> CastLight, CastShadows;
    QdxPropertyT<QdxDouble3> ShadowColor; // the light colour is Color
    QdxPropertyT<double> Intensity, InnerAngle, OuterAngle, DecayStart;
    QdxPropertyT<QdxString> FileName;
};

class QdxLODGroup : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxLODGroup)
public:
    EType GetAttributeType() const override { return eLODGroup; }
    QdxPropertyT<bool> MinMaxDistance;
};

class QdxOpticalReference : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxOpticalReference)
public:
    EType GetAttributeType() const override { return eOpticalReference; }
};

} // namespace qdxsdk
