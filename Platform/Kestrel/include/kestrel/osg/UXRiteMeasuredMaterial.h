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

class UXRiteMeasuredMaterial : public UberMaterial {
    KS_FIELD_CONTAINER_DECL(UXRiteMeasuredMaterial, UberMaterial)
public:
    const std::string& getMeasurementFile() const { return _file; }
    void setMeasurementFile(const std::string& path);

private:
    std::string _file;
};

} // namespace osg
