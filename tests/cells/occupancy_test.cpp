// The bit blocks against a plain set of cells.
#include "cells/RCDStore.h"

#include "helpers/capture.h"
#include "helpers/plain_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>

using namespace MIRT_ZAV;

namespace
{
/// Cells around the corner where eight blocks meet. One of the blocks gets none and so doesn't exist.
std::vector<RCD> cellsAroundCorner(unsigned seed, double density)
{
    std::mt19937 random(seed);
    std::bernoulli_distribution take(density);
    std::vector<RCD> cells;
    for (u64 x = 124; x < 132; ++x)
        for (u64 y = 60; y < 68; ++y)
            for (u64 z = 188; z < 196; ++z)
                if (take(random) && !(x < 128 && y >= 64 && z < 192))
                    cells.push_back(at(x, y, z));
    std::shuffle(cells.begin(), cells.end(), random);
    return cells;
}

void expectLikeModel(const RCDStore& store, const std::vector<RCD>& cells, const PlainCells& model)
{
    for (const RCD r : cells)
    {
        const RCDMatrix* const pMatrix = store.getRCDMatrix(r);
        ASSERT_NE(pMatrix, nullptr);
        const ADDR address = RCDMatrix::rcdToAddress(r);
        unsigned config = 99;
        const int count = pMatrix->getConfiguration(address, config);
        ASSERT_EQ(config, model.configuration(r)) << std::hex << r;
        ASSERT_EQ(count, config == 0 ? -1 : std::popcount(config));

        std::vector<RCD> neigs26, neigs6;
        pMatrix->getNeigRCD26(address, neigs26); // of dead cells, too
        ASSERT_EQ(neigs26, model.neigs26(r));
        const int numFaces = pMatrix->getNeigs6(address, &neigs6);
        ASSERT_EQ(neigs6, model.neigs6(r));
        ASSERT_EQ(numFaces, static_cast<int>(neigs6.size()));
        ASSERT_EQ(numFaces, pMatrix->getNeigs6(address, nullptr));
    }
    std::vector<RCD> alive;
    store.getAllRCD(alive);
    std::sort(alive.begin(), alive.end());
    ASSERT_EQ(alive, std::vector<RCD>(model.alive.begin(), model.alive.end()));
}
} // namespace

TEST(Occupancy, ReadsLikeASetOfCellsAcrossBlocks)
{
    for (const double density : {0.1, 0.5, 1.0})
    {
        std::vector<RCD> cells = cellsAroundCorner(1, density);
        RCDStore store(&unitCalc(), cells);
        PlainCells model{{cells.begin(), cells.end()}};
        expectLikeModel(store, cells, model);

        for (size_t i = 0; i < cells.size(); i += 2)
        {
            store.getRCDMatrix(cells[i])->bits.reset(RCDMatrix::rcdToAddress(cells[i]));
            model.alive.erase(cells[i]);
        }
        expectLikeModel(store, cells, model);
    }
}

TEST(Occupancy, AllCellsComeByBlockAndAddress)
{
    std::vector<RCD> cells = {at(65, 0, 0), at(2, 3, 1), at(1, 3, 1), at(0, 4, 0), at(63, 63, 63)}, all;
    RCDStore(&unitCalc(), cells).getAllRCD(all);
    EXPECT_EQ(all, (std::vector<RCD>{at(0, 4, 0), at(1, 3, 1), at(2, 3, 1), at(63, 63, 63), at(65, 0, 0)}));
}

TEST(Occupancy, TheCacheOfAThreadNeverAnswersForAnotherStore)
{
    std::vector<RCD> cells = {at(1, 1, 1), at(100, 1, 1)};
    RCDStore first(&unitCalc(), cells), second(&unitCalc(), cells);
    std::vector<RCDMatrix*> here, there;
    const auto ask = [&](std::vector<RCDMatrix*>& answers)
    {
        for (const RCD r : cells)
            for (const RCDStore* pStore : {&first, &second, &first})
                answers.push_back(pStore->getRCDMatrix(r));
    };
    ask(here);
    EXPECT_TRUE(here[0] == here[2] && here[0] != here[1] && here[0] != here[3]);
    std::thread([&] { ask(there); }).join();
    EXPECT_EQ(here, there);
}

TEST(Occupancy, IsolatedCellsStaySmall)
{
    // With a full block for each of these cells the store would need 600 MiB.
    std::vector<RCD> cells;
    for (u64 i = 0; i < 20000; ++i)
        cells.push_back(at(5000 + 64 * (i % 50), 5000 + 64 * (i / 50 % 20), 5000 + 64 * (i / 1000)));
    const RCDStore store(&unitCalc(), cells);
    size_t numLayers = 0;
    for (const RCD r : cells)
        for (unsigned z = 0; z < 64; ++z)
            numLayers += store.getRCDMatrix(r)->bits.hasLayer(z) ? 1 : 0;
    EXPECT_EQ(numLayers, cells.size());
}
