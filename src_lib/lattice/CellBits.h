// A set of cells as words of 64 bits, one for each brick of 4 x 4 x 4 cells: what is done to whole neighbourhoods costs
// a few operations per brick.
#pragma once

#include "lattice/BrickTable.h"

#include <vector>

namespace MIRT_ZAV
{

/// Coordinates of cells must be above 0 with what is grown.
class CellBits
{
public:
    /// \param cells  in any order, fastest when near cells stand close to each other
    explicit CellBits(const std::vector<RCD>& cells);

    /// Adds the face neighbours of all cells.
    void grow();

    /// \param cells  as for the constructor; those that aren't in the set don't matter
    void remove(const std::vector<RCD>& cells);

    /// Removes components under face contact that have more than maxSize cells in one brick. Those of up to maxSize
    /// cells stay, and a few greater ones that are scattered over bricks.
    void removeLargeComponents(int maxSize);

    /// In ascending order.
    std::vector<RCD> getSorted() const;

private:
    std::vector<u64> getLargePieces(int maxSize) const;

    BrickTable bricks;
    std::vector<u64> words; // by brick; the bit of a cell is its place in the brick
};

} // namespace MIRT_ZAV
