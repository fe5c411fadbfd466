#include "Setters.h"
#include <kestrel/osg/GeoProperties.h>

namespace osg {

const FieldContainerType& GeoProperty::getClassType() {
    static const FieldContainerType t("GeoProperty", &FieldContainer::getClassType());
    return t;
}
const FieldContainerType& GeoProperty::getType() const {
    return getClassType();
}

#define KS_GEO_KIND_IMPL(Kind)                                                                     \
    const FieldContainerType& Kind::getClassType() {                                               \
        static const FieldContainerType t(#Kind, &GeoProperty::getClassType());                    \
        return t;                                                                                  \
    }                                                                                              \
    const FieldContainerType& Kind::getType() const {                                              \
        return getClassType();                                                                     \
    }
KS_GEO_KIND_IMPL(GeoPTypes)
KS_GEO_KIND_IMPL(GeoPLengths)
KS_GEO_KIND_IMPL(GeoIndices)
KS_GEO_KIND_IMPL(GeoPositions)
KS_GEO_KIND_IMPL(GeoNormals)
KS_GEO_KIND_IMPL(GeoColors)
KS_GEO_KIND_IMPL(GeoTexCoords)
#undef KS_GEO_KIND_IMPL

KS_FIELD_CONTAINER_IMPL(GeoPTypesUI8)
KS_FIELD_CONTAINER_IMPL(GeoPLengthsUI32)
KS_FIELD_CONTAINER_IMPL(GeoIndicesUI32)
KS_FIELD_CONTAINER_IMPL(GeoPositions3f)
KS_FIELD_CONTAINER_IMPL(GeoPositions4f)
KS_FIELD_CONTAINER_IMPL(GeoNormals3f)
KS_FIELD_CONTAINER_IMPL(GeoColors3f)
KS_FIELD_CONTAINER_IMPL(GeoColors4f)
KS_FIELD_CONTAINER_IMPL(GeoTexCoords2f)
KS_FIELD_CONTAINER_IMPL(GeoTexCoords3f)
KS_FIELD_CONTAINER_IMPL(GeoTexCoords4f)

} // namespace osg
