// Materials and textures: plastic materials from Qdx materials, sharing,
// colours with factors, channels, texture placement and the search for
// texture files.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <kestrel/ksMaterials.h>
#include <kestrel/osg/Image.h>
#include <kestrel/osg/UberMaterial.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

class MaterialTest : public PluginTest {
protected:
    // Writes an image of 2 x 2 pixels with the given channel count.
    void writeImage(const std::string& path, unsigned channels) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        auto image = osg::Image::create();
        ASSERT_TRUE(image->set(2, 2, channels, osg::Image::UInt8Type));
        ASSERT_TRUE(image->write(path)) << image->getLastError();
    }
    osg::UPlasticMaterialPtr plastic(const Imported& r, const std::string& node) {
        auto g = r.geometry(node);
        return g ? osg::UPlasticMaterialPtr::dcast(g->getMaterial()) : osg::UPlasticMaterialPtr();
    }
};

QdxNode* quad(QdxScene* s, const char* name, QdxSurfaceMaterial* m) {
    QdxNode* n = addMesh(s, s->GetRootNode(), name, quadPoints(), {{0, 1, 2, 3}});
    if (m) n->AddMaterial(m);
    return n;
}

QdxFileTexture* texture(QdxScene* s, const std::string& file) {
    QdxFileTexture* t = QdxFileTexture::Create(s, "tex");
    t->SetFileName(file.c_str());
    return t;
}

TEST_F(MaterialTest, MaterialsAreSharedWithTheirColoursFactorsAndScalars) {
    Imported r = import(writeScene("colours.qdx", [](QdxScene* s) {
        QdxSurfacePhong* half = QdxSurfacePhong::Create(s, "Half");
        half->Diffuse.Set(QdxDouble3(1, 0.5, 0.25));
        half->DiffuseFactor.Set(0.5);
        half->Ambient.Set(QdxDouble3(0.2, 0.2, 0.2));
        half->AmbientFactor.Set(1.0);
        half->Specular.Set(QdxDouble3(1, 1, 1));
        half->SpecularFactor.Set(0.25);
        half->Shininess.Set(20.0);
        half->Emissive.Set(QdxDouble3(2, 1, 0));
        half->EmissiveFactor.Set(1.0);
        half->BumpFactor.Set(0.3);
        half->TransparentColor.Set(QdxDouble3(1, 1, 1));
        half->TransparencyFactor.Set(0.4);
        quad(s, "Half", half);

        QdxSurfaceLambert* full = QdxSurfaceLambert::Create(s, "Full");
        full->Diffuse.Set(QdxDouble3(1, 0.5, 0.25));
        full->DiffuseFactor.Set(1.0);
        full->Emissive.Set(QdxDouble3(0.5, 0.2, 0));
        full->EmissiveFactor.Set(1.0);
        quad(s, "Full", full);
        quad(s, "AlsoFull", full);
        quad(s, "None", nullptr);
        quad(s, "AlsoNone", nullptr);
    }));
    ASSERT_TRUE(r.root);
    // Converted once and shared; no material: one shared default.
    EXPECT_EQ(r.geometry("Full")->getMaterial(), r.geometry("AlsoFull")->getMaterial());
    EXPECT_EQ(ksMaterials::getName(r.geometry("Full")->getMaterial()), "Full");
    EXPECT_EQ(r.geometry("None")->getMaterial(), r.geometry("AlsoNone")->getMaterial());
    EXPECT_EQ(ksMaterials::getName(r.geometry("None")->getMaterial()), "DefaultMaterial");
    EXPECT_TRUE(plastic(r, "None"));
    auto half = plastic(r, "Half"), full = plastic(r, "Full");
    ASSERT_TRUE(half && full);
    EXPECT_EQ(half->getDiffuseColor(), osg::Color3f(0.5f, 0.25f, 0.125f));
    EXPECT_EQ(full->getDiffuseColor(), osg::Color3f(1.f, 0.5f, 0.25f));
    EXPECT_TRUE(half->getAmbienceColor().equals(osg::Color3f(0.2f, 0.2f, 0.2f), 1e-7f));
    EXPECT_EQ(half->getSpecularColor(), osg::Color3f(0.25f, 0.25f, 0.25f));
    EXPECT_EQ(half->getRoughness(), 2.f);
    EXPECT_EQ(full->getRoughness(), 80.f); // no shininess property
    EXPECT_FLOAT_EQ(half->getReflectivity(), 0.04f);
    EXPECT_EQ(half->getIncandescenceColor(), osg::Color4f(1.f, 0.5f, 0.f, 2.f));
    EXPECT_EQ(full->getIncandescenceColor(), osg::Color4f(0.5f, 0.2f, 0.f, 1.f));
    EXPECT_FLOAT_EQ(half->getBumpIntensity(), 0.3f);
    EXPECT_TRUE(half->getSeeThrough().equals(osg::Color3f(0.4f, 0.4f, 0.4f), 1e-7f));
    EXPECT_FALSE(half->getDiffuseComponentSettings()->getUseTexture());
}

TEST_F(MaterialTest, TexturePlacementGoesToTheDiffuseAndTransparencyChannels) {
    writeImage(_dir + "/maps/rgba.png", 4);
    writeImage(_dir + "/maps/grey.png", 1);
    const std::string dir = _dir;
    Imported r = import(writeScene("placement.qdx", [dir](QdxScene* s) {
        QdxSurfacePhong* m = QdxSurfacePhong::Create(s, "Placed");
        QdxFileTexture* diffuse = texture(s, dir + "/maps/rgba.png");
        diffuse->SetScale(2, 2);
        diffuse->SetWrapMode(QdxTexture::eClamp, QdxTexture::eRepeat);
        diffuse->SetRotation(0, 0, 30);
        m->Diffuse.ConnectSrcObject(diffuse);
        QdxFileTexture* specular = texture(s, dir + "/maps/grey.png");
        specular->SetScale(3, 3);
        m->Specular.ConnectSrcObject(specular);
        QdxFileTexture* see = texture(s, dir + "/maps/grey.png");
        see->SetWrapMode(QdxTexture::eClamp, QdxTexture::eClamp);
        m->TransparentColor.ConnectSrcObject(see);
        quad(s, "Placed", m);
    }));
    ASSERT_TRUE(r.root);
    auto m = plastic(r, "Placed");
    ASSERT_TRUE(m);
    auto diffuse = m->getDiffuseComponentSettings();
    EXPECT_TRUE(diffuse->getUseTexture());
    ASSERT_TRUE(diffuse->getImage());
    EXPECT_TRUE(diffuse->getUseAlpha());
    EXPECT_EQ(diffuse->getRepeat(), osg::Vec2f(2.f, 2.f));
    EXPECT_EQ(diffuse->getOffset(), osg::Vec2f(-0.25f, -0.25f));
    EXPECT_EQ(diffuse->getRotate(), 30.f);
    EXPECT_EQ(diffuse->getRepeatMode(), 130u);
    EXPECT_FALSE(diffuse->getConnectRepeatModes());
    EXPECT_FLOAT_EQ(diffuse->getAnisotropy(), 8.f);

    auto transparency = m->getTransparencyComponentSettings();
    EXPECT_TRUE(transparency->getUseTexture());
    EXPECT_EQ(transparency->getRepeatMode(), 18u);
    EXPECT_TRUE(transparency->getConnectRepeatModes());

    // The specular texture is used but keeps the default placement.
    auto specular = m->getSpecularComponentSettings();
    EXPECT_TRUE(specular->getUseTexture());
    EXPECT_FALSE(specular->getUseAlpha());
    EXPECT_EQ(specular->getRepeat(), osg::Vec2f(1.f, 1.f));
    EXPECT_NE(r.out.find("Loaded texture '" + _dir + "/maps/rgba.png'\n"), std::string::npos);
}

TEST_F(MaterialTest, LayeredTexturesUseTheirFirstFileTexture) {
    writeImage(_dir + "/a.png", 3);
    writeImage(_dir + "/b.png", 4);
    const std::string dir = _dir;
    Imported r = import(writeScene("layered.qdx", [dir](QdxScene* s) {
        QdxSurfaceLambert* m = QdxSurfaceLambert::Create(s, "Layered");
        QdxLayeredTexture* layered = QdxLayeredTexture::Create(s, "stack");
        layered->ConnectSrcObject(texture(s, dir + "/a.png"));
        layered->ConnectSrcObject(texture(s, dir + "/b.png"));
        m->Diffuse.ConnectSrcObject(layered);
        quad(s, "Layered", m);
    }));
    ASSERT_TRUE(r.root);
    auto image = plastic(r, "Layered")->getDiffuseComponentSettings()->getImage();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->getChannels(), 3u);
}

TEST_F(MaterialTest, TextureFilesAreSearchedByDroppingLeadingFolders) {
    writeImage(_dir + "/a.png", 3);
    writeImage(_dir + "/tex/b.png", 3);
    std::ofstream(_dir + "/broken.png") << "not an image";
    Imported r;
    {
        // Relative forms resolve against the current directory.
        const auto old = std::filesystem::current_path();
        std::filesystem::current_path(_dir);
        r = import(writeScene("search.qdx", [](QdxScene* s) {
            const char* files[] = {"D:\\proj\\tex\\a.png", "C:/elsewhere/tex/b.png",
                                   "D:\\proj\\missing.png", "X:/broken.png"};
            const char* names[] = {"A", "B", "Missing", "Broken"};
            for (int i = 0; i < 4; ++i) {
                QdxSurfaceLambert* m = QdxSurfaceLambert::Create(s, names[i]);
                m->Diffuse.ConnectSrcObject(texture(s, files[i]));
                quad(s, names[i], m);
            }
        }));
        std::filesystem::current_path(old);
    }
    ASSERT_TRUE(r.root);
    EXPECT_NE(r.out.find("Loaded texture 'a.png'\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Loaded texture 'tex/b.png'\n"), std::string::npos);
    EXPECT_NE(r.out.find("Couldn't find texture 'missing.png'\n"), std::string::npos);
    EXPECT_NE(r.out.find("Couldn't load texture 'X:/broken.png'\n"), std::string::npos);
    EXPECT_TRUE(plastic(r, "A")->getDiffuseComponentSettings()->getImage());
    EXPECT_TRUE(plastic(r, "B")->getDiffuseComponentSettings()->getUseTexture());
    EXPECT_FALSE(plastic(r, "Missing")->getDiffuseComponentSettings()->getUseTexture());
    EXPECT_FALSE(plastic(r, "Broken")->getDiffuseComponentSettings()->getImage());
}

} // namespace
