// Surfaces, lines and skins through real files: the host's surfaces evaluate
// where the file's do, trims survive export and re-import, lines keep their
// strips, and a skinned mesh at a pose lies where the file's clusters put it,
// in every host unit and up axis.
#include <cmath>

#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

// Every B-spline basis function of a knot vector at t (Cox-de Boor); the
// last non-empty span is closed so that t at the domain's end counts.
std::vector<double> basis(const std::vector<double>& knots, int degree, double t) {
    const int n = static_cast<int>(knots.size()) - 1;
    std::vector<double> N(static_cast<size_t>(std::max(n, 0)), 0.0);
    int last = n - 1;
    while (last > 0 && knots[last] == knots[last + 1])
        --last;
    for (int i = 0; i < n; ++i)
        if ((knots[i] <= t && t < knots[i + 1]) || (i == last && t == knots[i + 1])) N[i] = 1.0;
    for (int p = 1; p <= degree; ++p)
        for (int i = 0; i + p < n; ++i) {
            const double a = knots[i + p] - knots[i], b = knots[i + p + 1] - knots[i + 1];
            N[i] = (a > 0 ? (t - knots[i]) / a * N[i] : 0.0) +
                   (b > 0 ? (knots[i + p + 1] - t) / b * N[i + 1] : 0.0);
        }
    N.resize(static_cast<size_t>(std::max(n - degree, 0)));
    return N;
}

// Point of a host surface at (u, v), in its node's world space.
osg::Pnt3f evalHost(const osg::NodePtr& node, double u, double v) {
    auto s = osg::SurfacePtr::dcast(node->getCore());
    const std::vector<double> ku(s->getKnotsU().begin(), s->getKnotsU().end());
    const std::vector<double> kv(s->getKnotsV().begin(), s->getKnotsV().end());
    const auto nu = basis(ku, static_cast<int>(s->getDimU()), u);
    const auto nv = basis(kv, static_cast<int>(s->getDimV()), v);
    const auto& cp = s->getControlPoints()->getField();
    double sum[4] = {0, 0, 0, 0};
    for (size_t i = 0; i < nu.size(); ++i)
        for (size_t j = 0; j < nv.size(); ++j)
            for (int c = 0; c < 4; ++c)
                sum[c] += nu[i] * nv[j] * cp.at(i * nv.size() + j)[c];
    const osg::Pnt3f local(static_cast<float>(sum[0] / sum[3]), static_cast<float>(sum[1] / sum[3]),
                           static_cast<float>(sum[2] / sum[3]));
    return node->getWorldMatrix().multPnt(local);
}

// Point of an SDK surface at (u, v) in world space: rational, with periodic
// and closed directions wrapping onto their first points.
QdxVector4 evalSdk(QdxNode* node, double u, double v) {
    auto* s = node->GetNurbsSurface();
    const auto knots = [](const double* k, int n) { return std::vector<double>(k, k + n); };
    const auto nu = basis(knots(s->GetUKnotVector(), s->GetUKnotCount()), s->GetUOrder() - 1, u);
    const auto nv = basis(knots(s->GetVKnotVector(), s->GetVKnotCount()), s->GetVOrder() - 1, v);
    double sum[4] = {0, 0, 0, 0};
    for (size_t i = 0; i < nu.size(); ++i)
        for (size_t j = 0; j < nv.size(); ++j) {
            const int index = static_cast<int>(j) % s->GetVCount() * s->GetUCount() +
                              static_cast<int>(i) % s->GetUCount();
            const QdxVector4 p = s->GetControlPointAt(index);
            const double w = nu[i] * nv[j] * p[3];
            for (int c = 0; c < 3; ++c)
                sum[c] += w * p[c];
            sum[3] += w;
        }
    const QdxAMatrix world = node->EvaluateGlobalTransform() * node->GetGeometricTransform();
    return world.MultT(QdxVector4(sum[0] / sum[3], sum[1] / sum[3], sum[2] / sum[3]));
}

// Knots from 0 with unit steps.
void uniformKnots(double* knots, int count) {
    for (int i = 0; i < count; ++i)
        knots[i] = i;
}

QdxNurbsSurface* wavySurface(QdxScene* s, QdxNurbsSurface::EType uType) {
    auto* surface = QdxNurbsSurface::Create(s, "Wave");
    surface->SetOrder(4, 4);
    surface->InitControlPoints(6, uType, 4, QdxNurbsSurface::eOpen);
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 6; ++i) {
            const double a = i * 2 * M_PI / 6;
            surface->SetControlPointAt(QdxVector4(3 * std::cos(a), 3 * std::sin(a),
                                                  j * 1.5 + 0.2 * i, 1.0 + 0.25 * (i % 3)),
                                       j * 6 + i);
        }
    uniformKnots(surface->GetUKnotVector(), surface->GetUKnotCount());
    double* kv = surface->GetVKnotVector();
    for (int k = 0; k < surface->GetVKnotCount(); ++k)
        kv[k] = k < 4 ? 0.0 : 1.0;
    return surface;
}

QdxNode* addAttributeNode(QdxScene* s, const char* name, QdxNodeAttribute* attribute) {
    QdxNode* node = QdxNode::Create(s, name);
    node->LclTranslation.Set(QdxDouble3(4, -2, 1));
    node->LclRotation.Set(QdxDouble3(20, 35, -10));
    s->GetRootNode()->AddChild(node);
    node->SetNodeAttribute(attribute);
    return node;
}

// A 2D trim curve of the given type and order over count points on a circle
// around (cx, cy) in parameter space.
QdxNurbsCurve* trimCurve(QdxScene* s, QdxNurbsCurve::EType type, int order, int count, double cx,
                         double cy) {
    auto* curve = QdxNurbsCurve::Create(s, "");
    curve->SetDimension(QdxNurbsCurve::e2D);
    curve->SetOrder(order);
    curve->InitControlPoints(count, type);
    for (int i = 0; i < count; ++i) {
        const double a = i * 2 * M_PI / count;
        curve->SetControlPointAt(
            QdxVector4(cx + 0.2 * std::cos(a), cy + 0.2 * std::sin(a), 0, 1 + 0.5 * (i % 2)), i);
    }
    uniformKnots(curve->GetKnotVector(), curve->GetKnotCount());
    return curve;
}

class SurfaceSkin : public HostSettingTest {
protected:
    // Host unit per centimetre.
    static double perCm() { return GetParam().unit == 4 ? 0.01 : GetParam().unit == 2 ? 1 : 10; }
};

// Periodic in U, open in V, rational: sampled points agree with the file's
// surface after unit and axis conversion.
TEST_P(SurfaceSkin, SurfacesEvaluateWhereTheFilesDo) {
    const std::string path = writeScene("surface.qdx", [](QdxScene* s) {
        addAttributeNode(s, "Periodic", wavySurface(s, QdxNurbsSurface::ePeriodic));
        addAttributeNode(s, "Closed", wavySurface(s, QdxNurbsSurface::eClosed))
            ->LclTranslation.Set(QdxDouble3(-5, 0, 0));
    });
    Imported r = import(path);
    ASSERT_TRUE(r.root);
    ReadBack file(path);
    ASSERT_TRUE(file.ok);
    convertToHost(file.scene, GetParam().unit, GetParam().up);

    auto periodic = osg::SurfacePtr::dcast(r.node("Periodic")->getCore());
    ASSERT_TRUE(periodic);
    EXPECT_EQ(periodic->getDimU(), 3u);
    EXPECT_EQ(periodic->getNumControlPointsU(), 9u); // 6 + degree
    EXPECT_EQ(periodic->getControlPoints()->size(), 36u);
    EXPECT_EQ(osg::SurfacePtr::dcast(r.node("Closed")->getCore())->getNumControlPointsU(), 7u);

    for (const char* name : {"Periodic", "Closed"}) {
        QdxNode* node = file[name];
        auto* s = node->GetNurbsSurface();
        const double u0 = s->GetUKnotVector()[3];
        const double u1 = s->GetUKnotVector()[s->GetUKnotCount() - 4];
        for (double fu : {0.0, 0.13, 0.5, 0.77, 1.0})
            for (double v : {0.0, 0.3, 0.6, 1.0}) {
                const double u = u0 + fu * (u1 - u0);
                const QdxVector4 want = evalSdk(node, u, v);
                const osg::Pnt3f got = evalHost(r.node(name), u, v);
                const double scale = 10 * perCm();
                for (int c = 0; c < 3; ++c)
                    ASSERT_NEAR(got[c], want[c], 2e-5 * scale)
                        << name << " (" << u << ", " << v << ") axis " << c;
            }
    }
}

class SurfaceLineTest : public PluginTest {};

// Two boundaries of three curves each (open, closed and periodic) become six
// curves in two loops; export writes them back with their types, so a second
// import gives the same surface, trims included.
TEST_F(SurfaceLineTest, TrimsSurviveExportAndReimport) {
    const std::string path = writeScene("trimmed.qdx", [](QdxScene* s) {
        auto* trimmed = QdxTrimNurbsSurface::Create(s, "Trim");
        trimmed->SetNurbsSurface(wavySurface(s, QdxNurbsSurface::eOpen));
        trimmed->BeginTrimRegion();
        for (double cy : {0.3, 0.7}) {
            auto* boundary = QdxBoundary::Create(s, "");
            boundary->AddCurve(trimCurve(s, QdxNurbsCurve::eOpen, 3, 5, 1.5, cy));
            boundary->AddCurve(trimCurve(s, QdxNurbsCurve::eClosed, 4, 6, 1.8, cy));
            boundary->AddCurve(trimCurve(s, QdxNurbsCurve::ePeriodic, 4, 5, 2.1, cy));
            trimmed->AddBoundary(boundary);
        }
        trimmed->EndTrimRegion();
        addAttributeNode(s, "Trimmed", trimmed);
    });
    Imported first = import(path);
    ASSERT_TRUE(first.root);
    EXPECT_EQ(first.out.find("Inconsistent number of control points"), std::string::npos);
    auto a = osg::SurfacePtr::dcast(first.node("Trimmed")->getCore());
    ASSERT_TRUE(a);
    EXPECT_EQ(a->getCurvesPerLoop(), (std::vector<osg::UInt32>{3, 3}));
    EXPECT_EQ(a->getDimensions(), (std::vector<osg::UInt32>{2, 3, 3, 2, 3, 3}));
    EXPECT_EQ(a->getCurveControlPointCounts(), (std::vector<osg::UInt32>{5, 6, 5, 5, 6, 5}));
    // Open 5 + 3, closed 6 + 4 + 1, periodic 5 + 4 + 3.
    EXPECT_EQ(a->getKnotLengths(), (std::vector<osg::UInt32>{8, 11, 12, 8, 11, 12}));
    // Homogeneous: the second point of each curve has weight 1.5.
    EXPECT_FLOAT_EQ(a->getCurveControlPoints()[1][2], 1.5f);
    EXPECT_FLOAT_EQ(a->getCurveControlPoints()[1][0], 1.5f * (1.5f + 0.2f * std::cos(0.4f * M_PI)));

    ASSERT_TRUE(exportTo(first.root, file("again.qdx")));
    Imported second = import(file("again.qdx"));
    ASSERT_TRUE(second.root);
    auto b = osg::SurfacePtr::dcast(second.node("Trimmed")->getCore());
    ASSERT_TRUE(b);
    EXPECT_EQ(b->getDimU(), a->getDimU());
    EXPECT_EQ(b->getDimV(), a->getDimV());
    EXPECT_EQ(b->getKnotsU(), a->getKnotsU());
    EXPECT_EQ(b->getKnotsV(), a->getKnotsV());
    ASSERT_EQ(b->getControlPoints()->size(), a->getControlPoints()->size());
    for (osg::UInt32 i = 0; i < a->getControlPoints()->size(); ++i)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(b->getControlPoints()->getField()[i][c],
                        a->getControlPoints()->getField()[i][c], 1e-4);
    EXPECT_EQ(b->getCurvesPerLoop(), a->getCurvesPerLoop());
    EXPECT_EQ(b->getDimensions(), a->getDimensions());
    EXPECT_EQ(b->getKnotLengths(), a->getKnotLengths());
    EXPECT_EQ(b->getKnots(), a->getKnots());
    EXPECT_EQ(b->getCurveControlPointCounts(), a->getCurveControlPointCounts());
    ASSERT_EQ(b->getCurveControlPoints().size(), a->getCurveControlPoints().size());
    for (size_t i = 0; i < a->getCurveControlPoints().size(); ++i)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(b->getCurveControlPoints()[i][c], a->getCurveControlPoints()[i][c], 1e-6);
}

// A surface whose control points disagree with its knots is refused; the
// node stays, as a plain transform.
TEST_F(SurfaceLineTest, InconsistentSurfaceGivesAPlainNode) {
    Imported r = import(writeScene("bad.qdx", [](QdxScene* s) {
        auto* surface = wavySurface(s, QdxNurbsSurface::eOpen);
        surface->UCount.Set(5); // 5 x 4 no longer matches the 24 points
        addAttributeNode(s, "Bad", surface);
    }));
    ASSERT_TRUE(r.root);
    ASSERT_TRUE(r.node("Bad"));
    EXPECT_FALSE(osg::SurfacePtr::dcast(r.node("Bad")->getCore()));
}

// End points 2 and 5 over six indices: two strips of three; line points keep
// the file's numbers whatever the host unit.
TEST_F(SurfaceLineTest, LinesBecomeStripsInTheFilesUnit) {
    Imported r = import(writeScene("line.qdx", [](QdxScene* s) {
        auto* line = QdxLine::Create(s, "Polyline");
        line->InitControlPoints(4);
        for (int i = 0; i < 4; ++i)
            line->SetControlPointAt(QdxVector4(i, i * i, 1), i);
        for (int index : {0, 1, 2, 3, 2, 1})
            line->AddPointIndex(index);
        line->AddEndPoint(2);
        line->AddEndPoint(5);
        QdxNode* node = QdxNode::Create(s, "Line");
        s->GetRootNode()->AddChild(node);
        node->SetNodeAttribute(line);
    }));
    ASSERT_TRUE(r.root);
    EXPECT_NE(r.out.find("2 line endpoints\n"), std::string::npos);
    osg::GeometryPtr g = r.geometry("Line");
    ASSERT_TRUE(g);
    EXPECT_EQ(osg::GeoPTypesUI8Ptr::dcast(g->getTypes())->getField(),
              (std::vector<osg::UInt8>{3, 3}));
    EXPECT_EQ(osg::GeoPLengthsUI32Ptr::dcast(g->getLengths())->getField(),
              (std::vector<osg::UInt32>{3, 3}));
    EXPECT_EQ(osg::GeoIndicesUI32Ptr::dcast(g->getIndices())->getField(),
              (std::vector<osg::UInt32>{0, 1, 2, 3, 2, 1}));
    auto positions = osg::GeoPositions3fPtr::dcast(g->getPositions());
    ASSERT_TRUE(positions);
    ASSERT_EQ(positions->size(), 4u);
    EXPECT_EQ(positions->getField()[3], osg::Pnt3f(3, 9, 1));
}

// A three-joint chain, bound in one pose and posed in another, deforms a
// mesh: every corner of the host's skinned geometry lies where the file's
// clusters put it, in the host's unit and axes.
TEST_P(SurfaceSkin, SkinnedMeshAtAPoseMatchesTheFile) {
    const std::string path = writeScene("skin.qdx", [](QdxScene* s) {
        std::vector<QdxNode*> joints;
        QdxNode* parent = s->GetRootNode();
        for (int i = 0; i < 3; ++i) {
            auto* bone = QdxSkeleton::Create(s, "");
            bone->SetSkeletonType(i == 0 ? QdxSkeleton::eRoot : QdxSkeleton::eLimbNode);
            QdxNode* joint = QdxNode::Create(s, ("Joint" + std::to_string(i)).c_str());
            joint->SetNodeAttribute(bone);
            joint->LclTranslation.Set(QdxDouble3(i == 0 ? 1 : 4, 0.5, 0));
            parent->AddChild(joint);
            joints.push_back(joint);
            parent = joint;
        }
        std::vector<QdxVector4> points;
        std::vector<std::vector<int>> quads;
        for (int i = 0; i <= 8; ++i) {
            points.emplace_back(1.0 + i * 1.25, 0, -1);
            points.emplace_back(1.0 + i * 1.25, 0, 1);
            if (i > 0) quads.push_back({2 * i - 2, 2 * i, 2 * i + 1, 2 * i - 1});
        }
        QdxNode* mesh = addMesh(s, s->GetRootNode(), "Arm", points, quads);
        mesh->LclTranslation.Set(QdxDouble3(0, 0.5, 0));
        mesh->LclRotation.Set(QdxDouble3(0, 0, 5));
        // Bind in the rest pose, then bend the chain.
        QdxSkin* skin = QdxSkin::Create(s, "");
        for (int j = 0; j < 3; ++j) {
            auto* cluster = QdxCluster::Create(s, "");
            cluster->SetLink(joints[j]);
            cluster->SetTransformMatrix(mesh->EvaluateGlobalTransform());
            cluster->SetTransformLinkMatrix(joints[j]->EvaluateGlobalTransform());
            for (int p = 0; p < static_cast<int>(points.size()); ++p) {
                const double x = points[p][0] / 5.0;
                const double w = std::max(0.0, 1.0 - std::abs(x - j));
                if (w > 0) cluster->AddControlPointIndex(p, w);
            }
            skin->AddCluster(cluster);
        }
        mesh->GetMesh()->AddDeformer(skin);
        joints[0]->LclRotation.Set(QdxDouble3(0, 0, 15));
        joints[1]->LclRotation.Set(QdxDouble3(10, 0, 30));
        joints[2]->LclRotation.Set(QdxDouble3(0, -20, 25));
    });
    Imported r = import(path);
    ASSERT_TRUE(r.root);
    ReadBack file(path);
    ASSERT_TRUE(file.ok);
    convertToHost(file.scene, GetParam().unit, GetParam().up);

    // What the file's clusters make of every control point, in world space.
    QdxMesh* mesh = file["Arm"]->GetMesh();
    auto* skin = static_cast<QdxSkin*>(mesh->GetDeformer(0, QdxDeformer::eSkin));
    std::vector<QdxVector4> deformed(static_cast<size_t>(mesh->GetControlPointsCount()));
    for (int c = 0; c < skin->GetClusterCount(); ++c) {
        QdxCluster* cluster = skin->GetCluster(c);
        QdxAMatrix bind, link;
        cluster->GetTransformMatrix(bind);
        cluster->GetTransformLinkMatrix(link);
        const QdxAMatrix move =
            cluster->GetLink()->EvaluateGlobalTransform() * link.Inverse() * bind;
        for (int k = 0; k < cluster->GetControlPointIndicesCount(); ++k) {
            const int p = cluster->GetControlPointIndices()[k];
            deformed[static_cast<size_t>(p)] =
                deformed[static_cast<size_t>(p)] +
                move.MultT(mesh->GetControlPointAt(p)) * cluster->GetControlPointWeights()[k];
        }
    }

    osg::NodePtr arm = r.node("Arm");
    osg::GeometryPtr g = r.geometry("Arm");
    ASSERT_TRUE(g);
    auto skinAttachment = g->findAttachment<osg::SkinAttachment>();
    ASSERT_TRUE(skinAttachment);
    ASSERT_EQ(skinAttachment->getJoints().size(), 3u);
    for (int j = 0; j < 3; ++j)
        EXPECT_EQ(skinAttachment->getJoints()[j]->getNode(), r.node("Joint" + std::to_string(j)));
    const osg::Matrix world = arm->getWorldMatrix();
    const auto local =
        skinAttachment->deform(osg::GeoPositions3fPtr::dcast(g->getPositions())->getField(), world);

    double extent = 0;
    for (const QdxVector4& p : deformed)
        extent = std::max({extent, std::abs(p[0]), std::abs(p[1]), std::abs(p[2])});
    size_t corner = 0;
    for (int p = 0; p < mesh->GetPolygonCount(); ++p)
        for (int c = 0; c < mesh->GetPolygonSize(p); ++c, ++corner) {
            const QdxVector4& want = deformed[static_cast<size_t>(mesh->GetPolygonVertex(p, c))];
            const osg::Pnt3f got = world.multPnt(
                local.at(g->getPropertyIndex(static_cast<osg::UInt32>(corner), osg::MapPosition)));
            for (int k = 0; k < 3; ++k)
                ASSERT_NEAR(got[k], want[k], 1e-4 * extent)
                    << "polygon " << p << " corner " << c << " axis " << k;
        }
    EXPECT_EQ(corner, g->getVertexCount());
}

INSTANTIATE_TEST_SUITE_P(Hosts, SurfaceSkin,
                         ::testing::Values(HostSetting{1, 1}, HostSetting{2, 0},
                                           HostSetting{4, 1}));

} // namespace
