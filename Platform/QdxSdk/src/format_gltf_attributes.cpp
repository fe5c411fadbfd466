// Cameras and punctual lights between glTF and the SDK's attributes:
// perspective and orthographic cameras, point, spot and directional lights.
#include "format_gltf_attributes.h"

#include <algorithm>
#include <cmath>

#include "qdxsdk/scene.h"

namespace qdxsdk::format {

const char* const kGltfLightsExtension = "KHR_lights_punctual";

namespace {
constexpr double kPi = 3.14159265358979323846;
constexpr double kDegrees = 180.0 / kPi;
// Scene units across an orthographic view at OrthoZoom 1 (the host's zoom).
constexpr double kOrthoZoomSize = 30.0;
// glTF intensity 1 (candela, or lux for directional lights) is Intensity 100.
constexpr double kIntensityScale = 100.0;
// Where an infinite far plane ends, in metres.
constexpr double kInfiniteFar = 1.0e6;

bool Fail(QdxStatus& status, const std::string& text) {
    status.SetCode(QdxStatus::eInvalidFile, text);
    return false;
}

bool Finite(double v) {
    return std::isfinite(v);
}

void SetUser(QdxObject* object, const char* key, double value) {
    QdxProperty p = QdxProperty::Create(object, QdxDoubleDT, key);
    p.ModifyFlag(QdxPropertyFlags::eUserDefined, true);
    p.Set(value);
}

// Film width and image width follow an aspect ratio; the heights stay.
void SetAspect(QdxCamera* camera, double aspect) {
    camera->FilmWidth.Set(camera->FilmHeight.Get() * aspect);
    camera->AspectWidth.Set(camera->AspectHeight.Get() * aspect);
}
} // namespace

QdxVector4 GltfAttributeTurn(QdxNodeAttribute::EType type) {
    // Camera: +X (SDK view) onto -Z (glTF view), +Y stays. Light: -Y (SDK
    // emission) onto -Z (glTF emission).
    if (type == QdxNodeAttribute::eCamera) return QdxVector4(0, 90, 0, 0);
    if (type == QdxNodeAttribute::eLight) return QdxVector4(90, 0, 0, 0);
    return QdxVector4(0, 0, 0, 0);
}

bool GltfNodeLight(const tinygltf::Model& model, const tinygltf::Node& node, int& light) {
    light = -1;
    auto found = node.extensions.find(kGltfLightsExtension);
    if (found == node.extensions.end()) return true;
    const tinygltf::Value& v = found->second;
    if (!v.IsObject() || !v.Has("light") || !v.Get("light").IsNumber()) return false;
    const double index = v.Get("light").GetNumberAsDouble();
    if (!(index >= 0) || index >= double(model.lights.size()) || index != std::floor(index))
        return false;
    light = int(index);
    return true;
}

bool CheckGltfCamerasAndLights(const tinygltf::Model& model, QdxStatus& status) {
    for (size_t i = 0; i < model.cameras.size(); ++i) {
        const tinygltf::Camera& c = model.cameras[i];
        const std::string what = "Camera " + std::to_string(i);
        if (c.type == "perspective") {
            const tinygltf::PerspectiveCamera& p = c.perspective;
            if (!(Finite(p.yfov) && p.yfov > 0 && p.yfov < kPi))
                return Fail(status, what + ": its vertical field of view is not in (0, pi)");
            if (!(Finite(p.znear) && p.znear > 0))
                return Fail(status, what + ": its near plane is not a positive number");
            if (p.zfar != 0 && !(Finite(p.zfar) && p.zfar > p.znear))
                return Fail(status, what + ": its far plane is not beyond its near plane");
            if (p.aspectRatio != 0 && !(Finite(p.aspectRatio) && p.aspectRatio > 0))
                return Fail(status, what + ": its aspect ratio is not a positive number");
        } else if (c.type == "orthographic") {
            const tinygltf::OrthographicCamera& o = c.orthographic;
            if (!(Finite(o.xmag) && Finite(o.ymag) && o.xmag != 0 && o.ymag != 0))
                return Fail(status, what + ": its magnification is zero or not finite");
            if (!(Finite(o.znear) && o.znear >= 0 && Finite(o.zfar) && o.zfar > o.znear))
                return Fail(status, what + ": its near and far planes are out of order");
        } else {
            return Fail(status, what + " has an unknown type '" + c.type + "'");
        }
    }
    for (size_t i = 0; i < model.lights.size(); ++i) {
        const tinygltf::Light& l = model.lights[i];
        const std::string what = "Light " + std::to_string(i);
        bool finite = Finite(l.intensity) && l.intensity >= 0 && Finite(l.range) && l.range >= 0;
        for (double c : l.color)
            finite = finite && Finite(c);
        if (!finite || (!l.color.empty() && l.color.size() != 3))
            return Fail(status, what + ": its colour, intensity or range is not usable");
        if (l.type == "spot") {
            const double inner = l.spot.innerConeAngle, outer = l.spot.outerConeAngle;
            if (!(Finite(inner) && Finite(outer) && inner >= 0 && inner < outer &&
                  outer <= kPi / 2 + 1e-9))
                return Fail(status, what + ": its cone angles are out of order");
        }
    }
    return true;
}

QdxCamera* MakeGltfCamera(QdxScene* scene, const tinygltf::Camera& c, const std::string& name,
                          std::vector<std::string>& notes) {
    QdxCamera* camera = QdxCamera::Create(scene, name.c_str());
    if (c.type == "orthographic") {
        const tinygltf::OrthographicCamera& o = c.orthographic;
        camera->SetProjectionType(QdxCamera::eOrthogonal);
        // ymag is half the view's height.
        camera->OrthoZoom.Set(2.0 * std::fabs(o.ymag) / kOrthoZoomSize);
        SetAspect(camera, std::fabs(o.xmag / o.ymag));
        if (o.xmag < 0 || o.ymag < 0)
            notes.push_back("Camera '" + name + "': a mirrored orthographic view is not carried");
        camera->SetNearPlane(o.znear);
        camera->SetFarPlane(o.zfar);
        return camera;
    }
    const tinygltf::PerspectiveCamera& p = c.perspective;
    camera->SetProjectionType(QdxCamera::ePerspective);
    if (p.aspectRatio > 0) SetAspect(camera, p.aspectRatio);
    camera->SetApertureMode(QdxCamera::eVertical);
    camera->FieldOfView.Set(p.yfov * kDegrees);
    camera->FocalLength.Set(camera->ComputeFocalLength(p.yfov * kDegrees, false));
    camera->SetNearPlane(p.znear);
    if (p.zfar > 0) {
        camera->SetFarPlane(p.zfar);
    } else {
        camera->SetFarPlane(std::max(kInfiniteFar, p.znear * 2));
        notes.push_back("Camera '" + name + "': its infinite far plane ends at " +
                        std::to_string(int(kInfiniteFar)) + " m");
    }
    return camera;
}

QdxLight* MakeGltfLight(QdxScene* scene, const tinygltf::Light& l, const std::string& name,
                        std::vector<std::string>& notes) {
    QdxLight* light = nullptr;
    if (l.type == "point" || l.type == "spot" || l.type == "directional") {
        light = QdxLight::Create(scene, name.c_str());
    } else {
        notes.push_back("Light '" + name + "' of type '" + l.type + "' is not carried");
        return nullptr;
    }
    if (l.type == "spot") {
        light->SetLightType(QdxLight::eSpot);
        // glTF's cone angles are half angles in radians, the SDK's full
        // angles in degrees.
        light->InnerAngle.Set(2.0 * l.spot.innerConeAngle * kDegrees);
        light->OuterAngle.Set(2.0 * l.spot.outerConeAngle * kDegrees);
    } else {
        light->SetLightType(l.type == "point" ? QdxLight::ePoint : QdxLight::eDirectional);
    }
    light->SetDecayType(l.type == "directional" ? QdxLight::eNone : QdxLight::eQuadratic);
    if (l.color.size() == 3)
        light->Color.Set(QdxDouble3(l.color[0], l.color[1], l.color[2]));
    else
        light->Color.Set(QdxDouble3(1, 1, 1));
    light->Intensity.Set(l.intensity * kIntensityScale);
    if (l.range > 0) SetUser(light, "range", l.range);
    return light;
}

bool ToGltfCamera(const QdxCamera* camera, double metres, tinygltf::Camera& out,
                  std::vector<std::string>& notes) {
    const std::string name = camera->GetName();
    out.name = name;
    const double aspect = camera->GetFilmAspectRatio();
    double znear = camera->GetNearPlane() * metres, zfar = camera->GetFarPlane() * metres;
    if (camera->Roll.Get() != 0 || camera->FilmOffsetX.Get() != 0 || camera->FilmOffsetY.Get() != 0)
        notes.push_back("Camera '" + name + "': its roll and film offset are not carried");
    if (camera->GetProjectionType() == QdxCamera::eOrthogonal) {
        out.type = "orthographic";
        double ymag = camera->OrthoZoom.Get() * kOrthoZoomSize * metres / 2.0;
        if (!(Finite(ymag) && ymag > 0)) {
            notes.push_back("Camera '" + name + "': its zoom is unusable; written as 1");
            ymag = kOrthoZoomSize * metres / 2.0;
        }
        if (!(Finite(znear) && znear >= 0)) znear = 0;
        if (!(Finite(zfar) && zfar > znear)) {
            notes.push_back("Camera '" + name + "': its far plane is unusable; moved");
            zfar = znear + kInfiniteFar;
        }
        out.orthographic.ymag = ymag;
        out.orthographic.xmag = ymag * aspect;
        out.orthographic.znear = znear;
        out.orthographic.zfar = zfar;
        return true;
    }
    out.type = "perspective";
    double yfov = camera->GetVerticalFieldOfView() / kDegrees;
    if (!(yfov > 0 && yfov < kPi)) {
        notes.push_back("Camera '" + name + "': its field of view is unusable; written as 45");
        yfov = kPi / 4;
    }
    if (!(Finite(znear) && znear > 0)) {
        notes.push_back("Camera '" + name + "': its near plane is not positive; moved");
        znear = 0.01;
    }
    out.perspective.yfov = yfov;
    out.perspective.aspectRatio = aspect;
    out.perspective.znear = znear;
    // Without a usable far plane the view is infinite.
    out.perspective.zfar = Finite(zfar) && zfar > znear ? zfar : 0.0;
    return true;
}

bool ToGltfLight(const QdxLight* light, tinygltf::Light& out, std::vector<std::string>& notes) {
    const std::string name = light->GetName();
    const QdxLight::EType type = light->GetLightType();
    if (type != QdxLight::ePoint && type != QdxLight::eSpot && type != QdxLight::eDirectional) {
        notes.push_back("Light '" + name + "': area and volume lights are not carried");
        return false;
    }
    out.name = name;
    out.type = type == QdxLight::ePoint  ? "point"
               : type == QdxLight::eSpot ? "spot"
                                         : "directional";
    const QdxDouble3 color = light->Color.Get();
    out.color = {std::max(color[0], 0.0), std::max(color[1], 0.0), std::max(color[2], 0.0)};
    for (double& c : out.color)
        if (!Finite(c)) c = 1.0;
    const double intensity = light->Intensity.Get() / kIntensityScale;
    out.intensity = Finite(intensity) && intensity >= 0 ? intensity : 1.0;
    if (QdxProperty range = light->FindProperty("range"); range.IsValid()) {
        const double r = range.Get<double>();
        if (Finite(r) && r > 0) out.range = r;
    }
    const QdxLight::EDecayType decay = light->GetDecayType();
    if (type != QdxLight::eDirectional && decay != QdxLight::eQuadratic)
        notes.push_back("Light '" + name + "': its decay is written as inverse square");
    if (type == QdxLight::eSpot) {
        double inner = light->InnerAngle.Get() / 2.0 / kDegrees;
        double outer = light->OuterAngle.Get() / 2.0 / kDegrees;
        if (!Finite(outer) || outer <= 0) outer = kPi / 4;
        outer = std::min(outer, kPi / 2);
        if (!Finite(inner) || inner < 0) inner = 0;
        if (inner >= outer) {
            notes.push_back("Light '" + name + "': its inner cone is not inside its outer one");
            inner = outer * 0.999;
        }
        out.spot.innerConeAngle = inner;
        out.spot.outerConeAngle = outer;
    }
    return true;
}

} // namespace qdxsdk::format
