#include "cells/RemoveDeciderFast.h"

#include "base/sortMT.h"

#include <algorithm>

namespace MIRT_ZAV
{
namespace
{
/// The entry of a cell in a list of pairs sorted by cell, or the place where it would stand.
template <class T>
auto findByCell(const std::vector<std::pair<RCD, T>>& sorted, RCD r)
{
    const auto isBelow = [](const std::pair<RCD, T>& entry, RCD cell) { return entry.first < cell; };
    return std::lower_bound(sorted.begin(), sorted.end(), r, isBelow);
}
} // namespace

RemoveDeciderFast::RemoveDeciderFast(std::vector<RCD>& cells, Calc* calcArg)
    : sideLen(calcArg->getSideLen()), pvRCD(&cells), calc(calcArg), store(calcArg, cells)
{
}

void RemoveDeciderFast::kill(RCD r)
{
    store.getRCDMatrix(r)->bits.reset(RCDMatrix::rcdToAddress(r));
    ++numKilled;
}

void RemoveDeciderFast::unkill(RCD r)
{
    store.getRCDMatrix(r)->bits.set(RCDMatrix::rcdToAddress(r));
    --numKilled;
}

bool RemoveDeciderFast::isSet(RCD r) const
{
    const RCDMatrix* const pMatrix = store.getRCDMatrix(r);
    return pMatrix != nullptr && pMatrix->bits.test(RCDMatrix::rcdToAddress(r));
}

void RemoveDeciderFast::getAliveRCD(std::vector<RCD>& out) const
{
    store.getAllRCD(out);
    sortMT(out.begin(), out.end());
}

void RemoveDeciderFast::getNeigs(RCD r, std::vector<RCD>& vNeigs) const
{
    ZAV_ASSERT(vNeigs.empty(), "vNeigs.empty()");
    appendNeigs26(r, vNeigs);
}

void RemoveDeciderFast::detectAreaAndBorder(std::vector<RCD>& area, std::vector<RCD>& border) const
{
    std::vector<RCD> alive;
    if (numKilled != 0)
        store.getAllRCD(alive);
    const std::vector<RCD>& cells = numKilled == 0 ? *pvRCD : alive;
    area.reserve(cells.size());
    border.reserve(cells.size() / 10);
    for (const RCD r : cells)
        (isBorder(r) ? border : area).push_back(r);
}

double RemoveDeciderFast::getWeight(const RCDPoints& vRCDPoint, RCD r) const
{
    if (pvCard2RCD_srt != nullptr)
        return getCardWeight(r);
    const int numFaceNeigs = countFaceNeigs(r);
    const auto it = findByCell(vRCDPoint, r);
    ZAV_ASSERT(it != vRCDPoint.end() && it->first == r, "q_it!=vRCDPoint.end() && q_it->first==rcd");
    return numFaceNeigs + sideLen - getRelativeDistance(r, it->second);
}

double RemoveDeciderFast::getCardWeight(RCD r) const
{
    const auto it = findByCell(*pvCard2RCD_srt, r);
    ZAV_ASSERT(it != pvCard2RCD_srt->end(), "q_it!=pvCard2RCD_srt->end()");
    ZAV_ASSERT(it->first == r, "q_it->first==rcd");
    return it->second;
}

double RemoveDeciderFast::getRelativeDistance(RCD r, const Point3& point) const
{
    return (point - calc->getCenter(r)).length() / sideLen;
}

} // namespace MIRT_ZAV
