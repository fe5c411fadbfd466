#include "SceneReport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <map>
#include <ostream>
#include <set>
#include <sstream>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksMetadataUtils.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/TimeShapeCache.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>
#include <kestrel/osg/UberMaterial.h>

#include "AnimationView.h"
#include "CameraLightView.h"
#include "DeformableReport.h"
#include "MetadataView.h"
#include "SceneWalk.h"

using namespace osg;
using nlohmann::json;

namespace {

const char* primName(UInt32 t) {
    static const char* names[] = {"points",     "lines",          "line loop",    "line strip",
                                  "triangles",  "triangle strip", "triangle fan", "quads",
                                  "quad strip", "polygon"};
    return t < 10 ? names[t] : "unknown";
}

json vec(const Vec3f& v) {
    return json::array({v[0], v[1], v[2]});
}
bool isZero(const Vec3f& v) {
    return v[0] == 0.f && v[1] == 0.f && v[2] == 0.f;
}

json describeTransform(const TransformPtr& t) {
    json j;
    if (auto t3 = Transform3DPtr::dcast(t)) {
        j["translation"] = vec(t3->getTranslation());
        j["rotation"] = vec(t3->getEulerRotation());
        j["scale"] = vec(t3->getScale());
        if (!isZero(t3->getEulerRotationOrientation()))
            j["rotationOrientation"] = vec(t3->getEulerRotationOrientation());
        if (!isZero(t3->getRotatePivot())) j["rotatePivot"] = vec(t3->getRotatePivot());
        if (!isZero(t3->getScalePivot())) j["scalePivot"] = vec(t3->getScalePivot());
        if (!isZero(t3->getRotatePivotTranslation()))
            j["rotatePivotTranslation"] = vec(t3->getRotatePivotTranslation());
        if (!isZero(t3->getScalePivotTranslation()))
            j["scalePivotTranslation"] = vec(t3->getScalePivotTranslation());
    } else if (t) {
        json rows = json::array();
        Matrix m = t->getMatrix();
        for (int r = 0; r < 4; ++r)
            rows.push_back({m.at(r, 0), m.at(r, 1), m.at(r, 2), m.at(r, 3)});
        j["matrix"] = rows;
    }
    return j;
}

json describeImage(const ImagePtr& img) {
    json j;
    j["name"] = img->getName();
    j["width"] = img->getWidth();
    j["height"] = img->getHeight();
    j["channels"] = img->getChannels();
    return j;
}

json describeMaterial(const MaterialPtr& m) {
    json j;
    j["name"] = m->getName();
    j["type"] = m->getTypeName();
    if (auto u = UberMaterialPtr::dcast(m)) {
        j["diffuse"] = vec(u->getDiffuseColor());
        json tex = json::object();
        auto add = [&](const char* channel, const ColorComponentPtr& c) {
            if (c && c->getImage() && c->getUseTexture())
                tex[channel] = describeImage(c->getImage());
        };
        add("diffuse", u->getDiffuseComponentSettings());
        add("glossy", u->getGlossyComponentSettings());
        add("specular", u->getSpecularComponentSettings());
        add("incandescence", u->getIncandescenceComponentSettings());
        add("bump", u->getBumpComponentSettings());
        add("transparency", u->getTransparencyComponentSettings());
        if (!tex.empty()) j["textures"] = tex;
    } else if (auto c = ChunkMaterialPtr::dcast(m)) {
        if (auto mc = c->getMaterialChunk()) {
            const Color4f& d = mc->getDiffuse();
            j["diffuse"] = json::array({d[0], d[1], d[2]});
        }
    }
    return j;
}

json describeGeometry(const GeometryPtr& g) {
    json j;
    UInt32 prims = g->getTypes() ? g->getTypes()->size() : 0;
    j["primitives"] = prims;
    std::map<std::string, UInt32> byType;
    if (auto t = GeoPTypesUI8Ptr::dcast(g->getTypes()))
        for (UInt8 v : t->getField())
            ++byType[primName(v)];
    j["primitiveTypes"] = byType;
    j["vertices"] = g->getVertexCount();
    j["positions"] = g->getPositions() ? g->getPositions()->size() : 0;
    j["normals"] = g->getNormals() ? g->getNormals()->size() : 0;
    j["triangles"] = g->countTriangles();
    json uv = json::array();
    for (UInt32 s = 0; s < Geometry::MaxTexSlots; ++s)
        if (auto tc = g->getTexSlot(s)) {
            json e;
            e["slot"] = s;
            e["name"] = g->getTexSlotName(s);
            e["dimension"] = tc->getDimension();
            e["count"] = tc->size();
            uv.push_back(e);
        }
    j["texCoords"] = uv;
    UInt32 colours = g->getColors() ? g->getColors()->size() : 0;
    if (auto c7 = g->getTexSlot(7); c7 && c7->getDimension() == 4) colours = c7->size();
    j["colors"] = colours;
    return j;
}

json describeNode(const NodePtr& node) {
    json j;
    j["name"] = node->getName();
    NodeCorePtr core = node->getCore();
    j["core"] = core ? core->getTypeName() : "none";
    if (node->getTraversalMask() == 0) j["hidden"] = true;
    if (core && core->getNParents() > 1) j["sharedCore"] = core->getNParents();
    if (auto t = TransformPtr::dcast(core)) j["transform"] = describeTransform(t);
    if (auto d = DrawablePtr::dcast(core)) {
        if (d->getTransform()) j["transform"] = describeTransform(d->getTransform());
        if (d->getMaterial()) {
            j["material"] = describeMaterial(d->getMaterial());
            if (json metadata = describeMetadata(d->getMaterial()); !metadata.is_null())
                j["material"]["metadata"] = metadata;
        }
    }
    if (auto g = GeometryPtr::dcast(core)) {
        j["geometry"] = describeGeometry(g);
        if (ksNodeUtils::isShellGeometry(node)) j["shell"] = true;
        if (auto skin = g->findAttachment<SkinAttachment>()) j["skin"] = describeSkin(skin);
        if (auto cache = g->findAttachment<TimeShapeCache>())
            j["vertexCache"] = describeVertexCache(cache);
    }
    if (auto s = SurfacePtr::dcast(core)) j["surface"] = describeSurface(s);
    if (UberLightPtr::dcast(core)) j["light"] = describeLight(node);
    if (UberCameraPtr::dcast(core)) j["camera"] = describeCamera(node);
    if (json metadata = describeMetadata(node); !metadata.is_null()) j["metadata"] = metadata;
    if (json animation = describeAnimation(node); !animation.is_null()) j["animation"] = animation;
    return j;
}

std::string fmt(const json& v) {
    std::ostringstream os;
    if (v.is_array()) {
        os << "(";
        for (std::size_t i = 0; i < v.size(); ++i)
            os << (i ? " " : "") << fmt(v[i]);
        os << ")";
    } else if (v.is_number_float()) {
        os << std::setprecision(6) << v.get<double>();
    } else if (v.is_string()) {
        os << v.get<std::string>();
    } else {
        os << v.dump(-1, ' ', false, json::error_handler_t::replace);
    }
    return os.str();
}

void printNode(std::ostream& os, const json& n, const std::string& indent) {
    os << indent
       << (n["name"].get<std::string>().empty() ? "<unnamed>" : n["name"].get<std::string>())
       << " [" << n["core"].get<std::string>() << "]";
    if (n.contains("hidden")) os << " hidden";
    if (n.contains("shell")) os << " shell";
    if (n.contains("sharedCore")) os << " shared by " << n["sharedCore"];
    os << "\n";
    std::string in = indent + "    ";
    if (n.contains("transform")) {
        const json& t = n["transform"];
        os << in;
        for (auto it = t.begin(); it != t.end(); ++it)
            os << (it == t.begin() ? "" : " ") << it.key() << "=" << fmt(it.value());
        os << "\n";
    }
    if (n.contains("geometry")) {
        const json& g = n["geometry"];
        os << in << g["primitives"] << " primitives";
        for (auto it = g["primitiveTypes"].begin(); it != g["primitiveTypes"].end(); ++it)
            os << (it == g["primitiveTypes"].begin() ? " (" : ", ") << it.value() << " "
               << it.key();
        if (!g["primitiveTypes"].empty()) os << ")";
        os << ", " << g["vertices"] << " vertices, " << g["positions"] << " positions, "
           << g["normals"] << " normals, " << g["triangles"] << " triangles\n";
        os << in << g["texCoords"].size() << " UV slots";
        for (const auto& uv : g["texCoords"]) {
            os << " [" << uv["slot"];
            if (!uv["name"].get<std::string>().empty())
                os << " \"" << uv["name"].get<std::string>() << "\"";
            os << ": " << uv["count"] << "x" << uv["dimension"] << "]";
        }
        os << ", " << g["colors"] << " colours\n";
    }
    printDeformables(os, n, in);
    if (n.contains("material")) {
        const json& m = n["material"];
        os << in << "material \"" << m["name"].get<std::string>() << "\" ("
           << m["type"].get<std::string>() << ")";
        if (m.contains("diffuse")) os << " diffuse=" << fmt(m["diffuse"]);
        os << "\n";
        if (m.contains("textures"))
            for (auto it = m["textures"].begin(); it != m["textures"].end(); ++it)
                os << in << "  texture " << it.key() << ": "
                   << it.value()["name"].get<std::string>() << " (" << it.value()["width"] << "x"
                   << it.value()["height"] << ")\n";
        if (m.contains("metadata")) printMetadata(os, in + "  ", m["metadata"]);
    }
    if (n.contains("light")) printLight(os, n["light"], in);
    if (n.contains("camera")) printCamera(os, n["camera"], in);
    if (n.contains("animation")) printAnimation(os, n["animation"], in);
    if (n.contains("evaluated")) printEvaluated(os, n["evaluated"], in);
    if (n.contains("metadata")) printMetadata(os, in, n["metadata"]);
}

} // namespace

json describeTree(const NodePtr& root) {
    if (!root) return json();
    // Nodes in pre-order with their parent's position; each description is
    // then moved into its parent from the back, so no step recurses.
    std::vector<NodePtr> order;
    std::vector<std::size_t> parent;
    std::vector<std::pair<NodePtr, std::size_t>> stack{{root, SIZE_MAX}};
    while (!stack.empty()) {
        auto [node, up] = stack.back();
        stack.pop_back();
        const std::size_t self = order.size();
        order.push_back(node);
        parent.push_back(up);
        const auto& children = node->getChildren();
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.emplace_back(*it, self);
    }
    std::vector<json> described(order.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        described[i] = describeNode(order[i]);
    // Descendants follow their ancestor in pre-order, so walking backwards
    // completes every node before it is moved; children arrive reversed.
    for (std::size_t i = order.size(); i-- > 1;) {
        json& j = described[i];
        if (j.contains("children")) {
            auto& c = j["children"];
            std::reverse(c.begin(), c.end());
        }
        json& up = described[parent[i]];
        if (!up.contains("children")) up["children"] = json::array();
        up["children"].push_back(std::move(j));
    }
    if (described[0].contains("children")) {
        auto& c = described[0]["children"];
        std::reverse(c.begin(), c.end());
    }
    return std::move(described[0]);
}

json describeStatistics(const ImportResult& imported, int lengthUnit, int upAxis) {
    const NodePtr& root = imported.root;
    json s;
    std::map<std::string, UInt64> cores;
    UInt64 nodes = 0, prims = 0, vertices = 0, triangles = 0, curves = 0, keys = 0, hidden = 0;
    UInt64 meshes = 0, surfaces = 0, lines = 0, cameras = 0, lights = 0, joints = 0, skins = 0;
    UInt64 metadataSets = 0, bytes = 0;
    std::set<const void*> materials, images, geometries, surfaceCores;
    Vec3f lo(1e30f, 1e30f, 1e30f), hi(-1e30f, -1e30f, -1e30f);
    bool hasBox = false;
    auto grow = [&](const Pnt3f& p) {
        for (int k = 0; k < 3; ++k)
            if (std::isfinite(p[k])) {
                lo[k] = std::min(lo[k], p[k]);
                hi[k] = std::max(hi[k], p[k]);
                hasBox = true;
            }
    };
    auto propertyBytes = [](const GeoPropertyPtr& p) -> UInt64 {
        return p ? UInt64(p->size()) * p->getElementSize() : 0;
    };
    SceneWalk::forEach(root, [&](const NodePtr& n, const Matrix& world, std::size_t) {
        ++nodes;
        bytes += sizeof(Node);
        if (n->getTraversalMask() == 0) ++hidden;
        NodeCorePtr core = n->getCore();
        ++cores[core ? core->getTypeName() : "none"];
        if (UberCameraPtr::dcast(core))
            ++cameras;
        else if (UberLightPtr::dcast(core))
            ++lights;
        else if (JointPtr::dcast(core))
            ++joints;
        if (auto g = GeometryPtr::dcast(core)) {
            if (auto typed = GeoPositions3fPtr::dcast(g->getPositions())) {
                for (const Pnt3f& p : typed->getField())
                    grow(world.multPnt(p));
            } else if (auto pos = g->getPositions()) {
                for (UInt32 i = 0; i < pos->size(); ++i)
                    grow(world.multPnt(Pnt3f(float(pos->getComponent(i, 0)),
                                             float(pos->getComponent(i, 1)),
                                             float(pos->getComponent(i, 2)))));
            }
            if (geometries.insert(g.get()).second) {
                prims += g->getTypes() ? g->getTypes()->size() : 0;
                vertices += g->getVertexCount();
                UInt64 t = g->countTriangles();
                triangles += t;
                if (ksNodeUtils::isShellGeometry(n)) {
                } else if (t > 0) {
                    ++meshes;
                } else if (g->getTypes() && g->getTypes()->size() > 0) {
                    ++lines;
                }
                if (g->findAttachment<SkinAttachment>()) ++skins;
                bytes += propertyBytes(g->getTypes()) + propertyBytes(g->getLengths()) +
                         propertyBytes(g->getIndices()) + propertyBytes(g->getPositions()) +
                         propertyBytes(g->getNormals()) + propertyBytes(g->getColors());
                for (UInt32 slot = 0; slot < Geometry::MaxTexSlots; ++slot)
                    bytes += propertyBytes(g->getTexSlot(slot));
            }
        }
        if (auto sf = SurfacePtr::dcast(core); sf && surfaceCores.insert(sf.get()).second) {
            ++surfaces;
            bytes += propertyBytes(sf->getControlPoints()) +
                     (sf->getKnotsU().size() + sf->getKnotsV().size()) * sizeof(Real32) +
                     sf->getKnots().size() * sizeof(Real64);
        }
        if (auto d = DrawablePtr::dcast(core); d && d->getMaterial()) {
            materials.insert(d->getMaterial().get());
            if (auto u = UberMaterialPtr::dcast(d->getMaterial()))
                for (auto c :
                     {u->getDiffuseComponentSettings(), u->getGlossyComponentSettings(),
                      u->getSpecularComponentSettings(), u->getIncandescenceComponentSettings(),
                      u->getBumpComponentSettings(), u->getTransparencyComponentSettings()})
                    if (c && c->getImage() && images.insert(c->getImage().get()).second)
                        bytes += c->getImage()->getPixels().size();
        }
        std::vector<MetadataSetPtr> sets;
        if (ksMetadataUtils::getMetadata(n, sets)) metadataSets += sets.size();
        if (auto a = ksAnimManager::the().getAnimAttachment(n)) {
            std::vector<AnimCurvePtr> cs;
            a->getRoot()->collectCurves(cs);
            for (const auto& c : cs)
                if (c->size()) {
                    ++curves;
                    keys += c->size();
                    bytes += UInt64(c->size()) * sizeof(CCPnt);
                }
        }
        return true;
    });
    s["nodes"] = nodes;
    s["hiddenNodes"] = hidden;
    s["cores"] = cores;
    s["unit"] = ksSceneData::getLengthUnitName(lengthUnit);
    s["upAxis"] = upAxis == ksSceneData::YUp ? "y" : "z";
    if (hasBox)
        s["boundingBox"] = {{"min", vec(lo)}, {"max", vec(hi)}, {"size", vec(hi - lo)}};
    else
        s["boundingBox"] = nullptr;
    s["meshes"] = meshes;
    s["surfaces"] = surfaces;
    s["lines"] = lines;
    s["cameras"] = cameras;
    s["lights"] = lights;
    s["joints"] = joints;
    s["skins"] = skins;
    s["geometries"] = geometries.size();
    s["primitives"] = prims;
    s["vertices"] = vertices;
    s["triangles"] = triangles;
    s["materials"] = materials.size();
    s["textures"] = images.size();
    s["texturesMissing"] = imported.missingTextures.size();
    s["missingTextures"] = imported.missingTextures;
    s["animationCurves"] = curves;
    s["animationKeys"] = keys;
    s["metadataSets"] = metadataSets;
    s["memoryBytes"] = bytes;
    s["importSeconds"] = imported.seconds;
    return s;
}

void printTree(std::ostream& os, const json& tree) {
    if (tree.is_null()) return;
    std::vector<std::pair<const json*, std::size_t>> stack{{&tree, 0}};
    while (!stack.empty()) {
        auto [n, depth] = stack.back();
        stack.pop_back();
        // Indentation stops growing after 64 levels (a very deep tree would
        // otherwise print mostly blanks).
        printNode(os, *n, std::string(std::min<std::size_t>(depth, 64) * 2, ' '));
        if (n->contains("children")) {
            const json& c = (*n)["children"];
            for (auto it = c.rbegin(); it != c.rend(); ++it)
                stack.emplace_back(&*it, depth + 1);
        }
    }
}

void printStatistics(std::ostream& os, const json& s) {
    auto row = [&](const char* label) -> std::ostream& {
        return os << std::left << std::setw(18) << label;
    };
    row("nodes:") << s["nodes"] << " (" << s["hiddenNodes"] << " hidden)\n";
    for (auto it = s["cores"].begin(); it != s["cores"].end(); ++it)
        os << "  " << std::left << std::setw(16) << it.key() << it.value() << "\n";
    row("unit, up axis:") << s["unit"].get<std::string>() << ", " << s["upAxis"].get<std::string>()
                          << " up\n";
    if (s["boundingBox"].is_null()) {
        row("bounding box:") << "empty\n";
    } else {
        const json& b = s["boundingBox"];
        row("bounding box:") << fmt(b["min"]) << " to " << fmt(b["max"]) << " "
                             << s["unit"].get<std::string>() << "\n";
        row("size:") << fmt(b["size"]) << " " << s["unit"].get<std::string>() << "\n";
    }
    row("meshes:") << s["meshes"] << "\n";
    row("surfaces:") << s["surfaces"] << "\n";
    row("lines:") << s["lines"] << "\n";
    row("cameras:") << s["cameras"] << "\n";
    row("lights:") << s["lights"] << "\n";
    row("joints:") << s["joints"] << "\n";
    row("skins:") << s["skins"] << "\n";
    row("geometries:") << s["geometries"] << "\n";
    row("primitives:") << s["primitives"] << "\n";
    row("vertices:") << s["vertices"] << "\n";
    row("triangles:") << s["triangles"] << "\n";
    row("materials:") << s["materials"] << "\n";
    row("textures:") << s["textures"] << " found, " << s["texturesMissing"] << " missing\n";
    row("animation curves:") << s["animationCurves"] << " (" << s["animationKeys"] << " keys)\n";
    row("metadata sets:") << s["metadataSets"] << "\n";
    std::ostringstream mem;
    mem << std::fixed << std::setprecision(2) << s["memoryBytes"].get<double>() / (1024.0 * 1024.0)
        << " MiB";
    row("scene memory:") << mem.str() << "\n";
    std::ostringstream t;
    t << std::fixed << std::setprecision(3) << s["importSeconds"].get<double>() << " s";
    row("import time:") << t.str() << "\n";
}
