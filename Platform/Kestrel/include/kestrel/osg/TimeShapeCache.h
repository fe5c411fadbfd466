#pragma once
// Vertex animation: a cache of per-frame vertex positions for a geometry.
//
// A TimeShapeCache attachment holds TimeShapeData samples, each a time in
// seconds and a full set of positions (and optionally normals) matching the
// geometry's position count. getShapeAt() returns the sample at or before a
// time.
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/TimeShapeData.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(TimeShapeData)
KS_FC_TYPEDEFS(TimeShapeCache)

class TimeShapeCache : public Attachment {
    KS_FIELD_CONTAINER_DECL(TimeShapeCache, Attachment)
public:
    AttachmentPtr clone() const override;
    static constexpr BitVector ShapesFieldMask = 1ull << 2;

    // Inserts keeping the samples sorted by time.
    void addShape(const TimeShapeDataPtr& shape);
    const std::vector<TimeShapeDataPtr>& getShapes() const { return _shapes; }
    TimeShapeDataPtr getShapeAt(Real32 seconds) const;

private:
    std::vector<TimeShapeDataPtr> _shapes;
};

} // namespace osg
