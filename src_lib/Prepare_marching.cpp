// How far new cells near the rim lie from the shell.
//
// Not a grid distance: as in a vector distance transform, a front of cells marches outwards, every cell inherits its
// nearest shell point from the cell that reached it, and the distance is the Euclidean one to that point.

#include "Prepare.h"

#include "CellMap.h"
#include "cellSets.h"
#include "sortMT.h"
#include "tools.h"
#include "vectorHelpers.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <new>
#include <queue>

namespace MIRT_ZAV
{

/// One cell in the march. Floats keep it small: there are as many as rim cells times size.
struct Prepare::RCDBox
{
    float dist;      // to the source's point so far; 0 for a shell cell, the greatest float when unreached
    bool bDone;      // the distance can't improve
    RCD rcd;         //
    Point3* pVtx;    // the point of a shell cell; null otherwise
    RCDBox* pSource; // the shell box whose point gives dist; a shell box points to itself
    float x, y, z;   // centre of the cell; not read on shell cells

    /// From this shell box's point to the centre of a new one. Differences in double, kept as float: far from the
    /// origin the float centres lose digits, and the membranes get rough.
    float getDistanceTo(const RCDBox& newBox) const
    {
        const float dx = static_cast<float>(pVtx->x() - static_cast<double>(newBox.x));
        const float dy = static_cast<float>(pVtx->y() - static_cast<double>(newBox.y));
        const float dz = static_cast<float>(pVtx->z() - static_cast<double>(newBox.z));
        return std::sqrt(dx * dx + dy * dy + dz * dz);
    }
};

/// The smallest distance on top, compared by distance alone: among equals the order of pushes decides.
class Prepare::PrioqRCDBox
{
public:
    void push(double dist, RCDBox* pBox) { queue.emplace(dist, pBox); }
    bool empty() const { return queue.empty(); }
    RCDBox* pop()
    {
        RCDBox* const pBox = queue.top().second;
        queue.pop();
        return pBox;
    }

private:
    using Entry = std::pair<double, RCDBox*>;
    struct IsFarther
    {
        bool operator()(const Entry& a, const Entry& b) const { return a.first > b.first; }
    };
    std::priority_queue<Entry, std::vector<Entry>, IsFarther> queue;
};

/// The new boxes by cell.
class Prepare::BoxMap
{
public:
    explicit BoxMap(const std::vector<RCDBox*>& sortedBoxes) : map(getEntries(sortedBoxes)) {}

    /// Null for a cell without a new box.
    RCDBox* find(RCD r) const
    {
        RCDBox* const* const found = map.find(r);
        return found == nullptr ? nullptr : *found;
    }

private:
    static std::vector<std::pair<RCD, RCDBox*>> getEntries(const std::vector<RCDBox*>& sortedBoxes)
    {
        std::vector<std::pair<RCD, RCDBox*>> entries;
        entries.reserve(sortedBoxes.size());
        for (RCDBox* const pBox : sortedBoxes)
            entries.emplace_back(pBox->rcd, pBox);
        return entries;
    }

    CellMap<RCDBox*> map;
};

void Prepare::rcdmch_getDist2RCD(int size, Distances& vDist2RCD)
{
    MIRT_TOOLS::SimplePool<RCDBox> pool;
    std::vector<RCDBox*> vShell, vNew;
    rcdmch_createRCDBoxes(pool, size, vShell, vNew);
    BoxMap newBoxes(vNew);
    PrioqRCDBox queue;
    rcdmch_createPrioq(vShell, newBoxes, queue);
    rcdmch_marchRCD(queue, newBoxes, vNew, vDist2RCD);
}

void Prepare::rcdmch_createRCDBoxes(MIRT_TOOLS::SimplePool<RCDBox>& pool, int size, std::vector<RCDBox*>& vShell,
                                    std::vector<RCDBox*>& vNew) const
{
    std::vector<RCD> zone;
    std::vector<RCD> border = vBorderRCDsrt;
    inflateRCD(border, size, true, zone);
    sortMT(zone.begin(), zone.end());
    pool.init(static_cast<int>(std::min<size_t>(zone.size(), INT_MAX)), -1);

    auto itShell = vAllRCDsrt.begin();
    auto itVtx = vRCD2Vtxsrt.begin();
    for (const RCD r : zone)
    {
        itShell = std::lower_bound(itShell, vAllRCDsrt.end(), r);
        if (itShell == vAllRCDsrt.end() || *itShell != r)
        {
            const Point3 centre = pCalc->getCenter(r);
            vNew.push_back(new (pool.take()) RCDBox{FLT_MAX, false, r, nullptr, nullptr, static_cast<float>(centre.x()),
                                                    static_cast<float>(centre.y()), static_cast<float>(centre.z())});
            continue;
        }
        const auto isBelow = [](const std::pair<RCD, Point3*>& entry, RCD cell) { return entry.first < cell; };
        const auto q_it = itVtx = std::lower_bound(itVtx, vRCD2Vtxsrt.end(), r, isBelow);
        ZAV_ASSERT(q_it != vRCD2Vtxsrt.end() && q_it->first == r, "q_it!=vRCD2Vtxsrt.end() && q_it->first==rcd");
        RCDBox* const pBox = new (pool.take()) RCDBox{0.0f, true, r, q_it->second, nullptr, 0.0f, 0.0f, 0.0f};
        pBox->pSource = pBox;
        vShell.push_back(pBox);
    }
}

void Prepare::rcdmch_createPrioq(const std::vector<RCDBox*>& vShell, BoxMap& newBoxes, PrioqRCDBox& queue) const
{
    std::vector<RCDBox*> vReached;
    RCD neigs[26];
    for (RCDBox* const pShellBox : vShell)
    {
        const Point3* const pFromVtx = pShellBox->pVtx;
        ZAV_ASSERT(pFromVtx != nullptr, "pFromVtx!=__null");
        Calc::completeArray26_RCD(pShellBox->rcd, neigs);
        for (const RCD neig : neigs)
        {
            RCDBox* const pBox = newBoxes.find(neig);
            if (pBox == nullptr)
                continue;
            const float d = pShellBox->getDistanceTo(*pBox);
            if (d < pBox->dist)
            {
                pBox->dist = d;
                pBox->pSource = pShellBox;
                vReached.push_back(pBox);
            }
        }
    }
    oneInstanceMT(vReached);
    for (RCDBox* const pBox : vReached)
        if (pBox->dist < FLT_MAX)
            queue.push(pBox->dist, pBox);
}

void Prepare::rcdmch_marchRCD(PrioqRCDBox& queue, BoxMap& newBoxes, const std::vector<RCDBox*>& vNew,
                              Distances& vDist2RCD) const
{
    RCD neigs[26];
    while (!queue.empty())
    {
        RCDBox* const pBox = queue.pop();
        if (pBox->bDone)
            continue;
        pBox->bDone = true;
        // Near the shell the march must pass diagonal gaps; farther out six directions are enough.
        size_t numNeigs = 26;
        if (pBox->dist < sideLen)
            Calc::completeArray26_RCD(pBox->rcd, neigs);
        else
        {
            numNeigs = 6;
            const RCD steps[3] = {rcd::xUnit, rcd::yUnit, rcd::zUnit};
            for (size_t axis = 0; axis < 3; ++axis)
            {
                neigs[2 * axis] = pBox->rcd - steps[axis];
                neigs[2 * axis + 1] = pBox->rcd + steps[axis];
            }
        }
        for (size_t i = 0; i < numNeigs; ++i)
        {
            RCDBox* const pNeig = newBoxes.find(neigs[i]);
            if (pNeig == nullptr || pNeig->bDone)
                continue;
            const float d = pBox->pSource->getDistanceTo(*pNeig);
            if (d < pNeig->dist)
            {
                pNeig->dist = d;
                pNeig->pSource = pBox->pSource;
                queue.push(d, pNeig);
            }
        }
    }
    vDist2RCD.reserve(vDist2RCD.size() + vNew.size());
    for (const RCDBox* const pBox : vNew)
        vDist2RCD.emplace_back(static_cast<double>(pBox->dist), pBox->rcd);
}

} // namespace MIRT_ZAV
