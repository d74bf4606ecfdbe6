// The occupied cells of one run in blocks of bits, which are found by the upper bits of cell codes.
#pragma once

#include "cells/RCDMatrix.h"

#include <vector>

namespace MIRT_ZAV
{

/// Its blocks are made once, for the cells that are alive at first; those can die and come back, others can't join.
/// Reads may run on several threads at once; changes of bits run on one thread, with no read under way.
class RCDStore
{
public:
    /// \param calcArg  the run's lattice, not owned
    /// \param cells    the cells that are alive at first, each one once, in any order; not changed
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

    /// The upper part of the block at an offset of -1, 0 or 1 along each axis; any other offset counts as 0. A step
    /// over an end of the lattice isn't noticed and gives a wrong block: runs keep thousands of cells free there.
    RCD getUpperNeigPart(RCD upper, int offx, int offy, int offz) const;

    /// A new number with every call, from 1 on; safe on several threads. A thread's cache knows its store by it, as a
    /// later store can stand at the same address.
    static unsigned getLabel();

    Calc* const calc;

private:
    /// The block that a thread read last, and nearly always reads next.
    struct BlockCache
    {
        unsigned label = 0xffffff9d; // of no store
        RCD upper = ~RCD(0);         // of no block: codes have 63 bits
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
    // A map from upper part to block: the keys, ascending, and the blocks at the same index.
    std::vector<RCD> vUpper;
    mutable std::vector<RCDMatrix> vMatrix; // bits can be changed through a const store, too
};

} // namespace MIRT_ZAV
