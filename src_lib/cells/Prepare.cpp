#include "cells/Prepare.h"

#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "cells/RemoveDeciderFast.h"

#include <algorithm>
#include <climits>
#include <new>
#include <numeric>

namespace MIRT_ZAV
{
namespace
{
constexpr const char* creatingLabel = "PREP_createRCD";
constexpr const char* fillingLabel = "PREP_fillHoles";
constexpr const char* integratingLabel = "PREP_integFill";
} // namespace

Prepare::Prepare(std::vector<Point3>& points, int holeControlLimitArg, Calc* pCalcArg)
    : pvPoints(&points), holeControlLimit(holeControlLimitArg), pCalc(pCalcArg),
      sideLen(static_cast<float>(pCalcArg->getSideLen()))
{
    poolVtx.init(static_cast<int>(std::min<size_t>(points.size(), INT_MAX)), -1);
}

namespace
{
/// The node that holds the stages of the preparation: the root where a reconstruction has registered them there, the
/// stage of the bundles in a run that has nothing finer, and the root again where neither is known.
Progress* getParentOfStages()
{
    Progress* const root = getThreadProgress();
    if (root->findChild(creatingLabel) != nullptr || root->findChild("CL_creb") == nullptr)
        return root;
    Progress* const parent = root->findChild("CL_creb");
    for (const char* const label : {creatingLabel, fillingLabel, integratingLabel})
        parent->createChild(label, 1.0); // all at once: one that joins later would make the fraction fall
    return parent;
}
} // namespace

namespace
{
/// Squares of distances are single-precision numbers in the march: they must neither vanish nor become infinite, or it
/// would go on for ever.
void requireUsableSide(float side, int size)
{
    constexpr float least = 1e-18f, mostDistance = 1e19f;
    if (side < least || side * (2.0f * static_cast<float>(size) + 4.0f) > mostDistance)
        refuse("Holes can't be closed with cells of " + toString(side) +
               " input units: distances leave the range of numbers. Scale the points, so that a cell is near 1.");
}
} // namespace

void Prepare::run(std::vector<std::pair<CCD, Point3>>& vCCDPoint, std::vector<CCD>& vFillCCD)
{
    Progress* const parent = getParentOfStages();

    Progress* const creating = parent->getChildProgressSetTodo(creatingLabel, 2);
    creating->incProgressByOne();
    createRCDs();
    creating->incProgressByOne();
    creating->setDone(true);

    const std::vector<int> sizes = getHoleControlSizes(holeControlLimit);
    if (!sizes.empty() && !vBorderRCDsrt.empty())
        requireUsableSide(sideLen, sizes.back());
    const auto sumSizes = std::accumulate(sizes.begin(), sizes.end(), 0ULL);
    pFilling = parent->getChildProgressSetTodo(fillingLabel, 100 * std::max(1ULL, sumSizes));
    for (const int size : sizes)
    {
        stepsPerPercent = static_cast<std::uint64_t>(size);
        const std::uint64_t doneAtEnd = pFilling->done + 100 * stepsPerPercent;
        hc_holeControlMain(size, size == sizes.front() || size == sizes.back());
        pFilling->incProgressEvenly(doneAtEnd - pFilling->done);
    }
    pFilling->endVisit();
    pFilling = nullptr;

    Progress* const integrating = parent->getChildProgressSetTodo(integratingLabel, 2);
    integrating->incProgressByOne();
    integrateNew(vCCDPoint, vFillCCD);
    integrating->incProgressByOne();
    integrating->setDone(true);
}

std::vector<int> Prepare::getHoleControlSizes(int limit)
{
    std::vector<int> sizes;
    if (limit < 1)
        return sizes;
    for (long long next = 2;;)
    {
        sizes.push_back(static_cast<int>(std::min<long long>(next, limit)));
        if (sizes.back() >= limit)
            return sizes;
        next = 2LL * sizes.back();
        if (next >= 3 && static_cast<double>(limit - next) / limit < 0.25)
            next = limit;
    }
}

void Prepare::createRCDs()
{
    const std::vector<std::pair<RCD, Point3>> vRCDPoint = getRepresentatives();
    std::vector<RCD> vCells;
    transformMT(vRCDPoint, vCells, [](const std::pair<RCD, Point3>& entry) { return entry.first; });

    RemoveDeciderFast decider(vCells, pCalc);
    std::vector<RCD> vKept, vRemoved;
    decider.prunePrioq(vRCDPoint, vCells, vKept, vRemoved, false, false);
    vAllRCDsrt.swap(vKept);
    decider.detectAreaAndBorder(vAreaRCDsrt, vBorderRCDsrt);
    sortMT(vAreaRCDsrt.begin(), vAreaRCDsrt.end());
    sortMT(vBorderRCDsrt.begin(), vBorderRCDsrt.end());
    storeKeptCells(vRCDPoint);
    ZAV_ASSERT(vRCD2Vtxsrt.size() == vAllRCDsrt.size(), "vRCD2Vtxsrt.size()==vAllRCDsrt.size()");
    ZAV_ASSERT(vAllRCDsrt.size() == vAreaRCDsrt.size() + vBorderRCDsrt.size(),
               "vAllRCDsrt.size()==vAreaRCDsrt.size()+vBorderRCDsrt.size()");
}

/// The cells of all finite points, sorted by cell, then by address, which is the order of the input.
std::vector<std::pair<RCD, Point3*>> Prepare::getCellsOfPoints() const
{
    constexpr RCD noCell = ~RCD(0);
    std::vector<std::pair<RCD, Point3*>> vRCDPtr(pvPoints->size());
    forSlicesMT(pvPoints->size(), 8,
                [&](size_t begin, size_t end)
                {
                    for (size_t i = begin; i < end; ++i)
                    {
                        Point3* const p = &(*pvPoints)[i];
                        vRCDPtr[i] = {p->isFinite() ? pCalc->getRCD(p) : noCell, p};
                    }
                });
    std::erase_if(vRCDPtr, [](const auto& entry) { return entry.first == noCell; });
    sortMT(vRCDPtr.begin(), vRCDPtr.end());
    return vRCDPtr;
}

/// One point for each cell: the one that comes last in the input, wherever the others lie. It is a measured point with
/// its own colour, not a mean. The bytes of every result depend on which one is taken.
std::vector<std::pair<RCD, Point3>> Prepare::getRepresentatives() const
{
    const std::vector<std::pair<RCD, Point3*>> vRCDPtr = getCellsOfPoints();
    std::vector<std::pair<RCD, Point3>> vRCDPoint;
    vRCDPoint.reserve(vRCDPtr.size());
    for (size_t i = 0; i < vRCDPtr.size(); ++i)
        if (i + 1 == vRCDPtr.size() || vRCDPtr[i + 1].first != vRCDPtr[i].first)
            vRCDPoint.emplace_back(vRCDPtr[i].first, *vRCDPtr[i].second);
    return vRCDPoint;
}

void Prepare::storeKeptCells(const std::vector<std::pair<RCD, Point3>>& vRCDPoint)
{
    vRCD2Vtxsrt.reserve(vAllRCDsrt.size());
    auto it = vRCDPoint.begin();
    for (const RCD kept : vAllRCDsrt)
    {
        while (it != vRCDPoint.end() && it->first < kept)
            ++it;
        if (it != vRCDPoint.end() && it->first == kept)
            vRCD2Vtxsrt.emplace_back(kept, new (poolVtx.take()) Point3(it->second));
    }
}

void Prepare::integrateNew(std::vector<std::pair<CCD, Point3>>& vCCDPoint, std::vector<CCD>& vFillCCD)
{
    std::vector<CCD> vFill;
    transformMT(vFillRCD, vFill, [this](RCD r) { return pCalc->rcd2ccd(r); });
    vFillCCD.insert(vFillCCD.end(), vFill.begin(), vFill.end());
    sortMT(vFillCCD.begin(), vFillCCD.end());

    const size_t numBefore = vCCDPoint.size();
    vCCDPoint.resize(numBefore + vRCD2Vtxsrt.size());
    forSlicesMT(vRCD2Vtxsrt.size(), 8,
                [&](size_t begin, size_t end)
                {
                    for (size_t i = begin; i < end; ++i)
                        vCCDPoint[numBefore + i] = {pCalc->rcd2ccd(vRCD2Vtxsrt[i].first), *vRCD2Vtxsrt[i].second};
                });
    sortMT(vCCDPoint.begin(), vCCDPoint.end());
}

} // namespace MIRT_ZAV
