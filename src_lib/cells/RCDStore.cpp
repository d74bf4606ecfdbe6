#include "cells/RCDStore.h"

#include "base/sortMT.h"

#include <algorithm>
#include <atomic>

namespace MIRT_ZAV
{

RCDStore::RCDStore(Calc* calcArg, std::vector<RCD>& cells) : calc(calcArg), label(getLabel())
{
    constructStore(cells);
}

unsigned RCDStore::getLabel()
{
    static std::atomic<unsigned> lastLabel{0};
    return ++lastLabel;
}

void RCDStore::constructStore(const std::vector<RCD>& cells)
{
    std::vector<std::pair<RCD, RCD>> list; // upper and lower part of a code
    list.reserve(cells.size());
    for (const RCD r : cells)
        list.emplace_back(r & ~RCDMatrix::lowerMask, r & RCDMatrix::lowerMask);
    sortByFirstMT(list.begin(), list.end()); // inside a block the order doesn't matter

    createBlocks(list);
    linkBlocks();
}

void RCDStore::createBlocks(std::vector<std::pair<RCD, RCD>>& list)
{
    std::vector<size_t> vFirst; // where the run of a block begins
    for (size_t i = 0; i < list.size(); ++i)
        if (i == 0 || list[i].first != list[i - 1].first)
        {
            vFirst.push_back(i);
            vUpper.push_back(list[i].first);
        }
    vFirst.push_back(list.size());

    layerPool.init(static_cast<int>(std::max<size_t>(64, 4 * vUpper.size())), -1);
    vMatrix.reserve(vUpper.size()); // so that blocks stay where they are: the links are pointers
    for (size_t i = 0; i < vUpper.size(); ++i)
    {
        RCDMatrix& matrix = vMatrix.emplace_back(layerPool);
        matrix.baseRCD = vUpper[i];
        matrix.store(list, static_cast<int>(vFirst[i]), static_cast<int>(vFirst[i + 1]));
    }
}

void RCDStore::linkBlocks()
{
    for (int offx = -1; offx <= 1; ++offx)
        for (int offy = -1; offy <= 1; ++offy)
            for (int offz = -1; offz <= 1; ++offz)
                if (offx != 0 || offy != 0 || offz != 0)
                    linkBlocks(offx, offy, offz);
}

/// Links the neighbours at one offset. Blocks that ascend still do so when all are moved by the same step, so one walk
/// along both lists finds them without a search.
void RCDStore::linkBlocks(int offx, int offy, int offz)
{
    size_t cursor = 0;
    for (RCDMatrix& matrix : vMatrix)
    {
        const RCD neig = getUpperNeigPart(matrix.baseRCD, offx, offy, offz);
        if (neig > vUpper.back()) // also a step below x = 0, which wraps to a huge number
            continue;
        while (vUpper[cursor] < neig)
            ++cursor;
        if (vUpper[cursor] == neig)
            matrix.setNeigMtx(offx, offy, offz, &vMatrix[cursor]);
    }
}

void RCDStore::getAllRCD(std::vector<RCD>& out) const
{
    for (const RCDMatrix& matrix : vMatrix)
        matrix.getAllMatrixRCD(out);
}

RCD RCDStore::getUpperNeigPart(RCD upper, int offx, int offy, int offz) const
{
    const auto move = [&upper](int offset, RCD step)
    {
        if (offset == 1)
            upper += step;
        else if (offset == -1)
            upper -= step;
    };
    move(offx, 64 * rcd::xUnit);
    move(offy, 64 * rcd::yUnit);
    if (offy == 1 || offy == -1)
        upper &= ~RCDMatrix::lowerMask;
    move(offz, 64 * rcd::zUnit);
    if (offz == 1 || offz == -1)
        upper &= ~RCDMatrix::lowerMask;
    return upper;
}

RCDMatrix* RCDStore::findMatrix(RCD upper, BlockCache& cache) const
{
    if (cache.label != label)
        cache = {label, ~RCD(0), nullptr};
    RCDMatrix* const pMatrix = lookUp(upper);
    if (pMatrix == nullptr)
    {
        warning(ZAV_LOCATION, "No matrix");
        return nullptr;
    }
    cache.upper = upper;
    cache.pMatrix = pMatrix;
    return pMatrix;
}

RCDMatrix* RCDStore::lookUp(RCD upper) const
{
    // A binary search that adds in place of branching: which way a step goes is a coin toss to branch prediction.
    size_t i = 0;
    for (size_t n = vUpper.size(); n > 1; n -= n / 2)
        i += (vUpper[i + n / 2] <= upper) * (n / 2);
    return i < vUpper.size() && vUpper[i] == upper ? &vMatrix[i] : nullptr;
}

} // namespace MIRT_ZAV
