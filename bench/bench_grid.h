#pragma once
// The large test scene shared by the SDK and plug-in benchmarks.
#include <cmath>
#include <vector>

#include <qdxsdk/qdxsdk.h>

namespace benchutil {

// A grid mesh of about `triangles` triangles (quads split in two) with
// per-corner normals, two UV sets ("map1", "Lightmap UV Set") and RGBA
// colours, under a node "grid" below the scene root.
inline void buildGrid(qdxsdk::QdxScene* scene, long triangles) {
    const long quads = triangles / 2;
    const int side = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(quads))));
    qdxsdk::QdxMesh* mesh = qdxsdk::QdxMesh::Create(scene, "grid");
    mesh->InitControlPoints((side + 1) * (side + 1));
    qdxsdk::QdxVector4* cp = mesh->GetControlPoints();
    for (int y = 0; y <= side; ++y)
        for (int x = 0; x <= side; ++x)
            cp[y * (side + 1) + x] =
                qdxsdk::QdxVector4(x, std::sin(x * 0.01) * std::cos(y * 0.01), y);
    std::vector<int> sizes(static_cast<size_t>(quads) * 2, 3), corners;
    corners.reserve(static_cast<size_t>(quads) * 6);
    for (long q = 0; q < quads; ++q) {
        const int x = static_cast<int>(q % side), y = static_cast<int>(q / side);
        const int a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
        for (int v : {a, b, d, a, d, c})
            corners.push_back(v);
    }
    mesh->AddPolygons(sizes.data(), static_cast<int>(sizes.size()), corners.data());
    const size_t n = corners.size();
    qdxsdk::QdxLayerElementNormal* normals = mesh->CreateElementNormal();
    normals->SetMappingMode(qdxsdk::QdxLayerElement::eByPolygonVertex);
    normals->GetDirectArray().Resize(static_cast<int>(n));
    double* nd = normals->GetDirectArray().GetDoubles();
    for (size_t i = 0; i < n; ++i) {
        nd[4 * i] = 0.01 * static_cast<double>(i % 7);
        nd[4 * i + 1] = 1.0;
        nd[4 * i + 2] = 0.0;
        nd[4 * i + 3] = 0.0;
    }
    for (const char* name : {"map1", "Lightmap UV Set"}) {
        qdxsdk::QdxLayerElementUV* uv = mesh->CreateElementUV(name);
        uv->SetMappingMode(qdxsdk::QdxLayerElement::eByPolygonVertex);
        uv->GetDirectArray().Resize(static_cast<int>(n));
        double* ud = uv->GetDirectArray().GetDoubles();
        for (size_t i = 0; i < n; ++i) {
            const int v = corners[i];
            ud[2 * i] = (v % (side + 1)) / static_cast<double>(side);
            ud[2 * i + 1] = (v / (side + 1)) / static_cast<double>(side);
        }
    }
    qdxsdk::QdxLayerElementVertexColor* colors = mesh->CreateElementVertexColor();
    colors->SetMappingMode(qdxsdk::QdxLayerElement::eByPolygonVertex);
    colors->GetDirectArray().Resize(static_cast<int>(n));
    double* cd = colors->GetDirectArray().GetDoubles();
    for (size_t i = 0; i < n; ++i) {
        cd[4 * i] = (i % 256) / 255.0;
        cd[4 * i + 1] = 0.5;
        cd[4 * i + 2] = ((i / 256) % 256) / 255.0;
        cd[4 * i + 3] = 1.0;
    }
    qdxsdk::QdxNode* node = qdxsdk::QdxNode::Create(scene, "grid");
    scene->GetRootNode()->AddChild(node);
    node->SetNodeAttribute(mesh);
}

} // namespace benchutil
