#include "zav/generators.h"

#include "base/tools.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace MIRT_ZAV
{
namespace
{
/// Calls with seed 0 so far. Each seeds once more than the one before, so that calls within one second differ.
std::atomic<unsigned long long> ithCall{0};

void seedRandom(unsigned int seed)
{
    if (seed != 0)
    {
        std::srand(seed);
        return;
    }
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    const unsigned long long numBefore = ithCall++;
    for (unsigned long long i = 0; i < numBefore; ++i)
        std::srand(static_cast<unsigned int>(std::rand()));
}

/// The seed of the next series. 0 means the time and stays 0; the greatest seed must not wrap round to it.
unsigned int nextSeed(unsigned int seed)
{
    return seed == 0 ? 0 : std::max(seed + 1, 1u);
}

/// One bump per unit of length, from 0 to 1 and back, smooth where two of them meet. It stands in for a sine, whose
/// last bits differ between C libraries.
double wave(double x)
{
    const double t = x - std::floor(x);
    return 16.0 * t * t * (1.0 - t) * (1.0 - t);
}

/// From 0 to 1 with a slope of 0 at both ends (smoothstep).
double ease(double t)
{
    return t * t * (3.0 - 2.0 * t);
}

/// Weights on the nodes of a grid over the unit square, smoothly interpolated between. Node (i, j) stands at
/// i * (numY + 1) + j.
class WeightGrid
{
public:
    WeightGrid(size_t numXArg, size_t numYArg, unsigned int seed)
        : numX(std::max<size_t>(numXArg, 1)), numY(std::max<size_t>(numYArg, 1))
    {
        size_t numNodes = 0;
        if (numX == SIZE_MAX || numY == SIZE_MAX || __builtin_mul_overflow(numX + 1, numY + 1, &numNodes))
            throw std::length_error("too many cells in the grid");
        generateRandomNumbers(numNodes, 0.01, 1.0, weights, seed);
    }

    /// \param u, v  0 to 1
    double at(double u, double v) const
    {
        const size_t i = std::min(static_cast<size_t>(u * static_cast<double>(numX)), numX - 1);
        const size_t j = std::min(static_cast<size_t>(v * static_cast<double>(numY)), numY - 1);
        const double s = ease(u * static_cast<double>(numX) - static_cast<double>(i));
        const double t = ease(v * static_cast<double>(numY) - static_cast<double>(j));
        const double* const row = weights.data() + i * (numY + 1) + j;
        const double* const nextRow = row + numY + 1;
        return (1.0 - s) * ((1.0 - t) * row[0] + t * row[1]) + s * ((1.0 - t) * nextRow[0] + t * nextRow[1]);
    }

private:
    size_t numX, numY;
    std::vector<double> weights;
};
} // namespace

void generateRandomNumbers(size_t count, double minVal, double maxVal, std::vector<double>& vOut, unsigned int seed)
{
    vOut.resize(count);
    seedRandom(seed);
    ZAV_ASSERT(minVal < maxVal, "min<max");
    const double step = (maxVal - minVal) * 4.656612873077393e-10; // 2^-31: rand() has 31 bits
    for (double& number : vOut)
        number = std::rand() * step + minVal;
}

void generateRandomPoints(size_t count, double minVal, double maxVal, std::vector<Point3>& vPoints, unsigned int seed)
{
    std::vector<double> numbers;
    generateRandomNumbers(2 * count, minVal, maxVal, numbers, seed);
    vPoints.reserve(vPoints.size() + count);
    for (size_t i = 0; i < count; ++i)
        vPoints.emplace_back(numbers[i], numbers[count + i], 0.0);
}

void generateRandomPoints3D(size_t count, double minVal, double maxVal, std::vector<Point3>& vPoints, unsigned int seed)
{
    std::vector<double> numbers;
    generateRandomNumbers(3 * count, minVal, maxVal, numbers, seed);
    vPoints.reserve(vPoints.size() + count);
    for (size_t i = 0; i < count; ++i)
        vPoints.emplace_back(numbers[i], numbers[count + i], numbers[2 * count + i]);
}

void generateRandomSurfacePoints(size_t count, size_t numX, size_t numY, double minX, double minY, double minZ,
                                 double maxX, double maxY, double maxZ, std::vector<Point3>& vPoints, unsigned int seed)
{
    const double extentX = maxX - minX;
    const double extentY = maxY - minY;
    const double extentZ = maxZ - minZ;
    const double frequency = 30.0 / (extentX + extentY);
    if (!(extentX > 0.0 && extentY > 0.0 && extentZ > 0.0) || !std::isfinite(extentX + extentY + extentZ) ||
        !std::isfinite(frequency))
    {
        warning(ZAV_LOCATION, "the box must be finite and have positive extents");
        return;
    }
    std::vector<double> vX, vY;
    generateRandomNumbers(count, minX, maxX, vX, seed);
    generateRandomNumbers(count, minY, maxY, vY, nextSeed(seed));
    const WeightGrid weights(numX, numY, nextSeed(nextSeed(seed)));
    vPoints.reserve(vPoints.size() + count);
    for (size_t i = 0; i < count; ++i)
    {
        const double dx = vX[i] - minX;
        const double dy = vY[i] - minY;
        const double height =
            weights.at(dx / extentX, dy / extentY) * 0.5 * (wave(dx * frequency) + wave(dy * frequency));
        vPoints.emplace_back(vX[i], vY[i], std::min(minZ + extentZ * height, maxZ));
    }
}

void shear(std::vector<Point3>& vPoints, double a, double b)
{
    for (Point3& point : vPoints)
        point = Point3(point.x() + a * point.y(), point.y() + b * point.x(), point.z());
}

} // namespace MIRT_ZAV
