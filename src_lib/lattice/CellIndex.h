// Finds the members of a sorted list of cells.
//
// The members among 64 neighbouring codes, an aligned run, share one word of bits. The word and the number of members
// before the run give the place of each of them by counting bits. A run of row codes is a piece of a column along z,
// one of Morton codes a cube of 4 x 4 x 4; both forms may be indexed.
#pragma once

#include "lattice/Calc.h"

#include <bit>
#include <cstdint>
#include <vector>

namespace MIRT_ZAV
{

/// Immutable; the list itself isn't kept.
class CellIndex
{
public:
    static constexpr size_t notFound = ~size_t(0);

    /// \param sorted  distinct cells in ascending order
    explicit CellIndex(const std::vector<RCD>& sorted)
    {
        size_t numRuns = 0;
        for (size_t i = 0; i < sorted.size(); ++i)
            numRuns += i == 0 || keyOf(sorted[i - 1]) != keyOf(sorted[i]) ? 1 : 0;
        runs.resize(std::bit_ceil(2 * numRuns + groupSize));
        for (size_t i = 0; i < sorted.size();)
        {
            Run run{keyOf(sorted[i]), 0, i};
            for (; i < sorted.size() && keyOf(sorted[i]) == run.key; ++i)
                run.bits |= bitOf(sorted[i]);
            insert(run);
        }
    }

    /// The place of a cell in the list, or notFound.
    size_t find(RCD r) const
    {
        const Run& run = findRun(keyOf(r));
        return (run.bits & bitOf(r)) == 0 ? notFound : placeIn(run, bitOf(r));
    }

    /// The members among the 64 codes from an aligned code on, one bit each.
    u64 getRun(RCD first) const { return findRun(first).bits; }

private:
    struct Run
    {
        RCD key = noKey;
        u64 bits = 0;
        size_t numBefore = 0; // members before the run
    };
    static constexpr RCD noKey = ~RCD(0);
    static constexpr size_t groupSize = 8; // runs of row codes with neighbouring y stand side by side

    static RCD keyOf(RCD r) { return r & ~RCD(63); }
    static u64 bitOf(RCD r) { return u64(1) << (r & 63); }
    static size_t placeIn(const Run& run, u64 bit) { return run.numBefore + countBits(run.bits & (bit - 1)); }

    /// Sums of pairs, nibbles and bytes: the baseline instruction set has no bit count, and std::popcount is a call.
    static size_t countBits(u64 bits)
    {
        bits -= bits >> 1 & 0x5555555555555555;
        bits = (bits & 0x3333333333333333) + (bits >> 2 & 0x3333333333333333);
        bits = (bits + (bits >> 4)) & 0x0f0f0f0f0f0f0f0f;
        return static_cast<size_t>(bits * 0x0101010101010101 >> 56);
    }

    size_t homeOf(RCD key) const
    {
        const u64 group = (key / (groupSize * rcd::yUnit) << 15 ^ (key & rcd::zField) >> 6) * 0x9e3779b97f4a7c15u;
        return ((group >> 32) * groupSize + (key / rcd::yUnit & (groupSize - 1))) & (runs.size() - 1);
    }

    void insert(const Run& run)
    {
        size_t slot = homeOf(run.key);
        while (runs[slot].key != noKey)
            slot = (slot + 1) & (runs.size() - 1);
        runs[slot] = run;
    }

    /// The run of a key, or an empty one.
    const Run& findRun(RCD key) const
    {
        size_t slot = homeOf(key);
        while (runs[slot].key != key && runs[slot].key != noKey)
            slot = (slot + 1) & (runs.size() - 1);
        return runs[slot];
    }

    std::vector<Run> runs; // a hash table of a power of two, at most half full
};

} // namespace MIRT_ZAV
