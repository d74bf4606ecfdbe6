// Public functions that make clouds of random points.
//
// Random numbers come from the C library's rand(). A seed other than 0 gives the same numbers in every run; the state
// of rand() is the process's, so calls of several threads at once disturb each other. Seed 0 goes by the time; calls
// within one second still differ.
#pragma once

#include "Point3.h"
#include "zav_export.h"

#include <cstddef>
#include <vector>

namespace MIRT_ZAV
{

/// Uniform random numbers from minVal on, below maxVal but for rounding.
/// \param vOut  replaced by count numbers
/// \throws ZavBugException  unless minVal < maxVal
ZAV_API void generateRandomNumbers(std::size_t count, double minVal, double maxVal, std::vector<double>& vOut,
                                   unsigned int seed);

/// Uniform random points in a square of the plane z = 0.
/// \param minVal, maxVal  bounds of x and of y
/// \param vPoints         count points without colour are appended
/// \throws ZavBugException  unless minVal < maxVal
ZAV_API void generateRandomPoints(std::size_t count, double minVal, double maxVal, std::vector<Point3>& vPoints,
                                  unsigned int seed);

/// Uniform random points in a cube.
/// \param minVal, maxVal  bounds of all three coordinates
/// \param vPoints         count points without colour are appended
/// \throws ZavBugException  unless minVal < maxVal
ZAV_API void generateRandomPoints3D(std::size_t count, double minVal, double maxVal, std::vector<Point3>& vPoints,
                                    unsigned int seed);

/// Random points on a smooth random surface z(x, y) inside a box: waves whose height changes from cell to cell of a
/// grid over the plane.
/// \param count         number of points
/// \param numX, numY    cells of the grid; 0 counts as 1
/// \param minX .. maxZ  the lower, then the upper bounds of the box
/// \param vPoints       the points are appended, without colour; none, after a warning, unless the box is finite and
///                      has positive extents
/// \throws std::length_error, std::bad_alloc  when points or cells don't fit the memory
ZAV_API void generateRandomSurfacePoints(std::size_t count, std::size_t numX, std::size_t numY, double minX,
                                         double minY, double minZ, double maxX, double maxY, double maxZ,
                                         std::vector<Point3>& vPoints, unsigned int seed);

/// Adds a * y to x, and b * x to y, both from the old values. The points lose their colours.
ZAV_API void shear(std::vector<Point3>& vPoints, double a, double b);

} // namespace MIRT_ZAV
