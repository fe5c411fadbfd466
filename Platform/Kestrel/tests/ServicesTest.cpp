// Host services: option strings, file names, log capture, scene settings,
// the reference service, materials and broadcast messages.
#include <fstream>

#include <gtest/gtest.h>

#include <kestrel/ksFile.h>
#include <kestrel/ksInterfaceFactory.h>
#include <kestrel/ksLog.h>
#include <kestrel/ksMaterials.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOpenSGExt.h>
#include <kestrel/ksOpenSGUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksVersionInfo.h>
#include <kestrel/osg/UberMaterial.h>

#include "TestUtil.h"

using namespace osg;

TEST(OptionStrings, ParseBareKeysValuesAndBooleanWords) {
    const std::string o = " flush_transforms , reduce_keyframes=OFF,enable_metadata= Yes,"
                          "qdx_version=QDX7500, n=12, x=2.5, odd=maybe, flag=1";
    EXPECT_TRUE(ksString::getBoolOption(o, "flush_transforms"));
    EXPECT_FALSE(ksString::getBoolOption(o, "reduce_keyframes", true));
    EXPECT_TRUE(ksString::getBoolOption(o, "enable_metadata"));
    EXPECT_FALSE(ksString::getBoolOption(o, "odd", true)); // unknown word reads as false
    EXPECT_TRUE(ksString::getBoolOption(o, "flag"));
    EXPECT_TRUE(ksString::getBoolOption(o, "absent", true));
    EXPECT_FALSE(ksString::getBoolOption(o, "absent"));
    EXPECT_FALSE(ksString::getBoolOption(o, "flush")); // whole keys only
    EXPECT_EQ(ksString::getStringOption(o, "qdx_version"), "QDX7500");
    EXPECT_EQ(ksString::getStringOption(o, "qdx_version="), "QDX7500");
    EXPECT_EQ(ksString::getStringOption(o, "flush_transforms"), "");
    EXPECT_EQ(ksString::getIntOption(o, "n", 0), 12);
    EXPECT_EQ(ksString::getIntOption(o, "x", 7), 7);
    EXPECT_DOUBLE_EQ(ksString::getDoubleOption(o, "x", 0), 2.5);
    // The text behind "key=" up to the next comma.
    std::string rest = o.substr(o.find("qdx_version=") + 12);
    EXPECT_EQ(ksString::getStringOption(rest), "QDX7500");
    for (const char* t : {"true", "TRUE", "1", "yes", "On"})
        EXPECT_TRUE(ksString::toBool(t)) << t;
    for (const char* f : {"false", "0", "no", "off", "", "2"})
        EXPECT_FALSE(ksString::toBool(f)) << f;
    EXPECT_EQ(ksString::replace("a%b%%c", "%", "_"), "a_b__c");
}

TEST(FileNames, SplitIntoDirectoryBaseAndExtension) {
    EXPECT_EQ(ksFile::getBaseName("/x/y/car.model.QDX"), "car.model");
    EXPECT_EQ(ksFile::getBaseName("C:\\maps\\oak.png"), "oak");
    EXPECT_EQ(ksFile::getExtension("/x/y.d/car.QDX"), "QDX");
    EXPECT_EQ(ksFile::getExtension("/x/y.d/car"), "");
    EXPECT_EQ(ksFile::getExtension(".hidden"), "");
    EXPECT_EQ(ksFile::getDirName("a/b/c.txt"), "a/b");
    EXPECT_EQ(ksFile::getDirName("c.txt"), ".");
    EXPECT_EQ(ksFile::convertToUnixSeparators("C:\\maps\\wood\\oak.png"), "C:/maps/wood/oak.png");
    TempDir dir;
    EXPECT_TRUE(ksFile::exists(dir.path()));
    EXPECT_FALSE(ksFile::exists(dir.file("nope")));
    EXPECT_FALSE(ksFile::exists(""));
    EXPECT_TRUE(ksFile::mkpath(dir.file("Textures/sub")));
    EXPECT_TRUE(ksFile::isDirectory(dir.file("Textures/sub")));
}

TEST(Log, CanBeCapturedAndFiltered) {
    ksLogCapture outer;
    {
        ksLogCapture inner(true); // forwards to the outer capture
        ksLog::info("QdxImport: SDK Version: %i.%i.%i\n", 1, 2, 3);
        ksLog::warning("Node %s has no core!", "Body");
        ksLog::error("failed");
        EXPECT_EQ(inner.count(ksLog::Info, "SDK Version: 1.2.3"), 1u);
        EXPECT_EQ(inner.count(ksLog::Warning, "Body"), 1u);
        EXPECT_EQ(inner.entries().size(), 3u);
    }
    ksLog::setMinimumLevel(ksLog::Warning);
    ksLog::info("hidden");
    ksLog::setMinimumLevel(ksLog::Info);
    EXPECT_EQ(outer.entries().size(), 3u);
    EXPECT_EQ(outer.count(ksLog::Error), 1u);
}

TEST(SceneData, DefaultsToZUpMillimetres) {
    ksSceneDataManager::reset();
    ksSceneData* s = ksSceneDataManager::getSceneData(0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->getUpAxis(), ksSceneData::ZUp);
    EXPECT_EQ(s->getLengthUnit(), ksSceneData::Millimeter);
    EXPECT_TRUE(ksOpenSGExt::isCameraZUp());
    ASSERT_TRUE(s->getRootNode());
    EXPECT_EQ(ksSceneDataManager::getSceneData(1), nullptr);
    EXPECT_EQ(ksSceneDataManager::getSceneData(-1), nullptr);
    s->setUpAxis(ksSceneData::YUp);
    EXPECT_FALSE(ksOpenSGExt::isCameraZUp());
    EXPECT_EQ(ksSceneData::parseLengthUnit("m"), ksSceneData::Meter);
    EXPECT_EQ(ksSceneData::parseLengthUnit("CM"), ksSceneData::Centimeter);
    EXPECT_EQ(ksSceneData::parseLengthUnit("furlong"), -1);
    EXPECT_DOUBLE_EQ(ksSceneData::getMillimetersPerUnit(ksSceneData::Inch), 25.4);
    ksSceneDataManager::reset();
    EXPECT_TRUE(ksSceneDataManager::getSceneData(0)->isZUp());
}

TEST(ReferenceService, ACachedServiceFollowsReplacementsAndResets) {
    auto& f = ksInterfaceFactory::the();
    // Cached once, as a plug-in does; it must stay usable through every
    // replacement and reset below (a freed service would show up under the
    // address sanitizer).
    ksReferenceInterface* cached = f.getReferenceInterface();
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(f.getInterface(ksReferenceInterface::Name), cached);
    NodePtr n = Node::create();
    EXPECT_EQ(cached->reference(n, "a.qdx"), n);

    class Wrapping : public ksReferenceInterface {
    public:
        NodePtr reference(const NodePtr& node, const std::string& file) override {
            NodePtr w = Node::create();
            w->setName(file);
            w->addChild(node);
            return w;
        }
    };
    for (int round = 0; round < 2; ++round) {
        f->setInterface(std::make_unique<Wrapping>());
        f->setInterface(std::make_unique<Wrapping>()); // replaces the first
        NodePtr wrapped = cached->reference(n, "b.qdx");
        EXPECT_EQ(wrapped->getName(), "b.qdx");
        EXPECT_EQ(wrapped->getChild(0), n);
        EXPECT_EQ(f.getReferenceInterface(), cached);
        f.reset();
        EXPECT_EQ(cached->reference(n, "c"), n);
    }
    EXPECT_EQ(f.getInterface("nothing"), nullptr);
}

TEST(Materials, PlasticChannelsAndNames) {
    auto m = UPlasticMaterial::create();
    ksMaterials::setName(m, "Paint", true);
    EXPECT_EQ(ksMaterials::getName(m), "Paint");
    EXPECT_EQ(ksMaterials::getRealMaterial(m), m);
    m->setDiffuseColor(Color3f(0.5f, 0.25f, 0.125f));
    m->setIncandescenceColor(Color4f(1, 0.5f, 0, 2));
    m->setRoughness(2.f);
    auto img = Image::create();
    m->setColorMap(img);
    m->setUseColorTexture(true);
    EXPECT_EQ(m->getDiffuseComponentSettings()->getImage(), img);
    EXPECT_TRUE(m->getColorComponentData()->getDiffuseComponent()->getUseTexture());
    EXPECT_EQ(m->getIncandescenceColor(), Color4f(1, 0.5f, 0, 2));
    EXPECT_FLOAT_EQ(m->getShininess(), 20.f);
    EXPECT_FALSE(m->isTransparent());
    m->setSeeThrough(Color3f(0.5f, 0.5f, 0.5f));
    EXPECT_TRUE(m->isTransparent());
    EXPECT_TRUE(UBRDFMaterialPtr::dcast(MaterialPtr(m)));
    // A copy owns its components.
    auto copy = UPlasticMaterialPtr::dcast(m->shallowCopy());
    copy->setDiffuseColor(Color3f(1, 1, 1));
    EXPECT_EQ(m->getDiffuseColor(), Color3f(0.5f, 0.25f, 0.125f));
    EXPECT_EQ(copy->getDiffuseComponentSettings()->getImage(), img);
}

TEST(Messages, ReachTheirListeners) {
    bool zup = false;
    int calls = 0;
    int id = ksOpenSGUtils::addListener("LoadedQDXAxisSystem",
                                        [&](const std::string&, ksMessage& m, int) {
                                            zup = m.getBool("zup");
                                            ++calls;
                                        });
    ksMessage msg;
    msg.set("zup", true);
    msg.set("n", 3);
    EXPECT_EQ(ksOpenSGUtils::call("LoadedQDXAxisSystem", msg, 0), 1);
    EXPECT_EQ(ksOpenSGUtils::call("Other", msg, 0), 0);
    EXPECT_TRUE(zup);
    EXPECT_EQ(msg.getInt("n"), 3);
    EXPECT_DOUBLE_EQ(msg.getDouble("n"), 3.0);
    EXPECT_EQ(msg.getString("zup", "none"), "none");
    ksOpenSGUtils::removeListener(id);
    EXPECT_EQ(ksOpenSGUtils::call("LoadedQDXAxisSystem", msg, 0), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(ksVersionInfo::the().getApplicationName(), "Kestrel");
    EXPECT_FALSE(ksVersionInfo::the()->getDisplayVersionYearString().empty());
}
