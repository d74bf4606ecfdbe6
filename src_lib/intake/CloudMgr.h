// Receives the input of a run and owns its clouds.
#pragma once

#include "intake/Cloud.h"

#include <memory>
#include <vector>

namespace MIRT_ZAV
{

/// One per public call, on its stack. In every public flow there is one cloud.
class CloudMgr
{
public:
    /// Adds a cloud and runs its whole intake: spacing, lattice, cells, bundles.
    /// \param absSpacing     cell side in input units, or -1.0
    /// \param spacingFactor  cell side as a multiple of the detected spacing, or -1.0
    /// \param bPixelizer     whether the points are the corners of triangles
    /// \param featureAngle   degrees; read for triangles only, 361.0 otherwise
    /// \param pGivenCalc     a lattice to use, copied; null to choose one
    /// \return the cloud's detected spacing, -1.0 if nothing was estimated
    double setInputPoints(std::vector<Point3>& points, double absSpacing, double spacingFactor, bool bPixelizer,
                          double featureAngle, Calc* pGivenCalc, int holeControlLimit);

    /// Appends the bundles of the first cloud by ascending cell, one per cell, and gives its lattice and fill cells.
    /// The bundles stay the cloud's.
    void getBundles(std::vector<Bundle*>& out, Calc*& pCalc, std::vector<CCD>& vCCDOut);

    std::vector<std::unique_ptr<Cloud>> vClouds;
    double absSpacing = -1.0;
    double spacingFactor = -1.0;
    bool bPixelizer = false;
};

/// Of a run of bundles of one cell the last one stays. Its colour becomes the sum of the run's colours, divided by 255
/// times their number, if the first bundle has a colour and there are several: deliberately bytes of 0 or 1.
Bundle* mergeBundlesOfCell(const std::pair<CCD, Bundle*>* first, const std::pair<CCD, Bundle*>* last);

} // namespace MIRT_ZAV
