#pragma once
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UberMaterial.h>
#include <kestrel/osg/UberMaterialForward.h>

namespace osg {

class UXRiteMeasuredMaterial : public UberMaterial {
    KS_FIELD_CONTAINER_DECL(UXRiteMeasuredMaterial, UberMaterial)
public:
    const std::string& getMeasurementFile() const { return _file; }
    void setMeasurementFile(const std::string& path);

private:
    std::string _file;
};

} // namespace osg
