#include "intake/Cloud.h"

#include "base/OrderedIndex.h"
#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "cells/Prepare.h"
#include "geometry/PointHash.h"
#include "soup/Pixel.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <new>

namespace MIRT_ZAV
{
namespace
{
/// Cells between the object and the end of the lattice, on each side. Neighbour arithmetic has no range tests, and hole
/// control grows beyond the object.
constexpr double marginCells = 5000.0;

/// At which level of the octree points fall apart that follow each other on the Z-order curve: the (upper) median. The
/// two lowest levels don't count; there points nearly coincide.
int getMedianLevel(const std::vector<CCD>& sortedCodes)
{
    std::array<size_t, MAXLEVELS> numPerLevel{};
    size_t total = 0;
    for (size_t i = 1; i < sortedCodes.size(); ++i)
    {
        const u64 difference = sortedCodes[i - 1] ^ sortedCodes[i];
        const int level = difference == 0 ? 0 : (63 - std::countl_zero(difference)) / 3;
        if (level > 1)
        {
            ++numPerLevel[static_cast<size_t>(level)];
            ++total;
        }
    }
    if (total == 0)
        return 0;
    size_t numBelow = 0;
    for (size_t level = 0; level < numPerLevel.size(); ++level)
    {
        numBelow += numPerLevel[level];
        if (numBelow > total / 2)
            return static_cast<int>(level);
    }
    return MAXLEVELS;
}
} // namespace

Cloud::Cloud(const std::string& nameArg, double absSpacingArg, double spacingFactorArg, bool bPixelizerArg,
             int holeControlLimitArg)
    : holeControlLimit(holeControlLimitArg), name(nameArg), absSpacing(absSpacingArg), spacingFactor(spacingFactorArg),
      bPixelizer(bPixelizerArg)
{
    std::fill(bounds, bounds + 3, DBL_MAX);
    std::fill(bounds + 3, bounds + 6, -DBL_MAX);
}

Cloud::~Cloud()
{
    for (const Bundle* const b : vBundles)
        delete b->pOwned;
}

void Cloud::setInputPoints(std::vector<Point3>& points)
{
    vPoints = points;
    numPoints = points.size();
    if (!vPoints.empty())
        setBounds(vPoints);
}

void Cloud::setBounds(std::vector<Point3>& points)
{
    const auto coordinates = [](const Point3& p) { return std::array<double, 3>{p.x(), p.y(), p.z()}; };
    const auto first = coordinates(points.front());
    std::copy(first.begin(), first.end(), bounds);
    std::copy(first.begin(), first.end(), bounds + 3);
    for (const Point3& p : points)
    {
        const auto value = coordinates(p);
        for (size_t axis = 0; axis < 3; ++axis)
            if (value[axis] > bounds[3 + axis])
                bounds[3 + axis] = value[axis];
            else if (value[axis] < bounds[axis])
                bounds[axis] = value[axis];
    }
}

void Cloud::prepareScanPoints(Calc* pGivenCalc)
{
    ZAV_ASSERT(!bPixelizer, "!bMelt");
    if (vPoints.empty())
    {
        warning(ZAV_LOCATION, "Nothing to do for cloud " + name);
        return;
    }
    if (pGivenCalc != nullptr)
        pCalc = std::make_unique<Calc>(*pGivenCalc);
    else
    {
        estimateRes2();
        createCalc();
    }
    createBundlesNew(vPoints);
}

/// Not a number if the extent along any axis isn't one.
double Cloud::getMaxExtent() const
{
    double maxExtent = 0.0;
    for (size_t axis = 0; axis < 3; ++axis)
    {
        const double extent = bounds[3 + axis] - bounds[axis];
        if (extent > maxExtent || std::isnan(extent))
            maxExtent = extent;
        if (std::isnan(maxExtent))
            break;
    }
    return maxExtent;
}

std::vector<CCD> Cloud::getCodes(const Calc& calc) const
{
    std::vector<CCD> codes;
    codes.reserve(vPoints.size());
    for (const Point3& p : vPoints)
        if (p.isFinite())
            codes.push_back(calc.getCCD(&p));
    return codes;
}

void Cloud::estimateRes2()
{
    if (absSpacing > 0.0)
    {
        usedSpacing = absSpacing;
        return;
    }
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("CL_eres", 6);
    progress->incProgressByOne();

    const double extent = getMaxExtent();
    const Calc calc(bounds[0], bounds[1], bounds[2], extent, extent, extent, 20);
    std::vector<CCD> codes = getCodes(calc);
    progress->incProgressByOne();
    sortMT(codes.begin(), codes.end());
    progress->incProgressByOne();

    // 0 where all points nearly coincide with their followers.
    const int medianLevel = getMedianLevel(codes);
    progress->incProgressByOne();
    progress->incProgressByOne();

    const int m = medianLevel + 2;
    for (CCD& code : codes)
        code = 3 * m < 64 ? code >> (3 * m) : 0;
    oneInstance(codes);
    progress->incProgressByOne();

    const double numOccupied = static_cast<double>(codes.size());
    const double s = static_cast<double>(1 << m) * calc.getSideLen();
    // The area of the surface over the number of points, and the root of it. The lattice, and with it the bytes of
    // every result, depends on these digits and on the order of the operations.
    detectedSpacing = std::sqrt((numOccupied * (s * s / 1.307025)) / static_cast<double>(numPoints) * 1.5396);
    usedSpacing = spacingFactor * detectedSpacing;
    progress->setDone(true);
}

void Cloud::createCalc()
{
    ZAV_ASSERT(usedSpacing > 0.0 && std::isfinite(usedSpacing), "usedSpacing>0");
    const double numReqC = std::ceil(getMaxExtent() / usedSpacing) + 2.0 * marginCells;
    int baseLevel = std::isfinite(numReqC) ? static_cast<int>(std::log2(numReqC)) + 1 : MAXLEVELS + 1;
    if (baseLevel > MAXLEVELS)
    {
        warning(ZAV_LOCATION, "BaseLevel out of range: " + toString(baseLevel));
        baseLevel = MAXLEVELS;
    }
    const double numCReal = std::pow(2.0, baseLevel);

    const double margin = usedSpacing * marginCells;
    for (size_t axis = 0; axis < 3; ++axis)
    {
        bounds[axis] -= margin;
        bounds[3 + axis] += margin;
    }
    ZAV_ASSERT(numCReal >= numReqC, "numCReal>=numReqC");
    const double side = numCReal * usedSpacing;
    pCalc = std::make_unique<Calc>(bounds[0], bounds[1], bounds[2], side, side, side, baseLevel);
}

void Cloud::createBundlesNew(std::vector<Point3>& points)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("CL_creb", 6);
    std::vector<std::pair<CCD, Point3>> vResult;
    {
        Prepare prepare(points, holeControlLimit, pCalc.get());
        prepare.run(vResult, vCCD);
    }
    progress->incProgressByOne();

    const int n = static_cast<int>(std::min<size_t>(vResult.size(), INT_MAX));
    const int numMore = std::max(100, static_cast<int>(n * 0.1));
    bundlePool.init(n, numMore, 543478);
    pointPool.init(n, numMore, 3125000);
    vpPoints.reserve(vResult.size());
    vBundles.reserve(vResult.size());
    for (const auto& [cell, point] : vResult)
    {
        vpPoints.push_back(new (pointPool.take()) Point3(point));
        vBundles.push_back(new (bundlePool.take()) Bundle{vpPoints.back(), cell, nullptr, point});
    }
    progress->incProgressByOne();
    progress->setDone(false);
    progress->broadcast("");
}

void Cloud::preparePixelsAndFeatures(double featureAngle)
{
    ZAV_ASSERT(bPixelizer, "bMelt");
    if (vPoints.empty())
    {
        warning(ZAV_LOCATION, "Nothing to do for cloud " + name);
        return;
    }
    estimateRes2();
    createCalc();
    std::vector<Point3> vPixels;
    {
        std::vector<Point3*> vCorners = getCanonicalCorners();
        Pixel pixel(vCorners, pCalc.get());
        pixel.pixelTriangles(vPixels, vFeatures, vBorders, featureAngle);
    }
    vPoints.swap(vPixels); // only now: the corners were pointers into it
    createBundlesOfPoints();
}

/// For every point the first one with the same coordinates: triangles that share a corner then share its address, by
/// which edges are compared.
std::vector<Point3*> Cloud::getCanonicalCorners()
{
    MIRT_TOOLS::OrderedIndex<Point3, Point3*, PointHash> mFirst;
    std::vector<Point3*> vCorners;
    vCorners.reserve(vPoints.size());
    for (Point3& p : vPoints)
        vCorners.push_back(*mFirst.insertOrFind(p, &p).first);
    return vCorners;
}

void Cloud::createBundlesOfPoints()
{
    const int n = static_cast<int>(std::min<size_t>(vPoints.size(), INT_MAX));
    bundlePool.init(n, std::max(100, static_cast<int>(0.2 * n)), 543478);
    vBundles.reserve(vPoints.size());
    for (Point3& p : vPoints)
        vBundles.push_back(new (bundlePool.take()) Bundle{&p, pCalc->getCCD(&p), nullptr, p});
}

void Cloud::getFeatures(std::vector<std::pair<CCD, CCD>>& vFeaturesOut,
                        std::vector<std::pair<CCD, CCD>>& vBordersOut) const
{
    vFeaturesOut = vFeatures;
    vBordersOut = vBorders;
}

void Cloud::getBundles3(std::vector<std::pair<CCD, Bundle*>>& out, std::vector<CCD>& vCCDOut)
{
    out.reserve(out.size() + vBundles.size());
    for (Bundle* const b : vBundles)
        out.emplace_back(b->ccd, b);
    vCCDOut = vCCD;
}

} // namespace MIRT_ZAV
