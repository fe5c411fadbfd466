#pragma once
#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/MaterialForward.h>
#include <kestrel/osg/StateChunk.h>
#include <kestrel/osg/Vector.h>
#include <vector>

namespace osg {

class MaterialChunk : public StateChunk {
    KS_FIELD_CONTAINER_DECL(MaterialChunk, StateChunk)
public:
    static constexpr BitVector ColorsFieldMask = 1ull << 2;
    static constexpr BitVector ShininessFieldMask = 1ull << 3;

    const Color4f& getAmbient() const { return _ambient; }
    const Color4f& getDiffuse() const { return _diffuse; }
    const Color4f& getSpecular() const { return _specular; }
    const Color4f& getEmission() const { return _emission; }
    Real32 getShininess() const { return _shininess; }
    void setAmbient(const Color4f& c);
    void setDiffuse(const Color4f& c);
    void setSpecular(const Color4f& c);
    void setEmission(const Color4f& c);
    void setShininess(Real32 s);

private:
    Color4f _ambient{0.2f, 0.2f, 0.2f, 1.f};
    Color4f _diffuse{0.8f, 0.8f, 0.8f, 1.f};
    Color4f _specular{0.f, 0.f, 0.f, 1.f};
    Color4f _emission{0.f, 0.f, 0.f, 1.f};
    Real32 _shininess = 1.f;
};

} // namespace osg

#include <kestrel/osg/ChunkMaterial.h>
