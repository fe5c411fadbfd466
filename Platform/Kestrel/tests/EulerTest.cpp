// Euler angles in every rotation order through quaternions and matrices,
// checked against turning a point about one axis at a time.
#include <array>
#include <random>

#include <gtest/gtest.h>

#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/Node.h>
#include <kestrel/osg/Quaternion.h>
#include <kestrel/osg/Transform.h>

using namespace osg;

namespace {
constexpr std::array<RotationOrder, 6> kOrders = {RotationOrder::XYZ, RotationOrder::XZY,
                                                  RotationOrder::YZX, RotationOrder::YXZ,
                                                  RotationOrder::ZXY, RotationOrder::ZYX};
constexpr const char* kNames[] = {"XYZ", "XZY", "YZX", "YXZ", "ZXY", "ZYX"};

// Axis number of each letter of the order's name, first applied first.
std::array<int, 3> axesOf(RotationOrder o) {
    const char* n = kNames[static_cast<int>(o)];
    return {n[0] - 'X', n[1] - 'X', n[2] - 'X'};
}

// Reference: turns v about each axis in turn with single-axis quaternions.
Vec3f turnStepByStep(const Vec3f& degrees, RotationOrder o, Vec3f v) {
    for (int axis : axesOf(o)) {
        Vec3f unit;
        unit[axis] = 1.f;
        v = Quaternion::fromAxisDeg(unit, degrees[axis]).rotate(v);
    }
    return v;
}

void expectSameRotation(const Matrix& a, const Matrix& b, float tol, const std::string& what) {
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(a.at(r, c), b.at(r, c), tol) << what << " element " << r << c;
}

std::string label(RotationOrder o, const Vec3f& e) {
    return std::string(kNames[static_cast<int>(o)]) + " (" + std::to_string(e[0]) + ", " +
           std::to_string(e[1]) + ", " + std::to_string(e[2]) + ")";
}
} // namespace

TEST(Euler, EveryOrderTurnsAboutItsFirstAxisFirst) {
    const Vec3f probes[] = {Vec3f(1, 0, 0), Vec3f(0, 1, 0), Vec3f(0.3f, -0.5f, 0.8f)};
    const Vec3f e(90, 90, 90);
    for (RotationOrder o : kOrders) {
        const Quaternion q = Quaternion::fromEulerDeg(e, o);
        const Matrix m = Matrix::rotationEulerDeg(e, o);
        for (const Vec3f& p : probes) {
            const Vec3f want = turnStepByStep(e, o, p);
            EXPECT_TRUE(q.rotate(p).equals(want, 1e-5f)) << label(o, e);
            EXPECT_TRUE(m.multVec(p).equals(want, 1e-5f)) << label(o, e);
        }
    }
    // Hand-worked: X first then Z maps +Y to +Z; Z first then X maps it to -X.
    EXPECT_TRUE(Quaternion::fromEulerDeg(Vec3f(90, 0, 90), RotationOrder::XYZ)
                    .rotate(Vec3f(0, 1, 0))
                    .equals(Vec3f(0, 0, 1), 1e-6f));
    EXPECT_TRUE(Quaternion::fromEulerDeg(Vec3f(90, 0, 90), RotationOrder::ZYX)
                    .rotate(Vec3f(0, 1, 0))
                    .equals(Vec3f(-1, 0, 0), 1e-6f));
}

TEST(Euler, AnglesSurviveQuaternionAndMatrixInEveryOrder) {
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> outer(-179.f, 179.f), middle(-89.f, 89.f);
    for (RotationOrder o : kOrders) {
        const auto ax = axesOf(o);
        for (int n = 0; n < 300; ++n) {
            Vec3f e;
            e[ax[0]] = outer(rng);
            e[ax[1]] = middle(rng);
            e[ax[2]] = outer(rng);
            const Quaternion q = Quaternion::fromEulerDeg(e, o);
            const Vec3f back = q.getEulerDeg(o);
            // Away from gimbal lock the angles are unique.
            EXPECT_TRUE(back.equals(e, 0.05f)) << label(o, e) << " -> " << label(o, back);
            const Matrix m = Matrix::rotationEulerDeg(back, o);
            expectSameRotation(m, q.getMatrix(), 2e-5f, label(o, e));
            EXPECT_TRUE(m.getEulerDeg(o).equals(e, 0.05f)) << label(o, e);
            EXPECT_TRUE(
                Transform3D::convertQuatToEuler(q, static_cast<UInt32>(o)).equals(back, 0.f));
        }
    }
}

TEST(Euler, GimbalLockKeepsTheRotationAndZeroesTheLastAngle) {
    for (RotationOrder o : kOrders) {
        const auto ax = axesOf(o);
        for (float middle : {90.f, -90.f, 89.9999f}) {
            for (float first : {0.f, 35.f, -120.f}) {
                for (float last : {0.f, 50.f, 170.f}) {
                    Vec3f e;
                    e[ax[0]] = first;
                    e[ax[1]] = middle;
                    e[ax[2]] = last;
                    const Quaternion q = Quaternion::fromEulerDeg(e, o);
                    const Vec3f back = q.getEulerDeg(o);
                    expectSameRotation(Matrix::rotationEulerDeg(back, o), q.getMatrix(), 1e-4f,
                                       label(o, e) + " -> " + label(o, back));
                    EXPECT_NEAR(std::abs(back[ax[1]]), 90.f, 0.05f) << label(o, e);
                    if (middle != 89.9999f) {
                        EXPECT_EQ(back[ax[2]], 0.f) << label(o, e);
                    }
                }
            }
        }
    }
}

TEST(Euler, UnknownOrderNumbersMeanXYZ) {
    const Vec3f e(10, 20, 30);
    EXPECT_TRUE(Transform3D::convertEulerToQuat(e, 77).equals(Quaternion::fromEulerXYZDeg(e), 0.f));
    EXPECT_EQ(rotationOrderFromIndex(-1), RotationOrder::XYZ);
    EXPECT_EQ(rotationOrderFromIndex(5), RotationOrder::ZYX);
}

TEST(Euler, NodeValuesInAnotherOrderKeepTheirRotation) {
    const Vec3f e(30, -40, 75);
    for (RotationOrder o : kOrders) {
        auto node = Node::create();
        ASSERT_TRUE(ksNodeUtils::setTransformNodeValues(node, Vec3f(), Vec3f(), e, Vec3f(), Vec3f(),
                                                        Vec3f(1, 1, 1), Vec3f(), Vec3f(),
                                                        static_cast<Int32>(o)));
        expectSameRotation(node->getLocalMatrix(), Matrix::rotationEulerDeg(e, o), 1e-5f,
                           label(o, e));
    }
}
