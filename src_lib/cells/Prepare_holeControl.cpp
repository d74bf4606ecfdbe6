// Hole control: closes gaps of the shell up to a width, and leaves wider ones open.
//
// Nobody has to find the holes or know their shape. A pass lets new cells (o) grow out of every rim, then takes them
// off again, the farthest from the shell (#) first, unless one keeps two empty sides apart. A gap of 4 cells and one of
// 6, seen from the side, in a pass of size 2:
//
//     shell        ####    ####            ####      ####
//
//                     o    o                  o      o
//                    ooo  ooo                ooo    ooo
//     grown        ####oooo####            ####oo  oo####
//                    ooo  ooo                ooo    ooo
//                     o    o                  o      o
//
//     cut          ####oooo####            ####      ####
//
// Where cells from two rims have met, the last of them can't go without joining the two sides, and a membrane one cell
// thick is left. Passes get greater, so that each gap is closed by the smallest one that reaches across; to later
// passes, its membrane is shell.

#include "cells/Prepare.h"

#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "cells/RemoveDeciderFast.h"
#include "lattice/CellBits.h"
#include "lattice/cellSets.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace MIRT_ZAV
{
namespace
{
using Distances = std::vector<std::pair<double, RCD>>; // distinct cells in ascending order

std::vector<RCD> getCells(const Distances& vDist2RCD)
{
    std::vector<RCD> cells;
    transformMT(vDist2RCD, cells, [](const std::pair<double, RCD>& entry) { return entry.second; });
    return cells;
}

bool hasLowerCell(const std::pair<double, RCD>& a, const std::pair<double, RCD>& b)
{
    return a.second < b.second;
}

/// The mean distance of those face neighbours of a cell that are in a list; 0.0 if none is.
double getMeanDistanceOfFaceNeigs(const Distances& vDist2RCD, RCD r)
{
    RCD neigs[6];
    getFaceNeigs(r, neigs);
    double sum = 0.0;
    int count = 0;
    for (const RCD neig : neigs)
    {
        const auto it =
            std::lower_bound(vDist2RCD.begin(), vDist2RCD.end(), std::pair<double, RCD>(0.0, neig), hasLowerCell);
        if (it != vDist2RCD.end() && it->second == neig)
        {
            sum += it->first;
            ++count;
        }
    }
    return count > 0 ? sum / count : 0.0;
}

std::vector<RCD> getUnion(const std::vector<RCD>& a, const std::vector<RCD>& b)
{
    std::vector<RCD> both;
    both.reserve(a.size() + b.size());
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
    return both;
}
} // namespace

void Prepare::hc_holeControlMain(int size, bool bFirstOrLast)
{
    if (vBorderRCDsrt.empty())
        return; // closed, no rim to grow from
    Distances vDist2RCD;
    std::vector<RCD> pockets;
    {
        MarchZone zone = rcdmch_createZone(size);
        getPartOfPass(10, 1).finish();
        rcdmch_getDist2RCD(zone, vDist2RCD);
        pockets = hc_findVolumeFills(zone.newCells);
        getPartOfPass(10, 1).finish();
    }
    hc_addVolumeFills(pockets, vDist2RCD);
    hc_pruneDown(bFirstOrLast, vDist2RCD);
}

/// Finds pockets of a few empty cells between the new ones, sorted. Around an empty pocket new cells would keep its
/// inside apart from the outside and stay, as a tiny hollow ball.
std::vector<RCD> Prepare::hc_findVolumeFills(const std::vector<RCD>& newCells) const
{
    constexpr int maxPocket = 9;
    CellBits around(newCells);
    around.grow();
    around.grow();
    around.remove(newCells);
    around.remove(vAllRCDsrt);
    around.removeLargeComponents(maxPocket);
    std::vector<RCD> candidates = around.getSorted();
    std::vector<std::vector<RCD>> comps;
    createCC_RCD_6Neig(candidates, comps);
    std::vector<RCD> pockets;
    for (const std::vector<RCD>& comp : comps)
        if (comp.size() <= maxPocket)
            pockets.insert(pockets.end(), comp.begin(), comp.end());
    std::sort(pockets.begin(), pockets.end());
    return pockets;
}

/// Adds the pockets to the new cells, with distances like those around them, so that their turn to go comes together.
void Prepare::hc_addVolumeFills(const std::vector<RCD>& pockets, Distances& vDist2RCD)
{
    Distances vAdded;
    for (const RCD r : pockets)
        vAdded.emplace_back(getMeanDistanceOfFaceNeigs(vDist2RCD, r), r);
    const auto middle = vDist2RCD.insert(vDist2RCD.end(), vAdded.begin(), vAdded.end());
    std::inplace_merge(vDist2RCD.begin(), middle, vDist2RCD.end(), hasLowerCell);
}

namespace
{
/// Brings a sorted list of the border cells up to date after cells have come or gone. Only they and the cells next to
/// them can have changed their kind, so no other is looked at.
void updateBorder(const RemoveDeciderFast& decider, const std::vector<RCD>& changed, std::vector<RCD>& border)
{
    std::vector<RCD> affected = changed;
    std::vector<RCD> neigs;
    for (const RCD r : changed)
    {
        neigs.clear();
        decider.getNeigs(r, neigs);
        affected.insert(affected.end(), neigs.begin(), neigs.end());
    }
    oneInstance(affected);
    removeVec(border, affected);
    std::erase_if(affected, [&decider](RCD r) { return decider.isDoomed(r) || !decider.isBorder(r); });
    const auto middle = border.insert(border.end(), affected.begin(), affected.end());
    std::inplace_merge(border.begin(), middle, border.end());
}

} // namespace

/// Takes new cells off again until membranes are left, and makes them part of the shell. The steps: down to a thin
/// layer; pieces of it that bridge nothing; frayed ends.
void Prepare::hc_pruneDown(bool bFirstOrLast, Distances& vDist2RCD)
{
    const std::vector<RCD> fill = getCells(vDist2RCD);
    std::vector<RCD> all = getUnion(vAllRCDsrt, fill);
    RemoveDeciderFast decider(all, pCalc);
    getPartOfPass(5, 1).finish();

    // Only cells that stand in vDist2RCD can die by this; the shell is safe.
    std::vector<RCD> vKept, vKilled;
    const auto prune = [&](PruningMode mode, unsigned percent)
    {
        Distances byDistance = vDist2RCD;
        ProgressPart part = getPartOfPass(percent, byDistance.size());
        decider.pruneByDistance(mode, byDistance, vKept, vKilled, &part);
        cleanupDist2RCD(vKept, vDist2RCD);
        part.finish();
    };
    prune(PM_PRUNE_BORDERS, 20);
    prune(PM_PRUNE_AREA, 10);
    std::vector<RCD> membranes = vKept;

    std::vector<RCD> vUnprotected;
    hc_unprotect(decider, vKept, vUnprotected);
    sortMT(vUnprotected.begin(), vUnprotected.end());
    std::erase_if(vDist2RCD, [&vUnprotected](const std::pair<double, RCD>& entry)
                  { return !std::binary_search(vUnprotected.begin(), vUnprotected.end(), entry.second); });
    prune(PM_PRUNE_BORDERS, 5);
    removeVec(membranes, vKilled);

    updateBorder(decider, membranes, vBorderRCDsrt);
    const std::vector<RCD> vCut = hc_removeFrayedRims(decider, fill, bFirstOrLast);
    hc_takeOver(membranes, vCut);
}

/// Drops the entries of cells that aren't in vKept, which is sorted as the entries are.
void Prepare::cleanupDist2RCD(std::vector<RCD>& vKept, Distances& vDist2RCD)
{
    auto itKept = vKept.begin();
    std::erase_if(vDist2RCD,
                  [&](const std::pair<double, RCD>& entry)
                  {
                      const bool bKept = itKept != vKept.end() && *itKept == entry.second;
                      itKept += bKept ? 1 : 0;
                      return !bKept;
                  });
    ZAV_ASSERT(vDist2RCD.size() == vKept.size(), "vTmp.size()==vKept.size()");
}

namespace
{
/// How many cells of a sorted set touch a piece, each one counted once. It stops counting at enough, so that a greater
/// result only says that there are that many or more.
size_t countNeigsInSet(const std::vector<RCD>& component, std::vector<RCD>& sortedSet, size_t enough)
{
    std::vector<RCD> found;
    for (const RCD r : component)
    {
        getNeigs26(sortedSet, r, found);
        oneInstance(found);
        if (found.size() >= enough)
            break;
    }
    return found.size();
}

constexpr size_t manyRimCells = 4;

/// Whether a piece of new cells spans a gap, judged by how many rim cells it touches and how large it is.
bool isBridge(size_t numRimCells, size_t numCells)
{
    switch (numRimCells)
    {
    case 0:
    case 1:
        return false; // a flag: it is held at one end, if at all
    case 2:
        return numCells == 1; // the link between the two
    case 3:
        return numCells <= 2;
    default:         // manyRimCells or more
        return true; // held in many places, a membrane
    }
}
} // namespace

/// Finds those of the kept new cells that may be taken off after all: pieces that bridge nothing, and single cells that
/// dangle from those that do.
void Prepare::hc_unprotect(RemoveDeciderFast& decider, std::vector<RCD>& vKept, std::vector<RCD>& vUnprotected) const
{
    std::vector<std::vector<RCD>> comps;
    createCC_RCD(vKept, comps);
    std::vector<RCD> rim = vBorderRCDsrt; // still that of the shell before this pass
    std::vector<RCD> vProtected;
    for (const std::vector<RCD>& comp : comps)
    {
        std::vector<RCD>& target =
            isBridge(countNeigsInSet(comp, rim, manyRimCells), comp.size()) ? vProtected : vUnprotected;
        target.insert(target.end(), comp.begin(), comp.end());
    }
    sortMT(vProtected.begin(), vProtected.end());

    // Dangling: a border cell with nothing else beside it than one cell of a protected piece.
    std::vector<RCD> neigs;
    for (const RCD b : vKept)
    {
        if (!decider.isBorder(b))
            continue;
        neigs.clear();
        decider.getNeigs(b, neigs);
        if (neigs.size() == 1 && std::binary_search(vProtected.begin(), vProtected.end(), neigs.front()))
            vUnprotected.push_back(b);
    }
}

namespace
{
/// The cells of all connected pieces of at most maxSize border cells that aren't rings, sorted.
std::vector<RCD> getFrayedCells(std::vector<RCD>& border, size_t maxSize)
{
    std::vector<std::vector<RCD>> comps;
    createCC_RCD(border, comps);
    std::vector<RCD> frayed;
    for (std::vector<RCD>& comp : comps) // sorted, as the border is
        if (comp.size() <= maxSize && !isRing(comp, 0))
            frayed.insert(frayed.end(), comp.begin(), comp.end());
    oneInstance(frayed);
    return frayed;
}
} // namespace

/// Trims frayed edges: border cells in short chains with loose ends go, round by round, until no more do or there have
/// been 2 * holeControlLimit rounds. A ring of border cells stays at any length, as it is the rim of a hole. Keeps
/// vBorderRCDsrt up to date.
/// \param fill  the cells of this pass, sorted
/// \return the cells that were cut, sorted
std::vector<RCD> Prepare::hc_removeFrayedRims(RemoveDeciderFast& decider, const std::vector<RCD>& fill,
                                              bool bFirstOrLast)
{
    std::vector<RCD> vCut;
    const long long maxPasses = 2LL * holeControlLimit;
    ProgressPart part = getPartOfPass(10, 10); // mostly there are fewer rounds
    for (long long i = 0; i < maxPasses; ++i)
    {
        part.reach(static_cast<std::uint64_t>(i));
        // A pass in the middle can only lose cells of its own, so its first cut is a bolder one. The first and the last
        // pass take loose strips of the earlier shell as well.
        std::vector<RCD> frayed = getFrayedCells(vBorderRCDsrt, i == 0 && !bFirstOrLast ? 100 : 30);
        if (!bFirstOrLast)
            keepVec(frayed, fill);

        Distances pairs;
        for (const RCD r : frayed)
            pairs.emplace_back(0.0, r);
        std::vector<RCD> vKept, vKilled;
        decider.pruneByDistance(PM_PRUNE_BORDERS, pairs, vKept, vKilled);
        if (vKilled.empty())
            break;
        vCut.insert(vCut.end(), vKilled.begin(), vKilled.end());
        updateBorder(decider, vKilled, vBorderRCDsrt);
    }
    oneInstance(vCut);
    return vCut;
}

/// Adds the membranes to the shell, takes off what was cut, and gives each new cell its centre as its point.
void Prepare::hc_takeOver(const std::vector<RCD>& membranes, const std::vector<RCD>& vCut)
{
    vAllRCDsrt = getUnion(vAllRCDsrt, membranes);
    removeVec(vAllRCDsrt, vCut);
    vAreaRCDsrt = vAllRCDsrt;
    removeVec(vAreaRCDsrt, vBorderRCDsrt);

    std::vector<RCD> added = membranes;
    removeVec(added, vCut);
    vFillRCD.insert(vFillRCD.end(), added.begin(), added.end());
    // A shell cell that was cut stays in vRCD2Vtxsrt. That list is the result, so the mesh still gets the cell, and its
    // bytes depend on that. Where a later pass fills such a cell again, the point that it has stays.
    std::vector<std::pair<RCD, Point3*>> vAdded;
    auto it = vRCD2Vtxsrt.begin();
    for (const RCD r : added)
    {
        it = std::lower_bound(it, vRCD2Vtxsrt.end(), std::pair<RCD, Point3*>(r, nullptr));
        if (it == vRCD2Vtxsrt.end() || it->first != r)
            vAdded.emplace_back(r, new (poolVtx.take()) Point3(pCalc->getCenter(r)));
    }
    const auto middle = vRCD2Vtxsrt.insert(vRCD2Vtxsrt.end(), vAdded.begin(), vAdded.end());
    std::inplace_merge(vRCD2Vtxsrt.begin(), middle, vRCD2Vtxsrt.end());
}

} // namespace MIRT_ZAV
