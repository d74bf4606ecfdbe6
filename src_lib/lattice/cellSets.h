// Sets of lattice cells: growth, connected components, neighbours inside a set.
#pragma once

#include "lattice/Calc.h"

#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Grows a set shell by shell: each shell holds what is one face step further away, under the Manhattan distance.
/// \param cells       row codes in any order, none with a coordinate of 0; not changed
/// \param numSteps    number of shells; -1 gives nothing, 0 only the input
/// \param bKeepInput  whether the input, sorted, stands in front of the shells
/// \param out         the shells are appended by growing distance, each one sorted; not sorted as a whole
void inflateRCD(std::vector<RCD>& cells, int numSteps, bool bKeepInput, std::vector<RCD>& out);

/// Connected components under vertex contact, that is, under the 26 neighbours.
/// \param cells       row codes in any order; one that occurs twice counts once; not changed
/// \param components  appended in the order of their first cells in the input; inside of each, cells keep its order too
void createCC_RCD(std::vector<RCD>& cells, std::vector<std::vector<RCD>>& components);

/// The same under face contact.
void createCC_RCD_6Neig(std::vector<RCD>& cells, std::vector<std::vector<RCD>>& components);

/// Appends the members of a sorted set among the 26 neighbours of a cell, in the order of Calc::completeArray26_RCD.
void getNeigs26(std::vector<RCD>& sortedSet, RCD r, std::vector<RCD>& out);

/// Whether thin cells close into a ring. The one place that is looked at is the first cell c, from index start on, with
/// a lone neighbour l, one that touches none of the other neighbours of c: is there a way through the set from l back
/// to c, other than the direct step? Neighbours that touch each other would give such a way at every bend.
///
///     o c l o        c l o o o
///     o     o            o   o
///     o o o o            o o o
///       ring         no ring: c is the end of a tail
///
/// A ring with a tail counts as one only if c lies on the ring; which rims hole control cuts depends on it.
/// \param sortedCells  row codes in ascending order
bool isRing(std::vector<RCD>& sortedCells, int start);

/// Appends every cell's eight vertices paired with the cell, then sorts all of out.
void getRCC2RCD(std::vector<RCD>& cells, std::vector<std::pair<RCC, RCD>>& out);

/// The six face neighbours: along z, y and x, each time the lower one first.
inline void getFaceNeigs(RCD r, RCD* out)
{
    out[0] = r - rcd::zUnit;
    out[1] = r + rcd::zUnit;
    out[2] = r - rcd::yUnit;
    out[3] = r + rcd::yUnit;
    out[4] = r - rcd::xUnit;
    out[5] = r + rcd::xUnit;
}

} // namespace MIRT_ZAV
