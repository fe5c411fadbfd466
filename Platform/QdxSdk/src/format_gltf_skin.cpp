// Skins between glTF and the SDK (see format_gltf_skin.h for the matrices).
#include "format_gltf_skin.h"

#include <algorithm>
#include <map>

#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"

namespace qdxsdk::format {

namespace {
// glTF gives at most four influences a vertex in one attribute set.
constexpr size_t kInfluences = 4;
// The most joints a skin may have: JOINTS_0 is written as unsigned shorts.
constexpr size_t kMaxJoints = 65535;
} // namespace

QdxSkin* MakeGltfSkin(QdxScene* scene, const std::string& name, QdxMesh* mesh,
                      const QdxAMatrix& meshWorld, const std::vector<QdxNode*>& joints,
                      const std::vector<QdxAMatrix>& inverseBind,
                      const std::vector<double>& jointIndices, const std::vector<double>& weights) {
    QdxSkin* skin = QdxSkin::Create(scene, name.c_str());
    std::vector<QdxCluster*> clusters(joints.size(), nullptr);
    const size_t points = std::min(jointIndices.size(), weights.size()) / kInfluences;
    for (size_t p = 0; p < points; ++p) {
        for (size_t k = 0; k < kInfluences; ++k) {
            const double w = weights[p * kInfluences + k];
            const size_t j = size_t(jointIndices[p * kInfluences + k]);
            if (!(w > 0) || j >= joints.size()) continue;
            QdxCluster*& cluster = clusters[j];
            if (!cluster) {
                const std::string clusterName = name + "_" + joints[j]->GetName();
                cluster = QdxCluster::Create(scene, clusterName.c_str());
                cluster->SetLink(joints[j]);
                cluster->SetLinkMode(QdxCluster::eNormalize);
                cluster->SetTransformMatrix(meshWorld);
                cluster->SetTransformLinkMatrix(meshWorld * inverseBind[j].Inverse());
            }
            cluster->AddControlPointIndex(int(p), w);
        }
    }
    for (QdxCluster* cluster : clusters)
        if (cluster) skin->AddCluster(cluster);
    mesh->AddDeformer(skin);
    return skin;
}

void MarkGltfJoints(QdxScene* scene, const std::vector<QdxNode*>& joints) {
    for (QdxNode* joint : joints) {
        if (joint->GetNodeAttribute()) continue;
        QdxSkeleton* skeleton = QdxSkeleton::Create(scene, joint->GetName());
        const bool child =
            std::find(joints.begin(), joints.end(), joint->GetParent()) != joints.end();
        skeleton->SetSkeletonType(child ? QdxSkeleton::eLimbNode : QdxSkeleton::eRoot);
        joint->SetNodeAttribute(skeleton);
    }
}

bool CollectGltfSkin(QdxMesh* mesh, const QdxAMatrix& geometric, GltfSkinData& out,
                     std::vector<std::string>& notes) {
    auto* skin = static_cast<QdxSkin*>(mesh->GetDeformer(0, QdxDeformer::eSkin));
    if (!skin) return false;
    const std::string what = std::string("Mesh '") + mesh->GetName() + "'";
    if (mesh->GetDeformerCount(QdxDeformer::eSkin) > 1)
        notes.push_back(what + ": only its first skin is carried");
    const size_t points = size_t(std::max(mesh->GetControlPointsCount(), 0));
    std::vector<std::vector<std::pair<double, int>>> influences(points);
    const QdxAMatrix ungeometric = geometric.Inverse();
    std::map<QdxNode*, int> jointIndex;
    for (int c = 0; c < skin->GetClusterCount(); ++c) {
        QdxCluster* cluster = skin->GetCluster(c);
        QdxNode* link = cluster->GetLink();
        if (!link) {
            notes.push_back(what + ": a cluster without a link is not carried");
            continue;
        }
        if (cluster->GetLinkMode() == QdxCluster::eAdditive)
            notes.push_back(what + ": additive weights are written normalised");
        auto [it, added] = jointIndex.emplace(link, int(out.joints.size()));
        QdxAMatrix bind, bindLink;
        cluster->GetTransformMatrix(bind);
        cluster->GetTransformLinkMatrix(bindLink);
        if (added) {
            out.joints.push_back(link);
            out.inverseBind.push_back(bindLink.Inverse() * bind * ungeometric);
        }
        const int* indices = cluster->GetControlPointIndices();
        const double* weights = cluster->GetControlPointWeights();
        for (int i = 0; i < cluster->GetControlPointIndicesCount(); ++i)
            if (indices[i] >= 0 && size_t(indices[i]) < points && weights[i] > 0)
                influences[size_t(indices[i])].emplace_back(weights[i], it->second);
    }
    if (out.joints.empty()) return false;
    if (out.joints.size() >= kMaxJoints) {
        notes.push_back(what + ": a skin of 65535 joints or more is not carried");
        return false;
    }
    out.pointJoints.assign(points * kInfluences, 0);
    out.pointWeights.assign(points * kInfluences, 0.0f);
    bool dropped = false;
    int self = -1; // the mesh node's own joint, for unweighted points
    for (size_t p = 0; p < points; ++p) {
        auto& list = influences[p];
        // Clusters that share a link weigh through one joint.
        std::sort(list.begin(), list.end(), [](auto& a, auto& b) { return a.second < b.second; });
        for (size_t k = 1; k < list.size(); ++k)
            if (list[k].second == list[k - 1].second) {
                list[k - 1].first += list[k].first;
                list.erase(list.begin() + std::ptrdiff_t(k--));
            }
        std::sort(list.begin(), list.end(), [](auto& a, auto& b) { return a.first > b.first; });
        if (list.size() > kInfluences) {
            dropped = true;
            list.resize(kInfluences);
        }
        if (list.empty()) {
            if (self < 0) {
                self = int(out.joints.size());
                out.joints.push_back(nullptr);
                out.inverseBind.push_back(QdxAMatrix());
            }
            list.emplace_back(1.0, self);
        }
        double total = 0;
        for (auto& [w, j] : list)
            total += w;
        for (size_t k = 0; k < list.size(); ++k) {
            out.pointJoints[p * kInfluences + k] = uint16_t(list[k].second);
            out.pointWeights[p * kInfluences + k] = float(list[k].first / total);
        }
    }
    if (dropped) notes.push_back(what + ": influences past the four largest are not carried");
    return true;
}

} // namespace qdxsdk::format
