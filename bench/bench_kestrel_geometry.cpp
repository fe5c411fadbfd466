// Host geometry timings: vertex merging and transform flattening on grid
// meshes written one vertex per polygon corner (as importers produce them).
// Prints time per vertex for growing sizes; a flat column means linear time.
#include <chrono>
#include <cstdio>

#include <kestrel/ksOptimize.h>
#include <kestrel/osg/ChangeList.h>
#include <kestrel/osg/Geometry.h>

using namespace osg;

namespace {

// An n x n grid of quads, four corner vertices each (position, normal, UV).
GeometryPtr cornerGrid(UInt32 n) {
    auto g = Geometry::create();
    auto types = GeoPTypesUI8::create();
    auto lengths = GeoPLengthsUI32::create();
    auto pos = GeoPositions3f::create();
    auto nrm = GeoNormals3f::create();
    auto uv = GeoTexCoords2f::create();
    auto idx = GeoIndicesUI32::create();
    for (UInt32 y = 0; y < n; ++y)
        for (UInt32 x = 0; x < n; ++x) {
            types->push_back(PrimPolygon);
            lengths->push_back(4);
            const UInt32 cx[4] = {x, x + 1, x + 1, x}, cy[4] = {y, y, y + 1, y + 1};
            for (int k = 0; k < 4; ++k) {
                idx->push_back(pos->size());
                pos->push_back(Pnt3f(float(cx[k]), float(cy[k]), 0.f));
                nrm->push_back(Vec3f(0, 0, 1));
                uv->push_back(Vec2f(float(cx[k]) / float(n), float(cy[k]) / float(n)));
            }
        }
    g->setTypes(types);
    g->setLengths(lengths);
    g->setPositions(pos);
    g->setNormals(nrm);
    g->setTexSlot(uv, 0);
    g->setIndices(idx);
    g->setIndexMapping({UInt16(MapPosition | MapNormal | MapTexCoords)});
    return g;
}

double seconds(std::chrono::steady_clock::time_point a) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - a).count();
}

} // namespace

int main() {
    ChangeList::current().setEnabled(false);
    std::printf("%10s %12s %12s %14s %14s\n", "corners", "merged to", "merge ms", "merge ns/vtx",
                "flatten ns/vtx");
    for (UInt32 n : {100u, 200u, 400u, 800u}) {
        GeometryPtr g = cornerGrid(n);
        UInt32 corners = g->getPositions()->size();
        auto t0 = std::chrono::steady_clock::now();
        UInt32 removed = ksGeoOptimizer::mergeVertices(g);
        double merge = seconds(t0);

        auto node = Node::create();
        auto t = Transform3D::create();
        t->setTranslation(Vec3f(1, 2, 3));
        t->setEulerRotation(Vec3f(10, 20, 30));
        auto root = Node::create();
        root->setCore(t);
        node->setCore(cornerGrid(n));
        root->addChild(node);
        auto t1 = std::chrono::steady_clock::now();
        ksOptimize::flushTransformations(root);
        double flatten = seconds(t1);
        std::printf("%10u %12u %12.2f %14.1f %14.1f\n", corners, corners - removed, merge * 1e3,
                    merge * 1e9 / corners, flatten * 1e9 / corners);
    }
    return 0;
}
