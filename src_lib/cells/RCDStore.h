// The occupied cells of one run as bit blocks, found by the upper bits of their codes.
#pragma once

#include "cells/RCDMatrix.h"

#include <vector>

namespace MIRT_ZAV
{

/// A fixed set of blocks: cells can be cleared and set again, but only inside the blocks that exist from the start.
/// Reads may run on several threads at once; changes of bits run on one thread, with no read under way.
class RCDStore
{
public:
    /// \param calcArg  the run's lattice, not owned
    /// \param cells    distinct cells in any order; only read
    RCDStore(Calc* calcArg, std::vector<RCD>& cells);

    /// The block that holds a cell; null, with a warning, where there is none.
    RCDMatrix* getRCDMatrix(RCD r) const
    {
        BlockCache& cache = threadCache();
        const RCD upper = r & ~RCDMatrix::lowerMask;
        if (cache.label == label && cache.upper == upper)
            return cache.pMatrix;
        return findMatrix(upper, cache);
    }

    /// Appends all alive cells, block by block by ascending upper part, and by address inside a block.
    void getAllRCD(std::vector<RCD>& out) const;

    /// The upper part of a neighbour block at offsets -1, 0, 1; other offsets move nothing. The ends of the lattice
    /// aren't tested: no block of a store lies beyond them.
    RCD getUpperNeigPart(RCD upper, int offx, int offy, int offz) const;

    /// Draws a new store's identity: 1, 2, 3, ...
    static unsigned getLabel();

    Calc* const calc;

private:
    /// The block that a thread read last. Queries in a row lie in one block nearly always.
    struct BlockCache
    {
        unsigned label = 0xffffff9d; // of no store
        RCD upper = ~RCD(0);         // of no block: bit 63 of a code is never set
        RCDMatrix* pMatrix = nullptr;
    };
    static BlockCache& threadCache()
    {
        static thread_local BlockCache cache;
        return cache;
    }

    void constructStore(const std::vector<RCD>& cells);
    void createBlocks(std::vector<std::pair<RCD, RCD>>& list);
    void linkBlocks();
    void linkBlocks(int offx, int offy, int offz);
    RCDMatrix* findMatrix(RCD upper, BlockCache& cache) const;
    RCDMatrix* lookUp(RCD upper) const;

    const unsigned label;
    BlockBits::LayerPool layerPool;
    // The map from upper part to block: the keys, ascending, and their blocks at the same index.
    std::vector<RCD> vUpper;
    mutable std::vector<RCDMatrix> vMatrix; // a const store hands out blocks to change bits in
};

} // namespace MIRT_ZAV
