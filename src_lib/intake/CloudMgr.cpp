#include "intake/CloudMgr.h"

#include "base/sortMT.h"
#include "base/tools.h"

#include <utility>

namespace MIRT_ZAV
{

double CloudMgr::setInputPoints(std::vector<Point3>& points, double absSpacingArg, double spacingFactorArg,
                                bool bPixelizerArg, double featureAngle, Calc* pGivenCalc, int holeControlLimit)
{
    absSpacing = absSpacingArg;
    spacingFactor = spacingFactorArg;
    bPixelizer = bPixelizerArg;
    vClouds.push_back(
        std::make_unique<Cloud>("inputPointsViaMemory", absSpacing, spacingFactor, bPixelizer, holeControlLimit));
    Cloud& cloud = *vClouds.back();
    cloud.setInputPoints(points);
    if (cloud.isPixelizer())
        cloud.preparePixelsAndFeatures(featureAngle);
    else
        cloud.prepareScanPoints(pGivenCalc);
    return cloud.getDetectedSpacing();
}

void CloudMgr::getBundles(std::vector<Bundle*>& out, Calc*& pCalc, std::vector<CCD>& vCCDOut)
{
    ZAV_ASSERT(!vClouds.empty(), "!vClouds.empty()");
    pCalc = vClouds.front()->getCalc();
    std::vector<std::pair<CCD, Bundle*>> vCCDBundle;
    vClouds.front()->getBundles3(vCCDBundle, vCCDOut);
    out.reserve(out.size() + vCCDBundle.size());
    sortByFirstMT(vCCDBundle.begin(), vCCDBundle.end());

    const std::pair<CCD, Bundle*>* const end = vCCDBundle.data() + vCCDBundle.size();
    for (const std::pair<CCD, Bundle*>* run = vCCDBundle.data(); run != end;)
    {
        const std::pair<CCD, Bundle*>* runEnd = run + 1;
        while (runEnd != end && runEnd->first == run->first)
            ++runEnd;
        out.push_back(mergeBundlesOfCell(run, runEnd));
        run = runEnd;
    }
}

Bundle* mergeBundlesOfCell(const std::pair<CCD, Bundle*>* first, const std::pair<CCD, Bundle*>* last)
{
    Bundle* const kept = (last - 1)->second;
    const auto count = last - first;
    if (!first->second->pVtx->hasColor() || count < 2)
        return kept;
    float sums[4] = {};
    for (const std::pair<CCD, Bundle*>* it = first; it != last; ++it)
    {
        const Point3& p = *it->second->pVtx;
        sums[0] += p.r;
        sums[1] += p.g;
        sums[2] += p.b;
        sums[3] += p.a;
    }
    const auto toByte = [count](float sum)
    { return static_cast<unsigned char>(sum / (static_cast<double>(count) * 255.0)); };
    kept->pVtx->setColor(toByte(sums[0]), toByte(sums[1]), toByte(sums[2]), toByte(sums[3]));
    return kept;
}

} // namespace MIRT_ZAV
