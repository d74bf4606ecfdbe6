#include "lattice/CellBits.h"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>

namespace MIRT_ZAV
{
namespace
{
/// Steps of many cells at once along one axis, inside of a brick and out of it. In the place of a cell the lower bit of
/// the coordinate has weight w, the upper one 8w, so that a step moves bits by a distance that depends on the layer:
///
///     layer        0 ----> 1 ----> 2 ----> 3 ----> 0 of the next brick
///     place moves      w      7w       w     -9w
struct Axis
{
    RCD brickStep; // to the base of the next brick
    int w;
    std::array<u64, 4> layers{}; // the cells of each coordinate

    constexpr Axis(RCD unit, int weight) : brickStep(4 * unit), w(weight)
    {
        for (int inner = 0; inner < 64; ++inner)
            layers[static_cast<size_t>((inner / w & 1) + 2 * (inner / (8 * w) & 1))] |= u64(1) << inner;
    }

    u64 stepInside(u64 cells) const
    {
        const u64 up = (cells & (layers[0] | layers[2])) << w | (cells & layers[1]) << 7 * w;
        const u64 down = (cells & (layers[1] | layers[3])) >> w | (cells & layers[2]) >> 7 * w;
        return up | down;
    }
    /// The cells of the next brick that touch the given ones of this brick, and those of the brick before.
    u64 stepUpwards(u64 cells) const { return (cells & layers[3]) >> 9 * w; }
    u64 stepDownwards(u64 cells) const { return (cells & layers[0]) << 9 * w; }
};

constexpr std::array<Axis, 3> axes = {Axis(rcd::xUnit, 4), Axis(rcd::yUnit, 2), Axis(rcd::zUnit, 1)};

/// A set of cells of a brick with all face neighbours in the brick.
u64 growInside(u64 cells)
{
    return cells | axes[0].stepInside(cells) | axes[1].stepInside(cells) | axes[2].stepInside(cells);
}

/// All of the cells of a brick to which a way of face steps leads from the start without leaving the brick.
u64 flood(u64 start, u64 cells)
{
    u64 reached = start;
    for (u64 previous = 0; reached != previous;)
    {
        previous = reached;
        reached = growInside(reached) & cells;
    }
    return reached;
}

/// Calls f(base of a neighbour brick, its cells that touch the given cells of a brick).
template <class F>
void forEachBrickTouched(RCD base, u64 cells, const F& f)
{
    for (const Axis& axis : axes)
    {
        if (const u64 touched = axis.stepUpwards(cells); touched != 0)
            f(base + axis.brickStep, touched);
        if (const u64 touched = axis.stepDownwards(cells); touched != 0 && base >= axis.brickStep)
            f(base - axis.brickStep, touched);
    }
}
} // namespace

CellBits::CellBits(const std::vector<RCD>& cells) : words(1, 0)
{
    RCD lastBase = ~RCD(0); // of no brick
    size_t brick = 0;
    for (const RCD r : cells)
    {
        const RCD base = BrickTable::getBaseOf(r);
        if (base != lastBase)
        {
            brick = bricks.findOrAdd(base);
            words.resize(bricks.size());
        }
        lastBase = base;
        words[brick] |= u64(1) << BrickTable::toInner(r);
    }
}

size_t CellBits::size() const
{
    return std::accumulate(words.begin(), words.end(), size_t(0),
                           [](size_t sum, u64 word) { return sum + static_cast<size_t>(std::popcount(word)); });
}

void CellBits::grow()
{
    const std::vector<u64> before = words;
    for (size_t brick = 1; brick < before.size(); ++brick)
    {
        words[brick] |= growInside(before[brick]);
        forEachBrickTouched(bricks.getBase(brick), before[brick],
                            [this](RCD base, u64 touched)
                            {
                                const size_t neig = bricks.findOrAdd(base);
                                words.resize(bricks.size());
                                words[neig] |= touched;
                            });
    }
}

void CellBits::remove(const std::vector<RCD>& cells)
{
    RCD lastBase = ~RCD(0); // of no brick
    size_t brick = 0;
    for (const RCD r : cells)
    {
        const RCD base = BrickTable::getBaseOf(r);
        if (base != lastBase)
            brick = bricks.find(base);
        lastBase = base;
        words[brick] &= ~(u64(1) << BrickTable::toInner(r)); // the word of missing bricks is always 0
    }
}

/// By brick, the cells in pieces of more than maxSize, where only ways inside of the brick count.
std::vector<u64> CellBits::getLargePieces(int maxSize) const
{
    std::vector<u64> large(words.size(), 0);
    for (size_t brick = 1; brick < words.size(); ++brick)
        for (u64 rest = words[brick]; rest != 0;)
        {
            const u64 piece = flood(rest & -rest, rest);
            rest &= ~piece;
            if (std::popcount(piece) > maxSize)
                large[brick] |= piece;
        }
    return large;
}

void CellBits::removeLargeComponents(int maxSize)
{
    std::vector<u64> large = getLargePieces(maxSize);
    std::vector<size_t> stack; // bricks whose neighbours may have to follow
    for (size_t brick = 1; brick < words.size(); ++brick)
        if (large[brick] != 0)
            stack.push_back(brick);
    while (!stack.empty())
    {
        const size_t brick = stack.back();
        stack.pop_back();
        forEachBrickTouched(bricks.getBase(brick), large[brick],
                            [&](RCD base, u64 touched)
                            {
                                const size_t neig = bricks.find(base);
                                const u64 added = touched & words[neig] & ~large[neig];
                                if (added == 0)
                                    return;
                                large[neig] = flood(large[neig] | added, words[neig]);
                                stack.push_back(neig);
                            });
    }
    for (size_t brick = 1; brick < words.size(); ++brick)
        words[brick] &= ~large[brick];
}

std::vector<RCD> CellBits::getSorted() const
{
    std::vector<std::pair<RCD, u64>> sorted; // base and cells
    size_t numCells = 0;
    for (size_t brick = 1; brick < words.size(); ++brick)
        if (words[brick] != 0)
        {
            sorted.emplace_back(bricks.getBase(brick), words[brick]);
            numCells += static_cast<size_t>(std::popcount(words[brick]));
        }
    std::sort(sorted.begin(), sorted.end());

    std::vector<RCD> cells;
    cells.reserve(numCells);
    const auto findEnd = [&sorted](size_t first, RCD field)
    {
        size_t i = first;
        while (i < sorted.size() && (sorted[i].first & field) == (sorted[first].first & field))
            ++i;
        return i;
    };
    // Bricks stand in the order of their bases, cells have to stand in that of their own coordinates. So every layer
    // of x is taken through all bricks of a slab (equal base in x) before the next one, and in it every layer of y
    // through all bricks of a row (equal base in y, too).
    for (size_t slab = 0; slab < sorted.size();)
    {
        const size_t slabEnd = findEnd(slab, rcd::xField);
        for (RCD x = 0; x < 4; ++x)
            for (size_t row = slab; row < slabEnd;)
            {
                const size_t rowEnd = findEnd(row, rcd::xField | rcd::yField);
                for (RCD y = 0; y < 4; ++y)
                    for (size_t i = row; i < rowEnd; ++i)
                        for (RCD z = 0; z < 4; ++z)
                            if (const RCD offset = rcd::fromXYZ(x, y, z);
                                (sorted[i].second >> BrickTable::toInner(offset) & 1) != 0)
                                cells.push_back(sorted[i].first + offset);
                row = rowEnd;
            }
        slab = slabEnd;
    }
    return cells;
}

} // namespace MIRT_ZAV
