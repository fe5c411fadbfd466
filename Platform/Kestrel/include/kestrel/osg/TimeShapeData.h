#pragma once
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

} // namespace osg
