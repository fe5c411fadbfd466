// Poly-line geometry.
#pragma once

#include "qdxsdk/geometry_base.h"

namespace qdxsdk {

// Poly-lines over control points: an index array and the indices of the
// corners that end each segment.
class QdxLine : public QdxGeometry {
    QDX_DECLARE_OBJECT(QdxLine)
public:
    EType GetAttributeType() const override { return eLine; }
    void SetIndexArraySize(int count);
    int GetIndexArraySize() const;
    bool SetPointIndexAt(int pointIndex, int arrayIndex, bool asEndPoint = false);
    int GetPointIndexAt(int arrayIndex) const;
    bool AddPointIndex(int pointIndex, bool asEndPoint = false);
    bool AddEndPoint(int arrayIndex);
    int GetEndPointCount() const;
    int GetEndPointAt(int index) const;

private:
    int mIndexArray = -1, mEndArray = -1;
};

} // namespace qdxsdk
