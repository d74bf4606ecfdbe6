// The case table and the triangles that extraction makes of cells.

#include "base/Progress.h"
#include "coarse/Casx.h"
#include "coarse/Voro.h"
#include "helpers/capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <set>

using namespace MIRT_ZAV;

namespace
{
/// Offset (x, y, z) of each bit's cell, 0 for the lower and 1 for the upper one:
///
///     0 --- 1        4 --- 5      z up, x to the right
///     |     |        |     |
///     3 --- 2        7 --- 6
///     lower y        upper y
constexpr int offsets[8][3] = {{0, 0, 1}, {1, 0, 1}, {1, 0, 0}, {0, 0, 0}, {0, 1, 1}, {1, 1, 1}, {1, 1, 0}, {0, 1, 0}};

/// The eight cells around a vertex.
std::array<CCD, 8> getCellsAround(const Calc& calc, VCD vertex)
{
    u64 i = 0, j = 0, k = 0;
    calc.extractIntCCD(vertex, i, j, k);
    std::array<CCD, 8> around;
    for (size_t bit = 0; bit < 8; ++bit)
    {
        const auto& o = offsets[bit];
        around[bit] = calc.rcd2ccd(rcd::fromXYZ(i - 1 + u64(o[0]), j - 1 + u64(o[1]), k - 1 + u64(o[2])));
    }
    return around;
}

template <class Cells>
int getConfig(const std::array<CCD, 8>& around, const Cells& cells)
{
    int config = 0;
    for (size_t bit = 0; bit < 8; ++bit)
        config |= std::count(cells.begin(), cells.end(), around[bit]) != 0 ? 1 << bit : 0;
    return config;
}

/// Cells around (8, 8, 8) of a small lattice with bundles in their middle, and the extractor on them.
struct Scene
{
    Calc calc{0.0, 0.0, 0.0, 64.0, 64.0, 64.0, 6};
    std::deque<Bundle> ownedBundles;
    std::deque<Point3> ownedPoints;
    std::map<CCD, Bundle*> bundles;
    std::vector<CCD> fill;
    std::unique_ptr<Voro> voro;

    Scene() { getThreadProgress()->startRun("Test"); }
    ~Scene() { getThreadProgress()->reset(); }

    CCD add(int x, int y, int z)
    {
        const CCD c = calc.rcd2ccd(rcd::fromXYZ(u64(x), u64(y), u64(z)));
        Point3& p = ownedPoints.emplace_back(calc.getMidPoint(c));
        bundles[c] = &ownedBundles.emplace_back(Bundle{&p, c, nullptr, p});
        return c;
    }

    CMesh& extract()
    {
        voro = std::make_unique<Voro>(&calc, bundles, fill, TM_FAT);
        voro->fatExtractTriangles();
        return *voro->getCMesh();
    }

    std::set<std::set<CCD>> getTriangles() const
    {
        std::set<std::set<CCD>> out;
        std::vector<CTriangle*> vT;
        voro->getCMesh()->getAliveTriangles(vT);
        for (const CTriangle* t : vT)
            EXPECT_TRUE(out.insert({t->c0, t->c1, t->c2}).second) << "a triangle stands twice";
        return out;
    }
};
} // namespace

TEST(CaseTable, HasTheKnownRows)
{
    const Casx fat(TM_FAT, false), thin(TM_THIN, false);
    std::map<TriUse, size_t> numRows[2], numTriangles[2];
    std::uint64_t hash = 0;
    const auto addToHash = [&hash](std::uint64_t value) { hash = (hash ^ value) * 0x100000001b3; };
    constexpr std::array<CCD, 8> corners = {0, 1, 2, 3, 4, 5, 6, 7};
    for (int config = 0; config < 256; ++config)
    {
        for (const Casx* const casx : {&fat, &thin})
            for (const TriUse use : {TUU, TUT, TUF, TUI})
            {
                std::vector<CCD> out;
                casx->getTriangles(config, corners.data(), out, use);
                numTriangles[casx == &thin][use] += out.size() / 3;
                numRows[casx == &thin][use] += !out.empty();
                std::for_each(out.begin(), out.end(), addToHash);
                addToHash(8 + out.size());
            }
        addToHash(Casx::getExtraCbs(config));
        addToHash(Casx::getRemoveCbs(config));
    }
    EXPECT_EQ(numRows[0][TUU], 194u);
    EXPECT_EQ(numTriangles[0], (std::map<TriUse, size_t>{{TUU, 780}, {TUT, 464}, {TUF, 160}, {TUI, 156}}));
    EXPECT_EQ(numRows[1][TUU], 170u);
    EXPECT_EQ(numTriangles[1], (std::map<TriUse, size_t>{{TUU, 456}, {TUT, 456}, {TUF, 0}, {TUI, 0}}));
    // Of both tables, at a time when they agreed with all rotations of the cube and split every square of four cells
    // through its smallest one.
    EXPECT_EQ(hash, 8871547112519245976u);

    const std::string text = test::outputOf([&] { EXPECT_EQ(Casx(TM_FAT, true).vTriVec, fat.vTriVec); });
    EXPECT_NE(text.find("Casx::Casx, bExperimental=true - using base cases"), std::string::npos);
}

/// Extraction without anything that makes it fast: all vertices in the order of their codes, triangles as sets. Squares
/// of four cells come last, since which diagonal they get depends on the triangles around.
std::set<std::set<CCD>> extractNaively(const Calc& calc, const std::set<CCD>& cells)
{
    const Casx casx(TM_FAT, false);
    std::set<VCD> vertices;
    for (const CCD c : cells)
    {
        std::array<CCD, 8> block = {c};
        calc.completeArrayPlus(block.data());
        vertices.insert(block.begin(), block.end());
    }
    using Triangle = std::set<CCD>;
    std::set<Triangle> triangles;
    std::vector<std::pair<Triangle, Triangle>> squares;
    for (const VCD vertex : vertices)
    {
        const auto around = getCellsAround(calc, vertex);
        const int config = getConfig(around, cells);
        std::vector<CCD> made;
        casx.getTriangles(config, around.data(), made, TUT);
        std::vector<Triangle> split;
        for (auto it = made.begin(); it != made.end(); it += 3)
            split.emplace_back(it, it + 3);
        if (std::set{15, 51, 102, 153, 204, 240}.count(config) != 0)
            squares.emplace_back(split[0], split[1]);
        else
            triangles.insert(split.begin(), split.end());
    }
    for (const auto& [t, u] : squares)
    {
        std::vector<CCD> diagonal, other; // the table's one stays if it is an edge of the mesh, else the other comes
        std::set_intersection(t.begin(), t.end(), u.begin(), u.end(), std::back_inserter(diagonal));
        std::set_symmetric_difference(t.begin(), t.end(), u.begin(), u.end(), std::back_inserter(other));
        const auto hasDiagonal = [&](const Triangle& made)
        { return std::includes(made.begin(), made.end(), diagonal.begin(), diagonal.end()); };
        if (std::any_of(triangles.begin(), triangles.end(), hasDiagonal))
            triangles.insert({t, u});
        else
            triangles.insert({{diagonal[0], other[0], other[1]}, {diagonal[1], other[0], other[1]}});
    }
    return triangles;
}

TEST(Extraction, AgreesWithANaiveWalkOnRandomCells)
{
    std::mt19937 random(11);
    for (const unsigned percent : {15u, 35u, 60u, 85u})
        for (int round = 0; round < 12; ++round)
        {
            Scene scene;
            std::set<CCD> cells;
            for (int x = 5; x < 10; ++x)
                for (int y = 5; y < 10; ++y)
                    for (int z = 5; z < 8; ++z)
                        if (random() % 100 < percent)
                            cells.insert(scene.add(x, y, z));
            const CMesh& mesh = scene.extract();
            EXPECT_EQ(scene.getTriangles(), extractNaively(scene.calc, cells));
            for (const CTriangle* const t : mesh.vT)
            {
                const auto around = getCellsAround(scene.calc, t->vcd);
                EXPECT_EQ(t->config, getConfig(around, cells));
                for (int i = 0; i < 3; ++i)
                    EXPECT_EQ(std::count(around.begin(), around.end(), t->getCorner(i)), 1);
            }
            std::vector<VCD> none;
            scene.voro->meshAgain(none);
            EXPECT_EQ(scene.getTriangles(), extractNaively(scene.calc, cells)) << "the same once more";
        }
}

TEST(Extraction, NearlyFullVerticesAreCompletedInExchangeForRemovableCells)
{
    struct Case
    {
        int before, after;
        size_t numAdded, numTriangles;
    };
    // Cell 5 comes and cell 3 goes; two cells come and two go; two come and none can go.
    for (const auto& [before, after, numAdded, numTriangles] :
         {Case{223, 247, 1, 6}, {63, 252, 2, 4}, {125, 255, 2, 12}})
    {
        Scene scene;
        for (int bit = 0; bit < 8; ++bit)
            if (before >> bit & 1)
                scene.add(8 + offsets[bit][0], 8 + offsets[bit][1], 8 + offsets[bit][2]);
        scene.extract();
        std::vector<VCD> vertices = {scene.calc.rcd2ccd(rcd::fromXYZ(9, 9, 9))},
                         beyond = {scene.calc.rcd2ccd(rcd::fromXYZ(60, 60, 60))};
        const CMesh* const mesh = scene.voro->meshAgain(vertices);
        EXPECT_EQ(getConfig(getCellsAround(scene.calc, vertices[0]), scene.voro->vCCD), after);
        EXPECT_EQ(mesh->vAdditionalBundles.size(), numAdded);
        EXPECT_EQ(scene.getTriangles().size(), numTriangles);
        EXPECT_THROW(scene.voro->meshAgain(beyond), ZavBugException);
    }
}
