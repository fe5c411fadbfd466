// Material export: shared Phong materials from every host material kind,
// texture images written beside the file and their placement.
#include <filesystem>

#include "ExportTestUtil.h"

using namespace exporttest;
using qdxsdk::QdxSurfaceMaterial;
namespace fs = std::filesystem;

namespace {

class ExportMaterial : public ::testing::Test {
protected:
    void SetUp() override { resetHost(); }
    void TearDown() override { resetHost(); }

    // A 2x2 RGB image saved as name in the source folder, as if read from it.
    osg::ImagePtr image(const std::string& name) {
        auto img = osg::Image::create();
        const osg::UInt8 pixels[12] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 9, 9};
        EXPECT_TRUE(img->set(2, 2, 3, osg::Image::UInt8Type, pixels));
        fs::create_directories(source.path() + "/maps");
        EXPECT_TRUE(img->write(source.path() + "/maps/" + name));
        return img;
    }
    osg::NodePtr meshWith(const osg::MaterialPtr& material, const std::string& name) {
        auto geometry = makeQuad();
        geometry->setMaterial(material);
        return makeNode(geometry, name);
    }
    static qdxsdk::QdxDouble3 prop(qdxsdk::QdxSurfaceMaterial* m, const char* name) {
        return m->FindProperty(name).Get<qdxsdk::QdxDouble3>();
    }
    TempDir source, target;
};

TEST_F(ExportMaterial, UberMaterialIsSharedWithItsTexturesWritten) {
    auto plastic = osg::UPlasticMaterial::create();
    plastic->setName("Paint");
    plastic->setRoughness(2.f);
    plastic->setAmbienceColor(osg::Color3f(0.1f, 0.2f, 0.3f));
    plastic->setDiffuseColor(osg::Color3f(0.5f, 0.25f, 1.f));
    plastic->setIncandescenceColor(osg::Color4f(0.5f, 0.25f, 0.f, 2.f));
    plastic->setColorMap(image("wood.png"));
    plastic->setUseColorTexture(true);
    plastic->getDiffuseComponentSettings()->setRepeat(osg::Vec2f(2, 2));
    auto see = plastic->getTransparencyComponentSettings();
    see->setImage(image("mask.png"));
    see->setUseTexture(true);
    see->setRepeat(osg::Vec2f(1, 1));
    see->setOffset(osg::Vec2f(0.25f, 0));
    // A specular map that is switched off is not written.
    plastic->setSpecularMap(image("unused.png"));

    auto root = makeGroup("Root", {meshWith(plastic, "A"), meshWith(plastic, "B")});
    const std::string file = target.file("scene.qdx");
    ASSERT_TRUE(ksQdxWriter::write(root, file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;

    ASSERT_EQ(back.find("A")->GetMaterialCount(), 1);
    qdxsdk::QdxSurfaceMaterial* m = back.find("A")->GetMaterial(0);
    EXPECT_EQ(m, back.find("B")->GetMaterial(0));
    EXPECT_EQ(back.scene->GetMaterialCount(), 1);
    EXPECT_STREQ(m->GetName(), "Paint");
    EXPECT_STREQ(m->ShadingModel.Get().Buffer(), "Phong");
    EXPECT_DOUBLE_EQ(prop(m, QdxSurfaceMaterial::sDiffuse)[1], 0.25);
    EXPECT_FLOAT_EQ(float(prop(m, QdxSurfaceMaterial::sAmbient)[2]), 0.3f);
    EXPECT_DOUBLE_EQ(prop(m, QdxSurfaceMaterial::sEmissive)[0], 1.0);
    EXPECT_DOUBLE_EQ(m->FindProperty(QdxSurfaceMaterial::sShininess).Get<double>(), 20.0);
    EXPECT_DOUBLE_EQ(m->FindProperty(QdxSurfaceMaterial::sTransparencyFactor).Get<double>(), 1.0);
    EXPECT_EQ(back.find("A")->GetShadingMode(), qdxsdk::QdxNode::eTextureShading);

    auto* diffuse =
        m->FindProperty(QdxSurfaceMaterial::sDiffuse).GetSrcObject<qdxsdk::QdxFileTexture>();
    auto* mask = m->FindProperty(QdxSurfaceMaterial::sTransparentColor)
                     .GetSrcObject<qdxsdk::QdxFileTexture>();
    ASSERT_TRUE(diffuse && mask);
    EXPECT_EQ(m->FindProperty(QdxSurfaceMaterial::sSpecular).GetSrcObjectCount(), 0);
    EXPECT_EQ(fs::path(diffuse->GetFileName()), fs::path(target.file("Textures/wood.png")));
    EXPECT_DOUBLE_EQ(diffuse->GetScaleU(), 2.0);
    EXPECT_DOUBLE_EQ(diffuse->GetTranslationU(), -0.5);
    EXPECT_DOUBLE_EQ(diffuse->GetTranslationV(), -0.5);
    EXPECT_DOUBLE_EQ(mask->GetTranslationU(), -0.25);
    EXPECT_DOUBLE_EQ(mask->GetTranslationV(), 0.0);
    EXPECT_EQ(diffuse->GetMappingType(), qdxsdk::QdxTexture::eUV);

    // The written image is the host's image.
    auto written = osg::Image::create();
    ASSERT_TRUE(written->read(diffuse->GetFileName()));
    EXPECT_EQ(written->getWidth(), 2u);
    EXPECT_EQ(written->getPixels()[4], 255);
    EXPECT_TRUE(fs::exists(target.file("Textures/mask.png")));
    EXPECT_FALSE(fs::exists(target.file("Textures/unused.png")));
}

TEST_F(ExportMaterial, ChunkBrdfAndMeasuredMaterials) {
    auto chunk = osg::MaterialChunk::create();
    chunk->setDiffuse(osg::Color4f(0.1f, 0.2f, 0.3f, 1));
    chunk->setSpecular(osg::Color4f(1, 1, 1, 1));
    chunk->setEmission(osg::Color4f(0, 0.5f, 0, 1));
    chunk->setShininess(64.f);
    auto classic = osg::ChunkMaterial::create();
    classic->setName("Classic");
    classic->addChunk(chunk);
    auto empty = osg::ChunkMaterial::create();
    empty->setName("NoChunk");
    auto brdf = osg::UBRDFMaterial::create();
    brdf->setName("Brdf");
    brdf->setDiffuseColor(osg::Color3f(1, 0, 0));
    auto measured = osg::UXRiteMeasuredMaterial::create();
    measured->setName("Measured");

    auto root =
        makeGroup("Root", {meshWith(classic, "C"), meshWith(empty, "E"), meshWith(brdf, "R1"),
                           meshWith(brdf, "R2"), meshWith(measured, "X")});
    const std::string file = target.file("kinds.qdx");
    ASSERT_TRUE(ksQdxWriter::write(root, file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;

    qdxsdk::QdxSurfaceMaterial* c = back.find("C")->GetMaterial(0);
    ASSERT_NE(c, nullptr);
    EXPECT_FLOAT_EQ(float(prop(c, QdxSurfaceMaterial::sDiffuse)[2]), 0.3f);
    EXPECT_DOUBLE_EQ(prop(c, QdxSurfaceMaterial::sSpecular)[0], 1.0);
    EXPECT_DOUBLE_EQ(prop(c, QdxSurfaceMaterial::sEmissive)[1], 0.5);
    EXPECT_DOUBLE_EQ(c->FindProperty(QdxSurfaceMaterial::sShininess).Get<double>(), 64.0);
    EXPECT_EQ(back.find("E")->GetMaterialCount(), 0);

    qdxsdk::QdxSurfaceMaterial* r = back.find("R1")->GetMaterial(0);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r, back.find("R2")->GetMaterial(0));
    EXPECT_STREQ(r->GetName(), "Brdf");
    EXPECT_DOUBLE_EQ(
        prop(r, QdxSurfaceMaterial::sDiffuse)[0],
        qdxsdk::QdxSurfacePhong::Create(back.manager, "")->Diffuse.Get()[0]); // left at the default
    ASSERT_NE(back.find("X")->GetMaterial(0), nullptr);
    EXPECT_STREQ(back.find("X")->GetMaterial(0)->GetName(), "Measured");
    EXPECT_FALSE(fs::exists(target.file("Textures")));
}

} // namespace
