// Node attributes: what a node is (null, marker, skeleton, camera, light,
// geometry, ...). An attribute may be shared by several nodes (instances).
#pragma once

#include "qdxsdk/node.h"
#include "qdxsdk/object.h"

namespace qdxsdk {

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

    // The attribute's own viewing (or emitting) axis and its up axis in its
    // node's local frame, as directions (w = 0). +X and +Y unless a class
    // says otherwise. A node's target aims the forward axis; its up target
    // (or the world up) steers the up axis.
    virtual QdxVector4 GetForwardAxis() const { return QdxVector4(1, 0, 0, 0); }
    virtual QdxVector4 GetUpAxis() const { return QdxVector4(0, 1, 0, 0); }

    // Where the attribute sits on a node in world space at a time: the
    // node's global transform (targets applied) followed by its geometric
    // transform. forward and up are unit directions (w = 0); a transform
    // that collapses an axis leaves it (0, 0, 0, 0). Camera Roll is a
    // property of the lens and is not part of this frame.
    struct WorldFrame {
        QdxVector4 position;
        QdxVector4 forward;
        QdxVector4 up;
    };
    WorldFrame EvaluateWorldFrame(QdxNode* node, QdxTime time = QdxTime(),
                                  QdxNode::EPivotSet set = QdxNode::eSourcePivot) const;

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
// offsets are in inches, the focal length in millimetres, angles in degrees,
// distances (planes, focus) in scene units.
//
// The derived getters read values that may come from a hostile file: a film
// size, focal length or image size that is not a positive finite number, or
// an angle outside (0, 180) degrees, makes the derived angle or length 0 and
// an aspect ratio 1; none of them divides by zero or returns NaN.
class QdxCamera : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxCamera)
public:
    enum EProjectionType : int { ePerspective = 0, eOrthogonal = 1 };
    // Which value is authoritative: with eHorizontal FieldOfView is the
    // angle across the film width, with eVertical and eHorizAndVert the angle
    // across the film height, with eFocalLength FocalLength.
    enum EApertureMode : int {
        eHorizAndVert = 0,
        eHorizontal = 1,
        eVertical = 2,
        eFocalLength = 3
    };
    // How the film gate is fitted into the output image.
    enum EGateFit : int {
        eFitNone = 0,
        eFitVertical = 1,
        eFitHorizontal = 2,
        eFitFill = 3,
        eFitOverscan = 4,
        eFitStretch = 5
    };
    EType GetAttributeType() const override { return eCamera; }

    void SetProjectionType(EProjectionType type) { ProjectionType.Set(type); }
    EProjectionType GetProjectionType() const;
    void SetNearPlane(double d) { NearPlane.Set(d); }
    double GetNearPlane() const { return NearPlane.Get(); }
    void SetFarPlane(double d) { FarPlane.Set(d); }
    double GetFarPlane() const { return FarPlane.Get(); }
    void SetApertureMode(EApertureMode mode) { ApertureMode.Set(mode); }
    EApertureMode GetApertureMode() const;
    void SetGateFit(EGateFit fit) { GateFit.Set(fit); }
    EGateFit GetGateFit() const;
    void SetApertureWidth(double inches) { FilmWidth.Set(inches); }
    double GetApertureWidth() const { return FilmWidth.Get(); }
    void SetApertureHeight(double inches) { FilmHeight.Set(inches); }
    double GetApertureHeight() const { return FilmHeight.Get(); }

    // Film width / film height; 1 when either is unusable.
    double GetFilmAspectRatio() const;
    // Output image width / height (AspectWidth / AspectHeight); 1 when
    // either is unusable.
    double GetImageAspectRatio() const;
    // Full angle of view, degrees, across the film width (horizontal) or
    // height for a focal length in millimetres.
    double ComputeFieldOfView(double focalLength, bool horizontal) const;
    // The focal length, millimetres, that gives fieldOfView degrees across
    // the film width (horizontal) or height.
    double ComputeFocalLength(double fieldOfView, bool horizontal) const;
    // The focal length and angles of view that follow from the value
    // ApertureMode makes authoritative.
    double GetEffectiveFocalLength() const;
    double GetHorizontalFieldOfView() const;
    double GetVerticalFieldOfView() const;

    QdxPropertyT<QdxDouble3> Position, InterestPosition, UpVector;
    QdxPropertyT<int> ProjectionType, ApertureMode, GateFit;
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

// Spot, directional and area lights emit along their node's local -Y axis;
// their up axis is local -Z (so that forward, up and forward x up = +X form
// a right-handed frame). Angles in degrees; Intensity 100 is the nominal
// brightness.
class QdxLight : public QdxNodeAttribute {
    QDX_DECLARE_OBJECT(QdxLight)
public:
    // Values outside the enumerators may come from a file; the getters
    // return them unchanged for the caller to reject.
    enum EType : int { ePoint = 0, eDirectional = 1, eSpot = 2, eArea = 3, eVolume = 4 };
    enum EDecayType : int { eNone = 0, eLinear = 1, eQuadratic = 2, eCubic = 3 };
    enum EAreaLightShape : int { eRectangle = 0, eSphere = 1 };
    QdxNodeAttribute::EType GetAttributeType() const override { return QdxNodeAttribute::eLight; }
    QdxVector4 GetForwardAxis() const override { return QdxVector4(0, -1, 0, 0); }
    QdxVector4 GetUpAxis() const override { return QdxVector4(0, 0, -1, 0); }

    void SetLightType(EType type) { LightType.Set(type); }
    EType GetLightType() const { return static_cast<EType>(LightType.Get()); }
    void SetDecayType(EDecayType type) { DecayType.Set(type); }
    EDecayType GetDecayType() const { return static_cast<EDecayType>(DecayType.Get()); }
    void SetAreaLightShape(EAreaLightShape shape) { AreaLightShape.Set(shape); }
    EAreaLightShape GetAreaLightShape() const {
        return static_cast<EAreaLightShape>(AreaLightShape.Get());
    }
    // Directional, spot and area lights have an emission direction.
    bool HasDirection() const;

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
