#pragma once
// The content every contender reads: 8 vertex-indexed meshes of 252,000
// triangles each (2,016,000 in all) with per-vertex normals, two UV sets and
// RGBA colours, as plain arrays that each writer turns into its own format.
#include <cmath>
#include <cstdint>
#include <vector>

namespace peer {

struct MeshArrays {
    std::vector<float> positions;       // xyz per vertex
    std::vector<float> normals;         // xyz per vertex
    std::vector<float> uv0, uv1;        // uv per vertex
    std::vector<float> colors;          // rgba per vertex
    std::vector<std::uint32_t> indices; // three per triangle
};

constexpr int kMeshes = 8;
constexpr int kColumns = 360, kRows = 350; // 126,000 quads, 252,000 triangles

inline MeshArrays makeMesh(int which) {
    MeshArrays m;
    const int vx = kColumns + 1, vy = kRows + 1;
    const std::size_t vertices = std::size_t(vx) * vy;
    m.positions.reserve(vertices * 3);
    m.normals.reserve(vertices * 3);
    m.uv0.reserve(vertices * 2);
    m.uv1.reserve(vertices * 2);
    m.colors.reserve(vertices * 4);
    const float offset = float(which) * (kColumns + 10);
    for (int y = 0; y < vy; ++y)
        for (int x = 0; x < vx; ++x) {
            const float h = std::sin(x * 0.05f) * std::cos(y * 0.05f);
            m.positions.insert(m.positions.end(), {offset + float(x), h, float(y)});
            const float nx = -0.05f * std::cos(x * 0.05f) * std::cos(y * 0.05f);
            const float nz = 0.05f * std::sin(x * 0.05f) * std::sin(y * 0.05f);
            const float len = std::sqrt(nx * nx + 1.f + nz * nz);
            m.normals.insert(m.normals.end(), {nx / len, 1.f / len, nz / len});
            m.uv0.insert(m.uv0.end(), {float(x) / kColumns, float(y) / kRows});
            m.uv1.insert(m.uv1.end(), {float(x % 16) / 16.f, float(y % 16) / 16.f});
            m.colors.insert(m.colors.end(),
                            {float(x % 256) / 255.f, 0.5f, float(y % 256) / 255.f, 1.f});
        }
    m.indices.reserve(std::size_t(kColumns) * kRows * 6);
    for (int y = 0; y < kRows; ++y)
        for (int x = 0; x < kColumns; ++x) {
            const std::uint32_t a = std::uint32_t(y * vx + x), b = a + 1, c = a + vx, d = c + 1;
            m.indices.insert(m.indices.end(), {a, b, d, a, d, c});
        }
    return m;
}

} // namespace peer
