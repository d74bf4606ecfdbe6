#include "cells/RemoveDecider.h"

#include "base/sortMT.h"

#include <algorithm>
#include <array>

namespace MIRT_ZAV
{

RemoveDecider::RemoveDecider(std::vector<CCD>& cells, Calc* calcArg) : vCCD(cells), calc(calcArg)
{
    sortMT(cells.begin(), cells.end());
}

unsigned RemoveDecider::setNewCCD(CCD ccd)
{
    bits.reset();
    std::array<CCD, 27> block;
    calc->completeArray27(ccd, block.data());
    for (size_t position = 0; position < block.size(); ++position)
    {
        const CCD c = block[position];
        const bool bKnown = c == ccd || std::binary_search(vCCD.begin(), vCCD.end(), c);
        bits[position] = bKnown && !isDoomed(c);
    }
    return static_cast<unsigned>(bits.count());
}

bool RemoveDecider::badDiagonal(int a, int b, int c) const
{
    return isPresent(a) && !isPresent(b) && !isPresent(c);
}

bool RemoveDecider::badDirect(int a, int b, int c, int d, int e, int f) const
{
    return !isPresent(a) && !isPresent(b) && isPresent(c) && isPresent(d) && isPresent(e) && isPresent(f);
}

int RemoveDecider::getNumDirectVisible() const
{
    // 5 is an edge, the one between the faces 4 and 14; the missing face would be 4. Which cells extraction gives up,
    // and so the bytes of meshes, depend on it.
    constexpr std::array<int, 6> positions = {22, 5, 14, 16, 12, 10};
    return static_cast<int>(std::count_if(positions.begin(), positions.end(), [this](int p) { return !isPresent(p); }));
}

bool RemoveDecider::isRemovable(CCD c)
{
    constexpr int diagonals[12][3] = {{5, 4, 14},   {7, 4, 16},   {3, 4, 12},   {1, 4, 10},
                                      {23, 22, 14}, {25, 22, 16}, {21, 22, 12}, {19, 22, 10},
                                      {17, 14, 16}, {15, 16, 12}, {9, 12, 10},  {11, 10, 14}};
    if (setNewCCD(c) == 27 || getNumDirectVisible() < 3)
        return false;
    for (const auto& [edge, face1, face2] : diagonals)
        if (badDiagonal(edge, face1, face2))
            return false;
    return !badDirect(4, 22, 14, 16, 12, 10) && !badDirect(12, 14, 16, 10, 22, 4) && !badDirect(10, 16, 14, 12, 22, 4);
}

} // namespace MIRT_ZAV
