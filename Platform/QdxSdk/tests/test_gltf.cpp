// glTF 2.0 reading and writing: files made here with tinygltf go through
// glTF -> Qdx -> glTF and keep their world-space content; hostile files fail
// with a clear message; written files pass the glTF validator.
#include <gtest/gtest.h>
#include <tiny_gltf.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

#include "qdxsdk/qdxsdk.h"
#include "scene_builder.h"

using namespace qdxsdk;

namespace {
namespace fs = std::filesystem;

// A 2x1 RGB PNG.
const unsigned char kPng[] = {
    0x89, 0x50, 0x4e, 0x47, 0xd,  0xa,  0x1a, 0xa,  0x0,  0x0,  0x0,  0xd,  0x49, 0x48, 0x44,
    0x52, 0x0,  0x0,  0x0,  0x2,  0x0,  0x0,  0x0,  0x1,  0x8,  0x2,  0x0,  0x0,  0x0,  0x7b,
    0x40, 0xe8, 0xdd, 0x0,  0x0,  0x0,  0xf,  0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63, 0xf8,
    0xcf, 0xc0, 0xc0, 0xf0, 0x9f, 0x1,  0x0,  0x7,  0xff, 0x1,  0xff, 0x1,  0x7f, 0x89, 0xa7,
    0x0,  0x0,  0x0,  0x0,  0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

// Appends raw data to buffer 0 as a view and an accessor on it.
int AddAccessor(tinygltf::Model& m, const void* data, size_t bytes, int componentType, int type,
                size_t count) {
    auto& buffer = m.buffers[0].data;
    buffer.resize((buffer.size() + 3) & ~size_t(3));
    tinygltf::BufferView view;
    view.buffer = 0;
    view.byteOffset = buffer.size();
    view.byteLength = bytes;
    const auto* p = static_cast<const unsigned char*>(data);
    buffer.insert(buffer.end(), p, p + bytes);
    m.bufferViews.push_back(view);
    tinygltf::Accessor a;
    a.bufferView = int(m.bufferViews.size() - 1);
    a.componentType = componentType;
    a.type = type;
    a.count = count;
    m.accessors.push_back(a);
    return int(m.accessors.size() - 1);
}

int AddFloats(tinygltf::Model& m, const std::vector<float>& v, int type, int components) {
    int index = AddAccessor(m, v.data(), v.size() * 4, TINYGLTF_COMPONENT_TYPE_FLOAT, type,
                            v.size() / size_t(components));
    if (type == TINYGLTF_TYPE_VEC3 && components == 3) {
        auto& a = m.accessors[size_t(index)];
        a.minValues = {1e9, 1e9, 1e9};
        a.maxValues = {-1e9, -1e9, -1e9};
        for (size_t i = 0; i < v.size(); ++i) {
            a.minValues[i % 3] = std::min(a.minValues[i % 3], double(v[i]));
            a.maxValues[i % 3] = std::max(a.maxValues[i % 3], double(v[i]));
        }
    }
    return index;
}

// Two nodes (TRS parent, matrix child sharing the mesh), a quad and a
// triangle in two materials with normals, two UV sets and colours, a
// base-colour texture embedded in the buffer.
tinygltf::Model MakeModel() {
    tinygltf::Model m;
    m.asset.version = "2.0";
    m.buffers.emplace_back();
    const std::vector<float> quad = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    const std::vector<float> quadNormals = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1};
    const std::vector<float> uv0 = {0, 1, 1, 1, 1, 0, 0, 0};
    const std::vector<float> uv1 = {0.5f, 0.5f, 0.25f, 0.25f, 0.75f, 0.75f, 0.1f, 0.9f};
    const std::vector<float> colors = {1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 1, 1, 1, 1, 1, 0.5f};
    const std::vector<uint16_t> quadIndices = {0, 1, 2, 0, 2, 3};
    tinygltf::Primitive a;
    a.mode = TINYGLTF_MODE_TRIANGLES;
    a.attributes["POSITION"] = AddFloats(m, quad, TINYGLTF_TYPE_VEC3, 3);
    a.attributes["NORMAL"] = AddFloats(m, quadNormals, TINYGLTF_TYPE_VEC3, 3);
    a.attributes["TEXCOORD_0"] = AddFloats(m, uv0, TINYGLTF_TYPE_VEC2, 2);
    a.attributes["TEXCOORD_1"] = AddFloats(m, uv1, TINYGLTF_TYPE_VEC2, 2);
    a.attributes["COLOR_0"] = AddFloats(m, colors, TINYGLTF_TYPE_VEC4, 4);
    a.indices = AddAccessor(m, quadIndices.data(), 12, TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT,
                            TINYGLTF_TYPE_SCALAR, 6);
    a.material = 0;
    const std::vector<float> tri = {0, 0, 1, 1, 0, 1, 0, 1, 1};
    const std::vector<float> triNormals = {0, 1, 0, 0, 1, 0, 0, 1, 0};
    tinygltf::Primitive b;
    b.mode = TINYGLTF_MODE_TRIANGLES;
    b.attributes["POSITION"] = AddFloats(m, tri, TINYGLTF_TYPE_VEC3, 3);
    b.attributes["NORMAL"] = AddFloats(m, triNormals, TINYGLTF_TYPE_VEC3, 3);
    b.material = 1;
    tinygltf::Mesh mesh;
    mesh.name = "shape";
    mesh.primitives = {a, b};
    m.meshes.push_back(mesh);

    auto& buffer = m.buffers[0].data;
    buffer.resize((buffer.size() + 3) & ~size_t(3));
    tinygltf::BufferView imageView;
    imageView.buffer = 0;
    imageView.byteOffset = buffer.size();
    imageView.byteLength = sizeof kPng;
    buffer.insert(buffer.end(), kPng, kPng + sizeof kPng);
    m.bufferViews.push_back(imageView);
    tinygltf::Image image;
    image.name = "checker";
    image.mimeType = "image/png";
    image.bufferView = int(m.bufferViews.size() - 1);
    m.images.push_back(image);
    tinygltf::Texture texture;
    texture.source = 0;
    m.textures.push_back(texture);

    tinygltf::Material red;
    red.name = "red";
    red.pbrMetallicRoughness.baseColorFactor = {0.8, 0.1, 0.2, 1.0};
    red.pbrMetallicRoughness.metallicFactor = 0.25;
    red.pbrMetallicRoughness.roughnessFactor = 0.5;
    red.pbrMetallicRoughness.baseColorTexture.index = 0;
    red.emissiveFactor = {0.1, 0.2, 0.3};
    red.emissiveTexture.index = 0;
    red.emissiveTexture.texCoord = 1;
    red.normalTexture.index = 0;
    tinygltf::Material blue;
    blue.name = "blue";
    blue.pbrMetallicRoughness.baseColorFactor = {0.1, 0.2, 0.9, 1.0};
    m.materials = {red, blue};

    tinygltf::Node parent;
    parent.name = "parent";
    parent.translation = {1, 2, 3};
    parent.rotation = {0, std::sin(0.5), 0, std::cos(0.5)}; // 57.3 degrees about Y
    parent.scale = {2, 2, 2};
    parent.mesh = 0;
    parent.children = {1};
    tinygltf::Node child;
    child.name = "child";
    // Column-major: 90 degrees about X, then moved by (0, 0, -4).
    child.matrix = {1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, -4, 1};
    child.mesh = 0;
    m.nodes = {parent, child};
    tinygltf::Scene scene;
    scene.nodes = {0};
    m.scenes.push_back(scene);
    m.defaultScene = 0;
    return m;
}

bool WriteModel(const tinygltf::Model& m, const std::string& path, bool binary) {
    tinygltf::TinyGLTF gltf;
    return gltf.WriteGltfSceneToFile(&m, path, true, true, false, binary);
}

// Every triangle corner of every mesh node, in world space, as text rows
// that compare within single precision.
struct Corner {
    std::string node, parent, material;
    double p[3], n[3], uv[2], uv2[2], c[4];
};

std::vector<Corner> Corners(QdxScene* scene) {
    std::vector<Corner> out;
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxNode* node = scene->GetNode(i);
        QdxMesh* mesh = node->GetMesh();
        if (!mesh) continue;
        const QdxAMatrix world = node->EvaluateGlobalTransform() * node->GetGeometricTransform();
        const QdxAMatrix normalMatrix = world.Inverse().Transpose();
        QdxLayerElementMaterial* slots = mesh->GetElementMaterial();
        for (int p = 0; p < mesh->GetPolygonCount(); ++p) {
            int slot = slots && slots->GetMappingMode() == QdxLayerElement::eByPolygon
                           ? slots->GetIndexArray().GetAt(p)
                           : 0;
            for (int c = 0; c < mesh->GetPolygonSize(p); ++c) {
                Corner k{};
                k.node = node->GetName();
                k.parent = node->GetParent() ? node->GetParent()->GetName() : "";
                k.material = node->GetMaterial(slot) ? node->GetMaterial(slot)->GetName() : "";
                QdxVector4 pos = world.MultT(mesh->GetControlPointAt(mesh->GetPolygonVertex(p, c)));
                QdxVector4 n;
                mesh->GetPolygonVertexNormal(p, c, n);
                n = normalMatrix.MultR(n);
                double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
                QdxVector2 uv;
                bool unmapped = false;
                mesh->GetPolygonVertexUV(p, c, "Material UV Set", uv, unmapped);
                QdxVector2 uv2;
                mesh->GetPolygonVertexUV(p, c, "Lightmap UV Set", uv2, unmapped);
                QdxColor color;
                mesh->GetPolygonVertexColor(p, c, color);
                for (int j = 0; j < 3; ++j) {
                    k.p[j] = pos[j];
                    k.n[j] = len > 0 ? n[j] / len : 0;
                }
                k.uv[0] = uv[0];
                k.uv[1] = uv[1];
                k.uv2[0] = uv2[0];
                k.uv2[1] = uv2[1];
                k.c[0] = color.mRed;
                k.c[1] = color.mGreen;
                k.c[2] = color.mBlue;
                k.c[3] = color.mAlpha;
                out.push_back(k);
            }
        }
    }
    return out;
}

// The same corners, triangle by triangle, in any polygon order.
void ExpectSameCorners(QdxScene* a, QdxScene* b) {
    std::vector<Corner> x = Corners(a), y = Corners(b);
    ASSERT_EQ(x.size(), y.size());
    std::vector<bool> used(y.size(), false);
    for (const Corner& k : x) {
        bool found = false;
        for (size_t j = 0; j < y.size() && !found; ++j) {
            const Corner& o = y[j];
            if (used[j] || o.node != k.node || o.parent != k.parent || o.material != k.material)
                continue;
            bool same = true;
            for (int i = 0; i < 3; ++i)
                same =
                    same && std::fabs(o.p[i] - k.p[i]) < 1e-5 && std::fabs(o.n[i] - k.n[i]) < 1e-5;
            for (int i = 0; i < 2; ++i)
                same = same && std::fabs(o.uv[i] - k.uv[i]) < 1e-6 &&
                       std::fabs(o.uv2[i] - k.uv2[i]) < 1e-6;
            for (int i = 0; i < 4; ++i)
                same = same && std::fabs(o.c[i] - k.c[i]) < 1e-6;
            if (same) found = used[j] = true;
        }
        EXPECT_TRUE(found) << "no match for a corner of " << k.node << " at " << k.p[0] << " "
                           << k.p[1] << " " << k.p[2];
    }
}

// Every node's materials, slot by slot: Phong colours and factors, and the
// image bytes behind each textured channel.
void ExpectSameMaterials(QdxScene* a, QdxScene* b) {
    int textured = 0;
    for (int i = 0; i < a->GetNodeCount(); ++i) {
        QdxNode* x = a->GetNode(i);
        if (x->GetMaterialCount() == 0) continue;
        SCOPED_TRACE(x->GetName());
        QdxNode* y = b->GetRootNode()->FindChild(x->GetName());
        ASSERT_TRUE(y);
        ASSERT_EQ(x->GetMaterialCount(), y->GetMaterialCount());
        for (int slot = 0; slot < x->GetMaterialCount(); ++slot) {
            auto* p = QdxCast<QdxSurfacePhong>(x->GetMaterial(slot));
            auto* q = QdxCast<QdxSurfacePhong>(y->GetMaterial(slot));
            ASSERT_TRUE(p && q);
            EXPECT_STREQ(p->GetName(), q->GetName());
            for (int c = 0; c < 3; ++c) {
                EXPECT_NEAR(p->Diffuse.Get()[c], q->Diffuse.Get()[c], 1e-6);
                EXPECT_NEAR(p->Specular.Get()[c], q->Specular.Get()[c], 1e-6);
                EXPECT_NEAR(p->Emissive.Get()[c], q->Emissive.Get()[c], 1e-6);
            }
            EXPECT_NEAR(p->Shininess.Get(), q->Shininess.Get(), 1e-6 * p->Shininess.Get());
            EXPECT_NEAR(p->SpecularFactor.Get(), q->SpecularFactor.Get(), 1e-6);
            EXPECT_NEAR(p->TransparencyFactor.Get(), q->TransparencyFactor.Get(), 1e-6);
            for (const char* channel :
                 {QdxSurfaceMaterial::sDiffuse, QdxSurfaceMaterial::sEmissive,
                  QdxSurfaceMaterial::sNormalMap, QdxSurfaceMaterial::sAmbient}) {
                auto* s = p->FindProperty(channel).GetSrcObject<QdxFileTexture>(0);
                auto* t = q->FindProperty(channel).GetSrcObject<QdxFileTexture>(0);
                ASSERT_EQ(bool(s), bool(t)) << channel;
                if (!s) continue;
                ++textured;
                EXPECT_STREQ(s->UVSet.Get().Buffer(), t->UVSet.Get().Buffer());
                EXPECT_EQ(qdxtest::ReadAll(s->GetFileName()), qdxtest::ReadAll(t->GetFileName()));
            }
        }
    }
    EXPECT_GT(textured, 0);
}

// MakeModel plus cameras and lights: a perspective camera on a turned node,
// an orthographic one, a camera on the mesh node, point, spot and
// directional lights.
tinygltf::Model MakeModelWithCamerasAndLights() {
    tinygltf::Model m = MakeModel();
    tinygltf::Camera persp;
    persp.name = "persp";
    persp.type = "perspective";
    persp.perspective = {};
    persp.perspective.yfov = 0.7;
    persp.perspective.aspectRatio = 1.5;
    persp.perspective.znear = 0.05;
    persp.perspective.zfar = 250;
    tinygltf::Camera ortho;
    ortho.name = "ortho";
    ortho.type = "orthographic";
    ortho.orthographic.xmag = 4;
    ortho.orthographic.ymag = 2;
    ortho.orthographic.znear = 0;
    ortho.orthographic.zfar = 100;
    m.cameras = {persp, ortho};
    tinygltf::Light point, spot, sun;
    point.name = "point";
    point.type = "point";
    point.color = {1, 0.5, 0.25};
    point.intensity = 30;
    point.range = 12;
    spot.name = "spot";
    spot.type = "spot";
    spot.intensity = 800;
    spot.spot.innerConeAngle = 0.2;
    spot.spot.outerConeAngle = 0.6;
    sun.name = "sun";
    sun.type = "directional";
    sun.intensity = 3;
    m.lights = {point, spot, sun};
    m.extensionsUsed.push_back("KHR_lights_punctual");

    auto add = [&](const char* name, std::vector<double> t, std::vector<double> r) {
        tinygltf::Node n;
        n.name = name;
        n.translation = t;
        n.rotation = r;
        m.nodes.push_back(n);
        m.scenes[0].nodes.push_back(int(m.nodes.size() - 1));
        return &m.nodes.back();
    };
    auto light = [](int index) {
        tinygltf::Value::Object o;
        o["light"] = tinygltf::Value(index);
        return tinygltf::Value(o);
    };
    const double h = std::sqrt(0.5);
    add("cam", {0, 1, 5}, {0, std::sin(0.3), 0, std::cos(0.3)})->camera = 0;
    add("top", {0, 10, 0}, {-h, 0, 0, h})->camera = 1;
    add("bulb", {1, 2, 3}, {})->extensions["KHR_lights_punctual"] = light(0);
    add("cone", {0, 4, 0}, {std::sin(0.2), 0, std::sin(0.2), std::cos(0.2) * std::sqrt(2.0)})
        ->extensions["KHR_lights_punctual"] = light(1);
    add("sunNode", {}, {0.1, 0.2, 0.3, std::sqrt(1 - 0.14)})->extensions["KHR_lights_punctual"] =
        light(2);
    m.nodes[0].camera = 0; // the mesh node carries a camera too
    return m;
}

// Where each camera and light sits and looks, with its values, by node name.
struct Attached {
    QdxVector4 position, forward, up;
    std::vector<double> values;
    bool hasUp = true; // a point light's up axis means nothing
};

std::map<std::string, Attached> CamerasAndLights(QdxScene* scene) {
    std::map<std::string, Attached> out;
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxNode* node = scene->GetNode(i);
        Attached a;
        QdxNodeAttribute* attribute = nullptr;
        if (QdxCamera* c = node->GetCamera()) {
            attribute = c;
            a.values = {double(c->GetProjectionType()),
                        c->GetVerticalFieldOfView(),
                        c->GetFilmAspectRatio(),
                        c->GetNearPlane(),
                        c->GetFarPlane(),
                        c->OrthoZoom.Get()};
        } else if (QdxLight* l = node->GetLight()) {
            attribute = l;
            a.hasUp = l->GetLightType() != QdxLight::ePoint;
            const QdxDouble3 color = l->Color.Get();
            a.values = {double(l->GetLightType()),
                        double(l->GetDecayType()),
                        l->Intensity.Get(),
                        color[0],
                        color[1],
                        color[2]};
            if (l->GetLightType() == QdxLight::eSpot)
                a.values.insert(a.values.end(), {l->InnerAngle.Get(), l->OuterAngle.Get()});
        }
        if (!attribute) continue;
        // Written holder nodes are named after their parent.
        std::string name = node->GetName();
        for (const char* suffix : {"_camera", "_light", "_persp"})
            if (name.size() > std::strlen(suffix) &&
                name.compare(name.size() - std::strlen(suffix), std::string::npos, suffix) == 0)
                name.resize(name.size() - std::strlen(suffix));
        const QdxNodeAttribute::WorldFrame f = attribute->EvaluateWorldFrame(node);
        a.position = f.position;
        a.forward = f.forward;
        a.up = f.up;
        out[name] = a;
    }
    return out;
}

void ExpectSameCamerasAndLights(QdxScene* a, QdxScene* b) {
    const auto x = CamerasAndLights(a), y = CamerasAndLights(b);
    ASSERT_EQ(x.size(), y.size());
    for (const auto& [name, k] : x) {
        SCOPED_TRACE(name);
        auto found = y.find(name);
        ASSERT_NE(found, y.end());
        const Attached& o = found->second;
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(o.position[i], k.position[i], 1e-5);
            EXPECT_NEAR(o.forward[i], k.forward[i], 1e-6);
            if (k.hasUp) {
                EXPECT_NEAR(o.up[i], k.up[i], 1e-6);
            }
        }
        ASSERT_EQ(o.values.size(), k.values.size());
        for (size_t i = 0; i < k.values.size(); ++i)
            EXPECT_NEAR(o.values[i], k.values[i], 1e-5 * (1 + std::fabs(k.values[i]))) << i;
    }
}

// A skinned strip: "body" (moved, which skinning ignores) carries a quad
// strip weighed between "hip" and its child "knee", whose pose (turned 90
// degrees about Z) differs from its bind pose (straight up from the hip).
tinygltf::Model MakeSkinnedModel() {
    tinygltf::Model m;
    m.asset.version = "2.0";
    m.buffers.emplace_back();
    const std::vector<float> points = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 0, 2, 0, 1, 2, 0};
    const std::vector<uint8_t> joints = {0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0,
                                         0, 1, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    const std::vector<float> weights = {1,     0,     0, 0, 1, 0, 0, 0, 0.5f, 0.5f, 0, 0,
                                        0.25f, 0.75f, 0, 0, 1, 0, 0, 0, 1,    0,    0, 0};
    const std::vector<uint16_t> indices = {0, 1, 3, 0, 3, 2, 2, 3, 5, 2, 5, 4};
    tinygltf::Primitive prim;
    prim.mode = TINYGLTF_MODE_TRIANGLES;
    prim.attributes["POSITION"] = AddFloats(m, points, TINYGLTF_TYPE_VEC3, 3);
    prim.attributes["JOINTS_0"] =
        AddAccessor(m, joints.data(), joints.size(), TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE,
                    TINYGLTF_TYPE_VEC4, 6);
    prim.attributes["WEIGHTS_0"] = AddFloats(m, weights, TINYGLTF_TYPE_VEC4, 4);
    prim.indices = AddAccessor(m, indices.data(), indices.size() * 2,
                               TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT, TINYGLTF_TYPE_SCALAR, 12);
    tinygltf::Mesh mesh;
    mesh.primitives = {prim};
    m.meshes.push_back(mesh);
    // Column-major inverse bind matrices: identity, and down by 1.
    const std::vector<float> ibm = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0,  0, 1,
                                    1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -1, 0, 1};
    tinygltf::Skin skin;
    skin.joints = {1, 2};
    skin.inverseBindMatrices = AddFloats(m, ibm, TINYGLTF_TYPE_MAT4, 16);
    m.skins.push_back(skin);
    tinygltf::Node body, hip, knee;
    body.name = "body";
    body.mesh = 0;
    body.skin = 0;
    body.translation = {5, 0, 0};
    hip.name = "hip";
    hip.children = {2};
    knee.name = "knee";
    knee.translation = {0, 1, 0};
    knee.rotation = {0, 0, std::sqrt(0.5), std::sqrt(0.5)};
    m.nodes = {body, hip, knee};
    tinygltf::Scene scene;
    scene.nodes = {0, 1};
    m.scenes.push_back(scene);
    return m;
}

// Every corner of every skinned mesh, deformed at a time, sorted.
std::vector<std::array<double, 3>> DeformedCorners(QdxScene* scene, QdxTime time = QdxTime()) {
    std::vector<std::array<double, 3>> out;
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxMesh* mesh = scene->GetNode(i)->GetMesh();
        auto* skin =
            mesh ? static_cast<QdxSkin*>(mesh->GetDeformer(0, QdxDeformer::eSkin)) : nullptr;
        std::vector<QdxVector4> points;
        if (!skin || !skin->EvaluateDeformedPoints(time, points)) continue;
        for (int p = 0; p < mesh->GetPolygonCount(); ++p)
            for (int c = 0; c < mesh->GetPolygonSize(p); ++c) {
                const QdxVector4& v = points[size_t(mesh->GetPolygonVertex(p, c))];
                out.push_back({v[0], v[1], v[2]});
            }
    }
    std::sort(out.begin(), out.end());
    return out;
}

// Two animations: "walk" moves "mover" with a cubic translation (tangents),
// a linear rotation sweeping 340 degrees about Y and a stepped scale;
// "spin" moves "spinner" linearly.
tinygltf::Model MakeAnimatedModel() {
    tinygltf::Model m;
    m.asset.version = "2.0";
    m.buffers.emplace_back();
    tinygltf::Node mover, spinner;
    mover.name = "mover";
    spinner.name = "spinner";
    spinner.translation = {0, 0, 1};
    m.nodes = {mover, spinner};
    tinygltf::Scene scene;
    scene.nodes = {0, 1};
    m.scenes.push_back(scene);
    auto sampler = [&](tinygltf::Animation& a, const std::vector<float>& times,
                       const std::vector<float>& values, int type, int components,
                       const char* interpolation, int node, const char* path) {
        tinygltf::AnimationSampler s;
        s.input = AddFloats(m, times, TINYGLTF_TYPE_SCALAR, 1);
        m.accessors[size_t(s.input)].minValues = {times.front()};
        m.accessors[size_t(s.input)].maxValues = {times.back()};
        s.output = AddFloats(m, values, type, components);
        s.interpolation = interpolation;
        a.samplers.push_back(s);
        tinygltf::AnimationChannel c;
        c.sampler = int(a.samplers.size() - 1);
        c.target_node = node;
        c.target_path = path;
        a.channels.push_back(c);
    };
    tinygltf::Animation walk, spin;
    walk.name = "walk";
    // In-tangent, value, out-tangent per key.
    sampler(walk, {0, 0.5f, 1},
            {0, 0, 0, 0, 0, 0, 2, 0, 0, 1, 1, 0, 1, 2, 0, -1, 1, 0, 0, 3, 0, 2, 2, 2, 0, 0, 0},
            TINYGLTF_TYPE_VEC3, 3, "CUBICSPLINE", 0, "translation");
    auto yaw = [](double degrees) {
        const double h = degrees * 3.14159265358979323846 / 360.0;
        return std::vector<float>{0, float(std::sin(h)), 0, float(std::cos(h))};
    };
    std::vector<float> rotations;
    for (double d : {0.0, 170.0, 340.0}) {
        auto q = yaw(d);
        rotations.insert(rotations.end(), q.begin(), q.end());
    }
    sampler(walk, {0, 0.5f, 1}, rotations, TINYGLTF_TYPE_VEC4, 4, "LINEAR", 0, "rotation");
    sampler(walk, {0, 0.4f}, {1, 1, 1, 2, 3, 4}, TINYGLTF_TYPE_VEC3, 3, "STEP", 0, "scale");
    spin.name = "spin";
    sampler(spin, {0.2f, 1.2f}, {0, 0, 1, 4, 0, 1}, TINYGLTF_TYPE_VEC3, 3, "LINEAR", 1,
            "translation");
    m.animations = {walk, spin};
    return m;
}

// What glTF says "mover" and "spinner" hold at time t (seconds): translation,
// rotation about Y (degrees, slerped the short way), scale.
struct Pose {
    double t[3], yaw, s[3];
};
Pose Expected(const std::string& animation, const std::string& node, double t) {
    Pose p{{0, 0, 0}, 0, {1, 1, 1}};
    if (animation == "spin") {
        if (node == "spinner") {
            const double u = std::clamp((t - 0.2) / 1.0, 0.0, 1.0);
            p.t[0] = 4 * u;
            p.t[2] = 1;
        } else {
            p.t[2] = 0;
        }
        if (node == "mover") return p;
        return p;
    }
    if (node == "spinner") {
        p.t[2] = 1;
        return p;
    }
    // Hermite between keys (value, out-tangent) and (value, in-tangent).
    const double keys[3][3][3] = {{{0, 0, 0}, {0, 0, 0}, {2, 0, 0}},
                                  {{1, 1, 0}, {1, 2, 0}, {-1, 1, 0}},
                                  {{0, 3, 0}, {2, 2, 2}, {0, 0, 0}}};
    const int k = t < 0.5 ? 0 : 1;
    const double dt = 0.5, u = std::clamp((t - 0.5 * k) / dt, 0.0, 1.0), u2 = u * u, u3 = u2 * u;
    for (int i = 0; i < 3; ++i)
        p.t[i] = (2 * u3 - 3 * u2 + 1) * keys[k][1][i] + (u3 - 2 * u2 + u) * dt * keys[k][2][i] +
                 (-2 * u3 + 3 * u2) * keys[k + 1][1][i] + (u3 - u2) * dt * keys[k + 1][0][i];
    p.yaw = 170.0 * std::clamp(t / 0.5, 0.0, 2.0);
    const bool before = t < double(0.4f); // the key time as the file holds it
    const double scale[3] = {before ? 1.0 : 2.0, before ? 1.0 : 3.0, before ? 1.0 : 4.0};
    std::copy(scale, scale + 3, p.s);
    return p;
}

// The node's local matrix against the pose, within single precision.
void ExpectPose(QdxNode* node, QdxTime time, const Pose& p) {
    const QdxAMatrix local = node->EvaluateLocalTransform(time);
    const QdxAMatrix expected(QdxVector4(p.t[0], p.t[1], p.t[2]), QdxVector4(0, p.yaw, 0),
                              QdxVector4(p.s[0], p.s[1], p.s[2]));
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(local.Get(i, j), expected.Get(i, j), 2e-5)
                << node->GetName() << " at " << time.GetSecondDouble() << " s, " << i << j;
}

QdxAnimStack* FindStack(QdxScene* scene, const std::string& name) {
    for (int i = 0; i < scene->GetSrcObjectCount<QdxAnimStack>(); ++i)
        if (name == scene->GetSrcObject<QdxAnimStack>(i)->GetName())
            return scene->GetSrcObject<QdxAnimStack>(i);
    return nullptr;
}

struct HostileCase {
    const char* name;
    std::function<void(tinygltf::Model&)> spoil;
    const char* message;
};

class GltfTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        dir = qdxtest::MakeTempDir("gltf");
    }
    void TearDown() override { manager->Destroy(); }
    QdxScene* Import(const std::string& path, std::string* error = nullptr) {
        QdxScene* scene = QdxScene::Create(manager, "");
        std::string e;
        bool ok = qdxtest::ImportScene(scene, path, &e);
        if (error) *error = e;
        EXPECT_TRUE(ok || error) << e;
        return ok ? scene : nullptr;
    }
    bool Export(QdxScene* scene, const std::string& path) {
        QdxExporter* exporter = QdxExporter::Create(manager, "");
        bool ok = exporter->Initialize(path.c_str(), -1) && exporter->Export(scene);
        EXPECT_TRUE(ok) << exporter->GetStatus().GetErrorString();
        exporter->Destroy();
        return ok;
    }
    // Each spoilt model fails to import with a message holding the case's.
    void ExpectFailures(tinygltf::Model (*make)(), const std::vector<HostileCase>& cases) {
        for (const HostileCase& c : cases) {
            SCOPED_TRACE(c.name);
            tinygltf::Model m = make();
            c.spoil(m);
            ASSERT_TRUE(WriteModel(m, dir + "/hostile.gltf", false));
            std::string error;
            EXPECT_FALSE(Import(dir + "/hostile.gltf", &error));
            EXPECT_NE(error.find(c.message), std::string::npos) << error;
        }
    }
    QdxManager* manager = nullptr;
    std::string dir;
};

TEST_F(GltfTest, ReadsHierarchyMeshesMaterialsAndTextures) {
    const std::string path = dir + "/model.glb";
    ASSERT_TRUE(WriteModel(MakeModel(), path, true));
    QdxScene* scene = Import(path);
    ASSERT_TRUE(scene);
    QdxNode* parent = scene->GetRootNode()->FindChild("parent", false);
    ASSERT_TRUE(parent);
    QdxNode* child = parent->FindChild("child", false);
    ASSERT_TRUE(child);
    EXPECT_EQ(parent->GetMesh(), child->GetMesh()) << "one mesh, two instances";
    EXPECT_EQ(scene->GetGlobalSettings().GetAxisSystem(), QdxAxisSystem::ToveYUp);
    EXPECT_EQ(scene->GetGlobalSettings().GetSystemUnit(), QdxSystemUnit::m);

    // Corner (1, 1, 0) of the quad under the child: child matrix then parent TRS.
    QdxAMatrix world = child->EvaluateGlobalTransform();
    QdxVector4 p = world.MultT(QdxVector4(1, 1, 0));
    // Child: (1, 0, 1) - (0, 0, 4) = (1, 0, -3); parent: scale 2, yaw 1 rad, move (1, 2, 3).
    const double x = 2, z = -6, c = std::cos(1.0), s = std::sin(1.0);
    EXPECT_NEAR(p[0], 1 + c * x + s * z, 1e-6);
    EXPECT_NEAR(p[1], 2, 1e-6);
    EXPECT_NEAR(p[2], 3 - s * x + c * z, 1e-6);

    QdxMesh* mesh = parent->GetMesh();
    EXPECT_EQ(mesh->GetPolygonCount(), 3);
    EXPECT_EQ(mesh->GetControlPointsCount(), 7);
    QdxStringList uvSets;
    mesh->GetUVSetNames(uvSets);
    ASSERT_EQ(uvSets.GetCount(), 2);
    EXPECT_STREQ(uvSets[0].Buffer(), "Material UV Set");
    EXPECT_STREQ(uvSets[1].Buffer(), "Lightmap UV Set");
    // V is flipped: glTF (1, 0) at corner 2 becomes (1, 1).
    QdxVector2 uv;
    bool unmapped = true;
    ASSERT_TRUE(mesh->GetPolygonVertexUV(0, 2, "Material UV Set", uv, unmapped));
    EXPECT_DOUBLE_EQ(uv[0], 1.0);
    EXPECT_DOUBLE_EQ(uv[1], 1.0);
    QdxColor color;
    ASSERT_TRUE(mesh->GetPolygonVertexColor(1, 2, color));
    EXPECT_DOUBLE_EQ(color.mAlpha, 0.5);

    ASSERT_EQ(parent->GetMaterialCount(), 2);
    auto* red = QdxCast<QdxSurfacePhong>(parent->GetMaterial(0));
    ASSERT_TRUE(red);
    EXPECT_STREQ(red->GetName(), "red");
    EXPECT_NEAR(red->Diffuse.Get()[0], 0.8, 1e-12);
    EXPECT_NEAR(red->Emissive.Get()[2], 0.3, 1e-12);
    auto* texture = red->FindProperty(QdxSurfaceMaterial::sDiffuse).GetSrcObject<QdxFileTexture>(0);
    ASSERT_TRUE(texture);
    EXPECT_EQ(qdxtest::ReadAll(texture->GetFileName()),
              std::string(reinterpret_cast<const char*>(kPng), sizeof kPng))
        << "the embedded image is written beside the file";
    EXPECT_EQ(mesh->GetElementMaterial()->GetIndexArray().GetAt(2), 1) << "the triangle is blue";
}

TEST_F(GltfTest, RoundTripThroughQdxKeepsWorldSpaceContent) {
    for (bool binary : {true, false}) {
        SCOPED_TRACE(binary ? "glb" : "gltf");
        const std::string ext = binary ? ".glb" : ".gltf";
        const std::string original = dir + "/original" + ext;
        ASSERT_TRUE(WriteModel(MakeModel(), original, binary));
        QdxScene* first = Import(original);
        ASSERT_TRUE(first);
        ASSERT_TRUE(Export(first, dir + "/middle.qdx"));
        QdxScene* middle = Import(dir + "/middle.qdx");
        ASSERT_TRUE(middle);
        ASSERT_TRUE(Export(middle, dir + "/again" + ext));
        QdxScene* again = Import(dir + "/again" + ext);
        ASSERT_TRUE(again);
        ExpectSameCorners(first, again);
        ExpectSameMaterials(first, again);
        auto* red = QdxCast<QdxSurfacePhong>(
            again->GetRootNode()->FindChild("parent", false)->GetMaterial(0));
        ASSERT_TRUE(red);
        EXPECT_NEAR(red->Diffuse.Get()[1], 0.1, 1e-12);
        EXPECT_NEAR(red->FindProperty("metallicFactor").Get<double>(), 0.25, 1e-12);
        EXPECT_NEAR(red->FindProperty("roughnessFactor").Get<double>(), 0.5, 1e-12);
        auto* texture =
            red->FindProperty(QdxSurfaceMaterial::sDiffuse).GetSrcObject<QdxFileTexture>(0);
        ASSERT_TRUE(texture);
        EXPECT_EQ(qdxtest::ReadAll(texture->GetFileName()).size(), sizeof kPng);
    }
}

TEST_F(GltfTest, WritesZUpCentimetreScenesAsYUpMetres) {
    QdxScene* scene = QdxScene::Create(manager, "");
    scene->GetGlobalSettings().SetAxisSystem(QdxAxisSystem::ToveZUp);
    scene->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::cm);
    QdxNode* node = QdxNode::Create(scene, "box");
    scene->GetRootNode()->AddChild(node);
    node->LclTranslation.Set(QdxDouble3(0, 0, 100)); // one metre up
    QdxMesh* mesh = QdxMesh::Create(scene, "tri");
    mesh->InitControlPoints(3);
    mesh->SetControlPointAt(QdxVector4(0, 0, 0), 0);
    mesh->SetControlPointAt(QdxVector4(50, 0, 0), 1);
    mesh->SetControlPointAt(QdxVector4(0, 0, 50), 2);
    const int sizes[] = {3}, corners[] = {0, 1, 2};
    mesh->AddPolygons(sizes, 1, corners);
    node->SetNodeAttribute(mesh);
    ASSERT_TRUE(Export(scene, dir + "/zup.glb"));
    QdxScene* back = Import(dir + "/zup.glb");
    ASSERT_TRUE(back);
    std::vector<Corner> corners2 = Corners(back);
    ASSERT_EQ(corners2.size(), 3u);
    EXPECT_NEAR(corners2[0].p[1], 1.0, 1e-9); // Z up 100 cm -> Y up 1 m
    EXPECT_NEAR(corners2[2].p[1], 1.5, 1e-9); // the point 50 cm above it
    EXPECT_NEAR(corners2[1].p[0], 0.5, 1e-9); // X stays X
    EXPECT_TRUE(QdxGetConversionNotes(back).empty());
}

TEST_F(GltfTest, DetectsByContentThenSuffix) {
    ASSERT_TRUE(WriteModel(MakeModel(), dir + "/binary.data", true));
    ASSERT_TRUE(WriteModel(MakeModel(), dir + "/text.data", false));
    QdxImporter* importer = QdxImporter::Create(manager, "");
    QdxIOPluginRegistry* registry = manager->GetIOPluginRegistry();
    ASSERT_TRUE(importer->Initialize((dir + "/binary.data").c_str(), -1));
    EXPECT_EQ(importer->GetFileFormat(),
              registry->FindReaderIDByDescription("glTF 2.0 binary (*.glb)"));
    ASSERT_TRUE(importer->Initialize((dir + "/text.data").c_str(), -1));
    EXPECT_EQ(importer->GetFileFormat(), registry->FindReaderIDByDescription("glTF 2.0 (*.gltf)"));
    EXPECT_EQ(registry->FindReaderIDByExtension("glb"), 2);
    EXPECT_EQ(registry->FindWriterIDByExtension("gltf"), 3);
    importer->Destroy();
}

// Each hostile file fails with a message naming the problem.
TEST_F(GltfTest, HostileFilesFailClearly) {
    const std::vector<HostileCase> cases = {
        {"accessor past its view", [](tinygltf::Model& m) { m.accessors[0].count = 5; },
         "past the end of its buffer view"},
        {"huge count", [](tinygltf::Model& m) { m.accessors[0].count = size_t(1) << 40; },
         "too many elements"},
        {"view past its buffer", [](tinygltf::Model& m) { m.bufferViews[0].byteLength = 1 << 30; },
         "past the end of its buffer"},
        {"cyclic nodes", [](tinygltf::Model& m) { m.nodes[1].children = {0}; }, "cycle"},
        {"own parent", [](tinygltf::Model& m) { m.nodes[1].children = {1}; }, "its own parent"},
        {"two parents",
         [](tinygltf::Model& m) {
             m.nodes[2].children = {1}; // "child" also under "cam"
         },
         "more than one parent"},
        {"child past the nodes",
         [](tinygltf::Model& m) {
             m.nodes[0].children = {1, 99};
         },
         "child that does not exist"},
        {"index past vertices",
         [](tinygltf::Model& m) {
             uint16_t bad = 40;
             auto& v = m.bufferViews[size_t(m.accessors[5].bufferView)];
             std::memcpy(&m.buffers[0].data[v.byteOffset], &bad, 2);
         },
         "index is past its vertices"},
        {"missing image",
         [](tinygltf::Model& m) {
             m.images[0].bufferView = -1;
             m.images[0].uri = "nowhere.png";
         },
         "does not exist"},
        {"missing material", [](tinygltf::Model& m) { m.meshes[0].primitives[0].material = 9; },
         "material that does not exist"},
        {"flat camera", [](tinygltf::Model& m) { m.cameras[0].perspective.yfov = 4; },
         "field of view"},
        {"camera planes", [](tinygltf::Model& m) { m.cameras[1].orthographic.zfar = -1; },
         "near and far planes"},
        {"missing light",
         [](tinygltf::Model& m) {
             m.nodes.back()
                 .extensions["KHR_lights_punctual"]
                 .Get<tinygltf::Value::Object>()["light"] = tinygltf::Value(7);
         },
         "light that does not exist"},
        {"inverted cone", [](tinygltf::Model& m) { m.lights[1].spot.innerConeAngle = 0.9; },
         "cone angles"},
    };
    ExpectFailures(MakeModelWithCamerasAndLights, cases);
    qdxtest::WriteAll(dir + "/bad.gltf", "{\"asset\": {\"version\": \"2.0\"}, \"nodes\": [");
    std::string error;
    EXPECT_FALSE(Import(dir + "/bad.gltf", &error));
    EXPECT_NE(error.find("Not a valid glTF file"), std::string::npos) << error;
    qdxtest::WriteAll(dir + "/short.glb", std::string("glTF\x02\0\0\0\xff\xff\0\0", 12));
    EXPECT_FALSE(Import(dir + "/short.glb", &error));
}

// Tangents, morph targets and their animated weights are reported, and the
// rest of the mesh still arrives.
TEST_F(GltfTest, NotesWhatIsNotCarried) {
    tinygltf::Model m = MakeModel();
    m.meshes[0].primitives[0].attributes["TANGENT"] =
        AddFloats(m, {1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1}, TINYGLTF_TYPE_VEC4, 4);
    const std::vector<float> offsets = {0, 0, 1, 0, 0, 1, 0, 0, 1};
    const int target = AddFloats(m, offsets, TINYGLTF_TYPE_VEC3, 3);
    m.meshes[0].primitives[1].targets.push_back({{"POSITION", target}});
    m.meshes[0].weights = {0.5};
    tinygltf::Animation a;
    tinygltf::AnimationSampler s;
    s.input = AddFloats(m, {0, 1}, TINYGLTF_TYPE_SCALAR, 1);
    m.accessors[size_t(s.input)].minValues = {0};
    m.accessors[size_t(s.input)].maxValues = {1};
    s.output = AddFloats(m, {0, 1}, TINYGLTF_TYPE_SCALAR, 1);
    a.samplers.push_back(s);
    tinygltf::AnimationChannel c;
    c.sampler = 0;
    c.target_node = 0;
    c.target_path = "weights";
    a.channels.push_back(c);
    m.animations.push_back(a);
    ASSERT_TRUE(WriteModel(m, dir + "/notes.glb", true));
    QdxScene* scene = Import(dir + "/notes.glb");
    ASSERT_TRUE(scene);
    std::string all;
    for (const std::string& note : QdxGetConversionNotes(scene))
        all += note + "\n";
    EXPECT_NE(all.find("TANGENT is not carried"), std::string::npos) << all;
    EXPECT_NE(all.find("morph targets are not carried"), std::string::npos) << all;
    EXPECT_NE(all.find("animated weights is not carried"), std::string::npos) << all;
    ASSERT_TRUE(WriteModel(MakeModel(), dir + "/plain.glb", true));
    QdxScene* plain = Import(dir + "/plain.glb");
    ASSERT_TRUE(plain);
    ExpectSameCorners(plain, scene);
}

TEST_F(GltfTest, CamerasAndLightsLookAlongGltfAxesAndKeepTheirValues) {
    ASSERT_TRUE(WriteModel(MakeModelWithCamerasAndLights(), dir + "/cl.gltf", false));
    QdxScene* scene = Import(dir + "/cl.gltf");
    ASSERT_TRUE(scene);
    EXPECT_TRUE(QdxGetConversionNotes(scene).empty()) << QdxGetConversionNotes(scene).front();
    const auto all = CamerasAndLights(scene);
    ASSERT_EQ(all.size(), 6u);
    // Each looks along its node's -Z with +Y up.
    for (const char* name : {"cam", "top", "cone", "sunNode", "parent"}) {
        SCOPED_TRACE(name);
        QdxNode* node = scene->GetRootNode()->FindChild(name);
        ASSERT_TRUE(node);
        const QdxAMatrix world = node->EvaluateGlobalTransform();
        QdxVector4 forward = world.MultR(QdxVector4(0, 0, -1, 0)),
                   up = world.MultR(QdxVector4(0, 1, 0, 0));
        const double fl =
            std::sqrt(forward[0] * forward[0] + forward[1] * forward[1] + forward[2] * forward[2]);
        const double ul = std::sqrt(up[0] * up[0] + up[1] * up[1] + up[2] * up[2]);
        const Attached& a = all.at(name);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(a.forward[i], forward[i] / fl, 1e-9);
            EXPECT_NEAR(a.up[i], up[i] / ul, 1e-9);
            EXPECT_NEAR(a.position[i], world.GetT()[i], 1e-9);
        }
    }
    // The top camera is turned to look straight down.
    EXPECT_NEAR(all.at("top").forward[1], -1.0, 1e-9);
    const double deg = 180.0 / 3.14159265358979323846;
    const std::vector<double> persp = all.at("cam").values, ortho = all.at("top").values;
    EXPECT_NEAR(persp[1], 0.7 * deg, 1e-9);
    EXPECT_NEAR(persp[2], 1.5, 1e-12);
    EXPECT_NEAR(persp[3], 0.05, 1e-12);
    EXPECT_NEAR(persp[4], 250, 1e-12);
    EXPECT_EQ(ortho[0], double(QdxCamera::eOrthogonal));
    EXPECT_NEAR(ortho[2], 2.0, 1e-12) << "xmag / ymag";
    EXPECT_NEAR(ortho[5] * 30, 4.0, 1e-12) << "the view is 2 * ymag high";
    const std::vector<double> spot = all.at("cone").values;
    EXPECT_EQ(spot[0], double(QdxLight::eSpot));
    EXPECT_EQ(spot[1], double(QdxLight::eQuadratic));
    EXPECT_NEAR(spot[2], 80000, 1e-9);
    EXPECT_NEAR(spot[6], 0.4 * deg, 1e-9) << "full cone angles in degrees";
    EXPECT_NEAR(spot[7], 1.2 * deg, 1e-9);
    EXPECT_EQ(all.at("sunNode").values[1], double(QdxLight::eNone));
    EXPECT_NEAR(all.at("bulb").values[4], 0.5, 1e-12);
    EXPECT_NEAR(
        scene->GetRootNode()->FindChild("bulb")->GetLight()->FindProperty("range").Get<double>(),
        12, 0);
    EXPECT_EQ(scene->GetRootNode()->FindChild("cam")->GetCamera(),
              scene->GetRootNode()->FindChild("parent_persp")->GetCamera())
        << "one camera, two nodes; the mesh node's camera sits on a child";

    // glTF -> Qdx -> glTF keeps all of it.
    for (const char* ext : {".glb", ".gltf"}) {
        SCOPED_TRACE(ext);
        ASSERT_TRUE(Export(scene, dir + "/cl.qdx"));
        QdxScene* middle = Import(dir + "/cl.qdx");
        ASSERT_TRUE(middle);
        ASSERT_TRUE(Export(middle, dir + "/again" + std::string(ext)));
        QdxScene* again = Import(dir + "/again" + std::string(ext));
        ASSERT_TRUE(again);
        ExpectSameCamerasAndLights(scene, again);
        EXPECT_TRUE(QdxGetConversionNotes(again).empty());
        EXPECT_NEAR(again->GetRootNode()
                        ->FindChild("bulb")
                        ->GetLight()
                        ->FindProperty("range")
                        .Get<double>(),
                    12, 1e-12);
    }
}

// A Z-up centimetre scene's camera and light keep their world frames in
// metres (the writer adds the turn on a node of their own).
TEST_F(GltfTest, WritesSdkCamerasAndLightsInTheirWorldFrames) {
    QdxScene* scene = QdxScene::Create(manager, "");
    scene->GetGlobalSettings().SetAxisSystem(QdxAxisSystem::ToveZUp);
    scene->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::cm);
    QdxNode* camNode = QdxNode::Create(scene, "cam");
    camNode->LclTranslation.Set(QdxDouble3(100, -200, 50));
    camNode->LclRotation.Set(QdxDouble3(10, 20, 30));
    QdxCamera* cam = QdxCamera::Create(scene, "lens");
    cam->SetNearPlane(10);
    cam->SetFarPlane(5000);
    camNode->SetNodeAttribute(cam);
    QdxNode* lightNode = QdxNode::Create(scene, "lamp");
    lightNode->LclRotation.Set(QdxDouble3(-40, 0, 15));
    QdxLight* light = QdxLight::Create(scene, "lampShape");
    light->SetLightType(QdxLight::eDirectional);
    light->SetDecayType(QdxLight::eNone);
    lightNode->SetNodeAttribute(light);
    scene->GetRootNode()->AddChild(camNode);
    camNode->AddChild(lightNode); // a child keeps its frame under a turned parent
    ASSERT_TRUE(Export(scene, dir + "/sdk.glb"));
    QdxScene* back = Import(dir + "/sdk.glb");
    ASSERT_TRUE(back);
    EXPECT_TRUE(QdxGetConversionNotes(back).empty());
    const auto before = CamerasAndLights(scene), after = CamerasAndLights(back);
    ASSERT_EQ(after.size(), 2u);
    const QdxAMatrix toYUp = QdxAxisSystem::ToveYUp.GetConversionFrom(QdxAxisSystem::ToveZUp);
    for (const char* name : {"cam", "lamp"}) {
        SCOPED_TRACE(name);
        const Attached &a = before.at(name), &b = after.at(name);
        const QdxVector4 p = toYUp.MultT(a.position), f = toYUp.MultR(a.forward),
                         u = toYUp.MultR(a.up);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(b.position[i], p[i] / 100, 1e-9);
            EXPECT_NEAR(b.forward[i], f[i], 1e-9);
            EXPECT_NEAR(b.up[i], u[i], 1e-9);
        }
    }
    EXPECT_NEAR(after.at("cam").values[3], 0.1, 1e-12) << "near plane in metres";
    EXPECT_NEAR(after.at("cam").values[1], cam->GetVerticalFieldOfView(), 1e-9);
}

TEST_F(GltfTest, SkinsDeformAsGltfSaysAndSurviveTheRoundTrip) {
    ASSERT_TRUE(WriteModel(MakeSkinnedModel(), dir + "/skin.glb", true));
    QdxScene* scene = Import(dir + "/skin.glb");
    ASSERT_TRUE(scene);
    EXPECT_TRUE(QdxGetConversionNotes(scene).empty()) << QdxGetConversionNotes(scene).front();
    QdxNode* knee = scene->GetRootNode()->FindChild("knee");
    ASSERT_TRUE(knee && knee->GetSkeleton());
    EXPECT_EQ(knee->GetSkeleton()->GetSkeletonType(), QdxSkeleton::eLimbNode);
    EXPECT_EQ(scene->GetRootNode()->FindChild("hip")->GetSkeleton()->GetSkeletonType(),
              QdxSkeleton::eRoot);
    // The hip stays; a point bound to the knee moves by knee * ibm:
    // (x, y) -> (1 - y, x + 1).
    auto kneeMove = [](double x, double y) { return std::array<double, 2>{-(y - 1), x + 1}; };
    const double points[6][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0, 2}, {1, 2}};
    const double kneeWeight[6] = {0, 0, 0.5, 0.75, 0, 0};
    const double pureKnee[6] = {0, 0, 0, 0, 1, 1};
    std::vector<std::array<double, 3>> expected;
    const int corners[12] = {0, 1, 3, 0, 3, 2, 2, 3, 5, 2, 5, 4};
    for (int c : corners) {
        const double x = points[c][0], y = points[c][1];
        const double w = pureKnee[c] ? 1.0 : kneeWeight[c];
        const auto k = kneeMove(x, y);
        expected.push_back({(1 - w) * x + w * k[0], (1 - w) * y + w * k[1], 0});
    }
    std::sort(expected.begin(), expected.end());
    const auto first = DeformedCorners(scene);
    ASSERT_EQ(first.size(), expected.size());
    for (size_t i = 0; i < first.size(); ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(first[i][size_t(j)], expected[i][size_t(j)], 1e-6) << i;

    for (const char* ext : {".glb", ".gltf"}) {
        SCOPED_TRACE(ext);
        ASSERT_TRUE(Export(scene, dir + "/skin.qdx"));
        QdxScene* middle = Import(dir + "/skin.qdx");
        ASSERT_TRUE(middle);
        // Move the mesh node: skinning ignores it both ways.
        middle->GetRootNode()->FindChild("body")->LclTranslation.Set(QdxDouble3(0, 7, 0));
        ASSERT_TRUE(Export(middle, dir + "/skin-again" + std::string(ext)));
        QdxScene* again = Import(dir + "/skin-again" + std::string(ext));
        ASSERT_TRUE(again);
        const auto second = DeformedCorners(again);
        ASSERT_EQ(second.size(), first.size());
        for (size_t i = 0; i < first.size(); ++i)
            for (int j = 0; j < 3; ++j)
                EXPECT_NEAR(second[i][size_t(j)], first[i][size_t(j)], 1e-5) << i;
    }
}

TEST_F(GltfTest, HostileSkinsFailClearly) {
    const std::vector<HostileCase> cases = {
        {"joint index past the skin",
         [](tinygltf::Model& m) {
             auto& v = m.bufferViews[size_t(m.accessors[1].bufferView)];
             m.buffers[0].data[v.byteOffset + 4] = 9;
         },
         "past its skin's joints"},
        {"missing joint node",
         [](tinygltf::Model& m) {
             m.skins[0].joints = {1, 99};
         },
         "joint that does not exist"},
        {"too few matrices", [](tinygltf::Model& m) { m.accessors.back().count = 1; },
         "fewer inverse bind matrices"},
        {"negative weight",
         [](tinygltf::Model& m) {
             const float bad = -1;
             auto& v = m.bufferViews[size_t(m.accessors[2].bufferView)];
             std::memcpy(&m.buffers[0].data[v.byteOffset], &bad, 4);
         },
         "negative"},
    };
    ExpectFailures(MakeSkinnedModel, cases);
}

TEST_F(GltfTest, AnimationsEvaluateAsGltfSaysAndSurviveTheRoundTrip) {
    ASSERT_TRUE(WriteModel(MakeAnimatedModel(), dir + "/anim.gltf", false));
    QdxScene* scene = Import(dir + "/anim.gltf");
    ASSERT_TRUE(scene);
    EXPECT_TRUE(QdxGetConversionNotes(scene).empty()) << QdxGetConversionNotes(scene).front();
    const double fps = scene->GetGlobalSettings().GetFrameRate();
    // Cubic translation and slerped rotation hold between frames too; the
    // step holds until its next key.
    for (const char* name : {"walk", "spin"}) {
        QdxAnimStack* stack = FindStack(scene, name);
        ASSERT_TRUE(stack) << name;
        scene->SetCurrentAnimationStack(stack);
        for (const char* node : {"mover", "spinner"})
            for (double frame = 0; frame <= 1.3 * fps; frame += 0.5) {
                QdxTime time;
                time.SetSecondDouble(frame / fps);
                ExpectPose(scene->GetRootNode()->FindChild(node), time,
                           Expected(name, node, frame / fps));
            }
    }
    // The Euler curves are continuous: no jump where the yaw passes 180.
    scene->SetCurrentAnimationStack(FindStack(scene, "walk"));
    QdxNode* mover = scene->GetRootNode()->FindChild("mover");
    QdxAnimCurve* yaw = mover->LclRotation.GetCurve(FindStack(scene, "walk")->GetLayer(0), "Y");
    ASSERT_TRUE(yaw);
    for (int k = 1; k < yaw->KeyGetCount(); ++k)
        EXPECT_LT(std::fabs(yaw->KeyGetValue(k) - yaw->KeyGetValue(k - 1)), 180.0);

    // glTF -> Qdx -> glTF: sampled at frames, the same at every frame.
    for (const char* ext : {".glb", ".gltf"}) {
        SCOPED_TRACE(ext);
        ASSERT_TRUE(Export(scene, dir + "/anim.qdx"));
        QdxScene* middle = Import(dir + "/anim.qdx");
        ASSERT_TRUE(middle);
        ASSERT_TRUE(Export(middle, dir + "/anim-again" + std::string(ext)));
        QdxScene* again = Import(dir + "/anim-again" + std::string(ext));
        ASSERT_TRUE(again);
        EXPECT_TRUE(QdxGetConversionNotes(middle).empty());
        for (const char* name : {"walk", "spin"}) {
            QdxAnimStack* stack = FindStack(again, name);
            ASSERT_TRUE(stack) << name;
            again->SetCurrentAnimationStack(stack);
            for (const char* node : {"mover", "spinner"})
                for (double frame = 0; frame <= 1.2 * fps; frame += 1) {
                    QdxTime time;
                    time.SetSecondDouble(frame / fps);
                    // The stepped scale changes within the frame before its key.
                    if (std::string(name) == "walk" && std::fabs(frame / fps - 0.4) < 1.0 / fps)
                        continue;
                    ExpectPose(again->GetRootNode()->FindChild(node), time,
                               Expected(name, node, frame / fps));
                }
        }
    }
}

TEST_F(GltfTest, HostileAnimationsFailClearly) {
    const std::vector<HostileCase> cases = {
        {"input not increasing",
         [](tinygltf::Model& m) {
             const float back = 0.1f;
             const auto& a = m.accessors[size_t(m.animations[0].samplers[0].input)];
             auto& v = m.bufferViews[size_t(a.bufferView)];
             std::memcpy(&m.buffers[0].data[v.byteOffset + 8], &back, 4);
         },
         "not increasing"},
        {"output short",
         [](tinygltf::Model& m) { m.animations[0].samplers[0].interpolation = "LINEAR"; },
         "output count"},
        {"missing node", [](tinygltf::Model& m) { m.animations[1].channels[0].target_node = 7; },
         "node that does not exist"},
        {"missing sampler", [](tinygltf::Model& m) { m.animations[1].channels[0].sampler = 3; },
         "sampler that does not exist"},
        {"huge output",
         [](tinygltf::Model& m) {
             m.accessors[size_t(m.animations[1].samplers[0].output)].count = size_t(1) << 40;
         },
         "too many elements"},
    };
    ExpectFailures(MakeAnimatedModel, cases);
}

// Every file the writer makes passes the glTF validator without errors.
TEST_F(GltfTest, WrittenFilesPassTheValidator) {
    if (std::system("node --version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "node is not installed";
    const std::string script = QDX_VALIDATE_GLTF;
    if (std::system(("node " + script + " > /dev/null 2>&1").c_str()) == 3 * 256)
        GTEST_SKIP()
            << "the gltf-validator package is not installed (scripts/setup.sh installs it)";
    // Each model made here, read and written again both ways, and a scene
    // holding every kind of object the SDK has.
    std::vector<std::pair<std::string, QdxScene*>> scenes;
    const std::pair<const char*, tinygltf::Model (*)()> models[] = {
        {"model", MakeModel},
        {"cameras", MakeModelWithCamerasAndLights},
        {"skin", MakeSkinnedModel},
        {"anim", MakeAnimatedModel}};
    for (const auto& [name, make] : models) {
        ASSERT_TRUE(WriteModel(make(), dir + "/" + name + "-in.glb", true));
        QdxScene* scene = Import(dir + "/" + name + "-in.glb");
        ASSERT_TRUE(scene) << name;
        scenes.emplace_back(name, scene);
    }
    QdxScene* everything = QdxScene::Create(manager, "");
    qdxtest::BuildEverythingScene(everything);
    scenes.emplace_back("everything", everything);
    std::string files;
    for (const auto& [name, scene] : scenes)
        for (const char* ext : {".glb", ".gltf"}) {
            const std::string out = dir + "/" + name + "-out" + ext;
            ASSERT_TRUE(Export(scene, out));
            files += " " + out;
        }
    const std::string command = "node " + script + files + " > " + dir + "/report.txt 2>&1";
    const int rc = std::system(command.c_str());
    EXPECT_EQ(rc, 0) << qdxtest::ReadAll(dir + "/report.txt");
}

} // namespace
