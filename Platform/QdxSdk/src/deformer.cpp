// Skins, clusters and vertex-cache deformers.
#include <algorithm>

#include "impl.h"
#include "qdxsdk/deformer.h"
#include "qdxsdk/node.h"

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

QDX_IMPLEMENT_OBJECT(QdxVertexCacheDeformer, QdxDeformer, "QdxVertexCacheDeformer")
QdxVertexCacheDeformer::QdxVertexCacheDeformer(QdxManager& m, const char* name)
    : QdxDeformer(m, name) {
    CacheFileName = AddProperty(QdxStringDT, "CacheFileName", std::string());
    Channel = AddProperty(QdxStringDT, "Channel", std::string());
    CacheFileFormat = AddProperty(QdxEnumDT, "CacheFileFormat", static_cast<int>(eUnknownFormat));
    Active = AddProperty(QdxBoolDT, "Active", true);
}

} // namespace qdxsdk
