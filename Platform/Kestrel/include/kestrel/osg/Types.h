#pragma once
// Basic scalar types of the scene graph.
#include <cstdint>

namespace osg {

using Int8 = std::int8_t;
using UInt8 = std::uint8_t;
using Int16 = std::int16_t;
using UInt16 = std::uint16_t;
using Int32 = std::int32_t;
using UInt32 = std::uint32_t;
using Int64 = std::int64_t;
using UInt64 = std::uint64_t;
using Real32 = float;
using Real64 = double;
// A set of field bits; each container class documents its own masks.
using BitVector = std::uint64_t;

} // namespace osg
