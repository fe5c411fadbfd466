#pragma once
// Random local transforms for the world-space tests: translation, rotation
// and scaling with every pivot, offset, pre- and post-rotation and a random
// rotation order, drawn from the caller's generator.
#include <random>

#include "qdxsdk/qdxsdk.h"

namespace qdxtest {

class RandomTransform {
public:
    struct Options {
        // Rotation pivot, scaling pivot and scaling offset (the rotation
        // offset is always drawn).
        bool pivots = true;
        // One factor on every axis, else one per axis.
        bool uniformScale = false;
    };

    explicit RandomTransform(std::mt19937& rng) : _rng(rng) {}

    void apply(qdxsdk::QdxNode* node, const Options& options);
    void apply(qdxsdk::QdxNode* node) { apply(node, Options()); }

    double u(double lo, double hi);
    qdxsdk::QdxVector4 v(double lo, double hi);
    qdxsdk::QdxDouble3 d3(double lo, double hi);

private:
    std::mt19937& _rng;
};

} // namespace qdxtest
