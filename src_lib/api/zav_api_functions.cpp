#include "zav/zav_api_functions.h"

#include "api/Hal.h"
#include "api/OwnRun.h"
#include "base/Progress.h"
#include "base/ctpl.h"
#include "base/memoryLimits.h"
#include "base/tools.h"
#include "geometry/freeFunctions.h"
#include "intake/CloudMgr.h"

#include <cfloat>
#include <cmath>
#include <iomanip>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
/// The value for an angle or spacing that isn't given.
constexpr double notGiven = -1.0;
/// Above any angle. Points have no edges to compare it with.
constexpr double noFeatureAngle = 361.0;

/// Ends the run before it begins if the cells that the triangles touch take more memory than there is. They are one
/// for each square of a cell's side, at the least.
void requireMemoryForCells(const std::vector<Point3>& vCorners, double spacing, double bytesPerCell, const char* what)
{
    double area = 0.0;
    for (size_t i = 0; i + 2 < vCorners.size(); i += 3)
        if (const double a = getArea(&vCorners[i], &vCorners[i + 1], &vCorners[i + 2]); std::isfinite(a))
            area += a;
    if (spacing > 0.0)
        requireMemory(area / spacing / spacing * bytesPerCell, what, spacing);
}

MeshPtr reconstruct(std::vector<Point3>& points, double spacing, double spacingFactor, int holeControlLimit)
{
    const OwnRun run(progressForReco);
    CloudMgr cloudMgr;
    cloudMgr.setInputPoints(points, spacing, spacingFactor, false, noFeatureAngle, nullptr, holeControlLimit);
    Hal hal(&cloudMgr);
    MeshPtr pMesh = hal.reconstruct();
    run.finish();
    return pMesh;
}

/// A value that lowers the minimum isn't tried as the maximum, so that falling values leave that at its start. The
/// offsets that callers get depend on the "else".
class OffsetRange
{
public:
    void add(double value)
    {
        if (value < min)
            min = value;
        else if (value > max)
            max = value;
    }
    double getMiddle() const { return (max - min) * 0.5 + min; }

private:
    double min = DBL_MAX;
    double max = -DBL_MAX;
};
} // namespace

MeshPtr reconstruct_auto(std::vector<Point3>& points, double spacingFactor, int holeControlLimit)
{
    return reconstruct(points, notGiven, spacingFactor, holeControlLimit);
}

MeshPtr reconstruct_abs(std::vector<Point3>& points, double spacing, int holeControlLimit)
{
    return reconstruct(points, spacing, notGiven, holeControlLimit);
}

void toCloud(std::vector<Point3>& vTriangleCorners, double spacing, double featureAngle, std::vector<Point3>& vOut)
{
    requireMemoryForCells(vTriangleCorners, spacing, 150.0, "A cloud of these triangles"); // measured
    const OwnRun run(progressForCloud);
    CloudMgr cloudMgr;
    cloudMgr.setInputPoints(vTriangleCorners, spacing, notGiven, true, featureAngle, nullptr, -1);
    Hal hal(&cloudMgr);
    std::vector<Point3*> vPtr;
    hal.toCloud(vPtr);
    vOut.reserve(vOut.size() + vPtr.size());
    run.finish(); // the last place to cancel: until here nothing has changed
    for (const Point3* const p : vPtr)
        vOut.push_back(*p);
}

MeshPtr melt(std::vector<Point3>& vTriangleCorners, double spacing, double featureAngle)
{
    requireMemoryForCells(vTriangleCorners, spacing, 1400.0, "A mesh of these triangles"); // measured
    const OwnRun run(progressForMelt);
    CloudMgr cloudMgr;
    cloudMgr.setInputPoints(vTriangleCorners, spacing, notGiven, true, featureAngle, nullptr, -1);
    Hal hal(&cloudMgr);
    MeshPtr pMesh = hal.oneMelt();
    run.finish();
    return pMesh;
}

double estimateAvgSpacing(std::vector<Point3>& points)
{
    const OwnRun run(progressForEstimation); // not finished: subscribers don't hear 1
    CloudMgr cloudMgr;
    return cloudMgr.setInputPoints(points, notGiven, 1.0, false, noFeatureAngle, nullptr, -1);
}

void subscribe(ProgressBase* pSubscriber)
{
    Progress* const pProgress = getThreadProgress();
    ZAV_ASSERT(pProgress != nullptr, "pProgress!=__null");
    pProgress->setSubscriber(pSubscriber);
}

std::vector<StageTiming> getStageTimings()
{
    return getThreadProgress()->getTimings();
}

void setGlobalNumCPU(int numCPU)
{
    if (numCPU < 0)
        warning(ZAV_LOCATION, "numCPU<0 not used");
    else
        getSetGlobalNumCPU(numCPU);
}

void destroySingletons()
{
    ctpl::thread_pool::getLevelPool(true);
}

void autoOffset(std::vector<Point3>& points, double& x, double& y, double& z)
{
    x = y = z = 0.0;
    if (points.empty())
        return;
    OffsetRange rangeX, rangeY, rangeZ;
    for (const Point3& p : points)
    {
        rangeX.add(p.x());
        rangeY.add(p.y());
        rangeZ.add(p.z());
    }
    x = rangeX.getMiddle();
    y = rangeY.getMiddle();
    z = rangeZ.getMiddle();
    for (Point3& p : points)
        p.set(p.x() - x, p.y() - y, p.z() - z);
}

void getVersion(int& major, int& minor)
{
    major = 1;
    minor = 17;
}

void printVersion()
{
    int major = 0, minor = 0;
    getVersion(major, minor);
    std::cout << "ZAV, version " << major << "." << std::setw(2) << std::setfill('0') << minor << std::setfill(' ')
              << '\n';
}

bool isRelease()
{
    return true;
}

bool is32bitSystem()
{
    return false;
}

} // namespace MIRT_ZAV
