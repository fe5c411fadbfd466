#include "ksQdxLoader.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksFile.h>
#include <kestrel/ksInterfaceFactory.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksLog.h>
#include <kestrel/ksMaterials.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOpenSGUtils.h>
#include <kestrel/ksOptimize.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/ksVertexMerger.h>
#include <kestrel/osg/Joint.h>
#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Quaternion.h>
#include <kestrel/osg/SceneFileHandler.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/TimeShapeCache.h>
#include <kestrel/osg/Transform.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

#include "ksQdxLightUnits.h"
#include "ksQdxMetaData.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {

// A node of its own named name that shares instance's core; the instance's
// children stay where they are (the node gets its own from its SDK node).
osg::NodePtr sharingCore(const osg::NodePtr& instance, const char* name) {
    osg::NodePtr node = osg::Node::create();
    node->setCore(instance->getCore());
    ksNodeUtils::setName(node, name, true);
    return node;
}

// Film sizes and offsets are inches in a Qdx camera, millimetres on the host.
constexpr double kMmPerInch = 25.4;
// Scene-unit width of an orthographic view at zoom 1, in centimetres.
constexpr double kOrthoZoomSize = 30.0;

constexpr QdxLayerElement::EType kDiffuseUV = QdxLayerElement::eTextureDiffuse;
// Texture slot of vertex colours; UV sets use slots 0 to 4.
constexpr osg::UInt32 kColorSlot = 7;
using UVSlots = std::vector<std::pair<std::string, osg::UInt32>>;

// SDK nodes that carry one attribute, and whether they may share its
// conversion.
struct InstanceEntry {
    bool instancing = true;
    std::vector<QdxNode*> nodes;
};

osg::Vec3f toVec3f(const QdxVector4& v) {
    return osg::Vec3f(static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2]));
}

osg::Vec3f toVec3f(const QdxVector4& v, double scale) {
    return osg::Vec3f(static_cast<float>(v[0] * scale), static_cast<float>(v[1] * scale),
                      static_cast<float>(v[2] * scale));
}

osg::Vec4f toVec4f(const QdxColor& c) {
    return osg::Vec4f(static_cast<float>(c.mRed), static_cast<float>(c.mGreen),
                      static_cast<float>(c.mBlue), static_cast<float>(c.mAlpha));
}

bool sameVector(const QdxVector4& a, const QdxVector4& b) {
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2] && a[3] == b[3];
}

// The SDK's reason for a failure, on standard output.
void printStatus(const QdxStatus& status) {
    std::printf("%s\n", status.GetErrorString());
}

// The reference service is looked up once per process.
ksReferenceInterface* referenceService() {
    static std::once_flag once;
    static ksReferenceInterface* service = nullptr;
    std::call_once(once, [] { service = ksInterfaceFactory::the().getReferenceInterface(); });
    return service;
}

// UV set names in slot order: reserved names take their own slot, the
// others the smallest free slot of 0..4; names beyond the pool are dropped.
UVSlots assignUVSlots(const QdxStringList& names) {
    static const std::pair<const char*, osg::UInt32> reserved[] = {
        {"Material UV Set", 0}, {"Lightmap UV Set", 1}, {"UV Set 3", 2},
        {"UV Set 4", 3},        {"UV Set 5", 4},
    };
    bool used[5] = {false, false, false, false, false};
    UVSlots result;
    std::vector<std::string> rest;
    for (int i = 0; i < names.GetCount(); ++i) {
        const std::string name = names[i].Str();
        bool found = false;
        for (const auto& [text, slot] : reserved)
            if (name == text && !used[slot]) {
                result.emplace_back(name, slot);
                used[slot] = true;
                found = true;
                break;
            }
        if (!found) rest.push_back(name);
    }
    for (const std::string& name : rest) {
        osg::UInt32 slot = 0;
        while (slot < 5 && used[slot])
            ++slot;
        if (slot == 5) break;
        used[slot] = true;
        result.emplace_back(name, slot);
    }
    return result;
}

// Pre-order over root's subtree with an explicit stack: hierarchies may be
// deeper than the call stack allows.
template <class Visit> void visitPreOrder(QdxNode* root, Visit&& visit) {
    std::vector<QdxNode*> pending;
    if (root) pending.push_back(root);
    while (!pending.empty()) {
        QdxNode* node = pending.back();
        pending.pop_back();
        visit(node);
        for (int i = node->GetChildCount() - 1; i >= 0; --i)
            if (QdxNode* child = node->GetChild(i)) pending.push_back(child);
    }
}

// One UV set's value at every corner of a mesh, in polygon and corner order.
// By control point every corner takes a value (zero where the index finds
// none); by polygon vertex a corner that the SDK flags as unmapped takes
// none. Any other mapping gives no values at all.
struct CornerUVs {
    osg::UInt32 slot = 0;
    bool skipUnmapped = false;
    std::vector<QdxVector2> values;
    std::vector<std::uint8_t> unmapped;
};

// What the corner-expanded geometries of one mesh are built from: the
// per-corner UV tables are read once, however many children use them.
struct CornerSource {
    QdxMesh* mesh = nullptr;
    std::vector<std::size_t> firstCorner; // table position of each polygon's corner 0
    std::vector<CornerUVs> uvs;
};

CornerUVs readCornerUVs(const QdxMesh* mesh, const std::string& name, osg::UInt32 slot,
                        bool reversed) {
    CornerUVs result;
    result.slot = slot;
    const QdxLayerElementUV* element = mesh->GetElementUV(name.c_str());
    if (!element) return result;
    const auto mapping = element->GetMappingMode();
    if (mapping != QdxLayerElement::eByControlPoint && mapping != QdxLayerElement::eByPolygonVertex)
        return result;
    result.skipUnmapped = mapping == QdxLayerElement::eByPolygonVertex;
    // Files with the "abc" suffix store per-corner UVs last corner first.
    element->GetPolygonVertexValues(*mesh, result.values, &result.unmapped,
                                    result.skipUnmapped && reversed);
    return result;
}

CornerSource readCornerSource(QdxMesh* mesh, const UVSlots& slots, bool reversed) {
    CornerSource source;
    source.mesh = mesh;
    const int polygonCount = std::max(mesh->GetPolygonCount(), 0);
    source.firstCorner.resize(static_cast<std::size_t>(polygonCount));
    std::size_t at = 0;
    for (int p = 0; p < polygonCount; ++p) {
        source.firstCorner[static_cast<std::size_t>(p)] = at;
        at += static_cast<std::size_t>(std::max(mesh->GetPolygonSize(p), 0));
    }
    for (const auto& [name, slot] : slots)
        source.uvs.push_back(readCornerUVs(mesh, name, slot, reversed));
    return source;
}

// The properties of one imported geometry. assemble() attaches each
// non-empty one and names it in the one index mapping; empty ones are
// released.
struct GeometryParts {
    osg::GeoPTypesUI8Ptr types = osg::GeoPTypesUI8::create();
    osg::GeoPLengthsUI32Ptr lengths = osg::GeoPLengthsUI32::create();
    osg::GeoIndicesUI32Ptr indices = osg::GeoIndicesUI32::create();
    osg::GeoPositions3fPtr positions = osg::GeoPositions3f::create();
    osg::GeoNormals3fPtr normals = osg::GeoNormals3f::create();
    osg::GeoTexCoords4fPtr colors = osg::GeoTexCoords4f::create();
    std::vector<std::pair<osg::GeoTexCoords2fPtr, osg::UInt32>> uvs;

    osg::GeometryPtr assemble() const;
};

osg::GeometryPtr GeometryParts::assemble() const {
    auto geometry = osg::Geometry::create();
    osg::UInt16 mapping = osg::MapPosition;
    positions->changed(osg::GeoProperty::ValuesFieldMask);
    if (!normals->empty()) {
        normals->changed(osg::GeoProperty::ValuesFieldMask);
        geometry->setNormals(normals);
        mapping |= osg::MapNormal;
    }
    if (!colors->empty()) {
        colors->changed(osg::GeoProperty::ValuesFieldMask);
        geometry->setTexSlot(colors, kColorSlot);
        mapping |= osg::MapTexCoords7;
    }
    for (const auto& [uv, slot] : uvs) {
        if (uv->empty()) continue;
        uv->changed(osg::GeoProperty::ValuesFieldMask);
        geometry->setTexSlot(uv, slot);
        mapping |= osg::mapTexCoordsBit(slot);
    }
    geometry->setTypes(types);
    geometry->setLengths(lengths);
    geometry->setIndices(indices);
    geometry->setPositions(positions);
    geometry->setIndexMapping({mapping});
    return geometry;
}

// One geometry with a vertex per corner of the given polygons, in order:
// polygon primitives, positions (scaled; zero for an invalid control
// point), one normal per corner as the SDK finds it (zero where the mesh
// has none), colours by control point when asked and present, the UV sets,
// and one index over all of them. When given, vertices records every
// produced vertex under its control point and corners receives (polygon,
// corner).
osg::GeometryPtr buildCornerGeometry(const CornerSource& source, const std::vector<int>& polygons,
                                     double scale, bool withColors,
                                     ksQdxLoader::ControlPointMap* vertices,
                                     ksQdxLoader::CornerList* corners) {
    const QdxMesh* mesh = source.mesh;
    const QdxVector4* points = mesh->GetControlPoints();
    const int pointCount = mesh->GetControlPointsCount();
    const QdxLayer* layer = mesh->GetLayer(0);
    const QdxLayerElementVertexColor* colorElement =
        withColors && layer ? layer->GetVertexColors() : nullptr;
    const QdxLayerElementNormal* normalElement = mesh->GetElementNormal();

    osg::UInt32 cornerCount = 0;
    for (int p : polygons)
        cornerCount += static_cast<osg::UInt32>(std::max(mesh->GetPolygonSize(p), 0));
    GeometryParts parts;
    auto& [types, lengths, indices, positions, normals, colors, slotted] = parts;
    types->reserve(static_cast<osg::UInt32>(polygons.size()));
    lengths->reserve(static_cast<osg::UInt32>(polygons.size()));
    indices->reserve(cornerCount);
    positions->reserve(cornerCount);
    normals->reserve(cornerCount);
    if (colorElement) colors->reserve(cornerCount);
    if (corners) corners->reserve(corners->size() + cornerCount);
    std::vector<osg::GeoTexCoords2fPtr> uvs;
    for (const CornerUVs& table : source.uvs) {
        uvs.push_back(osg::GeoTexCoords2f::create());
        if (!table.values.empty()) uvs.back()->reserve(cornerCount);
    }

    osg::UInt32 vertex = 0;
    for (int p : polygons) {
        const int size = mesh->GetPolygonSize(p);
        lengths->push_back(static_cast<osg::UInt32>(size));
        types->push_back(osg::PrimPolygon);
        for (int c = 0; c < size; ++c) {
            const int cp = mesh->GetPolygonVertex(p, c);
            if (vertices) vertices->emplace(cp, static_cast<int>(vertex));
            positions->push_back(cp >= 0 && cp < pointCount ? toVec3f(points[cp], scale)
                                                            : osg::Pnt3f(0.f, 0.f, 0.f));
            QdxVector4 normal(0.0, 0.0, 0.0, 0.0);
            if (normalElement) normalElement->GetPolygonVertexValue(*mesh, p, c, normal);
            normals->push_back(toVec3f(normal));
            if (corners) corners->emplace_back(p, c);
            if (colorElement) colors->push_back(toVec4f(colorElement->GetDirectArray().GetAt(cp)));
            indices->push_back(vertex++);
        }
        if (p < 0 || static_cast<std::size_t>(p) >= source.firstCorner.size()) continue;
        const std::size_t first = source.firstCorner[static_cast<std::size_t>(p)];
        for (std::size_t t = 0; t < source.uvs.size(); ++t) {
            const CornerUVs& table = source.uvs[t];
            for (std::size_t at = first; at < first + static_cast<std::size_t>(std::max(size, 0)) &&
                                         at < table.values.size();
                 ++at) {
                if (table.skipUnmapped && table.unmapped[at]) continue;
                const QdxVector2& uv = table.values[at];
                uvs[t]->push_back(osg::Vec2f(static_cast<float>(uv[0]), static_cast<float>(uv[1])));
            }
        }
    }

    for (std::size_t t = 0; t < uvs.size(); ++t)
        slotted.emplace_back(uvs[t], source.uvs[t].slot);
    return parts.assemble();
}

// Polygons read at a time by the merged corner build: the values of one
// block are all that is held besides the merged geometry.
constexpr int kPolygonsPerBlock = 4096;

// Whether every UV set of the mesh either gives every corner a value (by
// control point, or by polygon vertex with every corner mapped) or gives
// none: only then do the corner-expanded properties all hold one value per
// vertex, and only then are equal vertices merged.
bool uvSetsCoverCorners(const QdxMesh* mesh, const UVSlots& slots) {
    for (const auto& [name, slot] : slots) {
        const QdxLayerElementUV* element = mesh->GetElementUV(name.c_str());
        if (element && element->GetMappingMode() == QdxLayerElement::eByPolygonVertex &&
            !element->MapsEveryCorner(*mesh))
            return false;
    }
    return true;
}

// The geometry buildCornerGeometry makes of every polygon, with colours,
// followed by ksGeoOptimizer::mergeVertices, built a block of polygons at a
// time with equal vertices merged as they come: no property ever holds more
// than the merged vertices. Only for meshes whose UV sets pass
// uvSetsCoverCorners.
osg::GeometryPtr buildMergedCornerGeometry(const QdxMesh* mesh, const UVSlots& slots, double scale,
                                           bool reversed) {
    const int polygonCount = std::max(mesh->GetPolygonCount(), 0);
    const int pointCount = std::max(mesh->GetControlPointsCount(), 0);
    const QdxVector4* points = mesh->GetControlPoints();
    const int* cornerPoints = mesh->GetPolygonVertices();
    const int cornerArraySize = mesh->GetPolygonVertexCount();
    const QdxLayer* layer = mesh->GetLayer(0);
    const QdxLayerElementVertexColor* colorElement = layer ? layer->GetVertexColors() : nullptr;
    const QdxLayerElementNormal* normalElement = mesh->GetElementNormal();

    // Polygon p's corners run from starts[p] to the next polygon's start.
    const int* starts = mesh->GetPolygonStarts();
    auto polygonEnd = [&](int p) { return p + 1 < polygonCount ? starts[p + 1] : cornerArraySize; };
    const osg::UInt32 cornerCount =
        polygonCount > 0 ? static_cast<osg::UInt32>(std::max(cornerArraySize - starts[0], 0)) : 0;
    GeometryParts parts;
    auto& [types, lengths, indices, positions, normals, colors, slotted] = parts;
    types->reserve(static_cast<osg::UInt32>(polygonCount));
    lengths->reserve(static_cast<osg::UInt32>(polygonCount));
    indices->reserve(cornerCount);
    // Merged vertices are at most the corners; reserved pages that are never
    // written cost no memory.
    positions->reserve(cornerCount);
    normals->reserve(cornerCount);

    std::vector<osg::Pnt3f> scaled(static_cast<std::size_t>(pointCount));
    for (int i = 0; i < pointCount; ++i)
        scaled[static_cast<std::size_t>(i)] = toVec3f(points[i], scale);
    ksVertexMerger merger(positions, std::move(scaled));
    const std::size_t normalColumn = merger.addAttribute(normals);

    // Colours by control point, as single-precision values, read once.
    std::vector<osg::Vec4f> pointColors;
    std::size_t colorColumn = 0;
    if (colorElement) {
        const auto& direct = colorElement->GetDirectArray();
        std::vector<QdxColor> read;
        direct.GetRange(0, std::min(pointCount, direct.GetCount()), read);
        pointColors.reserve(read.size());
        for (const QdxColor& c : read)
            pointColors.push_back(toVec4f(c));
        colors->reserve(cornerCount);
        colorColumn = merger.addAttribute(colors);
    }

    struct UVSet {
        const QdxLayerElementUV* element;
        bool reverse;
        std::size_t column;
        std::vector<QdxVector2> values;
    };
    std::vector<UVSet> uvSets;
    for (const auto& [name, slot] : slots) {
        const QdxLayerElementUV* element = mesh->GetElementUV(name.c_str());
        if (!element) continue;
        const auto mapping = element->GetMappingMode();
        if (mapping != QdxLayerElement::eByControlPoint &&
            mapping != QdxLayerElement::eByPolygonVertex)
            continue;
        auto uvs = osg::GeoTexCoords2f::create();
        if (cornerCount > 0) uvs->reserve(cornerCount);
        // Files with the "abc" suffix store per-corner UVs last corner first.
        uvSets.push_back({element,
                          reversed && mapping == QdxLayerElement::eByPolygonVertex,
                          merger.addAttribute(uvs),
                          {}});
        slotted.emplace_back(uvs, slot);
    }

    std::vector<QdxVector4> blockNormals;
    for (int first = 0; first < polygonCount; first += kPolygonsPerBlock) {
        const int count = std::min(kPolygonsPerBlock, polygonCount - first);
        if (normalElement) normalElement->GetPolygonVertexValues(*mesh, first, count, blockNormals);
        for (UVSet& set : uvSets)
            set.element->GetPolygonVertexValues(*mesh, first, count, set.values, nullptr,
                                                set.reverse);
        std::size_t at = 0; // corner within the block
        for (int p = first; p < first + count; ++p) {
            const int start = starts[p];
            const int size = std::max(polygonEnd(p) - start, 0);
            lengths->push_back(static_cast<osg::UInt32>(size));
            types->push_back(osg::PrimPolygon);
            for (int c = 0; c < size; ++c, ++at) {
                const int corner = start + c;
                const int cp = corner >= 0 && corner < cornerArraySize ? cornerPoints[corner] : -1;
                merger.set(normalColumn, at < blockNormals.size() ? toVec3f(blockNormals[at])
                                                                  : osg::Vec3f(0.f, 0.f, 0.f));
                if (colorElement)
                    merger.set(colorColumn,
                               cp >= 0 && static_cast<std::size_t>(cp) < pointColors.size()
                                   ? pointColors[static_cast<std::size_t>(cp)]
                                   : toVec4f(colorElement->GetDirectArray().GetAt(cp)));
                for (const UVSet& set : uvSets) {
                    const QdxVector2 uv = at < set.values.size() ? set.values[at] : QdxVector2();
                    merger.set(set.column,
                               osg::Vec2f(static_cast<float>(uv[0]), static_cast<float>(uv[1])));
                }
                indices->push_back(merger.add(cp));
            }
        }
    }
    return parts.assemble();
}

// The control-point layout: every property copied by control point, and
// the index taken from the diffuse UV element as its reference mode says.
osg::GeometryPtr buildControlPointGeometry(QdxMesh* mesh, const UVSlots& slots, int uvMapping,
                                           int uvReference, double scale,
                                           ksQdxLoader::CornerList* corners) {
    QdxLayer* layer = mesh->GetLayer(0);
    QdxLayerElementNormal* normalElement = layer ? layer->GetNormals() : nullptr;
    QdxLayerElementVertexColor* colorElement = layer ? layer->GetVertexColors() : nullptr;
    const int normalCount = normalElement ? normalElement->GetDirectArray().GetCount() : 0;
    const int colorCount = colorElement ? colorElement->GetDirectArray().GetCount() : 0;
    const int pointCount = mesh->GetControlPointsCount();
    const QdxVector4* points = mesh->GetControlPoints();
    const int polygonCount = mesh->GetPolygonCount();

    GeometryParts parts;
    auto& [types, lengths, indices, positions, normals, colors, slotted] = parts;
    types->reserve(static_cast<osg::UInt32>(std::max(polygonCount, 0)));
    lengths->reserve(static_cast<osg::UInt32>(std::max(polygonCount, 0)));
    auto& pos = positions->editField();
    pos.resize(static_cast<size_t>(pointCount));
    for (int i = 0; i < pointCount; ++i)
        pos[static_cast<size_t>(i)] = toVec3f(points[i], scale);
    if (normalCount > 0) {
        const double* d = normalElement->GetDirectArray().GetDoubles();
        auto& out = normals->editField();
        out.resize(static_cast<size_t>(normalCount));
        for (size_t i = 0; i < out.size(); ++i)
            out[i] = osg::Vec3f(static_cast<float>(d[4 * i]), static_cast<float>(d[4 * i + 1]),
                                static_cast<float>(d[4 * i + 2]));
    }
    if (colorCount > 0) {
        const double* d = colorElement->GetDirectArray().GetDoubles();
        auto& out = colors->editField();
        out.resize(static_cast<size_t>(colorCount));
        for (size_t i = 0; i < out.size(); ++i)
            out[i] = osg::Vec4f(static_cast<float>(d[4 * i]), static_cast<float>(d[4 * i + 1]),
                                static_cast<float>(d[4 * i + 2]), static_cast<float>(d[4 * i + 3]));
    }
    int lastMapping = uvMapping, lastReference = uvReference;
    for (const auto& [uvName, slot] : slots) {
        const QdxLayerElementUV* element = mesh->GetElementUV(uvName.c_str());
        if (!element) continue;
        lastMapping = element->GetMappingMode();
        lastReference = element->GetReferenceMode();
        const auto& direct = element->GetDirectArray();
        if (direct.GetCount() <= 0) continue;
        auto uvs = osg::GeoTexCoords2f::create();
        auto& out = uvs->editField();
        out.resize(static_cast<size_t>(direct.GetCount()));
        const double* d = direct.GetDoubles();
        for (size_t i = 0; i < out.size(); ++i)
            out[i] = osg::Vec2f(static_cast<float>(d[2 * i]), static_cast<float>(d[2 * i + 1]));
        slotted.emplace_back(uvs, slot);
    }
    // The mesh's checks on reading keep every polygon's corners inside the
    // corner array, so the corners are read from it directly.
    const int* cornerPoints = mesh->GetPolygonVertices();
    const int cornerCount = mesh->GetPolygonVertexCount();
    const bool indexed = lastMapping == QdxLayerElement::eByControlPoint &&
                         (lastReference == QdxLayerElement::eIndexToDirect ||
                          lastReference == QdxLayerElement::eDirect);
    const QdxLayerElementUV* diffuse = layer ? layer->GetUVs(kDiffuseUV) : nullptr;
    if (indexed) indices->reserve(static_cast<osg::UInt32>(std::max(cornerCount, 0)));
    if (corners) corners->reserve(static_cast<std::size_t>(std::max(cornerCount, 0)));
    auto& typeField = types->editField();
    auto& lengthField = lengths->editField();
    auto& indexField = indices->editField();
    for (int p = 0; p < polygonCount; ++p) {
        const int size = std::max(mesh->GetPolygonSize(p), 0);
        const int start = mesh->GetPolygonVertexIndex(p);
        lengthField.push_back(static_cast<osg::UInt32>(size));
        typeField.push_back(osg::PrimPolygon);
        if (indexed)
            for (int c = 0; c < size && start + c < cornerCount; ++c) {
                const int cp = cornerPoints[start + c];
                if (lastReference == QdxLayerElement::eDirect)
                    indexField.push_back(static_cast<osg::UInt32>(cp));
                else
                    indexField.push_back(static_cast<osg::UInt32>(
                        diffuse ? diffuse->GetCornerIndex(p, start + c, cp) : -1));
            }
        if (corners)
            for (int c = 0; c < size; ++c)
                corners->emplace_back(p, c);
    }
    return parts.assemble();
}

// Frees a converted mesh's SDK arrays when nothing later reads them: a mesh
// of one node (other nodes would share its converted geometry) without
// deformers (skin weights, clusters and vertex caches read it again after
// the conversion). The SDK scene then shrinks while the host scene grows.
void releaseConvertedMesh(QdxMesh* mesh) {
    if (mesh && mesh->GetNodeCount() == 1 && mesh->GetDeformerCount() == 0) mesh->ReleaseArrays();
}

// A Qdx matrix as a scene-graph matrix, its translation scaled by factor:
// the Qdx rows become the stored vectors unchanged.
osg::Matrix toMatrix(QdxAMatrix matrix, double factor) {
    const QdxVector4 t = matrix.GetT();
    matrix.SetT(QdxVector4(t[0] * factor, t[1] * factor, t[2] * factor, t[3]));
    osg::Matrix result;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            result[i][j] = static_cast<float>(matrix.Get(i, j));
    return result;
}

// The first vertex-cache deformer of the node's geometry: the only one the
// host plays.
QdxVertexCacheDeformer* firstVertexCache(QdxNode* node) {
    auto* geometry = node ? QdxCast<QdxGeometry>(node->GetNodeAttribute()) : nullptr;
    if (!geometry || geometry->GetDeformerCount(QdxDeformer::eVertexCache) < 1) return nullptr;
    return QdxCast<QdxVertexCacheDeformer>(geometry->GetDeformer(0, QdxDeformer::eVertexCache));
}

// Vertex normals of an imported mesh for new control point positions. A
// vertex takes the area-weighted normals of the polygons around its control
// point whose corners there had the same normal as its own on import, so
// smooth corners stay smooth and hard edges stay hard. In the control-point
// layout a vertex is its control point and takes all of its polygons.
class CornerNormals {
public:
    CornerNormals(const QdxMesh* mesh, const osg::GeometryPtr& geometry,
                  const ksQdxLoader::ControlPointMap& vertices,
                  const ksQdxLoader::CornerList& corners);
    // One normal per vertex; none when the geometry has no normal per vertex.
    void compute(const std::vector<QdxVector4>& points, std::vector<osg::Vec3f>& out) const;

private:
    struct Corner {
        std::size_t polygon = 0; // position in _polygons
        int point = -1;          // control point, -1 when invalid
        int group = -1;          // normal group, -1 when none
    };
    std::vector<Corner> _corners;
    std::vector<std::vector<int>> _polygons; // control points of each polygon
    std::vector<int> _vertexGroup;           // normal group of each vertex
    std::size_t _groupCount = 0;
};

CornerNormals::CornerNormals(const QdxMesh* mesh, const osg::GeometryPtr& geometry,
                             const ksQdxLoader::ControlPointMap& vertices,
                             const ksQdxLoader::CornerList& corners) {
    const auto normals = osg::GeoNormals3fPtr::dcast(geometry->getNormals());
    const auto positions = geometry->getPositions();
    const int pointCount = mesh->GetControlPointsCount();
    const std::size_t vertexCount = positions ? positions->size() : 0;
    const bool byCorner = !vertices.empty();
    // Without one normal per vertex (or one corner per vertex) there is
    // nothing to keep up to date.
    if (!normals || normals->size() != vertexCount || (byCorner && corners.size() != vertexCount))
        return;
    std::map<std::tuple<int, std::uint32_t, std::uint32_t, std::uint32_t>, int> groups;
    _vertexGroup.assign(vertexCount, -1);
    int previous = INT_MIN;
    for (std::size_t k = 0; k < corners.size(); ++k) {
        const auto [p, c] = corners[k];
        if (p != previous || _polygons.empty()) _polygons.emplace_back();
        previous = p;
        Corner corner;
        corner.polygon = _polygons.size() - 1;
        const int cp = mesh->GetPolygonVertex(p, c);
        corner.point = cp >= 0 && cp < pointCount ? cp : -1;
        _polygons.back().push_back(corner.point);
        if (corner.point >= 0 && byCorner) {
            const osg::Vec3f& n = normals->getField()[k];
            const auto key = std::make_tuple(corner.point, std::bit_cast<std::uint32_t>(n[0]),
                                             std::bit_cast<std::uint32_t>(n[1]),
                                             std::bit_cast<std::uint32_t>(n[2]));
            corner.group = groups.try_emplace(key, static_cast<int>(groups.size())).first->second;
            _vertexGroup[k] = corner.group;
        } else if (corner.point >= 0 && static_cast<std::size_t>(corner.point) < vertexCount) {
            corner.group = corner.point;
            _vertexGroup[static_cast<std::size_t>(corner.point)] = corner.point;
        }
        _corners.push_back(corner);
    }
    _groupCount = byCorner ? groups.size() : vertexCount;
}

void CornerNormals::compute(const std::vector<QdxVector4>& points,
                            std::vector<osg::Vec3f>& out) const {
    out.clear();
    if (_vertexGroup.empty()) return;
    // Newell's normal of each polygon: its length is twice the area.
    std::vector<QdxVector4> faces(_polygons.size());
    for (std::size_t f = 0; f < _polygons.size(); ++f) {
        const std::vector<int>& polygon = _polygons[f];
        double n[3] = {0.0, 0.0, 0.0};
        for (std::size_t i = 0; i < polygon.size(); ++i) {
            const int a = polygon[i], b = polygon[(i + 1) % polygon.size()];
            if (a < 0 || b < 0) continue;
            const QdxVector4 &u = points[static_cast<std::size_t>(a)],
                             &v = points[static_cast<std::size_t>(b)];
            n[0] += (u[1] - v[1]) * (u[2] + v[2]);
            n[1] += (u[2] - v[2]) * (u[0] + v[0]);
            n[2] += (u[0] - v[0]) * (u[1] + v[1]);
        }
        faces[f] = QdxVector4(n[0], n[1], n[2], 0.0);
    }
    std::vector<QdxVector4> sums(_groupCount, QdxVector4(0.0, 0.0, 0.0, 0.0));
    for (const Corner& corner : _corners)
        if (corner.group >= 0) {
            QdxVector4& sum = sums[static_cast<std::size_t>(corner.group)];
            sum = sum + faces[corner.polygon];
        }
    out.reserve(_vertexGroup.size());
    for (int group : _vertexGroup) {
        osg::Vec3f n(0.f, 0.f, 0.f);
        if (group >= 0) n = toVec3f(sums[static_cast<std::size_t>(group)]);
        const float length = n.length();
        out.push_back(length > 0.f ? n / length : n);
    }
}

// Colour with its factor: (0, 0, 0) unless both properties exist; a factor
// other than exactly 1 scales the colour.
QdxDouble3 colorWithFactor(QdxSurfaceMaterial* material, const char* colorName,
                           const char* factorName) {
    QdxDouble3 result(0.0, 0.0, 0.0);
    QdxProperty color = material->FindProperty(colorName);
    QdxProperty factor = material->FindProperty(factorName);
    if (!color.IsValid() || !factor.IsValid()) return result;
    result = color.Get<QdxDouble3>();
    const double f = factor.Get<double>();
    if (f != 1.0)
        for (int i = 0; i < 3; ++i)
            result[i] *= f;
    return result;
}

osg::Color3f toColor3f(const QdxDouble3& c) {
    return osg::Color3f(static_cast<float>(c[0]), static_cast<float>(c[1]),
                        static_cast<float>(c[2]));
}

// The file texture of a material property: a layered texture gives its first
// file texture; otherwise the last texture examined wins.
QdxFileTexture* findTexture(QdxSurfaceMaterial* material, const char* propertyName) {
    QdxProperty property = material->FindProperty(propertyName);
    if (!property.IsValid()) return nullptr;
    const QdxCriteria textures = QdxCriteria::ObjectType(QdxTexture::ClassId);
    QdxFileTexture* result = nullptr;
    const int count = property.GetSrcObjectCount(textures);
    for (int i = 0; i < count; ++i) {
        QdxObject* source = property.GetSrcObject(textures, i);
        if (auto* layered = QdxCast<QdxLayeredTexture>(source))
            return layered->GetSrcObject<QdxFileTexture>(0);
        result = QdxCast<QdxFileTexture>(source);
    }
    return result;
}

} // namespace

// A converted camera, its SDK node and the SDK nodes it looks at and up to.
struct CameraTarget {
    osg::NodePtr camera;
    QdxNode* node = nullptr;
    QdxNode* target = nullptr;
    QdxNode* up = nullptr;
};

struct ksQdxLoader::Data {
    std::string fileName;
    std::string options;
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    std::map<QdxNodeAttribute*, InstanceEntry> instances;
    std::multimap<QdxNodeAttribute*, std::pair<QdxNode*, osg::NodePtr>> convertedInstances;
    // Every converted SDK node, for the clusters that name their joints.
    std::map<QdxNode*, osg::NodePtr> convertedNodes;
    TextureTable textures;
    std::map<QdxSurfaceMaterial*, osg::MaterialPtr> materials;
    // Geometries whose equal vertices were merged while they were built:
    // the optimizer would find nothing left to merge in them.
    std::set<const osg::Geometry*> mergedGeometries;
    // Skin clusters waiting for their joint nodes, with the SDK node that
    // drives each.
    std::vector<std::pair<osg::SkinAttachmentPtr,
                          std::vector<std::pair<QdxNode*, osg::DeformerClusterPtr>>>>
        clusterLinks;
    // Cameras aimed at other nodes, linked once the whole tree exists.
    std::vector<CameraTarget> cameraTargets;
    // Animation: the layers of every stack in order, the keyable channels
    // of the node being converted (filled by its first curve), and the
    // number of attachments made here.
    std::vector<QdxAnimLayer*> animLayers;
    std::vector<ksAnimManager::ksOSGChannelData> keyableChannels;
    int attachmentCount = 0;
    // Host curves given points so far, to tell layers that gave a node none.
    std::size_t curvesFilled = 0;
    bool flush_transforms = false;
    bool importJoints = true;
    bool reduce_keyframes = true;
    bool enable_metadata = true;
};

// ---------------------------------------------------------------------------
// Driver

osg::NodePtr ksQdxLoader::read(const std::string& fileName, const std::string& options) {
    if (fileName.empty()) return osg::NullFC;
    ksQdxLoader loader(fileName, options);
    return loader.read();
}

ksQdxLoader::ksQdxLoader(const std::string& fileName, const std::string& options)
    : _d(std::make_unique<Data>()) {
    _d->fileName = fileName;
    _d->options = options;
    parseOptions();
}

ksQdxLoader::ksQdxLoader(const ksQdxLoader& other)
    : _status(other._status), _d(std::make_unique<Data>(*other._d)),
      _convertedNodes(other._convertedNodes), _totalNodes(other._totalNodes), fps(other.fps),
      _progress(other._progress), _unitScaleFactor(other._unitScaleFactor),
      _sceneScaleFactor(other._sceneScaleFactor),
      _unitConversionFactor(other._unitConversionFactor) {}

ksQdxLoader& ksQdxLoader::operator=(const ksQdxLoader& other) {
    if (this == &other) return *this;
    _status = other._status;
    *_d = *other._d;
    _convertedNodes = other._convertedNodes;
    _totalNodes = other._totalNodes;
    fps = other.fps;
    _progress = other._progress;
    _unitScaleFactor = other._unitScaleFactor;
    _sceneScaleFactor = other._sceneScaleFactor;
    _unitConversionFactor = other._unitConversionFactor;
    return *this;
}

ksQdxLoader::~ksQdxLoader() = default;

void ksQdxLoader::parseOptions() {
    const std::string& options = _d->options;
    if (options.find("flush_transforms") != std::string::npos)
        _d->flush_transforms = ksString::getBoolOption(options, "flush_transforms");
    if (options.find("reduce_keyframes") != std::string::npos)
        _d->reduce_keyframes = ksString::getBoolOption(options, "reduce_keyframes");
    if (options.find("enable_metadata") != std::string::npos)
        _d->enable_metadata = ksString::getBoolOption(options, "enable_metadata");
}

osg::NodePtr ksQdxLoader::read() {
    _status = 0;
    QdxManager* manager = QdxManager::Create();
    if (!manager) return osg::NullFC;
    _d->manager = manager;
    // Whatever happens below, the SDK objects go with the manager.
    struct ManagerGuard {
        Data* d;
        ~ManagerGuard() {
            if (d->manager) d->manager->Destroy();
            d->manager = nullptr;
            d->scene = nullptr;
        }
    } guard{_d.get()};

    QdxIOSettings* settings = QdxIOSettings::Create(manager, "IOSRoot");
    for (const char* path :
         {"Import|AdvOptGrp|FileFormat|Qdx|Material", "Import|AdvOptGrp|FileFormat|Qdx|Texture",
          "Import|AdvOptGrp|FileFormat|Qdx|Link", "Import|AdvOptGrp|FileFormat|Qdx|Shape",
          "Import|AdvOptGrp|FileFormat|Qdx|Gobo", "Import|AdvOptGrp|FileFormat|Qdx|Animation",
          "Import|AdvOptGrp|FileFormat|Qdx|Global_Settings"})
        settings->SetBoolProp(path, true);

    QdxScene* scene = QdxScene::Create(manager, "");
    if (!scene) return osg::NullFC;
    _d->scene = scene;
    QdxImporter* importer = QdxImporter::Create(manager, "");

    ksLog::info("QdxImport: initializing importer ...");
    const std::string path = ksFile::convertSeparators(_d->fileName);
    if (!importer->Initialize(path.c_str(), -1, nullptr)) {
        ksLog::error("QdxImport: initializing of importer failed!");
        printStatus(importer->GetStatus());
        return osg::NullFC;
    }
    ksLog::info("QdxImport: initializing ready");
    _progress = 0;
    if (!importer->Import(scene, true)) {
        ksLog::error("QdxImport: import failed!");
        printStatus(importer->GetStatus());
        return osg::NullFC;
    }
    QdxStatus status;
    while (importer->IsImporting(status)) {
        _progress = static_cast<osg::Int32>(importer->GetProgress() * 0.5);
        osg::SceneFileHandler::the().updateReadProgress(static_cast<osg::UInt32>(_progress));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // A file that fails while it is read leaves the scene empty; say so
    // rather than hand back an empty tree.
    if (status.Error() || importer->GetStatus().Error()) {
        ksLog::error("QdxImport: import failed!");
        printStatus(status.Error() ? status : importer->GetStatus());
        return osg::NullFC;
    }
    // What the reader could not carry (another format's features, say).
    for (const std::string& note : QdxGetConversionNotes(scene))
        ksLog::warning("QdxImport: %s", note.c_str());

    int major = 0, minor = 0, revision = 0;
    QdxManager::GetFileFormatVersion(major, minor, revision);
    ksLog::info("QdxImport: SDK Version: %i.%i.%i\n", major, minor, revision);
    importer->GetFileVersion(major, minor, revision);
    ksLog::info("QdxImport: Fileversion: %i.%i.%i\n", major, minor, revision);
    for (int i = 0; i < importer->GetAnimStackCount(); ++i) {
        const QdxTakeInfo* take = importer->GetTakeInfo(i);
        if (!take) continue;
        std::printf("Anim take: %s %d layers\n", take->mName.Buffer(),
                    static_cast<int>(take->mLayerInfoList.size()));
        for (const QdxLayerInfo& layer : take->mLayerInfoList)
            std::printf("Anim layer: %d - %s\n", layer.mLayerID, layer.mName.Buffer());
    }
    importer->Destroy(false);

    ksLog::info("QdxImport: loading textures ...");
    _d->textures.clear();
    loadSupportedTexturesRecursive(scene->GetRootNode(), _d->textures);
    ksLog::info("QdxImport: loading textures ready.");
    if (const QdxDocumentInfo* info = scene->GetDocumentInfo()) {
        std::printf("Created with %s %s %s\n", info->Original_ApplicationVendor.Get().Buffer(),
                    info->Original_ApplicationName.Get().Buffer(),
                    info->Original_ApplicationVersion.Get().Buffer());
        std::printf("Created %s\n", info->Original_DateTime_GMT.Get().toString().c_str());
        std::printf("Last saved with %s %s %s\n", info->LastSaved_ApplicationVendor.Get().Buffer(),
                    info->LastSaved_ApplicationName.Get().Buffer(),
                    info->LastSaved_ApplicationVersion.Get().Buffer());
        std::printf("Last saved %s\n", info->LastSaved_DateTime_GMT.Get().toString().c_str());
    }

    // Axis system and unit of the host's current scene.
    const ksSceneData* sceneData = ksSceneDataManager::getSceneData(0);
    const int upAxis = sceneData ? sceneData->getUpAxis() : ksSceneData::ZUp;
    const int unit = sceneData ? sceneData->getLengthUnit() : ksSceneData::Millimeter;
    const QdxAxisSystem& targetAxis =
        upAxis == ksSceneData::ZUp ? QdxAxisSystem::ToveZUp : QdxAxisSystem::ToveYUp;
    const QdxSystemUnit& targetUnit = unit == ksSceneData::Meter        ? QdxSystemUnit::m
                                      : unit == ksSceneData::Centimeter ? QdxSystemUnit::cm
                                                                        : QdxSystemUnit::mm;
    QdxGlobalSettings& globals = scene->GetGlobalSettings();
    const QdxSystemUnit storedUnit = globals.GetSystemUnit();
    targetAxis.ConvertScene(scene);
    const QdxAxisSystem loadedAxis = globals.GetAxisSystem();
    QdxSystemUnit::cm.ConvertScene(scene, QdxSystemUnit::DefaultConversionOptions);
    const QdxSystemUnit sceneUnit = globals.GetSystemUnit();
    std::printf("Unit of length: %s\n", sceneUnit.GetScaleFactorAsString(true).Buffer());
    _sceneScaleFactor = sceneUnit.GetScaleFactor();
    _unitScaleFactor = 1.0 / targetUnit.GetScaleFactor();
    _unitConversionFactor = _sceneScaleFactor / targetUnit.GetScaleFactor();
    std::printf("Kestrel Scale Factor: %g\n", targetUnit.GetScaleFactor());
    std::printf("Scene Scale Factor: %g\n", _sceneScaleFactor);
    std::printf("Original scale Factor: %g\n", storedUnit.GetScaleFactor());
    std::printf("_unitScaleFactor: %g\n", _unitScaleFactor);
    std::printf("_unitConversionFactor: %g\n", _unitConversionFactor);
    ksMessage message;
    message.set("zup", loadedAxis == QdxAxisSystem::ToveZUp);
    ksOpenSGUtils::call("LoadedQDXAxisSystem", message, 0);

    preparePointCacheData(scene);

    // Frame rate, and animation ranges that only ever widen.
    // The scene's own rate, a custom one included.
    fps = globals.GetFrameRate();
    std::printf("Input framerate: %f\n", fps);
    ksAnimManager& anim = ksAnimManager::the();
    anim.setFPS(fps);
    anim.setPlaybackFPS(fps);
    QdxTimeSpan span;
    globals.GetTimelineDefaultTimeSpan(span);
    auto toFrame = [this](QdxTime time) {
        const long long ms = time.Get() / QdxTime::kTicksPerMillisecond;
        const double frame = static_cast<double>(ms) / 1000.0 * fps;
        // Frames outside the int range (hostile files) are clamped.
        if (!(frame > 0.0)) return 0;
        if (frame >= static_cast<double>(INT_MAX)) return INT_MAX;
        return static_cast<int>(frame);
    };
    const int startFrame = toFrame(span.GetStart());
    const int endFrame = toFrame(span.GetStop());
    if (anim.fullRangeStart() > startFrame) {
        anim.setFullRangeStart(startFrame);
        anim.setDetailedRangeStart(startFrame);
    }
    if (anim.fullRangeEnd() < endFrame) {
        anim.setFullRangeEnd(endFrame);
        anim.setDetailedRangeEnd(endFrame);
    }

    std::printf("QDX: getting root...\n");
    QdxNode* root = scene->GetRootNode();
    ksLog::info("QdxImport: converting scenegraph ...");
    _d->convertedInstances.clear();
    _d->convertedNodes.clear();
    _d->clusterLinks.clear();
    _d->cameraTargets.clear();
    _convertedNodes = 0;
    _totalNodes = root ? root->GetChildCount(true) : 0;

    preConvert(root);
    for (auto& [attribute, entry] : _d->instances) {
        if (!entry.instancing || entry.nodes.empty()) continue;
        for (QdxNode* node : entry.nodes)
            if (!transformsEqual(entry.nodes.front(), node)) {
                entry.instancing = false;
                break;
            }
    }

    extractAnimations(scene);
    osg::NodePtr node = convert(root);
    if (!node) return osg::NullFC;

    std::vector<osg::NodePtr> badGeometries;
    ksNodeUtils::verifyGeometry(node, badGeometries, 0);
    ksNodeUtils::convertToShellRecursiveOptions(node, false);
    updateCameraTargets(node);
    updateDeformerClusterNodes(node);
    if (_d->enable_metadata)
        ksQdxMetaData::addMetadataFromDocumentInfo(scene->GetDocumentInfo(), _d->fileName, node);

    ksLog::info("QdxImport: converting scenegraph ready.");
    warnArrayFaults(manager);
    manager->Destroy();
    _d->manager = nullptr;
    _d->scene = nullptr;
    _d->instances.clear();
    _d->convertedInstances.clear();
    _d->convertedNodes.clear();
    _d->textures.clear();
    _d->materials.clear();
    _d->clusterLinks.clear();
    _d->cameraTargets.clear();

    if (_d->flush_transforms) ksOptimize::flushTransformations(node);

    if (ksReferenceInterface* service = referenceService())
        node = service->reference(node, _d->fileName);
    if (node && ksNodeUtils::getName(node) == "RootNode")
        ksNodeUtils::setName(node, ksFile::getBaseName(_d->fileName), true);
    return node;
}

// ---------------------------------------------------------------------------
// Nodes and transforms

void ksQdxLoader::preConvert(QdxNode* root) {
    visitPreOrder(root, [this](QdxNode* node) { preConvertNode(node); });
}

void ksQdxLoader::preConvertNode(QdxNode* node) {
    const QdxVector4 zero(0, 0, 0, 1), one(1, 1, 1, 1);
    node->SetPivotState(QdxNode::eSourcePivot, QdxNode::ePivotActive);
    node->SetPivotState(QdxNode::eDestinationPivot, QdxNode::ePivotActive);
    node->SetRotationOrder(QdxNode::eDestinationPivot, eEulerXYZ);

    bool neutralise = true;
    if (QdxLight* light = node->GetLight()) {
        if (light->LightType.Get() != QdxLight::ePoint) {
            const QdxAMatrix turn(zero, QdxVector4(90, 0, 0, 0), one);
            const QdxAMatrix post(zero, node->GetPostRotation(QdxNode::eSourcePivot), one);
            // Applied before the file's post-rotation is undone, the turn
            // brings the host's -Z emission onto the file's -Y.
            // The same for the host's -Z view onto the file's +X.
            const QdxAMatrix product = turn * post;
            node->SetPostRotation(QdxNode::eSourcePivot, product.GetR());
            node->SetRotationActive(true);
        } else {
            node->SetPostRotation(QdxNode::eSourcePivot, QdxVector4(0, 0, 0, 0));
        }
    } else if (node->GetCamera()) {
        if (!node->GetTarget()) {
            const QdxAMatrix turn(zero, QdxVector4(0, 90, 0, 0), one);
            const QdxAMatrix post(zero, node->GetPostRotation(QdxNode::eSourcePivot), one);
            const QdxAMatrix product = turn * post;
            node->SetPostRotation(QdxNode::eSourcePivot, product.GetR());
            node->SetRotationActive(true);
        }
        neutralise = false;
    }
    if (neutralise) {
        node->SetRotationActive(true);
        const auto dst = QdxNode::eDestinationPivot, src = QdxNode::eSourcePivot;
        node->SetPreRotation(dst, zero);
        node->SetPostRotation(dst, zero);
        node->SetGeometricTranslation(dst, zero);
        node->SetGeometricRotation(dst, zero);
        node->SetGeometricScaling(dst, one);
        node->SetRotationPivot(dst, node->GetRotationPivot(src));
        node->SetScalingPivot(dst, node->GetScalingPivot(src));
        node->SetRotationOffset(dst, node->GetRotationOffset(src));
        node->SetScalingOffset(dst, node->GetScalingOffset(src));
    }
    node->SetQuaternionInterpolation(QdxNode::eDestinationPivot,
                                     node->GetQuaternionInterpolation(QdxNode::eSourcePivot));
    if (QdxNodeAttribute* attribute = node->GetNodeAttribute())
        _d->instances[attribute].nodes.push_back(node);
}

bool ksQdxLoader::transformsEqual(QdxNode* a, QdxNode* b) const {
    const auto dst = QdxNode::eDestinationPivot;
    return sameVector(a->EvaluateLocalTranslation(QdxTime(), dst, true),
                      b->EvaluateLocalTranslation(QdxTime(), dst, true)) &&
           sameVector(a->EvaluateLocalRotation(QdxTime(), dst, true),
                      b->EvaluateLocalRotation(QdxTime(), dst, true)) &&
           sameVector(a->EvaluateLocalScaling(QdxTime(), dst, true),
                      b->EvaluateLocalScaling(QdxTime(), dst, true)) &&
           sameVector(a->GetPreRotation(dst), b->GetPreRotation(dst)) &&
           sameVector(a->GetPostRotation(dst), b->GetPostRotation(dst)) &&
           sameVector(a->GetRotationPivot(dst), b->GetRotationPivot(dst)) &&
           sameVector(a->GetRotationOffset(dst), b->GetRotationOffset(dst)) &&
           sameVector(a->GetScalingPivot(dst), b->GetScalingPivot(dst)) &&
           sameVector(a->GetScalingOffset(dst), b->GetScalingOffset(dst));
}

osg::NodePtr ksQdxLoader::getNode(QdxNode* node) const {
    QdxNodeAttribute* attribute = node ? node->GetNodeAttribute() : nullptr;
    if (!attribute) return osg::NullFC;
    auto [first, last] = _d->convertedInstances.equal_range(attribute);
    if (first == last) return osg::NullFC;
    for (auto it = first; it != last; ++it)
        if (transformsEqual(it->second.first, node))
            return ksNodeUtils::cloneFullTree(it->second.second, true);
    ksLog::warning("Instances of %s have different transforms, creating duplicates instead!",
                   node->GetName());
    return osg::NullFC;
}

void ksQdxLoader::warnArrayFaults(const QdxManager* manager) const {
    for (const std::string& fault : manager->GetArrayFaults())
        ksLog::warning("QdxImport: %s", fault.c_str());
}

void ksQdxLoader::reportProgress() {
    _progress = static_cast<osg::Int32>(static_cast<double>(_convertedNodes) /
                                            (static_cast<double>(_totalNodes) + 1.0) * 50.0 +
                                        50.0);
    osg::SceneFileHandler::the().updateReadProgress(static_cast<osg::UInt32>(_progress));
    ++_convertedNodes;
}

osg::NodePtr ksQdxLoader::convert(QdxNode* root) {
    // Depth-first with an explicit stack; a node joins its parent once its
    // own subtree is complete, as a recursive walk would add it.
    struct Frame {
        QdxNode* source;
        osg::NodePtr node;
        int next;
    };
    osg::NodePtr top = convertNode(root);
    if (!top) return osg::NullFC;
    std::vector<Frame> stack{{root, top, 0}};
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.source->GetChildCount()) {
            QdxNode* child = frame.source->GetChild(frame.next++);
            if (osg::NodePtr node = convertNode(child)) stack.push_back({child, node, 0});
            continue;
        }
        const osg::NodePtr done = frame.node;
        stack.pop_back();
        if (!stack.empty()) stack.back().node->addChild(done);
    }
    return top;
}

osg::NodePtr ksQdxLoader::convertNode(QdxNode* node) {
    if (!node) return osg::NullFC;
    if (node->GetLight()) node->SetPostRotation(QdxNode::eDestinationPivot, QdxVector4(0, 0, 0, 0));
    reportProgress();

    osg::NodePtr result;
    QdxNodeAttribute* attribute = node->GetNodeAttribute();
    if (attribute) {
        switch (attribute->GetAttributeType()) {
        case QdxNodeAttribute::eSkeleton:
            result = convertSkeleton(node);
            break;
        case QdxNodeAttribute::eMesh:
            result = convertMultiMeshSort(node);
            if (!result) result = convertMesh(node);
            releaseConvertedMesh(node->GetMesh());
            break;
        case QdxNodeAttribute::eCamera:
            result = convertCamera(node);
            break;
        case QdxNodeAttribute::eLight:
            result = convertLight(node);
            break;
        case QdxNodeAttribute::eTrimNurbsSurface:
            result = convertTrimmedNurbsSurface(node);
            break;
        case QdxNodeAttribute::eNurbsSurface:
            result = convertNurbsSurface(node);
            break;
        case QdxNodeAttribute::eLine:
            result = convertLine(node);
            break;
        default:
            break;
        }
    }
    if (!result) {
        result = osg::Node::create();
        ksNodeUtils::setName(result, node->GetName(), true);
        result->setCore(osg::Transform3D::create());
    }
    if (_d->enable_metadata) ksQdxMetaData::addMetaDataFromQdxNode(node, result);

    // Geometry and surfaces carry the node's transform on their drawable.
    // A light's converter has written its transform already, an area
    // light's scaled with the unit.
    const osg::NodeCorePtr core = result->getCore();
    if (osg::UberLightPtr::dcast(core)) {
    } else if (osg::TransformPtr::dcast(core) || osg::GeometryPtr::dcast(core) ||
               osg::SurfacePtr::dcast(core))
        setTransformValues(node, result, 1.0);
    else
        std::printf("unknown type\n");

    result->setTraversalMask(node->GetVisibility() ? 0xFFFFFFFFu : 0u);
    if (!result->getCore())
        ksLog::warning("Node %s has no core!", ksNodeUtils::getName(result).c_str());
    _d->convertedInstances.emplace(attribute, std::make_pair(node, result));
    _d->convertedNodes.emplace(node, result);
    convertAnimations(node, result);
    return result;
}

void ksQdxLoader::setTransformValues(QdxNode* node, osg::NodePtr& osgNode, double scale) {
    const auto dst = QdxNode::eDestinationPivot;
    // The properties' own values, not the animation's at some time: the
    // host's animation puts its layers on top of these rest values as the
    // file's layers go on top of the properties.
    const QdxVector4 translation = node->LclTranslation.Get();
    const QdxVector4 rotation = node->LclRotation.Get();
    const QdxVector4 scaling = node->LclScaling.Get();
    const osg::Vec3f orientation = calculateRotationOrientation(node);
    const double f = _unitConversionFactor;
    const osg::Vec3f angles(static_cast<float>(rotation[0] + orientation[0]),
                            static_cast<float>(rotation[1] + orientation[1]),
                            static_cast<float>(rotation[2] + orientation[2]));
    ksNodeUtils::setTransformNodeValues(
        osgNode, toVec3f(translation, f), orientation, angles,
        toVec3f(node->GetRotationPivot(dst), f), toVec3f(node->GetRotationOffset(dst), f),
        toVec3f(scaling, scale), toVec3f(node->GetScalingPivot(dst), f),
        toVec3f(node->GetScalingOffset(dst), f), 0, "", false, osg::Vec3f(1.f, 0.f, 0.f), 1, -1);
}

osg::Vec3f ksQdxLoader::calculateRotationOrientation(QdxNode* node) const {
    const QdxVector4 pre = node->GetPreRotation(QdxNode::eDestinationPivot);
    const QdxVector4 post = node->GetPostRotation(QdxNode::eDestinationPivot);
    if (post[0] == 0.0 && post[1] == 0.0 && post[2] == 0.0) return toVec3f(pre);
    // The post-rotation undone, as XYZ Euler angles added to the pre-rotation.
    const osg::Vec3f undo =
        osg::Quaternion::fromEulerXYZDeg(toVec3f(post)).inverse().getEulerXYZDeg();
    return osg::Vec3f(static_cast<float>(pre[0] + undo[0]), static_cast<float>(pre[1] + undo[1]),
                      static_cast<float>(pre[2] + undo[2]));
}

void ksQdxLoader::optimizeGeometry(const osg::NodePtr& node, bool hasVertexAnimation) {
    if (hasVertexAnimation || !node) return;
    if (auto geometry = osg::GeometryPtr::dcast(node->getCore()))
        if (_d->mergedGeometries.count(geometry.get()) == 0)
            ksGeoOptimizer::mergeVertices(geometry);
}

// ---------------------------------------------------------------------------
// Meshes

osg::NodePtr ksQdxLoader::convertMultiMeshSort(QdxNode* node) {
    QdxMesh* mesh = node->GetMesh();
    if (!mesh) return osg::NullFC;
    QdxLayerElementArrayTemplate<int>* materialIndices = nullptr;
    if (!mesh->GetMaterialIndices(&materialIndices) || !materialIndices ||
        materialIndices->GetCount() < 2)
        return osg::NullFC;

    std::map<int, std::vector<int>> polygonsByMaterial;
    const int polygonCount = mesh->GetPolygonCount();
    int previous = -2;
    std::vector<int>* list = nullptr;
    for (int p = 0; p < polygonCount; ++p) {
        const int m = materialIndices->GetAt(p);
        if (m != previous || !list) list = &polygonsByMaterial[m];
        previous = m;
        list->push_back(p);
    }

    osg::NodePtr group = osg::Node::create();
    group->setCore(osg::Transform3D::create());
    const std::string name = node->GetName();
    ksNodeUtils::setName(group, name, true);

    if (osg::NodePtr existing = getNode(node)) {
        while (existing->getNChildren() > 0)
            group->addChild(existing->getChild(0));
        return group;
    }

    const bool reversed = ksFile::getExtension(_d->fileName) == "abc";
    mesh->DecodeArrays();
    QdxStringList names;
    mesh->GetUVSetNames(names);
    const CornerSource source = readCornerSource(mesh, assignUVSlots(names), reversed);
    QdxNode* owner = mesh->GetNode(0);

    // Vertices by control point are only looked up for skin weights.
    const bool withDeformers = mesh->GetDeformerCount() > 0;
    for (const auto& [material, polygons] : polygonsByMaterial) {
        ControlPointMap vertices;
        osg::GeometryPtr geometry =
            buildCornerGeometry(source, polygons, _unitScaleFactor, false,
                                withDeformers ? &vertices : nullptr, nullptr);
        geometry->setMaterial(convertMaterial(owner ? owner->GetMaterial(material) : nullptr));

        osg::NodePtr child = osg::Node::create();
        child->setCore(geometry);
        ksNodeUtils::setName(child, name + "_mat_" + std::to_string(material), true);
        getSkinWeights(node, child, geometry, vertices);
        group->addChild(child);
    }
    return group;
}

osg::NodePtr ksQdxLoader::convertMesh(QdxNode* node) {
    QdxMesh* mesh = node->GetMesh();
    if (!mesh) return osg::NullFC;
    const std::string name = node->GetName();

    // A mesh already converted for a node with the same transform is shared.
    if (_d->instances.count(mesh) == 0) _d->instances[mesh].nodes.push_back(node);
    if (osg::NodePtr existing = getNode(node)) {
        osg::NodePtr instance = osg::Node::create();
        instance->setCore(existing->getCore());
        ksNodeUtils::setName(instance, name, true);
        return instance;
    }

    QdxNode* owner = mesh->GetNode(0);
    osg::MaterialPtr material = convertMaterial(owner ? owner->GetMaterial(0) : nullptr);

    QdxLayer* layer = mesh->GetLayer(0);
    QdxLayerElementNormal* normalElement = layer ? layer->GetNormals() : nullptr;
    QdxLayerElementVertexColor* colorElement = layer ? layer->GetVertexColors() : nullptr;
    QdxLayerElementUV* uvElement = layer ? layer->GetUVs(kDiffuseUV) : nullptr;
    QdxLayerElementArrayTemplate<QdxVector2>* uvArray = nullptr;
    if (uvElement) mesh->GetTextureUV(&uvArray, kDiffuseUV);
    const int normalCount = normalElement ? normalElement->GetDirectArray().GetCount() : 0;
    const int colorCount = colorElement ? colorElement->GetDirectArray().GetCount() : 0;
    const int uvCount = uvArray ? uvArray->GetCount() : 0;
    const int uvMapping = uvElement ? uvElement->GetMappingMode() : QdxLayerElement::eNone;
    const int uvReference = uvElement ? uvElement->GetReferenceMode() : QdxLayerElement::eDirect;

    const int pointCount = mesh->GetControlPointsCount();
    const int polygonCount = mesh->GetPolygonCount();
    // The colour test reads the UV element's mapping, not the colour's own.
    const bool uvByControlPoint = uvMapping == QdxLayerElement::eByControlPoint;
    const bool byControlPoint =
        (normalCount == 0 || normalCount == pointCount) &&
        (uvCount <= 0 || (uvByControlPoint && uvCount == pointCount)) &&
        (colorCount <= 0 || (uvByControlPoint && colorCount == pointCount)) && uvByControlPoint;
    QdxStringList uvNames;
    mesh->GetUVSetNames(uvNames);
    const UVSlots slots = assignUVSlots(uvNames);

    ControlPointMap vertices;
    CornerList corners;
    const bool withDeformers = mesh->GetDeformerCount() > 0;
    const bool reversed = ksFile::getExtension(_d->fileName) == "abc";
    // Corner-expanded geometry that the optimizer would merge is merged
    // while it is built instead; it then has nothing left to merge.
    const bool mergedWhileBuilt =
        !byControlPoint && !withDeformers && uvSetsCoverCorners(mesh, slots);
    // Every build but the merged one reads the mesh's arrays whole: they
    // are decoded together, on all cores, before it starts.
    if (!mergedWhileBuilt) mesh->DecodeArrays();
    osg::GeometryPtr geometry;
    if (byControlPoint)
        geometry = buildControlPointGeometry(mesh, slots, uvMapping, uvReference, _unitScaleFactor,
                                             withDeformers ? &corners : nullptr);
    else if (mergedWhileBuilt) {
        geometry = buildMergedCornerGeometry(mesh, slots, _unitScaleFactor, reversed);
        _d->mergedGeometries.insert(geometry.get());
    } else {
        std::vector<int> all(static_cast<std::size_t>(std::max(polygonCount, 0)));
        for (int p = 0; p < polygonCount; ++p)
            all[static_cast<std::size_t>(p)] = p;
        // Vertices by control point and corners are only looked up for
        // deformers (skin weights and vertex caches).
        geometry = buildCornerGeometry(readCornerSource(mesh, slots, reversed), all,
                                       _unitScaleFactor, true, withDeformers ? &vertices : nullptr,
                                       withDeformers ? &corners : nullptr);
    }
    geometry->setMaterial(material);

    osg::NodePtr result = osg::Node::create();
    ksNodeUtils::setName(result, name, true);
    result->setCore(geometry);

    const bool animated =
        createAnimationCurvesFromVertexCache(node, result, geometry, vertices, corners);
    getSkinWeights(node, result, geometry, vertices);
    optimizeGeometry(result, animated);
    return result;
}

// ---------------------------------------------------------------------------
// Materials and textures

void ksQdxLoader::loadSupportedTexturesRecursive(QdxNode* root, TextureTable& textures) {
    visitPreOrder(root, [&](QdxNode* node) { loadSupportedTextures(node, textures); });
}

void ksQdxLoader::loadSupportedTextures(QdxNode* node, TextureTable& textures) {
    if (QdxNodeAttribute* attribute = node->GetNodeAttribute()) {
        const auto type = attribute->GetAttributeType();
        const bool geometry = (type == QdxNodeAttribute::eMesh && node->GetMesh()) ||
                              (type == QdxNodeAttribute::eNurbs && node->GetNurbs()) ||
                              (type == QdxNodeAttribute::ePatch && node->GetPatch());
        if (geometry) {
            const QdxCriteria materials = QdxCriteria::ObjectType(QdxSurfaceMaterial::ClassId);
            const int count = node->GetSrcObjectCount(materials);
            for (int i = 0; i < count; ++i) {
                auto* material = QdxCast<QdxSurfaceMaterial>(node->GetSrcObject(materials, i));
                if (!material) continue;
                for (const char* name :
                     {QdxSurfaceMaterial::sDiffuse, QdxSurfaceMaterial::sSpecular,
                      QdxSurfaceMaterial::sBump, QdxSurfaceMaterial::sEmissive,
                      QdxSurfaceMaterial::sTransparentColor})
                    loadTexturesForProperty(material->FindProperty(name), textures);
            }
        }
    }
}

void ksQdxLoader::loadTexturesForProperty(const QdxProperty& property, TextureTable& textures) {
    if (!property.IsValid()) return;
    const QdxCriteria criteria = QdxCriteria::ObjectType(QdxTexture::ClassId);
    const int count = property.GetSrcObjectCount(criteria);
    for (int i = 0; i < count; ++i)
        if (auto* texture = QdxCast<QdxTexture>(property.GetSrcObject(criteria, i)))
            loadTexture(texture, textures);
}

void ksQdxLoader::loadTexture(QdxTexture* texture, TextureTable& textures) {
    if (textures.count(texture)) return;
    QdxFileTexture* file = nullptr;
    if (auto* layered = QdxCast<QdxLayeredTexture>(texture))
        file = layered->GetSrcObject<QdxFileTexture>(0);
    else
        file = QdxCast<QdxFileTexture>(texture);
    if (!file) return;
    if (textures.count(file)) return;

    const std::string stored = file->GetFileName();
    std::string path = ksFile::convertToUnixSeparators(stored);
    bool found = ksFile::exists(path);
    while (!found) {
        const size_t slash = path.find('/');
        if (slash == std::string::npos) break;
        path.erase(0, slash + 1);
        found = ksFile::exists(path);
    }
    if (!found) {
        std::printf("Couldn't find texture '%s'\n", path.c_str());
        return;
    }
    osg::ImagePtr image = osg::Image::create();
    if (image->read(path)) {
        textures[file] = image;
        std::printf("Loaded texture '%s'\n", path.c_str());
    } else {
        std::printf("Couldn't load texture '%s'\n", stored.c_str());
    }
}

osg::ImagePtr ksQdxLoader::getImageFromQdxTexture(QdxTexture* texture) const {
    auto it = _d->textures.find(texture);
    return it != _d->textures.end() ? it->second : osg::ImagePtr();
}

osg::MaterialPtr ksQdxLoader::convertMaterial(QdxSurfaceMaterial* material) {
    if (auto it = _d->materials.find(material); it != _d->materials.end()) return it->second;
    if (!material) {
        auto fallback = osg::UPlasticMaterial::create();
        ksMaterials::setName(fallback, "DefaultMaterial", true);
        _d->materials[nullptr] = fallback;
        return fallback;
    }

    const QdxDouble3 ambient =
        colorWithFactor(material, QdxSurfaceMaterial::sAmbient, QdxSurfaceMaterial::sAmbientFactor);
    QdxProperty shininessProperty = material->FindProperty(QdxSurfaceMaterial::sShininess);
    const double shininess = shininessProperty.IsValid() ? shininessProperty.Get<double>() : 0.5;
    const float roughness = std::max(40.0f / static_cast<float>(shininess), 0.0001f);

    auto plastic = osg::UPlasticMaterial::create();
    plastic->setRoughness(roughness);
    ksMaterials::setName(plastic, material->GetName(), true);
    plastic->setAmbienceColor(toColor3f(ambient));
    convertDiffuseMaterial(material, plastic);
    convertSpecularMaterial(material, plastic);
    convertEmissiveMaterial(material, plastic);
    convertBumpMaterial(material, plastic);
    convertTransparencyMaterial(material, plastic);
    plastic->setReflectivity(0.04f);
    plastic->rebuildState();
    osg::MaterialPtr result = plastic;
    _d->materials[material] = result;
    if (_d->enable_metadata) ksQdxMetaData::addMetaDataFromQdxMaterial(material, result);
    return result;
}

void ksQdxLoader::convertDiffuseMaterial(QdxSurfaceMaterial* material,
                                         const osg::UPlasticMaterialPtr& plastic) {
    QdxFileTexture* texture = findTexture(material, QdxSurfaceMaterial::sDiffuse);
    const osg::ImagePtr image = getImageFromQdxTexture(texture);
    plastic->setDiffuseColor(toColor3f(colorWithFactor(material, QdxSurfaceMaterial::sDiffuse,
                                                       QdxSurfaceMaterial::sDiffuseFactor)));
    plastic->setColorMap(image);
    plastic->setUseColorTexture(static_cast<bool>(image));
    plastic->setUseAlpha(image && image->hasAlphaChannel());
    plastic->setColorRepeat(0);
    plastic->setColorAnisotropy(8.f);
    if (osg::ColorComponentsPtr components = plastic->getColorComponentData())
        convertTextureProperties(texture, components->getDiffuseComponent());
}

void ksQdxLoader::convertSpecularMaterial(QdxSurfaceMaterial* material,
                                          const osg::UPlasticMaterialPtr& plastic) {
    const osg::ImagePtr image =
        getImageFromQdxTexture(findTexture(material, QdxSurfaceMaterial::sSpecular));
    plastic->setSpecularColor(toColor3f(colorWithFactor(material, QdxSurfaceMaterial::sSpecular,
                                                        QdxSurfaceMaterial::sSpecularFactor)));
    plastic->setSpecularMap(image);
    plastic->setUseSpecularTexture(static_cast<bool>(image));
    plastic->setSpecularRepeat(0);
    plastic->setSpecularAnisotropy(8.f);
}

void ksQdxLoader::convertEmissiveMaterial(QdxSurfaceMaterial* material,
                                          const osg::UPlasticMaterialPtr& plastic) {
    const osg::ImagePtr image =
        getImageFromQdxTexture(findTexture(material, QdxSurfaceMaterial::sEmissive));
    QdxDouble3 e = colorWithFactor(material, QdxSurfaceMaterial::sEmissive,
                                   QdxSurfaceMaterial::sEmissiveFactor);
    const double peak = std::max({e[0], e[1], e[2]});
    float intensity = 1.f;
    if (static_cast<float>(peak) > 1.0f) {
        for (int i = 0; i < 3; ++i)
            e[i] /= peak;
        intensity = static_cast<float>(peak);
    }
    plastic->setIncandescenceColor(osg::Color4f(static_cast<float>(e[0]), static_cast<float>(e[1]),
                                                static_cast<float>(e[2]), intensity));
    plastic->setIncandescenceMap(image);
    plastic->setUseIncandescenceTexture(static_cast<bool>(image));
    plastic->setIncandescenceRepeat(0);
    plastic->setIncandescenceAnisotropy(8.f);
}

void ksQdxLoader::convertBumpMaterial(QdxSurfaceMaterial* material,
                                      const osg::UPlasticMaterialPtr& plastic) {
    const osg::ImagePtr image =
        getImageFromQdxTexture(findTexture(material, QdxSurfaceMaterial::sBump));
    plastic->setBumpMap(image);
    plastic->setUseBumpTexture(static_cast<bool>(image));
    plastic->setBumpRepeat(0);
    plastic->setBumpAnisotropy(8.f);
    QdxProperty factor = material->FindProperty(QdxSurfaceMaterial::sBumpFactor);
    plastic->setBumpIntensity(factor.IsValid() ? static_cast<float>(factor.Get<double>()) : 1.f);
    plastic->setParallaxIntensity(0.f);
    plastic->setBumpType(0);
    plastic->setUseStructure(false);
    plastic->setStructureSize(0.5f);
}

void ksQdxLoader::convertTransparencyMaterial(QdxSurfaceMaterial* material,
                                              const osg::UPlasticMaterialPtr& plastic) {
    QdxFileTexture* texture = findTexture(material, QdxSurfaceMaterial::sTransparentColor);
    const osg::ImagePtr image = getImageFromQdxTexture(texture);
    plastic->setSeeThrough(toColor3f(colorWithFactor(
        material, QdxSurfaceMaterial::sTransparentColor, QdxSurfaceMaterial::sTransparencyFactor)));
    if (osg::ColorComponentSettingsPtr settings = plastic->getTransparencyComponentSettings()) {
        settings->setImage(image);
        settings->setUseTexture(static_cast<bool>(image));
        convertTextureProperties(texture, settings);
    }
}

void ksQdxLoader::convertTextureProperties(QdxTexture* texture,
                                           const osg::ColorComponentSettingsPtr& settings) {
    // A texture without a usable scale carries no placement.
    if (!texture || !settings || !texture->Scaling.IsValid()) return;
    const double scaleU = texture->GetScaleU(), scaleV = texture->GetScaleV();
    if (scaleU == 0.0 || scaleV == 0.0) return;
    settings->setRepeat(osg::Vec2f(static_cast<float>(scaleU), static_cast<float>(scaleV)));
    settings->setRotate(static_cast<float>(texture->GetRotationW()));
    const int wrapU = texture->GetWrapModeU(), wrapV = texture->GetWrapModeV();
    settings->setConnectRepeatModes(wrapU == wrapV);
    settings->setRepeatMode((wrapU != 0 ? 2u : 0u) + (wrapV != 0 ? 16u : 0u) +
                            (wrapU != wrapV ? 128u : 0u));
    const double offsetU = ((0.5 - texture->GetTranslationU()) - scaleU * 0.5) / scaleU;
    const double offsetV = ((0.5 - texture->GetTranslationV()) - scaleV * 0.5) / scaleV;
    settings->setOffset(osg::Vec2f(static_cast<float>(offsetU), static_cast<float>(offsetV)));
}

// ---------------------------------------------------------------------------
// Cameras, lights and skeletons

osg::NodePtr ksQdxLoader::convertLight(QdxNode* node) {
    QdxLight* light = node->GetLight();
    if (!light) return osg::NullFC;
    // Nodes sharing one light with equal transforms share its core, as the
    // exporter writes a shared core.
    if (osg::NodePtr instance = getNode(node)) return sharingCore(instance, node->GetName());
    const std::string name = node->GetName();
    osg::NodePtr result;
    bool area = false;
    switch (light->LightType.Get()) {
    case QdxLight::ePoint:
        result = ksLights::createLight("PointLight", name);
        break;
    case QdxLight::eDirectional:
        result = ksLights::createLight("DirectionalLight", name);
        break;
    case QdxLight::eSpot: {
        const double inner = light->InnerAngle.Get(), outer = light->OuterAngle.Get();
        result = ksLights::createLight("SpotLight", name);
        ksLights::setConeAngle(result, static_cast<float>(inner * 0.5));
        // A cone without a soft edge still gets a sliver of one.
        ksLights::setPenumbraAngle(
            result, outer - inner > 0.0 ? static_cast<float>((outer - inner) * 0.5) : 0.01f);
        break;
    }
    case QdxLight::eArea:
        area = true;
        if (light->AreaLightShape.Get() == QdxLight::eSphere)
            result = ksLights::createLight("SphericalLight", name);
        else if (light->AreaLightShape.Get() == QdxLight::eRectangle)
            result = ksLights::createLight("RectangularLight", name);
        break;
    case QdxLight::eVolume:
        std::printf("Found volumetric light. Not supported so far!\n");
        break;
    default:
        std::printf("Found unknown light type.\n");
        break;
    }
    if (!result) return osg::NullFC;

    const QdxDouble3 color = light->Color.Get();
    const double intensity = light->Intensity.Get();
    // Nominal intensity 100 with the host's attenuation law; area lights
    // carry their brightness without the attenuation factor.
    osg::UInt32 attenuation = 2;
    switch (light->DecayType.Get()) {
    case QdxLight::eNone:
        attenuation = 0;
        break;
    case QdxLight::eLinear:
        attenuation = 1;
        break;
    default:
        break;
    }
    const double value = intensity * ksQdxLightUnits::intensityFactor(light);
    ksLights::setAttenuation(result, attenuation);

    const float shadow = light->CastShadows.Get() ? 1.f : 0.f;
    const osg::Color3f diffuse(static_cast<float>(color[0]), static_cast<float>(color[1]),
                               static_cast<float>(color[2]));
    ksLights::setOn(result, light->CastLight.Get());
    ksLights::setShadowIntensity(result, shadow);
    ksLights::setGroundShadowIntensity(result, shadow);
    ksLights::setLightScale(result, 1.f);
    ksLights::setDiffuse(result, diffuse);
    ksLights::setGlossy(result, diffuse);
    ksLights::setLightValue(result, static_cast<float>(value));
    ksLights::setLightScale(result, static_cast<float>(_unitScaleFactor));
    // An area light's size is its scaling, which follows the unit.
    setTransformValues(node, result, area ? _unitConversionFactor : 1.0);
    return result;
}

osg::NodePtr ksQdxLoader::convertCamera(QdxNode* node) {
    QdxCamera* camera = node->GetCamera();
    if (!camera) return osg::NullFC;
    ksUberCameraPool& pool = ksUberCameraPool::the();
    osg::NodePtr result = pool->createCameraNode(node->GetName(), pool->getRoot());
    osg::UberCameraPtr core =
        result ? osg::UberCameraPtr::dcast(result->getCore()) : osg::UberCameraPtr();
    if (!core) return osg::NullFC;

    const double s = _unitScaleFactor;
    core->setProjectionMode(camera->ProjectionType.Get() != QdxCamera::ePerspective ? 1u : 0u);
    core->setNear(static_cast<float>(camera->GetNearPlane() * s));
    core->setFar(static_cast<float>(camera->GetFarPlane() * s));
    switch (camera->GetApertureMode()) {
    case QdxCamera::eHorizontal:
    case QdxCamera::eFocalLength:
        core->setFovMode(1);
        break;
    default:
        core->setFovMode(0);
        break;
    }
    // Film sizes and offsets come in inches, the host wants millimetres.
    core->setSensorSize(osg::Vec2f(static_cast<float>(camera->FilmWidth.Get() * kMmPerInch),
                                   static_cast<float>(camera->FilmHeight.Get() * kMmPerInch)));
    core->setFocalLength(static_cast<float>(camera->FocalLength.Get()));
    core->setMotionBlur(camera->UseMotionBlur.Get());
    core->setDepthOfField(camera->UseDepthOfField.Get());
    core->setFocusDistance(static_cast<float>(camera->FocusDistance.Get()));
    core->setPrincipalPointOffset(
        osg::Vec2f(static_cast<float>(camera->FilmOffsetX.Get() * kMmPerInch),
                   static_cast<float>(camera->FilmOffsetY.Get() * kMmPerInch)));
    core->setRoll(static_cast<float>(camera->Roll.Get()));
    const auto h = static_cast<float>(camera->OrthoZoom.Get() * kOrthoZoomSize * s * 0.5);
    core->setFrustumSides(osg::Vec4f(-h, h, -h, h));
    core->setVisualizationScale(static_cast<float>(s));
    core->changed(osg::UberCamera::CameraFieldMask);

    if (QdxNode* target = node->GetTarget())
        _d->cameraTargets.push_back({result, node, target, node->GetTargetUp()});
    return result;
}

osg::NodePtr ksQdxLoader::convertSkeleton(QdxNode* node) {
    if (osg::NodePtr instance = getNode(node)) return sharingCore(instance, node->GetName());
    if (!_d->importJoints || !node->GetNodeAttribute()) return osg::NullFC;
    osg::NodePtr joint = osg::Node::create();
    joint->setCore(osg::Joint::create());
    ksNodeUtils::setName(joint, node->GetName(), true);
    // convertNode records the joint under its attribute for later instances.
    return joint;
}

// ---------------------------------------------------------------------------
// Surfaces and lines

osg::SurfacePtr ksQdxLoader::convertNurbsSurface(QdxNurbsSurface* nurbs) {
    if (!nurbs) return osg::SurfacePtr();
    const int orderU = nurbs->GetUOrder(), orderV = nurbs->GetVOrder();
    const int countU = nurbs->GetUCount(), countV = nurbs->GetVCount();
    const int knotCountU = nurbs->GetUKnotCount(), knotCountV = nurbs->GetVKnotCount();
    nurbs->GetApplyFlipUV();
    nurbs->IsRational();
    if (orderU < 1 || orderV < 1 || countU < 1 || countV < 1) return osg::SurfacePtr();
    // A periodic direction repeats its first degree points, a closed one its
    // first point.
    const auto effective = [](int count, int order, QdxNurbsSurface::EType type) {
        return std::int64_t{count} + (type == QdxNurbsSurface::ePeriodic ? order - 1 : 0) +
               (type == QdxNurbsSurface::eClosed ? 1 : 0);
    };
    const std::int64_t nU = effective(countU, orderU, nurbs->GetNurbsUType());
    const std::int64_t nV = effective(countV, orderV, nurbs->GetNurbsVType());
    const int pointCount = nurbs->GetControlPointsCount();
    if (std::int64_t{knotCountU - orderU} * (knotCountV - orderV) != nU * nV ||
        std::int64_t{countU} * countV != pointCount)
        return osg::SurfacePtr();

    const QdxVector4* source = nurbs->GetControlPoints();
    auto points = osg::GeoPositions4f::create();
    auto& out = points->editField();
    out.reserve(static_cast<std::size_t>(nU * nV));
    const double s = _unitScaleFactor;
    for (std::int64_t i = 0; i < nU; ++i)
        for (std::int64_t j = 0; j < nV; ++j) {
            const QdxVector4& p = source[(j % countV) * countU + (i % countU)];
            for (int c = 0; c < 4; ++c) {
                if (std::isinf(p[c])) std::printf("INF\n");
                if (std::isnan(p[c])) std::printf("NAN\n");
            }
            const double w = p[3];
            out.emplace_back(static_cast<float>(p[0] * s * w), static_cast<float>(p[1] * s * w),
                             static_cast<float>(p[2] * s * w), static_cast<float>(w));
        }
    points->changed(osg::GeoProperty::ValuesFieldMask);

    const auto knots = [](const double* values, int count) {
        std::vector<osg::Real32> result;
        for (int k = 0; values && k < count; ++k)
            result.push_back(static_cast<osg::Real32>(values[k]));
        return result;
    };
    auto surface = osg::Surface::create();
    surface->setControlPoints(points);
    surface->removeCurves();
    surface->setDimU(static_cast<osg::UInt32>(orderU - 1));
    surface->setDimV(static_cast<osg::UInt32>(orderV - 1));
    surface->setKnotsU(knots(nurbs->GetUKnotVector(), knotCountU));
    surface->setKnotsV(knots(nurbs->GetVKnotVector(), knotCountV));
    surface->setTransform(osg::Transform3D::create());
    return surface;
}

osg::NodePtr ksQdxLoader::makeDrawableNode(QdxNode* node, const osg::DrawablePtr& drawable) {
    QdxNodeAttribute* attribute = node->GetNodeAttribute();
    QdxNode* owner = attribute ? attribute->GetNode(0) : nullptr;
    drawable->setMaterial(convertMaterial(owner ? owner->GetMaterial(0) : nullptr));
    osg::NodePtr result = osg::Node::create();
    ksNodeUtils::setName(result, node->GetName(), true);
    result->setCore(drawable);
    return result;
}

osg::NodePtr ksQdxLoader::convertNurbsSurface(QdxNode* node) {
    if (!node) {
        std::printf("Invalid node\n");
        return osg::NullFC;
    }
    if (osg::NodePtr existing = getNode(node)) return existing;
    QdxNurbsSurface* nurbs = node->GetNurbsSurface();
    if (!nurbs) {
        std::printf("Failed to get NURBS Surface for node %s\n", node->GetName());
        return osg::NullFC;
    }
    osg::SurfacePtr surface = convertNurbsSurface(nurbs);
    if (!surface) return osg::NullFC;
    return makeDrawableNode(node, surface);
}

osg::NodePtr ksQdxLoader::convertTrimmedNurbsSurface(QdxNode* node) {
    if (osg::NodePtr existing = getNode(node)) return existing;
    QdxTrimNurbsSurface* trimmed = node->GetTrimNurbsSurface();
    if (!trimmed) {
        ksLog::error("Failed to get trimmed nurbs surface %s", node->GetName());
        return osg::NullFC;
    }
    QdxNurbsSurface* nurbs = trimmed->GetNurbsSurface();
    if (!nurbs) {
        ksLog::error("Failed to get nurbs surface from trimmed surface %s", node->GetName());
        return osg::NullFC;
    }
    osg::SurfacePtr surface = convertNurbsSurface(nurbs);
    if (!surface || nurbs->GetControlPointsCount() != trimmed->GetControlPointsCount())
        return osg::NullFC;

    for (int r = 0; r < trimmed->GetTrimRegionCount(); ++r)
        for (int b = 0; b < trimmed->GetBoundaryCount(r); ++b) {
            QdxBoundary* boundary = trimmed->GetBoundary(b, r);
            if (!boundary) continue;
            bool first = true;
            for (int c = 0; c < boundary->GetCurveCount(); ++c) {
                QdxNurbsCurve* curve = boundary->GetCurve(c);
                if (!curve || curve->GetOrder() < 1) continue;
                const int order = curve->GetOrder(), degree = order - 1;
                const int knotCount = curve->GetKnotCount();
                const int pointCount = curve->GetControlPointsCount();
                curve->IsRational();
                const int expected = pointCount + order +
                                     (curve->GetType() == QdxNurbsCurve::ePeriodic ? degree : 0) +
                                     (curve->GetType() == QdxNurbsCurve::eClosed ? 1 : 0);
                if (knotCount != expected) {
                    // The "calculated" count is the open curve's plus one, as
                    // users of this report know it.
                    std::printf("\nInconsistent number of control points!\n");
                    std::printf("Number of knots: %d\n", knotCount);
                    std::printf("Number of knots calculated: %d\n", pointCount + order + 1);
                }
                const double* knotValues = curve->GetKnotVector();
                std::vector<osg::Real64> knots;
                if (knotValues) knots.assign(knotValues, knotValues + std::max(knotCount, 0));
                const QdxVector4* source = curve->GetControlPoints();
                std::vector<osg::Pnt3f> points;
                for (int k = 0; source && k < pointCount; ++k) {
                    const QdxVector4& p = source[k];
                    points.emplace_back(static_cast<float>(p[0] * p[3]),
                                        static_cast<float>(p[1] * p[3]), static_cast<float>(p[3]));
                }
                surface->addCurve(static_cast<osg::UInt32>(degree), knots, points, first);
                first = false;
            }
        }
    return makeDrawableNode(node, surface);
}

osg::NodePtr ksQdxLoader::convertLine(QdxNode* node) {
    QdxLine* line = node ? node->GetLine() : nullptr;
    if (!line) return osg::NullFC;
    const int endCount = line->GetEndPointCount();
    std::printf("%d line endpoints\n", endCount);

    auto types = osg::GeoPTypesUI8::create();
    auto lengths = osg::GeoPLengthsUI32::create();
    auto indices = osg::GeoIndicesUI32::create();
    auto positions = osg::GeoPositions3f::create();
    const int indexCount = line->GetIndexArraySize();
    int start = 0;
    for (int e = 0; e < endCount; ++e) {
        const int end = line->GetEndPointAt(e);
        osg::UInt32 length = 0;
        for (int k = std::max(start, 0); k <= end && k < indexCount; ++k, ++length)
            indices->editField().push_back(static_cast<osg::UInt32>(line->GetPointIndexAt(k)));
        // A strip holds the indices it was given: an end beyond the index
        // array or before its start shortens it.
        if (length > 0) {
            types->editField().push_back(osg::PrimLineStrip);
            lengths->editField().push_back(length);
        }
        start = end + 1;
    }
    // Line points keep the file's unit, unlike meshes and surfaces.
    const QdxVector4* points = line->GetControlPoints();
    for (int i = 0; points && i < line->GetControlPointsCount(); ++i)
        positions->editField().emplace_back(static_cast<float>(points[i][0]),
                                            static_cast<float>(points[i][1]),
                                            static_cast<float>(points[i][2]));
    types->changed(osg::GeoProperty::ValuesFieldMask);
    lengths->changed(osg::GeoProperty::ValuesFieldMask);
    indices->changed(osg::GeoProperty::ValuesFieldMask);
    positions->changed(osg::GeoProperty::ValuesFieldMask);

    auto geometry = osg::Geometry::create();
    geometry->setTypes(types);
    geometry->setLengths(lengths);
    geometry->setIndices(indices);
    geometry->setPositions(positions);
    return makeDrawableNode(node, geometry);
}

// ---------------------------------------------------------------------------
// Animation, skins and vertex caches

void ksQdxLoader::extractAnimations(QdxScene* scene) {
    _d->animLayers.clear();
    if (!scene) return;
    const QdxCriteria stacks = QdxCriteria::ObjectType(QdxAnimStack::ClassId);
    const QdxCriteria layers = QdxCriteria::ObjectType(QdxAnimLayer::ClassId);
    const int count = scene->GetSrcObjectCount(stacks);
    for (int i = 0; i < count; ++i) {
        QdxObject* object = scene->GetSrcObject(stacks, i);
        if (!object || !object->GetClassId().Is(QdxAnimStack::ClassId)) continue;
        auto* stack = static_cast<QdxAnimStack*>(object);
        if (_d->reduce_keyframes) {
            QdxAnimCurveFilterConstantKeyReducer reducer;
            reducer.SetStartTime(QdxTime(QdxTime::kMinusInfinite));
            reducer.SetStopTime(QdxTime(QdxTime::kInfinite));
            reducer.SetKeepNotPureAutoKeys(true);
            reducer.SetKeepOneKey(true);
            reducer.Apply(stack);
        }
        const int layerCount = stack->GetSrcObjectCount(layers);
        for (int k = 0; k < layerCount; ++k)
            if (auto* layer = QdxCast<QdxAnimLayer>(stack->GetSrcObject(layers, k)))
                _d->animLayers.push_back(layer);
    }
    // Bring every node onto the destination pivot set prepared by the
    // pre-pass, so that the host's transform reproduces it.
    if (QdxNode* root = scene->GetRootNode())
        root->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, fps,
                                             _d->reduce_keyframes);
}

namespace {

// The host channel of a curve prefix: transform prefixes by their last
// letter, every other prefix is the channel's own name.
std::string channelName(const std::string& prefix) {
    if (prefix == "TransformT") return "translation";
    if (prefix == "TransformR") return "eulerRotation";
    if (prefix == "TransformS") return "scale";
    return prefix;
}

} // namespace

void ksQdxLoader::convertAnimations(QdxNode* node, const osg::NodePtr& target) {
    if (!node || !target) return;
    _d->keyableChannels.clear();
    QdxCamera* camera = node->GetCamera();
    QdxLight* light = node->GetLight();
    bool area = false;
    if (light) {
        const int type = light->LightType.Get();
        if (type == QdxLight::eVolume) {
            std::printf("Volume lights are not supported\n");
            return;
        }
        area = type == QdxLight::eArea;
    }
    const osg::Vec3f orientation = calculateRotationOrientation(node);
    const std::vector<double> rotationOffsets{orientation[0], orientation[1], orientation[2]};
    const double unit = _unitScaleFactor;

    osg::AnimNodePtr firstBlock;
    for (QdxAnimLayer* layer : _d->animLayers) {
        const bool baseLayer = layer == _d->animLayers.front();
        const std::size_t curvesBefore = _d->curvesFilled;
        const auto channel = [&](QdxProperty& property, const char* prefix, const char* components,
                                 double scale, std::vector<double> offsets = {},
                                 QdxAnimCurve* reference = nullptr) {
            QdxAnimCurveNode* curveNode = property.GetCurveNode(layer, false);
            convertAnimationCurveNode(curveNode, target, prefix, components, offsets, scale,
                                      reference);
            if (!reference)
                holdUnkeyedChannels(curveNode, property, layer, target, prefix, components, offsets,
                                    scale);
        };
        channel(node->LclTranslation, "TransformT", "XYZ", unit);
        channel(node->LclRotation, "TransformR", "XYZ", 1.0, rotationOffsets);
        channel(node->LclScaling, "TransformS", "XYZ", area ? unit : 1.0);
        channel(node->Visibility, "visible", "", 1.0);
        if (camera) {
            channel(camera->FocalLength, "focalLength", "", 1.0);
            channel(camera->FieldOfView, "fov", "", 1.0);
            channel(camera->NearPlane, "near", "", 1.0);
            channel(camera->FarPlane, "far", "", 1.0);
            channel(camera->FilmWidth, "sensorSize", "X", 25.4);
            channel(camera->FilmHeight, "sensorSize", "Y", 25.4);
            channel(camera->FilmRollValue, "roll", "", 1.0);
            // Film offsets in inches become millimetres; the host's vertical
            // offset points the other way.
            channel(camera->FilmOffsetX, "principalPointOffset", "X", 25.4);
            channel(camera->FilmOffsetY, "principalPointOffset", "Y", -25.4);
            channel(camera->FocusDistance, "focusDistance", "", 1.0);
        }
        if (light) {
            channel(light->Color, "diffuse", "RGBA", 1.0);
            channel(light->Color, "glossy", "RGBA", 1.0);
            channel(light->Intensity, "intensity", "", ksQdxLightUnits::intensityFactor(light));
            // The host's cone and penumbra are half angles; the penumbra is
            // what the outer cone adds to the inner one.
            channel(light->InnerAngle, "coneAngle", "", 0.5);
            const double inner = light->InnerAngle.Get();
            QdxAnimCurveNode* innerNode = light->InnerAngle.GetCurveNode(layer, false);
            QdxAnimCurve* innerCurve =
                innerNode && innerNode->IsAnimated() ? innerNode->GetCurve(0) : nullptr;
            if (innerCurve)
                channel(light->OuterAngle, "penumbraAngle", "", 0.5, {}, innerCurve);
            else
                channel(light->OuterAngle, "penumbraAngle", "", 0.5, {-inner});
        }
        // A layer that gave this node no curve gets no block.
        if (_d->curvesFilled == curvesBefore) continue;
        const std::string name = std::string(node->GetName()) + "_" + layer->GetName();
        osg::AnimNodePtr block = ksAnimManager::the()->createBlock(getAnimAttachment(target), name);
        if (block) {
            // The layer's blending, for the host to combine the blocks as
            // the file's layers combine.
            const int mode = layer->BlendMode.Get();
            block->setBlendMode(mode == QdxAnimLayer::eBlendOverride
                                    ? osg::AnimNode::BlendMode::Override
                                : mode == QdxAnimLayer::eBlendOverridePassthrough
                                    ? osg::AnimNode::BlendMode::OverridePassthrough
                                    : osg::AnimNode::BlendMode::Additive);
            // Only the current take plays: a layer of another take, or a
            // muted one, keeps its block, inert at weight 0.
            const QdxScene* scene = node->GetScene();
            const QdxAnimStack* current = scene ? scene->GetCurrentAnimationStack() : nullptr;
            const bool plays =
                !layer->Mute.Get() && (!current || layer->GetDstObject<QdxAnimStack>(0) == current);
            block->setWeight(plays ? layer->Weight.Get() : 0.0);
            block->changed(osg::AnimNode::BlendModeFieldMask | osg::AnimNode::WeightFieldMask);
        }
        if (baseLayer) firstBlock = block;
    }

    // The first layer is the base: its curves sit directly under the
    // attachment's root, every further layer keeps its named block.
    if (!firstBlock) return;
    const osg::AnimNodePtr parent = firstBlock->getParent();
    if (!parent) return;
    while (firstBlock->getNChildren() > 0)
        parent->addChild(firstBlock->getChild(0));
    parent->subChild(firstBlock);
    parent->changed(osg::AnimNode::ChildrenFieldMask);
}

osg::AnimAttachmentPtr ksQdxLoader::getAnimAttachment(const osg::NodePtr& node) {
    if (osg::AnimAttachmentPtr existing = ksAnimManager::the()->getAnimAttachment(node))
        return existing;
    if (!node) return osg::AnimAttachmentPtr();
    ++_d->attachmentCount;
    osg::AnimAttachmentPtr attachment = osg::AnimAttachment::create();
    node->addAttachment(attachment);
    node->changed(osg::AttachmentContainer::AttachmentsFieldMask);
    return attachment;
}

void ksQdxLoader::createChannelCurveNodes(std::vector<ksAnimManager::ksOSGChannelData> channels,
                                          const osg::AnimAttachmentPtr& attachment) {
    for (const ksAnimManager::ksOSGChannelData& channel : channels)
        ksAnimManager::the()->createChannelCurveNode(channel, attachment);
}

void ksQdxLoader::convertAnimationCurveNode(QdxAnimCurveNode* curveNode, const osg::NodePtr& target,
                                            const std::string& prefix,
                                            const std::string& components,
                                            std::vector<double> offsets, double scale,
                                            QdxAnimCurve* reference) {
    if (!curveNode) return;
    double offset = 0.0;
    const unsigned int channels = curveNode->GetChannelsCount();
    for (unsigned int c = 0; c < channels; ++c) {
        const std::string component = c < components.size() ? components.substr(c, 1) : "";
        if (c < offsets.size()) offset = offsets[c];
        const int curves = curveNode->GetCurveCount(c);
        for (int k = 0; k < curves; ++k) {
            QdxAnimCurve* curve = curveNode->GetCurve(c, static_cast<unsigned int>(k));
            if (!curve || curve->KeyGetCount() < 1) continue;
            convertCurve(curve, target, prefix, component, offset, scale, reference);
        }
    }
}

namespace {

// A key's tangent weights, each side below the usable minimum taking the
// other side's weight.
std::pair<float, float> usableWeights(const QdxAnimCurve& curve, int key) {
    const auto left = static_cast<float>(curve.KeyGetLeftTangentWeight(key));
    const auto right = static_cast<float>(curve.KeyGetRightTangentWeight(key));
    const auto minimum = static_cast<float>(QdxAnimCurveDef::sMinUsableWeight);
    return {left < minimum ? right : left, right < minimum ? left : right};
}

} // namespace

void ksQdxLoader::convertCurve(QdxAnimCurve* curve, const osg::NodePtr& target,
                               const std::string& prefix, const std::string& component,
                               double offset, double scale, QdxAnimCurve* reference) {
    // Made before anything else, so that every keyable channel of the node
    // has its curve node before the first curve is written.
    const osg::AnimCurvePtr hostCurve = channelCurve(target, prefix, component);
    if (!curve || !getAnimAttachment(target)) return;

    // Against a reference the difference is only known on frames.
    const bool resampled = reference != nullptr;
    if (resampled) {
        QdxAnimCurveFilterResample resample;
        QdxTime period;
        period.SetSecondDouble(1.0 / ksAnimManager::the()->fps());
        resample.SetKeysOnFrame(true);
        resample.SetPeriodTime(period);
        resample.SetIntelligentMode(false);
        resample.Apply(*curve);
    }
    const osg::UInt32 cubic = resampled ? osg::AnimCurve::Sampled : osg::AnimCurve::Bezier;

    const int n = curve->KeyGetCount();
    if (n > 1000000)
        ksLog::warning("QdxLoader convertCurve: Found animation curve with more than 1 million"
                       "keyframes for channel %s of node %s. This can lead to long loading times"
                       "and high memory consumption!",
                       (prefix + component).c_str(), ksNodeUtils::getName(target).c_str());

    if (!hostCurve) return;
    hostCurve->reserve(static_cast<osg::UInt32>(std::max(n, 0)));
    const auto seconds = [&](int key) {
        return static_cast<float>(curve->KeyGetTime(key).GetSecondDouble());
    };
    const osg::Vec2f flat(0.f, 0.f);
    // A tangent's value offset is the derivative times its time offset,
    // scaled like the value; the offset does not enter.
    const auto handle = [scale](float dt, float slope) {
        return osg::Vec2f(dt, static_cast<float>(static_cast<double>(slope * dt) * scale));
    };
    for (int i = 0; i < n; ++i) {
        const QdxTime time = curve->KeyGetTime(i);
        const float t = seconds(i);
        const double v = curve->KeyGetValue(i);
        double value = reference ? v - reference->Evaluate(time) : v + offset;
        value *= scale;
        const osg::Pnt2f point(t, static_cast<float>(value));
        // A cubic segment ends on the next key's left derivative and weight
        // whatever that key's own interpolation: a step or linear key after
        // a cubic one keeps its in-tangent for the host's segment.
        const auto endOfCubic = [&](int key) {
            if (key == 0 ||
                curve->KeyGetInterpolation(key - 1) != QdxAnimCurveDef::eInterpolationCubic)
                return flat;
            const float wl = usableWeights(*curve, key).first;
            return handle(-wl * (t - seconds(key - 1)),
                          static_cast<float>(curve->KeyGetLeftDerivative(key)));
        };
        switch (curve->KeyGetInterpolation(i)) {
        case QdxAnimCurveDef::eInterpolationCubic: {
            const auto [wl, wr] = usableWeights(*curve, i);
            const auto dl = static_cast<float>(curve->KeyGetLeftDerivative(i));
            const auto dr = static_cast<float>(curve->KeyGetRightDerivative(i));
            osg::Vec2f in, out;
            if (n == 1) {
                in = out = flat;
            } else if (i == 0) {
                const float b = wr * (seconds(1) - t);
                in = handle(-b, dr);
                out = handle(b, dr);
            } else if (i == n - 1) {
                const float a = wl * (t - seconds(i - 1));
                in = handle(-a, dl);
                out = handle(a, dl);
            } else {
                in = handle(-wl * (t - seconds(i - 1)), dl);
                out = handle(wr * (seconds(i + 1) - t), dr);
            }
            hostCurve->addPoint(point, in, out, cubic, cubic, true, false);
            break;
        }
        case QdxAnimCurveDef::eInterpolationLinear:
            hostCurve->addPoint(point, endOfCubic(i), flat, osg::AnimCurve::Linear,
                                osg::AnimCurve::Linear, true, false);
            break;
        case QdxAnimCurveDef::eInterpolationConstant: {
            // A constant-next key holds its own value like a standard one.
            const QdxAnimCurveDef::EConstantMode mode = curve->KeyGetConstantMode(i);
            if (mode == QdxAnimCurveDef::eConstantStandard ||
                mode == QdxAnimCurveDef::eConstantNext)
                hostCurve->addPoint(point, endOfCubic(i), flat, osg::AnimCurve::Step,
                                    osg::AnimCurve::Step, true, false);
            break;
        }
        default:
            break;
        }
    }
    hostCurve->verify(true, false, resampled);
    hostCurve->changed(osg::AnimCurve::ControlPointsFieldMask);
    if (hostCurve->size() > 0) ++_d->curvesFilled;
}

osg::AnimCurvePtr ksQdxLoader::channelCurve(const osg::NodePtr& target, const std::string& prefix,
                                            const std::string& component) {
    const osg::AnimAttachmentPtr attachment = getAnimAttachment(target);
    if (!attachment) return osg::AnimCurvePtr();
    if (_d->keyableChannels.empty()) {
        ksAnimManager::the()->getKeyableChannels(target, _d->keyableChannels);
        createChannelCurveNodes(_d->keyableChannels, attachment);
    }
    return ksAnimManager::the()->findChannelCurve(channelName(prefix), component, attachment);
}

namespace {

// Component c of a property's own value (not its animation).
double ownValue(const QdxProperty& property, unsigned int c) {
    if (property.Is(QdxDouble3DT) || property.Is(QdxColor3DT))
        return c < 3 ? property.Get<QdxDouble3>()[c] : 0.0;
    return c == 0 ? property.Get<double>() : 0.0;
}

} // namespace

void ksQdxLoader::holdUnkeyedChannels(QdxAnimCurveNode* curveNode, const QdxProperty& property,
                                      QdxAnimLayer* layer, const osg::NodePtr& target,
                                      const std::string& prefix, const std::string& components,
                                      const std::vector<double>& offsets, double scale) {
    if (!curveNode || !layer || !target || _d->animLayers.empty()) return;
    const bool baseLayer = layer == _d->animLayers.front();
    const bool additive = !baseLayer && layer->BlendMode.Get() == QdxAnimLayer::eBlendAdditive;
    const double nothingAdded = prefix == "TransformS" ? 1.0 : 0.0;
    double offset = 0.0;
    const unsigned int channels = curveNode->GetChannelsCount();
    for (unsigned int c = 0; c < channels; ++c) {
        if (c < offsets.size()) offset = offsets[c];
        const QdxAnimCurve* curve = curveNode->GetCurve(c);
        if (curve && curve->KeyGetCount() > 0) continue;
        const double stored = curveNode->GetChannelValue(c, ownValue(property, c));
        if (baseLayer ? stored == ownValue(property, c) : additive && stored == nothingAdded)
            continue;
        const std::string component = c < components.size() ? components.substr(c, 1) : "";
        const osg::AnimCurvePtr hostCurve = channelCurve(target, prefix, component);
        // A curve already holding points was filled from this layer.
        if (!hostCurve || hostCurve->size() > 0) continue;
        const osg::Vec2f flat(0.f, 0.f);
        hostCurve->addPoint(osg::Pnt2f(0.f, static_cast<float>((stored + offset) * scale)), flat,
                            flat, osg::AnimCurve::Step, osg::AnimCurve::Step, true, false);
        hostCurve->verify(true, false, false);
        hostCurve->changed(osg::AnimCurve::ControlPointsFieldMask);
        ++_d->curvesFilled;
    }
}

void ksQdxLoader::preparePointCacheData(QdxScene* scene) {
    if (!scene) return;
    const double frameRate = scene->GetGlobalSettings().GetFrameRate();
    // Cache files named by relative paths lie beside the scene file.
    const std::string folder = ksFile::getDirName(_d->fileName);
    std::set<QdxVertexCacheDeformer*> prepared;
    visitPreOrder(scene->GetRootNode(), [&](QdxNode* node) {
        QdxVertexCacheDeformer* cache = firstVertexCache(node);
        if (!cache || !prepared.insert(cache).second) return;
        QdxStatus status;
        bool converted = true;
        if (cache->GetCacheFileFormat() == QdxVertexCacheDeformer::eToveCache &&
            !cache->ConvertFromToveToPC2(frameRate, status, folder)) {
            // A folder we may not write to still lets the Tove cache be read
            // directly below; a broken cache has said why here.
            ksLog::error("Failed to convert Tove vertex cache: %s", status.GetErrorString());
            converted = false;
        }
        if (!cache->OpenFileForRead(status, folder, frameRate) && converted)
            ksLog::error("ksQdxLoader: Couldn't read vertex cache %s: %s",
                         cache->ResolveCacheFileName(folder).c_str(), status.GetErrorString());
    });
}

bool ksQdxLoader::createAnimationCurvesFromVertexCache(QdxNode* node, const osg::NodePtr&,
                                                       const osg::GeometryPtr& geometry,
                                                       const ControlPointMap& vertices,
                                                       const CornerList& corners) {
    QdxVertexCacheDeformer* cache = firstVertexCache(node);
    // A cache that could not be read has been reported while preparing.
    if (!cache || !cache->IsOpen() || !cache->Active.Get() || !geometry) return false;
    auto* mesh = QdxCast<QdxMesh>(node->GetNodeAttribute());
    const auto positions = osg::GeoPositions3fPtr::dcast(geometry->getPositions());
    if (!mesh || !positions) return false;
    const std::string name = node->GetName();

    const int sampleCount = cache->GetSampleCount();
    const double start = cache->GetStartFrame(), end = cache->GetEndFrame();
    if (sampleCount < 2 || !(end > start)) {
        ksLog::warning("ksQdxLoader: Couldn't convert vertex animations! Animation duration is "
                       "zero!");
        return false;
    }
    const int pointCount = mesh->GetControlPointsCount();
    const std::size_t vertexCount = positions->size();
    const QdxPointCache* file = cache->GetPointCache();
    const bool fits = file && file->GetPointCount() == pointCount && fps > 0.0 &&
                      (!vertices.empty() || vertexCount == static_cast<std::size_t>(pointCount));
    auto failed = [&](const char* why) {
        ksLog::error("ksQdxLoader: Geometry cache conversion failed. Couldn't convert data.");
        std::printf("%s: %s\n", name.c_str(), why);
        return false;
    };
    if (!fits) return failed("the cache's points do not match the mesh's control points");

    const CornerNormals normals(mesh, geometry, vertices, corners);
    auto shapes = osg::TimeShapeCache::create();
    shapes->setName(name + "_VertexAnim");
    std::vector<QdxVector4> points;
    for (int i = 0; i < sampleCount; ++i) {
        const double frame = start + i * file->GetSampleRate();
        if (!cache->GetFramePoints(frame, points) ||
            points.size() != static_cast<size_t>(pointCount))
            return failed("a frame of the cache could not be read");
        auto shape = osg::TimeShapeData::create();
        shape->setTime(static_cast<osg::Real32>(frame / fps));
        std::vector<osg::Pnt3f>& out = shape->editPositions();
        if (vertices.empty()) {
            out.reserve(points.size());
            for (const QdxVector4& p : points)
                out.push_back(toVec3f(p, _unitScaleFactor));
        } else {
            out.assign(vertexCount, osg::Pnt3f(0.f, 0.f, 0.f));
            for (const auto& [cp, vertex] : vertices)
                if (cp >= 0 && cp < pointCount && vertex >= 0 &&
                    static_cast<std::size_t>(vertex) < vertexCount)
                    out[static_cast<std::size_t>(vertex)] =
                        toVec3f(points[static_cast<std::size_t>(cp)], _unitScaleFactor);
        }
        for (const osg::Pnt3f& p : out)
            if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]))
                return failed("the cache's points do not transform to finite positions");
        normals.compute(points, shape->editNormals());
        shape->changed(osg::TimeShapeData::TimeFieldMask | osg::TimeShapeData::ShapeFieldMask);
        shapes->addShape(shape);
    }
    shapes->changed(osg::FieldContainer::NameFieldMask | osg::TimeShapeCache::ShapesFieldMask);
    geometry->addAttachment(shapes);
    geometry->changed(osg::AttachmentContainer::AttachmentsFieldMask);
    return true;
}

bool ksQdxLoader::getSkinWeights(QdxNode* node, const osg::NodePtr&,
                                 const osg::GeometryPtr& geometry,
                                 const ControlPointMap& vertices) {
    if (!_d->importJoints || !node) return false;
    auto* deformed = QdxCast<QdxGeometry>(node->GetNodeAttribute());
    if (!deformed) return false;
    const int skinCount = deformed->GetDeformerCount(QdxDeformer::eSkin);
    if (skinCount < 1) return false;
    QdxSkin* skin = nullptr;
    for (int i = 0; i < skinCount && !skin; ++i) {
        auto* candidate = QdxCast<QdxSkin>(deformed->GetDeformer(i, QdxDeformer::eSkin));
        if (candidate && candidate->GetClusterCount() > 0) skin = candidate;
    }
    if (!skin) return false;
    if (!geometry) return true;

    osg::SkinAttachmentPtr attachment = geometry->findAttachment<osg::SkinAttachment>();
    if (!attachment) {
        attachment = osg::SkinAttachment::create();
        geometry->addAttachment(attachment);
        geometry->changed(osg::AttachmentContainer::AttachmentsFieldMask);
    }
    std::vector<std::pair<QdxNode*, osg::DeformerClusterPtr>> links;
    for (int i = 0; i < skin->GetClusterCount(); ++i) {
        QdxCluster* cluster = skin->GetCluster(i);
        if (!cluster) continue;
        const int count = cluster->GetControlPointIndicesCount();
        const int* points = cluster->GetControlPointIndices();
        const double* weights = cluster->GetControlPointWeights();
        QdxAMatrix link, bind;
        cluster->GetTransformLinkMatrix(link);
        cluster->GetTransformMatrix(bind);

        auto deformer = osg::DeformerCluster::create();
        std::vector<osg::IndexWeight>& out = deformer->editWeights();
        for (int k = 0; k < count && points && weights; ++k) {
            const auto weight = static_cast<osg::Real32>(weights[k]);
            auto [first, last] = vertices.equal_range(points[k]);
            for (auto it = first; it != last; ++it)
                out.emplace_back(static_cast<osg::UInt32>(it->second), weight);
        }
        deformer->setNodeBindPose(toMatrix(link, _unitConversionFactor));
        deformer->setGeoBindPose(toMatrix(bind, _unitConversionFactor));
        deformer->changed(osg::DeformerCluster::NodeBindPoseFieldMask |
                          osg::DeformerCluster::WeightsFieldMask |
                          osg::DeformerCluster::GeoBindPoseFieldMask);
        links.emplace_back(cluster->GetLink(), deformer);
        attachment->addJoint(deformer);
    }
    attachment->changed(osg::SkinAttachment::JointsFieldMask);
    _d->clusterLinks.emplace_back(attachment, std::move(links));
    return true;
}

void ksQdxLoader::updateCameraTargets(const osg::NodePtr&) {
    auto converted = [this](QdxNode* node, std::vector<osg::NodePtr>& into) {
        auto found = node ? _d->convertedNodes.find(node) : _d->convertedNodes.end();
        if (found != _d->convertedNodes.end()) into.push_back(found->second);
    };
    for (const CameraTarget& entry : _d->cameraTargets) {
        std::vector<osg::NodePtr> targets, ups;
        converted(entry.target, targets);
        converted(entry.up, ups);
        ksConstraintManager::the()->createAimConstraint(targets, ups, entry.camera, false);
    }
}

void ksQdxLoader::updateDeformerClusterNodes(const osg::NodePtr&) {
    for (const auto& [attachment, links] : _d->clusterLinks) {
        for (const auto& [link, cluster] : links) {
            auto found = _d->convertedNodes.find(link);
            if (found == _d->convertedNodes.end() || !cluster) continue;
            osg::DeformerCluster::setNode(cluster, found->second);
            cluster->changed(osg::DeformerCluster::NodeFieldMask);
        }
        attachment->changed(osg::SkinAttachment::JointsFieldMask);
    }
}
