#include "RandomTransform.h"

using namespace qdxsdk;

namespace qdxtest {

double RandomTransform::u(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(_rng);
}

QdxVector4 RandomTransform::v(double lo, double hi) {
    return QdxVector4(u(lo, hi), u(lo, hi), u(lo, hi));
}

QdxDouble3 RandomTransform::d3(double lo, double hi) {
    return QdxDouble3(u(lo, hi), u(lo, hi), u(lo, hi));
}

void RandomTransform::apply(QdxNode* node, const Options& options) {
    const auto S = QdxNode::eSourcePivot;
    node->SetRotationActive(true);
    node->SetTransformationInheritType(eInheritRSrs);
    node->LclTranslation.Set(d3(-10, 10));
    node->LclRotation.Set(QdxDouble3(u(-180, 180), u(-80, 80), u(-180, 180)));
    if (options.uniformScale) {
        const double scale = u(0.5, 2);
        node->LclScaling.Set(QdxDouble3(scale, scale, scale));
    } else {
        node->LclScaling.Set(d3(0.5, 2));
    }
    if (options.pivots) node->SetRotationPivot(S, v(-2, 2));
    node->SetRotationOffset(S, v(-2, 2));
    if (options.pivots) {
        node->SetScalingPivot(S, v(-2, 2));
        node->SetScalingOffset(S, v(-2, 2));
    }
    node->SetPreRotation(S, v(-90, 90));
    node->SetPostRotation(S, v(-90, 90));
    node->SetRotationOrder(S, static_cast<EQdxRotationOrder>(_rng() % 6));
}

} // namespace qdxtest
