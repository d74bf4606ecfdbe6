// Points as a scanner would measure them on a made-up object.
//
// Each view looks at the object from a place of its own and measures distances along a regular raster of directions.
// So the clouds are bad in the ways that real ones are: dense where the surface faces the scanner and sparse where it
// turns away, in layers where several views overlap, open where no view gets to.
#pragma once

#include <Point3.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zavtool
{

struct ScanSettings
{
    std::string shape; // "sphere", "torus", "box" or "wave"; all fit into the cube from -1 to 1
    size_t numPoints = 100000;
    int numViews = 8;
    double noise = 0.2; // standard deviation along the normal, in mean spacings
    double gap = 0.0;   // width of the strip left out, in mean spacings
    std::uint64_t seed = 1;
};

/// Coloured by position. The same settings give the same bits on every machine: sums, products, quotients and square
/// roots are all there is, and the random numbers come from a generator that the C++ standard fixes.
/// \throws Failure  when the views see too little
std::vector<MIRT_ZAV::Point3> scan(const ScanSettings& settings);

} // namespace zavtool
