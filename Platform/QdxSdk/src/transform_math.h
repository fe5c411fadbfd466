// The node transform formula, shared by evaluation and pivot conversion.
#pragma once

#include "qdxsdk/node.h"

namespace qdxsdk::detail {

QdxAMatrix TranslationMatrix(const QdxVector4& t);
QdxAMatrix ScalingMatrix(const QdxVector4& s);
// The unit direction of d (w = 0), or (0, 0, 0, 0) when d is not longer
// than minLength or its length is not finite.
QdxVector4 UnitDirection(const QdxVector4& d, double minLength);

// The rotation and pivot values of one pivot set as the formula uses them
// (pre/post rotation and order neutral when rotation is not active).
struct PivotValues {
    QdxAMatrix pre, post;
    EQdxRotationOrder order = eEulerXYZ;
    QdxVector4 roff, rp, soff, sp;
};
PivotValues PivotValuesOf(const QdxNode* node, QdxNode::EPivotSet set);

// T * Roff * Rp * Rpre * R * inverse(Rpost) * inverse(Rp) * Soff * Sp * S * inverse(Sp)
QdxAMatrix ComposeLocal(const PivotValues& v, const QdxVector4& t, const QdxVector4& r,
                        const QdxVector4& s);
// Rpre * R * inverse(Rpost): the node's own rotation.
QdxAMatrix ComposeRotation(const PivotValues& v, const QdxVector4& r);

} // namespace qdxsdk::detail
