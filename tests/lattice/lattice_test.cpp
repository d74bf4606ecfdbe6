#include "base/vectorHelpers.h"
#include "helpers/capture.h"
#include "lattice/Calc.h"
#include "lattice/cellSets.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <random>
#include <set>

using namespace MIRT_ZAV;

namespace
{
struct Cell
{
    u64 i, j, k;
};

/// The Morton code of a cell, bit by bit: ... i1 j1 k1 i0 j0 k0, with k0 the lowest bit.
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
    return {cell.i + u64(dx), cell.j + u64(dy), cell.k + u64(dz)};
}

Calc unitCalc(int numLevels)
{
    const double len = std::pow(2.0, numLevels);
    return Calc(0, 0, 0, len, len, len, numLevels);
}

std::vector<RCD> randomCells(unsigned seed, u64 lowest, u64 extent, int numCells)
{
    std::mt19937_64 random(seed);
    std::vector<RCD> cells;
    while (numCells-- > 0)
        cells.push_back(naiveRCD({lowest + random() % extent, lowest + random() % extent, lowest + random() % extent}));
    return cells;
}

/// Whether two cells touch: at a face only, or also at an edge or a corner.
bool touch(RCD a, RCD b, bool bFaceOnly)
{
    const auto distance = [&](auto coordinate) { return std::abs(long(coordinate(a)) - long(coordinate(b))); };
    const long dx = distance(rcd::getX), dy = distance(rcd::getY), dz = distance(rcd::getZ);
    return bFaceOnly ? dx + dy + dz == 1 : std::max({dx, dy, dz}) == 1;
}

/// Connected components in the order of their first cells; within each the cells keep the order of the input.
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
        const auto position = [&cells](RCD r) { return std::find(cells.begin(), cells.end(), r); };
        std::sort(component.begin(), component.end(), [&](RCD r, RCD s) { return position(r) < position(s); });
        components.push_back(component);
    }
    return components;
}
} // namespace

TEST(Codes, AgreeWithTheirDefinition)
{
    constexpr int plus[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}, {0, 1, 0}, {1, 1, 0}, {1, 1, 1}, {0, 1, 1}};
    std::mt19937_64 random(7);
    for (int n = 0; n < 1000; ++n)
    {
        const int numLevels = std::array{2, 3, 13, 20, 21}[size_t(n % 5)];
        const Calc calc = unitCalc(numLevels);
        const u64 top = (u64(1) << numLevels) - 2;
        const Cell cell{1 + random() % top, 1 + random() % top, 1 + random() % top};
        const RCD r = naiveRCD(cell);
        CCD c = naiveCCD(cell);
        ASSERT_EQ(calc.rcd2ccd(r), c);
        ASSERT_EQ(calc.ccd2rcd(c), r);
        u64 i = 0, j = 0, k = 0;
        calc.extractIntCCD(c, i, j, k);
        ASSERT_TRUE(i == cell.i && j == cell.j && k == cell.k);
        ASSERT_EQ(calc.numberToSparse(i, 4) | calc.numberToSparse(j, 2) | calc.numberToSparse(k, 1), c);
        ASSERT_EQ(calc.numberToSparse(j, 7), naiveCCD({j, j, j}));
        ASSERT_EQ(calc.sparseToNumber(c, 2), j);
        ASSERT_EQ(calc.sparseToNumber(c, 5), i | k);
        ASSERT_EQ(calc.incSparse(naiveCCD({i, 0, 0}), 4), naiveCCD({i + 1, 0, 0}));
        ASSERT_EQ(calc.decSparse(naiveCCD({0, j, 0}), 2), naiveCCD({0, j - 1, 0}));
        ASSERT_TRUE(calc.manipOneAxis(c, true, 1) && calc.manipOneAxis(c, false, 4));
        ASSERT_EQ(c, naiveCCD({i - 1, j, k + 1}));

        // The neighbours in their fixed orders.
        CCD a[27], s[27];
        a[0] = s[5] = naiveCCD(cell);
        calc.completeArrayPlus(a);
        calc.completeArraySym(s);
        for (int p = 0; p < 8; ++p)
        {
            const int* const d = plus[p];
            ASSERT_EQ(a[p], naiveCCD(shifted(cell, d[0], d[1], d[2])));
            ASSERT_EQ(s[p], naiveCCD(shifted(cell, d[0] - 1, d[1] - 1, -d[2])));
        }
        RCD all[27], others[26];
        calc.completeArray27(naiveCCD(cell), a);
        Calc::completeArray27_RCD(r, all);
        Calc::completeArray26_RCD(r, others);
        for (int p = 0; p < 27; ++p)
        {
            const Cell neig = shifted(cell, p % 3 - 1, p / 3 % 3 - 1, p / 9 - 1);
            ASSERT_EQ(a[p], naiveCCD(neig));
            ASSERT_EQ(all[p], naiveRCD(neig));
        }
        std::sort(all, all + 27); // the 26 come in ascending order, without the cell itself
        ASSERT_TRUE(std::equal(others, others + 13, all) && std::equal(others + 13, others + 26, all + 14));
    }
}

TEST(Points, CellsAreHalfOpenBoxes)
{
    const Calc calc(10, 20, 30, 16, 8, 4, 3); // steps 2, 1, 0.5
    EXPECT_EQ(calc.getSideLen(), 2.0);
    const Point3 origin(10, 20, 30), border(12, 21, 30.5), below(11.9, 20.9, 30.49);
    EXPECT_EQ(calc.getCCD(&origin), 0u);
    EXPECT_EQ(calc.getCCD(&border), naiveCCD({1, 1, 1}));
    EXPECT_EQ(calc.getCCD(&below), 0u);
    EXPECT_EQ(calc.getCCDPlus(&origin, 1.0), naiveCCD({0, 1, 2}));
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
    double x = 0, y = 0, z = 0;
    Calc(0.3, 0.3, 0.3, 1.6, 1.6, 1.6, 4).extractDoubleCCD(naiveCCD({6, 3, 7}), x, y, z);
    EXPECT_EQ(Point3(x, y, z), Point3(0.3 + 0.2 + 0.4, 0.3 + 0.1 + 0.2, 0.3 + 0.1 + 0.2 + 0.4));
    EXPECT_NE(x, 0.3 + 0.4 + 0.2); // the order decides the last bit
}

TEST(Points, EveryDoubleHasACode)
{
    const Calc calc = unitCalc(21);
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double x : {-1.0, -1e300, -infinity, 2097152.0, 1e300, infinity, std::nan("")})
    {
        const Point3 p(x, x, x);
        EXPECT_EQ(calc.getCCD(&p) >> (x < 0 ? 0 : 63), 0u);
        EXPECT_EQ(calc.getRCD(&p) >> 63, 0u);
    }
}

TEST(CellSets, NeighboursAndVertices)
{
    std::vector<RCD> cells = randomCells(1, 5, 4, 40);
    oneInstance(cells);
    std::vector<std::pair<RCC, RCD>> vertices, expectedVertices;
    for (const RCD r : cells)
    {
        std::vector<RCD> expected = {99}, out = {99};
        std::copy_if(cells.begin(), cells.end(), std::back_inserter(expected),
                     [r](RCD s) { return touch(r, s, false); });
        getNeigs26(cells, r, out);
        EXPECT_EQ(out, expected); // appended
        for (unsigned n = 0; n < 8; ++n)
            expectedVertices.emplace_back(r + rcd::fromXYZ(n >> 2, n >> 1 & 1, n & 1), r);
    }
    std::sort(expectedVertices.begin(), expectedVertices.end());
    std::reverse(cells.begin(), cells.end());
    getRCC2RCD(cells, vertices);
    EXPECT_EQ(vertices, expectedVertices);
}

TEST(CellSets, GrowByShells)
{
    for (const int numSteps : {-1, 0, 1, 4})
        for (const int numCells : {1, 30, 400})
        {
            std::vector<RCD> cells = randomCells(unsigned(numCells), 50, 20, numCells);
            std::set<RCD> known(cells.begin(), cells.end());
            const std::vector<RCD> input(known.begin(), known.end());
            std::vector<RCD> shell = input, expected, out, all = {3}, allExpected = {3};
            for (int s = 0; s < numSteps; ++s)
            {
                std::set<RCD> next;
                for (const RCD r : shell)
                {
                    RCD faces[6];
                    getFaceNeigs(r, faces);
                    std::copy_if(faces, faces + 6, std::inserter(next, next.end()),
                                 [&](RCD face) { return known.insert(face).second; });
                }
                shell.assign(next.begin(), next.end());
                expected.insert(expected.end(), next.begin(), next.end());
            }
            if (numSteps >= 0)
                allExpected.insert(allExpected.end(), input.begin(), input.end());
            allExpected.insert(allExpected.end(), expected.begin(), expected.end());
            cells = input;
            inflateRCD(cells, numSteps, true, all); // appended
            EXPECT_EQ(all, allExpected);
            cells.insert(cells.end(), input.begin(), input.end());
            inflateRCD(cells, numSteps, false, out); // cells named twice grow as if named once
            EXPECT_EQ(out, expected);
        }
}

TEST(CellSets, ComponentsAgreeWithAFlood)
{
    for (const u64 lowest : {0, 40}) // also at the lattice's lower end
        for (const int numCells : {0, 1, 30, 120, 300})
            for (const bool bFaceOnly : {false, true})
            {
                std::vector<RCD> cells = randomCells(unsigned(numCells) + 1, lowest, 10, numCells);
                std::vector<std::vector<RCD>> components;
                bFaceOnly ? createCC_RCD_6Neig(cells, components) : createCC_RCD(cells, components);
                EXPECT_EQ(components, naiveComponents(cells, bFaceOnly)) << numCells << " cells from " << lowest;
            }
}
