#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/ChunkMaterial.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(ChunkMaterial)

void ChunkMaterial::addChunk(const StateChunkPtr& chunk) {
    if (!chunk) return;
    _chunks.push_back(chunk);
    changed(ChunksFieldMask);
}

bool ChunkMaterial::subChunk(const StateChunkPtr& chunk) {
    auto it = std::find(_chunks.begin(), _chunks.end(), chunk);
    if (it == _chunks.end()) return false;
    _chunks.erase(it);
    changed(ChunksFieldMask);
    return true;
}

} // namespace osg
