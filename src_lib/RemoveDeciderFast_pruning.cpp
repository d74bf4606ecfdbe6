// The removal loops: by weight (prunePrioq), by distance (pruneByDistance), and of small pieces of border as a whole.
#include "RemoveDeciderFast.h"

#include "cellSets.h"
#include "sortMT.h"
#include "vectorHelpers.h"

#include <algorithm>
#include <bit>
#include <functional>

namespace MIRT_ZAV
{
namespace
{
using Weighted = std::pair<double, RCD>;

/// Finds the index of a cell in a sorted list. A directory of the rows of equal x and y makes a search a matter of few
/// cells; where the list is too thin for it, several rows share an entry.
class CellIndex
{
public:
    static constexpr size_t notFound = ~size_t(0);

    explicit CellIndex(std::vector<RCD> sortedCells) : cells(std::move(sortedCells))
    {
        if (cells.empty())
            return;
        chooseSlots();
        vFirst.reserve(slotOf(cells.back()) + 2);
        for (size_t i = 0; i < cells.size(); ++i)
            for (const size_t slot = slotOf(cells[i]); vFirst.size() <= slot;)
                vFirst.push_back(static_cast<unsigned>(i));
        vFirst.push_back(static_cast<unsigned>(cells.size()));
    }

    size_t find(RCD r) const
    {
        if (cells.empty() || r < cells.front() || r > cells.back() || rcd::getY(r) < minY || rcd::getY(r) > maxY)
            return notFound;
        const size_t slot = slotOf(r);
        const RCD* const end = cells.data() + vFirst[slot + 1];
        const RCD* it = cells.data() + vFirst[slot];
        if (end - it > 16)
            it = std::lower_bound(it, end, r);
        while (it != end && *it < r)
            ++it;
        return it != end && *it == r ? static_cast<size_t>(it - cells.data()) : notFound;
    }

    const std::vector<RCD>& getCells() const { return cells; }

private:
    size_t slotOf(RCD r) const
    {
        return ((rcd::getX(r) - minX) >> shiftX) * slotsPerX + ((rcd::getY(r) - minY) >> shiftY);
    }

    /// Slots of rows, then of planes of equal x, in the order of the cells; not many more slots than cells.
    void chooseSlots()
    {
        minX = rcd::getX(cells.front());
        for (const RCD r : cells)
        {
            minY = std::min(minY, rcd::getY(r));
            maxY = std::max(maxY, rcd::getY(r));
        }
        const u64 numX = rcd::getX(cells.back()) - minX + 1;
        while ((((maxY - minY) >> shiftY) + 1) * numX > cells.size() && (maxY - minY) >> shiftY > 0)
            ++shiftY;
        slotsPerX = ((maxY - minY) >> shiftY) + 1;
        while (numX >> shiftX > cells.size())
            ++shiftX;
    }

    std::vector<RCD> cells;
    std::vector<unsigned> vFirst; // per slot its first cell, and the end
    u64 minX = 0;
    u64 minY = ~u64(0), maxY = 0;
    u64 slotsPerX = 1;
    unsigned shiftX = 0, shiftY = 0; // the first only when the second leaves one slot per x
};

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
        std::push_heap(heap.begin(), heap.end(), comesLater);
    }

    RCD pop()
    {
        if (heap.empty() || (cursor < fill.size() && fill[cursor].first <= heap.front().weight))
            return fill[cursor++].second;
        std::pop_heap(heap.begin(), heap.end(), comesLater);
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
    static bool comesLater(const Entry& a, const Entry& b)
    {
        return a.weight != b.weight ? a.weight > b.weight : a.order > b.order;
    }

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
        : decider(deciderArg), index(takeCells(vRCDPoint))
    {
        transformMT(vRCDPoint, vDistance,
                    [this](const auto& entry) { return decider.getRelativeDistance(entry.first, entry.second); });
    }

    double operator()(RCD r) const
    {
        if (decider.pvCard2RCD_srt != nullptr)
            return decider.getCardWeight(r);
        const size_t i = index.find(r);
        ZAV_ASSERT(i != CellIndex::notFound, "q_it!=vRCDPoint.end() && q_it->first==rcd");
        return decider.countFaceNeigs(r) + decider.sideLen - vDistance[i];
    }

private:
    static std::vector<RCD> takeCells(const RCDPoints& vRCDPoint)
    {
        std::vector<RCD> cells(vRCDPoint.size());
        std::transform(vRCDPoint.begin(), vRCDPoint.end(), cells.begin(),
                       [](const auto& entry) { return entry.first; });
        return cells;
    }

    const RemoveDeciderFast& decider;
    CellIndex index;
    std::vector<double> vDistance; // relative distance of a point to the centre of its cell
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
/// The queue of pruneByDistance: a heap with the greatest distance on top, and the cells put aside, which can come
/// back. The order of equal distances follows from the order of pushes alone.
class DistanceQueue
{
public:
    /// \param sorted  by descending distance; pushed in this order
    DistanceQueue(const std::vector<Weighted>& sorted, std::vector<RCD> sortedCells)
        : heap(sorted), index(std::move(sortedCells)), vAside(index.getCells().size())
    {
        // A list in descending order is the heap that pushing it one by one makes.
    }

    bool empty() const { return heap.empty(); }

    Weighted pop()
    {
        std::pop_heap(heap.begin(), heap.end(), Func_ltFirstComponent());
        const Weighted top = heap.back();
        heap.pop_back();
        return top;
    }

    /// Keeps the first distance with which the cell was put aside.
    void putAside(const Weighted& entry)
    {
        Aside& aside = vAside[index.find(entry.second)];
        if (!aside.bThere)
            aside = {entry.first, true};
    }

    /// A cell that was put aside is queued again; it stays put aside, so that it can come back more than once.
    void pushBack(RCD r)
    {
        const size_t i = index.find(r);
        if (i == CellIndex::notFound || !vAside[i].bThere)
            return;
        heap.emplace_back(vAside[i].distance, r);
        std::push_heap(heap.begin(), heap.end(), Func_ltFirstComponent());
    }

private:
    struct Aside
    {
        double distance = 0.0;
        bool bThere = false;
    };

    std::vector<Weighted> heap;
    CellIndex index;
    std::vector<Aside> vAside; // per cell of the index
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

void sortByDistance(std::vector<Weighted>& vDist)
{
    // Cells are part of the order, so that it is the same for every number of CPUs.
    sortMT(vDist.begin(), vDist.end(),
           [](const Weighted& a, const Weighted& b)
           { return a.first != b.first ? a.first > b.first : a.second < b.second; });
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
        const Weighted top = queue.pop();
        const RCD r = top.second;
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
            for (const RCD neig : neigs)
                queue.pushBack(neig);
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
