// The case table and the triangles that extraction makes of cells.

#include "Casx.h"
#include "Progress.h"
#include "Voro.h"
#include "tools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <random>
#include <set>

using namespace MIRT_ZAV;

namespace
{
/// Offset (x, y, z) of each bit's cell, 0 for the lower and 1 for the upper one.
constexpr int offsets[8][3] = {{0, 0, 1}, {1, 0, 1}, {1, 0, 0}, {0, 0, 0}, {0, 1, 1}, {1, 1, 1}, {1, 1, 0}, {0, 1, 0}};

int bitAt(int x, int y, int z)
{
    for (int bit = 0; bit < 8; ++bit)
        if (offsets[bit][0] == x && offsets[bit][1] == y && offsets[bit][2] == z)
            return bit;
    return -1;
}

/// The 24 rotations of the cube as permutations of bits, found as the products of two quarter turns.
std::vector<std::array<int, 8>> getRotations()
{
    std::array<int, 8> identity, aboutX, aboutZ;
    for (int bit = 0; bit < 8; ++bit)
    {
        const auto& o = offsets[bit];
        identity[bit] = bit;
        aboutX[bit] = bitAt(o[0], 1 - o[2], o[1]);
        aboutZ[bit] = bitAt(1 - o[1], o[0], o[2]);
    }
    std::set<std::array<int, 8>> found = {identity};
    for (size_t before = 0; before != found.size();)
    {
        before = found.size();
        for (const auto& r : std::vector<std::array<int, 8>>(found.begin(), found.end()))
            for (const auto& turn : {aboutX, aboutZ})
            {
                std::array<int, 8> product;
                for (int bit = 0; bit < 8; ++bit)
                    product[bit] = turn[r[bit]];
                found.insert(product);
            }
    }
    return {found.begin(), found.end()};
}

int apply(const std::array<int, 8>& rotation, int mask)
{
    int out = 0;
    for (int bit = 0; bit < 8; ++bit)
        if (mask >> bit & 1)
            out |= 1 << rotation[bit];
    return out;
}

std::multiset<int> trianglesOf(const Casx& casx, int config, TriUse use)
{
    CCD corners[8];
    for (CCD bit = 0; bit < 8; ++bit)
        corners[bit] = bit;
    std::vector<CCD> out;
    casx.getTriangles(config, corners, out, use);
    std::multiset<int> masks;
    for (size_t i = 0; i < out.size(); i += 3)
        masks.insert(1 << out[i] | 1 << out[i + 1] | 1 << out[i + 2]);
    return masks;
}

/// Cells around (8, 8, 8) of a small lattice with bundles in their middle, and the extractor on them.
struct Scene
{
    Calc calc{0.0, 0.0, 0.0, 64.0, 64.0, 64.0, 6};
    std::vector<std::unique_ptr<Bundle>> ownedBundles;
    std::vector<std::unique_ptr<Point3>> ownedPoints;
    std::map<CCD, Bundle*> bundles;
    std::vector<CCD> fill;
    std::unique_ptr<Voro> voro;

    Scene() { getThreadProgress()->startRun("Test"); }
    ~Scene() { getThreadProgress()->reset(); }

    CCD add(int x, int y, int z)
    {
        const CCD c = calc.rcd2ccd(rcd::fromXYZ(u64(x), u64(y), u64(z)));
        ownedPoints.push_back(std::make_unique<Point3>(calc.getMidPoint(c)));
        ownedBundles.push_back(std::make_unique<Bundle>(Bundle{ownedPoints.back().get(), c, nullptr, Point3()}));
        bundles[c] = ownedBundles.back().get();
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

TEST(CaseTable, CountsAndRoles)
{
    const Casx fat(TM_FAT, false), thin(TM_THIN, false);
    size_t numFat = 0, numThin = 0, rows = 0, thinRows = 0, emptyRows = 0, perUse[4] = {};
    for (int config = 0; config < 256; ++config)
    {
        const size_t n = trianglesOf(fat, config, TUU).size();
        numFat += n;
        rows += n > 0;
        const int cells = std::popcount(unsigned(config));
        emptyRows += n == 0 && cells >= 3 && cells <= 7;
        numThin += trianglesOf(thin, config, TUU).size();
        thinRows += !trianglesOf(thin, config, TUU).empty();
        for (TriUse use : {TUT, TUF, TUI})
            perUse[use] += trianglesOf(fat, config, use).size();
        EXPECT_EQ(trianglesOf(thin, config, TUU), trianglesOf(thin, config, TUT));
    }
    EXPECT_EQ(rows, 194u);
    EXPECT_EQ(numFat, 780u);
    EXPECT_EQ(perUse[TUT], 464u);
    EXPECT_EQ(perUse[TUI], 156u);
    EXPECT_EQ(perUse[TUF], 160u);
    EXPECT_EQ(emptyRows, 24u);
    EXPECT_EQ(thinRows, 170u);
    EXPECT_EQ(numThin, 456u);
    EXPECT_EQ(trianglesOf(fat, 7, TUT).size(), 0u);
    EXPECT_EQ(trianglesOf(fat, 27, TUU).size(), 4u);

    testing::internal::CaptureStdout();
    const Casx generated(TM_FAT, true);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Casx::Casx, bExperimental=true - using base cases"),
              std::string::npos);
    EXPECT_EQ(generated.vTriVec, fat.vTriVec);
    EXPECT_EQ(generated.vTriUse, fat.vTriUse);
}

TEST(CaseTable, EverySquareIsSplitThroughItsSmallestCell)
{
    const Casx casx(TM_FAT, false);
    for (int config = 0; config < 256; ++config)
    {
        const std::multiset<int> masks = trianglesOf(casx, config, TUU);
        for (const int a : masks)
        {
            EXPECT_EQ(std::popcount(unsigned(a)), 3);
            EXPECT_EQ(a & config, a) << "only alive cells are joined";
            for (const int b : masks)
            {
                const int shared = a & b, all = a | b;
                if (std::popcount(unsigned(shared)) != 2)
                    continue;
                int smallest = -1, smallestRank = 8, common[3] = {};
                for (int bit = 0; bit < 8; ++bit)
                    if (all >> bit & 1)
                    {
                        const auto& o = offsets[bit];
                        const int rank = 4 * o[0] + 2 * o[1] + o[2];
                        if (rank < smallestRank)
                        {
                            smallestRank = rank;
                            smallest = bit;
                        }
                        for (int axis = 0; axis < 3; ++axis)
                            common[axis] += o[axis] ? 1 : -1;
                    }
                const bool bFlat = std::any_of(common, common + 3, [](int sum) { return sum == 4 || sum == -4; });
                EXPECT_TRUE(!bFlat || (shared >> smallest & 1) != 0) << config;
            }
        }
    }
}

TEST(CaseTable, RotationsKeepTheNumberOfTrianglesOfEachRole)
{
    const Casx casx(TM_FAT, false);
    const auto rotations = getRotations();
    ASSERT_EQ(rotations.size(), 24u);
    for (const int base : casx.vBaseCases)
        for (const auto& rotation : rotations)
        {
            const int config = apply(rotation, base);
            EXPECT_GE(config, base) << "a base case is the smallest of its class";
            for (const TriUse use : {TUT, TUF, TUI})
                EXPECT_EQ(trianglesOf(casx, config, use).size(), trianglesOf(casx, base, use).size());
            // Cells to complete and cells to give in exchange follow the rotation of the cube as far as they exist.
            const int cells = std::popcount(unsigned(config));
            EXPECT_EQ(Casx::getExtraCbs(config), cells == 6 || cells == 7 ? 255u & ~unsigned(config) : 0u);
            EXPECT_EQ(Casx::getRemoveCbs(config) & ~unsigned(config), 0u);
            EXPECT_EQ(std::popcount(Casx::getRemoveCbs(config)), std::popcount(Casx::getRemoveCbs(base)));
        }
}

TEST(Extraction, ConfigurationNumbersFollowTheOrderOfTheEightCells)
{
    // Vertices in the middle of a block of 64 and at its lower end.
    const Calc calc = Scene().calc;
    for (const u64 at : {8, 9, 10, 11})
        for (int config = 0; config < 256; ++config)
        {
            const VCD vertex = calc.rcd2ccd(rcd::fromXYZ(at, at, at));
            std::vector<CCD> cells;
            for (int bit = 0; bit < 8; ++bit)
                if (config >> bit & 1)
                {
                    const auto& o = offsets[bit];
                    cells.push_back(
                        calc.rcd2ccd(rcd::fromXYZ(at - 1 + u64(o[0]), at - 1 + u64(o[1]), at - 1 + u64(o[2]))));
                }
            std::sort(cells.begin(), cells.end());
            EXPECT_EQ(CellPatterns(calc, cells).getPattern(vertex), config);
        }
}

TEST(Extraction, ALoneSquareTakesTheDiagonalOfTheFirstTriangle)
{
    Scene scene;
    const CCD c00 = scene.add(8, 8, 8), c10 = scene.add(9, 8, 8), c01 = scene.add(8, 9, 8), c11 = scene.add(9, 9, 8);
    scene.extract();
    EXPECT_EQ(scene.getTriangles(), (std::set<std::set<CCD>>{{c00, c10, c01}, {c10, c11, c01}}));
    // The vertex below the square sees it in its four lower cells, the first of the two in code order.
    for (const CTriangle* t : scene.voro->getCMesh()->vT)
    {
        EXPECT_EQ(t->vcd, c11);
        EXPECT_EQ(t->config, 1 | 2 | 16 | 32);
    }
}

/// Extraction in the plainest terms: all vertices of the lattice in code order, sets of triangles, squares at the end.
class NaiveExtraction
{
public:
    std::set<std::set<CCD>> triangles;

    NaiveExtraction(const Calc& calc, const std::set<CCD>& cells)
    {
        const Casx casx(TM_FAT, false);
        std::set<VCD> vertices;
        for (const CCD c : cells)
            for (int bit = 0; bit < 8; ++bit)
                vertices.insert(shifted(calc, c, offsets[bit][0], offsets[bit][1], offsets[bit][2]));
        std::vector<std::vector<CCD>> squares;
        for (const VCD vertex : vertices)
        {
            int config = 0;
            CCD corners[8];
            for (int bit = 0; bit < 8; ++bit)
            {
                corners[bit] = shifted(calc, vertex, offsets[bit][0] - 1, offsets[bit][1] - 1, offsets[bit][2] - 1);
                config |= cells.count(corners[bit]) ? 1 << bit : 0;
            }
            std::vector<CCD> made;
            casx.getTriangles(config, corners, made, TUT);
            if (std::set<int>{15, 51, 102, 153, 204, 240}.count(config))
                squares.push_back(made);
            else
                for (size_t i = 0; i < made.size(); i += 3)
                    triangles.insert({made[i], made[i + 1], made[i + 2]});
        }
        for (const std::vector<CCD>& square : squares)
            solve(calc, square);
    }

private:
    static CCD shifted(const Calc& calc, CCD c, int dx, int dy, int dz)
    {
        u64 i = 0, j = 0, k = 0;
        calc.extractIntCCD(c, i, j, k);
        return calc.rcd2ccd(rcd::fromXYZ(i + u64(dx), j + u64(dy), k + u64(dz)));
    }

    bool hasEdge(CCD a, CCD b) const
    {
        return std::any_of(triangles.begin(), triangles.end(), [&](const auto& t) { return t.count(a) && t.count(b); });
    }

    void solve(const Calc&, const std::vector<CCD>& t)
    {
        CCD c[4] = {t[0], t[1], t[2], 0};
        for (size_t i = 5; i >= 3; --i)
            if (t[i] != t[0] && t[i] != t[1] && t[i] != t[2])
                c[3] = t[i];
        for (const int other : {1, 2})
            if (Calc::getNumDifferent_CCD(c[3], c[0]) != 2)
                std::swap(c[0], c[other]);
        if (hasEdge(c[1], c[2]))
        {
            triangles.insert({c[0], c[1], c[2]});
            triangles.insert({c[1], c[2], c[3]});
        }
        else
        {
            triangles.insert({c[0], c[1], c[3]});
            triangles.insert({c[0], c[2], c[3]});
        }
    }
};

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
            scene.extract();
            EXPECT_EQ(scene.getTriangles(), NaiveExtraction(scene.calc, cells).triangles);
        }
}

TEST(Extraction, ABallsShellGivesASurfaceOfCellsThatTouch)
{
    Scene scene;
    for (int x = 0; x < 40; ++x)
        for (int y = 0; y < 40; ++y)
            for (int z = 0; z < 40; ++z)
            {
                const double r = std::sqrt((x - 20.0) * (x - 20.0) + (y - 20.0) * (y - 20.0) + (z - 20.0) * (z - 20.0));
                if (r > 14.5 && r <= 15.5)
                    scene.add(x, y, z);
            }
    CMesh& mesh = scene.extract();
    std::vector<CTriangle*> vT;
    mesh.getAliveTriangles(vT);
    ASSERT_GT(vT.size(), scene.bundles.size());
    for (const CTriangle* t : vT)
    {
        EXPECT_TRUE(scene.bundles.count(t->c0) && scene.bundles.count(t->c1) && scene.bundles.count(t->c2));
        for (int i = 0; i < 3; ++i)
        {
            const RCD a = scene.calc.ccd2rcd(t->getCorner(i)), b = scene.calc.ccd2rcd(t->getCorner((i + 1) % 3));
            EXPECT_LE(std::abs(int(rcd::getX(a)) - int(rcd::getX(b))), 1);
            EXPECT_LE(std::abs(int(rcd::getY(a)) - int(rcd::getY(b))), 1);
            EXPECT_LE(std::abs(int(rcd::getZ(a)) - int(rcd::getZ(b))), 1);
        }
    }
    scene.getTriangles(); // no duplicates
    std::vector<CEdge*> border;
    mesh.getDegN(1, border);
    EXPECT_LT(border.size(), vT.size() / 20);

    // Extracting again without changes gives the same mesh.
    const auto before = scene.getTriangles();
    std::vector<VCD> none;
    scene.voro->meshAgain(none);
    EXPECT_EQ(scene.getTriangles(), before);
}

/// Completes the vertex (9, 9, 9) of a scene that has the cells of a configuration around it.
struct Completion
{
    Scene scene;
    CMesh* mesh = nullptr;

    explicit Completion(int config)
    {
        for (int bit = 0; bit < 8; ++bit)
            if (config >> bit & 1)
                scene.add(8 + offsets[bit][0], 8 + offsets[bit][1], 8 + offsets[bit][2]);
        scene.extract();
        std::vector<VCD> vertices = {scene.calc.rcd2ccd(rcd::fromXYZ(9, 9, 9))};
        mesh = scene.voro->meshAgain(vertices);
    }

    int getConfig() const
    {
        int config = 0;
        for (int bit = 0; bit < 8; ++bit)
        {
            const auto& o = offsets[bit];
            const CCD c = scene.calc.rcd2ccd(rcd::fromXYZ(u64(8 + o[0]), u64(8 + o[1]), u64(8 + o[2])));
            const auto& cells = scene.voro->vCCD;
            config |= std::binary_search(cells.begin(), cells.end(), c) ? 1 << bit : 0;
        }
        return config;
    }
};

TEST(Extraction, NearlyFullVerticesAreCompletedInExchangeForRemovableCells)
{
    {
        Completion seven(223); // cell 5 comes, cell 3 goes
        EXPECT_EQ(seven.getConfig(), 255 & ~8);
        EXPECT_EQ(seven.mesh->vAdditionalBundles.size(), 1u);
        EXPECT_EQ(seven.scene.getTriangles().size(), 6u);
        for (const CTriangle* t : seven.mesh->vT)
            EXPECT_EQ(t->config, 247);
    }
    {
        Completion six(63); // two cells come, two go
        EXPECT_EQ(six.getConfig(), 252);
        EXPECT_EQ(six.mesh->vAdditionalBundles.size(), 2u);
        EXPECT_EQ(six.scene.getTriangles().size(), 4u);
    }
    {
        Completion apart(125); // nothing can go
        EXPECT_EQ(apart.getConfig(), 255);
        EXPECT_EQ(apart.scene.getTriangles().size(), 12u);
        std::vector<VCD> beyond = {apart.scene.calc.rcd2ccd(rcd::fromXYZ(60, 60, 60))};
        EXPECT_THROW(apart.scene.voro->meshAgain(beyond), ZavBugException);
    }
}
