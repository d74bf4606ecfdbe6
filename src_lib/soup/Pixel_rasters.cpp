// The cells of one segment and of one triangle.
#include "soup/Pixel.h"

#include "base/tools.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
/// Distance of strips, and of samples in a strip along the longest axis, in lattice sides. The bytes of every cloud
/// that is made of triangles depend on it.
constexpr double sampleDistance = 0.577;

/// What fits into the lattice at most: samples along one axis, and strips along its diagonal. Only triangles that leave
/// the lattice reach these limits.
constexpr double maxSamples = 3634616.0; // 2^21 / 0.577
constexpr double maxStrips = 6295339.0;  // the same times the root of 3

/// sin(x) for x from 0 to 3.2, by its Taylor series. The C library's sine may round differently from one processor to
/// the next.
double sine(double x)
{
    constexpr double piHigh = 3.14159265358979311600, piLow = 1.22464679914735317723e-16;
    if (x > 0.5 * piHigh)
        x = (piHigh - x) + piLow;
    double sum = 1.0;
    for (int n = 24; n > 0; n -= 2)
        sum = 1.0 - sum * x * x / (n * (n + 1));
    return sum * x;
}

u64 distance(u64 a, u64 b)
{
    return a > b ? a - b : b - a;
}

/// The walk of rasterizeEdge along one axis.
struct AxisWalk
{
    double position;
    double end;
    double d;    // end - position at the start
    double grid; // the lattice plane that comes next
    double side; // of a cell

    /// The part of d that leads to the next lattice plane.
    double advance()
    {
        if (d > 0.0)
        {
            if (position >= grid)
                grid += side;
        }
        else if (grid >= position)
            grid -= side;
        if (d == 0.0)
            return DBL_MAX;
        return std::fabs((grid - position == 0.0 ? side : grid - position) / d);
    }

    /// Moves by a part of d; the result is the middle of the way.
    double step(double factor)
    {
        const double next = position + d * factor;
        const double middle = (position + next) * 0.5;
        position = next;
        return middle;
    }

    bool isBeyondEnd(double x) const { return d > 0.0 ? x > end : d < 0.0 && x < end; }
};
} // namespace

u64 Pixel::countSteps(const Point3& a, const Point3& b) const
{
    const RCD ra = pCalc->getRCD(&a), rb = pCalc->getRCD(&b);
    return distance(rcd::getX(ra), rcd::getX(rb)) + distance(rcd::getY(ra), rcd::getY(rb)) +
           distance(rcd::getZ(ra), rcd::getZ(rb));
}

void Pixel::rasterizeEdge(const Point3& a, const Point3& b, Raster& vR) const
{
    ZAV_ASSERT(spacingAbs > 0, "spacingAbs>0");
    const RCD startRCD = pCalc->getRCD(&a), stopRCD = pCalc->getRCD(&b);
    if (startRCD == stopRCD)
        return;
    vR.emplace_back(startRCD, a);
    const Point3 corner = getCorner(startRCD);
    AxisWalk x{a.x(), b.x(), b.x() - a.x(), corner.x(), spacingAbs};
    AxisWalk y{a.y(), b.y(), b.y() - a.y(), corner.y(), spacingAbs};
    AxisWalk z{a.z(), b.z(), b.z() - a.z(), corner.z(), spacingAbs};
    // Bounded: each lattice plane between the ends takes a step, and a few more where a step falls short of the plane
    // by its rounding. Outside of the lattice, and where the lattice side is lost in the digits of the coordinates,
    // the walk may not arrive by itself.
    for (u64 numLeft = 8 * countSteps(a, b) + 1000; numLeft > 0; --numLeft)
    {
        double minFactor = DBL_MAX;
        for (const double factor : {x.advance(), y.advance(), z.advance()})
            if (factor > 0.0 && factor < minFactor)
                minFactor = factor;
        ZAV_ASSERT(minFactor != DBL_MAX && minFactor > 0.0,
                   "minFactor!=double(1.79769313486231570814527423731704357e+308L) && minFactor>0");
        const double midX = x.step(minFactor), midY = y.step(minFactor), midZ = z.step(minFactor);
        const Point3 mid(midX, midY, midZ);
        const RCD r = pCalc->getRCD(&mid);
        if (r == startRCD)
            continue;
        if (r == stopRCD || x.isBeyondEnd(midX) || y.isBeyondEnd(midY) || z.isBeyondEnd(midZ))
            break;
        if (r != vR.back().first)
            vR.emplace_back(r, mid);
    }
    ZAV_ASSERT(vR.back().first != stopRCD, "vEdgeRaster.back().first!=stopRCD");
    vR.emplace_back(stopRCD, b);
}

/// Takes the longest side as the base from A to B. Which of its ends is A, and which of equally long sides it is,
/// follows from the order of the tests; where samples lie depends on that.
Strips::Strips(const Point3& p0, const Point3& p1, const Point3& p2, double spacing) : plane(p0, p1, p2), A(p1), B(p0)
{
    Point3 apex = p2;
    const double len02 = (p2 - p0).length();
    const double len01 = (p1 - p0).length();
    double len = (p2 - p1).length();
    if (len02 > len)
    {
        std::swap(A, B);
        len = len02;
    }
    if (!(len01 > len))
    {
        apex = B;
        B = p2;
        len = len01;
    }
    e1 = normalize(apex - A);
    e2 = normalize(apex - B);
    const Vector3 e3 = normalize(B - A);
    const double alpha = getAngleDegree(e3, e1);
    const double beta = getAngleDegree(-e3, e2);
    if (alpha < 1e-5 || beta < 1e-5)
        return;
    // No better pi here: where samples lie depends on these digits.
    stepA = spacing / sine(alpha * 3.14159 / 180.0) * sampleDistance;
    stepB = spacing / sine(beta * 3.14159 / 180.0) * sampleDistance;
    const double n = std::min(std::ceil(len / stepA), maxStrips);
    numStrips = n > 0.0 ? static_cast<size_t>(n) : 0;
}

void Pixel::convertOneT(const Point3& p0, const Point3& p1, const Point3& p2, Raster& vR) const
{
    rasterizeStrips(Strips(p0, p1, p2, spacingAbs), 0, ~size_t(0), vR, nullptr);
}

void Pixel::rasterizeStrips(const Strips& strips, size_t first, size_t last, Raster& vR, RecentCells* pRecent) const
{
    for (size_t k = first; k < std::min(last, strips.numStrips); ++k)
        rasterizePlane(strips.plane, strips.A + strips.e1 * (static_cast<double>(k) * strips.stepA),
                       strips.B + strips.e2 * (static_cast<double>(k) * strips.stepB), vR, pRecent);
}

void Pixel::rasterizePlane(const Plane& plane, const Point3& a, const Point3& b, Raster& vR, RecentCells* pRecent) const
{
    Vector3 d = b - a;
    const double length = d.length();
    if (length == 0.0)
        return;
    const double maxComponent = d.getMaxAbsComponent();
    ZAV_ASSERT(maxComponent != 0.0, "maxComponent!=0");
    d = d * (sampleDistance * spacingAbs / maxComponent);
    RCD last = pCalc->getRCD(&a);
    const double n = std::min(std::ceil(length / d.length()), maxSamples);
    for (double k = 0.0; k < n; k += 1.0)
    {
        const Point3 q = a + d * k;
        const RCD r = pCalc->getRCD(&q);
        if (r == last)
            continue;
        last = r;
        if ((pRecent != nullptr && pRecent->contains(r)) || sClaimed.contains(r))
            continue;
        Point3 candidate = plane.projection(getMid(r));
        if (pCalc->getRCD(&candidate) != r)
            candidate = q;
        if (k + 1.0 >= n && (candidate - a).length() > length) // the last sample's point lies beyond b
            return;
        vR.emplace_back(r, candidate);
        if (pRecent != nullptr)
            pRecent->add(r);
    }
}

AxisPlanes::AxisPlanes(double origin, double step, int numLevelsArg)
    : vLow(tableSize, origin), highStep(std::ldexp(step, tableLevels)), numLevels(numLevelsArg)
{
    for (u64 index = 0; index < tableSize; ++index)
        for (int n = 0; n < std::min(numLevels, tableLevels); ++n) // the lowest first, as in Calc
            if ((index >> n & 1) != 0)
                vLow[index] += std::ldexp(step, n);
}

/// Corner and middle of a cell, to the bit as Calc::getRefPoint and getMidPoint give them for its CCD.
Point3 Pixel::getCorner(RCD r) const
{
    return {xPlanes.get(rcd::getX(r)), yPlanes.get(rcd::getY(r)), zPlanes.get(rcd::getZ(r))};
}

Point3 Pixel::getMid(RCD r) const
{
    return getCorner(r) + Vector3(0.5 * pCalc->stepX, 0.5 * pCalc->stepY, 0.5 * pCalc->stepZ);
}

/// The mean of the points where the edges of a cell cut a plane, without a message.
/// \return whether there are at least three, and none of these edges lies along the plane
bool Pixel::cutCell(RCD r, const Plane& plane, Point3& mean, int& numCuts, bool& bAllMet) const
{
    const Point3 low = getCorner(r);
    std::array<Point3, 8> corners; // bit 0 of the place for the upper end along x, bit 1 y, bit 2 z
    std::array<bool, 8> bPositive{};
    for (unsigned i = 0; i < 8; ++i)
    {
        corners[i] = low + Vector3((i & 1) * spacingAbs, (i >> 1 & 1) * spacingAbs, (i >> 2) * spacingAbs);
        bPositive[i] = plane.hasOnPositiveSide(corners[i]);
    }
    Vector3 sum;
    numCuts = 0;
    bAllMet = true;
    for (unsigned axis = 1; axis < 8; axis *= 2)
        for (unsigned i = 0; i < 8; ++i)
        {
            if ((i & axis) != 0 || bPositive[i] == bPositive[i | axis])
                continue;
            bool ok = false;
            sum += toVector(plane.intersectLine(corners[i], corners[i | axis], ok));
            bAllMet = bAllMet && ok;
            ++numCuts;
        }
    mean = Point3();
    if (!bAllMet || numCuts < 3)
        return false;
    mean = mean + sum / numCuts;
    return true;
}

/// Moves the point of a cell from an edge into the plane: to the foot of the cell's middle or, where that lies in
/// another cell, to the middle of the plane's cut through the cell. False, with the point as it was, if there is no
/// such cut.
bool Pixel::moveOntoPlane(RCD r, const Plane& plane, Point3& point) const
{
    Point3 moved = plane.projection(getMid(r));
    if (pCalc->getRCD(&moved) != r)
    {
        int numCuts = 0;
        bool bAllMet = false;
        if (!cutCell(r, plane, moved, numCuts, bAllMet))
            return false;
    }
    point = moved;
    return true;
}

Point3 Pixel::getMidOfCutPlane(RCD r, const Plane& plane, bool& ok) const
{
    Point3 mean;
    int numCuts = 0;
    bool bAllMet = false;
    ok = cutCell(r, plane, mean, numCuts, bAllMet);
    if (!bAllMet)
        warning(ZAV_LOCATION, "!aBools");
    else if (!ok)
    {
        warning(ZAV_LOCATION, "Not enough intersections");
        std::cout << "numCuts: " << numCuts << '\n';
    }
    return mean;
}

} // namespace MIRT_ZAV
