// Numbers that describe a triangle mesh given as a list of corners.
#pragma once

#include <Point3.h>

#include <cstddef>
#include <vector>

namespace zavtool
{

struct BoundingBox
{
    MIRT_ZAV::Point3 min;
    MIRT_ZAV::Point3 max;
};

/// \param points  finite, at least one
BoundingBox getBoundingBox(const std::vector<MIRT_ZAV::Point3>& points);

/// A hole or the rim of an open piece, in input units.
struct BorderSize
{
    size_t numEdges = 0;
    double length = 0.0;
    BoundingBox box;
    bool bClosed = true; // false: it ends at edges with three and more triangles
};

/// Corners with equal coordinates count as one vertex. Edges, angles and components look at the proper triangles alone:
/// finite ones with three different vertices.
struct MeshStatistics
{
    size_t numTriangles = 0; // proper ones
    size_t numCollapsed = 0; // with two corners at the same place
    size_t numNotFinite = 0; // with a coordinate that isn't finite
    size_t numVertices = 0;  // used by proper triangles
    size_t numEdges = 0;
    size_t numBorderEdges = 0;   // with one triangle
    size_t numRegularEdges = 0;  // with two
    size_t numMultipleEdges = 0; // with three and more
    size_t numTurnedEdges = 0;   // with two that are wound against each other
    size_t numRepeated = 0;      // triangles with the three vertices of another one
    size_t numComponents = 0;    // parts that share no vertex
    double meanEdgeLength = 0.0;
    std::vector<BorderSize> borders; // by falling length
    // Of the smallest angle of each triangle, in degrees.
    double leastAngle = 0.0;
    double medianAngle = 0.0;
    double shareBelow5 = 0.0; // 0 to 1
    double shareBelow10 = 0.0;
    double shareBelow30 = 0.0;

    /// Vertices - edges + triangles; 2 for a closed surface like a sphere, 0 for one like a torus.
    long long getEuler() const
    {
        return static_cast<long long>(numVertices) - static_cast<long long>(numEdges) +
               static_cast<long long>(numTriangles);
    }
};

/// \param corners  three per triangle; triangles with a corner that isn't finite are removed
MeshStatistics getMeshStatistics(std::vector<MIRT_ZAV::Point3>& corners);

} // namespace zavtool
