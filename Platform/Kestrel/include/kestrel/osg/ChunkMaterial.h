#pragma once
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/MaterialChunk.h>
#include <kestrel/osg/MaterialForward.h>
#include <kestrel/osg/Vector.h>

namespace osg {

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
