#pragma once
// Materials: the base class, state chunks and chunk materials.
//
// A Material is an attachment container (it carries metadata). ChunkMaterial
// is the classic state material built from chunks; MaterialChunk holds the
// fixed-function colours. The uber material family lives in UberMaterial.h.
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(Material)
KS_FC_TYPEDEFS(StateChunk)
KS_FC_TYPEDEFS(MaterialChunk)
KS_FC_TYPEDEFS(ChunkMaterial)

class Material : public AttachmentContainer {
    KS_FIELD_CONTAINER_DECL(Material, AttachmentContainer)
public:
    static constexpr BitVector StateFieldMask = 1ull << 2;
    // Ends an edit block: derived state (shader set-up) is rebuilt from the
    // fields. Setters keep the fields consistent by themselves; this records
    // the state change so that viewers refresh.
    virtual void rebuildState();
    // True when the material lets light through (see-through or alpha).
    virtual bool isTransparent() const { return false; }
};

class StateChunk : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(StateChunk, FieldContainer)
};

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

class ChunkMaterial : public Material {
    KS_FIELD_CONTAINER_DECL(ChunkMaterial, Material)
public:
    static constexpr BitVector ChunksFieldMask = 1ull << 3;

    void addChunk(const StateChunkPtr& chunk);
    bool subChunk(const StateChunkPtr& chunk);
    const std::vector<StateChunkPtr>& getChunks() const { return _chunks; }
    // The first chunk of type T, or null.
    template <class T> FCPtr<T> find() const {
        for (const auto& c : _chunks)
            if (auto t = FCPtr<T>::dcast(c)) return t;
        return FCPtr<T>();
    }
    MaterialChunkPtr getMaterialChunk() const { return find<MaterialChunk>(); }

private:
    std::vector<StateChunkPtr> _chunks;
};

} // namespace osg
