#pragma once
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UBRDFMaterial.h>
#include <kestrel/osg/UberMaterialForward.h>

namespace osg {

class UPlasticMaterial : public UBRDFMaterial {
    KS_FIELD_CONTAINER_DECL(UPlasticMaterial, UBRDFMaterial)
public:
    Real32 getRoughness() const { return _roughness; }
    void setRoughness(Real32 r);
    Real32 getReflectivity() const { return _reflectivity; }
    void setReflectivity(Real32 r);
    // 40 / roughness (the inverse of the importer's mapping).
    Real32 getShininess() const override;

private:
    Real32 _roughness = 2.f;
    Real32 _reflectivity = 0.04f;
};

} // namespace osg
