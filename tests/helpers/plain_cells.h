// Occupied cells as a plain set that answers what the bit blocks answer, by the most obvious way, and shapes made of
// cells.
#pragma once

#include "lattice/Calc.h"

#include <initializer_list>
#include <set>
#include <vector>

namespace MIRT_ZAV
{

/// A lattice of unit cells with its origin at 0.
inline Calc& unitCalc()
{
    static Calc calc(0.0, 0.0, 0.0, 2097152.0, 2097152.0, 2097152.0, 21);
    return calc;
}

constexpr RCD at(u64 x, u64 y, u64 z)
{
    return rcd::fromXYZ(x, y, z);
}

/// All cells of a box, both corners included, sorted.
inline std::vector<RCD> box(RCD lowest, RCD highest)
{
    std::vector<RCD> cells;
    for (u64 x = rcd::getX(lowest); x <= rcd::getX(highest); ++x)
        for (u64 y = rcd::getY(lowest); y <= rcd::getY(highest); ++y)
            for (u64 z = rcd::getZ(lowest); z <= rcd::getZ(highest); ++z)
                cells.push_back(at(x, y, z));
    return cells;
}

/// Neighbours go by their position, with x running fastest and the cell itself at 13:
///
///      6  7  8     15 16 17     24 25 26     y + 1
///      3  4  5     12 13 14     21 22 23     y
///      0  1  2      9 10 11     18 19 20     y - 1
///       z - 1          z          z + 1      x to the right
struct PlainCells
{
    std::set<RCD> alive;

    static RCD neig(RCD r, unsigned position)
    {
        return at(rcd::getX(r) + position % 3 - 1, rcd::getY(r) + position / 3 % 3 - 1,
                  rcd::getZ(r) + position / 9 - 1);
    }
    std::vector<RCD> neigs(RCD r, std::initializer_list<unsigned> positions) const
    {
        std::vector<RCD> found;
        for (const unsigned position : positions)
            if (alive.count(neig(r, position)) != 0)
                found.push_back(neig(r, position));
        return found;
    }
    std::vector<RCD> neigs6(RCD r) const { return neigs(r, {12, 14, 10, 16, 4, 22}); }
    std::vector<RCD> neigs26(RCD r) const
    {
        return neigs(r, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26});
    }
    unsigned configuration(RCD r) const
    {
        unsigned config = 0;
        for (unsigned position = 0; position < 27 && alive.count(r) != 0; ++position)
            config |= alive.count(neig(r, position)) != 0 ? 1u << position : 0;
        return config;
    }
};

} // namespace MIRT_ZAV
