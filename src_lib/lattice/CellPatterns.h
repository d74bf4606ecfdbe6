// The patterns of cells around lattice vertices, found for 64 vertices at a time.
//
// The cells of a block of 4 x 4 x 4 have 64 codes in a row, so that a word of bits tells which of them are there. Moved
// up by one cell, the word tells at each bit whether the cell before is there. Eight words, moved up along none, some
// or all of the axes, hold the eight cells around each of the block's 64 vertices, the minimum corners of its cells.
//
//     cells             . # # .        along one axis; # is there
//     cells, moved up   ? . # #        ? comes from the block before
//     vertex              |            this one has a cell above it, and none below
#pragma once

#include "lattice/Calc.h"
#include "lattice/CellIndex.h"

#include <array>
#include <bit>
#include <vector>

namespace MIRT_ZAV
{

/// Immutable; the list of cells itself isn't kept. A pattern is an 8-bit number with one bit per cell around a vertex,
/// in the order of Calc::completeArraySym.
class CellPatterns
{
public:
    /// \param sorted  distinct cells in ascending order; one at the upper end of the lattice is a bug
    CellPatterns(const Calc& calc, const std::vector<CCD>& sorted);

    /// The number of blocks of 64 vertices with at least one that a cell touches.
    size_t getNumBlocks() const { return vBlocks.size(); }
    /// Calls f(vertex, pattern) for the vertices of a block that have from 3 to 7 cells, in ascending order.
    template <class F>
    void forEachPartlyFilled(size_t block, const F& f) const
    {
        const Words words = getWords(vBlocks[block]);
        for (u64 bits = getPartlyFilled(words); bits != 0; bits &= bits - 1)
        {
            const int place = std::countr_zero(bits);
            f(vBlocks[block] + static_cast<u64>(place), getPattern(words, place));
        }
    }

    int getPattern(VCD vertex) const { return getPattern(getWords(vertex & ~u64(63)), static_cast<int>(vertex & 63)); }
    /// The greatest vertex that a cell touches; 0 without cells.
    VCD getLastVertex() const { return lastVertex; }

private:
    /// For each bit of the pattern, whether that cell is there around each of the 64 vertices.
    using Words = std::array<u64, 8>;

    Words getWords(VCD block) const;
    static u64 getPartlyFilled(const Words& words);
    static int getPattern(const Words& words, int place)
    {
        int pattern = 0;
        for (size_t bit = 0; bit < words.size(); ++bit)
            pattern |= static_cast<int>(words[bit] >> place & 1) << bit;
        return pattern;
    }

    CellIndex cells;
    std::vector<VCD> vBlocks; // their first vertices, sorted
    VCD lastVertex = 0;
};

} // namespace MIRT_ZAV
