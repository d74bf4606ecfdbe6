// The lattice in bricks of 4 x 4 x 4 cells: the numbers of those in use, and the places of cells inside of a brick.
#pragma once

#include "lattice/Calc.h"

#include <vector>

namespace MIRT_ZAV
{

/// Numbers bricks from 1 on in the order in which they come. A brick is known by its base, its cell of least
/// coordinates.
class BrickTable
{
public:
    static constexpr size_t cellsPerBrick = 64;

    BrickTable() { resizeTable(10); }

    /// One more than the number of bricks: 0 stands for all that are missing.
    size_t size() const { return bases.size(); }
    RCD getBase(size_t brick) const { return bases[brick]; }

    static RCD getBaseOf(RCD r) { return r & ~innerMask; }

    /// The place of a cell in its brick, 0 to 63, in Morton order: the bits of the coordinates take turns (x1 y1 z1 x0
    /// y0 z0), so that cells close to each other share lines of the cache. The layer of least x:
    ///
    ///     z     0   1   2   3
    ///     y 0   0   1   8   9
    ///       1   2   3  10  11
    ///       2  16  17  24  25        the next layers: 4, 32 and 36 more
    ///       3  18  19  26  27
    static constexpr RCD toInner(RCD r)
    {
        return (r >> 38 & 0x20) | (r >> 18 & 0x10) | (r << 2 & 8) | (r >> 40 & 4) | (r >> 20 & 2) | (r & 1);
    }
    /// The inverse: what has to be added to the base to get the cell at a place.
    static constexpr RCD fromInner(RCD inner)
    {
        const auto coordinate = [inner](int shift) { return (inner >> shift & 1) | (inner >> (shift + 2) & 2); };
        return rcd::fromXYZ(coordinate(2), coordinate(1), coordinate(0));
    }

    /// The number of a brick; 0 for a missing one.
    size_t find(RCD base) const { return table[findPlace(base)].brick; }

    size_t findOrAdd(RCD base)
    {
        if (const size_t brick = find(base); brick != 0)
            return brick;
        table[findPlace(base)] = {base, bases.size()};
        bases.push_back(base);
        if (2 * bases.size() > table.size())
            resizeTable(65 - hashShift);
        return bases.size() - 1;
    }

    [[gnu::always_inline]] void prefetchBase(size_t brick) const { __builtin_prefetch(&bases[brick]); }

private:
    struct Entry
    {
        RCD base;
        size_t brick; // 0 for a free place
    };
    static constexpr RCD innerMask = 3 * (rcd::xUnit + rcd::yUnit + rcd::zUnit);

    /// The place of a brick in the table, or the free one where it would stand: Fibonacci hashing, then the next places
    /// in a row.
    size_t findPlace(RCD base) const
    {
        size_t place = (base >> 2) * 0x9e3779b97f4a7c15u >> hashShift;
        while (table[place].brick != 0 && table[place].base != base)
            place = (place + 1) & (table.size() - 1);
        return place;
    }

    void resizeTable(int bits)
    {
        table.assign(size_t(1) << bits, {0, 0});
        hashShift = 64 - bits;
        for (size_t brick = 1; brick < bases.size(); ++brick)
            table[findPlace(bases[brick])] = {bases[brick], brick};
    }

    std::vector<RCD> bases = {0};
    std::vector<Entry> table; // a hash table of a power of two, at most half full
    int hashShift = 0;
};

} // namespace MIRT_ZAV
