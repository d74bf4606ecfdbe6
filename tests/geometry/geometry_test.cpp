#include "geometry/Plane.h"
#include "geometry/arcCosine.h"
#include "geometry/exponential.h"
#include "geometry/freeFunctions.h"
#include "helpers/capture.h"

#include <algorithm>
#include <limits>
#include <random>

using namespace MIRT_ZAV;
using test::hasBug;
using test::outputOf;

namespace
{
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
} // namespace

TEST(Point, OrderIsLexicographicAndBlindToColour)
{
    const Point3 rising[] = {{1, 1, 1}, {1, 1, 2}, {1, 2, 0}, {2, 0, 0}};
    for (const Point3& p : rising)
        for (const Point3& q : rising)
            EXPECT_EQ(p < q, &p < &q) << p << q;
    EXPECT_LT(Point3(notANumber, 1, 0), Point3(0, 2, 0)); // where one isn't a number, the next coordinate decides
    Point3 red(1, 2, 3);
    red.setColor(1, 2, 3, 255);
    EXPECT_EQ(red, Point3(1, 2, 3));
    EXPECT_FALSE((red + Vector3()).hasColor()); // only inputs have colours
}

TEST(Normal, DegenerateInputGivesZero)
{
    EXPECT_TRUE(normalize(Vector3()).isZero());
    EXPECT_TRUE(normalize(Vector3(notANumber, 0, 0)).isZero());
    const Point3 a(1, 1, 1), b(2, 2, 2), c(3, 3, 3);
    for (const Point3& second : {a, b})
    {
        bool ok = true;
        EXPECT_TRUE(getNormalVector(a, second, c, ok).isZero());
        EXPECT_FALSE(ok);
    }
    bool ok = false; // a needle whose cross product would underflow
    EXPECT_EQ(getNormalVector(Point3(), Point3(1e-150, 0, 0), Point3(0, 1e-150, 0), ok).z(), 1.0);
    EXPECT_TRUE(ok && Vector3(1.0148, 0, 0).isNV() && !Vector3(1.0149, 0, 0).isNV());
}

TEST(Area, BySideLengths)
{
    const Point3 a(0, 0, 0), b(3, 0, 0), c(0, 4, 0);
    EXPECT_EQ(getArea(&a, &b, &c), 6.0);
    EXPECT_EQ(getArea25D(&a, &b, &c), 6.0);
    EXPECT_EQ(computeArea(1, 1, 3), 0.0); // no triangle: rounding is tolerated silently
    EXPECT_TRUE(hasBug("false", [] { computeArea(1, notANumber, 2); }));
}

TEST(Volume, OfAClosedSoup)
{
    const Point3 o(0, 0, 0), x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    std::vector<Point3> soup = {o, y, x, o, x, z, o, z, y, x, y, z}; // outward
    EXPECT_NEAR(computeVolume(soup), 1.0 / 6.0, 1e-15);
    std::reverse(soup.begin(), soup.end());
    soup.insert(soup.end(), {x, x, y}); // degenerate: adds nothing
    EXPECT_NEAR(computeVolume(soup), -1.0 / 6.0, 1e-15);
}

TEST(Angle, RoundingBeyondOne)
{
    const Vector3 x(1, 0, 0), y(0, 1, 0), longX(1 + 1e-15, 0, 0), longMinusX(-1 - 1e-15, 0, 0);
    EXPECT_EQ(getAngleDegree(x, longX), 0.0);
    EXPECT_EQ(getAngleDegree(x, longMinusX), 180.0);
    EXPECT_EQ(getAngleRad(x, longMinusX), 6.283185307); // twice the angle, which results depend on
    EXPECT_EQ(getAngleDegree(x, y), 57.295779513 * std::acos(0.0));
    EXPECT_EQ(getAngleRad(x, Vector3(-1, 0, 0)), std::acos(-1.0));
}

TEST(PlaneOf, ThreePoints)
{
    const Plane plane(Point3(0, 0, 1), Point3(1, 0, 1), Point3(0, 1, 1));
    EXPECT_TRUE(plane.normal.z() == 1.0 && plane.d == 1.0);
    const Point3 a(1, 0, 0), b(2, 0, 0), c(3, 0, 0);
    bool ok = true;
    EXPECT_EQ(outputOf([&] { Plane(a, b, c, ok); }), "");
    EXPECT_FALSE(ok);
    const std::string message = outputOf([&] { EXPECT_TRUE(Plane(a, b, c).normal.isZero()); });
    EXPECT_NE(message.find("ERROR: Degenerate plane"), std::string::npos) << message;
    EXPECT_TRUE(hasBug("vecLen>.99 && vecLen<1.01", [&] { Plane(a, Point3(inf, 0, 0), Point3(0, 1, 0), ok); }));
}

TEST(PlaneOf, SidesAndLines)
{
    const Plane plane(Point3(0, 0, 2), Vector3(0, 0, 10));
    EXPECT_TRUE(plane.normal.z() == 1.0 && plane.d == 2.0);
    EXPECT_TRUE(plane.hasOnPositiveSide(Point3(5, 5, 3)) && plane.hasOnNegativeSide(Point3(5, 5, 1)));
    EXPECT_FALSE(plane.hasOnPositiveSide(Point3(5, 5, 2)) || plane.hasOnNegativeSide(Point3(5, 5, 2)));
    EXPECT_EQ(plane.projection(Point3(7, 8, 9)), Point3(7, 8, 2));
    bool ok = false;
    EXPECT_EQ(plane.intersectLine(Point3(1, 1, 0), Point3(1, 1, 1), ok), Point3(1, 1, 2)); // beyond the segment's end
    EXPECT_TRUE(ok);
    EXPECT_EQ(plane.intersectLine(Point3(1, 1, 0), Point3(2, 2, 0), ok), Point3(1, 1, 0));
    EXPECT_FALSE(ok);
}

TEST(OwnFunctions, AgreeWithTheLibrarysInMoreDigits)
{
    std::mt19937_64 random(3);
    int numRoundedOtherwise = 0;
    for (int i = 0; i < 200000; ++i)
    {
        const double x = std::ldexp(double(random() >> 11) / 0x1p53, -int(random() % 40));
        for (const double y : {x, -x, 1.0 - x, x - 1.0})
        {
            const long double angle = std::acos(static_cast<long double>(y));
            ASSERT_LE(std::fabs(arcCosine(y) - angle), 3e-16L * std::max(angle, 1.0L)) << y;
            ASSERT_LE(std::fabs(arcCosineRounded(y) - angle), 1.2e-16L * angle) << y;
            numRoundedOtherwise += arcCosineRounded(y) != static_cast<double>(angle);
        }
        const double power = std::ldexp(x, int(random() % 10)) * (i % 2 == 0 ? 1.0 : -1.0);
        const long double expected = std::exp(static_cast<long double>(power));
        ASSERT_LE(std::fabs(exponential(power) - expected), 4e-16L * expected) << power;
    }
    EXPECT_LT(numRoundedOtherwise, 4000) << "one of 200";
    for (const double x : {1e-3, 1e-6, 1e-8}) // small angles keep their digits
        EXPECT_NEAR(arcCosine(1.0 - x) / static_cast<double>(std::acos(1.0L - static_cast<long double>(x))), 1.0, 1e-8);
    for (double (*const f)(double) : {arcCosine, arcCosineRounded})
    {
        EXPECT_EQ(f(1.0), 0.0);
        EXPECT_EQ(f(-1.0), M_PI);
        EXPECT_TRUE(std::isnan(f(NAN)) && std::isnan(f(1.5)));
    }
    EXPECT_TRUE(exponential(0.0) == 1.0 && exponential(-800.0) == 0.0 && exponential(-inf) == 0.0);
    EXPECT_TRUE(exponential(800.0) == inf && std::isnan(exponential(NAN)));
    EXPECT_NEAR(exponential(-744.0) / 5e-324, 1.9, 1.0); // the least numbers there are
}
