#include "Setters.h"
#include <kestrel/osg/Surface.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Surface)

KS_FIELD_SETTER(Surface, DimU, UInt32, _dimU, DimUFieldMask)
KS_FIELD_SETTER(Surface, DimV, UInt32, _dimV, DimVFieldMask)
void Surface::setKnotsU(std::vector<Real32> k) {
    _knotsU = std::move(k);
    changed(KnotsUFieldMask);
}
void Surface::setKnotsV(std::vector<Real32> k) {
    _knotsV = std::move(k);
    changed(KnotsVFieldMask);
}
KS_FIELD_SETTER(Surface, ControlPoints, const GeoPositions4fPtr&, _controlPoints,
                ControlPointsFieldMask)

UInt32 Surface::getNumControlPointsU() const {
    return _knotsU.size() > _dimU + 1 ? static_cast<UInt32>(_knotsU.size()) - _dimU - 1 : 0u;
}
UInt32 Surface::getNumControlPointsV() const {
    return _knotsV.size() > _dimV + 1 ? static_cast<UInt32>(_knotsV.size()) - _dimV - 1 : 0u;
}

void Surface::addCurve(UInt32 dimension, const std::vector<Real64>& knots,
                       const std::vector<Pnt3f>& controlPoints, bool newLoop) {
    if (newLoop || _curvesPerLoop.empty()) _curvesPerLoop.push_back(0);
    ++_curvesPerLoop.back();
    _dimensions.push_back(dimension);
    _knotLengths.push_back(static_cast<UInt32>(knots.size()));
    _curvePointCounts.push_back(static_cast<UInt32>(controlPoints.size()));
    _knots.insert(_knots.end(), knots.begin(), knots.end());
    _curvePoints.insert(_curvePoints.end(), controlPoints.begin(), controlPoints.end());
    changed(CurvesFieldMask);
}

void Surface::removeCurves() {
    _curvesPerLoop.clear();
    _dimensions.clear();
    _knotLengths.clear();
    _curvePointCounts.clear();
    _knots.clear();
    _curvePoints.clear();
    changed(CurvesFieldMask);
}

} // namespace osg
