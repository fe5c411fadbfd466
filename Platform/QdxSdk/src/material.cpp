// Surface materials and textures.
#include "qdxsdk/material.h"
#include "impl.h"

namespace qdxsdk {

const char* QdxSurfaceMaterial::sShadingModel = "ShadingModel";
const char* QdxSurfaceMaterial::sMultiLayer = "MultiLayer";
const char* QdxSurfaceMaterial::sEmissive = "EmissiveColor";
const char* QdxSurfaceMaterial::sEmissiveFactor = "EmissiveFactor";
const char* QdxSurfaceMaterial::sAmbient = "AmbientColor";
const char* QdxSurfaceMaterial::sAmbientFactor = "AmbientFactor";
const char* QdxSurfaceMaterial::sDiffuse = "DiffuseColor";
const char* QdxSurfaceMaterial::sDiffuseFactor = "DiffuseFactor";
const char* QdxSurfaceMaterial::sSpecular = "SpecularColor";
const char* QdxSurfaceMaterial::sSpecularFactor = "SpecularFactor";
const char* QdxSurfaceMaterial::sShininess = "ShininessExponent";
const char* QdxSurfaceMaterial::sBump = "Bump";
const char* QdxSurfaceMaterial::sNormalMap = "NormalMap";
const char* QdxSurfaceMaterial::sBumpFactor = "BumpFactor";
const char* QdxSurfaceMaterial::sTransparentColor = "TransparentColor";
const char* QdxSurfaceMaterial::sTransparencyFactor = "TransparencyFactor";
const char* QdxSurfaceMaterial::sReflection = "ReflectionColor";
const char* QdxSurfaceMaterial::sReflectionFactor = "ReflectionFactor";
const char* QdxSurfaceMaterial::sDisplacementColor = "DisplacementColor";
const char* QdxSurfaceMaterial::sDisplacementFactor = "DisplacementFactor";

QDX_IMPLEMENT_OBJECT(QdxSurfaceMaterial, QdxObject, "QdxSurfaceMaterial")
QdxSurfaceMaterial::QdxSurfaceMaterial(QdxManager& m, const char* name) : QdxObject(m, name) {
    ShadingModel = AddProperty(QdxStringDT, sShadingModel, std::string("Unknown"));
    MultiLayer = AddProperty(QdxBoolDT, sMultiLayer, false);
}

QDX_IMPLEMENT_OBJECT(QdxSurfaceLambert, QdxSurfaceMaterial, "QdxSurfaceLambert")
QdxSurfaceLambert::QdxSurfaceLambert(QdxManager& m, const char* name)
    : QdxSurfaceMaterial(m, name) {
    ShadingModel.Set(QdxString("Lambert"));
    Emissive = AddProperty(QdxColor3DT, sEmissive, QdxDouble3());
    EmissiveFactor = AddProperty(QdxDoubleDT, sEmissiveFactor, 1.0);
    Ambient = AddProperty(QdxColor3DT, sAmbient, QdxDouble3(0.2, 0.2, 0.2));
    AmbientFactor = AddProperty(QdxDoubleDT, sAmbientFactor, 1.0);
    Diffuse = AddProperty(QdxColor3DT, sDiffuse, QdxDouble3(0.8, 0.8, 0.8));
    DiffuseFactor = AddProperty(QdxDoubleDT, sDiffuseFactor, 1.0);
    NormalMap = AddProperty(QdxDouble3DT, sNormalMap, QdxDouble3());
    Bump = AddProperty(QdxDouble3DT, sBump, QdxDouble3());
    BumpFactor = AddProperty(QdxDoubleDT, sBumpFactor, 1.0);
    TransparentColor = AddProperty(QdxColor3DT, sTransparentColor, QdxDouble3());
    TransparencyFactor = AddProperty(QdxDoubleDT, sTransparencyFactor, 0.0);
    DisplacementColor = AddProperty(QdxColor3DT, sDisplacementColor, QdxDouble3());
    DisplacementFactor = AddProperty(QdxDoubleDT, sDisplacementFactor, 1.0);
}

QDX_IMPLEMENT_OBJECT(QdxSurfacePhong, QdxSurfaceLambert, "QdxSurfacePhong")
QdxSurfacePhong::QdxSurfacePhong(QdxManager& m, const char* name) : QdxSurfaceLambert(m, name) {
    ShadingModel.Set(QdxString("Phong"));
    Specular = AddProperty(QdxColor3DT, sSpecular, QdxDouble3(0.2, 0.2, 0.2));
    SpecularFactor = AddProperty(QdxDoubleDT, sSpecularFactor, 1.0);
    Shininess = AddProperty(QdxDoubleDT, sShininess, 20.0);
    Reflection = AddProperty(QdxColor3DT, sReflection, QdxDouble3());
    ReflectionFactor = AddProperty(QdxDoubleDT, sReflectionFactor, 1.0);
}

QDX_IMPLEMENT_ABSTRACT(QdxTexture, QdxObject, "QdxTexture")
QdxTexture::QdxTexture(QdxManager& m, const char* name) : QdxObject(m, name) {
    TextureTypeUse = AddProperty(QdxEnumDT, "TextureTypeUse", static_cast<int>(eStandard));
    CurrentMappingType = AddProperty(QdxEnumDT, "CurrentMappingType", static_cast<int>(eUV));
    WrapModeU = AddProperty(QdxEnumDT, "WrapModeU", static_cast<int>(eRepeat));
    WrapModeV = AddProperty(QdxEnumDT, "WrapModeV", static_cast<int>(eRepeat));
    BlendMode = AddProperty(QdxEnumDT, "CurrentTextureBlendMode", static_cast<int>(eTranslucent));
    UVSwap = AddProperty(QdxBoolDT, "UVSwap", false);
    Translation = AddProperty(QdxDouble3DT, "Translation", QdxDouble3());
    Rotation = AddProperty(QdxDouble3DT, "Rotation", QdxDouble3());
    Scaling = AddProperty(QdxDouble3DT, "Scaling", QdxDouble3(1, 1, 1));
    Alpha = AddProperty(QdxDoubleDT, "Texture alpha", 1.0);
    UVSet = AddProperty(QdxStringDT, "UVSet", std::string("default"));
}

void QdxTexture::SetWrapMode(EWrapMode u, EWrapMode v) {
    WrapModeU.Set(u);
    WrapModeV.Set(v);
}
void QdxTexture::SetScale(double u, double v) {
    Scaling.Set(QdxDouble3(u, v, 1.0));
}
void QdxTexture::SetTranslation(double u, double v) {
    Translation.Set(QdxDouble3(u, v, 0.0));
}
void QdxTexture::SetRotation(double u, double v, double w) {
    Rotation.Set(QdxDouble3(u, v, w));
}

QDX_IMPLEMENT_OBJECT(QdxFileTexture, QdxTexture, "QdxFileTexture")
QdxFileTexture::QdxFileTexture(QdxManager& m, const char* name) : QdxTexture(m, name) {
    FileName = AddProperty(QdxStringDT, "FileName", std::string());
    RelativeFilename = AddProperty(QdxStringDT, "RelativeFilename", std::string());
    MaterialUse = AddProperty(QdxEnumDT, "MaterialUse", static_cast<int>(eModelMaterial));
}

const char* QdxFileTexture::GetFileName() const {
    mNameCache = FileName.Get().Str();
    return mNameCache.c_str();
}

const char* QdxFileTexture::GetRelativeFileName() const {
    mRelativeCache = RelativeFilename.Get().Str();
    return mRelativeCache.c_str();
}

QDX_IMPLEMENT_OBJECT(QdxLayeredTexture, QdxTexture, "QdxLayeredTexture")
QdxLayeredTexture::QdxLayeredTexture(QdxManager& m, const char* name) : QdxTexture(m, name) {
    mBlendArray = AddOwnArray("BlendModes", detail::ArrayKind::Int32);
    mAlphaArray = AddOwnArray("Alphas", detail::ArrayKind::Double);
}

void QdxLayeredTexture::Grow(int index) {
    auto& b = ArrayOf<int32_t>(mBlendArray);
    auto& a = ArrayOf<double>(mAlphaArray);
    if (b.size() <= static_cast<size_t>(index))
        b.resize(static_cast<size_t>(index) + 1, static_cast<int32_t>(eTranslucent));
    if (a.size() <= static_cast<size_t>(index)) a.resize(static_cast<size_t>(index) + 1, 1.0);
}

bool QdxLayeredTexture::SetTextureBlendMode(int index, EBlendMode mode) {
    if (index < 0 || index >= GetSrcObjectCount<QdxTexture>()) return false;
    Grow(index);
    ArrayOf<int32_t>(mBlendArray)[static_cast<size_t>(index)] = mode;
    return true;
}

bool QdxLayeredTexture::GetTextureBlendMode(int index, EBlendMode& mode) const {
    const auto& b = ArrayOf<int32_t>(mBlendArray);
    if (index < 0 || index >= GetSrcObjectCount<QdxTexture>()) return false;
    mode = static_cast<size_t>(index) < b.size()
               ? static_cast<EBlendMode>(b[static_cast<size_t>(index)])
               : eTranslucent;
    return true;
}

bool QdxLayeredTexture::SetTextureAlpha(int index, double alpha) {
    if (index < 0 || index >= GetSrcObjectCount<QdxTexture>()) return false;
    Grow(index);
    ArrayOf<double>(mAlphaArray)[static_cast<size_t>(index)] = alpha;
    return true;
}

bool QdxLayeredTexture::GetTextureAlpha(int index, double& alpha) const {
    const auto& a = ArrayOf<double>(mAlphaArray);
    if (index < 0 || index >= GetSrcObjectCount<QdxTexture>()) return false;
    alpha = static_cast<size_t>(index) < a.size() ? a[static_cast<size_t>(index)] : 1.0;
    return true;
}

bool QdxLayeredTexture::FinishRead(QdxStatus&) {
    return true;
}

} // namespace qdxsdk
