// Animation speed of the plug-in: a scene of N animated nodes (1,000 by
// default), each with nine curves (translation, rotation and scaling X, Y,
// Z) of K cubic keys (1,000 by default, one per frame at 24 fps), is written
// as a binary Qdx file, imported through the host's scene-file handler and
// exported again. The same amount of animation is also built directly on
// host nodes and exported, so that export is measured on its own. Prints
// seconds and peak resident memory of each step.
//   plugin_anim [--nodes N] [--keys K] [--dir DIR]
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksLog.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg.h>
#include <qdxsdk/qdxsdk.h>

#include "bench_util.h"
#include "ksQdxWriter.h"

using namespace qdxsdk;
using benchutil::now;
using benchutil::peakMB;
using benchutil::resetPeak;

namespace {

constexpr double kFps = 24.0;

// A smooth, different value for each node, channel and key.
double sample(int node, int channel, int key) {
    return 10.0 * std::sin(0.05 * key + 0.7 * channel + 0.01 * node) + (channel >= 6 ? 11.0 : 0.0);
}

bool writeFile(const std::string& path, int nodes, int keys) {
    QdxManager* m = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(m, "bench");
    scene->GetGlobalSettings().SetFrameRate(kFps);
    QdxAnimStack* stack = QdxAnimStack::Create(scene, "Take 001");
    QdxAnimLayer* layer = QdxAnimLayer::Create(scene, "BaseLayer");
    stack->AddMember(layer);
    std::vector<long long> times(static_cast<std::size_t>(keys));
    std::vector<double> values(times.size());
    for (int k = 0; k < keys; ++k) {
        QdxTime t;
        t.SetSecondDouble(k / kFps);
        times[static_cast<std::size_t>(k)] = t.Get();
    }
    for (int n = 0; n < nodes; ++n) {
        QdxNode* node = QdxNode::Create(scene, ("Node" + std::to_string(n)).c_str());
        scene->GetRootNode()->AddChild(node);
        QdxProperty* properties[3] = {&node->LclTranslation, &node->LclRotation, &node->LclScaling};
        for (int p = 0; p < 3; ++p) {
            QdxAnimCurveNode* curveNode = properties[p]->GetCurveNode(layer, true);
            for (unsigned int c = 0; c < 3; ++c) {
                QdxAnimCurve* curve = curveNode->CreateCurve(curveNode->GetName(), c);
                for (int k = 0; k < keys; ++k)
                    values[static_cast<std::size_t>(k)] = sample(n, 3 * p + int(c), k);
                curve->KeyAppend(times.data(), values.data(), keys,
                                 QdxAnimCurveDef::eInterpolationCubic);
            }
        }
    }
    QdxExporter* e = QdxExporter::Create(m, "");
    const bool ok = e->Initialize(path.c_str(), 0) && e->Export(scene);
    m->Destroy();
    return ok;
}

// The same animation built on host nodes: cubic points with handles a
// third of the way to their neighbours.
osg::NodePtr buildHostScene(int nodes, int keys) {
    ksAnimManager& anim = ksAnimManager::the();
    osg::NodePtr root = osg::Node::create();
    root->setCore(osg::Group::create());
    const char* channels[3] = {"translation", "eulerRotation", "scale"};
    const char* components[3] = {"X", "Y", "Z"};
    const float third = float(1.0 / kFps / 3.0);
    for (int n = 0; n < nodes; ++n) {
        osg::NodePtr node = osg::Node::create();
        node->setCore(osg::Transform3D::create());
        ksNodeUtils::setName(node, "Node" + std::to_string(n));
        root->addChild(node);
        osg::AnimAttachmentPtr attachment = anim.createAnimAttachment(node);
        std::vector<ksAnimManager::ksOSGChannelData> keyable;
        anim.getKeyableChannels(node, keyable);
        for (const auto& c : keyable)
            anim.createChannelCurveNode(c, attachment);
        for (int p = 0; p < 3; ++p)
            for (int c = 0; c < 3; ++c) {
                osg::AnimCurvePtr curve =
                    anim.findChannelCurve(channels[p], components[c], attachment);
                curve->reserve(static_cast<osg::UInt32>(keys));
                for (int k = 0; k < keys; ++k) {
                    const float v = float(sample(n, 3 * p + c, k));
                    const float slope = float(
                        (sample(n, 3 * p + c, k + 1) - sample(n, 3 * p + c, k - 1)) * kFps / 2.0);
                    curve->addPoint(osg::Pnt2f(float(k / kFps), v),
                                    osg::Vec2f(-third, -third * slope),
                                    osg::Vec2f(third, third * slope), osg::AnimCurve::Bezier,
                                    osg::AnimCurve::Bezier, true, false);
                }
            }
    }
    return root;
}

// Host curves with points below root, and their points.
std::pair<long, long> countCurves(const osg::NodePtr& root) {
    long curves = 0, points = 0;
    ksNodeUtils::traverse(root, [&](const osg::NodePtr& n) {
        if (auto a = ksAnimManager::the().getAnimAttachment(n)) {
            std::vector<osg::AnimCurvePtr> list;
            a->getRoot()->collectCurves(list);
            for (const auto& c : list)
                if (c->size() > 0) ++curves, points += c->size();
        }
        return true;
    });
    return {curves, points};
}

} // namespace

int main(int argc, char** argv) {
    int nodes = 1000, keys = 1000;
    std::string dir = (std::filesystem::temp_directory_path() / "qdx-bench").string();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string a = argv[i];
        if (a == "--nodes")
            nodes = std::max(1, std::atoi(argv[i + 1]));
        else if (a == "--keys")
            keys = std::max(2, std::atoi(argv[i + 1]));
        else if (a == "--dir")
            dir = argv[i + 1];
    }
    std::filesystem::create_directories(dir);
    const std::string path = dir + "/plugin-anim.qdx";
    const std::string out = dir + "/plugin-anim-out.qdx";
    if (!writeFile(path, nodes, keys)) {
        std::printf("writing the scene failed\n");
        return 1;
    }
    std::printf("scene: %d nodes x 9 curves x %d keys, binary file %.1f MB\n", nodes, keys,
                static_cast<double>(std::filesystem::file_size(path)) / 1e6);
    ksLog::setMinimumLevel(ksLog::Error);
    ksAnimManager::the().setFPS(kFps);
    std::printf("%-28s %9s %12s %12s\n", "step", "seconds", "peak MB", "curves");

    // The plug-in's console lines are not timed.
    std::fflush(stdout);
    resetPeak();
    double t0 = now();
    osg::NodePtr imported = osg::SceneFileHandler::the().read(path.c_str());
    double seconds = now() - t0, peak = peakMB();
    if (!imported) {
        std::printf("import failed: %s\n", osg::SceneFileHandler::the().getLastError().c_str());
        return 1;
    }
    auto [curves, points] = countCurves(imported);
    std::printf("%-28s %9.2f %12.0f %12ld\n", "handler import", seconds, peak, curves);

    if (curves > 0) {
        std::fflush(stdout);
        resetPeak();
        t0 = now();
        const bool ok = ksQdxWriter::write(imported, out, "");
        seconds = now() - t0, peak = peakMB();
        std::printf("%-28s %9.2f %12.0f %12ld%s\n", "export of the import", seconds, peak, curves,
                    ok ? "" : " (failed)");
    } else {
        std::printf("(the import gave no curves: the export of the import is left out)\n");
    }
    imported = osg::NodePtr();

    osg::NodePtr built = buildHostScene(nodes, keys);
    std::tie(curves, points) = countCurves(built);
    std::fflush(stdout);
    resetPeak();
    t0 = now();
    const bool ok = ksQdxWriter::write(built, out, "");
    seconds = now() - t0, peak = peakMB();
    std::printf("%-28s %9.2f %12.0f %12ld%s\n", "export of host curves", seconds, peak, curves,
                ok ? "" : " (failed)");
    std::printf("(%ld host points written)\n", points);
    std::filesystem::remove(path);
    std::filesystem::remove(out);
    return ok ? 0 : 1;
}
