// Matrices, Euler angles and the node transform formula, checked against
// independent constructions (pivots stay fixed, geometric transforms are not
// inherited, inherit types behave as documented).
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
constexpr double kPi = 3.14159265358979323846;

void ExpectNear(const QdxVector4& a, const QdxVector4& b, double tol = 1e-9) {
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(a[i], b[i], tol) << "component " << i;
}

void ExpectNear(const QdxAMatrix& a, const QdxAMatrix& b, double tol = 1e-9) {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(a.m[i][j], b.m[i][j], tol) << i << "," << j;
}

// Rotation of point p about one axis by degrees, written out by hand.
QdxVector4 RotateAbout(int axis, double degrees, const QdxVector4& p) {
    double c = std::cos(degrees * kPi / 180), s = std::sin(degrees * kPi / 180);
    QdxVector4 r = p;
    int u = (axis + 1) % 3, v = (axis + 2) % 3;
    r[u] = c * p[u] - s * p[v];
    r[v] = s * p[u] + c * p[v];
    return r;
}

class Transforms : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "");
    }
    void TearDown() override { manager->Destroy(); }
    QdxNode* Node(QdxNode* parent = nullptr) {
        QdxNode* n = QdxNode::Create(scene, "n");
        (parent ? parent : scene->GetRootNode())->AddChild(n);
        n->SetRotationActive(true);
        return n;
    }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
};
} // namespace

TEST(Matrix, CompositionOrderInverseAndDecomposition) {
    QdxAMatrix t, r = QdxEulerToMatrix(QdxVector4(0, 0, 90), eEulerXYZ);
    t.SetT(QdxVector4(1, 0, 0));
    // t * r rotates first: (1,0,0) -> (0,1,0) -> (1,1,0).
    ExpectNear((t * r).MultT(QdxVector4(1, 0, 0)), QdxVector4(1, 1, 0));
    ExpectNear((r * t).MultT(QdxVector4(1, 0, 0)), QdxVector4(0, 2, 0));
    QdxAMatrix m(QdxVector4(3, -2, 5), QdxVector4(10, -20, 30), QdxVector4(2, 3, 0.5));
    ExpectNear(m * m.Inverse(), QdxAMatrix(), 1e-12);
    ExpectNear(m.GetT(), QdxVector4(3, -2, 5));
    ExpectNear(m.GetR(), QdxVector4(10, -20, 30), 1e-10);
    ExpectNear(m.GetS(), QdxVector4(2, 3, 0.5), 1e-12);
    EXPECT_NEAR(m.Determinant(), 3.0, 1e-12);
    QdxAMatrix q;
    q.SetQ(m.GetQ());
    ExpectNear(q.GetR(), QdxVector4(10, -20, 30), 1e-10);
    // Translation lives in row 3, as the host copies rows into its columns.
    EXPECT_EQ(m.Get(3, 0), 3.0);
    EXPECT_EQ(m.Get(3, 2), 5.0);
}

TEST(Matrix, EulerOrdersApplyTheFirstAxisFirst) {
    const char* names[] = {"XYZ", "XZY", "YZX", "YXZ", "ZXY", "ZYX"};
    QdxVector4 angles(25, -40, 70);
    QdxVector4 p(0.3, -1.2, 2.5);
    for (int o = 0; o < 6; ++o) {
        QdxVector4 expected = p;
        for (int k = 0; k < 3; ++k) {
            int axis = names[o][k] - 'X';
            expected = RotateAbout(axis, angles[axis], expected);
        }
        QdxAMatrix m = QdxEulerToMatrix(angles, static_cast<EQdxRotationOrder>(o));
        ExpectNear(m.MultT(p), expected, 1e-12);
    }
}

TEST(Matrix, EulerDecompositionRoundTripsForEveryOrderAndNearGimbalLock) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> a(-179, 179), b(-89, 89);
    for (int o = 0; o < 6; ++o)
        for (int i = 0; i < 200; ++i) {
            auto order = static_cast<EQdxRotationOrder>(o);
            QdxVector4 e(a(rng), b(rng), a(rng));
            if (i % 20 == 0) e[1] = 90.0; // gimbal lock on the middle axis for XYZ
            QdxAMatrix m = QdxEulerToMatrix(e, order);
            QdxAMatrix back = QdxEulerToMatrix(QdxMatrixToEuler(m, order), order);
            ExpectNear(back, m, 1e-9);
        }
    // With a hint the nearest equivalent angles are chosen.
    QdxVector4 hint(350, 0, 0);
    QdxVector4 e =
        QdxMatrixToEuler(QdxEulerToMatrix(QdxVector4(-5, 0, 0), eEulerXYZ), eEulerXYZ, &hint);
    EXPECT_NEAR(e[0], 355.0, 1e-9);
}

TEST_F(Transforms, RotationPivotStaysFixedAndOffsetsTranslate) {
    QdxNode* n = Node();
    const auto S = QdxNode::eSourcePivot;
    n->LclRotation.Set(QdxDouble3(0, 0, 90));
    n->SetRotationPivot(S, QdxVector4(1, 0, 0));
    QdxAMatrix m = n->EvaluateLocalTransform();
    ExpectNear(m.MultT(QdxVector4(1, 0, 0)), QdxVector4(1, 0, 0));
    ExpectNear(m.MultT(QdxVector4(2, 0, 0)), QdxVector4(1, 1, 0));
    n->SetRotationOffset(S, QdxVector4(0, 0, 5));
    ExpectNear(n->EvaluateLocalTransform().MultT(QdxVector4(1, 0, 0)), QdxVector4(1, 0, 5));
    // Scaling happens about the scaling pivot.
    QdxNode* s = Node();
    s->LclScaling.Set(QdxDouble3(2, 2, 2));
    s->SetScalingPivot(S, QdxVector4(0, 1, 0));
    ExpectNear(s->EvaluateLocalTransform().MultT(QdxVector4(0, 1, 0)), QdxVector4(0, 1, 0));
    ExpectNear(s->EvaluateLocalTransform().MultT(QdxVector4(0, 2, 0)), QdxVector4(0, 3, 0));
}

TEST_F(Transforms, PreAndPostRotationWrapTheRotation) {
    QdxNode* n = Node();
    const auto S = QdxNode::eSourcePivot;
    n->SetPreRotation(S, QdxVector4(0, 0, 90));
    n->SetPostRotation(S, QdxVector4(90, 0, 0));
    n->LclRotation.Set(QdxDouble3(0, 30, 0));
    QdxAMatrix expected = QdxEulerToMatrix(QdxVector4(0, 0, 90), eEulerXYZ) *
                          QdxEulerToMatrix(QdxVector4(0, 30, 0), eEulerXYZ) *
                          QdxEulerToMatrix(QdxVector4(90, 0, 0), eEulerXYZ).Inverse();
    ExpectNear(n->EvaluateLocalTransform(), expected, 1e-12);
    // Inactive rotation ignores pre/post rotation and the rotation order.
    n->SetRotationActive(false);
    n->SetRotationOrder(S, eEulerZYX);
    ExpectNear(n->EvaluateLocalTransform(), QdxEulerToMatrix(QdxVector4(0, 30, 0), eEulerXYZ),
               1e-12);
}

TEST_F(Transforms, GeometricTransformIsNotInherited) {
    QdxNode* parent = Node();
    QdxNode* child = Node(parent);
    const auto S = QdxNode::eSourcePivot;
    parent->SetGeometricTranslation(S, QdxVector4(100, 0, 0));
    parent->LclTranslation.Set(QdxDouble3(1, 0, 0));
    child->LclTranslation.Set(QdxDouble3(0, 1, 0));
    ExpectNear(child->EvaluateGlobalTransform().GetT(), QdxVector4(1, 1, 0));
    ExpectNear((parent->EvaluateGlobalTransform() * parent->GetGeometricTransform()).GetT(),
               QdxVector4(101, 0, 0));
}

TEST_F(Transforms, InheritTypesTreatParentScalingDifferently) {
    QdxNode* parent = Node();
    parent->LclScaling.Set(QdxDouble3(2, 1, 1));
    parent->LclTranslation.Set(QdxDouble3(0, 0, 1));
    QdxNode* child = Node(parent);
    child->LclRotation.Set(QdxDouble3(0, 0, 90));
    child->LclTranslation.Set(QdxDouble3(1, 0, 0));
    QdxVector4 p(1, 0, 0);
    child->SetTransformationInheritType(eInheritRSrs);
    // Plain product: rotate to +Y, then the parent's X scaling has no effect on it.
    ExpectNear(child->EvaluateGlobalTransform().MultT(p), QdxVector4(2, 1, 1));
    child->SetTransformationInheritType(eInheritRrSs);
    // Parent scaling applied in the child's rotated frame: the local X axis doubles.
    ExpectNear(child->EvaluateGlobalTransform().MultT(p), QdxVector4(2, 2, 1));
    child->SetTransformationInheritType(eInheritRrs);
    ExpectNear(child->EvaluateGlobalTransform().MultT(p), QdxVector4(2, 1, 1));
    // The child's origin always follows the parent's full matrix.
    ExpectNear(child->EvaluateGlobalTransform().GetT(), QdxVector4(2, 0, 1));
}

TEST_F(Transforms, TargetsAimTheLocalXAxis) {
    QdxNode* camera = Node();
    QdxNode* target = Node();
    camera->LclTranslation.Set(QdxDouble3(1, 2, 3));
    target->LclTranslation.Set(QdxDouble3(1, 2, -7));
    camera->SetTarget(target);
    const auto S = QdxNode::eSourcePivot;
    QdxAMatrix aimed = camera->EvaluateGlobalTransform(QdxTime(), S, true);
    QdxVector4 x = aimed.MultR(QdxVector4(1, 0, 0, 0));
    ExpectNear(x, QdxVector4(0, 0, -1), 1e-12);
    QdxVector4 y = aimed.MultR(QdxVector4(0, 1, 0, 0));
    EXPECT_GT(y[1], 0.99); // up stays up
    // Without applying targets the stored rotation is used.
    ExpectNear(camera->EvaluateLocalRotation(QdxTime(), S, false), QdxVector4(0, 0, 0));
    // An up node tilts the up direction towards it.
    QdxNode* up = Node();
    up->LclTranslation.Set(QdxDouble3(11, 2, 3));
    camera->SetTargetUp(up);
    QdxVector4 y2 =
        camera->EvaluateGlobalTransform(QdxTime(), S, true).MultR(QdxVector4(0, 1, 0, 0));
    ExpectNear(y2, QdxVector4(1, 0, 0), 1e-12);
}

TEST_F(Transforms, PivotSetsAreIndependentAndCopyable) {
    QdxNode* n = Node();
    const auto S = QdxNode::eSourcePivot, D = QdxNode::eDestinationPivot;
    n->SetPreRotation(S, QdxVector4(1, 2, 3));
    n->SetRotationOrder(S, eEulerYZX);
    n->SetQuaternionInterpolation(S, eQuatInterpSlerp);
    EXPECT_TRUE(n->GetPreRotation(D) == QdxVector4(0, 0, 0));
    EXPECT_EQ(n->GetRotationOrder(D), eEulerXYZ);
    n->CopyPivotSet(S, D);
    EXPECT_TRUE(n->GetPreRotation(D) == QdxVector4(1, 2, 3, 1));
    EXPECT_EQ(n->GetQuaternionInterpolation(D), eQuatInterpSlerp);
    n->ResetPivotSet(D);
    EXPECT_TRUE(n->GetGeometricScaling(D) == QdxVector4(1, 1, 1));
    EXPECT_TRUE(n->GetPreRotation(S) == QdxVector4(1, 2, 3));
    QdxNode::EPivotState state;
    n->SetPivotState(D, QdxNode::ePivotReference);
    n->GetPivotState(D, state);
    EXPECT_EQ(state, QdxNode::ePivotReference);
}
