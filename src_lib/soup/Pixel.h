// Turns a triangle soup into a cloud of one point per cell.
//
// Edges and faces are walked over on the lattice, and every cell that they touch gets one point. Corners and points of
// sharp edges and borders claim their cells first, then the other edges, then the faces, so that the cloud keeps the
// features of the soup.
#pragma once

#include "geometry/Plane.h"
#include "lattice/Calc.h"
#include "lattice/CellSet.h"
#include "soup/FeatureMgr.h"
#include "soup/Tri.h"

#include <array>
#include <span>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Cells along something with a point in each of them.
using Raster = std::vector<std::pair<RCD, Point3>>;
using CellPairs = std::vector<std::pair<CCD, CCD>>;

/// How a triangle is sampled: in strips parallel to its longest side, at equal distances, from the base A-B towards the
/// apex.
///
///             apex
///            /----\         strip 3
///        e1 /------\ e2     strip 2
///          /--------\       strip 1
///         A----------B      strip 0
struct Strips
{
    Strips(const Point3& p0, const Point3& p1, const Point3& p2, double spacing);

    // Strip k leads from A + e1 * (k * stepA) to B + e2 * (k * stepB).
    Plane plane;
    Point3 A, B;
    Vector3 e1, e2;
    double stepA = 0.0, stepB = 0.0;
    size_t numStrips = 0; // none where an angle at the base is next to nothing
};

/// Coordinates of lattice planes along one axis, the same bits as those of Calc::extractDoubleCCD: a table holds the
/// sums of the lower levels, and the upper ones are added to them in the same order.
class AxisPlanes
{
public:
    AxisPlanes(double origin, double step, int numLevels);

    double get(u64 index) const
    {
        double x = vLow[index & (tableSize - 1)];
        double d = highStep;
        for (int n = tableLevels; n < numLevels; ++n)
        {
            x += static_cast<double>(static_cast<int>(index >> n & 1)) * d;
            d *= 2.0;
        }
        return x;
    }

private:
    static constexpr int tableLevels = 11;
    static constexpr u64 tableSize = u64(1) << tableLevels;

    std::vector<double> vLow;
    double highStep;
    int numLevels;
};

/// Cells that were met a moment ago. Neighbouring strips meet most cells twice; what is forgotten only costs time, as a
/// cell that comes again is turned away when it is claimed.
class RecentCells
{
public:
    bool contains(RCD r) const { return cells[placeOf(r)] == r; }
    void add(RCD r) { cells[placeOf(r)] = r; }
    void clear() { cells.fill(~RCD(0)); }

private:
    static constexpr int bits = 11;
    static size_t placeOf(RCD r) { return r * 0x9e3779b97f4a7c15u >> (64 - bits); }

    std::array<RCD, size_t(1) << bits> cells; // by hash; a later one overwrites
};

class Pixel
{
public:
    /// The angle that marks border edges.
    static constexpr double borderAngle = 9999.0;

    /// \param vTriangleCorners  three pointers per triangle, equal ones for equal points: that is how edges find their
    ///                          triangles. They point into one array, whose order decides that of the edges.
    ///                          Degenerate triangles are left out with a warning.
    /// \param pCalc             must live as long as this; the soup should lie in its lattice
    /// \throws ZavBugException  for an empty list, and one whose size isn't a multiple of three
    Pixel(std::vector<Point3*>& vTriangleCorners, Calc* pCalc);
    Pixel(const Pixel&) = delete;
    Pixel& operator=(const Pixel&) = delete;

    /// To be called once.
    /// \param vOut          one point per cell that the soup touches is appended: those of edges, then those of faces
    ///                      by ascending RCD
    /// \param vFeatures     neighbours along feature edges, the lesser cell first, are appended
    /// \param vBorders      the same for borders
    /// \param featureAngle  edges that fold by more are features, in degrees; borders always are
    void pixelTriangles(std::vector<Point3>& vOut, std::vector<std::pair<CCD, CCD>>& vFeatures,
                        std::vector<std::pair<CCD, CCD>>& vBorders, double featureAngle);

    // The steps.

    /// Appends one point for each cell that an edge touches.
    void pixelAllEdges(double featureAngle, std::vector<Point3>& vPixels, CellPairs& vFeatures, CellPairs& vBorders);
    /// The cells that a segment passes through, from a to b, by a walk from lattice plane to lattice plane (grid
    /// traversal); nothing if both ends lie in one cell. The first and the last point are a and b themselves, each
    /// other one is the middle of the piece of the segment in its cell.
    void rasterizeEdge(const Point3& a, const Point3& b, Raster& vR) const;
    /// The cells of a triangle, by its strips. Cells can come several times; those that are claimed are left out.
    void convertOneT(const Point3& p0, const Point3& p1, const Point3& p2, Raster& vR) const;
    /// The same for one segment in a plane. The cell in which it begins is left to the edge of the triangle there; it
    /// comes only if rounding leads back into it.
    /// \param pRecent  cells of earlier segments that the caller has no use for again, brought up to date; or null
    void rasterizePlane(const Plane& plane, const Point3& a, const Point3& b, Raster& vR,
                        RecentCells* pRecent = nullptr) const;
    /// The mean of the points where the edges of a cell cut a plane. With fewer than three of them, or an edge along
    /// the plane, ok is false after a warning.
    Point3 getMidOfCutPlane(RCD r, const Plane& plane, bool& ok) const;

    const std::vector<Tri*>& getTriangles() const { return vTri; }

private:
    void linkEdge2T(const std::vector<Point3*>& vCorners);
    void sortFaces(std::span<Point3> points, size_t numOnEdges) const;
    void bfsSort();
    bool isFirstOfRun(size_t i) const;
    void linkRuns(std::vector<std::array<size_t, 3>>& runs) const;
    size_t getNumber(const Tri* t) const { return static_cast<size_t>(t - triangles.data()); }
    std::pair<Point3*, Point3*> getEnds(size_t i) const { return {vEdge2Tri[i].first, vEdge2Tri[i].second.first}; }
    double getFoldAngle(size_t run) const;

    void checkAreas() const;
    void splitEdges(double featureAngle, std::vector<FeatureRecord>& vFE, std::vector<size_t>& vNonFeat);
    void reorderFeatureEdges(std::vector<FeatureRecord>& vFE) const;
    void claimFeatureEnds(const std::vector<FeatureRecord>& vFE, std::vector<Point3>& vPixels);
    void claimFeatureEdges(const std::vector<FeatureRecord>& vFE, std::vector<Point3>& vPixels, CellPairs& vFeatures,
                           CellPairs& vBorders);
    void claimFlatEdges(const std::vector<size_t>& vNonFeat, std::vector<Point3>& vPixels);
    void claimFaces(std::vector<Point3>& vPixels);

    /// The number of lattice planes between two points: about the steps of a walk from one to the other.
    u64 countSteps(const Point3& a, const Point3& b) const;
    void rasterizeStrips(const Strips& strips, size_t first, size_t last, Raster& vR, RecentCells* pRecent) const;
    Point3 getCorner(RCD r) const;
    Point3 getMid(RCD r) const;
    bool moveOntoPlane(RCD r, const Plane& plane, Point3& point) const;
    bool cutCell(RCD r, const Plane& plane, Point3& mean, int& numCuts, bool& bAllMet) const;

    Calc* const pCalc;
    const double spacingAbs;
    std::vector<Tri*> vTri; // owned: all lie in one array in the order of the input
    /// Three entries per triangle, sorted: the ends of an edge by address, and the triangle. The entries of one edge
    /// are a run, and its first entry stands for the edge. Nested so that the sort sees a plain key in front.
    std::vector<std::pair<Point3*, std::pair<Point3*, Tri*>>> vEdge2Tri;
    std::vector<Tri> triangles;
    const AxisPlanes xPlanes, yPlanes, zPlanes;
    CellSet sClaimed; // cells that have their point
};

} // namespace MIRT_ZAV
