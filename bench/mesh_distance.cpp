// How far two surfaces lie apart: mesh_distance A B [LENGTH], PLY or text STL files.
//
// Samples each surface evenly by area and measures from every sample to the nearest point of the other one. Prints the
// mean, the 95th and 99th percentile and the largest distance for each of the two directions, in units of LENGTH if it
// is given. The greater of the two largest ones approaches the Hausdorff distance from below.
#include "geometry/freeFunctions.h"
#include "zav/zav_api.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <unordered_map>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
using Triangle = std::array<Point3, 3>;

std::vector<Triangle> readTriangles(const char* path)
{
    std::vector<Point3> corners;
    std::vector<Triangle> triangles;
    const bool bStl = getFileType(path) == 0;
    if (!(bStl ? readSTL_ASCII(path, corners) : readPly(path, false, corners)))
        std::exit(1);
    for (size_t i = 0; i + 2 < corners.size(); i += 3)
        triangles.push_back({corners[i], corners[i + 1], corners[i + 2]});
    return triangles;
}

/// The distance from p to a triangle. Which corner, edge or the inside is nearest follows from signs of dot products,
/// that is, from the Voronoi region that p lies in (Ericson, Real-Time Collision Detection, 5.1.5).
double getDistance(const Point3& p, const Triangle& t)
{
    const Vector3 ab = t[1] - t[0], ac = t[2] - t[0], ap = p - t[0];
    const double d1 = ab * ap, d2 = ac * ap;
    if (d1 <= 0 && d2 <= 0)
        return ap.length();
    const Vector3 bp = p - t[1];
    const double d3 = ab * bp, d4 = ac * bp;
    if (d3 >= 0 && d4 <= d3)
        return bp.length();
    const Vector3 cp = p - t[2];
    const double d5 = ab * cp, d6 = ac * cp;
    if (d6 >= 0 && d5 <= d6)
        return cp.length();
    const double vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0)
        return (ap - ab * (d1 / (d1 - d3))).length();
    const double vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0)
        return (ap - ac * (d2 / (d2 - d6))).length();
    const double va = d3 * d6 - d5 * d4;
    if (va <= 0 && d4 >= d3 && d5 >= d6)
        return (bp - (ac - ab) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)))).length();
    const double sum = va + vb + vc;
    return sum > 0 ? (ap - ab * (vb / sum) - ac * (vc / sum)).length() : ap.length();
}

/// Finds near triangles: a hash grid with each triangle in all cubes that its box touches. A cube is about two edges
/// wide.
class Grid
{
public:
    Grid(const std::vector<Triangle>& trianglesArg) : triangles(trianglesArg)
    {
        double sum = 0.0;
        for (const Triangle& t : triangles)
            sum += (t[1] - t[0]).length();
        side = 2.0 * sum / static_cast<double>(triangles.size());
        for (size_t i = 0; i < triangles.size(); ++i)
        {
            const Triangle& t = triangles[i];
            const auto range = [&](auto get)
            {
                const auto [low, high] = std::minmax({get(t[0]), get(t[1]), get(t[2])});
                return std::pair(cellOf(low), cellOf(high));
            };
            const auto [x0, x1] = range([](const Point3& p) { return p.x(); });
            const auto [y0, y1] = range([](const Point3& p) { return p.y(); });
            const auto [z0, z1] = range([](const Point3& p) { return p.z(); });
            for (long x = x0; x <= x1; ++x)
                for (long y = y0; y <= y1; ++y)
                    for (long z = z0; z <= z1; ++z)
                        cells[keyOf(x, y, z)].push_back(static_cast<std::uint32_t>(i));
        }
    }

    /// Goes outwards in shells of cubes until none can hold anything nearer; HUGE_VAL beyond 1000 shells.
    double getDistance(const Point3& p) const
    {
        double best = HUGE_VAL;
        const long x = cellOf(p.x()), y = cellOf(p.y()), z = cellOf(p.z());
        for (long r = 0; r < 1000 && static_cast<double>(r - 1) * side < best; ++r)
            for (long i = -r; i <= r; ++i)
                for (long j = -r; j <= r; ++j)
                {
                    const bool bShell = std::labs(i) == r || std::labs(j) == r;
                    for (long k = -r; k <= r; k += bShell || r == 0 ? 1 : 2 * r)
                        if (const auto it = cells.find(keyOf(x + i, y + j, z + k)); it != cells.end())
                            for (const std::uint32_t triangle : it->second)
                                best = std::min(best, ::getDistance(p, triangles[triangle]));
                }
        return best;
    }

private:
    long cellOf(double value) const { return static_cast<long>(std::floor(value / side)); }
    static std::uint64_t keyOf(long x, long y, long z)
    {
        const auto part = [](long value) { return static_cast<std::uint64_t>(value + (1 << 20)) & 0x1fffff; };
        return part(x) << 42 | part(y) << 21 | part(z);
    }

    const std::vector<Triangle>& triangles;
    double side = 0.0;
    std::unordered_map<std::uint64_t, std::vector<std::uint32_t>> cells;
};

/// Prints the line of one direction. Points are even over a triangle as Osada et al. draw them (Shape Distributions,
/// 2002): the square root spreads them away from the first corner.
void measure(const char* name, const std::vector<Triangle>& from, const Grid& to, double unit)
{
    constexpr size_t numSamples = 300000;
    std::mt19937 random(1);
    std::uniform_real_distribution<double> one(0.0, 1.0);
    std::vector<double> sums;
    double sum = 0.0;
    for (const Triangle& t : from)
        sums.push_back(sum += getArea(&t[0], &t[1], &t[2]));
    std::vector<double> distances;
    double total = 0.0;
    for (size_t i = 0; i < numSamples; ++i)
    {
        const auto it = std::upper_bound(sums.begin(), sums.end(), one(random) * sum);
        const Triangle& t = from[std::min(static_cast<size_t>(it - sums.begin()), from.size() - 1)];
        const double s = std::sqrt(one(random)), u = one(random);
        distances.push_back(to.getDistance(t[0] + (t[1] - t[0]) * (s * (1 - u)) + (t[2] - t[0]) * (s * u)) / unit);
        total += distances.back();
    }
    std::sort(distances.begin(), distances.end());
    std::printf("%-6s mean %.4g, 95 %% below %.4g, 99 %% below %.4g, largest %.4g\n", name, total / numSamples,
                distances[numSamples * 95 / 100], distances[numSamples * 99 / 100], distances.back());
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return std::fputs("usage: mesh_distance A B [LENGTH]\n", stderr), 2;
    const double unit = argc > 3 ? std::atof(argv[3]) : 1.0;
    const std::vector<Triangle> a = readTriangles(argv[1]), b = readTriangles(argv[2]);
    const Grid gridA(a), gridB(b);
    measure("A to B", a, gridB, unit);
    measure("B to A", b, gridA, unit);
}
