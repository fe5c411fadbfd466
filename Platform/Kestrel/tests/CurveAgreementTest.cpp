// The same keys evaluated by the SDK curve and by the host curve built from
// them (the importer's key-to-point rules) give the same values: at the
// keys, between them and outside their range.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <kestrel/osg/Animation.h>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {

using Def = QdxAnimCurveDef;

struct Key {
    double t, v;
    Def::EInterpolationType interp = Def::eInterpolationCubic;
    double dr = 0, dl = 0, wr = 0.25, wl = 0.25;
};

struct Row {
    const char* name;
    std::vector<Key> keys;
    osg::UInt32 cubicCode; // 5 explicit tangents, 3 resampled on frames
    bool exactInFloat;     // every key field is a float: compare to 1e-9
};

QdxTime Sec(double s) {
    QdxTime t;
    t.SetSecondDouble(s);
    return t;
}

float Weight(double own, double other) {
    return static_cast<float>(own < Def::sMinUsableWeight ? other : own);
}

// Keys to host points: cubic handles are the weights times the neighbouring
// intervals along the key's derivatives; the end keys mirror their one side.
osg::AnimCurvePtr ToHost(const QdxAnimCurve& c, osg::UInt32 cubicCode) {
    auto curve = osg::AnimCurve::create();
    int n = c.KeyGetCount();
    auto time = [&](int i) { return static_cast<float>(c.KeyGetTime(i).GetSecondDouble()); };
    for (int i = 0; i < n; ++i) {
        float t = time(i);
        osg::Pnt2f p(t, static_cast<float>(c.KeyGetValue(i)));
        switch (c.KeyGetInterpolation(i)) {
        case Def::eInterpolationConstant:
            curve->addPoint(p, osg::Vec2f(), osg::Vec2f(), 0, 0, true, false);
            break;
        case Def::eInterpolationLinear:
            curve->addPoint(p, osg::Vec2f(), osg::Vec2f(), 1, 1, true, false);
            break;
        default: {
            float wl = Weight(c.KeyGetLeftTangentWeight(i), c.KeyGetRightTangentWeight(i));
            float wr = Weight(c.KeyGetRightTangentWeight(i), c.KeyGetLeftTangentWeight(i));
            auto dl = static_cast<float>(c.KeyGetLeftDerivative(i));
            auto dr = static_cast<float>(c.KeyGetRightDerivative(i));
            float a = 0, b = 0;
            if (i > 0) a = wl * (t - time(i - 1));
            if (i + 1 < n) b = wr * (time(i + 1) - t);
            if (i == 0) a = b, dl = dr;
            if (i == n - 1) b = a, dr = dl;
            curve->addPoint(p, osg::Vec2f(-a, -dl * a), osg::Vec2f(b, dr * b), cubicCode, cubicCode,
                            true, false);
        }
        }
    }
    curve->verify(true, false, cubicCode == 3);
    return curve;
}

const std::vector<Row>& Rows() {
    using I = Def::EInterpolationType;
    const I C = Def::eInterpolationConstant, L = Def::eInterpolationLinear,
            B = Def::eInterpolationCubic;
    static const std::vector<Row> rows = {
        {"steps", {{0, 1, C}, {0.5, -2, C}, {2, 4, C}}, 5, true},
        {"linear", {{-1, 3, L}, {0.25, -1.5, L}, {1, 8, L}}, 5, true},
        {"mixed", {{0, 0, L}, {1, 2, C}, {2, -1, B, 3, 0}, {3, 4, B, 0, -2}}, 5, true},
        {"cubic flat handles", {{0, 0, B}, {1, 10, B}, {2, 0, B}}, 5, true},
        {"cubic weighted",
         {{0, 1, B, 4, -2, 0.75, 0.5}, {1.5, -3, B, -1, 6, 0.125, 0.875}, {2, 2, B, 0, 8}},
         5,
         true},
        {"cubic default weights",
         {{0, 0, B, 1, 1, 1.0 / 3, 1.0 / 3}, {1, 1, B, -2, 3, 1.0 / 3, 1.0 / 3}},
         5,
         false},
        {"zero weight takes the other side",
         {{0, 0, B, 2, 0, 0.0, 0.5}, {1, 3, B, 0, -4, 0.75, 0.0005}, {2, 1, B, 1, 1, 0.25, 0}},
         5,
         true},
        {"handles past the segment are shortened",
         {{0, 0, B, 1, 5, 1.5, 0.25}, {1, 2, B, 0, -3, 2.0, 0.875}, {3, 1, B, 0, 1, 0.25, -1.0}},
         5,
         true},
        {"resampled cubic",
         {{0, 0, B, 1, 1}, {0.125, 0.5, B, 2, 2}, {0.25, 0.25, B, -1, -1}},
         3,
         true},
    };
    return rows;
}

std::vector<double> SampleTimes(const std::vector<Key>& keys) {
    std::vector<double> out{keys.front().t - 1.5, keys.back().t + 2.0};
    for (std::size_t i = 0; i < keys.size(); ++i) {
        out.push_back(keys[i].t);
        if (i + 1 < keys.size())
            for (double f : {0.1, 0.25, 0.5, 0.75, 0.95})
                out.push_back(keys[i].t + f * (keys[i + 1].t - keys[i].t));
    }
    return out;
}

} // namespace

TEST(CurveAgreement, SdkAndHostEvaluateTheSameKeysAlike) {
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "");
    for (const Row& row : Rows()) {
        SCOPED_TRACE(row.name);
        QdxAnimCurve* c = QdxAnimCurve::Create(scene, row.name);
        for (const Key& k : row.keys)
            c->KeySet(c->KeyAdd(Sec(k.t)), Sec(k.t), k.v, k.interp, Def::eTangentUser, k.dr, k.dl,
                      k.wr, k.wl);
        ASSERT_EQ(c->KeyGetCount(), static_cast<int>(row.keys.size()));
        osg::AnimCurvePtr host = ToHost(*c, row.cubicCode);
        for (double t : SampleTimes(row.keys)) {
            double expected = c->Evaluate(Sec(t));
            double scale = std::max(1.0, std::fabs(expected));
            if (row.exactInFloat) {
                EXPECT_NEAR(host->evaluateDouble(t), expected, 1e-9 * scale) << "at " << t;
            }
            EXPECT_NEAR(host->evaluate(static_cast<float>(t)), expected, 1e-5 * scale)
                << "at " << t;
        }
    }
    manager->Destroy();
}
