// Synthetic clouds: the same numbers for a seed, inside of their bounds, and a surface without jumps.
#include "helpers/capture.h"
#include "zav/generators.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>

using namespace MIRT_ZAV;

TEST(Generators, NumbersAreThoseOfRand)
{
    std::vector<double> numbers = {1, 2, 3, 4, 5}, again;
    generateRandomNumbers(3, -2.0, 6.0, numbers, 42);
    std::srand(42);
    for (const double number : numbers)
        EXPECT_EQ(number, std::ldexp(std::rand() * 8.0, -31) - 2.0);
    EXPECT_EQ(numbers.size(), 3u);
    // Seed 0 goes by the time, but two calls within a second differ, too.
    generateRandomNumbers(3, 0.0, 1.0, numbers, 0);
    generateRandomNumbers(3, 0.0, 1.0, again, 0);
    EXPECT_NE(numbers, again);
    for (const double max : {1.0, std::nan("")})
        EXPECT_TRUE(test::hasBug("min<max", [&] { generateRandomNumbers(1, 1.0, max, numbers, 1); }));
}

TEST(Generators, PointsTakeTheirCoordinatesAxisByAxis)
{
    std::vector<double> numbers;
    std::vector<Point3> points = {{9, 9, 9}};
    generateRandomPoints(100, -1.0, 1.0, points, 7);
    generateRandomNumbers(200, -1.0, 1.0, numbers, 7);
    ASSERT_EQ(points.size(), 101u);
    for (size_t i = 0; i < 100; ++i)
        ASSERT_EQ(points[1 + i], Point3(numbers[i], numbers[100 + i], 0.0));
    points.clear();
    generateRandomPoints3D(100, -1.0, 1.0, points, 7);
    generateRandomNumbers(300, -1.0, 1.0, numbers, 7);
    ASSERT_EQ(points.size(), 100u);
    for (size_t i = 0; i < 100; ++i)
        ASSERT_EQ(points[i], Point3(numbers[i], numbers[100 + i], numbers[200 + i]));
}

TEST(Generators, SurfacePointsLieOnASmoothSurfaceInTheBox)
{
    for (const auto& [numX, numY] : {std::pair<size_t, size_t>(0, 1), {7, 3}})
    {
        std::vector<Point3> points, again;
        generateRandomSurfacePoints(40000, numX, numY, 10, -5, 2, 14, -4, 3, points, 11);
        generateRandomSurfacePoints(40000, numX, numY, 10, -5, 2, 14, -4, 3, again, 11);
        ASSERT_EQ(points, again);
        std::vector<double> vX, vY;
        generateRandomNumbers(40000, 10, 14, vX, 11);
        generateRandomNumbers(40000, -5, -4, vY, 12);
        EXPECT_TRUE(points[777].x() == vX[777] && points[777].y() == vY[777]);
        double lowest = 3.0, highest = 2.0;
        for (const Point3& p : points)
        {
            ASSERT_TRUE(p.x() >= 10 && p.x() <= 14 && p.y() >= -5 && p.y() <= -4 && p.z() >= 2 && p.z() <= 3) << p;
            lowest = std::min(lowest, p.z());
            highest = std::max(highest, p.z());
        }
        EXPECT_GT(highest - lowest, 0.3);
        // Neighbours along x of nearly the same y have nearly the same height: a wave is 0.17 wide.
        std::sort(points.begin(), points.end());
        size_t numPairs = 0;
        for (size_t i = 0; i < points.size(); ++i)
            for (size_t j = i + 1; j < points.size() && points[j].x() - points[i].x() < 0.002; ++j)
                if (std::fabs(points[i].y() - points[j].y()) < 0.002)
                {
                    ++numPairs;
                    ASSERT_LT(std::fabs(points[i].z() - points[j].z()), 0.06);
                }
        EXPECT_GT(numPairs, 1000u);
    }
}

TEST(Generators, BoxesThatAreNoneAreRefused)
{
    std::vector<Point3> points;
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double max : {0.0, -1.0, std::nan(""), infinity})
        for (size_t axis = 0; axis < 3; ++axis)
        {
            double upper[3] = {1, 1, 1};
            upper[axis] = max;
            const auto generate = [&]
            { generateRandomSurfacePoints(9, 2, 2, 0, 0, 0, upper[0], upper[1], upper[2], points, 1); };
            EXPECT_NE(test::outputOf(generate).find("WARNING"), std::string::npos) << axis << ' ' << max;
        }
    EXPECT_THROW(generateRandomSurfacePoints(9, SIZE_MAX, 2, 0, 0, 0, 1, 1, 1, points, 1), std::length_error);
    EXPECT_TRUE(points.empty());
}
