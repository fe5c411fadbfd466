#pragma once
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UberMaterial.h>
#include <kestrel/osg/UberMaterialForward.h>

namespace osg {

class UBRDFMaterial : public UberMaterial {
    KS_FIELD_CONTAINER_DECL(UBRDFMaterial, UberMaterial)
};

} // namespace osg

#include <kestrel/osg/UPlasticMaterial.h>
