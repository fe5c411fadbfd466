#include "ConversionLosses.h"

#include <set>

#include <kestrel/ksFile.h>
#include <kestrel/ksMetadataUtils.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksString.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/UberMaterial.h>

#include "SceneWalk.h"

using namespace osg;

namespace {

bool writesSceneFiles(const std::string& file) {
    const std::string sfx = ksString::toLower(ksFile::getExtension(file));
    return sfx == "qdx" || sfx == "abc";
}

} // namespace

std::vector<ConversionLoss> ConversionLosses::find(const NodePtr& root,
                                                   const std::string& outputFile,
                                                   const std::string& exportOptions) {
    std::vector<ConversionLoss> losses;
    if (!root || !writesSceneFiles(outputFile)) return losses;
    const bool colours = ksString::getBoolOption(exportOptions, "qdx_export_vertex_colors");

    unsigned long long bump = 0, polygons = 0, colourMeshes = 0, lineGeometries = 0;
    std::set<const void*> materials, geometries;
    SceneWalk::forEach(root, [&](const NodePtr& n, const Matrix&, std::size_t) {
        auto d = DrawablePtr::dcast(n->getCore());
        if (d && d->getMaterial() && materials.insert(d->getMaterial().get()).second)
            if (auto u = UberMaterialPtr::dcast(d->getMaterial()))
                if (auto c = u->getBumpComponentSettings();
                    c && c->getImage() && c->getUseTexture())
                    ++bump;
        auto g = GeometryPtr::dcast(n->getCore());
        if (!g || ksNodeUtils::isShellGeometry(n) || !geometries.insert(g.get()).second)
            return true;
        bool faces = false;
        if (auto types = GeoPTypesUI8Ptr::dcast(g->getTypes()))
            for (UInt8 t : types->getField()) {
                if (t >= 4) faces = true;
                if (t >= 5) ++polygons; // strips, fans, quads and polygons
            }
        if (!faces && g->getTypes() && g->getTypes()->size() > 0) ++lineGeometries;
        if (!colours && faces) {
            auto c7 = g->getTexSlot(7);
            if ((c7 && c7->getDimension() == 4) || (g->getColors() && g->getColors()->size() > 0))
                ++colourMeshes;
        }
        return true;
    });
    if (bump)
        losses.push_back({"bumpMaps", bump,
                          std::to_string(bump) + " material(s) with a bump map: bump maps are "
                                                 "not written"});
    if (polygons)
        losses.push_back({"polygonsTriangulated", polygons,
                          std::to_string(polygons) +
                              " polygon(s), quad(s), strip(s) or fan(s) written as triangles"});
    if (colourMeshes)
        losses.push_back({"vertexColors", colourMeshes,
                          std::to_string(colourMeshes) +
                              " mesh(es) with vertex colours: not written without "
                              "--export-options qdx_export_vertex_colors"});
    if (lineGeometries)
        losses.push_back({"lines", lineGeometries,
                          std::to_string(lineGeometries) +
                              " line or point geometry(ies) without faces: not written"});

    std::vector<MetadataSetPtr> sets;
    if (ksMetadataUtils::getMetadata(root, sets)) {
        bool fileInfo = false;
        std::vector<std::string> others;
        for (const auto& s : sets) {
            const std::string name = ksMetadataUtils::getName(s);
            if (ksString::endsWith(name, "_FileInfo"))
                fileInfo = true;
            else
                others.push_back(name);
        }
        if (!fileInfo && !others.empty()) {
            std::string names;
            for (const auto& n : others)
                names += (names.empty() ? "'" : ", '") + n + "'";
            losses.push_back({"documentInformation", others.size(),
                              "document information in metadata set(s) " + names +
                                  " is not written: only a set whose name ends in "
                                  "\"_FileInfo\" becomes the file's document information"});
        }
    }
    return losses;
}

nlohmann::json ConversionLosses::toJson(const std::vector<ConversionLoss>& losses) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& l : losses)
        list.push_back({{"kind", l.kind}, {"count", l.count}, {"text", l.text}});
    return list;
}
