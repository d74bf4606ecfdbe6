// Takes the input of a run in, and keeps all that is made of it until the run is over.
#pragma once

#include "intake/Cloud.h"

#include <memory>
#include <vector>

namespace MIRT_ZAV
{

/// Lives on the stack of a public call, which fills it with a single cloud. Meshes outlive it: what they need of the
/// lattice and the points they have to copy.
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

/// Picks the bundle that stands for a cell: the last one. If there are several and the first has a colour, it gets
/// their mean colour, divided by 255 once too often: bytes of 0 or 1, on which the bytes of results depend.
Bundle* mergeBundlesOfCell(const std::pair<CCD, Bundle*>* first, const std::pair<CCD, Bundle*>* last);

} // namespace MIRT_ZAV
