#pragma once
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UBRDFMaterial.h>

namespace osg {

KS_FC_TYPEDEFS(ColorComponent)
KS_FC_TYPEDEFS(ColorComponents)
KS_FC_TYPEDEFS(UberMaterial)
KS_FC_TYPEDEFS(UBRDFMaterial)
KS_FC_TYPEDEFS(UPlasticMaterial)
KS_FC_TYPEDEFS(UXRiteMeasuredMaterial)
using ColorComponentSettings = ColorComponent;
using ColorComponentSettingsPtr = ColorComponentPtr;

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
