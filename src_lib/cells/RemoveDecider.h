// The decision whether a cell of a sorted list may go without harm to the surface that the list carries.
#pragma once

#include "lattice/Calc.h"

#include <bitset>
#include <set>
#include <vector>

namespace MIRT_ZAV
{

/// Looks cells up in a list, less those registered as doomed; for few queries. RemoveDeciderFast is for many.
class RemoveDecider
{
public:
    /// \param cells  sorted in place; stays with the caller, unchanged as long as the decider
    RemoveDecider(std::vector<CCD>& cells, Calc* calcArg);

    /// From now on the cell counts as removed.
    void registerDoomed(CCD c) { sDoomed.insert(c); }
    bool isDoomed(CCD c) const { return sDoomed.count(c) != 0; }

    /// Takes the neighbourhood of a cell in view for the questions below; the number of present cells in it. The cell
    /// itself counts as present even when it isn't in the list.
    unsigned setNewCCD(CCD c);

    // Questions on the neighbourhood in view, by positions 9 * (dz + 1) + 3 * (dy + 1) + (dx + 1).
    /// An edge neighbour a that neither of the faces b and c beside it holds to the cell.
    bool badDiagonal(int a, int b, int c) const;
    /// Two empty faces a and b, with the other four present.
    bool badDirect(int a, int b, int c, int d, int e, int f) const;
    /// The number of empty faces, with an edge neighbour in the place of one of them.
    int getNumDirectVisible() const;

    bool isRemovable(CCD c);

private:
    bool isPresent(int position) const { return bits[static_cast<size_t>(position)]; }

    const std::vector<CCD>& vCCD;
    const Calc* calc;
    std::set<CCD> sDoomed;
    std::bitset<27> bits;
};

} // namespace MIRT_ZAV
