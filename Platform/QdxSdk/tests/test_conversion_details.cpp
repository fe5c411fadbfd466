// What each conversion touches: which values scale, rotate or get baked,
// and which stay as they were.
#include <gtest/gtest.h>

#include <cmath>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
class ConversionDetails : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "");
        QdxAnimStack* stack = QdxAnimStack::Create(scene, "stack");
        layer = QdxAnimLayer::Create(scene, "base");
        stack->AddMember(layer);
        top = QdxNode::Create(scene, "top");
        scene->GetRootNode()->AddChild(top);
        child = QdxNode::Create(scene, "child");
        top->AddChild(child);
    }
    void TearDown() override { manager->Destroy(); }
    QdxAnimCurve* Key(QdxPropertyT<QdxDouble3>& p, const char* channel, double seconds,
                      double value, double slope) {
        QdxAnimCurve* c = p.GetCurve(layer, channel, true);
        QdxTime t;
        t.SetSecondDouble(seconds);
        c->KeySet(c->KeyAdd(t), t, value, QdxAnimCurveDef::eInterpolationCubic,
                  QdxAnimCurveDef::eTangentUser, slope, slope);
        return c;
    }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    QdxAnimLayer* layer = nullptr;
    QdxNode* top = nullptr;
    QdxNode* child = nullptr;
};
} // namespace

TEST_F(ConversionDetails, UnitConversionScalesLengthsOnly) {
    scene->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::m);
    top->LclScaling.Set(QdxDouble3(2, 3, 4));
    top->LclRotation.Set(QdxDouble3(10, 20, 30));
    QdxAnimCurve* tx = Key(top->LclTranslation, "X", 0, 1.5, 2.0);
    top->SetScalingPivot(QdxNode::eDestinationPivot, QdxVector4(1, 0, 0));
    QdxCamera* cam = QdxCamera::Create(scene, "cam");
    cam->NearPlane.Set(0.1);
    cam->FocusDistance.Set(3.0);
    cam->FilmWidth.Set(1.0);
    child->SetNodeAttribute(cam);
    QdxCluster* cluster = QdxCluster::Create(scene, "cluster");
    cluster->SetTransformMatrix(
        QdxAMatrix(QdxVector4(1, 2, 3), QdxVector4(0, 90, 0), QdxVector4(1, 1, 1)));
    QdxNurbsCurve* trim = QdxNurbsCurve::Create(scene, "trim");
    trim->SetDimension(QdxNurbsCurve::e2D);
    trim->InitControlPoints(2, QdxNurbsCurve::eOpen);
    trim->SetControlPointAt(QdxVector4(0.5, 0.25, 0, 1), 0);
    QdxNurbsSurface* surf = QdxNurbsSurface::Create(scene, "surf");
    surf->InitControlPoints(1, QdxNurbsSurface::eOpen, 1, QdxNurbsSurface::eOpen);
    surf->SetControlPointAt(QdxVector4(1, 1, 1, 2), 0);

    ASSERT_TRUE(QdxSystemUnit::cm.ConvertScene(scene));
    EXPECT_DOUBLE_EQ(tx->KeyGetValue(0), 150.0);
    EXPECT_DOUBLE_EQ(tx->KeyGetRightDerivative(0), 200.0);
    EXPECT_TRUE(top->LclScaling.Get() == QdxDouble3(2, 3, 4));
    EXPECT_TRUE(top->LclRotation.Get() == QdxDouble3(10, 20, 30));
    EXPECT_DOUBLE_EQ(top->GetScalingPivot(QdxNode::eDestinationPivot)[0], 100.0);
    EXPECT_DOUBLE_EQ(cam->NearPlane.Get(), 10.0);
    EXPECT_DOUBLE_EQ(cam->FocusDistance.Get(), 300.0);
    EXPECT_DOUBLE_EQ(cam->FilmWidth.Get(), 1.0); // inches stay inches
    QdxAMatrix m;
    cluster->GetTransformMatrix(m);
    EXPECT_DOUBLE_EQ(m.GetT()[2], 300.0);
    EXPECT_NEAR(m.GetR()[1], 90.0, 1e-9);
    EXPECT_NEAR(m.GetS()[0], 1.0, 1e-12);
    EXPECT_EQ(trim->GetControlPointAt(0)[0], 0.5);
    QdxVector4 p = surf->GetControlPointAt(0);
    EXPECT_EQ(p[0], 100.0);
    EXPECT_EQ(p[3], 2.0); // weights are not lengths
    EXPECT_STREQ(scene->GetGlobalSettings().GetSystemUnit().GetScaleFactorAsString().Buffer(),
                 "cm");
}

TEST_F(ConversionDetails, AxisConversionRemapsTopLevelTranslationCurves) {
    QdxAnimCurve* ty = Key(top->LclTranslation, "Y", 0, 5.0, 1.0);
    QdxAnimCurve* tz = Key(top->LclTranslation, "Z", 0, 7.0, 2.0);
    child->LclTranslation.Set(QdxDouble3(1, 2, 3));
    QdxCluster* cluster = QdxCluster::Create(scene, "cluster");
    cluster->SetTransformLinkMatrix(
        QdxAMatrix(QdxVector4(0, 1, 0), QdxVector4(0, 0, 0), QdxVector4(1, 1, 1)));
    ASSERT_TRUE(QdxAxisSystem::ToveZUp.ConvertScene(scene));
    // Y up to Z up: new Z is old Y, new Y is minus old Z.
    EXPECT_EQ(top->LclTranslation.GetCurve(layer, "Z", false), ty);
    EXPECT_EQ(top->LclTranslation.GetCurve(layer, "Y", false), tz);
    EXPECT_DOUBLE_EQ(tz->KeyGetValue(0), -7.0);
    EXPECT_DOUBLE_EQ(tz->KeyGetLeftDerivative(0), -2.0);
    EXPECT_DOUBLE_EQ(ty->KeyGetValue(0), 5.0);
    // Children keep their local values; the top node gained a pre-rotation.
    EXPECT_TRUE(child->LclTranslation.Get() == QdxDouble3(1, 2, 3));
    EXPECT_NEAR(top->GetPreRotation(QdxNode::eSourcePivot)[0], 90.0, 1e-12);
    QdxAMatrix link;
    cluster->GetTransformLinkMatrix(link);
    EXPECT_NEAR(link.GetT()[2], 1.0, 1e-12);
    // Converting again to the same system changes nothing.
    QdxDouble3 before = top->LclTranslation.Get();
    ASSERT_TRUE(QdxAxisSystem::ToveZUp.ConvertScene(scene));
    EXPECT_TRUE(top->LclTranslation.Get() == before);
}

TEST_F(ConversionDetails, PivotConversionBakesGeometricTransformsIntoGeometry) {
    const auto S = QdxNode::eSourcePivot, D = QdxNode::eDestinationPivot;
    QdxMesh* mesh = QdxMesh::Create(scene, "mesh");
    mesh->InitControlPoints(1);
    mesh->SetControlPointAt(QdxVector4(1, 0, 0), 0);
    QdxLayerElementNormal* normals = mesh->CreateElementNormal();
    normals->GetDirectArray().Add(QdxVector4(1, 0, 0, 0));
    top->SetNodeAttribute(mesh);
    top->SetGeometricTranslation(S, QdxVector4(0, 0, 5));
    top->SetGeometricRotation(S, QdxVector4(0, 0, 90));
    top->SetGeometricScaling(S, QdxVector4(2, 2, 2));
    top->ConvertPivotAnimationRecursive(nullptr, D, 30.0, false);
    QdxVector4 p = mesh->GetControlPointAt(0);
    EXPECT_NEAR(p[0], 0.0, 1e-12);
    EXPECT_NEAR(p[1], 2.0, 1e-12);
    EXPECT_NEAR(p[2], 5.0, 1e-12);
    QdxVector4 n = normals->GetDirectArray().GetAt(0);
    EXPECT_NEAR(n[1], 1.0, 1e-12); // rotated, length kept
    EXPECT_TRUE(top->GetGeometricTransform(S).IsIdentity(1e-15));
}

TEST_F(ConversionDetails, PivotConversionWithKeyReductionLeavesStaticChannelsFlat) {
    top->SetRotationActive(true);
    top->SetPreRotation(QdxNode::eSourcePivot, QdxVector4(0, 0, 45));
    Key(top->LclTranslation, "X", 0, 1.0, 0.0);
    Key(top->LclTranslation, "X", 2, 3.0, 0.0);
    top->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, 30.0, true);
    QdxAnimCurve* rz = top->LclRotation.GetCurve(layer, "Z", false);
    ASSERT_NE(rz, nullptr);
    EXPECT_EQ(rz->KeyGetCount(), 1); // the baked rotation never changes
    EXPECT_NEAR(rz->KeyGetValue(0), 45.0, 1e-9);
    QdxAnimCurve* tx = top->LclTranslation.GetCurve(layer, "X", false);
    ASSERT_NE(tx, nullptr);
    EXPECT_GT(tx->KeyGetCount(), 2); // moving channels keep their frames
}

TEST_F(ConversionDetails, SharedMeshIsBakedOnce) {
    const auto S = QdxNode::eSourcePivot, D = QdxNode::eDestinationPivot;
    QdxMesh* mesh = QdxMesh::Create(scene, "mesh");
    mesh->InitControlPoints(1);
    mesh->SetControlPointAt(QdxVector4(1, 0, 0), 0);
    top->SetNodeAttribute(mesh);
    child->SetNodeAttribute(mesh);
    for (QdxNode* n : {top, child})
        n->SetGeometricTranslation(S, QdxVector4(0, 3, 0));
    top->ConvertPivotAnimationRecursive(nullptr, D, 30.0, false);
    EXPECT_EQ(mesh->GetControlPointAt(0)[1], 3.0);
}
