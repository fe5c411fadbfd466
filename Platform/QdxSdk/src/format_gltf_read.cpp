// The glTF 2.0 reader: tinygltf parses the file; everything the scene is
// built from (indices, accessor ranges, the node hierarchy) is checked here
// before a single object is created. Meshes are decoded on the reading
// thread; Publish creates the objects.
#include <tiny_gltf.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "format_gltf.h"
#include "format_gltf_anim.h"
#include "format_gltf_attributes.h"
#include "format_gltf_skin.h"
#include "qdxsdk/attributes.h"
#include "qdxsdk/geometry.h"
#include "qdxsdk/gltf_images.h"
#include "qdxsdk/material.h"
#include "qdxsdk/mesh.h"
#include "qdxsdk/node.h"
#include "qdxsdk/scene.h"

namespace qdxsdk::format {

namespace {
namespace fs = std::filesystem;

// The largest element count a mesh may hold (the SDK indexes with int).
constexpr size_t kMaxElements = size_t(INT_MAX) / 4;

bool Fail(QdxStatus& status, const std::string& text) {
    status.SetCode(QdxStatus::eInvalidFile, text);
    return false;
}

// Keeps an image's encoded bytes: the scene refers to image files, so
// nothing is decoded.
bool KeepImageBytes(tinygltf::Image* image, const int, std::string*, std::string*, int, int,
                    const unsigned char* bytes, int size, void*) {
    if (size > 0) image->image.assign(bytes, bytes + size);
    image->as_is = true;
    return true;
}

// One mesh decoded: control points and per-control-point attributes of
// every carried primitive, triangles, and a material slot per triangle.
struct MeshData {
    std::vector<double> points, normals, colors; // xyz, xyz, rgba
    std::vector<std::vector<double>> uvs;        // per TEXCOORD_n: uv
    std::vector<int> triangles;                  // control points, 3 per triangle
    std::vector<int> triangleSlots;              // material slot per triangle
    std::vector<int> materials;                  // glTF material per slot, -1: default
    std::vector<double> joints, weights;         // JOINTS_0, WEIGHTS_0: 4 per point
    bool hasNormals = false, hasColors = false, hasSkinWeights = false;
};

class GltfReader {
public:
    GltfReader(const tinygltf::Model& model, std::vector<std::string>& notes)
        : m(model), mNotes(notes) {}

    // Reads accessor `index` as `components` doubles per element (ints are
    // normalised when the accessor says so).
    bool ReadAccessor(int index, const std::vector<int>& types, std::vector<double>& out,
                      int& components, QdxStatus& status, const std::string& what) const {
        if (index < 0 || size_t(index) >= m.accessors.size())
            return Fail(status, what + " names accessor " + std::to_string(index) +
                                    ", which does not exist");
        const tinygltf::Accessor& a = m.accessors[size_t(index)];
        const std::string name = what + " (accessor " + std::to_string(index) + ")";
        components = tinygltf::GetNumComponentsInType(uint32_t(a.type));
        bool typeOk = false;
        for (int t : types)
            typeOk = typeOk || t == a.type;
        if (!typeOk || components <= 0) return Fail(status, name + " has an unexpected type");
        int size = tinygltf::GetComponentSizeInBytes(uint32_t(a.componentType));
        if (size <= 0) return Fail(status, name + " has an unknown component type");
        if (a.sparse.isSparse) return Fail(status, name + " is sparse, which is not supported");
        if (a.count > kMaxElements) return Fail(status, name + " has too many elements");
        const size_t elem = size_t(size) * size_t(components);
        out.assign(a.count * size_t(components), 0.0);
        if (a.bufferView < 0) return true; // all zeros
        if (size_t(a.bufferView) >= m.bufferViews.size())
            return Fail(status, name + " names a buffer view that does not exist");
        const tinygltf::BufferView& v = m.bufferViews[size_t(a.bufferView)];
        if (v.buffer < 0 || size_t(v.buffer) >= m.buffers.size())
            return Fail(status, name + " names a buffer that does not exist");
        const std::vector<unsigned char>& data = m.buffers[size_t(v.buffer)].data;
        if (v.byteOffset > data.size() || v.byteLength > data.size() - v.byteOffset)
            return Fail(status, name + ": its buffer view lies past the end of its buffer");
        const size_t stride = v.byteStride ? v.byteStride : elem;
        if (stride < elem) return Fail(status, name + ": the buffer view's stride is too small");
        if (a.count == 0) return true;
        if (a.byteOffset > v.byteLength || elem > v.byteLength - a.byteOffset ||
            (a.count - 1) > (v.byteLength - a.byteOffset - elem) / stride)
            return Fail(status, name + " lies past the end of its buffer view");
        const unsigned char* base = data.data() + v.byteOffset + a.byteOffset;
        for (size_t i = 0; i < a.count; ++i)
            for (int c = 0; c < components; ++c)
                out[i * size_t(components) + size_t(c)] = Component(
                    base + i * stride + size_t(c) * size_t(size), a.componentType, a.normalized);
        return true;
    }

    bool DecodeMesh(int meshIndex, MeshData& out, QdxStatus& status) const {
        const tinygltf::Mesh& mesh = m.meshes[size_t(meshIndex)];
        const std::string meshName = "Mesh " + std::to_string(meshIndex);
        for (size_t p = 0; p < mesh.primitives.size(); ++p) {
            const tinygltf::Primitive& prim = mesh.primitives[p];
            const std::string what = meshName + " primitive " + std::to_string(p);
            if (prim.mode != TINYGLTF_MODE_TRIANGLES && prim.mode != TINYGLTF_MODE_TRIANGLE_STRIP &&
                prim.mode != TINYGLTF_MODE_TRIANGLE_FAN && prim.mode != -1) {
                mNotes.push_back(what + ": points and lines are not carried");
                continue;
            }
            auto position = prim.attributes.find("POSITION");
            if (position == prim.attributes.end()) {
                mNotes.push_back(what + ": no POSITION attribute, not carried");
                continue;
            }
            if (!prim.targets.empty()) mNotes.push_back(what + ": morph targets are not carried");
            if (!DecodePrimitive(prim, what, out, status)) return false;
        }
        return true;
    }

    void NoteExtensions() const {
        for (const std::string& e : m.extensionsUsed)
            if (e != kGltfLightsExtension) mNotes.push_back("Extension " + e + " is not carried");
    }

    // A skin's inverse bind matrices (identity without an accessor), its
    // joints checked: existing nodes, each once.
    bool ReadSkin(int index, std::vector<QdxAMatrix>& inverseBind, QdxStatus& status) const {
        const tinygltf::Skin& skin = m.skins[size_t(index)];
        const std::string what = "Skin " + std::to_string(index);
        std::set<int> seen;
        for (int j : skin.joints)
            if (j < 0 || size_t(j) >= m.nodes.size() || !seen.insert(j).second)
                return Fail(status, what + " names a joint that does not exist or twice");
        if (skin.skeleton >= int(m.nodes.size()))
            return Fail(status, what + " names a skeleton root that does not exist");
        inverseBind.assign(skin.joints.size(), QdxAMatrix());
        if (skin.inverseBindMatrices < 0) return true;
        std::vector<double> values;
        int comps = 0;
        if (!ReadAccessor(skin.inverseBindMatrices, {TINYGLTF_TYPE_MAT4}, values, comps, status,
                          what + " inverse bind matrices"))
            return false;
        if (values.size() < skin.joints.size() * 16)
            return Fail(status, what + " has fewer inverse bind matrices than joints");
        for (size_t j = 0; j < skin.joints.size(); ++j) {
            for (int c = 0; c < 4; ++c)
                for (int r = 0; r < 4; ++r) {
                    const double v = values[j * 16 + size_t(c * 4 + r)];
                    if (!std::isfinite(v))
                        return Fail(status,
                                    what + " has an inverse bind matrix that is not finite");
                    inverseBind[j].Set(c, r, v);
                }
        }
        return true;
    }

private:
    static double Component(const unsigned char* p, int type, bool normalized) {
        auto load = [p](auto value) {
            std::memcpy(&value, p, sizeof value);
            return value;
        };
        switch (type) {
        case TINYGLTF_COMPONENT_TYPE_FLOAT:
            return double(load(float()));
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
            return normalized ? load(uint8_t()) / 255.0 : load(uint8_t());
        case TINYGLTF_COMPONENT_TYPE_BYTE:
            return normalized ? std::max(load(int8_t()) / 127.0, -1.0) : load(int8_t());
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
            return normalized ? load(uint16_t()) / 65535.0 : load(uint16_t());
        case TINYGLTF_COMPONENT_TYPE_SHORT:
            return normalized ? std::max(load(int16_t()) / 32767.0, -1.0) : load(int16_t());
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
            return double(load(uint32_t()));
        case TINYGLTF_COMPONENT_TYPE_INT:
            return double(load(int32_t()));
        case TINYGLTF_COMPONENT_TYPE_DOUBLE:
            return load(double());
        default:
            return 0.0;
        }
    }

    bool DecodePrimitive(const tinygltf::Primitive& prim, const std::string& what, MeshData& out,
                         QdxStatus& status) const {
        std::vector<double> pos;
        int comps = 0;
        if (!ReadAccessor(prim.attributes.at("POSITION"), {TINYGLTF_TYPE_VEC3}, pos, comps, status,
                          what + " POSITION"))
            return false;
        const size_t n = pos.size() / 3;
        const size_t base = out.points.size() / 3;
        if (base + n > kMaxElements) return Fail(status, what + ": too many vertices");
        for (double v : pos)
            if (!std::isfinite(v)) return Fail(status, what + ": a position is not finite");

        // Corner indices, as triangles.
        std::vector<double> indexValues;
        if (prim.indices >= 0) {
            if (!ReadAccessor(prim.indices, {TINYGLTF_TYPE_SCALAR}, indexValues, comps, status,
                              what + " indices"))
                return false;
            const int type = m.accessors[size_t(prim.indices)].componentType;
            if (type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE &&
                type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT &&
                type != TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT)
                return Fail(status, what + ": indices must be unsigned integers");
        } else {
            indexValues.resize(n);
            for (size_t i = 0; i < n; ++i)
                indexValues[i] = double(i);
        }
        for (double v : indexValues)
            if (v >= double(n)) return Fail(status, what + ": an index is past its vertices");
        std::vector<size_t> tri;
        const size_t c = indexValues.size();
        auto corner = [&](size_t i) { return size_t(indexValues[i]); };
        if (prim.mode == TINYGLTF_MODE_TRIANGLE_STRIP) {
            for (size_t i = 2; i < c; ++i) {
                bool even = (i % 2) == 0;
                tri.insert(tri.end(),
                           {corner(even ? i - 2 : i - 1), corner(even ? i - 1 : i - 2), corner(i)});
            }
        } else if (prim.mode == TINYGLTF_MODE_TRIANGLE_FAN) {
            for (size_t i = 2; i < c; ++i)
                tri.insert(tri.end(), {corner(0), corner(i - 1), corner(i)});
        } else {
            for (size_t i = 0; i + 2 < c; i += 3)
                tri.insert(tri.end(), {corner(i), corner(i + 1), corner(i + 2)});
        }
        if (out.triangles.size() + tri.size() > kMaxElements)
            return Fail(status, what + ": too many triangles");

        // Material slot.
        if (prim.material >= 0 && size_t(prim.material) >= m.materials.size())
            return Fail(status, what + " names a material that does not exist");
        int slot = 0;
        while (size_t(slot) < out.materials.size() && out.materials[size_t(slot)] != prim.material)
            ++slot;
        if (size_t(slot) == out.materials.size()) out.materials.push_back(prim.material);

        // Attributes.
        std::vector<double> normals, colors, joints, weights;
        std::vector<std::vector<double>> uvs;
        for (const auto& [name, accessor] : prim.attributes) {
            std::vector<double>* target = nullptr;
            std::vector<int> types;
            if (name == "POSITION") continue;
            if (name == "NORMAL") {
                target = &normals;
                types = {TINYGLTF_TYPE_VEC3};
            } else if (name == "COLOR_0") {
                target = &colors;
                types = {TINYGLTF_TYPE_VEC3, TINYGLTF_TYPE_VEC4};
            } else if (name == "JOINTS_0" || name == "WEIGHTS_0") {
                target = name == "JOINTS_0" ? &joints : &weights;
                types = {TINYGLTF_TYPE_VEC4};
            } else if (name.rfind("TEXCOORD_", 0) == 0 && name.size() == 10 && name[9] >= '0' &&
                       name[9] < '0' + kGltfUVSlots) {
                size_t set = size_t(name[9] - '0');
                if (uvs.size() <= set) uvs.resize(set + 1);
                target = &uvs[set];
                types = {TINYGLTF_TYPE_VEC2};
            } else {
                mNotes.push_back(what + ": attribute " + name + " is not carried");
                continue;
            }
            if (!ReadAccessor(accessor, types, *target, comps, status, what + " " + name))
                return false;
            if (target->size() / size_t(comps) != n)
                return Fail(status, what + ": " + name + " has a count unlike POSITION's");
            if (target == &colors && comps == 3) {
                std::vector<double> rgba;
                rgba.reserve(n * 4);
                for (size_t i = 0; i < n; ++i)
                    rgba.insert(rgba.end(),
                                {colors[i * 3], colors[i * 3 + 1], colors[i * 3 + 2], 1});
                colors.swap(rgba);
            }
        }

        // Append, filling attributes that earlier or this primitive lack.
        out.points.insert(out.points.end(), pos.begin(), pos.end());
        auto append = [&](std::vector<double>& dst, bool& has, std::vector<double>& src,
                          size_t width, std::initializer_list<double> fill) {
            if (!src.empty() && !has) {
                for (size_t i = 0; i < base; ++i)
                    dst.insert(dst.end(), fill);
                has = true;
            }
            if (!has) return;
            if (src.empty()) {
                for (size_t i = 0; i < n; ++i)
                    dst.insert(dst.end(), fill);
            } else {
                dst.insert(dst.end(), src.begin(), src.begin() + std::ptrdiff_t(n * width));
            }
        };
        append(out.normals, out.hasNormals, normals, 3, {0.0, 0.0, 0.0});
        append(out.colors, out.hasColors, colors, 4, {1.0, 1.0, 1.0, 1.0});
        if (joints.empty() != weights.empty())
            return Fail(status, what + ": JOINTS_0 and WEIGHTS_0 come only together");
        bool skinned = out.hasSkinWeights;
        append(out.joints, out.hasSkinWeights, joints, 4, {0.0, 0.0, 0.0, 0.0});
        append(out.weights, skinned, weights, 4, {0.0, 0.0, 0.0, 0.0});
        if (out.uvs.size() < uvs.size()) out.uvs.resize(uvs.size());
        for (size_t s = 0; s < out.uvs.size(); ++s) {
            std::vector<double> none;
            std::vector<double>& src = s < uvs.size() ? uvs[s] : none;
            // glTF's V runs down from the image's top; the scene's runs up.
            for (size_t i = 1; i < src.size(); i += 2)
                src[i] = 1.0 - src[i];
            if (out.uvs[s].empty()) out.uvs[s].assign(base * 2, 0.0);
            if (src.empty())
                for (size_t i = 0; i < n; ++i)
                    out.uvs[s].insert(out.uvs[s].end(), {0.0, 0.0});
            else
                out.uvs[s].insert(out.uvs[s].end(), src.begin(), src.end());
        }
        for (size_t t = 0; t < tri.size(); ++t)
            out.triangles.push_back(int(base + tri[t]));
        out.triangleSlots.insert(out.triangleSlots.end(), tri.size() / 3, slot);
        return true;
    }

    const tinygltf::Model& m;
    std::vector<std::string>& mNotes;
};

// The file an image refers to, or the file its embedded bytes were written
// to beside the glTF file.
struct ImageFile {
    std::string path;     // absolute
    std::string relative; // as the glTF file names it, or beside it
};

std::string DecodeUri(const std::string& uri) {
    std::string out;
    for (size_t i = 0; i < uri.size(); ++i) {
        if (uri[i] == '%' && i + 2 < uri.size() &&
            std::isxdigit(static_cast<unsigned char>(uri[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(uri[i + 2]))) {
            out += char(std::stoi(uri.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += uri[i];
        }
    }
    return out;
}

class DecodedGltf : public Decoded {
public:
    bool Publish(QdxScene* target, QdxStatus& status) override;

    tinygltf::Model model;
    std::vector<MeshData> meshes;
    std::vector<ImageFile> images;                     // per glTF image; empty path: not carried
    std::vector<int> roots;                            // the carried scene's root nodes
    std::vector<std::vector<QdxAMatrix>> inverseBinds; // per skin
    std::vector<GltfAnimationData> animations;
    std::vector<std::string> notes;

private:
    QdxTexture* MakeTexture(QdxScene* scene, int index, int texCoord);
    QdxSurfaceMaterial* MakeMaterial(QdxScene* scene, int index);
    std::map<std::pair<int, int>, QdxTexture*> mTextures;
};

QdxTexture* DecodedGltf::MakeTexture(QdxScene* scene, int index, int texCoord) {
    if (index < 0) return nullptr;
    auto key = std::make_pair(index, texCoord);
    if (auto found = mTextures.find(key); found != mTextures.end()) return found->second;
    const tinygltf::Texture& t = model.textures[size_t(index)];
    QdxFileTexture* texture = nullptr;
    if (t.source >= 0 && !images[size_t(t.source)].path.empty()) {
        const tinygltf::Image& image = model.images[size_t(t.source)];
        std::string name = !t.name.empty()       ? t.name
                           : !image.name.empty() ? image.name
                                                 : "texture" + std::to_string(index);
        texture = QdxFileTexture::Create(scene, name.c_str());
        texture->SetFileName(images[size_t(t.source)].path.c_str());
        texture->SetRelativeFileName(images[size_t(t.source)].relative.c_str());
        texture->SetMappingType(QdxTexture::eUV);
        const char* uvSet = GltfUVSetName(texCoord);
        texture->UVSet.Set(QdxString(uvSet ? uvSet : GltfUVSetName(0)));
        auto wrap = [](int mode) {
            return mode == TINYGLTF_TEXTURE_WRAP_CLAMP_TO_EDGE ? QdxTexture::eClamp
                                                               : QdxTexture::eRepeat;
        };
        if (t.sampler >= 0) {
            const tinygltf::Sampler& s = model.samplers[size_t(t.sampler)];
            texture->SetWrapMode(wrap(s.wrapS), wrap(s.wrapT));
        }
    }
    mTextures[key] = texture;
    return texture;
}

QdxSurfaceMaterial* DecodedGltf::MakeMaterial(QdxScene* scene, int index) {
    const tinygltf::Material& g = model.materials[size_t(index)];
    std::string name = g.name.empty() ? "material" + std::to_string(index) : g.name;
    auto* phong = QdxSurfacePhong::Create(scene, name.c_str());
    const tinygltf::PbrMetallicRoughness& pbr = g.pbrMetallicRoughness;
    auto at = [](const std::vector<double>& v, size_t i, double fallback) {
        return i < v.size() && std::isfinite(v[i]) ? v[i] : fallback;
    };
    const double metallic = std::clamp(pbr.metallicFactor, 0.0, 1.0);
    const double roughness = std::clamp(pbr.roughnessFactor, 0.0, 1.0);
    const QdxDouble3 base(at(pbr.baseColorFactor, 0, 1), at(pbr.baseColorFactor, 1, 1),
                          at(pbr.baseColorFactor, 2, 1));
    phong->Diffuse.Set(base);
    phong->DiffuseFactor.Set(1.0);
    // Metals reflect their base colour, dielectrics about 4 % white.
    QdxDouble3 specular;
    for (int i = 0; i < 3; ++i)
        specular[i] = 0.04 + (base[i] - 0.04) * metallic;
    phong->Specular.Set(specular);
    phong->SpecularFactor.Set(1.0 - roughness);
    const double r4 = std::max(std::pow(roughness, 4.0), 1e-4);
    phong->Shininess.Set(std::min(2.0 / r4 - 2.0, 1024.0));
    phong->Emissive.Set(QdxDouble3(at(g.emissiveFactor, 0, 0), at(g.emissiveFactor, 1, 0),
                                   at(g.emissiveFactor, 2, 0)));
    phong->EmissiveFactor.Set(1.0);
    const double alpha = g.alphaMode == "OPAQUE" ? 1.0 : at(pbr.baseColorFactor, 3, 1);
    phong->TransparencyFactor.Set(1.0 - std::clamp(alpha, 0.0, 1.0));
    // The metallic-roughness values themselves, so that a written glTF file
    // gets back exactly what was read.
    auto user = [&](const char* key, double value) {
        QdxProperty p = QdxProperty::Create(phong, QdxDoubleDT, key);
        p.ModifyFlag(QdxPropertyFlags::eUserDefined, true);
        p.Set(value);
    };
    user("metallicFactor", metallic);
    user("roughnessFactor", roughness);
    if (g.alphaMode == "MASK") user("alphaCutoff", g.alphaCutoff);
    if (g.doubleSided) user("doubleSided", 1.0);

    auto connect = [&](const char* property, int texture, int texCoord) {
        if (QdxTexture* t = MakeTexture(scene, texture, texCoord))
            phong->FindProperty(property).ConnectSrcObject(t);
    };
    connect(QdxSurfaceMaterial::sDiffuse, pbr.baseColorTexture.index,
            pbr.baseColorTexture.texCoord);
    connect(QdxSurfaceMaterial::sEmissive, g.emissiveTexture.index, g.emissiveTexture.texCoord);
    connect(QdxSurfaceMaterial::sNormalMap, g.normalTexture.index, g.normalTexture.texCoord);
    connect(QdxSurfaceMaterial::sAmbient, g.occlusionTexture.index, g.occlusionTexture.texCoord);
    connect(QdxSurfaceMaterial::sShininess, pbr.metallicRoughnessTexture.index,
            pbr.metallicRoughnessTexture.texCoord);
    return phong;
}

QdxMesh* BuildMesh(QdxScene* scene, const MeshData& d, const std::string& name) {
    QdxMesh* mesh = QdxMesh::Create(scene, name.c_str());
    const int n = int(d.points.size() / 3);
    mesh->InitControlPoints(n);
    QdxVector4* points = mesh->GetControlPoints();
    for (int i = 0; i < n; ++i)
        points[i] = QdxVector4(d.points[size_t(i) * 3], d.points[size_t(i) * 3 + 1],
                               d.points[size_t(i) * 3 + 2], 1.0);
    const int triangles = int(d.triangles.size() / 3);
    std::vector<int> sizes(size_t(triangles), 3);
    mesh->AddPolygons(sizes.data(), triangles, d.triangles.data());
    if (d.hasNormals) {
        QdxLayerElementNormal* e = mesh->CreateElementNormal();
        e->SetMappingMode(QdxLayerElement::eByControlPoint);
        e->SetReferenceMode(QdxLayerElement::eDirect);
        for (int i = 0; i < n; ++i)
            e->GetDirectArray().Add(QdxVector4(d.normals[size_t(i) * 3],
                                               d.normals[size_t(i) * 3 + 1],
                                               d.normals[size_t(i) * 3 + 2], 0.0));
    }
    for (size_t s = 0; s < d.uvs.size(); ++s) {
        QdxLayerElementUV* e = mesh->CreateElementUV(GltfUVSetName(int(s)));
        e->SetMappingMode(QdxLayerElement::eByControlPoint);
        e->SetReferenceMode(QdxLayerElement::eDirect);
        for (int i = 0; i < n; ++i)
            e->GetDirectArray().Add(
                QdxVector2(d.uvs[s][size_t(i) * 2], d.uvs[s][size_t(i) * 2 + 1]));
    }
    if (d.hasColors) {
        QdxLayerElementVertexColor* e = mesh->CreateElementVertexColor();
        e->SetMappingMode(QdxLayerElement::eByControlPoint);
        e->SetReferenceMode(QdxLayerElement::eDirect);
        for (int i = 0; i < n; ++i) {
            const double* c = &d.colors[size_t(i) * 4];
            e->GetDirectArray().Add(QdxColor(c[0], c[1], c[2], c[3]));
        }
    }
    QdxLayerElementMaterial* e = mesh->CreateElementMaterial();
    e->SetReferenceMode(QdxLayerElement::eIndexToDirect);
    if (d.materials.size() <= 1) {
        e->SetMappingMode(QdxLayerElement::eAllSame);
        e->GetIndexArray().Add(0);
    } else {
        e->SetMappingMode(QdxLayerElement::eByPolygon);
        for (int slot : d.triangleSlots)
            e->GetIndexArray().Add(slot);
    }
    return mesh;
}

// Local transform of a node: TRS, or its matrix decomposed.
bool SetTransform(QdxNode* node, const tinygltf::Node& g, std::vector<std::string>& notes) {
    QdxVector4 t(0, 0, 0), r(0, 0, 0), s(1, 1, 1);
    if (g.matrix.size() == 16) {
        QdxAMatrix m;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                m.Set(i, j, g.matrix[size_t(i * 4 + j)]);
        t = m.GetT();
        s = m.GetS();
        r = m.GetR();
        // A matrix that TRS cannot rebuild (shear, projection) is noted.
        QdxAMatrix back(t, r, s);
        double err = 0;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                err = std::max(err, std::fabs(back.Get(i, j) - m.Get(i, j)));
        if (err > 1e-5 * (1.0 + std::fabs(s[0]) + std::fabs(s[1]) + std::fabs(s[2])))
            notes.push_back("Node '" + g.name + "': its matrix has shear, which is not carried");
    } else {
        if (g.translation.size() == 3)
            t = QdxVector4(g.translation[0], g.translation[1], g.translation[2]);
        if (g.scale.size() == 3) s = QdxVector4(g.scale[0], g.scale[1], g.scale[2]);
        if (g.rotation.size() == 4) {
            QdxQuaternion q(g.rotation[0], g.rotation[1], g.rotation[2], g.rotation[3]);
            q.Normalize();
            r = q.DecomposeSphericalXYZ();
        }
    }
    for (int i = 0; i < 3; ++i)
        if (!std::isfinite(t[i]) || !std::isfinite(r[i]) || !std::isfinite(s[i])) return false;
    node->LclTranslation.Set(QdxDouble3(t[0], t[1], t[2]));
    node->LclRotation.Set(QdxDouble3(r[0], r[1], r[2]));
    node->LclScaling.Set(QdxDouble3(s[0], s[1], s[2]));
    // glTF composes plain matrix products.
    node->SetTransformationInheritType(eInheritRSrs);
    return true;
}

// Puts a camera or light on the node (or, when the node carries a mesh
// already, on a child of its own) turned from glTF's axes onto the SDK's.
void AttachTurned(QdxScene* scene, QdxNode* node, QdxNodeAttribute* attribute) {
    if (!attribute) return;
    QdxNode* holder = node;
    if (node->GetNodeAttribute()) {
        const std::string name = std::string(node->GetName()) + "_" + attribute->GetName();
        holder = QdxNode::Create(scene, name.c_str());
        holder->SetTransformationInheritType(eInheritRSrs);
        node->AddChild(holder);
    }
    holder->SetNodeAttribute(attribute);
    holder->SetGeometricRotation(QdxNode::eSourcePivot,
                                 GltfAttributeTurn(attribute->GetAttributeType()));
}

bool DecodedGltf::Publish(QdxScene* target, QdxStatus& status) {
    QdxManager* manager = target->GetQdxManager();
    QdxScene* scene = QdxScene::Create(manager, "");
    QdxGlobalSettings& settings = scene->GetGlobalSettings();
    settings.SetAxisSystem(QdxAxisSystem::ToveYUp);
    settings.SetOriginalUpAxis(QdxAxisSystem::ToveYUp);
    settings.SetSystemUnit(QdxSystemUnit::m);
    settings.SetOriginalSystemUnit(QdxSystemUnit::m);

    std::vector<QdxSurfaceMaterial*> materials(model.materials.size(), nullptr);
    QdxSurfaceMaterial* fallback = nullptr;
    auto material = [&](int index) -> QdxSurfaceMaterial* {
        if (index >= 0) {
            if (!materials[size_t(index)]) materials[size_t(index)] = MakeMaterial(scene, index);
            return materials[size_t(index)];
        }
        if (!fallback) {
            auto* phong = QdxSurfacePhong::Create(scene, "default");
            phong->Diffuse.Set(QdxDouble3(1, 1, 1));
            fallback = phong;
        }
        return fallback;
    };
    std::vector<QdxMesh*> built(model.meshes.size(), nullptr);
    std::vector<QdxNode*> nodes(model.nodes.size(), nullptr);
    std::vector<QdxCamera*> cameras(model.cameras.size(), nullptr);
    std::vector<QdxLight*> lights(model.lights.size(), nullptr);
    std::vector<char> lightTried(model.lights.size(), 0);
    std::vector<int> skinnedNodes;
    // Parents before children: roots first, then breadth first.
    std::vector<std::pair<int, QdxNode*>> queue;
    for (int r : roots)
        queue.emplace_back(r, scene->GetRootNode());
    for (size_t q = 0; q < queue.size(); ++q) {
        auto [index, parent] = queue[q];
        const tinygltf::Node& g = model.nodes[size_t(index)];
        std::string name = g.name.empty() ? "node" + std::to_string(index) : g.name;
        QdxNode* node = QdxNode::Create(scene, name.c_str());
        nodes[size_t(index)] = node;
        parent->AddChild(node);
        if (!SetTransform(node, g, notes)) {
            scene->ForceKill();
            return Fail(status,
                        "Node " + std::to_string(index) + " has a transform that is not finite");
        }
        if (g.mesh >= 0 && !meshes[size_t(g.mesh)].triangles.empty()) {
            const MeshData& d = meshes[size_t(g.mesh)];
            const std::string& meshName = model.meshes[size_t(g.mesh)].name;
            const std::string builtName =
                meshName.empty() ? "mesh" + std::to_string(g.mesh) : meshName;
            // A skinned mesh deforms for its node alone.
            const bool skinned = g.skin >= 0 && d.hasSkinWeights;
            if (skinned) {
                node->SetNodeAttribute(BuildMesh(scene, d, builtName));
                skinnedNodes.push_back(index);
            } else {
                if (!built[size_t(g.mesh)]) built[size_t(g.mesh)] = BuildMesh(scene, d, builtName);
                node->SetNodeAttribute(built[size_t(g.mesh)]);
            }
            if (g.skin >= 0 && !d.hasSkinWeights)
                notes.push_back("Node '" + name +
                                "': its mesh has no JOINTS_0, so its skin is not carried");
            if (g.skin < 0 && d.hasSkinWeights)
                notes.push_back("Node '" + name +
                                "': the joint weights of its mesh are not carried without a skin");
            for (int m : d.materials)
                node->AddMaterial(material(m));
        }
        int light = -1;
        GltfNodeLight(model, g, light); // checked when read
        if (g.camera >= 0) {
            QdxCamera*& camera = cameras[size_t(g.camera)];
            const std::string& cameraName = model.cameras[size_t(g.camera)].name;
            if (!camera)
                camera = MakeGltfCamera(
                    scene, model.cameras[size_t(g.camera)],
                    cameraName.empty() ? "camera" + std::to_string(g.camera) : cameraName, notes);
            AttachTurned(scene, node, camera);
        }
        if (light >= 0) {
            QdxLight*& made = lights[size_t(light)];
            const std::string& lightName = model.lights[size_t(light)].name;
            if (!made && !lightTried[size_t(light)])
                made = MakeGltfLight(
                    scene, model.lights[size_t(light)],
                    lightName.empty() ? "light" + std::to_string(light) : lightName, notes);
            lightTried[size_t(light)] = true;
            AttachTurned(scene, node, made);
        }
        for (int child : g.children)
            queue.emplace_back(child, node);
    }
    for (int index : skinnedNodes) {
        const tinygltf::Node& g = model.nodes[size_t(index)];
        const tinygltf::Skin& skin = model.skins[size_t(g.skin)];
        std::vector<QdxNode*> joints;
        for (int j : skin.joints)
            joints.push_back(nodes[size_t(j)]);
        QdxNode* node = nodes[size_t(index)];
        if (std::count(joints.begin(), joints.end(), nullptr) > 0) {
            notes.push_back(std::string("Node '") + node->GetName() +
                            "': its skin has joints outside the scene and is not carried");
            continue;
        }
        const MeshData& d = meshes[size_t(g.mesh)];
        const std::string skinName =
            skin.name.empty() ? "skin" + std::to_string(g.skin) : skin.name;
        MakeGltfSkin(scene, skinName, node->GetMesh(), node->EvaluateGlobalTransform(), joints,
                     inverseBinds[size_t(g.skin)], d.joints, d.weights);
        MarkGltfJoints(scene, joints);
    }
    BuildGltfAnimations(scene, animations, nodes, notes);
    const auto skipped = std::count(nodes.begin(), nodes.end(), nullptr);
    if (skipped > 0)
        notes.push_back(std::to_string(skipped) +
                        " node(s) outside the default scene are not carried");
    SetConversionNotes(scene, notes);
    target->TakeContentOf(scene);
    return true;
}

// Checks the node hierarchy and picks the roots to carry.
bool CheckNodes(const tinygltf::Model& m, std::vector<int>& roots, std::vector<std::string>& notes,
                QdxStatus& status) {
    const size_t count = m.nodes.size();
    std::vector<int> parent(count, -1);
    for (size_t i = 0; i < count; ++i) {
        const tinygltf::Node& n = m.nodes[i];
        for (int c : n.children) {
            if (c < 0 || size_t(c) >= count)
                return Fail(status,
                            "Node " + std::to_string(i) + " names a child that does not exist");
            if (parent[size_t(c)] >= 0 || size_t(c) == i)
                return Fail(status, "Node " + std::to_string(c) +
                                        " has more than one parent or is its own parent");
            parent[size_t(c)] = int(i);
        }
        if (n.mesh >= int(m.meshes.size()) || n.camera >= int(m.cameras.size()) ||
            n.skin >= int(m.skins.size()))
            return Fail(status, "Node " + std::to_string(i) +
                                    " names a mesh, camera or skin that does not exist");
        if (int light = -1; !GltfNodeLight(m, n, light))
            return Fail(status, "Node " + std::to_string(i) + " names a light that does not exist");
        if (n.matrix.size() != 0 && n.matrix.size() != 16)
            return Fail(status, "Node " + std::to_string(i) + " has a matrix without 16 numbers");
    }
    // With one parent each, a node that no root reaches sits on a cycle.
    std::vector<char> reached(count, 0);
    std::vector<size_t> stack;
    for (size_t i = 0; i < count; ++i)
        if (parent[i] < 0) stack.push_back(i);
    while (!stack.empty()) {
        size_t i = stack.back();
        stack.pop_back();
        reached[i] = 1;
        for (int c : m.nodes[i].children)
            stack.push_back(size_t(c));
    }
    for (size_t i = 0; i < count; ++i)
        if (!reached[i]) return Fail(status, "Node " + std::to_string(i) + " lies on a cycle");

    if (m.scenes.empty()) {
        for (size_t i = 0; i < count; ++i)
            if (parent[i] < 0) roots.push_back(int(i));
        return true;
    }
    const int chosen = m.defaultScene >= 0 ? m.defaultScene : 0;
    if (size_t(chosen) >= m.scenes.size()) return Fail(status, "The default scene does not exist");
    if (m.scenes.size() > 1)
        notes.push_back(std::to_string(m.scenes.size() - 1) +
                        " scene(s) besides the default one are not carried");
    std::set<int> seen;
    for (int r : m.scenes[size_t(chosen)].nodes) {
        if (r < 0 || size_t(r) >= count || parent[size_t(r)] >= 0 || !seen.insert(r).second)
            return Fail(status, "The scene names a root node that does not exist or has a parent");
        roots.push_back(r);
    }
    return true;
}

bool CheckMaterials(const tinygltf::Model& m, QdxStatus& status) {
    auto texture = [&](int index) { return index < 0 || size_t(index) < m.textures.size(); };
    for (size_t i = 0; i < m.materials.size(); ++i) {
        const tinygltf::Material& g = m.materials[i];
        if (!texture(g.pbrMetallicRoughness.baseColorTexture.index) ||
            !texture(g.pbrMetallicRoughness.metallicRoughnessTexture.index) ||
            !texture(g.emissiveTexture.index) || !texture(g.normalTexture.index) ||
            !texture(g.occlusionTexture.index))
            return Fail(status,
                        "Material " + std::to_string(i) + " names a texture that does not exist");
    }
    for (size_t i = 0; i < m.textures.size(); ++i) {
        const tinygltf::Texture& t = m.textures[i];
        if (t.source >= int(m.images.size()) || t.sampler >= int(m.samplers.size()))
            return Fail(status, "Texture " + std::to_string(i) +
                                    " names an image or sampler that does not exist");
    }
    return true;
}

// Reads every skin and checks the joint weights of every skinned node's mesh
// against its skin.
bool CheckSkins(const tinygltf::Model& m, const GltfReader& reader, DecodedGltf& decoded,
                QdxStatus& status) {
    decoded.inverseBinds.resize(m.skins.size());
    for (size_t i = 0; i < m.skins.size(); ++i)
        if (!reader.ReadSkin(int(i), decoded.inverseBinds[i], status)) return false;
    for (size_t i = 0; i < m.nodes.size(); ++i) {
        const tinygltf::Node& n = m.nodes[i];
        if (n.mesh < 0) continue;
        const MeshData& d = decoded.meshes[size_t(n.mesh)];
        const double joints = n.skin >= 0 ? double(m.skins[size_t(n.skin)].joints.size()) : 0;
        for (size_t k = 0; k < d.weights.size(); ++k) {
            const double j = d.joints[k], w = d.weights[k];
            if (!std::isfinite(w) || w < 0)
                return Fail(status, "Mesh " + std::to_string(n.mesh) +
                                        " has a joint weight that is negative or not finite");
            if (n.skin >= 0 && w > 0 && !(j >= 0 && j < joints && j == std::floor(j)))
                return Fail(status, "Node " + std::to_string(i) +
                                        ": a joint index of its mesh is past its skin's joints");
        }
    }
    return true;
}

// Finds every image's file; embedded images are written into a folder
// beside the glTF file.
bool ResolveImages(const tinygltf::Model& m, const std::string& path, std::vector<ImageFile>& out,
                   std::vector<std::string>& notes, QdxStatus& status) {
    const fs::path file = fs::absolute(fs::path(path));
    const fs::path dir = file.parent_path();
    out.assign(m.images.size(), ImageFile());
    for (size_t i = 0; i < m.images.size(); ++i) {
        const tinygltf::Image& image = m.images[i];
        const std::string what = "Image " + std::to_string(i);
        if (!image.uri.empty() && image.uri.rfind("data:", 0) != 0) {
            const std::string relative = DecodeUri(image.uri);
            fs::path p = (dir / relative).lexically_normal();
            std::error_code ec;
            if (!fs::is_regular_file(p, ec))
                return Fail(status,
                            what + " refers to a file that does not exist: '" + p.string() + "'");
            out[i] = {p.string(), relative};
            continue;
        }
        if (image.bufferView >= 0) {
            if (size_t(image.bufferView) >= m.bufferViews.size())
                return Fail(status, what + " names a buffer view that does not exist");
            const tinygltf::BufferView& v = m.bufferViews[size_t(image.bufferView)];
            if (v.buffer < 0 || size_t(v.buffer) >= m.buffers.size() ||
                v.byteOffset > m.buffers[size_t(v.buffer)].data.size() ||
                v.byteLength > m.buffers[size_t(v.buffer)].data.size() - v.byteOffset)
                return Fail(status, what + ": its buffer view lies past the end of its buffer");
        }
        const std::vector<unsigned char>& bytes = image.image;
        const std::string mime = GltfImageMimeType(bytes.data(), bytes.size());
        if (mime.empty()) {
            notes.push_back(what + ": embedded data that is neither PNG nor JPEG is not carried");
            continue;
        }
        std::string name = image.name.empty() ? "image" + std::to_string(i) : image.name;
        for (char& c : name)
            if (c == '/' || c == '\\' || c == ':' || c == '.') c = '_';
        const std::string folder = fs::path(QdxGltfImageFolder(path)).filename().string();
        const std::string relative = folder + "/" + name + (mime == "image/png" ? ".png" : ".jpg");
        std::error_code ec;
        fs::create_directories(dir / folder, ec);
        std::ofstream f(dir / relative, std::ios::binary);
        f.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        f.close();
        if (!f)
            return Fail(status, what + ": cannot write its embedded image to '" +
                                    (dir / relative).string() + "'");
        out[i] = {(dir / relative).string(), relative};
    }
    return true;
}
} // namespace

std::unique_ptr<Decoded> ReadGltf(const ReadInput& input, QdxStatus& status,
                                  const Progress& progress) {
    auto decoded = std::make_unique<DecodedGltf>();
    if (input.size > UINT_MAX) {
        Fail(status, "The glTF file is too large");
        return nullptr;
    }
    tinygltf::TinyGLTF loader;
    loader.SetImageLoader(KeepImageBytes, nullptr);
    std::string err, warn;
    const std::string baseDir = fs::absolute(fs::path(input.path)).parent_path().string();
    const bool binary = input.size >= 4 && std::memcmp(input.data, "glTF", 4) == 0;
    bool ok = binary ? loader.LoadBinaryFromMemory(&decoded->model, &err, &warn, input.data,
                                                   unsigned(input.size), baseDir)
                     : loader.LoadASCIIFromString(&decoded->model, &err, &warn,
                                                  reinterpret_cast<const char*>(input.data),
                                                  unsigned(input.size), baseDir);
    if (!ok) {
        while (!err.empty() && (err.back() == '\n' || err.back() == ' '))
            err.pop_back();
        Fail(status, "Not a valid glTF file: " + (err.empty() ? std::string("unreadable") : err));
        return nullptr;
    }
    const tinygltf::Model& m = decoded->model;
    if (m.asset.version.rfind("2.", 0) != 0) {
        status.SetCode(QdxStatus::eInvalidFileVersion,
                       "glTF asset version '" + m.asset.version + "' is not supported (only 2.x)");
        return nullptr;
    }
    if (progress) progress(0.2);
    std::vector<std::string>& notes = decoded->notes;
    if (!CheckNodes(m, decoded->roots, notes, status) || !CheckMaterials(m, status) ||
        !CheckGltfCamerasAndLights(m, status))
        return nullptr;
    GltfReader reader(m, notes);
    reader.NoteExtensions();
    decoded->meshes.resize(m.meshes.size());
    for (size_t i = 0; i < m.meshes.size(); ++i) {
        if (!reader.DecodeMesh(int(i), decoded->meshes[i], status)) return nullptr;
        if (progress) progress(0.2 + 0.7 * double(i + 1) / double(m.meshes.size()));
    }
    if (!CheckSkins(m, reader, *decoded, status)) return nullptr;
    const GltfAccessorReader read = [&reader](int index, const std::vector<int>& types,
                                              std::vector<double>& out, int& components,
                                              QdxStatus& s, const std::string& what) {
        return reader.ReadAccessor(index, types, out, components, s, what);
    };
    if (!DecodeGltfAnimations(m, read, decoded->animations, notes, status)) return nullptr;
    if (!ResolveImages(m, input.path, decoded->images, notes, status)) return nullptr;
    return decoded;
}

} // namespace qdxsdk::format
