#include "Calc.h"
#include "capture.h"
#include "cellSets.h"
#include "sortMT.h"

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <random>
#include <set>

using namespace MIRT_ZAV;
using test::bugReportOf;
using test::hasBug;

namespace
{
struct Cell
{
    u64 i, j, k;
};

/// Codes bit by bit, as they are defined.
CCD naiveCCD(const Cell& cell)
{
    CCD c = 0;
    for (int n = 0; n < 21; ++n)
        c |= (cell.i >> n & 1) << (3 * n + 2) | (cell.j >> n & 1) << (3 * n + 1) | (cell.k >> n & 1) << (3 * n);
    return c;
}

RCD naiveRCD(const Cell& cell)
{
    return cell.i * (u64(1) << 42) + cell.j * (u64(1) << 21) + cell.k;
}

Cell shifted(const Cell& cell, int dx, int dy, int dz)
{
    return {cell.i + static_cast<u64>(dx), cell.j + static_cast<u64>(dy), cell.k + static_cast<u64>(dz)};
}

Calc unitCalc(int numLevels)
{
    const double len = std::pow(2.0, numLevels);
    return Calc(0, 0, 0, len, len, len, numLevels);
}

/// Calls f(calc, cell) for random cells away from the lattice's ends, on several level counts.
template <class F>
void forRandomCells(const F& f)
{
    std::mt19937_64 random(7);
    for (const int numLevels : {2, 3, 13, 20, 21})
    {
        const Calc calc = unitCalc(numLevels);
        const u64 top = (u64(1) << numLevels) - 2;
        for (int n = 0; n < 200; ++n)
            f(calc, Cell{1 + random() % top, 1 + random() % top, 1 + random() % top});
    }
}

std::vector<RCD> randomCells(unsigned seed, u64 lowest, u64 extent, int numCells)
{
    std::mt19937_64 random(seed);
    std::set<RCD> known;
    std::vector<RCD> cells;
    for (int n = 0; n < numCells; ++n)
    {
        const Cell cell{lowest + random() % extent, lowest + random() % extent, lowest + random() % extent};
        if (known.insert(naiveRCD(cell)).second)
            cells.push_back(naiveRCD(cell));
    }
    return cells;
}

/// Whether two cells touch: at a face only, or also at an edge or a corner.
bool touch(RCD a, RCD b, bool bFaceOnly)
{
    const auto distance = [](u64 x, u64 y) { return x > y ? x - y : y - x; };
    const u64 dx = distance(rcd::getX(a), rcd::getX(b)), dy = distance(rcd::getY(a), rcd::getY(b)),
              dz = distance(rcd::getZ(a), rcd::getZ(b));
    return bFaceOnly ? dx + dy + dz == 1 : std::max({dx, dy, dz}) == 1;
}

std::vector<std::vector<RCD>> naiveComponents(const std::vector<RCD>& cells, bool bFaceOnly)
{
    std::vector<std::vector<RCD>> components;
    std::set<RCD> visited;
    for (const RCD start : cells)
    {
        if (!visited.insert(start).second)
            continue;
        std::vector<RCD> component = {start};
        for (size_t n = 0; n < component.size(); ++n)
            for (const RCD r : cells)
                if (touch(component[n], r, bFaceOnly) && visited.insert(r).second)
                    component.push_back(r);
        components.push_back(component);
    }
    return components;
}
} // namespace

TEST(Codes, AgreeWithTheirDefinition)
{
    forRandomCells(
        [](const Calc& calc, const Cell& cell)
        {
            const CCD c = naiveCCD(cell);
            const RCD r = naiveRCD(cell);
            ASSERT_EQ(calc.rcd2ccd(r), c);
            ASSERT_EQ(calc.ccd2rcd(c), r);
            ASSERT_EQ(rcd::fromXYZ(cell.i, cell.j, cell.k), r);
            u64 i = 0, j = 0, k = 0;
            calc.extractIntCCD(c, i, j, k);
            ASSERT_TRUE(i == cell.i && j == cell.j && k == cell.k);
            ASSERT_EQ(calc.numberToSparse(cell.i, 4) | calc.numberToSparse(cell.j, 2) | calc.numberToSparse(cell.k, 1),
                      c);
            ASSERT_EQ(calc.sparseToNumber(c, 4), cell.i);
            ASSERT_EQ(calc.sparseToNumber(c, 2), cell.j);
            ASSERT_EQ(calc.sparseToNumber(c, 1), cell.k);
            ASSERT_EQ(calc.sparseToNumber(c, 5), cell.i | cell.k);
            ASSERT_EQ(calc.numberToSparse(cell.j, 7), naiveCCD({cell.j, cell.j, cell.j}));
        });
}

TEST(Codes, BitsAboveTheLevelCountAreIgnored)
{
    const Calc calc = unitCalc(3);
    EXPECT_EQ(calc.numberToSparse(5, 4), 0x104u);
    EXPECT_EQ(calc.numberToSparse(5 + 8 + 1024, 4), 0x104u);
    EXPECT_EQ(calc.sparseToNumber(naiveCCD({13, 0, 0}), 4), 5u);
    EXPECT_EQ(calc.rcd2ccd(naiveRCD({9, 2, 3})), naiveCCD({1, 2, 3}));
    EXPECT_EQ(calc.ccd2rcd(naiveCCD({9, 2, 3})), naiveRCD({1, 2, 3}));
    EXPECT_EQ(unitCalc(0).numberToSparse(7, 4), 0u);
    EXPECT_TRUE(hasBug("axTriBit<8", [&] { calc.numberToSparse(1, 8); }));
    EXPECT_TRUE(hasBug("axTriBit<8", [&] { calc.sparseToNumber(1, 8); }));
    EXPECT_TRUE(hasBug("numLevels<=MAXLEVELS", [] { unitCalc(22); }));
}

TEST(Sparse, StepsAlongAxes)
{
    forRandomCells(
        [](const Calc& calc, const Cell& cell)
        {
            ASSERT_EQ(calc.incSparse(naiveCCD({cell.i, 0, 0}), 4), naiveCCD({cell.i + 1, 0, 0}));
            ASSERT_EQ(calc.decSparse(naiveCCD({0, cell.j, 0}), 2), naiveCCD({0, cell.j - 1, 0}));
            CCD c = naiveCCD(cell);
            ASSERT_TRUE(calc.manipOneAxis(c, true, 1));
            ASSERT_EQ(c, naiveCCD({cell.i, cell.j, cell.k + 1}));
            ASSERT_TRUE(calc.manipOneAxis(c, false, 4));
            ASSERT_EQ(c, naiveCCD({cell.i - 1, cell.j, cell.k + 1}));
        });
}

TEST(Sparse, EndAtTheLattice)
{
    const Calc calc = unitCalc(3);
    EXPECT_EQ(calc.incSparse(naiveCCD({3, 0, 0}), 4), naiveCCD({4, 0, 0}));
    const std::string report = bugReportOf([&] { calc.incSparse(naiveCCD({7, 0, 0}), 4); });
    EXPECT_NE(report.find("src_lib/Calc"), std::string::npos) << report;
    EXPECT_NE(report.find("      CCD MIRT_ZAV::Calc::incSparse(CCD, CCD) const\033[m\n"), std::string::npos) << report;
    EXPECT_NE(report.find("Condition [ false failed ]"), std::string::npos) << report;
    EXPECT_TRUE(hasBug("false", [&] { calc.decSparse(0, 4); }));
    EXPECT_TRUE(hasBug("false", [] { unitCalc(0).incSparse(0, 4); }));

    CCD c = naiveCCD({2, 7, 2});
    bool bInside = true;
    std::ostringstream address;
    address << static_cast<const void*>(&calc);
    const std::string text = test::outputOf([&] { bInside = calc.manipOneAxis(c, true, 2); });
    EXPECT_FALSE(bInside);
    EXPECT_EQ(c, ~CCD(0));
    EXPECT_EQ(text.find("ERROR, out of range, bIncrease=1, axTribit=2\nthis is " + address.str() + ", numLevels=3\n"),
              0u)
        << text;
    EXPECT_NE(text.find(", ERROR: End not found\033[m"), std::string::npos) << text;
}

TEST(Points, CellsAreHalfOpenBoxes)
{
    const Calc calc(10, 20, 30, 16, 8, 4, 3); // steps 2, 1, 0.5
    EXPECT_EQ(calc.getSideLen(), 2.0);
    EXPECT_EQ(calc.getNumLevels(), 3);
    double x = 0, y = 0, z = 0;
    calc.getBaseSteps(x, y, z);
    EXPECT_TRUE(x == 2.0 && y == 1.0 && z == 0.5);
    const Point3 origin(10, 20, 30), border(12, 21, 30.5), below(11.9, 20.9, 30.49);
    EXPECT_EQ(calc.getCCD(&origin), 0u);
    EXPECT_EQ(calc.getCCD(&border), naiveCCD({1, 1, 1}));
    EXPECT_EQ(calc.getCCD(&below), 0u);
    EXPECT_EQ(calc.getRCD(&border), naiveRCD({1, 1, 1}));
    EXPECT_EQ(calc.getCCDPlus(&origin, 1.0), naiveCCD({0, 1, 2}));
    EXPECT_EQ(calc.getRefPoint(naiveCCD({1, 2, 3})), Point3(12, 22, 31.5));
    EXPECT_EQ(calc.getMidPoint(naiveCCD({1, 2, 3})), Point3(13, 22.5, 31.75));
    EXPECT_EQ(calc.getCenter(naiveRCD({1, 2, 3})), Point3(13, 22.5, 31.75));
    std::vector<Point3> points = {origin};
    calc.getRefPoints({naiveCCD({1, 0, 0}), 0}, points);
    calc.getMidPoints({0}, points);
    EXPECT_EQ(points, (std::vector<Point3>{origin, Point3(12, 20, 30), origin, Point3(11, 20.5, 30.25)}));
}

TEST(Points, MidPointsComeBack)
{
    std::mt19937_64 random(11);
    for (const int numLevels : {1, 5, 14, 21})
        for (const double step : {0.1, 1.0 / 3.0, 7e-5, 12345.678})
        {
            const u64 numCells = u64(1) << numLevels;
            const double len = step * double(numCells);
            const Calc calc(-0.37 * len, 1.7, -1e4 * step, len, len, len, numLevels);
            for (int n = 0; n < 2000; ++n)
            {
                const Cell cell{random() % numCells, random() % numCells, random() % numCells};
                const CCD c = naiveCCD(n == 0 ? Cell{numCells - 1, numCells - 1, numCells - 1} : cell);
                const Point3 middle = calc.getMidPoint(c);
                ASSERT_EQ(calc.getCCD(&middle), c);
                ASSERT_EQ(calc.rcd2ccd(calc.getRCD(&middle)), c);
            }
        }
}

TEST(Points, CornersAreSummedFromTheLowestLevelUp)
{
    const Calc calc(0.3, 0.3, 0.3, 1.6, 1.6, 1.6, 4);
    double x = 0, y = 0, z = 0;
    calc.extractDoubleCCD(naiveCCD({6, 3, 7}), x, y, z);
    EXPECT_EQ(x, 0.3 + 0.2 + 0.4);
    EXPECT_NE(x, 0.3 + 0.4 + 0.2); // the order decides the last bit
    EXPECT_EQ(y, 0.3 + 0.1 + 0.2);
    EXPECT_EQ(z, 0.3 + 0.1 + 0.2 + 0.4);
}

TEST(Points, EveryDoubleHasACode)
{
    const Calc calc = unitCalc(21);
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double x : {-1.0, -1e300, -infinity})
    {
        const Point3 p(x, x, x);
        EXPECT_EQ(calc.getCCD(&p), 0u);
    }
    for (const double x : {2097152.0, 1e300, infinity, std::numeric_limits<double>::quiet_NaN()})
    {
        const Point3 p(x, x, x);
        EXPECT_EQ(calc.getCCD(&p) >> 63, 0u);
        EXPECT_EQ(calc.getRCD(&p) >> 63, 0u);
    }
}

TEST(Differences, CountAndNameAxes)
{
    const Cell base{5, 6, 7};
    const auto code = [&base](int dx, int dy, int dz) { return naiveCCD(shifted(base, dx, dy, dz)); };
    for (int axes = 0; axes < 8; ++axes)
    {
        const Cell other = shifted(base, axes & 4 ? 9 : 0, axes & 2 ? -3 : 0, axes & 1 ? 1 : 0);
        const int number = (axes >> 2) + (axes >> 1 & 1) + (axes & 1);
        const CCD a = naiveCCD(base), b = naiveCCD(other);
        EXPECT_EQ(Calc::getNumDifferent_CCD(a, b), number);
        EXPECT_EQ(Calc::getNumDifferent_RCD(naiveRCD(base), naiveRCD(other)), number);
        const int different = axes == 4 ? 0 : axes == 2 ? 1 : axes == 1 ? 2 : -1;
        EXPECT_EQ(Calc::getUniqueDifferentComponent(a, b), different);
        EXPECT_EQ(Calc::getUniqueDifferentComponent_RCD(naiveRCD(base), naiveRCD(other)), different);
        EXPECT_EQ(Calc::getUniqueSameComponent(a, b), axes == 3 ? 0 : axes == 5 ? 1 : axes == 6 ? 2 : -1);
        if (axes != 0)
        {
            EXPECT_EQ(Calc::getNeigType(a, b), 1 + number);
        }
    }
    EXPECT_TRUE(hasBug("result_xor", [&] { Calc::getNeigType(5, 5); }));
    EXPECT_EQ(Calc::getUniqueSameComponent(code(0, 0, 0), code(1, 0, 0), code(1, 0, 1)), 1);
    EXPECT_EQ(Calc::getUniqueSameComponent(code(0, 0, 0), code(1, 0, 0), code(2, 0, 0)), -1);
    EXPECT_EQ(Calc::getUniqueSameComponent(code(0, 0, 0), code(1, 1, 0), code(0, 0, 1)), -1);
    EXPECT_EQ(Calc::getNumSet8(0), 0);
    EXPECT_EQ(Calc::getNumSet8(255), 8);
    EXPECT_EQ(Calc::getNumSet8(0x91), 3);
    EXPECT_TRUE(hasBug("val<256", [] { Calc::getNumSet8(256); }));
}

TEST(Arrays, HoldTheNeighboursInTheirFixedOrder)
{
    constexpr int plus[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}, {0, 1, 0}, {1, 1, 0}, {1, 1, 1}, {0, 1, 1}};
    constexpr int sym[8][3] = {{-1, -1, 0}, {0, -1, 0}, {0, -1, -1}, {-1, -1, -1},
                               {-1, 0, 0},  {0, 0, 0},  {0, 0, -1},  {-1, 0, -1}};
    forRandomCells(
        [&](const Calc& calc, const Cell& cell)
        {
            CCD a[27];
            const auto codeAt = [&cell](const int* d) { return naiveCCD(shifted(cell, d[0], d[1], d[2])); };
            a[0] = naiveCCD(cell);
            calc.completeArrayPlus(a);
            for (int n = 0; n < 8; ++n)
                ASSERT_EQ(a[n], codeAt(plus[n])) << n;
            a[5] = naiveCCD(cell);
            calc.completeArraySym(a);
            for (int n = 0; n < 8; ++n)
                ASSERT_EQ(a[n], codeAt(sym[n])) << n;
            RCD r[27], r26[26];
            calc.completeArray27(naiveCCD(cell), a);
            Calc::completeArray27_RCD(naiveRCD(cell), r);
            Calc::completeArray26_RCD(naiveRCD(cell), r26);
            const RCD* next = r26;
            for (int dx = -1; dx <= 1; ++dx)
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dz = -1; dz <= 1; ++dz)
                    {
                        const int position = (dx + 1) + 3 * (dy + 1) + 9 * (dz + 1);
                        ASSERT_EQ(a[position], naiveCCD(shifted(cell, dx, dy, dz)));
                        ASSERT_EQ(r[position], naiveRCD(shifted(cell, dx, dy, dz)));
                        if (position != 13)
                        {
                            ASSERT_EQ(*next++, naiveRCD(shifted(cell, dx, dy, dz)));
                        }
                    }
        });
}

TEST(Arrays, EndAtTheLattice)
{
    const Calc calc = unitCalc(3);
    CCD a[27];
    a[0] = naiveCCD({7, 3, 3});
    EXPECT_TRUE(hasBug("false", [&] { calc.completeArrayPlus(a); }));
    a[5] = naiveCCD({3, 0, 3});
    EXPECT_TRUE(hasBug("false", [&] { calc.completeArraySym(a); }));
    EXPECT_TRUE(hasBug("false", [&] { calc.completeArray27(0, a); }));
    for (const Cell& cell : {Cell{0, 1, 1}, Cell{1, 0, 1}, Cell{1, 1, 0}})
    {
        EXPECT_TRUE(hasBug("x>0 && y>0 && z>0", [&] { Calc::completeArray26_RCD(naiveRCD(cell), a); }));
        EXPECT_TRUE(hasBug("x>0 && y>0 && z>0", [&] { Calc::completeArray27_RCD(naiveRCD(cell), a); }));
    }
    EXPECT_EQ(bugReportOf([&] { Calc::completeArray26_RCD(naiveRCD({0x1fffff, 0x1fffff, 0x1fffff}), a); }), "no bug");
}

TEST(CellSets, NeighboursInsideASet)
{
    std::vector<RCD> cells = randomCells(1, 5, 4, 40);
    std::sort(cells.begin(), cells.end());
    for (const RCD r : cells)
    {
        std::vector<RCD> expected = {99}, out = {99};
        RCD neigs[26];
        Calc::completeArray26_RCD(r, neigs);
        for (const RCD neig : neigs)
            if (std::binary_search(cells.begin(), cells.end(), neig))
                expected.push_back(neig);
        getNeigs26(cells, r, out);
        EXPECT_EQ(out, expected);
    }
}

TEST(CellSets, VerticesOfCells)
{
    std::vector<RCD> cells = {naiveRCD({2, 2, 2}), naiveRCD({1, 2, 2})};
    std::vector<std::pair<RCC, RCD>> out, expected;
    getRCC2RCD(cells, out);
    for (const u64 i : {1, 2})
        for (int n = 0; n < 8; ++n)
            expected.emplace_back(naiveRCD(shifted({i, 2, 2}, n >> 2, n >> 1 & 1, n & 1)), naiveRCD({i, 2, 2}));
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(out, expected);
}

TEST(Inflate, GrowsByShells)
{
    for (const int numCells : {1, 30, 400})
    {
        std::vector<RCD> cells = randomCells(static_cast<unsigned>(numCells), 50, 20, numCells);
        const std::vector<RCD> input = cells;
        std::set<RCD> known(cells.begin(), cells.end());
        std::vector<RCD> shell(known.begin(), known.end()), expected = shell;
        for (int s = 0; s < 4; ++s)
        {
            std::set<RCD> next;
            for (const RCD r : shell)
            {
                RCD faces[6];
                getFaceNeigs(r, faces);
                for (const RCD face : faces)
                    if (known.insert(face).second)
                        next.insert(face);
            }
            shell.assign(next.begin(), next.end());
            expected.insert(expected.end(), next.begin(), next.end());
        }
        std::vector<RCD> out;
        inflateRCD(cells, 4, true, out);
        EXPECT_EQ(out, expected);
        EXPECT_EQ(cells, input);
        out = {3};
        inflateRCD(cells, 4, false, out);
        EXPECT_EQ(out.size(), 1 + expected.size() - input.size());
        EXPECT_EQ(out.front(), 3u); // appended
        cells.insert(cells.end(), input.begin(), input.end());
        out.clear();
        inflateRCD(cells, 4, false, out); // cells named twice grow as if named once
        EXPECT_TRUE(
            std::equal(out.begin(), out.end(), expected.begin() + static_cast<long>(input.size()), expected.end()));
    }
}

TEST(Inflate, CountsOfSteps)
{
    std::vector<RCD> one = {naiveRCD({9, 9, 9})}, out;
    inflateRCD(one, -1, true, out);
    EXPECT_TRUE(out.empty());
    inflateRCD(one, 0, false, out);
    EXPECT_TRUE(out.empty());
    inflateRCD(one, 0, true, out);
    EXPECT_EQ(out, one);
    out.clear();
    inflateRCD(one, 2, false, out);
    EXPECT_EQ(out.size(), 6u + 18u);
    EXPECT_EQ(out[0], naiveRCD({8, 9, 9})); // each shell is sorted
}

TEST(Components, AgreeWithAFlood)
{
    for (const u64 lowest : {0, 40}) // also at the lattice's lower end
        for (const int numCells : {0, 1, 30, 120, 300})
        {
            std::vector<RCD> cells = randomCells(static_cast<unsigned>(numCells) + 1, lowest, 10, numCells);
            const std::vector<RCD> input = cells;
            for (const bool bFaceOnly : {false, true})
            {
                std::vector<std::vector<RCD>> components, expected = naiveComponents(cells, bFaceOnly);
                if (bFaceOnly)
                    createCC_RCD_6Neig(cells, components);
                else
                    createCC_RCD(cells, components);
                // Components stand in the order of their first cells; inside of each, the order is the input's.
                const auto position = [&input](RCD r) { return std::find(input.begin(), input.end(), r); };
                for (auto& component : expected)
                    std::sort(component.begin(), component.end(),
                              [&](RCD r, RCD s) { return position(r) < position(s); });
                EXPECT_EQ(components, expected) << numCells << " cells from " << lowest;
                EXPECT_EQ(cells, input);
            }
        }
}

TEST(Components, CornersTieCellsAndRepeatsCountOnce)
{
    std::vector<RCD> cells = {naiveRCD({5, 5, 5}), naiveRCD({6, 6, 6}), naiveRCD({5, 5, 5})};
    std::vector<std::vector<RCD>> byVertex, byFace;
    createCC_RCD(cells, byVertex);
    createCC_RCD_6Neig(cells, byFace);
    EXPECT_EQ(byVertex, (std::vector<std::vector<RCD>>{{cells[0], cells[1]}}));
    EXPECT_EQ(byFace, (std::vector<std::vector<RCD>>{{cells[0]}, {cells[1]}}));
}
