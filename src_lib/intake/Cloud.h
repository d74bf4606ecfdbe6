// One input cloud: its private copy of the points, the spacing estimate, the lattice and the bundles.
#pragma once

#include "base/SimplePool.h"
#include "intake/Bundle.h"
#include "lattice/Calc.h"
#include "zav/Point3.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Nothing of a Cloud may be used after it: the lattice, the bundles and their points die with it.
class Cloud
{
public:
    /// \param absSpacing        cell side in input units; not above 0 means that it is to be estimated
    /// \param spacingFactor     cell side as a multiple of the estimated spacing
    /// \param bPixelizer        whether the cloud is made of triangles instead of scan points
    /// \param holeControlLimit  how many cells wide a new layer may grow from a rim; below 1, holes stay open
    Cloud(const std::string& name, double absSpacing, double spacingFactor, bool bPixelizer, int holeControlLimit);
    ~Cloud();
    Cloud(const Cloud&) = delete;
    Cloud& operator=(const Cloud&) = delete;

    /// Copies the points, colours included, and takes their bounds.
    void setInputPoints(std::vector<Point3>& points);
    void setBounds(std::vector<Point3>& points);
    /// Spacing, lattice and bundles. With a given lattice a copy of it is used and nothing is estimated.
    void prepareScanPoints(Calc* pGivenCalc);

    /// The same for a cloud of triangle corners, three per triangle: spacing and lattice, then the cells that edges and
    /// faces touch, with one point each, which replace the corners. Every cell is a bundle as it stands.
    /// \param featureAngle  degrees; edges that fold more keep their cells
    void preparePixelsAndFeatures(double featureAngle);

    /// Decides the used spacing. Unless an absolute one is given, the spacing of the points is detected: points that
    /// follow each other on the Z-order curve tell how coarse cells have to be to hold several points each, and the
    /// number of such cells gives the area of the surface (box counting).
    void estimateRes2();
    /// The lattice: the cloud's box with 5000 cells more on each side, in a cube of a power of two of cells.
    /// \throws ZavBugException  for a spacing that is not above 0, or so fine that 21 bits per axis don't do
    void createCalc();
    /// Runs the cell preparation and turns its result into bundles.
    void createBundlesNew(std::vector<Point3>& points);

    /// Appends (cell, bundle) for all bundles; the list of fill cells is copied.
    void getBundles3(std::vector<std::pair<CCD, Bundle*>>& out, std::vector<CCD>& vCCDOut);

    /// -1.0 when nothing was estimated.
    double getDetectedSpacing() const { return detectedSpacing; }
    /// Null until the lattice has been chosen.
    Calc* getCalc() const { return pCalc.get(); }
    bool isPixelizer() const { return bPixelizer; }
    /// Pairs of neighbouring cells along feature edges of triangles, and along those of them that are borders.
    void getFeatures(std::vector<std::pair<CCD, CCD>>& vFeaturesOut,
                     std::vector<std::pair<CCD, CCD>>& vBordersOut) const;

private:
    std::vector<CCD> getCodes(const Calc& calc) const;
    double getMaxExtent() const;
    std::vector<Point3*> getCanonicalCorners();
    void createBundlesOfPoints();

public:
    int holeControlLimit;
    std::string name;
    double absSpacing;
    double spacingFactor;
    bool bPixelizer;
    unsigned long long numPoints = 0;
    double detectedSpacing = -1.0;
    double usedSpacing = -1.0;
    std::unique_ptr<Calc> pCalc;
    std::vector<Point3> vPoints;
    std::vector<Point3*> vpPoints; // representatives, in pointPool
    std::vector<Bundle*> vBundles; // in bundlePool
    MIRT_TOOLS::SimplePool<Bundle> bundlePool;
    MIRT_TOOLS::SimplePool<Point3> pointPool;
    double bounds[6];      // the box of the points: three minima, then three maxima; moved outwards with the lattice
    std::vector<CCD> vCCD; // cells that hole control added
    std::vector<std::pair<CCD, CCD>> vFeatures; // for getFeatures
    std::vector<std::pair<CCD, CCD>> vBorders;
};

} // namespace MIRT_ZAV
