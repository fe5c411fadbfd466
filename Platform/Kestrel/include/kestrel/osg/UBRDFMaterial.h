#pragma once
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FC_TYPEDEFS(ColorComponent)
KS_FC_TYPEDEFS(ColorComponents)
KS_FC_TYPEDEFS(UberMaterial)
KS_FC_TYPEDEFS(UBRDFMaterial)
KS_FC_TYPEDEFS(UPlasticMaterial)
KS_FC_TYPEDEFS(UXRiteMeasuredMaterial)
using ColorComponentSettings = ColorComponent;
using ColorComponentSettingsPtr = ColorComponentPtr;

class UBRDFMaterial : public UberMaterial {
    KS_FIELD_CONTAINER_DECL(UBRDFMaterial, UberMaterial)
};

} // namespace osg

#include <kestrel/osg/UPlasticMaterial.h>
