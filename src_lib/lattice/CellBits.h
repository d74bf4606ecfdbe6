// A set of cells as words of 64 bits, one for each brick of 4 x 4 x 4 cells: what is done to whole neighbourhoods costs
// a few operations per brick.
#pragma once

#include "lattice/BrickTable.h"

#include <vector>

namespace MIRT_ZAV
{

/// Cells that are grown, or whose components are looked for, must have coordinates above 0: a step down from 0 would
/// borrow from the next field of the code and end in an unrelated brick.
class CellBits
{
public:
    /// \param cells  in any order, fastest when near cells stand close to each other
    explicit CellBits(const std::vector<RCD>& cells);

    /// Number of cells.
    size_t size() const;

    /// Adds the face neighbours of all cells.
    void grow();

    /// \param cells  as for the constructor; those that aren't in the set don't matter
    void remove(const std::vector<RCD>& cells);

    /// A cheap sieve: removes the components under face contact that have, inside of some brick, a piece of more than
    /// maxSize cells. All components of up to maxSize cells stay, and so do a few greater ones that lie in small pieces
    /// over several bricks.
    void removeLargeComponents(int maxSize);

    /// The cells in ascending order.
    std::vector<RCD> getSorted() const;

private:
    std::vector<u64> getLargePieces(int maxSize) const;

    BrickTable bricks;
    std::vector<u64> words; // by brick; the bit of a cell is its place in the brick
};

} // namespace MIRT_ZAV
