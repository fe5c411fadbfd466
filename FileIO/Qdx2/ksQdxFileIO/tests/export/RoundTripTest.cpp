// Import -> export -> import through the host's scene-file handler, for
// every writer flavour and version: the second import must show the scene
// the first one did.
#include <cmath>
#include <filesystem>
#include <map>

#include <kestrel/ksNodeUtils.h>

#include "ExportTestUtil.h"

using namespace exporttest;
namespace fs = std::filesystem;

namespace {

class RoundTrip : public ::testing::Test {
protected:
    void SetUp() override { resetHost(); }
    void TearDown() override { resetHost(); }

    static osg::NodePtr importFile(const std::string& path, const std::string& cwd) {
        const fs::path old = fs::current_path();
        fs::current_path(cwd); // texture paths in the file are relative
        ::testing::internal::CaptureStdout();
        osg::NodePtr root = osg::SceneFileHandler::the().read(path.c_str());
        ::testing::internal::GetCapturedStdout();
        fs::current_path(old);
        return root;
    }

    void expectNear(const osg::Vec3f& a, const osg::Vec3f& b, float tolerance, const char* what) {
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(a[k], b[k], tolerance * (1.f + std::fabs(a[k]))) << what << " " << k;
    }

    // Per triangle corner: world position and normal, and every UV slot.
    void compareGeometry(const osg::NodePtr& a, const osg::NodePtr& b) {
        auto ga = osg::GeometryPtr::dcast(a->getCore()), gb = osg::GeometryPtr::dcast(b->getCore());
        ASSERT_EQ(ga->countTriangles(), gb->countTriangles());
        osg::Matrix wa = a->getWorldMatrix(), wb = b->getWorldMatrix();
        auto na = osg::GeoNormals3fPtr::dcast(ga->getNormals());
        auto nb = osg::GeoNormals3fPtr::dcast(gb->getNormals());
        ASSERT_EQ(bool(na), bool(nb));
        for (osg::UInt32 slot = 0; slot < 5; ++slot) {
            ASSERT_EQ(bool(ga->getTexSlot(slot)), bool(gb->getTexSlot(slot))) << slot;
            if (ga->getTexSlot(slot)) {
                EXPECT_EQ(ga->getTexSlotName(slot), gb->getTexSlotName(slot));
            }
        }
        auto ia = ga->beginTriangles(), ib = gb->beginTriangles();
        for (; ia != ga->endTriangles() && !HasFailure(); ++ia, ++ib)
            for (int k = 0; k < 3; ++k) {
                expectNear(wa.multPnt(ia.getPosition(k)), wb.multPnt(ib.getPosition(k)), 1e-4f,
                           "position");
                if (na) {
                    osg::Vec3f x = wa.multVec(na->getValue(ia.getNormalIndex(k)));
                    osg::Vec3f y = wb.multVec(nb->getValue(ib.getNormalIndex(k)));
                    x.normalize();
                    y.normalize();
                    expectNear(x, y, 1e-4f, "normal");
                }
                for (osg::UInt32 slot = 0; slot < 5; ++slot) {
                    auto ta = ga->getTexSlot(slot), tb = gb->getTexSlot(slot);
                    if (!ta) continue;
                    const osg::UInt16 bit = osg::mapTexCoordsBit(slot);
                    for (osg::UInt32 c = 0; c < 2; ++c)
                        EXPECT_NEAR(ta->getComponent(ia.getPropertyIndex(k, bit), c),
                                    tb->getComponent(ib.getPropertyIndex(k, bit), c), 1e-5)
                            << "uv slot " << slot;
                }
            }
    }

    void compareMaterial(const osg::NodePtr& a, const osg::NodePtr& b, const std::string& dir) {
        auto ma = osg::UberMaterialPtr::dcast(ksNodeUtils::getRealMaterial(a));
        auto mb = osg::UberMaterialPtr::dcast(ksNodeUtils::getRealMaterial(b));
        ASSERT_EQ(bool(ma), bool(mb));
        if (!ma) return;
        // Shared materials stay shared, distinct ones distinct.
        auto [at, fresh] = _materials.emplace(ma.get(), mb.get());
        EXPECT_EQ(at->second, mb.get()) << ma->getName();
        if (!fresh) return;
        EXPECT_EQ(ma->getName(), mb->getName());
        expectNear(ma->getDiffuseColor(), mb->getDiffuseColor(), 1e-5f, "diffuse");
        auto ca = ma->getDiffuseComponentSettings(), cb = mb->getDiffuseComponentSettings();
        ASSERT_EQ(ca->getUseTexture() && ca->getImage(), cb->getUseTexture() && cb->getImage());
        if (!cb->getImage()) return;
        ++_textures;
        EXPECT_EQ(fs::path(cb->getImage()->getName()).parent_path(), fs::path(dir) / "Textures");
        EXPECT_EQ(ca->getImage()->getWidth(), cb->getImage()->getWidth());
        EXPECT_EQ(ca->getImage()->getPixels(), cb->getImage()->getPixels());
        for (int k = 0; k < 2; ++k) {
            EXPECT_NEAR(ca->getRepeat()[k], cb->getRepeat()[k], 1e-5);
            EXPECT_NEAR(ca->getOffset()[k], cb->getOffset()[k], 1e-5);
        }
    }

    void compareTrees(const osg::NodePtr& a, const osg::NodePtr& b, const std::string& dir,
                      bool isRoot = false) {
        SCOPED_TRACE(a->getName());
        if (!isRoot) {
            EXPECT_EQ(a->getName(), b->getName());
            EXPECT_EQ(a->getTraversalMask() == 0xFFFFFFFFu, b->getTraversalMask() == 0xFFFFFFFFu);
            ASSERT_EQ(std::string(a->getCore()->getTypeName()), b->getCore()->getTypeName());
            osg::Matrix wa = a->getWorldMatrix(), wb = b->getWorldMatrix();
            for (const osg::Vec3f& p : {osg::Vec3f(0, 0, 0), osg::Vec3f(100, 0, 0),
                                        osg::Vec3f(0, 100, 0), osg::Vec3f(0, 0, 100)})
                expectNear(wa.multPnt(p), wb.multPnt(p), 1e-4f, "world");
            if (osg::GeometryPtr::dcast(a->getCore())) {
                ++_geometries;
                compareGeometry(a, b);
                compareMaterial(a, b, dir);
            }
        }
        ASSERT_EQ(a->getNChildren(), b->getNChildren());
        for (osg::UInt32 i = 0; i < a->getNChildren() && !HasFatalFailure(); ++i)
            compareTrees(a->getChild(i), b->getChild(i), dir);
    }

    std::map<const osg::Material*, const osg::Material*> _materials;
    int _geometries = 0, _textures = 0;
};

TEST_F(RoundTrip, SampleSceneSurvivesEveryWriter) {
    const std::string samples = KSQDX_SAMPLES_DIR;
    osg::NodePtr first = importFile(samples + "/showroom.qdx", samples);
    ASSERT_TRUE(first) << osg::SceneFileHandler::the().getLastError();

    for (const char* flavour : {"binary", "ascii"})
        for (const char* version : {"QDX100", "QDX200", "QDX300"}) {
            SCOPED_TRACE(std::string(flavour) + " " + version);
            TempDir dir;
            const std::string file = dir.file("copy.qdx");
            const std::string options =
                std::string("qdx_format=") + flavour + ",qdx_version=" + version;
            osg::SceneFileHandler::the().setOptions("qdx", options.c_str());
            ::testing::internal::CaptureStdout();
            const bool written = osg::SceneFileHandler::the().write(first, file.c_str());
            ::testing::internal::GetCapturedStdout();
            ASSERT_TRUE(written);
            {
                ReadBack raw(file);
                ASSERT_TRUE(raw.ok) << raw.error;
                EXPECT_EQ(raw.binary, std::string(flavour) == "binary");
                EXPECT_EQ(raw.version, version);
            }
            osg::NodePtr second = importFile(file, fs::temp_directory_path().string());
            ASSERT_TRUE(second);
            _materials.clear();
            _geometries = _textures = 0;
            compareTrees(first, second, dir.path(), true);
            EXPECT_GE(_geometries, 8);
            EXPECT_GE(_materials.size(), 3u);
            EXPECT_GE(_textures, 2);
        }
}

} // namespace
