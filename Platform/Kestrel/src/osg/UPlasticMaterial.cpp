#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/UPlasticMaterial.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(UPlasticMaterial)

KS_FIELD_SETTER(UPlasticMaterial, Roughness, Real32, _roughness, ParametersFieldMask)
KS_FIELD_SETTER(UPlasticMaterial, Reflectivity, Real32, _reflectivity, ParametersFieldMask)
KS_FIELD_SETTER(UXRiteMeasuredMaterial, MeasurementFile, const std::string&, _file,
                ParametersFieldMask)

Real32 UPlasticMaterial::getShininess() const {
    return _roughness > 0.f ? 40.f / _roughness : 0.f;
}

} // namespace osg
