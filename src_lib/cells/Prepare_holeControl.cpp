// Hole control: closes gaps of the shell up to a width, and leaves wider ones open.
//
// It doesn't look for holes. A pass grows a layer of new cells from the rim cells, so that layers from opposite rims
// meet over a narrow gap, then cuts the new cells away again, the farthest first, taking only cells whose removal opens
// no gap. Where layers met, a membrane one cell thick stays; where they didn't, everything falls away.

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

/// The mean distance of a cell's face neighbours in a list; 0.0 if it has none there.
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
        return; // a closed shell has no rim to grow from
    Distances vDist2RCD;
    std::vector<RCD> pockets;
    {
        MarchZone zone = rcdmch_createZone(size);
        rcdmch_getDist2RCD(zone, vDist2RCD);
        pockets = hc_findVolumeFills(zone.newCells);
    }
    hc_addVolumeFills(pockets, vDist2RCD);
    hc_pruneDown(bFirstOrLast, vDist2RCD);
}

/// Finds small pockets that the new layer almost encloses, sorted: left empty, they would become tiny closed cavities.
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

/// Gives the pockets distances in between those around them.
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
/// Brings a sorted list of the border cells up to date after cells have come or gone: only they and the cells next to
/// them can change their class.
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

/// Thins the new cells of vDist2RCD down to membranes.
void Prepare::hc_pruneDown(bool bFirstOrLast, Distances& vDist2RCD)
{
    const std::vector<RCD> fill = getCells(vDist2RCD);
    std::vector<RCD> all = getUnion(vAllRCDsrt, fill);
    RemoveDeciderFast decider(all, pCalc);

    // Only cells of vDist2RCD can die in these three; the shell is safe.
    std::vector<RCD> vKept, vKilled;
    const auto prune = [&](PruningMode mode)
    {
        Distances byDistance = vDist2RCD;
        decider.pruneByDistance(mode, byDistance, vKept, vKilled);
        cleanupDist2RCD(vKept, vDist2RCD);
    };
    prune(PM_PRUNE_BORDERS);
    prune(PM_PRUNE_AREA);
    std::vector<RCD> membranes = vKept;

    std::vector<RCD> vUnprotected;
    hc_unprotect(decider, vKept, vUnprotected);
    sortMT(vUnprotected.begin(), vUnprotected.end());
    std::erase_if(vDist2RCD, [&vUnprotected](const std::pair<double, RCD>& entry)
                  { return !std::binary_search(vUnprotected.begin(), vUnprotected.end(), entry.second); });
    prune(PM_PRUNE_BORDERS);
    removeVec(membranes, vKilled);

    updateBorder(decider, membranes, vBorderRCDsrt);
    const std::vector<RCD> vCut = hc_removeFrayedRims(decider, fill, bFirstOrLast);
    hc_takeOver(membranes, vCut);
}

/// Keeps the entries of the cells in vKept.
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
/// The number of distinct cells of a sorted set among the 26 neighbours of a component's cells; any number from enough
/// on when there are so many.
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

/// Whether a piece of new cells bridges between rim cells, by the number of rim cells it touches and its size.
bool isBridge(size_t numRimCells, size_t numCells)
{
    switch (numRimCells)
    {
    case 0:
    case 1:
        return false; // hangs on one place at most
    case 2:
        return numCells == 1; // one cell between two rim cells
    case 3:
        return numCells <= 2;
    default:         // manyRimCells or more
        return true; // joins many rim cells: a real membrane
    }
}
} // namespace

/// Finds the kept new cells that are no bridge and may be cut.
void Prepare::hc_unprotect(RemoveDeciderFast& decider, std::vector<RCD>& vKept, std::vector<RCD>& vUnprotected) const
{
    std::vector<std::vector<RCD>> comps;
    createCC_RCD(vKept, comps);
    std::vector<RCD> rim = vBorderRCDsrt; // of the shell before this pass
    std::vector<RCD> vProtected;
    for (const std::vector<RCD>& comp : comps)
    {
        std::vector<RCD>& target =
            isBridge(countNeigsInSet(comp, rim, manyRimCells), comp.size()) ? vProtected : vUnprotected;
        target.insert(target.end(), comp.begin(), comp.end());
    }
    sortMT(vProtected.begin(), vProtected.end());

    // A border cell that dangles from a protected piece may go as well.
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
/// The cells of small components that aren't rings, sorted.
std::vector<RCD> getFrayedCells(std::vector<RCD>& border, size_t maxSize)
{
    std::vector<std::vector<RCD>> comps;
    createCC_RCD(border, comps);
    std::vector<RCD> frayed;
    for (std::vector<RCD>& comp : comps) // each one sorted, as the border is
        if (comp.size() <= maxSize && !isRing(comp, 0))
            frayed.insert(frayed.end(), comp.begin(), comp.end());
    oneInstance(frayed);
    return frayed;
}
} // namespace

/// Cuts short runs of border cells that don't close into a ring, until nothing changes. Keeps vBorderRCDsrt up to date
/// and returns the cells that were cut, sorted.
std::vector<RCD> Prepare::hc_removeFrayedRims(RemoveDeciderFast& decider, const std::vector<RCD>& fill,
                                              bool bFirstOrLast)
{
    std::vector<RCD> vCut;
    const long long maxPasses = 2LL * holeControlLimit;
    for (long long i = 0; i < maxPasses; ++i)
    {
        std::vector<RCD> frayed = getFrayedCells(vBorderRCDsrt, i == 0 && !bFirstOrLast ? 100 : 30);
        if (!bFirstOrLast) // loose strips of the earlier shell go on the first and the last size only
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

/// Makes the shell with the membranes and without what was cut the new one, and gives the fill cells their points.
void Prepare::hc_takeOver(const std::vector<RCD>& membranes, const std::vector<RCD>& vCut)
{
    vAllRCDsrt = getUnion(vAllRCDsrt, membranes);
    removeVec(vAllRCDsrt, vCut);
    vAreaRCDsrt = vAllRCDsrt;
    removeVec(vAreaRCDsrt, vBorderRCDsrt);

    std::vector<RCD> added = membranes;
    removeVec(added, vCut);
    vFillRCD.insert(vFillRCD.end(), added.begin(), added.end());
    // A shell cell that was cut stays in vRCD2Vtxsrt, deliberately: the result is that list. When a later pass fills it
    // again, it keeps its measured point.
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
