#pragma once
// The base of every drawable core (Geometry, Surface).
//
// A Drawable has a material and an optional transform of its own (a
// Transform core not attached to any node). That transform places the
// drawable's node like a transform core would: it is the node's local
// matrix, applied to the drawable and to the node's children.
#include <kestrel/osg/Material.h>
#include <kestrel/osg/Node.h>
#include <kestrel/osg/Transform.h>

namespace osg {

KS_FC_TYPEDEFS(Drawable)
using DrawableBase = Drawable;

class Drawable : public NodeCore {
    KS_FIELD_CONTAINER_DECL(Drawable, NodeCore)
public:
    static constexpr BitVector MaterialFieldMask = 1ull << 8;
    static constexpr BitVector TransformFieldMask = 1ull << 9;

    MaterialPtr getMaterial() const { return _material; }
    void setMaterial(const MaterialPtr& m);
    TransformPtr getTransform() const { return _transform; }
    void setTransform(const TransformPtr& t);
    Matrix getLocalMatrix() const override;

private:
    MaterialPtr _material;
    TransformPtr _transform;
};

} // namespace osg
