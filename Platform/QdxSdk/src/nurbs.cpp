// NURBS surfaces and curves, patches, boundaries and trimmed surfaces.
#include <algorithm>

#include "impl.h"
#include "qdxsdk/nurbs.h"

namespace qdxsdk {

using detail::ArrayKind;

namespace {
// Rational when some control point's weight is not 1; the geometry's own
// points, not a trimmed surface's untrimmed ones.
bool AnyWeightOtherThanOne(const QdxGeometryBase& g) {
    const QdxVector4* p = g.GetControlPoints();
    for (int i = 0; i < g.QdxGeometryBase::GetControlPointsCount(); ++i)
        if (p[i][3] != 1.0) return true;
    return false;
}
} // namespace

QDX_IMPLEMENT_OBJECT(QdxNurbsSurface, QdxGeometry, "QdxNurbsSurface")
QdxNurbsSurface::QdxNurbsSurface(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    UOrder = AddProperty(QdxIntDT, "UOrder", 4);
    VOrder = AddProperty(QdxIntDT, "VOrder", 4);
    UCount = AddProperty(QdxIntDT, "UCount", 0);
    VCount = AddProperty(QdxIntDT, "VCount", 0);
    UType = AddProperty(QdxEnumDT, "UType", static_cast<int>(eOpen));
    VType = AddProperty(QdxEnumDT, "VType", static_cast<int>(eOpen));
    UStep = AddProperty(QdxIntDT, "UStep", 4);
    VStep = AddProperty(QdxIntDT, "VStep", 4);
    FlipUV = AddProperty(QdxBoolDT, "FlipUV", false);
    mUKnotsArray = AddOwnArray("UKnots", ArrayKind::Double);
    mVKnotsArray = AddOwnArray("VKnots", ArrayKind::Double);
}

int QdxNurbsSurface::KnotCountFor(int count, int order, EType type) {
    if (count <= 0 || order <= 0) return 0;
    switch (type) {
    case ePeriodic:
        return count + 2 * order - 1;
    case eClosed:
        return count + order + 1;
    default:
        return count + order;
    }
}

void QdxNurbsSurface::ResizeKnots() {
    ArrayOf<double>(mUKnotsArray)
        .resize(static_cast<size_t>(KnotCountFor(GetUCount(), GetUOrder(), GetNurbsUType())));
    ArrayOf<double>(mVKnotsArray)
        .resize(static_cast<size_t>(KnotCountFor(GetVCount(), GetVOrder(), GetNurbsVType())));
}

void QdxNurbsSurface::InitControlPoints(int uCount, EType uType, int vCount, EType vType) {
    UCount.Set(std::max(uCount, 0));
    VCount.Set(std::max(vCount, 0));
    UType.Set(uType);
    VType.Set(vType);
    QdxGeometryBase::InitControlPoints(std::max(uCount, 0) * std::max(vCount, 0));
    ResizeKnots();
}

void QdxNurbsSurface::SetOrder(int uOrder, int vOrder) {
    UOrder.Set(uOrder);
    VOrder.Set(vOrder);
    ResizeKnots();
}

int QdxNurbsSurface::GetUKnotCount() const {
    return static_cast<int>(ArrayOf<double>(mUKnotsArray).size());
}
int QdxNurbsSurface::GetVKnotCount() const {
    return static_cast<int>(ArrayOf<double>(mVKnotsArray).size());
}
double* QdxNurbsSurface::GetUKnotVector() {
    return ArrayOf<double>(mUKnotsArray).data();
}
double* QdxNurbsSurface::GetVKnotVector() {
    return ArrayOf<double>(mVKnotsArray).data();
}

bool QdxNurbsSurface::IsRational() const {
    return AnyWeightOtherThanOne(*this);
}

QDX_IMPLEMENT_OBJECT(QdxNurbs, QdxNurbsSurface, "QdxNurbs")
QdxNurbs::QdxNurbs(QdxManager& m, const char* name) : QdxNurbsSurface(m, name) {}

QDX_IMPLEMENT_OBJECT(QdxPatch, QdxGeometry, "QdxPatch")
QdxPatch::QdxPatch(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    UCount = AddProperty(QdxIntDT, "UCount", 0);
    VCount = AddProperty(QdxIntDT, "VCount", 0);
    UType = AddProperty(QdxEnumDT, "UType", static_cast<int>(eBezier));
    VType = AddProperty(QdxEnumDT, "VType", static_cast<int>(eBezier));
}

void QdxPatch::InitControlPoints(int uCount, EType uType, int vCount, EType vType) {
    UCount.Set(uCount);
    VCount.Set(vCount);
    UType.Set(uType);
    VType.Set(vType);
    QdxGeometryBase::InitControlPoints(std::max(uCount, 0) * std::max(vCount, 0));
}

QDX_IMPLEMENT_OBJECT(QdxNurbsCurve, QdxGeometry, "QdxNurbsCurve")
QdxNurbsCurve::QdxNurbsCurve(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    Order = AddProperty(QdxIntDT, "Order", 4);
    CurveType = AddProperty(QdxEnumDT, "CurveType", static_cast<int>(eOpen));
    Dimension = AddProperty(QdxEnumDT, "Dimension", static_cast<int>(e3D));
    mKnotsArray = AddOwnArray("Knots", ArrayKind::Double);
}

int QdxNurbsCurve::KnotCountFor(int count, int order, EType type) {
    if (count <= 0 || order <= 0) return 0;
    return count + order + (type == ePeriodic ? order - 1 : 0) + (type == eClosed ? 1 : 0);
}

void QdxNurbsCurve::ResizeKnots() {
    ArrayOf<double>(mKnotsArray)
        .resize(static_cast<size_t>(
            KnotCountFor(QdxGeometryBase::GetControlPointsCount(), GetOrder(), GetType())));
}

void QdxNurbsCurve::InitControlPoints(int count, EType type) {
    CurveType.Set(type);
    QdxGeometryBase::InitControlPoints(count);
    ResizeKnots();
}

void QdxNurbsCurve::SetOrder(int order) {
    Order.Set(order);
    ResizeKnots();
}

int QdxNurbsCurve::GetKnotCount() const {
    return static_cast<int>(ArrayOf<double>(mKnotsArray).size());
}
double* QdxNurbsCurve::GetKnotVector() {
    return ArrayOf<double>(mKnotsArray).data();
}
bool QdxNurbsCurve::IsRational() const {
    return AnyWeightOtherThanOne(*this);
}

int QdxNurbsCurve::GetEffectiveControlPointsCount() const {
    int count = QdxGeometryBase::GetControlPointsCount();
    if (count <= 0) return 0;
    switch (GetType()) {
    case ePeriodic:
        return count + std::max(GetOrder() - 1, 0);
    case eClosed:
        return count + 1;
    default:
        return count;
    }
}

std::vector<QdxVector4> QdxNurbsCurve::GetEffectiveControlPoints() const {
    const QdxVector4* p = GetControlPoints();
    size_t count = static_cast<size_t>(std::max(QdxGeometryBase::GetControlPointsCount(), 0));
    std::vector<QdxVector4> out;
    out.reserve(static_cast<size_t>(GetEffectiveControlPointsCount()));
    for (size_t i = 0; i < static_cast<size_t>(GetEffectiveControlPointsCount()); ++i)
        out.push_back(p[i % count]);
    return out;
}

QDX_IMPLEMENT_OBJECT(QdxBoundary, QdxGeometry, "QdxBoundary")
QdxBoundary::QdxBoundary(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    Curves = AddProperty(QdxReferenceDT, "Curves", std::monostate());
}
bool QdxBoundary::AddCurve(QdxNurbsCurve* curve) {
    if (!curve) return false;
    detail::JoinSceneOf(this, curve);
    return Curves.ConnectSrcObject(curve);
}
int QdxBoundary::GetCurveCount() const {
    return Curves.GetSrcObjectCount<QdxNurbsCurve>();
}
QdxNurbsCurve* QdxBoundary::GetCurve(int index) const {
    return Curves.GetSrcObject<QdxNurbsCurve>(index);
}
std::vector<int> QdxBoundary::GetCurvePointCounts() const {
    std::vector<int> counts;
    for (int c = 0; c < GetCurveCount(); ++c)
        counts.push_back(GetCurve(c)->GetEffectiveControlPointsCount());
    return counts;
}

QDX_IMPLEMENT_OBJECT(QdxTrimNurbsSurface, QdxGeometry, "QdxTrimNurbsSurface")
QdxTrimNurbsSurface::QdxTrimNurbsSurface(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    Surface = AddProperty(QdxReferenceDT, "Surface", std::monostate());
    Boundaries = AddProperty(QdxReferenceDT, "Boundaries", std::monostate());
    mRegionsArray = AddOwnArray("RegionStarts", ArrayKind::Int32);
}

void QdxTrimNurbsSurface::SetNurbsSurface(QdxNurbsSurface* surface) {
    Surface.DisconnectAllSrcObject();
    if (!surface) return;
    detail::JoinSceneOf(this, surface);
    Surface.ConnectSrcObject(surface);
}
QdxNurbsSurface* QdxTrimNurbsSurface::GetNurbsSurface() const {
    return Surface.GetSrcObject<QdxNurbsSurface>();
}
void QdxTrimNurbsSurface::BeginTrimRegion() {
    ArrayOf<int32_t>(mRegionsArray).push_back(Boundaries.GetSrcObjectCount<QdxBoundary>());
    mInRegion = true;
}
bool QdxTrimNurbsSurface::AddBoundary(QdxBoundary* boundary) {
    if (!boundary) return false;
    if (!mInRegion && GetTrimRegionCount() == 0) BeginTrimRegion();
    detail::JoinSceneOf(this, boundary);
    return Boundaries.ConnectSrcObject(boundary);
}
void QdxTrimNurbsSurface::EndTrimRegion() {
    mInRegion = false;
}
int QdxTrimNurbsSurface::GetTrimRegionCount() const {
    return static_cast<int>(ArrayOf<int32_t>(mRegionsArray).size());
}
int QdxTrimNurbsSurface::GetBoundaryCount(int region) const {
    const auto& starts = ArrayOf<int32_t>(mRegionsArray);
    int total = Boundaries.GetSrcObjectCount<QdxBoundary>();
    if (region < 0 || static_cast<size_t>(region) >= starts.size()) return 0;
    int begin = std::clamp(starts[static_cast<size_t>(region)], 0, total);
    int end = static_cast<size_t>(region) + 1 < starts.size()
                  ? std::clamp(starts[static_cast<size_t>(region) + 1], begin, total)
                  : total;
    return end - begin;
}
QdxBoundary* QdxTrimNurbsSurface::GetBoundary(int index, int region) const {
    if (index < 0 || index >= GetBoundaryCount(region)) return nullptr;
    int begin = ArrayOf<int32_t>(mRegionsArray)[static_cast<size_t>(region)];
    return Boundaries.GetSrcObject<QdxBoundary>(begin + index);
}
int QdxTrimNurbsSurface::GetControlPointsCount() const {
    QdxNurbsSurface* s = GetNurbsSurface();
    return s ? s->GetControlPointsCount() : 0;
}

} // namespace qdxsdk
