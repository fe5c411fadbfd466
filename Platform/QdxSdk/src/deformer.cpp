// Skins, clusters and vertex-cache deformers.
#include <algorithm>

#include <filesystem>

#include "impl.h"
#include "qdxsdk/deformer.h"
#include "qdxsdk/geometry_base.h"
#include "qdxsdk/node.h"
#include "qdxsdk/point_cache.h"
#include "qdxsdk/tove_cache.h"

namespace qdxsdk {

using detail::ArrayKind;

QDX_IMPLEMENT_ABSTRACT(QdxDeformer, QdxObject, "QdxDeformer")
QdxDeformer::QdxDeformer(QdxManager& m, const char* name) : QdxObject(m, name) {}

QDX_IMPLEMENT_OBJECT(QdxCluster, QdxObject, "QdxCluster")
QdxCluster::QdxCluster(QdxManager& m, const char* name) : QdxObject(m, name) {
    TransformMatrix = AddProperty(QdxDouble4x4DT, "TransformMatrix", QdxAMatrix());
    TransformLinkMatrix = AddProperty(QdxDouble4x4DT, "TransformLinkMatrix", QdxAMatrix());
    LinkMode = AddProperty(QdxEnumDT, "LinkMode", static_cast<int>(eNormalize));
    LinkProperty = AddProperty(QdxReferenceDT, "Link", std::monostate());
    mIndicesArray = AddOwnArray("Indices", ArrayKind::Int32);
    mWeightsArray = AddOwnArray("Weights", ArrayKind::Double);
}
void QdxCluster::AddControlPointIndex(int index, double weight) {
    ArrayOf<int32_t>(mIndicesArray).push_back(index);
    ArrayOf<double>(mWeightsArray).push_back(weight);
}
int QdxCluster::GetControlPointIndicesCount() const {
    return static_cast<int>(
        std::min(ArrayOf<int32_t>(mIndicesArray).size(), ArrayOf<double>(mWeightsArray).size()));
}
int* QdxCluster::GetControlPointIndices() {
    return ArrayOf<int32_t>(mIndicesArray).data();
}
double* QdxCluster::GetControlPointWeights() {
    return ArrayOf<double>(mWeightsArray).data();
}
void QdxCluster::SetControlPointIWCount(int count) {
    ArrayOf<int32_t>(mIndicesArray).resize(static_cast<size_t>(std::max(count, 0)));
    ArrayOf<double>(mWeightsArray).resize(static_cast<size_t>(std::max(count, 0)));
}
void QdxCluster::SetLink(QdxNode* node) {
    LinkProperty.DisconnectAllSrcObject();
    if (node) LinkProperty.ConnectSrcObject(node);
}
QdxNode* QdxCluster::GetLink() const {
    return LinkProperty.GetSrcObject<QdxNode>();
}

QDX_IMPLEMENT_OBJECT(QdxSkin, QdxDeformer, "QdxSkin")
QdxSkin::QdxSkin(QdxManager& m, const char* name) : QdxDeformer(m, name) {
    SkinningType = AddProperty(QdxEnumDT, "SkinningType", static_cast<int>(eLinear));
    DeformAccuracy = AddProperty(QdxDoubleDT, "DeformAccuracy", 50.0);
}
bool QdxSkin::AddCluster(QdxCluster* cluster) {
    if (!cluster) return false;
    detail::JoinSceneOf(this, cluster);
    return ConnectSrcObject(cluster);
}
int QdxSkin::GetClusterCount() const {
    return GetSrcObjectCount<QdxCluster>();
}
QdxCluster* QdxSkin::GetCluster(int index) const {
    return GetSrcObject<QdxCluster>(index);
}
QdxGeometry* QdxSkin::GetGeometry() const {
    return GetDstObject<QdxGeometry>();
}

bool QdxSkin::EvaluateDeformedPoints(QdxTime time, std::vector<QdxVector4>& points) const {
    points.clear();
    QdxGeometry* g = GetGeometry();
    if (!g) return false;
    const QdxVector4* p = g->GetControlPoints();
    size_t count = static_cast<size_t>(std::max(g->QdxGeometryBase::GetControlPointsCount(), 0));
    std::vector<QdxVector4> sum(count, QdxVector4(0, 0, 0, 0));
    std::vector<double> total(count, 0.0);
    bool normalize = true;
    for (int c = 0; c < GetClusterCount(); ++c) {
        QdxCluster* cl = GetCluster(c);
        QdxNode* link = cl->GetLink();
        if (!link) continue;
        normalize = normalize && cl->GetLinkMode() == QdxCluster::eNormalize;
        QdxAMatrix bind, bindLink;
        cl->GetTransformMatrix(bind);
        cl->GetTransformLinkMatrix(bindLink);
        QdxAMatrix m = link->EvaluateGlobalTransform(time) * bindLink.Inverse() * bind;
        const int* indices = cl->GetControlPointIndices();
        const double* weights = cl->GetControlPointWeights();
        for (int i = 0; i < cl->GetControlPointIndicesCount(); ++i) {
            if (indices[i] < 0 || static_cast<size_t>(indices[i]) >= count) continue;
            size_t k = static_cast<size_t>(indices[i]);
            sum[k] = sum[k] + m.MultT(p[k]) * weights[i];
            total[k] += weights[i];
        }
    }
    QdxNode* node = g->GetNode();
    QdxAMatrix rest =
        node ? node->EvaluateGlobalTransform(time) * node->GetGeometricTransform() : QdxAMatrix();
    points.resize(count);
    for (size_t k = 0; k < count; ++k) {
        QdxVector4 v = total[k] == 0.0 ? rest.MultT(p[k])
                       : normalize     ? sum[k] * (1.0 / total[k])
                                       : sum[k];
        points[k] = QdxVector4(v[0], v[1], v[2]);
    }
    return true;
}

QDX_IMPLEMENT_OBJECT(QdxVertexCacheDeformer, QdxDeformer, "QdxVertexCacheDeformer")
QdxVertexCacheDeformer::QdxVertexCacheDeformer(QdxManager& m, const char* name)
    : QdxDeformer(m, name) {
    CacheFileName = AddProperty(QdxStringDT, "CacheFileName", std::string());
    Channel = AddProperty(QdxStringDT, "Channel", std::string());
    CacheFileFormat = AddProperty(QdxEnumDT, "CacheFileFormat", static_cast<int>(eUnknownFormat));
    Active = AddProperty(QdxBoolDT, "Active", true);
    PointTransform = AddProperty(QdxDouble4x4DT, "PointTransform", QdxAMatrix());
}

void QdxVertexCacheDeformer::SetCacheFile(const std::string& fileName, ECacheFormat format,
                                          const std::string& channel) {
    CacheFileName.Set(QdxString(fileName.c_str()));
    CacheFileFormat.Set(format);
    Channel.Set(QdxString(channel.c_str()));
    CloseFile();
}

std::string QdxVertexCacheDeformer::GetCacheFileName() const {
    return CacheFileName.Get().Buffer();
}

QdxVertexCacheDeformer::ECacheFormat QdxVertexCacheDeformer::GetCacheFileFormat() const {
    // Files of the first schema numbered the point cache format 3.
    constexpr int kFirstSchemaPC2 = 3;
    int f = CacheFileFormat.Get();
    if (f == kFirstSchemaPC2) return ePC2;
    return f == ePC2 || f == eToveCache ? static_cast<ECacheFormat>(f) : eUnknownFormat;
}

std::string QdxVertexCacheDeformer::ResolveCacheFileName(const std::string& folder) const {
    std::filesystem::path file(GetCacheFileName());
    if (folder.empty() || file.empty() || file.is_absolute()) return file.string();
    return (std::filesystem::path(folder) / file).string();
}

bool QdxVertexCacheDeformer::ConvertFromToveToPC2(double frameRate, QdxStatus& status,
                                                  const std::string& folder) {
    status.Clear();
    ECacheFormat format = GetCacheFileFormat();
    if (format == ePC2) return true;
    if (format != eToveCache) {
        status.SetCode(QdxStatus::eInvalidParameter, "the cache is not a Tove cache");
        return false;
    }
    // The point cache goes beside the Tove cache, never over it.
    std::filesystem::path recorded(GetCacheFileName());
    std::filesystem::path converted = recorded;
    converted.replace_extension(".pc2");
    if (converted == recorded) converted += ".pc2";
    std::string channel = Channel.Get().Buffer();
    std::string from = ResolveCacheFileName(folder);
    CacheFileName.Set(QdxString(converted.string().c_str()));
    std::string to = ResolveCacheFileName(folder);
    CacheFileName.Set(QdxString(recorded.string().c_str()));
    if (!QdxToveCache::ConvertFileToPointCache(from, to, frameRate, channel, status)) return false;
    SetCacheFile(converted.string(), ePC2);
    return true;
}

bool QdxVertexCacheDeformer::OpenFileForRead(QdxStatus& status, const std::string& folder,
                                             double frameRate) {
    CloseFile();
    auto cache = std::make_shared<QdxPointCache>();
    std::string path = ResolveCacheFileName(folder);
    switch (GetCacheFileFormat()) {
    case ePC2:
        if (!cache->Read(path, status)) return false;
        break;
    case eToveCache: {
        QdxToveCache tove;
        if (!tove.Read(path, status) ||
            !tove.ToPointCache(frameRate, Channel.Get().Buffer(), *cache, status))
            return false;
        break;
    }
    default:
        status.SetCode(QdxStatus::eInvalidParameter, "unknown cache file format");
        return false;
    }
    mCache = std::move(cache);
    status.Clear();
    return true;
}

double QdxVertexCacheDeformer::GetStartFrame() const {
    return mCache ? mCache->GetStartFrame() : 0.0;
}
double QdxVertexCacheDeformer::GetEndFrame() const {
    return mCache ? mCache->GetEndFrame() : 0.0;
}
int QdxVertexCacheDeformer::GetSampleCount() const {
    return mCache ? mCache->GetSampleCount() : 0;
}

bool QdxVertexCacheDeformer::GetFramePoints(double frame, std::vector<QdxVector4>& points) const {
    if (!mCache || !mCache->GetFramePoints(frame, points)) return false;
    QdxAMatrix m = PointTransform.Get();
    if (m.IsIdentity()) return true;
    for (QdxVector4& p : points) {
        QdxVector4 q = m.MultT(p);
        p = QdxVector4(q[0], q[1], q[2]);
    }
    return true;
}

} // namespace qdxsdk
