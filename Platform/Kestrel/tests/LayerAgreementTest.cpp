// A node animated by a stack of layers, and the same animation as host
// curves in blocks, give the same transform values at every time: random
// blend modes, weights, static values and layers that animate only some
// properties.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include <kestrel/ksAnimManager.h>
#include <kestrel/osg/Group.h>
#include <kestrel/osg/Transform3D.h>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {

QdxTime Sec(double s) {
    QdxTime t;
    t.SetSecondDouble(s);
    return t;
}

struct Property {
    const char* channel;
    QdxPropertyT<QdxDouble3> QdxNode::*member;
    bool positive; // scale values stay positive so that powers are defined
};

const Property kProperties[] = {{"translation", &QdxNode::LclTranslation, false},
                                {"eulerRotation", &QdxNode::LclRotation, false},
                                {"scale", &QdxNode::LclScaling, true}};
const char* const kAxes[] = {"X", "Y", "Z"};

} // namespace

TEST(LayerAgreement, BlocksEvaluateLikeTheLayersOfAStack) {
    std::mt19937 rng(2024);
    auto uniform = [&](double lo, double hi) {
        // Values a float holds exactly, as host points are floats.
        return double(float(std::uniform_real_distribution<double>(lo, hi)(rng)));
    };
    auto chance = [&](double p) { return std::uniform_real_distribution<double>(0, 1)(rng) < p; };

    for (int trial = 0; trial < 30; ++trial) {
        QdxManager* manager = QdxManager::Create();
        QdxScene* scene = QdxScene::Create(manager, "");
        QdxAnimStack* stack = QdxAnimStack::Create(scene, "stack");
        QdxNode* node = QdxNode::Create(scene, "node");
        scene->GetRootNode()->AddChild(node);

        auto t3d = osg::Transform3D::create();
        auto hostNode = osg::Node::create();
        hostNode->setCore(t3d);
        auto root = osg::Node::create();
        root->setCore(osg::Group::create());
        root->addChild(hostNode);
        osg::AnimAttachmentPtr att = ksAnimManager::the().createAnimAttachment(hostNode);

        osg::Vec3f statics[3];
        for (int i = 0; i < 3; ++i) {
            const Property& p = kProperties[i];
            for (int a = 0; a < 3; ++a)
                statics[i][a] = float(uniform(p.positive ? 0.5 : -5, p.positive ? 2 : 5));
            (node->*p.member).Set(QdxDouble3(statics[i][0], statics[i][1], statics[i][2]));
        }
        t3d->setTranslation(statics[0]);
        t3d->setEulerRotation(statics[1]);
        t3d->setScale(statics[2]);

        const int layers = 3;
        for (int l = 0; l < layers; ++l) {
            QdxAnimLayer* layer = QdxAnimLayer::Create(scene, "layer");
            stack->AddMember(layer);
            osg::AnimNodePtr block = att->getRoot();
            if (l > 0) {
                auto mode = static_cast<int>(rng() % 3);
                double weight = uniform(0, 100);
                layer->BlendMode.Set(mode);
                layer->Weight.Set(weight);
                block = osg::AnimNode::create();
                block->setBlendMode(static_cast<osg::AnimNode::BlendMode>(mode));
                block->setWeight(weight);
                att->getRoot()->addChild(block);
            }
            for (const Property& p : kProperties) {
                // A layer animates a property on all of its axes, or not at all.
                if (!chance(0.6)) continue;
                for (const char* axis : kAxes) {
                    QdxAnimCurve* curve = (node->*p.member).GetCurve(layer, axis, true);
                    auto host = osg::AnimCurve::create();
                    host->setChannel(p.channel, axis);
                    block->addChild(host);
                    int keys = 1 + static_cast<int>(rng() % 4);
                    for (int k = 0; k < keys; ++k) {
                        double t = k * 0.5 + 0.125 * static_cast<double>(rng() % 3);
                        double v = uniform(p.positive ? 0.5 : -5, p.positive ? 2 : 5);
                        curve->KeySet(curve->KeyAdd(Sec(t)), Sec(t), v,
                                      QdxAnimCurveDef::eInterpolationLinear);
                        host->addPoint(osg::Pnt2f(float(t), float(v)), osg::Vec2f(), osg::Vec2f(),
                                       osg::AnimCurve::Linear, osg::AnimCurve::Linear, true, false);
                    }
                    ASSERT_TRUE(host->verify(true, false, false));
                }
            }
        }

        auto& evaluator = ksAnimEvaluator::the();
        evaluator.updateSceneAnimParentMap(root);
        for (double t = -0.25; t <= 2.5; t += 0.0625) {
            evaluator.evaluate(t);
            const osg::Vec3f host[3] = {t3d->getTranslation(), t3d->getEulerRotation(),
                                        t3d->getScale()};
            const QdxVector4 sdk[3] = {node->EvaluateLocalTranslation(Sec(t)),
                                       node->EvaluateLocalRotation(Sec(t)),
                                       node->EvaluateLocalScaling(Sec(t))};
            for (int p = 0; p < 3; ++p)
                for (int a = 0; a < 3; ++a) {
                    double expected = sdk[p][a], value = 0;
                    double tolerance = 1e-9 * std::max(1.0, std::fabs(expected));
                    ASSERT_TRUE(evaluator.evaluateChannel(hostNode, kProperties[p].channel,
                                                          kAxes[a], t, value));
                    EXPECT_NEAR(value, expected, tolerance)
                        << "trial " << trial << " t " << t << " " << kProperties[p].channel
                        << kAxes[a];
                    EXPECT_NEAR(host[p][a], expected, 1e-6 * std::max(1.0, std::fabs(expected)));
                }
        }
        manager->Destroy();
    }
}
