// How far new cells near the rim lie from the shell.
//
// Counting steps would favour some directions of the lattice over others, and the cut with them. So the front hands on
// where it came from instead, and each cell measures the straight line to that point of the shell:
//
//     P . . . .      P, a point of the shell, is handed on from a to b. The distance of b is then the length of P-b,
//     . a . . .      not that of a way over cells. The cell with the lowest distance hands on first; until its own
//     . . . b .      turn comes, b takes any other point that it is offered and that is nearer.
//
// This is a vector distance transform (Danielsson, Euclidean Distance Mapping, 1980) in the order of Dijkstra's
// algorithm.

#include "cells/Prepare.h"

#include "base/KeyHeap.h"
#include "base/memoryLimits.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "lattice/CellBits.h"
#include "lattice/CellBricks.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>

namespace MIRT_ZAV
{
namespace
{
/// The distances from a point to the centres of a cell and of its 26 neighbours, by position.
class DistancesAround
{
public:
    /// Centres are rounded to float, and so are differences, which are taken in double: far from the origin centres
    /// lose digits, and membranes get rough. The bytes of results with closed holes depend on it.
    DistancesAround(const Point3& point, RCD r, const Calc& calc)
    {
        RCD onDiagonal = r - rcd::xUnit - rcd::yUnit - rcd::zUnit;
        for (size_t i = 0; i < 3; ++i, onDiagonal += rcd::xUnit + rcd::yUnit + rcd::zUnit)
        {
            const Point3 centre = calc.getCenter(onDiagonal);
            squareX[i] = getSquare(point.x(), centre.x());
            squareY[i] = getSquare(point.y(), centre.y());
            squareZ[i] = getSquare(point.z(), centre.z());
        }
    }

    float operator()(unsigned position) const
    {
        return std::sqrt(squareX[position % 3] + squareY[position / 3 % 3] + squareZ[position / 9]);
    }

private:
    static float getSquare(double a, double b)
    {
        const float difference = static_cast<float>(a - static_cast<double>(static_cast<float>(b)));
        return difference * difference;
    }

    float squareX[3], squareY[3], squareZ[3];
};

// Neighbours in the order in which they are reached. It decides which of equal distances the queue hands out first, and
// so which source wins.
constexpr std::array<unsigned, 6> facesByAxis = {12, 14, 10, 16, 4, 22}; // along x, then y, then z, down before up

/// All 26 by ascending code, that is, with z running fastest.
constexpr std::array<unsigned, 26> makeNeigPositions()
{
    std::array<unsigned, 26> positions{};
    size_t n = 0;
    for (unsigned i = 0; i < 27; ++i)
        if (const unsigned position = i / 9 + 3 * (i / 3 % 3) + 9 * (i % 3); position != 13)
            positions[n++] = position;
    return positions;
}
constexpr std::array<unsigned, 26> neigPositions = makeNeigPositions();

/// A number of cells that a zone can't fall below: what grows from cells too far apart to meet. Of each block of the
/// lattice as wide as what grows from one cell, one cell counts; blocks that touch take turns, in eight classes.
double getLeastZone(const std::vector<RCD>& rim, int size)
{
    const double r = size;
    const double perCell = (2.0 * r + 1.0) * (2.0 * r * r + 2.0 * r + 3.0) / 3.0; // cells within r face steps
    const u64 width = 2 * static_cast<u64>(size) + 1;
    std::array<std::vector<RCD>, 8> classes;
    for (const RCD c : rim)
    {
        const u64 x = rcd::getX(c) / width, y = rcd::getY(c) / width, z = rcd::getZ(c) / width;
        std::vector<RCD>& blocks = classes[(x % 2) * 4 + (y % 2) * 2 + z % 2];
        if (const RCD block = rcd::fromXYZ(x, y, z); blocks.empty() || blocks.back() != block)
            blocks.push_back(block);
    }
    size_t most = 0;
    for (std::vector<RCD>& blocks : classes)
    {
        oneInstance(blocks);
        most = std::max(most, blocks.size());
    }
    return static_cast<double>(most) * perCell;
}

/// Ends the run with a sentence if a zone of so many cells fits neither the memory nor places of 32 bits.
void requireRoomForZone(double numCells, int size, double side)
{
    constexpr double bytesPerCell = 90.0; // measured: lists, bricks and what pruning copies
    const std::string what = "Closing holes by growing " + toString(size) + " cells from the rims";
    if (numCells > INT_MAX)
        refuse(what + " takes more than 2147483647 cells. Take fewer cells for holes, or a greater spacing.");
    requireMemory(numCells * bytesPerCell, what, side);
}
} // namespace

void Prepare::rcdmch_getDist2RCD(MarchZone& zone, Distances& vDist2RCD) const
{
    rcdmch_reachFromShell(zone);
    getPartOfPass(5, 1).finish();
    rcdmch_march(zone);
    vDist2RCD.reserve(zone.newCells.size());
    for (size_t i = 0; i < zone.newCells.size(); ++i)
        vDist2RCD.emplace_back(std::abs(static_cast<double>(zone.dists[zone.slots[i]])), zone.newCells[i]);
}

/// Gathers the shell cells and the empty cells within a number of face steps of the rim. Nothing is reached yet.
Prepare::MarchZone Prepare::rcdmch_createZone(int size) const
{
    requireRoomForZone(getLeastZone(vBorderRCDsrt, size), size, sideLen);
    CellBits bits(vBorderRCDsrt);
    for (int step = 0; step < size; ++step)
    {
        bits.grow();
        requireRoomForZone(static_cast<double>(bits.size()), size, sideLen);
    }
    std::vector<RCD> cells = bits.getSorted();
    MarchZone zone(cells);
    zone.newCells = cells;
    removeVec(zone.newCells, vAllRCDsrt);
    zone.shellCells.swap(cells);
    keepVec(zone.shellCells, vAllRCDsrt);

    transformMT(zone.newCells, zone.slots, [&zone](RCD r) { return zone.bricks.find(r); });
    zone.dists.assign(zone.bricks.getNumSlots(), -1.0f);
    zone.sources.resize(zone.bricks.getNumSlots());
    for (const CellBricks::Slot slot : zone.slots)
        zone.dists[slot] = FLT_MAX;

    zone.shellPoints.reserve(zone.shellCells.size());
    auto q_it = vRCD2Vtxsrt.begin();
    for (const RCD r : zone.shellCells)
    {
        while (q_it != vRCD2Vtxsrt.end() && q_it->first < r)
            ++q_it;
        ZAV_ASSERT(q_it != vRCD2Vtxsrt.end() && q_it->first == r, "q_it!=vRCD2Vtxsrt.end() && q_it->first==rcd");
        ZAV_ASSERT(q_it->second != nullptr, "pFromVtx!=__null");
        zone.shellPoints.push_back(*q_it->second);
    }
    return zone;
}

/// Where the front starts: each new cell that touches the shell gets the nearest point of the shell cells around it; of
/// equally near ones, that of the cell of lowest code.
void Prepare::rcdmch_reachFromShell(MarchZone& zone) const
{
    if (zone.shellCells.empty())
        return;
    // A slice writes to the new cells of its range of x alone. It reads the shell one layer beyond on both sides, so
    // that the result is that of one thread.
    const RCD firstX = std::max<RCD>(1, rcd::getX(zone.shellCells.front())) - 1;
    const RCD numX = rcd::getX(zone.shellCells.back()) + 2 - firstX;
    forSlicesMT(static_cast<size_t>(numX), 8,
                [&](size_t begin, size_t end) { rcdmch_reachFromShell(zone, firstX + begin, firstX + end); });
}

/// The part for new cells with beginX <= x < endX.
void Prepare::rcdmch_reachFromShell(MarchZone& zone, RCD beginX, RCD endX) const
{
    const auto findShellCell = [&zone](RCD x)
    {
        const auto it = std::lower_bound(zone.shellCells.begin(), zone.shellCells.end(), rcd::fromXYZ(x, 0, 0));
        return static_cast<size_t>(it - zone.shellCells.begin());
    };
    const size_t end = findShellCell(endX + 1);
    for (size_t i = findShellCell(beginX > 0 ? beginX - 1 : 0); i < end; ++i)
    {
        const RCD r = zone.shellCells[i];
        const CellBricks::Slot slot = zone.bricks.find(r);
        const DistancesAround distances(zone.shellPoints[i], r, *pCalc);
        for (const unsigned position : neigPositions)
        {
            const RCD x = rcd::getX(r) + position % 3 - 1;
            if (x < beginX || x >= endX)
                continue;
            const CellBricks::Slot neig = zone.bricks.getNeig(slot, position);
            const float d = distances(position);
            if (d < zone.dists[neig])
            {
                zone.dists[neig] = d;
                zone.sources[neig] = static_cast<std::uint32_t>(i);
            }
        }
    }
}

/// Lets the front run until every cell it can get to has its distance.
void Prepare::rcdmch_march(MarchZone& zone) const
{
    // Keys are integers: the bits of floats from 0 on sort as the floats do.
    MIRT_TOOLS::KeyHeap queue;
    const auto push = [&queue](float dist, CellBricks::Slot slot)
    { queue.push(std::bit_cast<std::uint32_t>(dist), slot); };
    for (const CellBricks::Slot slot : zone.slots)
        if (zone.dists[slot] < FLT_MAX)
            push(zone.dists[slot], slot);

    const CellBricks& bricks = zone.bricks;
    const auto prefetch = [&zone, &bricks ](int level, CellBricks::Slot slot) __attribute__((always_inline))
    {
        if (level == 3)
        {
            __builtin_prefetch(&zone.sources[slot]);
            __builtin_prefetch(&zone.dists[slot]);
            bricks.prefetch(slot);
        }
        else if (level == 2)
        {
            const Point3* const point = &zone.shellPoints[zone.sources[slot]];
            __builtin_prefetch(point);
            __builtin_prefetch(reinterpret_cast<const char*>(point + 1) - 1);
        }
        else
            bricks.prefetchAround(slot, zone.dists.data());
    };
    ProgressPart part = getPartOfPass(20, zone.slots.size());
    while (!queue.empty())
    {
        const CellBricks::Slot slot = queue.pop(prefetch).value;
        const float dist = zone.dists[slot];
        if (std::signbit(dist))
            continue; // an older entry of a cell that has been out before, at a lower distance
        zone.dists[slot] = -dist;
        part.count();
        const std::uint32_t source = zone.sources[slot];

        const DistancesAround distances(zone.shellPoints[source], bricks.getCell(slot), *pCalc);
        const auto reachNeig = [&](unsigned position)
        {
            const CellBricks::Slot neig = bricks.getNeig(slot, position);
            const float d = distances(position);
            if (d < zone.dists[neig])
            {
                zone.dists[neig] = d;
                zone.sources[neig] = source;
                push(d, neig);
            }
        };
        // Close to the shell the nearest point changes from cell to cell, so all neighbours are offered the source.
        // Farther out those across faces are enough, at less than a quarter of the work.
        if (dist < sideLen)
            for (const unsigned position : neigPositions)
                reachNeig(position);
        else
            for (const unsigned position : facesByAxis)
                reachNeig(position);
    }
    part.finish();
}

} // namespace MIRT_ZAV
