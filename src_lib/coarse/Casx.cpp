#include "coarse/Casx.h"

#include "base/tools.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iostream>
#include <utility>

namespace MIRT_ZAV
{
namespace
{
/// Where each bit of a configuration or triangle mask goes in a quarter turn.
using Rotation = std::array<int, 8>;
constexpr Rotation rotationA = {4, 5, 1, 0, 7, 6, 2, 3}; // about x
constexpr Rotation rotationB = {3, 0, 1, 2, 7, 4, 5, 6}; // about y
constexpr Rotation rotationC = {1, 5, 6, 2, 0, 4, 7, 3}; // about z

/// For each bit the cell's offset from the smallest cell of the eight, as x 4, y 2, z 1: its rank in Morton order. In a
/// face the lowest rank has the lowest code wherever the eight cells lie.
constexpr std::array<int, 8> rankOfBit = {1, 5, 4, 0, 3, 7, 6, 2};

int rotate(int mask, const Rotation& rotation, int times)
{
    for (; times > 0; --times)
    {
        int rotated = 0;
        for (size_t bit = 0; bit < 8; ++bit)
            rotated |= (mask >> bit & 1) << rotation[bit];
        mask = rotated;
    }
    return mask;
}

int rotate(int mask, int i, int j, int k)
{
    return rotate(rotate(rotate(mask, rotationA, i), rotationB, j), rotationC, k);
}

/// Calls f(i, j, k) for all numbers of quarter turns about the three axes, i outermost: 64 calls for 24 rotations.
/// Where several lead to one configuration the first counts, so the table depends on the order.
template <class F>
void forAllRotations(const F& f)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k)
                f(i, j, k);
}

struct BaseCase
{
    int config;
    std::vector<int> thinSheet; // role TUT
    std::vector<int> inner;     // role TUI
    std::vector<int> fatOnly;   // role TUF
};

const std::vector<BaseCase>& getFatBaseCases()
{
    static const std::vector<BaseCase> baseCases = {
        {0, {}, {}, {}},
        {1, {}, {}, {}},
        {3, {}, {}, {}},
        {5, {}, {}, {}},
        {7, {}, {7}, {}},
        {15, {11, 14}, {}, {}},
        {20, {}, {}, {}},
        {21, {}, {}, {}},
        {23, {19, 7}, {}, {}},
        {26, {26}, {}, {}},
        {27, {}, {25, 19, 11}, {26}},
        {29, {13, 25}, {}, {}},
        {30, {14, 26}, {}, {}},
        {31, {11, 14}, {19, 25}, {22, 28}},
        {60, {44, 56}, {}, {}},
        {61, {44, 56, 25}, {}, {37, 49, 13}},
        {63, {11, 14, 35, 49}, {25, 38}, {28, 52}},
        {90, {88, 26, 74, 82}, {}, {}},
        {91, {82, 74, 88, 19, 25, 11}, {}, {}},
        {95, {11, 14, 69, 81}, {}, {}},
        {125, {13, 21, 84, 112}, {49, 25, 100}, {}},
        {127, {35, 49, 38, 100, 11, 14}, {25, 76, 112}, {88}},
        {255, {}, {}, {}},
    };
    return baseCases;
}

/// The thin table has one role only.
const std::vector<BaseCase>& getThinBaseCases()
{
    static const std::vector<BaseCase> baseCases = {
        {0, {}, {}, {}},
        {1, {}, {}, {}},
        {3, {}, {}, {}},
        {5, {}, {}, {}},
        {7, {}, {}, {}},
        {15, {11, 14}, {}, {}},
        {20, {}, {}, {}},
        {21, {}, {}, {}},
        {23, {7, 19}, {}, {}},
        {26, {26}, {}, {}},
        {27, {11, 19, 25}, {}, {}},
        {29, {13, 25}, {}, {}},
        {30, {14, 26}, {}, {}},
        {31, {11, 14}, {}, {}},
        {60, {44, 56}, {}, {}},
        {61, {25, 44, 56}, {}, {}},
        {63, {11, 14, 35, 49}, {}, {}},
        {90, {26, 74, 82, 88}, {}, {}},
        {91, {26, 74}, {}, {}},
        {95, {11, 14, 21, 84}, {}, {}},
        {125, {41, 49, 76, 104}, {}, {}},
        {127, {11, 14, 35, 38, 49, 100}, {}, {}},
        {255, {}, {}, {}},
    };
    return baseCases;
}

/// Whether the cells of a mask lie in one face of the cube, that is, agree on one axis.
bool isInOneFace(int mask)
{
    int allSet = 7;
    int anySet = 0;
    for (size_t bit = 0; bit < 8; ++bit)
        if ((mask >> bit & 1) != 0)
        {
            allSet &= rankOfBit[bit];
            anySet |= rankOfBit[bit];
        }
    return (allSet | (7 & ~anySet)) != 0;
}

/// The cell of the lowest rank, as a mask.
int lowestCell(int mask)
{
    int lowest = 0;
    int lowestRank = 8;
    for (size_t bit = 0; bit < 8; ++bit)
        if ((mask >> bit & 1) != 0 && rankOfBit[bit] < lowestRank)
        {
            lowest = 1 << bit;
            lowestRank = rankOfBit[bit];
        }
    return lowest;
}
} // namespace

void samePlaneUnify(int& triangle0, int& triangle1)
{
    const int shared = triangle0 & triangle1;
    const int square = triangle0 | triangle1;
    if (std::popcount(static_cast<unsigned>(shared)) != 2 || !isInOneFace(square))
        return;
    if ((shared & lowestCell(square)) != 0)
        return;
    const int otherDiagonal = square & ~shared;
    const int sharedCell = shared & -shared;
    triangle0 = otherDiagonal | sharedCell;
    triangle1 = otherDiagonal | (shared & ~sharedCell);
}

Casx::Casx(TRIMODE modeArg, bool bExperimentalArg)
    : mode(modeArg), bExperimental(bExperimentalArg), vTriVec(numConfigs * rowLength, endOfRow),
      vTriUse(numConfigs * rowLength, TUU)
{
    if (bExperimental)
    {
        std::cout << "Casx::Casx, bExperimental=true - using base cases\n";
        initBaseCases();
        expandBaseCases();
    }
    else
        initAllCases();
}

void Casx::initAllCases()
{
    initBaseCases();
    expandBaseCases();
}

void Casx::initBaseCases()
{
    if (mode != TM_THIN && mode != TM_FAT)
        return;
    for (const BaseCase& baseCase : mode == TM_FAT ? getFatBaseCases() : getThinBaseCases())
    {
        vBaseCases.push_back(baseCase.config);
        std::vector<int> triangles;
        std::vector<TriUse> uses;
        const std::pair<const std::vector<int>*, TriUse> roles[] = {
            {&baseCase.thinSheet, TUT}, {&baseCase.inner, TUI}, {&baseCase.fatOnly, TUF}};
        for (const auto& [masks, use] : roles)
        {
            triangles.insert(triangles.end(), masks->begin(), masks->end());
            uses.insert(uses.end(), masks->size(), use);
        }
        addTriConfig(baseCase.config, triangles);
        addTriUse(baseCase.config, uses);
    }
}

void Casx::expandBaseCases()
{
    std::array<bool, numConfigs> seen{};
    for (const int base : vBaseCases)
    {
        const std::vector<int> baseRow = getRow(base);
        const std::vector<TriUse> baseUse = getUseRow(base);
        forAllRotations(
            [&](int i, int j, int k)
            {
                const int config = rotate(base, i, j, k);
                if (std::exchange(seen[static_cast<size_t>(config)], true))
                    return; // an earlier rotation has written this row
                std::vector<int> row = baseRow;
                for (int& triangle : row)
                    triangle = rotate(triangle, i, j, k);
                for (size_t first = 0; first < row.size(); ++first)
                    for (size_t second = first + 1; second < row.size(); ++second)
                        samePlaneUnify(row[first], row[second]);
                addTriConfig(config, row);
                setTriUse(config, baseUse);
            });
    }
}

void Casx::addTriConfig(int config, const std::vector<int>& triangles)
{
    ZAV_ASSERT(triangles.size() <= rowLength, "triangles.size()<=rowLength");
    const auto row = vTriVec.begin() + config * rowLength;
    std::fill(row, row + rowLength, endOfRow);
    std::copy(triangles.begin(), triangles.end(), row);
}

void Casx::addTriUse(int config, const std::vector<TriUse>& uses)
{
    forAllRotations([&](int i, int j, int k) { setTriUse(rotate(config, i, j, k), uses); });
}

void Casx::setTriUse(int config, const std::vector<TriUse>& uses)
{
    ZAV_ASSERT(uses.size() <= rowLength, "uses.size()<=rowLength");
    const auto row = vTriUse.begin() + config * rowLength;
    std::fill(row, row + rowLength, TUU);
    std::copy(uses.begin(), uses.end(), row);
}

std::vector<int> Casx::getRow(int config) const
{
    const auto row = vTriVec.begin() + config * rowLength;
    return {row, std::find(row, row + rowLength, int(endOfRow))};
}

std::vector<TriUse> Casx::getUseRow(int config) const
{
    const auto row = vTriUse.begin() + config * rowLength;
    return {row, row + static_cast<std::ptrdiff_t>(getRow(config).size())};
}

void Casx::getTriangles(int config, const CCD* corners, std::vector<CCD>& out, TriUse use) const
{
    const int numCells = Calc::getNumSet8(config);
    if (numCells < 3 || numCells > 7)
        return;
    for (int position = config * rowLength; position < (config + 1) * rowLength; ++position)
    {
        if (use != TUU && vTriUse[static_cast<size_t>(position)] != use)
            continue;
        const int triangle = vTriVec[static_cast<size_t>(position)];
        if (triangle > 255)
            break;
        for (int bit = 0; bit < 8; ++bit)
            if ((triangle >> bit & 1) != 0)
                out.push_back(corners[bit]);
        if (out.size() % 3 != 0)
        {
            std::cout << "Uh, config=" << config << '\n';
            ZAV_BUG("vTriCCD.size()%3==0");
        }
    }
}

unsigned Casx::getExtraCbs(int config)
{
    if (config < 63 || config > 254 || Calc::getNumSet8(config) < 6)
        return 0;
    return 0xffu & ~static_cast<unsigned>(config);
}

unsigned Casx::getRemoveCbs(int config)
{
    switch (config)
    {
    case 63:
        return 3;
    case 111:
        return 6;
    case 119:
        return 34;
    case 127:
        return 2;
    case 159:
        return 9;
    case 187:
        return 17;
    case 191:
        return 1;
    case 207:
        return 12;
    case 221:
        return 136;
    case 223:
        return 8;
    case 238:
        return 68;
    case 239:
        return 4;
    case 243:
        return 48;
    case 246:
        return 96;
    case 247:
        return 32;
    case 249:
        return 144;
    case 251:
        return 16;
    case 252:
        return 192;
    case 253:
        return 128;
    case 254:
        return 64;
    default:
        return 0;
    }
}

} // namespace MIRT_ZAV
