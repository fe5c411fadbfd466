// Surface materials (Lambert, Phong) and textures (file, layered). Textures
// connect to material properties (a diffuse map is a source object of the
// material's Diffuse property).
#pragma once

#include "qdxsdk/object.h"

namespace qdxsdk {

class QdxSurfaceMaterial : public QdxObject {
    QDX_DECLARE_OBJECT(QdxSurfaceMaterial)
public:
    // Standard property names.
    static const char* sShadingModel;
    static const char* sMultiLayer;
    static const char* sEmissive;
    static const char* sEmissiveFactor;
    static const char* sAmbient;
    static const char* sAmbientFactor;
    static const char* sDiffuse;
    static const char* sDiffuseFactor;
    static const char* sSpecular;
    static const char* sSpecularFactor;
    static const char* sShininess;
    static const char* sBump;
    static const char* sNormalMap;
    static const char* sBumpFactor;
    static const char* sTransparentColor;
    static const char* sTransparencyFactor;
    static const char* sReflection;
    static const char* sReflectionFactor;
    static const char* sDisplacementColor;
    static const char* sDisplacementFactor;

    QdxPropertyT<QdxString> ShadingModel;
    QdxPropertyT<bool> MultiLayer;
};

class QdxSurfaceLambert : public QdxSurfaceMaterial {
    QDX_DECLARE_OBJECT(QdxSurfaceLambert)
public:
    QdxPropertyT<QdxDouble3> Emissive, Ambient, Diffuse, NormalMap, Bump, TransparentColor,
        DisplacementColor;
    QdxPropertyT<double> EmissiveFactor, AmbientFactor, DiffuseFactor, BumpFactor,
        TransparencyFactor, DisplacementFactor;
};

class QdxSurfacePhong : public QdxSurfaceLambert {
    QDX_DECLARE_OBJECT(QdxSurfacePhong)
public:
    QdxPropertyT<QdxDouble3> Specular, Reflection;
    QdxPropertyT<double> SpecularFactor, Shininess, ReflectionFactor;
};

class QdxTexture : public QdxObject {
    QDX_DECLARE_ABSTRACT(QdxTexture)
public:
    enum ETextureUse {
        eStandard = 0,
        eShadowMap = 1,
        eLightMap = 2,
        eSphericalReflectionMap = 3,
        eSphereReflectionMap = 4,
        eBumpNormalMap = 5
    };
    enum EMappingType {
        eNull = 0,
        ePlanar = 1,
        eSpherical = 2,
        eCylindrical = 3,
        eBox = 4,
        eFace = 5,
        eUV = 6,
        eEnvironment = 7
    };
    enum EWrapMode { eRepeat = 0, eClamp = 1 };
    enum EBlendMode { eTranslucent = 0, eAdditive = 1, eModulate = 2, eModulate2 = 3, eOver = 4 };

    void SetTextureUse(ETextureUse use) { TextureTypeUse.Set(use); }
    ETextureUse GetTextureUse() const { return static_cast<ETextureUse>(TextureTypeUse.Get()); }
    void SetMappingType(EMappingType type) { CurrentMappingType.Set(type); }
    EMappingType GetMappingType() const {
        return static_cast<EMappingType>(CurrentMappingType.Get());
    }
    void SetSwapUV(bool swap) { UVSwap.Set(swap); }
    bool GetSwapUV() const { return UVSwap.Get(); }
    void SetWrapMode(EWrapMode u, EWrapMode v);
    EWrapMode GetWrapModeU() const { return static_cast<EWrapMode>(WrapModeU.Get()); }
    EWrapMode GetWrapModeV() const { return static_cast<EWrapMode>(WrapModeV.Get()); }
    void SetScale(double u, double v);
    double GetScaleU() const { return Scaling.Get()[0]; }
    double GetScaleV() const { return Scaling.Get()[1]; }
    void SetTranslation(double u, double v);
    double GetTranslationU() const { return Translation.Get()[0]; }
    double GetTranslationV() const { return Translation.Get()[1]; }
    void SetRotation(double u, double v, double w = 0.0);
    double GetRotationU() const { return Rotation.Get()[0]; }
    double GetRotationV() const { return Rotation.Get()[1]; }
    double GetRotationW() const { return Rotation.Get()[2]; }

    QdxPropertyT<int> TextureTypeUse, CurrentMappingType, WrapModeU, WrapModeV, BlendMode;
    QdxPropertyT<bool> UVSwap;
    QdxPropertyT<QdxDouble3> Translation, Rotation, Scaling;
    QdxPropertyT<double> Alpha;
    QdxPropertyT<QdxString> UVSet;
};

class QdxFileTexture : public QdxTexture {
    QDX_DECLARE_OBJECT(QdxFileTexture)
public:
    enum EMaterialUse { eModelMaterial = 0, eDefaultMaterial = 1 };
    bool SetFileName(const char* name) { return FileName.Set(QdxString(name)); }
    const char* GetFileName() const;
    bool SetRelativeFileName(const char* name) { return RelativeFilename.Set(QdxString(name)); }
    const char* GetRelativeFileName() const;
    void SetMaterialUse(EMaterialUse use) { MaterialUse.Set(use); }
    EMaterialUse GetMaterialUse() const { return static_cast<EMaterialUse>(MaterialUse.Get()); }

    QdxPropertyT<QdxString> FileName, RelativeFilename;
    QdxPropertyT<int> MaterialUse;

private:
    mutable std::string mNameCache, mRelativeCache;
};

// Stack of textures (its source objects), each with a blend mode and alpha.
class QdxLayeredTexture : public QdxTexture {
    QDX_DECLARE_OBJECT(QdxLayeredTexture)
public:
    bool SetTextureBlendMode(int index, EBlendMode mode);
    bool GetTextureBlendMode(int index, EBlendMode& mode) const;
    bool SetTextureAlpha(int index, double alpha);
    bool GetTextureAlpha(int index, double& alpha) const;
    bool FinishRead(QdxStatus& status) override;

private:
    int mBlendArray = -1, mAlphaArray = -1;
    void Grow(int index);
};

} // namespace qdxsdk
