// The removal loops: by weight (prunePrioq), by distance (pruneByDistance), and of small pieces of border as a whole.
#include "RemoveDeciderFast.h"

#include "CellIndex.h"
#include "cellSets.h"
#include "sortMT.h"
#include "vectorHelpers.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <queue>

namespace MIRT_ZAV
{
namespace
{
using Weighted = std::pair<double, RCD>;

/// The queue of prunePrioq: entries in ascending order of weight, equal ones in the order in which they came. The first
/// fill is a sorted list that is read off in order; a binary heap takes what comes later.
class PruneQueue
{
public:
    explicit PruneQueue(std::vector<Weighted> sortedFill) : fill(std::move(sortedFill)) {}

    bool empty() const { return cursor == fill.size() && heap.empty(); }

    void insert(double weight, RCD r)
    {
        heap.push_back({weight, heapCounter++, r});
        std::push_heap(heap.begin(), heap.end(), ComesLater());
    }

    RCD pop()
    {
        if (heap.empty() || (cursor < fill.size() && fill[cursor].first <= heap.front().weight))
            return fill[cursor++].second;
        std::pop_heap(heap.begin(), heap.end(), ComesLater());
        const RCD r = heap.back().cell;
        heap.pop_back();
        return r;
    }

private:
    struct Entry
    {
        double weight;
        u64 order;
        RCD cell;
    };
    struct ComesLater
    {
        bool operator()(const Entry& a, const Entry& b) const
        {
            return a.weight != b.weight ? a.weight > b.weight : a.order > b.order;
        }
    };

    std::vector<Weighted> fill;
    size_t cursor = 0;
    std::vector<Entry> heap;
    u64 heapCounter = 0;
};
} // namespace

/// getWeight for many cells: the part that doesn't change while cells die is computed once.
class RemoveDeciderFast::PointWeights
{
public:
    PointWeights(const RemoveDeciderFast& deciderArg, const RCDPoints& vRCDPoint)
        : decider(deciderArg), index(getCells(vRCDPoint))
    {
        transformMT(vRCDPoint, distances,
                    [this](const auto& entry) { return decider.getRelativeDistance(entry.first, entry.second); });
    }

    double operator()(RCD r) const
    {
        if (decider.pvCard2RCD_srt != nullptr)
            return decider.getCardWeight(r);
        const size_t place = index.find(r);
        ZAV_ASSERT(place != CellIndex::notFound, "q_it!=vRCDPoint.end() && q_it->first==rcd");
        return decider.countFaceNeigs(r) + decider.sideLen - distances[place];
    }

private:
    static std::vector<RCD> getCells(const RCDPoints& vRCDPoint)
    {
        std::vector<RCD> cells;
        transformMT(vRCDPoint, cells, [](const auto& entry) { return entry.first; });
        return cells;
    }

    const RemoveDeciderFast& decider;
    CellIndex index;               // of the cells with a point
    std::vector<double> distances; // of each one's point to the centre of its cell, relative
};

/// What the sweeps of one prunePrioq share.
struct RemoveDeciderFast::PruneRun
{
    const PointWeights& weights;
    const std::vector<RCD>& vRCD;
    bool bAllCells; // vRCD has every cell that can come up
    bool killBorders;
    std::vector<RCD> killed; // by the present sweep
};

std::vector<Weighted> RemoveDeciderFast::weighSorted(const std::vector<RCD>& cells, const PointWeights& weights) const
{
    std::vector<Weighted> weighted;
    transformMT(cells, weighted, [&weights](RCD r) { return Weighted(weights(r), r); });
    sortMT(weighted.begin(), weighted.end());
    return weighted;
}

void RemoveDeciderFast::createPrioq(std::vector<RCD>& cells, const RCDPoints& vRCDPoint,
                                    std::multimap<double, RCD>& queue) const
{
    for (const Weighted& entry : weighSorted(cells, PointWeights(*this, vRCDPoint)))
        queue.insert(entry);
}

size_t RemoveDeciderFast::prunePrioq(const RCDPoints& vRCDPoint, const std::vector<RCD>& vRCD, std::vector<RCD>& vKept,
                                     std::vector<RCD>& vRemoved, bool killBorders, bool prePrune)
{
    size_t numRemoved = prePrune ? prePruneSmallBorderCCs(vRemoved) : 0;

    const PointWeights weights(*this, vRCDPoint);
    PruneRun run{weights, vRCD, vRCD.size() >= vRCDPoint.size(), killBorders, {}};
    std::vector<RCD> candidates = vRCD;
    do
    {
        sweepPrioq(candidates, run);
        getNextCandidates(run.killed, candidates);
        keepVec(candidates, vRCD);
        vRemoved.insert(vRemoved.end(), run.killed.begin(), run.killed.end());
        numRemoved += run.killed.size();
    } while (!run.killed.empty());

    sortMT(vRemoved.begin(), vRemoved.end());
    vKept = vRCD;
    removeVec(vKept, vRemoved);
    return numRemoved;
}

void RemoveDeciderFast::sweepPrioq(const std::vector<RCD>& candidates, PruneRun& run)
{
    run.killed.clear();
    PruneQueue queue(weighSorted(candidates, run.weights));
    std::vector<RCD> neigs;
    while (!queue.empty())
    {
        const RCD r = queue.pop();
        RCDMatrix* const pMatrix = store.getRCDMatrix(r);
        const ADDR address = RCDMatrix::rcdToAddress(r);
        const unsigned config = pMatrix->getConfiguration(address);
        if (config == 0)
            continue;
        const auto index = static_cast<unsigned>(getAlternativeBitmap(config));
        if ((!run.killBorders && borderBit(index)) || gapBit(index))
            continue;

        kill(r);
        run.killed.push_back(r);
        neigs.clear();
        pMatrix->getNeigs6(address, &neigs); // their weights count the cell that went
        for (const RCD neig : neigs)
            if (run.bAllCells || std::binary_search(run.vRCD.begin(), run.vRCD.end(), neig))
                queue.insert(run.weights(neig), neig);
    }
}

/// The cells around a sweep's kills, as a set: one whose neighbourhood didn't change can't change its answer.
void RemoveDeciderFast::getNextCandidates(std::vector<RCD>& killed, std::vector<RCD>& candidates) const
{
    sortMT(killed.begin(), killed.end()); // near cells in a row are read faster
    candidates.clear();
    for (const RCD r : killed)
        appendNeigs26(r, candidates);
    oneInstance(candidates);
}

namespace
{
/// The queue of pruneByDistance: the greatest distance first, among equal ones the lower cell; and the entries put
/// aside, which can come back. An entry is known by its rank, its place in that order: the list is read off in order,
/// and a heap of ranks takes what comes back.
class DistanceQueue
{
public:
    using Rank = std::uint32_t;

    /// \param sortedArg  in the order of the queue
    /// \param cells      all cells of the list, as a sorted set
    DistanceQueue(const std::vector<Weighted>& sortedArg, const std::vector<RCD>& cells)
        : sorted(sortedArg), index(cells), asides(cells.size(), notAside)
    {
    }

    bool empty() const { return cursor == sorted.size() && comeBack.empty(); }

    Rank pop()
    {
        if (comeBack.empty() || (cursor < sorted.size() && cursor < comeBack.top()))
            return cursor++;
        const Rank rank = comeBack.top();
        comeBack.pop();
        return rank;
    }

    RCD getCell(Rank rank) const { return sorted[rank].second; }

    /// Of several entries of a cell the first one put aside counts.
    void putAside(Rank rank)
    {
        Rank& aside = asides[index.find(getCell(rank))];
        if (aside == notAside)
            aside = rank;
    }

    /// Those of some cells that were put aside are queued again; they stay put aside, so that they can come back more
    /// than once.
    void pushBack(const std::vector<RCD>& cells)
    {
        places.clear();
        for (const RCD r : cells)
            if (const size_t place = index.find(r); place != CellIndex::notFound)
            {
                __builtin_prefetch(&asides[place]); // all at once, not one by one
                places.push_back(place);
            }
        for (const size_t place : places)
            if (asides[place] != notAside)
                comeBack.push(asides[place]);
    }

private:
    static constexpr Rank notAside = ~Rank(0);

    const std::vector<Weighted>& sorted;
    Rank cursor = 0;
    std::priority_queue<Rank, std::vector<Rank>, std::greater<>> comeBack;
    CellIndex index;
    std::vector<Rank> asides;   // by place
    std::vector<size_t> places; // scratch space of pushBack
};

enum class Verdict
{
    drop, // not looked at again in this call
    wait, // until a neighbour dies
    kill
};

/// What pruneByDistance does with an alive cell.
Verdict judge(PruningMode mode, unsigned config)
{
    if ((config & RCDMatrix::faceMask) == RCDMatrix::faceMask)
        return Verdict::wait;
    const auto index = static_cast<unsigned>(getAlternativeBitmap(config));
    const bool bBorder = borderBit(index);
    if (mode == PM_PRUNE_BORDERS && !bBorder)
        return Verdict::drop; // deliberately not put aside: a gap cell with an empty face is given up for the call
    if (mode == PM_PRUNE_AREA && bBorder)
        return Verdict::wait;
    return gapBit(index) ? Verdict::wait : Verdict::kill;
}

/// By descending distance, then by cell, so that the order is the same for every number of CPUs.
void sortByDistance(std::vector<Weighted>& vDist)
{
    const auto negate = [&vDist]
    {
        for (Weighted& entry : vDist)
            entry.first = -entry.first;
    };
    negate();
    sortMT(vDist.begin(), vDist.end());
    negate();
}
} // namespace

size_t RemoveDeciderFast::pruneByDistance(PruningMode mode, std::vector<Weighted>& vDist, std::vector<RCD>& vKept,
                                          std::vector<RCD>& vKilled)
{
    vKept.clear();
    vKilled.clear();
    sortByDistance(vDist);
    std::vector<RCD> all;
    all.reserve(vDist.size());
    for (const Weighted& entry : vDist)
        all.push_back(entry.second);
    oneInstance(all);

    size_t numRemoved = 0;
    DistanceQueue queue(vDist, all);
    std::vector<RCD> neigs;
    while (!queue.empty())
    {
        const DistanceQueue::Rank top = queue.pop();
        const RCD r = queue.getCell(top);
        const unsigned config = getConfiguration(r);
        if (config == 0)
        {
            vKilled.push_back(r); // queued twice, or dead from the start
            continue;
        }
        switch (judge(mode, config))
        {
        case Verdict::drop:
            break;
        case Verdict::wait:
            queue.putAside(top);
            break;
        case Verdict::kill:
            kill(r);
            ++numRemoved;
            vKilled.push_back(r);
            neigs.clear();
            appendNeigs26(r, neigs);
            queue.pushBack(neigs);
        }
    }

    oneInstance(vKilled);
    removeVec(all, vKilled);
    vKept.swap(all);
    return numRemoved;
}

size_t RemoveDeciderFast::prePruneSmallBorderCCs(std::vector<RCD>& vRemoved)
{
    constexpr size_t maxSize = 40;
    std::vector<RCD> area, border;
    detectAreaAndBorder(area, border);
    std::vector<std::vector<RCD>> components;
    createCC_RCD(border, components);
    size_t numRemoved = 0;
    for (std::vector<RCD>& cc : components)
        if (cc.size() <= maxSize)
            numRemoved += tryRemoveBorderCC(cc, vRemoved);
    return numRemoved;
}

size_t RemoveDeciderFast::tryRemoveBorderCC(std::vector<RCD>& cc, std::vector<RCD>& vRemoved)
{
    std::vector<RCD> watched; // the cells around the piece that aren't border
    for (const RCD r : cc)
        appendNeigs26(r, watched);
    oneInstance(watched);
    sortMT(cc.begin(), cc.end());
    removeVec(watched, cc);
    const auto isBorderNow = [this](RCD r) { return isBorder(r); };
    watched.erase(std::remove_if(watched.begin(), watched.end(), isBorderNow), watched.end());

    for (const RCD r : cc)
        kill(r);
    const bool bSpreads = std::any_of(watched.begin(), watched.end(), isBorderNow);
    for (const RCD r : cc)
        unkill(r);
    if (bSpreads)
        return 0;

    size_t numRemoved = 0;
    for (const RCD r : cc)
    {
        if (removingCreatesGap(r)) // on the state that the earlier kills left
            continue;
        kill(r);
        vRemoved.push_back(r);
        ++numRemoved;
    }
    return numRemoved;
}

} // namespace MIRT_ZAV
