// The removal loops: by weight (prunePrioq), by distance (pruneByDistance), and of small pieces of border as a whole.
#include "cells/RemoveDeciderFast.h"

#include "base/KeyHeap.h"
#include "base/sortMT.h"
#include "base/vectorHelpers.h"
#include "lattice/CellBricks.h"
#include "lattice/CellIndex.h"
#include "lattice/cellSets.h"

#include <algorithm>
#include <bit>
#include <cstdint>

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
    const bool bBorder = borderBit(index); // and so no gap cell
    if (mode == PM_PRUNE_BORDERS)
        return bBorder ? Verdict::kill : Verdict::drop; // deliberately not put aside: a gap cell with an empty face is
                                                        // given up for the call
    return bBorder || gapBit(index) ? Verdict::wait : Verdict::kill;
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

/// The candidates of one pruneByDistance and their queue. Entries have the rank of their distance in place of it, the
/// greatest first. Those put aside can come back.
class DistanceQueue
{
public:
    /// \param cells  all cells of the list, as a sorted set
    explicit DistanceQueue(const std::vector<RCD>& cells)
        : bricks(cells), states(bricks.getNumSlots()), asides(bricks.getNumSlots())
    {
    }

    /// Looks up the neighbourhoods of the cells. Later kills are followed here, and don't go back to the source.
    template <class F>
    void setConfigurations(const std::vector<RCD>& cells, const F& getConfiguration)
    {
        forSlicesMT(cells.size(), 8,
                    [&](size_t begin, size_t end)
                    {
                        for (size_t i = begin; i < end; ++i)
                            states[bricks.find(cells[i])] = getConfiguration(cells[i]);
                    });
    }

    /// Queues a list that is sorted by descending distance, in its order.
    void push(const std::vector<Weighted>& sorted)
    {
        std::vector<CellBricks::Slot> slots;
        transformMT(sorted, slots, [this](const Weighted& entry) { return bricks.find(entry.second); });
        heap.reserve(sorted.size());
        std::uint32_t rank = 0;
        for (size_t i = 0; i < sorted.size(); ++i)
        {
            rank += i > 0 && sorted[i].first < sorted[i - 1].first ? 1 : 0;
            heap.push(rank, slots[i]);
        }
    }

    /// Kills the cells that the mode allows, one after the other.
    void run(PruningMode mode)
    {
        const auto prefetch = [this](int level, CellBricks::Slot slot) __attribute__((always_inline))
        {
            if (level == 3)
            {
                __builtin_prefetch(&states[slot]);
                bricks.prefetch(slot);
            }
            else if (level == 1)
                bricks.prefetchAround(slot, states.data());
        };
        while (!heap.empty())
        {
            const auto [slot, rank] = heap.pop(prefetch);
            const unsigned state = states[slot];
            if ((state & alive) == 0)
                continue; // queued twice, or dead from the start
            const Verdict verdict = judge(mode, state & neighbourhood);
            if (verdict == Verdict::kill)
                kill(slot);
            else if (verdict == Verdict::wait)
                putAside(slot, rank);
        }
    }

    bool isDead(RCD r) const { return (states[bricks.find(r)] & alive) == 0; }

private:
    // The state of a cell of the list is its neighbourhood, up to date as long as it lives, and a flag; other cells
    // count as dead.
    static constexpr unsigned neighbourhood = (1u << 27) - 1;
    static constexpr unsigned alive = 1u << 13;
    static constexpr unsigned isAside = 1u << 27;

    /// Of several entries of a cell the first one put aside counts.
    void putAside(CellBricks::Slot slot, std::uint32_t rank)
    {
        if ((states[slot] & isAside) != 0)
            return;
        states[slot] |= isAside;
        asides[slot] = rank;
    }

    /// Neighbours that were put aside are queued again; they stay put aside, so that they can come back more than once.
    void kill(CellBricks::Slot slot)
    {
        states[slot] &= ~alive;
        for (unsigned rest = states[slot] & neighbourhood; rest != 0; rest &= rest - 1)
        {
            const auto position = static_cast<unsigned>(std::countr_zero(rest));
            const CellBricks::Slot neig = bricks.getNeig(slot, position);
            states[neig] &= ~(1u << (26 - position));
            if ((states[neig] & isAside) != 0)
                heap.push(asides[neig], neig);
        }
    }

    CellBricks bricks;
    std::vector<unsigned> states;      // by slot
    std::vector<std::uint32_t> asides; // by slot, the rank of what was put aside
    MIRT_TOOLS::KeyHeap heap;
};
} // namespace

size_t RemoveDeciderFast::pruneByDistance(PruningMode mode, std::vector<Weighted>& vDist, std::vector<RCD>& vKept,
                                          std::vector<RCD>& vKilled)
{
    vKept.clear();
    vKilled.clear();
    std::vector<RCD> all;
    transformMT(vDist, all, [](const Weighted& entry) { return entry.second; });
    oneInstance(all);
    sortByDistance(vDist);

    DistanceQueue queue(all);
    queue.setConfigurations(all, [this](RCD r) { return getConfiguration(r); });
    queue.push(vDist);
    queue.run(mode);

    size_t numRemoved = 0;
    for (const RCD r : all)
    {
        if (!queue.isDead(r))
        {
            vKept.push_back(r);
            continue;
        }
        vKilled.push_back(r);
        if (isAlive(r))
        {
            kill(r);
            ++numRemoved;
        }
    }
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
