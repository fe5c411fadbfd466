// Node attributes other than geometry.
#include "qdxsdk/attributes.h"

#include <cmath>

#include "impl.h"
#include "qdxsdk/node.h"
#include "transform_math.h"

namespace qdxsdk {

QDX_IMPLEMENT_ABSTRACT(QdxNodeAttribute, QdxObject, "QdxNodeAttribute")

QdxNodeAttribute::QdxNodeAttribute(QdxManager& m, const char* name) : QdxObject(m, name) {
    Color = AddProperty(QdxColor3DT, "Color", QdxDouble3(0.8, 0.8, 0.8));
}

int QdxNodeAttribute::GetNodeCount() const {
    return GetDstObjectCount<QdxNode>();
}
QdxNode* QdxNodeAttribute::GetNode(int index) const {
    return GetDstObject<QdxNode>(index);
}

QdxNodeAttribute::WorldFrame QdxNodeAttribute::EvaluateWorldFrame(QdxNode* node, QdxTime time,
                                                                  QdxNode::EPivotSet set) const {
    WorldFrame f;
    if (!node) return f;
    QdxAMatrix m =
        node->EvaluateGlobalTransform(time, set, true) * node->GetGeometricTransform(set);
    f.position = m.GetT();
    f.position[3] = 1;
    f.forward = detail::UnitDirection(m.MultR(GetForwardAxis()), 0.0);
    f.up = detail::UnitDirection(m.MultR(GetUpAxis()), 0.0);
    return f;
}

QDX_IMPLEMENT_OBJECT(QdxNull, QdxNodeAttribute, "QdxNull")
QdxNull::QdxNull(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {
    Size = AddProperty(QdxDoubleDT, "Size", 100.0);
}

QDX_IMPLEMENT_OBJECT(QdxMarker, QdxNodeAttribute, "QdxMarker")
QdxMarker::QdxMarker(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {
    Size = AddProperty(QdxDoubleDT, "Size", 100.0);
}

QDX_IMPLEMENT_OBJECT(QdxSkeleton, QdxNodeAttribute, "QdxSkeleton")
QdxSkeleton::QdxSkeleton(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {
    SkeletonType = AddProperty(QdxEnumDT, "SkeletonType", static_cast<int>(eRoot));
    Size = AddProperty(QdxDoubleDT, "Size", 100.0);
    LimbLength = AddProperty(QdxDoubleDT, "LimbLength", 1.0);
}

QDX_IMPLEMENT_OBJECT(QdxCamera, QdxNodeAttribute, "QdxCamera")
QdxCamera::QdxCamera(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {
    Position = AddProperty(QdxDouble3DT, "Position", QdxDouble3());
    InterestPosition = AddProperty(QdxDouble3DT, "InterestPosition", QdxDouble3());
    UpVector = AddProperty(QdxDouble3DT, "UpVector", QdxDouble3(0, 1, 0));
    ProjectionType = AddProperty(QdxEnumDT, "ProjectionType", static_cast<int>(ePerspective));
    ApertureMode = AddProperty(QdxEnumDT, "ApertureMode", static_cast<int>(eVertical));
    FilmWidth = AddProperty(QdxDoubleDT, "FilmWidth", 0.816);
    FilmHeight = AddProperty(QdxDoubleDT, "FilmHeight", 0.612);
    FilmOffsetX = AddProperty(QdxDoubleDT, "FilmOffsetX", 0.0);
    FilmOffsetY = AddProperty(QdxDoubleDT, "FilmOffsetY", 0.0);
    FilmRollValue = AddProperty(QdxDoubleDT, "FilmRollValue", 0.0);
    FocalLength = AddProperty(QdxDoubleDT, "FocalLength", 34.89327);
    FieldOfView = AddProperty(QdxDoubleDT, "FieldOfView", 25.114999);
    NearPlane = AddProperty(QdxDoubleDT, "NearPlane", 10.0);
    FarPlane = AddProperty(QdxDoubleDT, "FarPlane", 4000.0);
    FocusDistance = AddProperty(QdxDoubleDT, "FocusDistance", 200.0);
    Roll = AddProperty(QdxDoubleDT, "Roll", 0.0);
    OrthoZoom = AddProperty(QdxDoubleDT, "OrthoZoom", 1.0);
    AspectWidth = AddProperty(QdxDoubleDT, "AspectWidth", 320.0);
    AspectHeight = AddProperty(QdxDoubleDT, "AspectHeight", 200.0);
    FStop = AddProperty(QdxDoubleDT, "FStop", 5.6);
    UseMotionBlur = AddProperty(QdxBoolDT, "UseMotionBlur", false);
    UseDepthOfField = AddProperty(QdxBoolDT, "UseDepthOfField", false);
    GateFit = AddProperty(QdxEnumDT, "GateFit", static_cast<int>(eFitNone));
}

namespace {
constexpr double kMillimetresPerInch = 25.4;
constexpr double kPi = 3.14159265358979323846;

bool Usable(double v) {
    return std::isfinite(v) && v > 0.0;
}
double Ratio(double a, double b) {
    return Usable(a) && Usable(b) && Usable(a / b) ? a / b : 1.0;
}
} // namespace

QdxCamera::EProjectionType QdxCamera::GetProjectionType() const {
    return ProjectionType.Get() == eOrthogonal ? eOrthogonal : ePerspective;
}
QdxCamera::EApertureMode QdxCamera::GetApertureMode() const {
    int mode = ApertureMode.Get();
    return mode >= eHorizAndVert && mode <= eFocalLength ? static_cast<EApertureMode>(mode)
                                                         : eVertical;
}
QdxCamera::EGateFit QdxCamera::GetGateFit() const {
    int fit = GateFit.Get();
    return fit >= eFitNone && fit <= eFitStretch ? static_cast<EGateFit>(fit) : eFitNone;
}

double QdxCamera::GetFilmAspectRatio() const {
    return Ratio(FilmWidth.Get(), FilmHeight.Get());
}
double QdxCamera::GetImageAspectRatio() const {
    return Ratio(AspectWidth.Get(), AspectHeight.Get());
}

double QdxCamera::ComputeFieldOfView(double focalLength, bool horizontal) const {
    double film = (horizontal ? FilmWidth.Get() : FilmHeight.Get()) * kMillimetresPerInch;
    if (!Usable(film) || !Usable(focalLength)) return 0.0;
    double fov = 2.0 * std::atan(film / (2.0 * focalLength)) * 180.0 / kPi;
    return Usable(fov) ? fov : 0.0;
}

double QdxCamera::ComputeFocalLength(double fieldOfView, bool horizontal) const {
    double film = (horizontal ? FilmWidth.Get() : FilmHeight.Get()) * kMillimetresPerInch;
    if (!Usable(film) || !Usable(fieldOfView) || !(fieldOfView < 180.0)) return 0.0;
    double t = std::tan(fieldOfView * kPi / 360.0);
    double focal = t > 0.0 ? film / (2.0 * t) : 0.0;
    return Usable(focal) ? focal : 0.0;
}

double QdxCamera::GetEffectiveFocalLength() const {
    switch (GetApertureMode()) {
    case eFocalLength:
        return Usable(FocalLength.Get()) ? FocalLength.Get() : 0.0;
    case eHorizontal:
        return ComputeFocalLength(FieldOfView.Get(), true);
    case eVertical:
    case eHorizAndVert:
        break;
    }
    return ComputeFocalLength(FieldOfView.Get(), false);
}
double QdxCamera::GetHorizontalFieldOfView() const {
    return ComputeFieldOfView(GetEffectiveFocalLength(), true);
}
double QdxCamera::GetVerticalFieldOfView() const {
    return ComputeFieldOfView(GetEffectiveFocalLength(), false);
}

QDX_IMPLEMENT_OBJECT(QdxCameraSwitcher, QdxNodeAttribute, "QdxCameraSwitcher")
QdxCameraSwitcher::QdxCameraSwitcher(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {
    CameraIndex = AddProperty(QdxIntDT, "CameraIndex", 1);
}

QDX_IMPLEMENT_OBJECT(QdxLight, QdxNodeAttribute, "QdxLight")
QdxLight::QdxLight(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {
    Color.Set(QdxDouble3(1, 1, 1));
    LightType = AddProperty(QdxEnumDT, "LightType", static_cast<int>(ePoint));
    DecayType = AddProperty(QdxEnumDT, "DecayType", static_cast<int>(eNone));
    AreaLightShape = AddProperty(QdxEnumDT, "AreaLightShape", static_cast<int>(eRectangle));
    CastLight = AddProperty(QdxBoolDT, "CastLight", true);
    CastShadows = AddProperty(QdxBoolDT, "CastShadows", false);
    ShadowColor = AddProperty(QdxColor3DT, "ShadowColor", QdxDouble3());
    Intensity = AddProperty(QdxDoubleDT, "Intensity", 100.0);
    InnerAngle = AddProperty(QdxDoubleDT, "InnerAngle", 0.0);
    OuterAngle = AddProperty(QdxDoubleDT, "OuterAngle", 45.0);
    DecayStart = AddProperty(QdxDoubleDT, "DecayStart", 0.0);
    FileName = AddProperty(QdxStringDT, "FileName", std::string());
}

bool QdxLight::HasDirection() const {
    EType type = GetLightType();
    return type == eDirectional || type == eSpot || type == eArea;
}

QDX_IMPLEMENT_OBJECT(QdxLODGroup, QdxNodeAttribute, "QdxLODGroup")
QdxLODGroup::QdxLODGroup(QdxManager& m, const char* name) : QdxNodeAttribute(m, name) {
    MinMaxDistance = AddProperty(QdxBoolDT, "MinMaxDistance", false);
}

QDX_IMPLEMENT_OBJECT(QdxOpticalReference, QdxNodeAttribute, "QdxOpticalReference")
QdxOpticalReference::QdxOpticalReference(QdxManager& m, const char* name)
    : QdxNodeAttribute(m, name) {}

} // namespace qdxsdk
