// A hash for points, for tables that find them by their coordinates.
#pragma once

#include "base/OrderedIndex.h"
#include "zav/Point3.h"

#include <bit>
#include <cstdint>

namespace MIRT_ZAV
{

/// Hash of the coordinates. Points that are equal need the same hash: adding 0.0 turns -0.0, which equals 0.0, into it.
struct PointHash
{
    std::uint64_t operator()(const Point3& p) const
    {
        const auto bits = [](double x) { return std::bit_cast<std::uint64_t>(x + 0.0); };
        using MIRT_TOOLS::mixBits;
        return mixBits(mixBits(mixBits(bits(p.x())) + bits(p.y())) + bits(p.z()));
    }
};

} // namespace MIRT_ZAV
