#pragma once
// Euler rotation orders. The first letter names the axis applied first: for
// XYZ a point is turned about X, then Y, then Z, so with column vectors
// R = Rz * Ry * Rx. The values match the plug-in file's order numbers.
#include <kestrel/osg/Types.h>

namespace osg {

enum class RotationOrder : UInt32 { XYZ = 0, XZY = 1, YZX = 2, YXZ = 3, ZXY = 4, ZYX = 5 };

constexpr UInt32 RotationOrderCount = 6;

// The order with number n; XYZ when n names no order.
constexpr RotationOrder rotationOrderFromIndex(Int64 n) {
    return n >= 0 && n < Int64(RotationOrderCount) ? static_cast<RotationOrder>(n)
                                                   : RotationOrder::XYZ;
}

} // namespace osg
