#include "lattice/cellSets.h"

#include "base/sortMT.h"
#include "base/vectorHelpers.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

namespace MIRT_ZAV
{
namespace
{
/// The cells one face step from a layer, without those of the layer itself and of the one before. Shifted by a
/// constant, a sorted list stays sorted: the six shifted copies are merged in one pass. A step below code 0 is left
/// out, since it would wrap round to the largest codes and the copy would be sorted no more.
std::vector<RCD> getNextLayer(const std::vector<RCD>& layer, const std::vector<RCD>& previous)
{
    constexpr std::array<RCD, 3> units = {rcd::xUnit, rcd::yUnit, rcd::zUnit};
    constexpr std::array<RCD, 6> steps = {~rcd::xUnit + 1, ~rcd::yUnit + 1, ~rcd::zUnit + 1,
                                          rcd::xUnit,      rcd::yUnit,      rcd::zUnit};
    constexpr RCD beyond = ~RCD(0); // above every code
    const size_t n = layer.size();
    std::array<size_t, 6> cursor{};
    for (size_t i = 0; i < units.size(); ++i)
        cursor[i] = static_cast<size_t>(std::lower_bound(layer.begin(), layer.end(), units[i]) - layer.begin());
    std::array<RCD, 6> head;
    const auto headAt = [&](size_t i) { return cursor[i] < n ? layer[cursor[i]] + steps[i] : beyond; };
    for (size_t i = 0; i < 6; ++i)
        head[i] = headAt(i);

    std::vector<RCD> next;
    next.reserve(2 * n);
    auto itLayer = layer.begin();
    auto itPrevious = previous.begin();
    const auto isIn = [](auto& it, auto end, RCD r)
    {
        while (it != end && *it < r)
            ++it;
        return it != end && *it == r;
    };
    for (;;)
    {
        const RCD r = *std::min_element(head.begin(), head.end());
        if (r == beyond)
            return next;
        for (size_t i = 0; i < 6; ++i)
            while (head[i] == r) // more than once where the input names a cell twice
            {
                ++cursor[i];
                head[i] = headAt(i);
            }
        const bool bInLayer = isIn(itLayer, layer.end(), r);
        const bool bInPrevious = isIn(itPrevious, previous.end(), r);
        if (!bInLayer && !bInPrevious)
            next.push_back(r);
    }
}

/// Disjoint sets of indices (union-find with path halving). A set is known by its smallest index.
class UnionFind
{
public:
    explicit UnionFind(size_t n) : parent(n) { std::iota(parent.begin(), parent.end(), 0u); }

    std::uint32_t find(std::uint32_t i)
    {
        for (; parent[i] != i; i = parent[i])
            parent[i] = parent[parent[i]];
        return i;
    }

    void join(std::uint32_t i, std::uint32_t j)
    {
        i = find(i);
        j = find(j);
        if (i < j)
            parent[j] = i;
        else
            parent[i] = j;
    }

private:
    std::vector<std::uint32_t> parent;
};

/// Codes that touch a cell: a run above its own code, from cell + first to cell + last.
struct TouchingRun
{
    RCD first;
    RCD last;
};

/// Components of cells that are tied by the given runs. Every cell looks for those before it whose runs hold it, along
/// cursors that never turn round. Runs are added to the earlier cell, never taken from the later: at coordinate 0 that
/// would wrap round.
void createComponents(const std::vector<RCD>& cells, const std::vector<TouchingRun>& runs,
                      std::vector<std::vector<RCD>>& components)
{
    std::vector<RCD> sorted = cells;
    oneInstance(sorted);

    UnionFind sets(sorted.size());
    for (const TouchingRun& run : runs)
    {
        size_t cursor = 0;
        for (size_t i = 0; i < sorted.size(); ++i)
        {
            while (cursor < i && sorted[cursor] + run.last < sorted[i])
                ++cursor;
            for (size_t j = cursor; j < i && sorted[j] + run.first <= sorted[i]; ++j)
                sets.join(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j));
        }
    }

    constexpr size_t noComponent = ~size_t(0);
    std::vector<size_t> componentOf(sorted.size(), noComponent);
    std::vector<bool> placed(sorted.size(), false); // a cell that the input names twice counts once
    for (const RCD r : cells)
    {
        const auto position = std::lower_bound(sorted.begin(), sorted.end(), r) - sorted.begin();
        if (placed[static_cast<size_t>(position)])
            continue;
        placed[static_cast<size_t>(position)] = true;
        size_t& component = componentOf[sets.find(static_cast<std::uint32_t>(position))];
        if (component == noComponent)
        {
            component = components.size();
            components.emplace_back();
        }
        components[component].push_back(r);
    }
}
} // namespace

void inflateRCD(std::vector<RCD>& cells, int numSteps, bool bKeepInput, std::vector<RCD>& out)
{
    if (numSteps < 0)
        return;
    std::vector<RCD> layer = cells;
    sortMT(layer.begin(), layer.end());
    if (bKeepInput)
        out.insert(out.end(), layer.begin(), layer.end());
    // From the outermost shell, a face step can't lead further in than to the shell before it: these two are all that
    // has to be kept.
    std::vector<RCD> previous;
    for (int s = 0; s < numSteps; ++s)
    {
        std::vector<RCD> next = getNextLayer(layer, previous);
        out.insert(out.end(), next.begin(), next.end());
        previous.swap(layer);
        layer.swap(next);
    }
}

void createCC_RCD(std::vector<RCD>& cells, std::vector<std::vector<RCD>>& components)
{
    // The 13 neighbours that sort behind a cell r: four columns of three cells along z, and the next cell in its own.
    //
    //            y-1   y   y+1
    //     x+1     C    C    C       C: column
    //     x       .    r    C
    //     x-1     .    .    .
    const auto column = [](RCD offset) { return TouchingRun{offset - rcd::zUnit, offset + rcd::zUnit}; };
    createComponents(cells,
                     {column(rcd::xUnit + rcd::yUnit),
                      column(rcd::xUnit),
                      column(rcd::xUnit - rcd::yUnit),
                      column(rcd::yUnit),
                      {rcd::zUnit, rcd::zUnit}},
                     components);
}

void createCC_RCD_6Neig(std::vector<RCD>& cells, std::vector<std::vector<RCD>>& components)
{
    const auto single = [](RCD unit) { return TouchingRun{unit, unit}; };
    createComponents(cells, {single(rcd::xUnit), single(rcd::yUnit), single(rcd::zUnit)}, components);
}

void getNeigs26(std::vector<RCD>& sortedSet, RCD r, std::vector<RCD>& out)
{
    RCD neigs[26];
    Calc::completeArray26_RCD(r, neigs);
    auto it = sortedSet.begin();
    for (const RCD neig : neigs) // ascending, so that every search starts where the last one ended
    {
        it = std::lower_bound(it, sortedSet.end(), neig);
        if (it == sortedSet.end())
            return;
        if (*it == neig)
            out.push_back(neig);
    }
}

namespace
{
/// Whether two cells share at least a corner.
bool touch(RCD a, RCD b)
{
    const auto near = [](u64 i, u64 j) { return i <= j + 1 && j <= i + 1; };
    return near(rcd::getX(a), rcd::getX(b)) && near(rcd::getY(a), rcd::getY(b)) && near(rcd::getZ(a), rcd::getZ(b));
}

/// The first of the cells that touches no other one of them, or the end.
std::vector<RCD>::const_iterator findLone(const std::vector<RCD>& cells)
{
    return std::find_if(
        cells.begin(), cells.end(),
        [&cells](RCD s)
        { return std::none_of(cells.begin(), cells.end(), [s](RCD other) { return other != s && touch(s, other); }); });
}

/// Whether a way through the set, other than the direct step, leads from a cell to a given neighbour of it.
bool leadsRound(std::vector<RCD>& sortedCells, RCD from, RCD to)
{
    std::vector<bool> visited(sortedCells.size(), false);
    const auto visit = [&](RCD r)
    {
        const auto index = std::lower_bound(sortedCells.begin(), sortedCells.end(), r) - sortedCells.begin();
        const bool bNew = !visited[static_cast<size_t>(index)];
        visited[static_cast<size_t>(index)] = true;
        return bNew;
    };
    visit(from);
    std::vector<RCD> stack = {from};
    std::vector<RCD> neigs;
    while (!stack.empty())
    {
        const RCD r = stack.back();
        stack.pop_back();
        if (r == to)
            return true;
        neigs.clear();
        getNeigs26(sortedCells, r, neigs);
        for (const RCD neig : neigs)
            if (!(r == from && neig == to) && visit(neig))
                stack.push_back(neig);
    }
    return false;
}
} // namespace

bool isRing(std::vector<RCD>& sortedCells, int start)
{
    std::vector<RCD> neigs;
    for (size_t i = static_cast<size_t>(start); i < sortedCells.size(); ++i)
    {
        neigs.clear();
        getNeigs26(sortedCells, sortedCells[i], neigs);
        const auto lone = findLone(neigs);
        if (lone != neigs.end())
            return leadsRound(sortedCells, *lone, sortedCells[i]);
    }
    return false;
}

void getRCC2RCD(std::vector<RCD>& cells, std::vector<std::pair<RCC, RCD>>& out)
{
    out.reserve(out.size() + 8 * cells.size());
    for (const RCD r : cells)
        for (RCD vertex = 0; vertex < 8; ++vertex)
            out.emplace_back(
                r + (vertex >> 2) * rcd::xUnit + (vertex >> 1 & 1) * rcd::yUnit + (vertex & 1) * rcd::zUnit, r);
    sortMT(out.begin(), out.end());
}

} // namespace MIRT_ZAV
