#include "lattice/CellPatterns.h"

#include "base/vectorHelpers.h"

#include <algorithm>

namespace MIRT_ZAV
{
namespace
{
/// One layer of a block, as the places of its cells: those of a coordinate, 0 to 3, along an axis (x 4, y 2, z 1).
constexpr u64 cellsAt(u64 axis, u64 coordinate)
{
    u64 bits = 0;
    for (u64 place = 0; place < 64; ++place)
        if (((place & axis) != 0 ? 1u : 0u) + ((place & 8 * axis) != 0 ? 2u : 0u) == coordinate)
            bits |= u64(1) << place;
    return bits;
}

/// Moves a block by one cell up an axis; what comes in at its lower end is taken from the block below. The place of a
/// cell holds the two bits of a coordinate with weights axis and 8 * axis, which gives the distances of the moves:
///
///     layer                3 of the block below ----> 0 ----> 1 ----> 2 ----> 3
///     place moves by axis times                   -9      1       7       1
template <u64 axis>
u64 moveUp(u64 block, u64 below)
{
    constexpr u64 oddCells = cellsAt(axis, 1) | cellsAt(axis, 3);
    return (block << axis & oddCells) | (block << 7 * axis & cellsAt(axis, 2)) | (below >> 9 * axis & cellsAt(axis, 0));
}

/// The bits of each axis in the codes of blocks, which have none below bit 6.
constexpr std::array<u64, 3> blockMasks = {ccd::xMask & ~u64(63), ccd::yMask & ~u64(63), ccd::zMask & ~u64(63)};

/// The next block down an axis. Below the lattice it wraps round to one at the upper end of the codes; only its last
/// layer is asked for, and the constructor makes sure that no cell stands there.
VCD blockBelow(VCD block, size_t axis)
{
    return (block & ~blockMasks[axis]) | (((block & blockMasks[axis]) - 1) & blockMasks[axis]);
}

VCD blockAbove(VCD block, size_t axis)
{
    return (block & ~blockMasks[axis]) | (((block | ~blockMasks[axis]) + 1) & blockMasks[axis]);
}

/// Appends the blocks of vertices that the cells of a block touch: its own, and those above it where cells stand in its
/// last layers.
void appendTouched(VCD block, u64 cells, std::vector<VCD>& out)
{
    constexpr std::array<u64, 3> lastCells = {cellsAt(ccd::xAx, 3), cellsAt(ccd::yAx, 3), cellsAt(ccd::zAx, 3)};
    for (unsigned direction = 0; direction < 8; ++direction)
    {
        u64 touching = cells;
        VCD touched = block;
        for (size_t axis = 0; axis < 3; ++axis)
            if ((direction >> axis & 1) != 0)
            {
                touching &= lastCells[axis];
                touched = blockAbove(touched, axis);
            }
        if (touching != 0)
            out.push_back(touched);
    }
}
} // namespace

CellPatterns::CellPatterns(const Calc& calc, const std::vector<CCD>& sorted) : cells(sorted)
{
    const CCD top = calc.numberToSparse(calc.numCells - 1, ccd::xAx | ccd::yAx | ccd::zAx);
    for (const CCD c : sorted)
    {
        // The greatest of the eight corners of a cell is the one up along all axes.
        const CCD up = ((c | ~ccd::xMask) + 1) & ccd::xMask;
        const CCD vertex = up | (((c | ~ccd::yMask) + 1) & ccd::yMask) | (((c | ~ccd::zMask) + 1) & ccd::zMask);
        lastVertex = std::max(lastVertex, vertex);
        const CCD missing = c ^ top;
        ZAV_ASSERT((missing & ccd::xMask) != 0 && (missing & ccd::yMask) != 0 && (missing & ccd::zMask) != 0, "false");
    }
    for (size_t i = 0; i < sorted.size();)
    {
        const VCD block = sorted[i] & ~u64(63);
        appendTouched(block, cells.getRun(block), vBlocks);
        while (i < sorted.size() && (sorted[i] & ~u64(63)) == block)
            ++i;
    }
    oneInstance(vBlocks);
}

CellPatterns::Words CellPatterns::getWords(VCD block) const
{
    const auto alongZ = [this](VCD at, u64& same, u64& lower)
    {
        same = cells.getRun(at);
        lower = moveUp<ccd::zAx>(same, cells.getRun(blockBelow(at, 2)));
    };
    // The words stand by which coordinates a cell shares with the vertex: z is bit 0, y bit 1, x bit 2. Where a bit is
    // 0, the cell lies one below.
    const auto alongYZ = [&alongZ](VCD at, u64* out)
    {
        u64 belowSame = 0, belowLower = 0;
        alongZ(at, out[3], out[2]);
        alongZ(blockBelow(at, 1), belowSame, belowLower);
        out[1] = moveUp<ccd::yAx>(out[3], belowSame);
        out[0] = moveUp<ccd::yAx>(out[2], belowLower);
    };
    std::array<u64, 8> all;
    std::array<u64, 4> below;
    alongYZ(block, &all[4]);
    alongYZ(blockBelow(block, 0), below.data());
    for (size_t i = 0; i < 4; ++i)
        all[i] = moveUp<ccd::xAx>(all[4 + i], below[i]);
    return {all[1], all[5], all[4], all[0], all[3], all[7], all[6], all[2]}; // in the order of the pattern
}

/// The vertices with 3 to 7 cells, by a bit-sliced counter: the eight words are added in all 64 places at once, and
/// ones, twos, fours and eights hold the binary digits of the 64 sums.
u64 CellPatterns::getPartlyFilled(const Words& words)
{
    u64 ones = 0, twos = 0, fours = 0, eights = 0;
    for (const u64 word : words)
    {
        const u64 carryOne = ones & word, carryTwo = twos & carryOne;
        ones ^= word;
        twos ^= carryOne;
        eights |= fours & carryTwo;
        fours ^= carryTwo;
    }
    return ((ones & twos) | fours) & ~eights;
}

} // namespace MIRT_ZAV
