// A set of cells that only grows: whether a cell is new is asked for every sample of a raster.
//
// Cells are bits in bricks of 4 x 4 x 4, so that a surface takes a few bytes per cell, and cells close to each other
// are found in the same word.
#pragma once

#include "lattice/BrickTable.h"

#include <vector>

namespace MIRT_ZAV
{

class CellSet
{
public:
    /// \return whether the cell is new
    bool insert(RCD r)
    {
        if (const RCD base = BrickTable::getBaseOf(r); base != lastBase)
        {
            lastBase = base;
            lastBrick = bricks.findOrAdd(base);
            if (lastBrick == words.size())
                words.push_back(0);
        }
        const bool bNew = (words[lastBrick] & bitOf(r)) == 0;
        words[lastBrick] |= bitOf(r);
        return bNew;
    }

    /// Several threads may ask at once while nothing is inserted.
    bool contains(RCD r) const { return (words[bricks.find(BrickTable::getBaseOf(r))] & bitOf(r)) != 0; }

private:
    static u64 bitOf(RCD r) { return u64(1) << BrickTable::toInner(r); }

    BrickTable bricks;
    std::vector<u64> words = {0}; // by brick; the first one stands for all missing bricks and stays empty
    RCD lastBase = ~RCD(0);       // the brick of the last insertion
    size_t lastBrick = 0;
};

} // namespace MIRT_ZAV
