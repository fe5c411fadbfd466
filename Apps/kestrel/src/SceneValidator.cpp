#include "SceneValidator.h"

#include <cmath>
#include <ostream>
#include <set>
#include <vector>

#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/Transform.h>
#include <kestrel/osg/UberMaterial.h>

using namespace osg;
using nlohmann::json;

namespace {

// Node paths are built from a parallel stack of names, so the walk keeps
// its own stack instead of recursing.
struct Walker {
    ValidationReport& report;
    std::set<const void*> seenGeometry, seenMaterial;

    void issue(ValidationIssue::Severity s, const char* check, const std::string& node,
               const std::string& text) {
        report.add({s, check, node, text});
    }

    void checkFinite(const GeoPropertyPtr& p, const char* what, const std::string& path) {
        if (!p) return;
        UInt64 bad = 0;
        const UInt32 n = p->size(), dim = p->getDimension();
        for (UInt32 i = 0; i < n; ++i)
            for (UInt32 c = 0; c < dim; ++c)
                if (!std::isfinite(p->getComponent(i, c))) {
                    ++bad;
                    break;
                }
        if (bad)
            issue(ValidationIssue::Error, "nonFinite", path,
                  std::to_string(bad) + " " + what + " with NaN or infinite values");
    }

    void checkGeometry(const GeometryPtr& g, const std::string& path) {
        checkFinite(g->getPositions(), "positions", path);
        checkFinite(g->getNormals(), "normals", path);
        for (UInt32 s = 0; s < Geometry::MaxTexSlots; ++s)
            checkFinite(g->getTexSlot(s),
                        ("texture coordinates of slot " + std::to_string(s)).c_str(), path);

        const UInt32 types = g->getTypes() ? g->getTypes()->size() : 0;
        const UInt32 lengths = g->getLengths() ? g->getLengths()->size() : 0;
        if (types != lengths) {
            issue(ValidationIssue::Error, "primitiveLengths", path,
                  std::to_string(types) + " primitive types but " + std::to_string(lengths) +
                      " lengths");
            return;
        }
        UInt64 total = 0;
        auto len = GeoPLengthsUI32Ptr::dcast(g->getLengths());
        if (len)
            for (UInt32 l : len->getField())
                total += l;
        const UInt32 vertices = g->getVertexCount();
        if (total > vertices) {
            issue(ValidationIssue::Error, "primitiveLengths", path,
                  "primitives use " + std::to_string(total) + " vertices but the stream has " +
                      std::to_string(vertices));
            return;
        }
        // Every property the index addresses must hold each index it names;
        // without an index every property must have one value per vertex.
        const bool indexed = g->getIndices() && g->getIndices()->size() > 0;
        std::vector<std::pair<UInt16, const char*>> bits{
            {MapPosition, "positions"}, {MapNormal, "normals"}, {MapColor, "colours"}};
        for (UInt32 s = 0; s < Geometry::MaxTexSlots; ++s)
            bits.emplace_back(mapTexCoordsBit(s), "texture coordinates");
        for (const auto& [bit, what] : bits) {
            GeoPropertyPtr p = g->getProperty(bit);
            if (!p || p->size() == 0) continue;
            if (!indexed) {
                if (p->size() != vertices)
                    issue(ValidationIssue::Error, "mappingCount", path,
                          std::to_string(p->size()) + " " + what + " for " +
                              std::to_string(vertices) + " vertices");
                continue;
            }
            if (g->findMappingIndex(bit) < 0) continue;
            UInt64 outside = 0;
            for (UInt32 v = 0; v < vertices; ++v)
                if (g->getPropertyIndex(v, bit) == 0xFFFFFFFFu) ++outside;
            if (outside)
                issue(ValidationIssue::Error, "indexRange", path,
                      std::to_string(outside) + " index value(s) outside the " +
                          std::to_string(p->size()) + " " + what);
        }
        // Degenerate faces: polygons with fewer than three corners, and
        // triangles whose corners repeat a position or have no area.
        auto typesField = GeoPTypesUI8Ptr::dcast(g->getTypes());
        UInt64 shortPolys = 0;
        if (typesField && len)
            for (UInt32 i = 0; i < types; ++i) {
                const UInt8 t = typesField->getField()[i];
                if ((t == 9 || t == 4 || t == 6 || t == 5) && len->getField()[i] < 3) ++shortPolys;
            }
        UInt64 flat = 0;
        auto pos = g->getPositions();
        if (pos && pos->size() > 0)
            for (auto it = g->beginTriangles(), end = g->endTriangles(); it != end; ++it) {
                UInt32 a = it.getPositionIndex(0), b = it.getPositionIndex(1),
                       c = it.getPositionIndex(2);
                if (a >= pos->size() || b >= pos->size() || c >= pos->size()) continue;
                if (a == b || b == c || a == c) {
                    ++flat;
                    continue;
                }
                Vec3f pa(float(pos->getComponent(a, 0)), float(pos->getComponent(a, 1)),
                         float(pos->getComponent(a, 2)));
                Vec3f pb(float(pos->getComponent(b, 0)), float(pos->getComponent(b, 1)),
                         float(pos->getComponent(b, 2)));
                Vec3f pc(float(pos->getComponent(c, 0)), float(pos->getComponent(c, 1)),
                         float(pos->getComponent(c, 2)));
                Vec3f cr = (pb - pa).cross(pc - pa);
                if (cr.length() == 0.f) ++flat;
            }
        if (shortPolys)
            issue(ValidationIssue::Error, "degeneratePolygon", path,
                  std::to_string(shortPolys) + " face(s) with fewer than three corners");
        if (flat)
            issue(ValidationIssue::Warning, "degeneratePolygon", path,
                  std::to_string(flat) + " triangle(s) without area");

        if (auto skin = g->findAttachment<SkinAttachment>()) {
            const UInt32 npos = pos ? pos->size() : 0;
            for (const auto& cl : skin->getJoints()) {
                if (!cl) continue;
                if (!cl->getNode())
                    issue(ValidationIssue::Error, "danglingConnection", path,
                          "skin cluster '" + cl->getName() + "' is driven by no node");
                UInt64 out = 0;
                for (const auto& w : cl->getWeights())
                    if (w.index >= npos || !std::isfinite(w.weight)) ++out;
                if (out)
                    issue(ValidationIssue::Error, "indexRange", path,
                          std::to_string(out) + " skin weight(s) of cluster '" + cl->getName() +
                              "' name no vertex or are not finite");
            }
        }
    }

    void checkSurface(const SurfacePtr& s, const std::string& path) {
        checkFinite(s->getControlPoints(), "control points", path);
        const UInt64 pts = s->getControlPoints() ? s->getControlPoints()->size() : 0;
        const UInt64 ku = s->getKnotsU().size(), kv = s->getKnotsV().size();
        const UInt64 du = s->getDimU(), dv = s->getDimV();
        if (ku < du + 2 || kv < dv + 2 || (ku - du - 1) * (kv - dv - 1) != pts)
            issue(ValidationIssue::Error, "mappingCount", path,
                  std::to_string(pts) + " control points do not match " + std::to_string(ku) +
                      " x " + std::to_string(kv) + " knots of degree " + std::to_string(du) +
                      " x " + std::to_string(dv));
    }

    void checkMaterial(const MaterialPtr& m, const std::string& path) {
        auto u = UberMaterialPtr::dcast(m);
        if (!u || !seenMaterial.insert(m.get()).second) return;
        const std::pair<const char*, ColorComponentSettingsPtr> channels[] = {
            {"diffuse", u->getDiffuseComponentSettings()},
            {"glossy", u->getGlossyComponentSettings()},
            {"specular", u->getSpecularComponentSettings()},
            {"incandescence", u->getIncandescenceComponentSettings()},
            {"bump", u->getBumpComponentSettings()},
            {"transparency", u->getTransparencyComponentSettings()}};
        for (const auto& [name, c] : channels)
            if (c && c->getUseTexture() && (!c->getImage() || !c->getImage()->isValid()))
                issue(ValidationIssue::Warning, "danglingConnection", path,
                      "material '" + m->getName() + "' uses a " + name +
                          " texture that has no image");
    }
};

} // namespace

std::size_t ValidationReport::errorCount() const {
    std::size_t n = 0;
    for (const auto& i : _issues)
        if (i.severity == ValidationIssue::Error) ++n;
    return n;
}

json ValidationReport::toJson() const {
    json list = json::array();
    for (const auto& i : _issues)
        list.push_back({{"severity", i.severity == ValidationIssue::Error ? "error" : "warning"},
                        {"check", i.check},
                        {"node", i.node},
                        {"text", i.text}});
    return {{"errors", errorCount()}, {"warnings", warningCount()}, {"issues", list}};
}

void ValidationReport::print(std::ostream& os, const std::string& file) const {
    os << file << ": " << errorCount() << " error(s), " << warningCount() << " warning(s)\n";
    for (const auto& i : _issues)
        os << "  " << (i.severity == ValidationIssue::Error ? "error  " : "warning") << " "
           << (i.node.empty() ? "" : i.node + ": ") << i.text << " [" << i.check << "]\n";
}

ValidationReport SceneValidator::check(const NodePtr& root,
                                       const std::vector<std::string>& missingTextures) {
    ValidationReport report;
    for (const auto& t : missingTextures)
        report.add({ValidationIssue::Error, "missingTexture", "", "texture '" + t + "' not found"});
    if (!root) return report;
    Walker w{report, {}, {}};
    std::vector<std::pair<NodePtr, std::string>> stack{{root, "/" + root->getName()}};
    while (!stack.empty()) {
        auto [node, path] = std::move(stack.back());
        stack.pop_back();
        NodeCorePtr core = node->getCore();
        if (auto t = TransformPtr::dcast(core)) {
            Matrix m = t->getMatrix();
            bool finite = true;
            for (int r = 0; r < 4; ++r)
                for (int c = 0; c < 4; ++c)
                    finite = finite && std::isfinite(m.at(r, c));
            if (!finite)
                w.issue(ValidationIssue::Error, "nonFinite", path,
                        "transform with NaN or infinite values");
        }
        if (auto d = DrawablePtr::dcast(core); d && d->getMaterial())
            w.checkMaterial(d->getMaterial(), path);
        if (auto g = GeometryPtr::dcast(core); g && w.seenGeometry.insert(g.get()).second)
            w.checkGeometry(g, path);
        if (auto s = SurfacePtr::dcast(core); s && w.seenGeometry.insert(s.get()).second)
            w.checkSurface(s, path);
        const auto& children = node->getChildren();
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.emplace_back(*it, path + "/" + (*it)->getName());
    }
    return report;
}
