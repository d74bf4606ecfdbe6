// Whether a cell of a sorted list may go without harm to the surface that the list carries. Extraction asks that about
// cells that its patterns would rather do without.
#pragma once

#include "lattice/Calc.h"

#include <bitset>
#include <set>
#include <vector>

namespace MIRT_ZAV
{

/// Searches the list for every neighbour. That takes no set-up and does for few cells; RemoveDeciderFast is for many.
/// The two judge by different rules.
class RemoveDecider
{
public:
    /// \param cells    gets sorted; not owned, and to be kept unchanged as long as the decider lives
    /// \param calcArg  the lattice; not owned
    RemoveDecider(std::vector<CCD>& cells, Calc* calcArg);

    /// From now on the cell counts as removed.
    void registerDoomed(CCD c) { sDoomed.insert(c); }
    bool isDoomed(CCD c) const { return sDoomed.count(c) != 0; }

    /// Takes the neighbourhood of a cell in view for the questions below. The cell itself needn't be in the list to
    /// count as present; a doomed cell never does.
    /// \return the number of present cells, of 27
    unsigned setNewCCD(CCD c);

    // Questions on the neighbourhood in view, by positions as RCDMatrix numbers them.

    /// An edge neighbour a is present and the faces b and c between it and the cell (o) are empty, so that nothing but
    /// the edge holds the two together:
    ///
    ///     b a
    ///     o c
    bool badDiagonal(int a, int b, int c) const;
    /// The opposite faces a and b are empty and the other four present: the cell is a stitch of a sheet.
    bool badDirect(int a, int b, int c, int d, int e, int f) const;
    /// The number of empty positions among five faces and an edge, which stands in for the sixth face.
    int getNumDirectVisible() const;

    /// Takes a cell in view. It is removable if at least three positions of getNumDirectVisible are empty, no neighbour
    /// is joined to it by an edge alone, and it is no stitch of a sheet.
    bool isRemovable(CCD c);

private:
    bool isPresent(int position) const { return bits[static_cast<size_t>(position)]; }

    const std::vector<CCD>& vCCD;
    const Calc* calc;
    std::set<CCD> sDoomed;
    std::bitset<27> bits;
};

} // namespace MIRT_ZAV
