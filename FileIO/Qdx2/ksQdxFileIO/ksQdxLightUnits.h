#pragma once
// Light intensity in the host's units per unit of a file's intensity, one
// definition for import and export. The host's attenuation law takes a
// different nominal factor per decay; area lights carry their brightness
// without it. The factors are these exact decimal constants (not
// full-precision multiples of pi), so that files written before and read
// back give the same numbers.
#include "qdxsdk/qdxsdk.h"

namespace ksQdxLightUnits {

inline constexpr double kAreaFactor = 0.01;
inline constexpr double kNoDecayFactor = 0.0314159265358;
inline constexpr double kLinearDecayFactor = 0.000314159265358;
inline constexpr double kOtherDecayFactor = 3.14159265358e-06;

inline double intensityFactor(const qdxsdk::QdxLight* light) {
    if (light->LightType.Get() == qdxsdk::QdxLight::eArea) return kAreaFactor;
    switch (light->DecayType.Get()) {
    case qdxsdk::QdxLight::eNone:
        return kNoDecayFactor;
    case qdxsdk::QdxLight::eLinear:
        return kLinearDecayFactor;
    default:
        return kOtherDecayFactor;
    }
}

} // namespace ksQdxLightUnits
