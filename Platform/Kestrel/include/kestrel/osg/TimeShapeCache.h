#pragma once
// Vertex animation: a cache of per-frame vertex positions for a geometry.
//
// A TimeShapeCache attachment holds TimeShapeData samples, each a time in
// seconds and a full set of positions (and optionally normals) matching the
// geometry's position count. getShapeAt() returns the sample at or before a
// time.
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(TimeShapeData)
KS_FC_TYPEDEFS(TimeShapeCache)

class TimeShapeData : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(TimeShapeData, FieldContainer)
public:
    static constexpr BitVector TimeFieldMask = 1ull << 1;
    static constexpr BitVector ShapeFieldMask = 1ull << 2; // record after editing
    Real32 getTime() const { return _time; }
    void setTime(Real32 seconds);
    const std::vector<Pnt3f>& getPositions() const { return _positions; }
    std::vector<Pnt3f>& editPositions() { return _positions; }
    const std::vector<Vec3f>& getNormals() const { return _normals; }
    std::vector<Vec3f>& editNormals() { return _normals; }

private:
    Real32 _time = 0.f;
    std::vector<Pnt3f> _positions;
    std::vector<Vec3f> _normals;
};

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
