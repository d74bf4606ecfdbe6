// How far new cells near the rim lie from the shell.
//
// Not a grid distance: as in a vector distance transform, a front of cells marches outwards, every cell inherits its
// nearest shell point from the cell that reached it, and the distance is the Euclidean one to that point.

#include "Prepare.h"

#include "CellIndex.h"
#include "cellSets.h"
#include "sortMT.h"
#include "tools.h"
#include "vectorHelpers.h"

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
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

/// The smallest distance on top, compared by distance alone: among equals the order of pushes decides. A distance and
/// the number of a new box make one word: the bits of floats that aren't negative sort as the floats do.
class Prepare::PrioqRCDBox
{
public:
    void push(float dist, size_t box) { queue.push(u64(std::bit_cast<std::uint32_t>(dist)) << 32 | box); }
    bool empty() const { return queue.empty(); }
    size_t pop()
    {
        const u64 top = queue.top();
        queue.pop();
        return top & 0xffffffff;
    }

private:
    struct IsFarther
    {
        bool operator()(u64 a, u64 b) const { return a >> 32 > b >> 32; }
    };
    std::priority_queue<u64, std::vector<u64>, IsFarther> queue;
};

void Prepare::rcdmch_getDist2RCD(int size, Distances& vDist2RCD)
{
    MIRT_TOOLS::SimplePool<RCDBox> pool;
    std::vector<RCDBox*> vShell, vNew;
    rcdmch_createRCDBoxes(pool, size, vShell, vNew);
    std::vector<RCD> newCells;
    transformMT(vNew, newCells, [](const RCDBox* pBox) { return pBox->rcd; });
    const CellIndex index(newCells);
    PrioqRCDBox queue;
    rcdmch_createPrioq(vShell, vNew, index, queue);
    rcdmch_marchRCD(queue, vNew, index, vDist2RCD);
}

void Prepare::rcdmch_createRCDBoxes(MIRT_TOOLS::SimplePool<RCDBox>& pool, int size, std::vector<RCDBox*>& vShell,
                                    std::vector<RCDBox*>& vNew) const
{
    std::vector<RCD> zone;
    std::vector<RCD> border = vBorderRCDsrt;
    inflateRCD(border, size, true, zone);
    sortMT(zone.begin(), zone.end());
    ZAV_ASSERT(zone.size() < size_t(INT_MAX), "zone.size()<INT_MAX"); // one container, places of 32 bits
    pool.init(static_cast<int>(zone.size()), -1);

    std::vector<RCD> newCells = zone;
    removeVec(newCells, vAllRCDsrt);
    vNew.reserve(newCells.size());
    for (const RCD r : newCells)
    {
        const Point3 centre = pCalc->getCenter(r);
        vNew.push_back(new (pool.take()) RCDBox{FLT_MAX, false, r, nullptr, nullptr, static_cast<float>(centre.x()),
                                                static_cast<float>(centre.y()), static_cast<float>(centre.z())});
    }

    std::vector<RCD>& shellCells = zone;
    keepVec(shellCells, vAllRCDsrt);
    vShell.reserve(shellCells.size());
    auto q_it = vRCD2Vtxsrt.begin();
    for (const RCD r : shellCells)
    {
        while (q_it != vRCD2Vtxsrt.end() && q_it->first < r)
            ++q_it;
        ZAV_ASSERT(q_it != vRCD2Vtxsrt.end() && q_it->first == r, "q_it!=vRCD2Vtxsrt.end() && q_it->first==rcd");
        RCDBox* const pBox = new (pool.take()) RCDBox{0.0f, true, r, q_it->second, nullptr, 0.0f, 0.0f, 0.0f};
        pBox->pSource = pBox;
        vShell.push_back(pBox);
    }
}

void Prepare::rcdmch_createPrioq(const std::vector<RCDBox*>& vShell, const std::vector<RCDBox*>& vNew,
                                 const CellIndex& index, PrioqRCDBox& queue) const
{
    std::vector<size_t> vReached;
    for (RCDBox* const pShellBox : vShell)
    {
        const Point3* const pFromVtx = pShellBox->pVtx;
        ZAV_ASSERT(pFromVtx != nullptr, "pFromVtx!=__null");
        index.forEachAround(pShellBox->rcd,
                            [&](size_t i)
                            {
                                RCDBox* const pBox = vNew[i];
                                const float d = pShellBox->getDistanceTo(*pBox);
                                if (d < pBox->dist)
                                {
                                    pBox->dist = d;
                                    pBox->pSource = pShellBox;
                                    vReached.push_back(i);
                                }
                            });
    }
    oneInstanceMT(vReached);
    for (const size_t i : vReached)
        if (vNew[i]->dist < FLT_MAX)
            queue.push(vNew[i]->dist, i);
}

void Prepare::rcdmch_marchRCD(PrioqRCDBox& queue, const std::vector<RCDBox*>& vNew, const CellIndex& index,
                              Distances& vDist2RCD) const
{
    RCDBox* const boxes = vNew.empty() ? nullptr : vNew.front(); // they lie side by side
    std::vector<size_t> neigs;
    while (!queue.empty())
    {
        RCDBox& box = boxes[queue.pop()];
        if (box.bDone)
            continue;
        box.bDone = true;

        neigs.clear();
        const auto collect = [&neigs, boxes](size_t i)
        {
            __builtin_prefetch(boxes + i); // the front jumps about: fetch all neighbours at once, not one by one
            neigs.push_back(i);
        };
        // Near the shell the march must pass diagonal gaps; farther out six directions are enough.
        if (box.dist < sideLen)
            index.forEachAround(box.rcd, collect);
        else
            for (const RCD step : {rcd::xUnit, rcd::yUnit, rcd::zUnit})
                for (const RCD neig : {box.rcd - step, box.rcd + step})
                    if (const size_t i = index.find(neig); i != CellIndex::notFound)
                        collect(i);

        for (const size_t i : neigs)
        {
            RCDBox& neig = boxes[i];
            if (neig.bDone)
                continue;
            const float d = box.pSource->getDistanceTo(neig);
            if (!(d < neig.dist))
                continue;
            neig.dist = d;
            neig.pSource = box.pSource;
            queue.push(d, i);
        }
    }
    vDist2RCD.reserve(vDist2RCD.size() + vNew.size());
    for (const RCDBox* const pBox : vNew)
        vDist2RCD.emplace_back(static_cast<double>(pBox->dist), pBox->rcd);
}

} // namespace MIRT_ZAV
