// The loops that remove cells: by weight (prunePrioq), by distance (pruneByDistance), and whole pieces of border.
#include "cells/RemoveDeciderFast.h"

#include "base/KeyHeap.h"
#include "base/Progress.h"
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

/// The queue of prunePrioq. It hands out the lowest weight, and of equal ones the one that came first, as a multimap
/// would. The first fill stays in the sorted list it comes as; only later entries go to a heap.
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

/// getWeight for many cells: the distances, which stay the same while cells die, are computed once.
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

/// What the sweeps of one prunePrioq have in common.
struct RemoveDeciderFast::PruneRun
{
    const PointWeights& weights;
    const std::vector<RCD>& vRCD;
    bool bAllCells; // vRCD has all cells, so that neighbours needn't be looked up in it
    bool killBorders;
    std::vector<RCD> killed; // in the present sweep
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
        pMatrix->getNeigs6(address, &neigs); // they have lost a face neighbour, so they weigh less than before
        for (const RCD neig : neigs)
            if (run.bAllCells || std::binary_search(run.vRCD.begin(), run.vRCD.end(), neig))
                queue.insert(run.weights(neig), neig);
    }
}

/// The cells around a sweep's kills, sorted, each one once. Everywhere else the kinds of cells are as they were, and a
/// second look would find nothing new.
void RemoveDeciderFast::getNextCandidates(std::vector<RCD>& killed, std::vector<RCD>& candidates) const
{
    sortMT(killed.begin(), killed.end()); // cells of one block in a row are read faster
    candidates.clear();
    for (const RCD r : killed)
        appendNeigs26(r, candidates);
    oneInstance(candidates);
}

namespace
{
enum class Verdict
{
    drop, // don't keep it for later
    wait, // look again when a neighbour has died
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
        return bBorder ? Verdict::kill : Verdict::drop; // what is dropped comes back only if it was put aside while it
                                                        // was buried: which membranes are left depends on it
    return bBorder || gapBit(index) ? Verdict::wait : Verdict::kill;
}

/// By descending distance, then by cell: only identical entries are equal, so that any number of CPUs gives one order.
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

/// The cells of one pruneByDistance and their queue. Keys are ranks of distances, 0 for the greatest and the same for
/// equal ones, as they take 32 bits; among equal ranks KeyHeap's order holds.
class DistanceQueue
{
public:
    /// \param cells  those of the list, each one once and sorted
    explicit DistanceQueue(const std::vector<RCD>& cells)
        : bricks(cells), states(bricks.getNumSlots()), asides(bricks.getNumSlots())
    {
    }

    /// Reads the neighbourhoods of the cells, once: after that, kill() keeps them up to date.
    /// \param getConfiguration  called as getConfiguration(cell), on several threads
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

    /// \param sorted  by descending distance; entered in this order
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
    void run(PruningMode mode, ProgressPart& part)
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
            part.reach(rank); // nearly all distances differ
            const unsigned state = states[slot];
            if ((state & alive) == 0)
                continue; // queued more than once, or dead from the start
            const Verdict verdict = judge(mode, state & neighbourhood);
            if (verdict == Verdict::kill)
                kill(slot);
            else if (verdict == Verdict::wait)
                putAside(slot, rank);
        }
    }

    bool isDead(RCD r) const { return (states[bricks.find(r)] & alive) == 0; }

private:
    // The state of a cell is its neighbourhood as long as it lives, with its own bit saying that it does, and a flag.
    // The states of cells that aren't in the list stay 0, so that they are never touched.
    static constexpr unsigned neighbourhood = (1u << 27) - 1;
    static constexpr unsigned alive = 1u << 13;
    static constexpr unsigned isAside = 1u << 27;

    /// A cell that is put aside again keeps its first rank.
    void putAside(CellBricks::Slot slot, std::uint32_t rank)
    {
        if ((states[slot] & isAside) != 0)
            return;
        states[slot] |= isAside;
        asides[slot] = rank;
    }

    /// Neighbours that wait are queued anew. They aren't taken off the shelf for that: the next death beside them
    /// queues them once more.
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
    std::vector<std::uint32_t> asides; // by slot, the rank of a cell with isAside
    MIRT_TOOLS::KeyHeap heap;
};
} // namespace

size_t RemoveDeciderFast::pruneByDistance(PruningMode mode, std::vector<Weighted>& vDist, std::vector<RCD>& vKept,
                                          std::vector<RCD>& vKilled, ProgressPart* pPart)
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
    ProgressPart uncounted(nullptr, 0, 0);
    queue.run(mode, pPart != nullptr ? *pPart : uncounted);

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
    std::vector<RCD> watched; // the cells around the piece that aren't border now, and mustn't become it
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
        if (removingCreatesGap(r)) // seen from now: earlier kills of the piece may have made it so
            continue;
        kill(r);
        vRemoved.push_back(r);
        ++numRemoved;
    }
    return numRemoved;
}

} // namespace MIRT_ZAV
