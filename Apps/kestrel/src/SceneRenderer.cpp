#include "SceneRenderer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Image.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberMaterial.h>

#include "SceneWalk.h"

using namespace osg;

namespace {

struct Corner {
    Vec3f world;
    float u = 0.f, v = 0.f;
};

struct Triangle {
    Corner c[3];
    Color3f colour;
    ImagePtr texture; // null: colour only
};

struct View {
    Matrix worldToView; // camera looks along -Z, +Y up
    float focal = 1.f;  // image-plane distance for a half-height of 1
    float nearZ = 0.01f;
};

Color3f diffuseOf(const MaterialPtr& m, ImagePtr& texture) {
    if (auto u = UberMaterialPtr::dcast(m)) {
        auto c = u->getDiffuseComponentSettings();
        if (c && c->getUseTexture() && c->getImage() && c->getImage()->isValid())
            texture = c->getImage();
        return u->getDiffuseColor();
    }
    if (auto cm = ChunkMaterialPtr::dcast(m))
        if (auto chunk = cm->getMaterialChunk()) {
            const Color4f& d = chunk->getDiffuse();
            return Color3f(d[0], d[1], d[2]);
        }
    return Color3f(0.7f, 0.7f, 0.7f);
}

Vec3f positionOf(const GeoPropertyPtr& p, UInt32 i) {
    return Vec3f(float(p->getComponent(i, 0)), float(p->getComponent(i, 1)),
                 float(p->getComponent(i, 2)));
}

// A right-handed view matrix looking from eye to at.
Matrix lookAt(const Vec3f& eye, const Vec3f& at, Vec3f up) {
    Vec3f back = eye - at;
    back.normalize();
    if (std::fabs(back.dot(up)) > 0.999f)
        up = std::fabs(back[1]) < 0.9f ? Vec3f(0, 1, 0) : Vec3f(0, 0, 1);
    Vec3f right = up.cross(back);
    right.normalize();
    Vec3f trueUp = back.cross(right);
    Matrix m;
    for (int k = 0; k < 3; ++k) {
        m.at(0, k) = right[k];
        m.at(1, k) = trueUp[k];
        m.at(2, k) = back[k];
    }
    m.at(0, 3) = -right.dot(eye);
    m.at(1, 3) = -trueUp.dot(eye);
    m.at(2, 3) = -back.dot(eye);
    return m;
}

} // namespace

SceneRenderer::SceneRenderer(unsigned width, unsigned height)
    : _width(std::max(1u, width)), _height(std::max(1u, height)) {}

bool SceneRenderer::render(const NodePtr& root, const std::string& cameraName, std::string& error) {
    std::vector<Triangle> tris;
    Vec3f lo(1e30f, 1e30f, 1e30f), hi(-1e30f, -1e30f, -1e30f);
    NodePtr cameraNode;
    Matrix cameraWorld;
    SceneWalk::forEach(root, [&](const NodePtr& n, const Matrix& world, std::size_t) {
        if (n->getTraversalMask() == 0) return false;
        NodeCorePtr core = n->getCore();
        if (UberCameraPtr::dcast(core) && !cameraNode &&
            (cameraName.empty() || n->getName() == cameraName)) {
            cameraNode = n;
            cameraWorld = world;
        }
        auto g = GeometryPtr::dcast(core);
        if (!g || !g->getPositions()) return true;
        ImagePtr texture;
        Color3f colour = diffuseOf(g->getMaterial(), texture);
        GeoPropertyPtr pos = g->getPositions();
        GeoPropertyPtr uv = g->getTexSlot(0);
        const UInt32 npos = pos->size();
        for (auto it = g->beginTriangles(), end = g->endTriangles(); it != end; ++it) {
            Triangle t;
            bool ok = true;
            for (int k = 0; k < 3 && ok; ++k) {
                UInt32 p = it.getPositionIndex(k);
                if (p >= npos) {
                    ok = false;
                    break;
                }
                Pnt3f w = world.multPnt(Pnt3f(positionOf(pos, p)));
                t.c[k].world = Vec3f(w[0], w[1], w[2]);
                for (int a = 0; a < 3; ++a)
                    ok = ok && std::isfinite(w[a]);
                if (uv && texture) {
                    UInt32 q = g->getPropertyIndex(it.getIndex(k), mapTexCoordsBit(0));
                    if (q < uv->size()) {
                        t.c[k].u = float(uv->getComponent(q, 0));
                        t.c[k].v = float(uv->getComponent(q, 1));
                    }
                }
            }
            if (!ok) continue;
            for (const auto& c : t.c)
                for (int a = 0; a < 3; ++a) {
                    lo[a] = std::min(lo[a], c.world[a]);
                    hi[a] = std::max(hi[a], c.world[a]);
                }
            t.colour = colour;
            t.texture = uv ? texture : ImagePtr();
            tris.push_back(std::move(t));
        }
        return true;
    });
    if (!cameraName.empty() && !cameraNode) {
        error = "no camera named '" + cameraName + "' in the scene";
        return false;
    }

    const float aspect = float(_width) / float(_height);
    View view;
    const Vec3f centre = tris.empty() ? Vec3f() : (lo + hi) * 0.5f;
    const float radius = tris.empty() ? 1.f : std::max((hi - lo).length() * 0.5f, 1e-6f);
    if (cameraNode) {
        auto cam = UberCameraPtr::dcast(cameraNode->getCore());
        Matrix inv = cameraWorld;
        if (!inv.invert()) {
            error = "camera '" + cameraNode->getName() + "' has a singular transform";
            return false;
        }
        view.worldToView = inv;
        const float sensor = cam->getSensorSize()[1] > 0 ? cam->getSensorSize()[1] : 24.f;
        const float focal = cam->getFocalLength() > 0 ? cam->getFocalLength() : 35.f;
        view.focal = 2.f * focal / sensor;
        view.nearZ = std::max(cam->getNear(), radius * 1e-4f);
    } else {
        const bool zUp = ksSceneDataManager::getSceneData(0)->getUpAxis() == ksSceneData::ZUp;
        const Vec3f up = zUp ? Vec3f(0, 0, 1) : Vec3f(0, 1, 0);
        Vec3f dir = zUp ? Vec3f(1.f, -1.6f, 0.9f) : Vec3f(1.f, 0.9f, 1.6f);
        dir.normalize();
        const float halfFov = 0.35f; // radians, vertical
        view.focal = 1.f / std::tan(halfFov);
        const float fit = std::min(1.f, aspect);
        const float distance = radius / std::sin(halfFov * fit) * 1.05f;
        view.worldToView = lookAt(centre + dir * distance, centre, up);
        view.nearZ = std::max(distance - radius * 1.5f, distance * 1e-3f);
    }

    _rgb.assign(std::size_t(_width) * _height * 3, 0);
    for (std::size_t i = 0; i < _rgb.size(); i += 3)
        std::copy(Background, Background + 3, _rgb.begin() + std::ptrdiff_t(i));
    std::vector<float> depth(std::size_t(_width) * _height, std::numeric_limits<float>::infinity());

    // The light comes from above, left and behind the viewer, in view space.
    Vec3f light(-0.4f, 0.6f, 0.7f);
    light.normalize();

    const float halfW = float(_width) * 0.5f, halfH = float(_height) * 0.5f;
    for (const Triangle& t : tris) {
        Vec3f v[3];
        bool behind = false;
        for (int k = 0; k < 3; ++k) {
            Pnt3f p = view.worldToView.multPnt(Pnt3f(t.c[k].world));
            v[k] = Vec3f(p[0], p[1], p[2]);
            if (-v[k][2] < view.nearZ) behind = true;
        }
        if (behind) continue; // no clipping: triangles crossing the near plane are skipped
        Vec3f normal = (v[1] - v[0]).cross(v[2] - v[0]);
        if (normal.length() == 0.f) continue;
        normal.normalize();
        const float lambert = std::fabs(normal.dot(light));
        const float shade = 0.25f + 0.75f * lambert;

        float sx[3], sy[3], invZ[3];
        for (int k = 0; k < 3; ++k) {
            invZ[k] = 1.f / -v[k][2];
            sx[k] = halfW + v[k][0] * invZ[k] * view.focal * halfH;
            sy[k] = halfH - v[k][1] * invZ[k] * view.focal * halfH;
        }
        const float area = (sx[1] - sx[0]) * (sy[2] - sy[0]) - (sx[2] - sx[0]) * (sy[1] - sy[0]);
        if (std::fabs(area) < 1e-12f) continue;
        const int x0 = std::max(0, int(std::floor(std::min({sx[0], sx[1], sx[2]}))));
        const int x1 = std::min(int(_width) - 1, int(std::ceil(std::max({sx[0], sx[1], sx[2]}))));
        const int y0 = std::max(0, int(std::floor(std::min({sy[0], sy[1], sy[2]}))));
        const int y1 = std::min(int(_height) - 1, int(std::ceil(std::max({sy[0], sy[1], sy[2]}))));
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                const float px = float(x) + 0.5f, py = float(y) + 0.5f;
                float w0 = ((sx[1] - px) * (sy[2] - py) - (sx[2] - px) * (sy[1] - py)) / area;
                float w1 = ((sx[2] - px) * (sy[0] - py) - (sx[0] - px) * (sy[2] - py)) / area;
                float w2 = 1.f - w0 - w1;
                if (w0 < 0.f || w1 < 0.f || w2 < 0.f) continue;
                const float iz = w0 * invZ[0] + w1 * invZ[1] + w2 * invZ[2];
                const float z = 1.f / iz;
                float& d = depth[std::size_t(y) * _width + std::size_t(x)];
                if (z >= d) continue;
                d = z;
                Color3f c = t.colour;
                if (t.texture) {
                    float u = (w0 * t.c[0].u * invZ[0] + w1 * t.c[1].u * invZ[1] +
                               w2 * t.c[2].u * invZ[2]) *
                              z;
                    float vv = (w0 * t.c[0].v * invZ[0] + w1 * t.c[1].v * invZ[1] +
                                w2 * t.c[2].v * invZ[2]) *
                               z;
                    u -= std::floor(u);
                    vv -= std::floor(vv);
                    const Image& img = *t.texture;
                    UInt32 tx = std::min(img.getWidth() - 1, UInt32(u * float(img.getWidth())));
                    // Texture coordinates run upwards; image rows run down.
                    UInt32 ty =
                        std::min(img.getHeight() - 1, UInt32((1.f - vv) * float(img.getHeight())));
                    const UInt32 ch = img.getChannels();
                    for (int k = 0; k < 3; ++k)
                        c[k] = img.getComponent(tx, ty, ch >= 3 ? UInt32(k) : 0);
                }
                unsigned char* out = &_rgb[(std::size_t(y) * _width + std::size_t(x)) * 3];
                for (int k = 0; k < 3; ++k)
                    out[k] = static_cast<unsigned char>(std::clamp(c[k] * shade, 0.f, 1.f) * 255.f +
                                                        0.5f);
            }
    }
    return true;
}

bool SceneRenderer::write(const std::string& path, std::string& error) const {
    ImagePtr image = Image::create();
    if (_rgb.empty() || !image->set(_width, _height, 3, Image::UInt8Type, _rgb.data())) {
        error = "nothing was drawn";
        return false;
    }
    if (!image->write(path)) {
        error = "cannot write '" + path + "': " + image->getLastError();
        return false;
    }
    return true;
}
