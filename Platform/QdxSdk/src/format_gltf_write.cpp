// The glTF 2.0 writer: builds a tinygltf model from the scene (Y up,
// metres, one primitive per material slot, vertices split where corners
// differ) and lets tinygltf serialise it. Images are embedded: in the binary
// buffer of a .glb, as data URIs in a .gltf.
#include <tiny_gltf.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "format_gltf.h"
#include "format_gltf_attributes.h"
#include "format_gltf_skin.h"
#include "qdxsdk/anim.h"
#include "qdxsdk/attributes.h"
#include "qdxsdk/geometry.h"
#include "qdxsdk/material.h"
#include "qdxsdk/mesh.h"
#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"

namespace qdxsdk::format {

namespace {
namespace fs = std::filesystem;

std::string Base64(const std::vector<unsigned char>& bytes) {
    static const char* table = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t v = uint32_t(bytes[i]) << 16;
        if (i + 1 < bytes.size()) v |= uint32_t(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size()) v |= bytes[i + 2];
        out += table[(v >> 18) & 63];
        out += table[(v >> 12) & 63];
        out += i + 1 < bytes.size() ? table[(v >> 6) & 63] : '=';
        out += i + 2 < bytes.size() ? table[v & 63] : '=';
    }
    return out;
}

// Never called with image data to encode: every image carries its bytes in
// a buffer view or a data URI already, so the URI given is kept.
bool KeepImageUri(const std::string*, const std::string*, const tinygltf::Image*, bool,
                  std::string*, void*) {
    return false;
}

// The most samples an animation may have per channel.
constexpr size_t kMaxSamples = 1000000;

class GltfWriter {
public:
    GltfWriter(QdxScene* scene, bool binary) : mScene(scene), mBinary(binary) {
        mModel.asset.version = "2.0";
        mModel.asset.generator = "Qdx SDK";
        mModel.buffers.emplace_back();
    }

    bool Build(QdxStatus& status) {
        // Y up and metres: the top-level nodes take the conversion.
        const QdxGlobalSettings& settings = mScene->GetGlobalSettings();
        const double f = settings.GetSystemUnit().GetConversionFactorTo(QdxSystemUnit::m);
        QdxAMatrix scale;
        scale.SetS(QdxVector4(f, f, f));
        mConversion = scale * QdxAxisSystem::ToveYUp.GetConversionFrom(settings.GetAxisSystem());
        mMetres = f;
        if (settings.GetAxisSystem().GetCoorSystem() != QdxAxisSystem::eRightHanded)
            mNotes.push_back("The scene is left-handed; its mirror image is written");

        tinygltf::Scene scene;
        QdxNode* root = mScene->GetRootNode();
        // glTF's top-level nodes sit in the file's space, which the
        // conversion maps the scene into.
        for (int i = 0; i < root->GetChildCount(); ++i)
            scene.nodes.push_back(AddNode(root->GetChild(i), QdxAMatrix()));
        if (root->GetNodeAttribute()) mNotes.push_back("The root node's attribute is not carried");
        mModel.scenes.push_back(scene);
        mModel.defaultScene = 0;
        AddSkins();
        AddAnimations();
        if (mModel.buffers[0].data.empty()) mModel.buffers.clear();
        SetConversionNotes(mScene, mNotes);
        (void)status;
        return true;
    }

    bool Write(const Sink& sink, QdxStatus& status) {
        tinygltf::TinyGLTF writer;
        writer.SetImageWriter(KeepImageUri, nullptr);
        std::ostringstream out;
        if (!writer.WriteGltfSceneToStream(&mModel, out, !mBinary, mBinary)) {
            status.SetCode(QdxStatus::eFailure, "The glTF content could not be serialised");
            return false;
        }
        const std::string bytes = out.str();
        if (!sink(bytes.data(), bytes.size())) {
            status.SetCode(QdxStatus::eFailure, "Cannot write the glTF file");
            return false;
        }
        return true;
    }

private:
    // Appends bytes to the buffer (4-byte aligned) as a new buffer view.
    int AddView(const void* data, size_t size, int target) {
        std::vector<unsigned char>& buffer = mModel.buffers[0].data;
        buffer.resize((buffer.size() + 3) & ~size_t(3), 0);
        tinygltf::BufferView view;
        view.buffer = 0;
        view.byteOffset = buffer.size();
        view.byteLength = size;
        view.target = target;
        const auto* p = static_cast<const unsigned char*>(data);
        buffer.insert(buffer.end(), p, p + size);
        mModel.bufferViews.push_back(view);
        return int(mModel.bufferViews.size() - 1);
    }

    int AddFloats(const std::vector<float>& values, int type, int components, bool bounds,
                  int target = TINYGLTF_TARGET_ARRAY_BUFFER) {
        tinygltf::Accessor a;
        a.bufferView = AddView(values.data(), values.size() * sizeof(float), target);
        a.componentType = TINYGLTF_COMPONENT_TYPE_FLOAT;
        a.type = type;
        a.count = values.size() / size_t(components);
        if (bounds) {
            a.minValues.assign(size_t(components), std::numeric_limits<double>::max());
            a.maxValues.assign(size_t(components), std::numeric_limits<double>::lowest());
            for (size_t i = 0; i < values.size(); ++i) {
                size_t c = i % size_t(components);
                a.minValues[c] = std::min(a.minValues[c], double(values[i]));
                a.maxValues[c] = std::max(a.maxValues[c], double(values[i]));
            }
        }
        mModel.accessors.push_back(a);
        return int(mModel.accessors.size() - 1);
    }

    int AddIndices(const std::vector<uint32_t>& indices) {
        tinygltf::Accessor a;
        a.bufferView = AddView(indices.data(), indices.size() * sizeof(uint32_t),
                               TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
        a.componentType = TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT;
        a.type = TINYGLTF_TYPE_SCALAR;
        a.count = indices.size();
        mModel.accessors.push_back(a);
        return int(mModel.accessors.size() - 1);
    }

    int AddJoints(const std::vector<uint16_t>& joints) {
        tinygltf::Accessor a;
        a.bufferView =
            AddView(joints.data(), joints.size() * sizeof(uint16_t), TINYGLTF_TARGET_ARRAY_BUFFER);
        a.componentType = TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT;
        a.type = TINYGLTF_TYPE_VEC4;
        a.count = joints.size() / 4;
        mModel.accessors.push_back(a);
        return int(mModel.accessors.size() - 1);
    }

    // Skins once every node has its index: joints by node, inverse bind
    // matrices column by column.
    void AddSkins() {
        std::set<QdxNode*> joints;
        for (auto& [index, data] : mSkins) {
            tinygltf::Node& g = mModel.nodes[size_t(index)];
            tinygltf::Skin skin;
            skin.name = g.name + "_skin";
            bool complete = true;
            for (QdxNode* joint : data.joints) {
                auto found = joint ? mNodeIndex.find(joint) : mNodeIndex.end();
                if (joint && found == mNodeIndex.end()) complete = false;
                skin.joints.push_back(joint ? (complete ? found->second : -1) : index);
                joints.insert(joint);
            }
            if (!complete) {
                mNotes.push_back("Node '" + g.name +
                                 "': its skin links the root node and is not carried");
                continue;
            }
            if (!SharesRoot(skin.joints)) {
                // Top-level joints share no node: one root above them all.
                tinygltf::Node top;
                top.name = "SceneRoot";
                top.children = mModel.scenes[0].nodes;
                mModel.nodes.push_back(top);
                mModel.scenes[0].nodes = {int(mModel.nodes.size() - 1)};
                mNotes.push_back("A node 'SceneRoot' holds the top-level nodes, so that the "
                                 "joints of every skin share a root");
            }
            std::vector<float> matrices;
            for (const QdxAMatrix& m : data.inverseBind)
                for (int c = 0; c < 4; ++c)
                    for (int r = 0; r < 4; ++r)
                        // Affine: the bottom row is exact, never rounding noise.
                        matrices.push_back(r == 3 ? (c == 3 ? 1.0f : 0.0f) : float(m.Get(c, r)));
            skin.inverseBindMatrices = AddFloats(matrices, TINYGLTF_TYPE_MAT4, 16, false, 0);
            mModel.skins.push_back(skin);
            g.skin = int(mModel.skins.size() - 1);
        }
        for (QdxNode* node : mSkeletons)
            if (!joints.count(node))
                mNotes.push_back(std::string("Node '") + node->GetName() +
                                 "': its skeleton is not carried (no skin uses it)");
    }

    // Whether the node or one of its ancestors has curves on the stack's
    // transform properties.
    static bool Animated(QdxNode* node, QdxAnimStack* stack) {
        for (; node; node = node->GetParent())
            for (int l = 0; l < stack->GetLayerCount(); ++l) {
                QdxAnimLayer* layer = stack->GetLayer(l);
                if (node->LclTranslation.GetCurveNode(layer, false) ||
                    node->LclRotation.GetCurveNode(layer, false) ||
                    node->LclScaling.GetCurveNode(layer, false))
                    return true;
            }
        return false;
    }

    // One glTF animation per stack: the local TRS of every animated node,
    // sampled at every frame of the stack's span, as LINEAR samplers.
    void AddAnimations() {
        QdxAnimStack* saved = mScene->GetCurrentAnimationStack();
        const double fps = mScene->GetGlobalSettings().GetFrameRate();
        QdxNode* root = mScene->GetRootNode();
        for (int i = 0; i < mScene->GetSrcObjectCount<QdxAnimStack>(); ++i) {
            QdxAnimStack* stack = mScene->GetSrcObject<QdxAnimStack>(i);
            const std::string name = stack->GetName();
            const QdxTimeSpan span = stack->GetLocalTimeSpan();
            double start = span.GetStart().GetSecondDouble(),
                   stop = span.GetStop().GetSecondDouble();
            if (start < 0) {
                mNotes.push_back("Animation '" + name + "': the time before 0 is not carried");
                start = 0;
            }
            const double frames = (stop - start) * fps;
            if (!(frames >= 0) || frames > double(kMaxSamples)) {
                mNotes.push_back("Animation '" + name +
                                 "': its time span is empty or too long; not carried");
                continue;
            }
            // Every frame and the end, each later than the one before as a
            // float (the file's time type).
            std::vector<float> times;
            std::vector<QdxTime> at;
            auto sample = [&](double seconds) {
                QdxTime t;
                t.SetSecondDouble(seconds);
                if (!times.empty() && !(float(t.GetSecondDouble()) > times.back())) return;
                at.push_back(t);
                times.push_back(float(t.GetSecondDouble()));
            };
            for (long long f = 0; f <= (long long)(frames); ++f)
                sample(start + double(f) / fps);
            sample(stop);
            mScene->SetCurrentAnimationStack(stack);
            tinygltf::Animation animation;
            animation.name = name;
            int input = -1;
            std::vector<std::pair<int, QdxNode*>> animated; // in file order
            for (const auto& [node, index] : mNodeIndex)
                if (Animated(node, stack)) animated.emplace_back(index, node);
            std::sort(animated.begin(), animated.end());
            for (const auto& entry : animated) {
                const int index = entry.first;
                QdxNode* node = entry.second;
                std::vector<float> t, r, s;
                QdxQuaternion previous;
                for (const QdxTime& time : at) {
                    const QdxAMatrix world = mConversion * node->EvaluateGlobalTransform(time);
                    QdxNode* parent = node->GetParent();
                    const QdxAMatrix parentWorld =
                        parent && parent != root
                            ? mConversion * parent->EvaluateGlobalTransform(time)
                            : QdxAMatrix();
                    const QdxAMatrix local = parentWorld.Inverse() * world;
                    const QdxVector4 lt = local.GetT(), ls = local.GetS();
                    QdxQuaternion q = local.GetQ();
                    q.Normalize();
                    // The shorter way from the previous sample.
                    if (q[0] * previous[0] + q[1] * previous[1] + q[2] * previous[2] +
                            q[3] * previous[3] <
                        0)
                        q = QdxQuaternion(-q[0], -q[1], -q[2], -q[3]);
                    previous = q;
                    t.insert(t.end(), {float(lt[0]), float(lt[1]), float(lt[2])});
                    r.insert(r.end(), {float(q[0]), float(q[1]), float(q[2]), float(q[3])});
                    s.insert(s.end(), {float(ls[0]), float(ls[1]), float(ls[2])});
                }
                tinygltf::Node& g = mModel.nodes[size_t(index)];
                if (!g.matrix.empty()) {
                    mNotes.push_back("Animation '" + name + "': node '" + g.name +
                                     "' has shear or a mirror; its animation is not carried");
                    continue;
                }
                auto channel = [&](const std::vector<float>& values, int type, int components,
                                   const char* path) {
                    bool varies = false;
                    for (size_t k = size_t(components); k < values.size() && !varies; ++k)
                        varies = values[k] != values[k % size_t(components)];
                    if (!varies) return;
                    if (input < 0) input = AddFloats(times, TINYGLTF_TYPE_SCALAR, 1, true, 0);
                    tinygltf::AnimationSampler sampler;
                    sampler.input = input;
                    sampler.output = AddFloats(values, type, components, false, 0);
                    sampler.interpolation = "LINEAR";
                    animation.samplers.push_back(sampler);
                    tinygltf::AnimationChannel c;
                    c.sampler = int(animation.samplers.size() - 1);
                    c.target_node = index;
                    c.target_path = path;
                    animation.channels.push_back(c);
                };
                channel(t, TINYGLTF_TYPE_VEC3, 3, "translation");
                channel(r, TINYGLTF_TYPE_VEC4, 4, "rotation");
                channel(s, TINYGLTF_TYPE_VEC3, 3, "scale");
            }
            if (!animation.channels.empty()) mModel.animations.push_back(animation);
        }
        mScene->SetCurrentAnimationStack(saved);
    }

    // Whether one node is an ancestor of (or one of) all the joints.
    bool SharesRoot(const std::vector<int>& joints) const {
        std::vector<int> parent(mModel.nodes.size(), -1);
        for (size_t i = 0; i < mModel.nodes.size(); ++i)
            for (int c : mModel.nodes[i].children)
                parent[size_t(c)] = int(i);
        auto top = [&](int n) {
            while (parent[size_t(n)] >= 0)
                n = parent[size_t(n)];
            return n;
        };
        for (int j : joints)
            if (top(j) != top(joints[0])) return false;
        return true;
    }

    int AddNode(QdxNode* node, const QdxAMatrix& parentWorld) {
        const int index = int(mModel.nodes.size());
        mNodeIndex[node] = index;
        mModel.nodes.emplace_back();
        const QdxAMatrix world = mConversion * node->EvaluateGlobalTransform();
        tinygltf::Node g;
        g.name = node->GetName();
        SetTransform(g, parentWorld.Inverse() * world);
        if (QdxMesh* mesh = node->GetMesh()) {
            g.mesh = AddMesh(node, mesh, index);
        } else if (node->GetSkeleton()) {
            mSkeletons.push_back(node);
        } else if (QdxNodeAttribute* attribute = node->GetNodeAttribute()) {
            AddCameraOrLight(node, attribute, g);
        }
        for (int i = 0; i < node->GetChildCount(); ++i)
            g.children.push_back(AddNode(node->GetChild(i), world));
        mModel.nodes[size_t(index)] = std::move(g);
        return index;
    }

    // A camera or light on the glTF node, or on a child of its own when the
    // node's geometric transform and the turn between the two attribute
    // frames do not cancel.
    void AddCameraOrLight(QdxNode* node, QdxNodeAttribute* attribute, tinygltf::Node& g) {
        const QdxNodeAttribute::EType type = attribute->GetAttributeType();
        const std::string name = g.name;
        int camera = -1, light = -1;
        if (auto* c = QdxCast<QdxCamera>(attribute)) {
            if (auto found = mCameras.find(c); found != mCameras.end()) {
                camera = found->second;
            } else {
                tinygltf::Camera out;
                if (ToGltfCamera(c, mMetres, out, mNotes)) {
                    mModel.cameras.push_back(out);
                    camera = int(mModel.cameras.size() - 1);
                }
                mCameras[c] = camera;
            }
        } else if (auto* l = QdxCast<QdxLight>(attribute)) {
            if (auto found = mLights.find(l); found != mLights.end()) {
                light = found->second;
            } else {
                tinygltf::Light out;
                if (ToGltfLight(l, out, mNotes)) {
                    mModel.lights.push_back(out);
                    light = int(mModel.lights.size() - 1);
                }
                mLights[l] = light;
            }
        } else {
            mNotes.push_back("Node '" + name + "': its " + attribute->GetClassId().GetName() +
                             " is not carried yet");
            return;
        }
        if (camera < 0 && light < 0) return;
        const QdxAMatrix offset =
            node->GetGeometricTransform() *
            QdxAMatrix(QdxVector4(0, 0, 0), GltfAttributeTurn(type), QdxVector4(1, 1, 1)).Inverse();
        tinygltf::Node* holder = &g;
        tinygltf::Node child;
        if (!NearIdentity(offset)) {
            child.name = name + (camera >= 0 ? "_camera" : "_light");
            SetTransform(child, offset);
            holder = &child;
        }
        holder->camera = camera;
        if (light >= 0) {
            tinygltf::Value::Object reference;
            reference["light"] = tinygltf::Value(light);
            holder->extensions[kGltfLightsExtension] = tinygltf::Value(std::move(reference));
        }
        if (holder == &child) {
            g.children.push_back(int(mModel.nodes.size()));
            mModel.nodes.push_back(std::move(child));
        }
    }

    static bool NearIdentity(const QdxAMatrix& m) {
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                if (std::fabs(m.Get(i, j) - (i == j ? 1.0 : 0.0)) > 1e-12) return false;
        return true;
    }

    void SetTransform(tinygltf::Node& g, const QdxAMatrix& local) {
        const QdxVector4 t = local.GetT(), s = local.GetS(), r = local.GetR();
        const QdxAMatrix back(t, r, s);
        double err = 0, size = 1;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) {
                err = std::max(err, std::fabs(back.Get(i, j) - local.Get(i, j)));
                size = std::max(size, std::fabs(local.Get(i, j)));
            }
        if (err > 1e-9 * size || s[0] <= 0 || s[1] <= 0 || s[2] <= 0) {
            // Shear or a mirror: the matrix itself.
            if (local.IsIdentity()) return;
            g.matrix.resize(16);
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j)
                    g.matrix[size_t(i * 4 + j)] = local.Get(i, j);
            return;
        }
        if (t[0] != 0 || t[1] != 0 || t[2] != 0) g.translation = {t[0], t[1], t[2]};
        QdxQuaternion q = local.GetQ();
        q.Normalize();
        if (q[3] < 0) q = QdxQuaternion(-q[0], -q[1], -q[2], -q[3]);
        if (std::fabs(q[3] - 1.0) > 1e-15) g.rotation = {q[0], q[1], q[2], q[3]};
        if (s[0] != 1 || s[1] != 1 || s[2] != 1) g.scale = {s[0], s[1], s[2]};
    }

    // One glTF mesh per Qdx mesh (per node when the node's geometric
    // transform must be baked in); one primitive per material slot.
    int AddMesh(QdxNode* node, QdxMesh* mesh, int nodeIndex) {
        const QdxAMatrix geometric = node->GetGeometricTransform();
        GltfSkinData skin;
        const bool skinned = CollectGltfSkin(mesh, geometric, skin, mNotes);
        const bool baked = !geometric.IsIdentity() || skinned;
        if (mesh->GetDeformerCount(QdxDeformer::eVertexCache) > 0 ||
            mesh->GetDeformerCount(QdxDeformer::eBlendShape) > 0)
            mNotes.push_back(std::string("Mesh '") + mesh->GetName() +
                             "': its vertex caches and blend shapes are not carried");
        std::vector<int> materialIndices;
        for (int i = 0; i < node->GetMaterialCount(); ++i)
            materialIndices.push_back(AddMaterial(node->GetMaterial(i)));
        auto key = std::make_pair(mesh, materialIndices);
        if (!baked)
            if (auto found = mMeshes.find(key); found != mMeshes.end()) return found->second;

        QdxStringList names;
        mesh->GetUVSetNames(names);
        std::vector<std::string> uvNames;
        for (int i = 0; i < names.GetCount(); ++i)
            uvNames.push_back(names[i].Str());
        const std::vector<int> texCoords = GltfAssignTexCoords(uvNames);
        int texCoordCount = 0;
        for (size_t i = 0; i < texCoords.size(); ++i) {
            if (texCoords[i] < 0)
                mNotes.push_back(std::string("Mesh '") + mesh->GetName() + "': UV set '" +
                                 uvNames[i] + "' is not carried (no TEXCOORD left)");
            texCoordCount = std::max(texCoordCount, texCoords[i] + 1);
        }
        const bool hasNormals = mesh->GetElementNormalCount() > 0;
        const bool hasColors = mesh->GetElementVertexColorCount() > 0;
        const QdxAMatrix normalMatrix = geometric.Inverse().Transpose();

        // Polygons by material slot.
        QdxLayerElementMaterial* slots = mesh->GetElementMaterial();
        std::map<int, std::vector<int>> bySlot;
        for (int p = 0; p < mesh->GetPolygonCount(); ++p) {
            int slot = 0;
            if (slots && slots->GetMappingMode() == QdxLayerElement::eByPolygon)
                slot = slots->GetIndexArray().GetAt(p);
            else if (slots && slots->GetMappingMode() == QdxLayerElement::eAllSame)
                slot = slots->GetIndexArray().GetAt(0);
            bySlot[std::max(slot, 0)].push_back(p);
        }
        tinygltf::Mesh g;
        g.name = mesh->GetName();
        for (const auto& [slot, polygons] : bySlot) {
            std::vector<float> positions, normals, colors, weights;
            std::vector<uint16_t> joints;
            std::vector<std::vector<float>> uvs(static_cast<size_t>(texCoordCount));
            std::vector<uint32_t> indices;
            std::map<std::vector<float>, uint32_t> vertices;
            for (int p : polygons) {
                const int size = mesh->GetPolygonSize(p);
                std::vector<uint32_t> corners;
                for (int c = 0; c < size; ++c) {
                    std::vector<float> v;
                    const int controlPoint = mesh->GetPolygonVertex(p, c);
                    QdxVector4 point = geometric.MultT(mesh->GetControlPointAt(controlPoint));
                    v.insert(v.end(), {float(point[0]), float(point[1]), float(point[2])});
                    if (hasNormals) {
                        QdxVector4 n;
                        mesh->GetPolygonVertexNormal(p, c, n);
                        n = normalMatrix.MultR(n);
                        double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
                        if (!(len > 1e-12)) {
                            n = QdxVector4(0, 1, 0);
                            len = 1;
                        }
                        v.insert(v.end(),
                                 {float(n[0] / len), float(n[1] / len), float(n[2] / len)});
                    }
                    for (size_t s = 0; s < uvNames.size(); ++s) {
                        if (texCoords[s] < 0) continue;
                        QdxVector2 uv;
                        bool unmapped = false;
                        mesh->GetPolygonVertexUV(p, c, uvNames[s].c_str(), uv, unmapped);
                        v.insert(v.end(), {float(texCoords[s]), float(uv[0]), float(1.0 - uv[1])});
                    }
                    if (hasColors) {
                        QdxColor color;
                        mesh->GetPolygonVertexColor(p, c, color);
                        for (double x : {color.mRed, color.mGreen, color.mBlue, color.mAlpha})
                            v.push_back(float(std::clamp(x, 0.0, 1.0)));
                    }
                    if (skinned)
                        for (size_t k = 0; k < 4; ++k) {
                            const size_t at = size_t(controlPoint) * 4 + k;
                            v.push_back(float(skin.pointJoints[at]));
                            v.push_back(skin.pointWeights[at]);
                        }
                    auto [it, added] = vertices.emplace(v, uint32_t(positions.size() / 3));
                    if (added) {
                        size_t at = 0;
                        positions.insert(positions.end(), v.begin(), v.begin() + 3);
                        at = 3;
                        if (hasNormals) {
                            normals.insert(normals.end(), v.begin() + 3, v.begin() + 6);
                            at = 6;
                        }
                        for (auto& set : uvs)
                            set.insert(set.end(), {0.0f, 0.0f});
                        for (size_t s = 0; s < uvNames.size(); ++s) {
                            if (texCoords[s] < 0) continue;
                            std::vector<float>& set = uvs[size_t(v[at])];
                            set[set.size() - 2] = v[at + 1];
                            set[set.size() - 1] = v[at + 2];
                            at += 3;
                        }
                        if (hasColors) {
                            colors.insert(colors.end(), v.begin() + std::ptrdiff_t(at),
                                          v.begin() + std::ptrdiff_t(at + 4));
                            at += 4;
                        }
                        for (; skinned && at < v.size(); at += 2) {
                            joints.push_back(uint16_t(v[at]));
                            weights.push_back(v[at + 1]);
                        }
                    }
                    corners.push_back(it->second);
                }
                // Polygons are fanned into triangles.
                for (size_t c = 2; c < corners.size(); ++c)
                    indices.insert(indices.end(), {corners[0], corners[c - 1], corners[c]});
            }
            if (indices.empty()) continue;
            tinygltf::Primitive prim;
            prim.mode = TINYGLTF_MODE_TRIANGLES;
            prim.attributes["POSITION"] = AddFloats(positions, TINYGLTF_TYPE_VEC3, 3, true);
            if (hasNormals)
                prim.attributes["NORMAL"] = AddFloats(normals, TINYGLTF_TYPE_VEC3, 3, false);
            for (size_t s = 0; s < uvs.size(); ++s)
                prim.attributes["TEXCOORD_" + std::to_string(s)] =
                    AddFloats(uvs[s], TINYGLTF_TYPE_VEC2, 2, false);
            if (hasColors)
                prim.attributes["COLOR_0"] = AddFloats(colors, TINYGLTF_TYPE_VEC4, 4, false);
            if (skinned) {
                prim.attributes["JOINTS_0"] = AddJoints(joints);
                prim.attributes["WEIGHTS_0"] = AddFloats(weights, TINYGLTF_TYPE_VEC4, 4, false);
            }
            prim.indices = AddIndices(indices);
            if (size_t(slot) < materialIndices.size())
                prim.material = materialIndices[size_t(slot)];
            g.primitives.push_back(prim);
        }
        if (g.primitives.empty()) {
            mNotes.push_back(std::string("Mesh '") + mesh->GetName() +
                             "' has no polygons; not carried");
            return -1;
        }
        mModel.meshes.push_back(g);
        const int index = int(mModel.meshes.size() - 1);
        if (!baked) mMeshes[key] = index;
        if (skinned) mSkins.emplace_back(nodeIndex, std::move(skin));
        return index;
    }

    static double UserValue(QdxSurfaceMaterial* m, const char* name, double fallback) {
        QdxProperty p = m->FindProperty(name);
        return p.IsValid() ? p.Get<double>() : fallback;
    }

    int AddMaterial(QdxSurfaceMaterial* material) {
        if (!material) return -1;
        if (auto found = mMaterials.find(material); found != mMaterials.end()) return found->second;
        tinygltf::Material g;
        g.name = material->GetName();
        tinygltf::PbrMetallicRoughness& pbr = g.pbrMetallicRoughness;
        auto* lambert = QdxCast<QdxSurfaceLambert>(material);
        auto* phong = QdxCast<QdxSurfacePhong>(material);
        if (lambert) {
            const QdxDouble3 d = lambert->Diffuse.Get();
            const double f = lambert->DiffuseFactor.Get();
            const double alpha = std::clamp(1.0 - lambert->TransparencyFactor.Get(), 0.0, 1.0);
            pbr.baseColorFactor = {std::clamp(d[0] * f, 0.0, 1.0), std::clamp(d[1] * f, 0.0, 1.0),
                                   std::clamp(d[2] * f, 0.0, 1.0), alpha};
            if (alpha < 1.0) g.alphaMode = "BLEND";
            const QdxDouble3 e = lambert->Emissive.Get();
            const double ef = lambert->EmissiveFactor.Get();
            g.emissiveFactor = {std::clamp(e[0] * ef, 0.0, 1.0), std::clamp(e[1] * ef, 0.0, 1.0),
                                std::clamp(e[2] * ef, 0.0, 1.0)};
        } else {
            mNotes.push_back("Material '" + g.name +
                             "' is neither Lambert nor Phong; written white");
        }
        double roughness = 1.0;
        if (phong) {
            const double s = std::max(phong->Shininess.Get(), 0.0);
            roughness = std::pow(2.0 / (s + 2.0), 0.25);
        }
        pbr.metallicFactor = std::clamp(UserValue(material, "metallicFactor", 0.0), 0.0, 1.0);
        pbr.roughnessFactor =
            std::clamp(UserValue(material, "roughnessFactor", roughness), 0.0, 1.0);
        if (material->FindProperty("alphaCutoff").IsValid()) {
            g.alphaMode = "MASK";
            g.alphaCutoff = std::max(UserValue(material, "alphaCutoff", 0.5), 0.0);
        }
        g.doubleSided = UserValue(material, "doubleSided", 0.0) != 0.0;

        auto texture = [&](const char* property, int& index, int& texCoord) {
            QdxProperty p = material->FindProperty(property);
            if (!p.IsValid()) return;
            auto* file = p.GetSrcObject<QdxFileTexture>(0);
            if (!file) {
                if (auto* layered = p.GetSrcObject<QdxLayeredTexture>(0))
                    file = layered->GetSrcObject<QdxFileTexture>(0);
            }
            if (!file) return;
            index = AddTexture(file);
            const int slot = GltfTexCoordOfName(file->UVSet.Get().Str());
            texCoord = std::max(slot, 0);
        };
        texture(QdxSurfaceMaterial::sDiffuse, pbr.baseColorTexture.index,
                pbr.baseColorTexture.texCoord);
        texture(QdxSurfaceMaterial::sEmissive, g.emissiveTexture.index, g.emissiveTexture.texCoord);
        texture(QdxSurfaceMaterial::sNormalMap, g.normalTexture.index, g.normalTexture.texCoord);
        texture(QdxSurfaceMaterial::sAmbient, g.occlusionTexture.index,
                g.occlusionTexture.texCoord);
        texture(QdxSurfaceMaterial::sShininess, pbr.metallicRoughnessTexture.index,
                pbr.metallicRoughnessTexture.texCoord);
        mModel.materials.push_back(g);
        const int index = int(mModel.materials.size() - 1);
        mMaterials[material] = index;
        return index;
    }

    // The texture's image as this machine finds it: its file name, else its
    // relative name, else the file name less leading folders (a path made
    // on another machine), from the working folder.
    static std::string ImagePath(QdxFileTexture* file) {
        std::error_code ec;
        const std::string stored = file->GetFileName();
        if (stored.empty() || fs::is_regular_file(stored, ec)) return stored;
        if (const std::string relative = file->GetRelativeFileName();
            !relative.empty() && fs::is_regular_file(relative, ec))
            return relative;
        std::string path = stored;
        std::replace(path.begin(), path.end(), '\\', '/');
        for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/')) {
            path.erase(0, slash + 1);
            if (fs::is_regular_file(path, ec)) return path;
        }
        return stored;
    }

    int AddTexture(QdxFileTexture* file) {
        if (auto found = mTextures.find(file); found != mTextures.end()) return found->second;
        int result = -1;
        std::vector<uint8_t> bytes;
        QdxStatus readStatus;
        const std::string path = ImagePath(file);
        if (!ReadFileBytes(path, bytes, readStatus)) {
            mNotes.push_back(std::string("Texture '") + file->GetName() + "': its image '" + path +
                             "' cannot be read; not carried");
        } else if (std::string mime = GltfImageMimeType(bytes.data(), bytes.size()); mime.empty()) {
            mNotes.push_back(std::string("Texture '") + file->GetName() + "': '" + path +
                             "' is neither PNG nor JPEG; not carried");
        } else {
            tinygltf::Image image;
            image.name = file->GetName();
            image.mimeType = mime;
            if (mBinary)
                image.bufferView = AddView(bytes.data(), bytes.size(), 0);
            else
                image.uri = "data:" + mime + ";base64," +
                            Base64(std::vector<unsigned char>(bytes.begin(), bytes.end()));
            mModel.images.push_back(image);
            tinygltf::Sampler sampler;
            auto wrap = [](QdxTexture::EWrapMode mode) {
                return mode == QdxTexture::eClamp ? TINYGLTF_TEXTURE_WRAP_CLAMP_TO_EDGE
                                                  : TINYGLTF_TEXTURE_WRAP_REPEAT;
            };
            sampler.wrapS = wrap(file->GetWrapModeU());
            sampler.wrapT = wrap(file->GetWrapModeV());
            mModel.samplers.push_back(sampler);
            tinygltf::Texture texture;
            texture.name = file->GetName();
            texture.source = int(mModel.images.size() - 1);
            texture.sampler = int(mModel.samplers.size() - 1);
            mModel.textures.push_back(texture);
            result = int(mModel.textures.size() - 1);
        }
        mTextures[file] = result;
        return result;
    }

    QdxScene* mScene;
    bool mBinary;
    tinygltf::Model mModel;
    QdxAMatrix mConversion;
    std::vector<std::string> mNotes;
    std::map<std::pair<QdxMesh*, std::vector<int>>, int> mMeshes;
    std::map<QdxSurfaceMaterial*, int> mMaterials;
    std::map<QdxFileTexture*, int> mTextures;
    std::map<QdxNode*, int> mNodeIndex;
    std::vector<std::pair<int, GltfSkinData>> mSkins; // by glTF node
    std::vector<QdxNode*> mSkeletons;
    std::map<QdxCamera*, int> mCameras;
    std::map<QdxLight*, int> mLights;
    double mMetres = 1.0; // one scene unit in metres
};

bool WriteGltf(QdxScene* scene, bool binary, const Sink& sink, QdxStatus& status,
               const Progress& progress) {
    GltfWriter writer(scene, binary);
    if (!writer.Build(status)) return false;
    if (progress) progress(0.5);
    return writer.Write(sink, status);
}
} // namespace

bool WriteGltfText(QdxScene* scene, int, const Sink& sink, QdxStatus& status,
                   const Progress& progress) {
    return WriteGltf(scene, false, sink, status, progress);
}

bool WriteGltfBinary(QdxScene* scene, int, const Sink& sink, QdxStatus& status,
                     const Progress& progress) {
    return WriteGltf(scene, true, sink, status, progress);
}

} // namespace qdxsdk::format
