// Feeds arbitrary bytes to one vertex-cache reader and, when they parse,
// reads every frame back the way an importer would.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qdxsdk/point_cache.h"
#include "qdxsdk/tove_cache.h"

using namespace qdxsdk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    QdxStatus status;
    std::vector<QdxVector4> points;
#ifdef FUZZ_CACHE_TOVE
    QdxToveCache tove;
    if (!tove.ReadFromMemory(data, size, status)) return 0;
    for (int c = 0; c < tove.GetChannelCount(); ++c) {
        const QdxToveCache::Channel* channel = tove.GetChannel(c);
        QdxToveCache::GetPointsAt(*channel, channel->GetStop(), points);
        QdxPointCache pc2;
        if (tove.ToPointCache(24.0, channel->name, pc2, status))
            pc2.GetFramePoints(pc2.GetEndFrame(), points);
    }
    tove.WriteToMemory();
#else
    QdxPointCache pc2;
    if (!pc2.ReadFromMemory(data, size, status)) return 0;
    for (int s = 0; s < pc2.GetSampleCount() && s < 64; ++s)
        pc2.GetFramePoints(pc2.GetStartFrame() + (s + 0.5) * pc2.GetSampleRate(), points);
    pc2.WriteToMemory();
#endif
    return 0;
}
