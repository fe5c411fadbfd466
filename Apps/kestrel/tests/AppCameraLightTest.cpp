// `kestrel import` on a freshly generated sample: its cameras, lights and
// joints appear in the tree, the JSON and the statistics with their values.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "AppSupport.h"

using nlohmann::json;

namespace {

const std::string kPlugins = "--plugin-dir '" KESTREL_PLUGIN_DIR "' ";

} // namespace

TEST(AppCameraLight, ImportShowsCamerasLightsAndJoints) {
    TempDir dir;
    ASSERT_TRUE(generateSample(dir.path()));
    const std::string sample = dir.file("showroom.qdx");

    AppRun tree = runApp(kPlugins + "--unit cm import '" + sample + "'");
    ASSERT_EQ(tree.code, 0) << tree.err;
    for (const char* text :
         {"ShotCamera [UberCamera]", "perspective camera, focal length 35 mm",
          "horizontal field of view", "aims at Car, up towards ShotCameraUp",
          "PlanCamera [UberCamera]", "frustum (-300 300 -300 300)", "Spot [UberLight]",
          "spot light, value 0.0314159", "cone 15 deg, penumbra 7.5 deg", "SoftBox [UberLight]",
          "rectangular light, value 1", "Haze [Transform3D]", "ArmWrist [Joint]"})
        EXPECT_NE(tree.out.find(text), std::string::npos) << text << "\n" << tree.out;

    AppRun j = runApp(kPlugins + "--unit cm import --json '" + sample + "'");
    ASSERT_EQ(j.code, 0) << j.err;
    const json root = json::parse(j.out, nullptr, false);
    const json* shot = findNode(root, "ShotCamera");
    ASSERT_TRUE(shot && shot->contains("camera"));
    const json& camera = (*shot)["camera"];
    EXPECT_EQ(camera["projection"], "perspective");
    EXPECT_EQ(camera["fovMode"], "horizontal");
    EXPECT_NEAR(camera["sensorSize"][0].get<double>(), 1.417 * 25.4, 1e-3);
    EXPECT_EQ(camera["aimTarget"], "Car");
    EXPECT_EQ(camera["aimUp"], "ShotCameraUp");
    const json* spot = findNode(root, "Spot");
    ASSERT_TRUE(spot && spot->contains("light"));
    const json& light = (*spot)["light"];
    EXPECT_EQ(light["type"], "spot");
    EXPECT_EQ(light["attenuation"], "linear");
    EXPECT_NEAR(light["cone"].get<double>(), 15.0, 1e-6);
    EXPECT_EQ(light["shadows"], true);
    const json* haze = findNode(root, "Haze");
    ASSERT_TRUE(haze);
    EXPECT_FALSE(haze->contains("light"));

    AppRun s = runApp(kPlugins + "import --stats --json '" + sample + "'");
    ASSERT_EQ(s.code, 0) << s.err;
    const json stats = json::parse(s.out, nullptr, false);
    ASSERT_TRUE(stats.contains("statistics")) << s.out;
    EXPECT_EQ(stats["statistics"]["cameras"], 2);
    EXPECT_EQ(stats["statistics"]["lights"], 5);
    EXPECT_EQ(stats["statistics"]["joints"], 3);
}
