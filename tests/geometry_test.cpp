#include "Plane.h"
#include "Segment3.h"
#include "capture.h"
#include "freeFunctions.h"

#include <algorithm>
#include <limits>
#include <unistd.h>

using namespace MIRT_ZAV;
using test::bugReportOf;
using test::hasBug;
using test::outputOf;

namespace
{
const double notANumber = std::numeric_limits<double>::quiet_NaN();

std::vector<Point3> tetrahedron()
{
    const Point3 o(0, 0, 0), x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    return {o, y, x, o, x, z, o, z, y, x, y, z}; // outward
}
} // namespace

TEST(Point3Order, IsLexicographicAndBlindToColour)
{
    Point3 red(1, 2, 3);
    red.setColor(255, 0, 0, 0);
    const Point3 plain(1, 2, 3);
    EXPECT_FALSE(red < plain || plain < red);
    EXPECT_EQ(red, plain);
    EXPECT_LT(Point3(1, 9, 9), Point3(2, 0, 0));
    EXPECT_LT(Point3(1, 1, 9), Point3(1, 2, 0));
    EXPECT_LT(Point3(1, 1, 1), Point3(1, 1, 2));
    EXPECT_LT(Point3(notANumber, 1, 0), Point3(0, 2, 0)); // not a number passes to the next coordinate
    EXPECT_LT(std::make_pair(1ull, Point3(9, 9, 9)), std::make_pair(2ull, Point3(0, 0, 0)));
}

TEST(Point3Colour, ComesOnlyFromInputs)
{
    Point3 p(1, 2, 3);
    EXPECT_FALSE(p.hasColor());
    p.setColor(1, 2, 3, 4);
    const Point3 moved = p + Vector3(1, 0, 0);
    EXPECT_FALSE(moved.hasColor());
    EXPECT_EQ(int(moved.r) + moved.g + moved.b + moved.a, 0);
    EXPECT_TRUE(Segment3(p, moved).getSrc().hasColor());
}

TEST(PointOutput, ShowsAddressAndColour)
{
    Point3 p(1.5, -2, 3);
    std::ostringstream plain, coloured, address;
    address << static_cast<const void*>(&p);
    plain << p;
    EXPECT_EQ(plain.str(), "Point3 (" + address.str() + "): 1.5, -2, 3, no color");
    p.setColor(1, 2, 3, 255);
    coloured << p;
    EXPECT_EQ(coloured.str(), "Point3 (" + address.str() + "): 1.5, -2, 3, color(1,2,3,255)");
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
}

TEST(Normal, SurvivesNeedlesThatWouldUnderflow)
{
    bool ok = false;
    const Vector3 n = getNormalVector(Point3(), Point3(1e-150, 0, 0), Point3(0, 1e-150, 0), ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(n.z(), 1.0);
    EXPECT_TRUE(n.isNV());
    EXPECT_TRUE(Vector3(1.0148, 0, 0).isNV());
    EXPECT_FALSE(Vector3(1.0149, 0, 0).isNV());
}

TEST(Area, HeronAgreesWithTheCrossProduct)
{
    const Point3 a(0, 0, 0), b(3, 0, 0), c(0, 4, 0);
    EXPECT_EQ(getArea(&a, &b, &c), 6.0);
    EXPECT_EQ(getArea25D(&a, &b, &c), 6.0);
    EXPECT_EQ(computeArea(3, 4, 5), 6.0);
    EXPECT_EQ(computeArea(1, 1, 2), 0.0);
    EXPECT_EQ(computeArea(1, 1, 3), 0.0); // no triangle: rounding is tolerated silently
}

TEST(Area, NotANumberWarnsAndIsABug)
{
    const std::string report = bugReportOf([] { computeArea(1, notANumber, 2); });
    EXPECT_EQ(report.find("\n\033[0;93m      [ZAV Message] computeArea(), WARNING: "
                          "invalid value, no area for this triangle\033[m\n\n"
                          "ownHalfCircf=nan\nlen0=1\nlen1=nan\nlen2=2\n"),
              0u)
        << report;
    EXPECT_NE(report.find("Condition [ false failed ]"), std::string::npos);
}

TEST(Volume, OfAClosedSoup)
{
    std::vector<Point3> soup = tetrahedron();
    EXPECT_NEAR(computeVolume(soup), 1.0 / 6.0, 1e-15);
    for (size_t i = 0; i < soup.size(); i += 3)
        std::swap(soup[i], soup[i + 1]);
    EXPECT_NEAR(computeVolume(soup), -1.0 / 6.0, 1e-15);
    soup.insert(soup.end(), {Point3(5, 5, 5), Point3(5, 5, 5), Point3(6, 6, 6)}); // degenerate: adds nothing
    EXPECT_NEAR(computeVolume(soup), -1.0 / 6.0, 1e-15);
    std::vector<Point3> none;
    EXPECT_EQ(computeVolume(none), 0.0);
}

TEST(Angle, RoundingBeyondOne)
{
    const Vector3 x(1, 0, 0), y(0, 1, 0), longX(1 + 1e-15, 0, 0), longMinusX(-1 - 1e-15, 0, 0);
    EXPECT_EQ(getAngleDegree(x, longX), 0.0);
    EXPECT_EQ(getAngleRad(x, longX), 0.0);
    EXPECT_EQ(getAngleDegree(x, longMinusX), 180.0);
    EXPECT_EQ(getAngleRad(x, longMinusX), 6.283185307); // deliberately twice the angle
    EXPECT_EQ(getAngleDegree(x, y), 57.295779513 * std::acos(0.0));
    EXPECT_EQ(getAngleRad(x, Vector3(-1, 0, 0)), std::acos(-1.0));
}

TEST(PlaneOf, PointAndNormal)
{
    const Plane plane(Point3(0, 0, 2), Vector3(0, 0, 10));
    EXPECT_EQ(plane.normal.z(), 1.0);
    EXPECT_EQ(plane.d, 2.0);
    EXPECT_TRUE(plane.hasOnPositiveSide(Point3(5, 5, 3)));
    EXPECT_TRUE(plane.hasOnNegativeSide(Point3(5, 5, 1)));
    EXPECT_FALSE(plane.hasOnPositiveSide(Point3(5, 5, 2)) || plane.hasOnNegativeSide(Point3(5, 5, 2)));
    EXPECT_EQ(plane.projection(Point3(7, 8, 9)), Point3(7, 8, 2));
}

TEST(PlaneOf, ThreePoints)
{
    const Plane plane(Point3(0, 0, 1), Point3(1, 0, 1), Point3(0, 1, 1));
    EXPECT_EQ(plane.normal.z(), 1.0);
    EXPECT_EQ(plane.d, 1.0);

    const Point3 a(1, 0, 0), b(2, 0, 0), c(3, 0, 0);
    bool ok = true;
    EXPECT_EQ(outputOf([&] { Plane(a, b, c, ok); }), "");
    EXPECT_FALSE(ok);
    Plane zero;
    const std::string message = outputOf([&] { zero = Plane(a, b, c); });
    EXPECT_TRUE(zero.normal.isZero());
    EXPECT_EQ(message.find("\n\033[0;31m      [ZAV Message] \033[0;93m ** "), 0u) << message;
    EXPECT_NE(message.find(" ** \033[m, ERROR: Degenerate plane\033[m\n\n"), std::string::npos) << message;

    const double huge = 1e308;
    EXPECT_TRUE(
        hasBug("vecLen>.99 && vecLen<1.01", [&] { Plane(Point3(), Point3(huge * 10, 0, 0), Point3(0, 1, 0), ok); }));
}

TEST(PlaneOf, MeetsInfiniteLines)
{
    const Plane plane(Point3(0, 0, 2), Vector3(0, 0, 1));
    Point3 from(1, 1, 0);
    from.setColor(9, 9, 9, 9);
    bool ok = false;
    const Point3 hit = plane.intersectLine(from, Point3(1, 1, 1), ok); // beyond the segment's end
    EXPECT_TRUE(ok);
    EXPECT_EQ(hit, Point3(1, 1, 2));
    EXPECT_FALSE(hit.hasColor());
    const Point3 unchanged = plane.intersectLine(from, Point3(2, 2, 0), ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(unchanged, from);
    EXPECT_TRUE(unchanged.hasColor());
}

TEST(Messages, ColoursAndForms)
{
    EXPECT_EQ(redString("x", 1), "\033[1;31mx\033[m");
    EXPECT_EQ(greenString("x", 0), "\033[0;32mx\033[m");
    EXPECT_EQ(yellowString("x", 0), "\033[0;93mx\033[m");
    EXPECT_EQ(magentaString("x", 0, false), "\033[0;35mx\033[m");
    EXPECT_EQ(magentaString("x", 0, true), "\033[0;35;4mx\033[m");
    EXPECT_EQ(outputOf([] { warning("t", "m"); }), "\n\033[0;93m      [ZAV Message] t, WARNING: m\033[m\n\n");
    EXPECT_EQ(outputOf([] { error("t", "m"); }), "\n\033[0;35m      [ZAV Message] t, ERROR: m\033[m\n\n");
    EXPECT_EQ(outputOf([] { errorMsg("t", "m"); }), "\n\033[0;31m      [ZAV Message] t, ERROR: m\033[m\n\n");
    EXPECT_EQ(outputOf([] { info("t", "m"); }), "\n\033[0;35m      t, INFO: m\033[m\n");
    EXPECT_EQ(outputOf([] { info("", "m"); }), "\n      [ZAV Message] INFO: m\n");
    EXPECT_EQ(locationTag("void f()", 12), "\033[0;93m ** void f():12 ** \033[m");
}

TEST(Bugs, PrintThenThrow)
{
    EXPECT_EQ(bugReportOf([] { showBug("src_lib/Calc", "7", "void f()", "a<b"); }),
              "\033[0;31m      src_lib/Calc:7\033[m\n\033[0;31m      void f()\033[m\n"
              "\n\033[0;31m      [ZAV Message] ASSEX, ERROR: Condition [ a<b failed ]\033[m\n\n");
    EXPECT_STREQ(ZavBugException().what(), "ZAV Exception - Bug OR incorrect usage. Kindly report any bugs to ensure "
                                           "they are solved quickly!");
    // The path starts at the root of the source tree.
    EXPECT_EQ(bugReportOf([] { ZAV_ASSERT(1 > 2, "1>2"); }).find("\033[0;31m      tests/geometry_test.cpp:"), 0u);
    EXPECT_EQ(bugReportOf([] { ZAV_ASSERT(2 > 1, "2>1"); }), "no bug");
}

TEST(StopsDeathTest, EndTheProcess)
{
    const auto toStderr = [] { dup2(STDERR_FILENO, STDOUT_FILENO); };
    EXPECT_EXIT((toStderr(), deliberateExit("enough")), testing::ExitedWithCode(0), "\n\ndeliberateExit\\(enough\\)\n");
    EXPECT_DEATH((toStderr(), goToHell("no way on")), "goToHell\\(\\): no way on\n");
}

TEST(Timers, PrintByName)
{
    const std::string watch = outputOf(
        []
        {
            stopWatch("a");
            stopWatch("a");
            stopWatch("STOP AND REPORT");
        });
    EXPECT_EQ(watch.find("\n* START [ a ] * STOP [ a ], Time: ["), 0u) << watch;
    EXPECT_NE(watch.find(" s]\n* [ a ]"), std::string::npos) << watch;
    const std::string timer = outputOf(
        []
        {
            timerx("[quiet]q");
            timerx("[quiet]q");
            timerx("b");
            timerx("b");
        });
    EXPECT_EQ(timer.find("...Timer [b] start\n...Timer [b] stop, elapsed time: "), 0u) << timer;
    const std::string counters = outputOf(
        []
        {
            benchCounter("c");
            benchCounter("c");
            benchCounter("GETCOUNTERS");
        });
    EXPECT_EQ(counters, "Benchmark: c=2 \n");
}

TEST(Text, ReplaceAndNumbers)
{
    EXPECT_EQ(repstr("aaa", "a", "aa"), "aaaaaa"); // goes on behind the text inserted
    EXPECT_EQ(repstr("ababab", "aba", "x"), "xbab");
    EXPECT_EQ(repstr("abc", "", "x"), "abc");
    EXPECT_EQ(toString(-12), "-12");
}

TEST(CpuCount, NegativeAsksZeroResets)
{
    const test::CpuCount restore(getGlobalNumCPU());
    const int hardware = getSetGlobalNumCPU(0);
    EXPECT_GE(hardware, 1);
    EXPECT_EQ(getSetGlobalNumCPU(hardware + 3), hardware + 3);
    EXPECT_EQ(getSetGlobalNumCPU(-1), hardware + 3);
    EXPECT_EQ(getSetGlobalNumCPU(0), hardware);
    EXPECT_EQ(getGlobalNumCPU(), hardware);
}
