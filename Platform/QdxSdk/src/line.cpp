// Poly-lines.
#include <algorithm>

#include "impl.h"
#include "qdxsdk/line.h"

namespace qdxsdk {

using detail::ArrayKind;

QDX_IMPLEMENT_OBJECT(QdxLine, QdxGeometry, "QdxLine")
QdxLine::QdxLine(QdxManager& m, const char* name) : QdxGeometry(m, name) {
    mIndexArray = AddOwnArray("PointIndex", ArrayKind::Int32);
    mEndArray = AddOwnArray("EndPoints", ArrayKind::Int32);
}
void QdxLine::SetIndexArraySize(int count) {
    ArrayOf<int32_t>(mIndexArray).resize(static_cast<size_t>(std::max(count, 0)));
}
int QdxLine::GetIndexArraySize() const {
    return static_cast<int>(ArrayOf<int32_t>(mIndexArray).size());
}
bool QdxLine::SetPointIndexAt(int pointIndex, int arrayIndex, bool asEndPoint) {
    auto& a = ArrayOf<int32_t>(mIndexArray);
    if (arrayIndex < 0 || static_cast<size_t>(arrayIndex) >= a.size()) return false;
    a[static_cast<size_t>(arrayIndex)] = pointIndex;
    return !asEndPoint || AddEndPoint(arrayIndex);
}
int QdxLine::GetPointIndexAt(int arrayIndex) const {
    const auto& a = ArrayOf<int32_t>(mIndexArray);
    return arrayIndex >= 0 && static_cast<size_t>(arrayIndex) < a.size()
               ? a[static_cast<size_t>(arrayIndex)]
               : -1;
}
bool QdxLine::AddPointIndex(int pointIndex, bool asEndPoint) {
    auto& a = ArrayOf<int32_t>(mIndexArray);
    a.push_back(pointIndex);
    return !asEndPoint || AddEndPoint(static_cast<int>(a.size()) - 1);
}
bool QdxLine::AddEndPoint(int arrayIndex) {
    ArrayOf<int32_t>(mEndArray).push_back(arrayIndex);
    return true;
}
int QdxLine::GetEndPointCount() const {
    return static_cast<int>(ArrayOf<int32_t>(mEndArray).size());
}
int QdxLine::GetEndPointAt(int index) const {
    const auto& a = ArrayOf<int32_t>(mEndArray);
    return index >= 0 && static_cast<size_t>(index) < a.size() ? a[static_cast<size_t>(index)] : -1;
}

} // namespace qdxsdk
