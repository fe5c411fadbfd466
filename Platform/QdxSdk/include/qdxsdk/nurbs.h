// NURBS surfaces and curves, patches, and trimmed surfaces with their
// boundaries.
#pragma once

#include <vector>

#include "qdxsdk/geometry_base.h"

namespace qdxsdk {

// NURBS surface. U and V types: periodic, closed or open. Knot counts are
// count + order (open), + 1 (closed), + order - 1 (periodic).
class QdxNurbsSurface : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxNurbsSurface)
public:
    enum EType { ePeriodic = 0, eClosed = 1, eOpen = 2 };
    QdxNodeAttribute::EType GetAttributeType() const override { return eNurbsSurface; }
    void InitControlPoints(int uCount, EType uType, int vCount, EType vType);
    void SetOrder(int uOrder, int vOrder);
    int GetUOrder() const { return UOrder.Get(); }
    int GetVOrder() const { return VOrder.Get(); }
    int GetUCount() const { return UCount.Get(); }
    int GetVCount() const { return VCount.Get(); }
    EType GetNurbsUType() const { return static_cast<EType>(UType.Get()); }
    EType GetNurbsVType() const { return static_cast<EType>(VType.Get()); }
    int GetUKnotCount() const;
    int GetVKnotCount() const;
    double* GetUKnotVector();
    double* GetVKnotVector();
    bool GetApplyFlipUV() const { return FlipUV.Get(); }
    void SetApplyFlipUV(bool flip) { FlipUV.Set(flip); }
    // True when any control point weight differs from 1.
    bool IsRational() const;
    // Knot count a direction needs for its count, order and type.
    static int KnotCountFor(int count, int order, EType type);

    QdxPropertyT<int> UOrder, VOrder, UCount, VCount, UType, VType, UStep, VStep;
    QdxPropertyT<bool> FlipUV;

    using QdxGeometryBase::InitControlPoints;

protected:
    void ResizeKnots();

private:
    int mUKnotsArray = -1, mVKnotsArray = -1;
};

// Legacy NURBS attribute kind; same data as a NURBS surface.
class QdxNurbs : public QdxNurbsSurface {
    QDX_DECLARE_OBJECT(QdxNurbs)
public:
    QdxNodeAttribute::EType GetAttributeType() const override { return eNurbs; }
};

class QdxPatch : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxPatch)
public:
    enum EType { eBezier = 0, eBezierQuadric = 1, eCardinal = 2, eBSpline = 3, eLinear = 4 };
    QdxNodeAttribute::EType GetAttributeType() const override { return ePatch; }
    void InitControlPoints(int uCount, EType uType, int vCount, EType vType);
    QdxPropertyT<int> UCount, VCount, UType, VType;
};

// NURBS curve. Types: open, closed, periodic. Knot count is count + order,
// + 1 when closed, + order - 1 when periodic. 2D curves (trim curves) live in
// a surface's parameter space.
class QdxNurbsCurve : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxNurbsCurve)
public:
    enum EType { eOpen = 0, eClosed = 1, ePeriodic = 2 };
    enum EDimension { e2D = 2, e3D = 3 };
    QdxNodeAttribute::EType GetAttributeType() const override { return eNurbsCurve; }
    void InitControlPoints(int count, EType type);
    void SetOrder(int order);
    int GetOrder() const { return Order.Get(); }
    EType GetType() const { return static_cast<EType>(CurveType.Get()); }
    void SetDimension(EDimension d) { Dimension.Set(d); }
    EDimension GetDimension() const { return static_cast<EDimension>(Dimension.Get()); }
    int GetKnotCount() const;
    double* GetKnotVector();
    bool IsRational() const;
    static int KnotCountFor(int count, int order, EType type);
    // Points of the curve written as an open curve over the same knots: a
    // periodic curve repeats its first (order - 1) points, a closed one its
    // first point; an open curve's own points. Its count is always
    // GetKnotCount() - GetOrder() for a consistent curve.
    int GetEffectiveControlPointsCount() const;
    std::vector<QdxVector4> GetEffectiveControlPoints() const;
    QdxPropertyT<int> Order, CurveType, Dimension;
    using QdxGeometryBase::InitControlPoints;

private:
    void ResizeKnots();
    int mKnotsArray = -1;
};

// A closed loop of trim curves.
class QdxBoundary : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxBoundary)
public:
    EType GetAttributeType() const override { return eBoundary; }
    bool AddCurve(QdxNurbsCurve* curve);
    int GetCurveCount() const;
    QdxNurbsCurve* GetCurve(int index) const;
    // Effective control point count of each curve, in curve order.
    std::vector<int> GetCurvePointCounts() const;
    QdxProperty Curves;
};

// A NURBS surface with trim regions, each a list of boundaries.
class QdxTrimNurbsSurface : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxTrimNurbsSurface)
public:
    EType GetAttributeType() const override { return eTrimNurbsSurface; }
    void SetNurbsSurface(QdxNurbsSurface* surface);
    QdxNurbsSurface* GetNurbsSurface() const;
    void BeginTrimRegion();
    bool AddBoundary(QdxBoundary* boundary);
    void EndTrimRegion();
    int GetTrimRegionCount() const;
    int GetBoundaryCount(int region = 0) const;
    QdxBoundary* GetBoundary(int index, int region = 0) const;
    // The untrimmed surface's control points count.
    int GetControlPointsCount() const override;
    QdxProperty Surface, Boundaries;

private:
    int mRegionsArray = -1;
    bool mInRegion = false;
};

} // namespace qdxsdk
