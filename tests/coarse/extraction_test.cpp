// The case table, and the cells that extraction completes.

#include "base/Progress.h"
#include "coarse/Casx.h"
#include "coarse/Voro.h"
#include "helpers/capture.h"
#include "helpers/coarse_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>

using namespace MIRT_ZAV;

namespace
{
/// Offset (x, y, z) of each bit's cell, 0 for the lower and 1 for the upper one:
///
///     0 --- 1        4 --- 5      z up, x to the right
///     |     |        |     |
///     3 --- 2        7 --- 6
///     lower y        upper y
constexpr u64 offsets[8][3] = {{0, 0, 1}, {1, 0, 1}, {1, 0, 0}, {0, 0, 0}, {0, 1, 1}, {1, 1, 1}, {1, 1, 0}, {0, 1, 0}};
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

TEST(Extraction, NearlyFullVerticesAreCompletedInExchangeForRemovableCells)
{
    getThreadProgress()->startRun("Test");
    struct Case
    {
        int before, after;
        size_t numAdded, numTriangles;
    };
    // Cell 5 comes and cell 3 goes; two cells come and two go; two come and none can go.
    for (const auto& [before, after, numAdded, numTriangles] :
         {Case{223, 247, 1, 6}, {63, 252, 2, 4}, {125, 255, 2, 12}})
    {
        test::CoarseCells cells(6);
        for (int bit = 0; bit < 8; ++bit)
            if (const auto& [x, y, z] = offsets[bit]; before >> bit & 1)
                cells.vertex(8 + x, 8 + y, 8 + z);
        std::vector<CCD> fill;
        Voro voro(&cells.calc, cells.bundles, fill, TM_FAT);
        voro.fatExtractTriangles();
        std::vector<VCD> vertices = {cells.cell(9, 9, 9)}, beyond = {cells.cell(60, 60, 60)};
        const CMesh* const mesh = voro.meshAgain(vertices);
        const auto patternAt = [&](VCD vertex)
        {
            u64 i = 0, j = 0, k = 0;
            cells.calc.extractIntCCD(vertex, i, j, k);
            int pattern = 0;
            for (int bit = 0; bit < 8; ++bit)
            {
                const auto& [x, y, z] = offsets[bit];
                const CCD c = cells.cell(i - 1 + x, j - 1 + y, k - 1 + z);
                pattern |= std::count(voro.vCCD.begin(), voro.vCCD.end(), c) != 0 ? 1 << bit : 0;
            }
            return pattern;
        };
        EXPECT_EQ(patternAt(vertices[0]), after);
        EXPECT_EQ(mesh->vAdditionalBundles.size(), numAdded);
        EXPECT_EQ(mesh->numAliveT, numTriangles);
        for (const CTriangle* const t : mesh->vT)
            EXPECT_EQ(t->config, patternAt(t->vcd));
        EXPECT_THROW(voro.meshAgain(beyond), ZavBugException);
    }
    getThreadProgress()->reset();
}
