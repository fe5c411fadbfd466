// Skins deform the same after pivot conversion bakes a geometric transform
// into their geometry; trimmed-surface boundaries keep their curves' point
// counts through files and through writing curves out as open curves.
#include <gtest/gtest.h>

#include <filesystem>

#include "scene_builder.h"

using namespace qdxsdk;
using namespace qdxtest;

namespace {

class SkinBake : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "scene");
        QdxNode* root = scene->GetRootNode();
        body = QdxNode::Create(scene, "body");
        root->AddChild(body);
        body->LclTranslation.Set(QdxDouble3(0, 1, 0));
        const auto S = QdxNode::eSourcePivot;
        body->SetGeometricTranslation(S, QdxVector4(0.5, 0, -1));
        body->SetGeometricRotation(S, QdxVector4(0, 0, 90));
        body->SetGeometricScaling(S, QdxVector4(2, 1, 1));
        mesh = QdxMesh::Create(scene, "mesh");
        mesh->InitControlPoints(4);
        for (int i = 0; i < 4; ++i)
            mesh->SetControlPointAt(QdxVector4(0.1 * i, i, 0.3), i);
        body->SetNodeAttribute(mesh);

        hip = QdxNode::Create(scene, "hip");
        root->AddChild(hip);
        knee = QdxNode::Create(scene, "knee");
        hip->AddChild(knee);
        knee->LclTranslation.Set(QdxDouble3(0, 2, 0));
        skin = QdxSkin::Create(scene, "skin");
        QdxAMatrix bind = body->EvaluateGlobalTransform() * body->GetGeometricTransform();
        // Point 3 is left without weight on purpose.
        const double weights[2][3] = {{1.0, 0.6, 0.0}, {0.0, 0.4, 1.0}};
        QdxNode* joints[2] = {hip, knee};
        for (int j = 0; j < 2; ++j) {
            QdxCluster* cl = QdxCluster::Create(scene, "cluster");
            cl->SetLink(joints[j]);
            cl->SetTransformMatrix(bind);
            cl->SetTransformLinkMatrix(joints[j]->EvaluateGlobalTransform());
            for (int i = 0; i < 3; ++i)
                if (weights[j][i] > 0) cl->AddControlPointIndex(i, weights[j][i]);
            skin->AddCluster(cl);
        }
        mesh->AddDeformer(skin);
    }
    void TearDown() override { manager->Destroy(); }
    std::vector<QdxVector4> Deformed() {
        std::vector<QdxVector4> out;
        EXPECT_TRUE(skin->EvaluateDeformedPoints(QdxTime(), out));
        return out;
    }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    QdxNode *body = nullptr, *hip = nullptr, *knee = nullptr;
    QdxMesh* mesh = nullptr;
    QdxSkin* skin = nullptr;
};

void ExpectSamePoints(const std::vector<QdxVector4>& a, const std::vector<QdxVector4>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i)
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(a[i][k], b[i][k], 1e-9) << "point " << i << " component " << k;
}

TEST_F(SkinBake, BindPoseLeavesPointsWhereTheNodePutsThem) {
    std::vector<QdxVector4> rest;
    QdxAMatrix world = body->EvaluateGlobalTransform() * body->GetGeometricTransform();
    for (int i = 0; i < 4; ++i)
        rest.push_back(world.MultT(mesh->GetControlPointAt(i)));
    ExpectSamePoints(Deformed(), rest);
    EXPECT_EQ(skin->GetGeometry(), mesh);
}

TEST_F(SkinBake, PosedSkinDeformsTheSameAfterTheGeometricTransformIsBaked) {
    hip->LclRotation.Set(QdxDouble3(0, 0, 30));
    knee->LclRotation.Set(QdxDouble3(45, 0, 0));
    knee->LclScaling.Set(QdxDouble3(1, 1.5, 1));
    std::vector<QdxVector4> before = Deformed();
    scene->GetRootNode()->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, 30.0,
                                                         false);
    ASSERT_TRUE(body->GetGeometricTransform().IsIdentity(1e-15));
    ExpectSamePoints(Deformed(), before);

    // And after a unit and an axis conversion, the same points converted.
    ASSERT_TRUE(QdxSystemUnit::m.ConvertScene(scene));
    ASSERT_TRUE(QdxAxisSystem::ToveZUp.ConvertScene(scene));
    QdxAMatrix axes = QdxAxisSystem::ToveZUp.GetConversionFrom(QdxAxisSystem::ToveYUp);
    std::vector<QdxVector4> expected;
    for (const QdxVector4& p : before)
        expected.push_back(axes.MultT(p * 0.01));
    ExpectSamePoints(Deformed(), expected);
}

// ------------------------------------------------------------ trims

class TrimBoundaries : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "scene");
        dir = MakeTempDir("trims");
    }
    void TearDown() override {
        manager->Destroy();
        std::filesystem::remove_all(dir);
    }
    QdxNurbsCurve* Curve(QdxScene* s, int order, int count, QdxNurbsCurve::EType type) {
        QdxNurbsCurve* c = QdxNurbsCurve::Create(s, "curve");
        c->SetDimension(QdxNurbsCurve::e2D);
        c->SetOrder(order);
        c->InitControlPoints(count, type);
        for (int i = 0; i < count; ++i)
            c->SetControlPointAt(QdxVector4(0.5 + 0.1 * i, 0.25 * (i % 3), 0, 1 + 0.5 * (i % 2)),
                                 i);
        for (int k = 0; k < c->GetKnotCount(); ++k)
            c->GetKnotVector()[k] = k;
        return c;
    }
    // One region of two boundaries: a closed curve, then a periodic and an
    // open curve; a second region of one open curve.
    QdxTrimNurbsSurface* Build(QdxScene* s) {
        QdxTrimNurbsSurface* trim = QdxTrimNurbsSurface::Create(s, "trim");
        QdxNurbsSurface* surface = QdxNurbsSurface::Create(s, "surface");
        surface->InitControlPoints(4, QdxNurbsSurface::eOpen, 4, QdxNurbsSurface::eOpen);
        trim->SetNurbsSurface(surface);
        trim->BeginTrimRegion();
        QdxBoundary* outer = QdxBoundary::Create(s, "outer");
        outer->AddCurve(Curve(s, 3, 4, QdxNurbsCurve::eClosed));
        trim->AddBoundary(outer);
        QdxBoundary* hole = QdxBoundary::Create(s, "hole");
        hole->AddCurve(Curve(s, 4, 5, QdxNurbsCurve::ePeriodic));
        hole->AddCurve(Curve(s, 2, 3, QdxNurbsCurve::eOpen));
        trim->AddBoundary(hole);
        trim->EndTrimRegion();
        trim->BeginTrimRegion();
        QdxBoundary* other = QdxBoundary::Create(s, "other");
        other->AddCurve(Curve(s, 2, 2, QdxNurbsCurve::eOpen));
        trim->AddBoundary(other);
        trim->EndTrimRegion();
        QdxNode* node = QdxNode::Create(s, "trimmed");
        s->GetRootNode()->AddChild(node);
        node->SetNodeAttribute(trim);
        return trim;
    }
    // Region after region, boundary after boundary: the per-curve counts.
    static std::vector<std::vector<int>> Counts(QdxTrimNurbsSurface* t) {
        std::vector<std::vector<int>> out;
        for (int r = 0; r < t->GetTrimRegionCount(); ++r)
            for (int b = 0; b < t->GetBoundaryCount(r); ++b)
                out.push_back(t->GetBoundary(b, r)->GetCurvePointCounts());
        return out;
    }
    // Writes every trim curve as an open curve over its effective points and
    // the same knots, the way a program that knows only open curves would.
    static void WriteAsOpenCurves(QdxTrimNurbsSurface* from, QdxScene* to) {
        QdxTrimNurbsSurface* trim = QdxTrimNurbsSurface::Create(to, "trim");
        trim->SetNurbsSurface(QdxNurbsSurface::Create(to, "surface"));
        for (int r = 0; r < from->GetTrimRegionCount(); ++r) {
            trim->BeginTrimRegion();
            for (int b = 0; b < from->GetBoundaryCount(r); ++b) {
                QdxBoundary* src = from->GetBoundary(b, r);
                QdxBoundary* dst = QdxBoundary::Create(to, "boundary");
                for (int c = 0; c < src->GetCurveCount(); ++c) {
                    QdxNurbsCurve* sc = src->GetCurve(c);
                    std::vector<QdxVector4> pts = sc->GetEffectiveControlPoints();
                    QdxNurbsCurve* dc = QdxNurbsCurve::Create(to, "curve");
                    dc->SetDimension(QdxNurbsCurve::e2D);
                    dc->SetOrder(sc->GetOrder());
                    dc->InitControlPoints(static_cast<int>(pts.size()), QdxNurbsCurve::eOpen);
                    for (size_t i = 0; i < pts.size(); ++i)
                        dc->SetControlPointAt(pts[i], static_cast<int>(i));
                    EXPECT_EQ(dc->GetKnotCount(), sc->GetKnotCount());
                    std::copy(sc->GetKnotVector(), sc->GetKnotVector() + sc->GetKnotCount(),
                              dc->GetKnotVector());
                    dst->AddCurve(dc);
                }
                trim->AddBoundary(dst);
            }
            trim->EndTrimRegion();
        }
        QdxNode* node = QdxNode::Create(to, "trimmed");
        to->GetRootNode()->AddChild(node);
        node->SetNodeAttribute(trim);
    }
    QdxTrimNurbsSurface* ReadBack(QdxScene* s, int format) {
        std::string path = dir + "/t" + std::to_string(format) + ".qdx";
        EXPECT_TRUE(ExportScene(s, path, format, 3));
        QdxScene* back = QdxScene::Create(manager, "back");
        EXPECT_TRUE(ImportScene(back, path));
        return back->GetRootNode()->GetChild(0)->GetTrimNurbsSurface();
    }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    std::string dir;
};

TEST_F(TrimBoundaries, ClosedAndPeriodicCurvesCountTheirRepeatedPoints) {
    QdxTrimNurbsSurface* trim = Build(scene);
    const std::vector<std::vector<int>> expected = {{5}, {8, 3}, {2}};
    EXPECT_EQ(Counts(trim), expected);
    QdxNurbsCurve* periodic = trim->GetBoundary(1)->GetCurve(0);
    std::vector<QdxVector4> pts = periodic->GetEffectiveControlPoints();
    ASSERT_EQ(pts.size(), 8u);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(pts[static_cast<size_t>(5 + i)] == periodic->GetControlPointAt(i));
    // Always knots minus order, whatever the type.
    for (const auto& b : {trim->GetBoundary(0), trim->GetBoundary(1), trim->GetBoundary(0, 1)})
        for (int c = 0; c < b->GetCurveCount(); ++c)
            EXPECT_EQ(b->GetCurve(c)->GetEffectiveControlPointsCount(),
                      b->GetCurve(c)->GetKnotCount() - b->GetCurve(c)->GetOrder());
}

TEST_F(TrimBoundaries, FilesAndOpenCurveWritingKeepPerCurvePointCounts) {
    QdxTrimNurbsSurface* trim = Build(scene);
    const auto counts = Counts(trim);
    QdxScene* open = QdxScene::Create(manager, "open");
    WriteAsOpenCurves(trim, open);
    for (int format : {0, 1}) {
        SCOPED_TRACE(format);
        QdxTrimNurbsSurface* same = ReadBack(scene, format);
        ASSERT_NE(same, nullptr);
        EXPECT_EQ(Counts(same), counts);
        EXPECT_EQ(same->GetBoundary(1)->GetCurve(0)->GetType(), QdxNurbsCurve::ePeriodic);
        QdxTrimNurbsSurface* opened = ReadBack(open, format);
        ASSERT_NE(opened, nullptr);
        EXPECT_EQ(Counts(opened), counts);
        // Point for point and knot for knot what the original curves mean.
        for (int r = 0; r < trim->GetTrimRegionCount(); ++r)
            for (int b = 0; b < trim->GetBoundaryCount(r); ++b)
                for (int c = 0; c < trim->GetBoundary(b, r)->GetCurveCount(); ++c) {
                    QdxNurbsCurve* a = trim->GetBoundary(b, r)->GetCurve(c);
                    QdxNurbsCurve* o = opened->GetBoundary(b, r)->GetCurve(c);
                    auto pa = a->GetEffectiveControlPoints(), po = o->GetEffectiveControlPoints();
                    ASSERT_EQ(pa.size(), po.size());
                    for (size_t i = 0; i < pa.size(); ++i)
                        EXPECT_TRUE(pa[i] == po[i]);
                    ASSERT_EQ(a->GetKnotCount(), o->GetKnotCount());
                    EXPECT_TRUE(std::equal(a->GetKnotVector(),
                                           a->GetKnotVector() + a->GetKnotCount(),
                                           o->GetKnotVector()));
                }
    }
}

} // namespace
