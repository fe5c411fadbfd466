#pragma once
// NURBS surface with trimming curves.
//
// Degrees (DimU, DimV), knot vectors, and homogeneous control points
// (x*w, y*w, z*w, w) in a GeoPositions4f, V running fastest (point (u, v) is
// at u * (number of V points) + v). The number of control points in each
// direction is knots - degree - 1.
//
// Trimming curves are 2D rational curves in parameter space, control points
// homogeneous (u*w, v*w, w). Curves form loops: addCurve(..., true) starts a
// new loop, false continues the current one. The flat accessors
// (getDimensions, getKnotLengths, getKnots, getCurveControlPoints) list all
// curves in order; getCurvesPerLoop gives the loop sizes and
// getCurveControlPointCounts the points of each curve.
#include <vector>

#include <kestrel/osg/Geometry.h>

namespace osg {

KS_FC_TYPEDEFS(Surface)

class Surface : public Drawable {
    KS_FIELD_CONTAINER_DECL(Surface, Drawable)
public:
    static constexpr BitVector DimUFieldMask = 1ull << 10;
    static constexpr BitVector DimVFieldMask = 1ull << 11;
    static constexpr BitVector KnotsUFieldMask = 1ull << 12;
    static constexpr BitVector KnotsVFieldMask = 1ull << 13;
    static constexpr BitVector ControlPointsFieldMask = 1ull << 14;
    static constexpr BitVector CurvesFieldMask = 1ull << 15;

    UInt32 getDimU() const { return _dimU; }
    UInt32 getDimV() const { return _dimV; }
    void setDimU(UInt32 d);
    void setDimV(UInt32 d);
    const std::vector<Real32>& getKnotsU() const { return _knotsU; }
    const std::vector<Real32>& getKnotsV() const { return _knotsV; }
    std::vector<Real32>& editKnotsU() { return _knotsU; }
    std::vector<Real32>& editKnotsV() { return _knotsV; }
    void setKnotsU(std::vector<Real32> k);
    void setKnotsV(std::vector<Real32> k);
    GeoPositions4fPtr getControlPoints() const { return _controlPoints; }
    void setControlPoints(const GeoPositions4fPtr& p);
    // Control points per direction from knots and degree (0 when invalid).
    UInt32 getNumControlPointsU() const;
    UInt32 getNumControlPointsV() const;

    void addCurve(UInt32 dimension, const std::vector<Real64>& knots,
                  const std::vector<Pnt3f>& controlPoints, bool newLoop);
    void removeCurves();
    UInt32 getNumCurves() const { return static_cast<UInt32>(_dimensions.size()); }
    const std::vector<UInt32>& getCurvesPerLoop() const { return _curvesPerLoop; }
    const std::vector<UInt32>& getDimensions() const { return _dimensions; }
    const std::vector<UInt32>& getKnotLengths() const { return _knotLengths; }
    const std::vector<Real64>& getKnots() const { return _knots; }
    const std::vector<Pnt3f>& getCurveControlPoints() const { return _curvePoints; }
    // Control points of each curve, as given to addCurve: a closed or
    // periodic curve has fewer than its knots and degree imply (one, or
    // degree, fewer).
    std::vector<UInt32> getCurveControlPointCounts() const { return _curvePointCounts; }

private:
    UInt32 _dimU = 0, _dimV = 0;
    std::vector<Real32> _knotsU, _knotsV;
    GeoPositions4fPtr _controlPoints;
    std::vector<UInt32> _curvesPerLoop, _dimensions, _knotLengths, _curvePointCounts;
    std::vector<Real64> _knots;
    std::vector<Pnt3f> _curvePoints;
};

} // namespace osg
