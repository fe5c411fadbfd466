#pragma once
// Handle types of the uber material family, declared once for every header
// of the family (they refer to each other). ColorComponentSettings is the
// colour component seen as the settings of a channel.
#include <kestrel/osg/FieldContainer.h>

namespace osg {

KS_FC_TYPEDEFS(ColorComponent)
KS_FC_TYPEDEFS(ColorComponents)
KS_FC_TYPEDEFS(UberMaterial)
KS_FC_TYPEDEFS(UBRDFMaterial)
KS_FC_TYPEDEFS(UPlasticMaterial)
KS_FC_TYPEDEFS(UXRiteMeasuredMaterial)
using ColorComponentSettings = ColorComponent;
using ColorComponentSettingsPtr = ColorComponentPtr;

} // namespace osg
