#include "lattice/Calc.h"

#include <array>
#include <bit>
#include <cmath>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
/// Which axes differ, as bits: x 4, y 2, z 1.
int differingAxes_CCD(u64 difference)
{
    return ((difference & ccd::xMask) != 0 ? 4 : 0) | ((difference & ccd::yMask) != 0 ? 2 : 0) |
           ((difference & ccd::zMask) != 0 ? 1 : 0);
}

int differingAxes_RCD(u64 difference)
{
    return ((difference & rcd::xField) != 0 ? 4 : 0) | ((difference & rcd::yField) != 0 ? 2 : 0) |
           ((difference & rcd::zField) != 0 ? 1 : 0);
}

/// Index of the axis (x 0, y 1, z 2) if exactly one bit of x 4, y 2, z 1 is set, else -1.
int singleAxis(int axes)
{
    constexpr std::array<int, 8> indexOf = {-1, 2, 1, -1, 0, -1, -1, -1};
    return indexOf[static_cast<size_t>(axes)];
}
} // namespace

Calc::Calc(double x0Arg, double y0Arg, double z0Arg, double lenXArg, double lenYArg, double lenZArg, int numLevelsArg)
    : x0(x0Arg), y0(y0Arg), z0(z0Arg), lenX(lenXArg), lenY(lenYArg), lenZ(lenZArg), numLevels(numLevelsArg)
{
    ZAV_ASSERT(numLevels <= MAXLEVELS, "numLevels<=MAXLEVELS");
    numCells = static_cast<u64>(std::pow(2.0, numLevels));
    const double cells = static_cast<double>(numCells);
    stepX = lenX / cells;
    stepY = lenY / cells;
    stepZ = lenZ / cells;
    scaleX = cells / lenX;
    scaleY = cells / lenY;
    scaleZ = cells / lenZ;
}

void Calc::getSteps(double& x, double& y, double& z) const
{
    x = stepX;
    y = stepY;
    z = stepZ;
}

void Calc::getOrigin(double& x, double& y, double& z) const
{
    x = x0;
    y = y0;
    z = z0;
}

CCD Calc::rcd2ccd(RCD r) const
{
    const u64 mask = levelMask();
    return spreadBits(rcd::getX(r) & mask) << 2 | spreadBits(rcd::getY(r) & mask) << 1 |
           spreadBits(rcd::getZ(r) & mask);
}

RCD Calc::ccd2rcd(CCD c) const
{
    u64 i = 0, j = 0, k = 0;
    extractIntCCD(c, i, j, k);
    return rcd::fromXYZ(i, j, k);
}

void Calc::extractIntCCD(CCD c, u64& i, u64& j, u64& k) const
{
    const u64 mask = levelMask();
    i = gatherBits(c >> 2) & mask;
    j = gatherBits(c >> 1) & mask;
    k = gatherBits(c) & mask;
}

void Calc::extractDoubleCCD(CCD c, double& x, double& y, double& z) const
{
    x = x0;
    y = y0;
    z = z0;
    double dx = stepX;
    double dy = stepY;
    double dz = stepZ;
    for (int n = 0; n < numLevels; ++n)
    {
        x += static_cast<double>(c >> (3 * n + 2) & 1) * dx;
        y += static_cast<double>(c >> (3 * n + 1) & 1) * dy;
        z += static_cast<double>(c >> (3 * n) & 1) * dz;
        dx *= 2.0;
        dy *= 2.0;
        dz *= 2.0;
    }
}

Point3 Calc::getRefPoint(CCD c) const
{
    double x = 0.0, y = 0.0, z = 0.0;
    extractDoubleCCD(c, x, y, z);
    return {x, y, z};
}

Point3 Calc::getMidPoint(CCD c) const
{
    double x = 0.0, y = 0.0, z = 0.0;
    extractDoubleCCD(c, x, y, z);
    return {x + 0.5 * stepX, y + 0.5 * stepY, z + 0.5 * stepZ};
}

void Calc::getRefPoints(const std::vector<CCD>& codes, std::vector<Point3>& out) const
{
    for (const CCD c : codes)
        out.push_back(getRefPoint(c));
}

void Calc::getMidPoints(const std::vector<CCD>& codes, std::vector<Point3>& out) const
{
    for (const CCD c : codes)
        out.push_back(getMidPoint(c));
}

u64 Calc::numberToSparse(u64 number, u64 axTriBit) const
{
    ZAV_ASSERT(axTriBit < 8, "axTriBit<8");
    return spreadBits(number & levelMask()) * axTriBit; // spread bits lie three apart: the product has no carries
}

u64 Calc::sparseToNumber(CCD c, u64 axTriBit) const
{
    ZAV_ASSERT(axTriBit < 8, "axTriBit<8");
    u64 number = 0;
    for (int bit = 0; bit < 3; ++bit)
        if ((axTriBit >> bit & 1) != 0)
            number |= gatherBits(c >> bit);
    return number & levelMask();
}

CCD Calc::incSparse(CCD axisBits, CCD axTriBit) const
{
    for (int n = 0; n < numLevels; ++n)
    {
        const u64 bit = axTriBit << (3 * n);
        if ((axisBits & bit) == 0)
            return axisBits | bit;
        axisBits &= ~bit;
    }
    ZAV_BUG("false"); // the highest coordinate has no upper neighbour
}

CCD Calc::decSparse(CCD axisBits, CCD axTriBit) const
{
    for (int n = 0; n < numLevels; ++n)
    {
        const u64 bit = axTriBit << (3 * n);
        if ((axisBits & bit) != 0)
            return axisBits & ~bit;
        axisBits |= bit;
    }
    ZAV_BUG("false"); // coordinate 0 has no lower neighbour
}

bool Calc::manipOneAxis(CCD& c, bool bIncrease, u64 axTribit) const
{
    for (int n = 0; n < numLevels; ++n)
    {
        const u64 bit = axTribit << (3 * n);
        const bool bSet = (c & bit) != 0;
        c ^= bit;
        if (bSet != bIncrease)
            return true;
    }
    std::cout << "ERROR, out of range, bIncrease=" << bIncrease << ", axTribit=" << axTribit << '\n'
              << "this is " << static_cast<const void*>(this) << ", numLevels=" << numLevels << '\n';
    errorMsg(ZAV_LOCATION, "End not found");
    c = ~CCD(0);
    return false;
}

int Calc::getNumDifferent_CCD(CCD a, CCD b)
{
    return std::popcount(static_cast<unsigned>(differingAxes_CCD(a ^ b)));
}

int Calc::getNumDifferent_RCD(RCD a, RCD b)
{
    return std::popcount(static_cast<unsigned>(differingAxes_RCD(a ^ b)));
}

int Calc::getNumSet8(int val)
{
    ZAV_ASSERT(val < 256, "val<256");
    return std::popcount(static_cast<unsigned>(val) & 0xffu);
}

void Calc::completeArrayPlus(CCD* a) const
{
    const CCD x = a[0] & ccd::xMask, y = a[0] & ccd::yMask, z = a[0] & ccd::zMask;
    const CCD x1 = incSparse(x, ccd::xAx), y1 = incSparse(y, ccd::yAx), z1 = incSparse(z, ccd::zAx);
    a[1] = x1 | y | z;
    a[2] = x1 | y | z1;
    a[3] = x | y | z1;
    a[4] = x | y1 | z;
    a[5] = x1 | y1 | z;
    a[6] = x1 | y1 | z1;
    a[7] = x | y1 | z1;
}

void Calc::completeArraySym(CCD* a) const
{
    const CCD x = a[5] & ccd::xMask, y = a[5] & ccd::yMask, z = a[5] & ccd::zMask;
    const CCD x1 = decSparse(x, ccd::xAx), y1 = decSparse(y, ccd::yAx), z1 = decSparse(z, ccd::zAx);
    a[0] = x1 | y1 | z;
    a[1] = x | y1 | z;
    a[2] = x | y1 | z1;
    a[3] = x1 | y1 | z1;
    a[4] = x1 | y | z;
    a[6] = x | y | z1;
    a[7] = x1 | y | z1;
}

void Calc::completeArray27(CCD base, CCD* a) const
{
    const CCD x = base & ccd::xMask, y = base & ccd::yMask, z = base & ccd::zMask;
    const CCD xs[3] = {decSparse(x, ccd::xAx), x, incSparse(x, ccd::xAx)};
    const CCD ys[3] = {decSparse(y, ccd::yAx), y, incSparse(y, ccd::yAx)};
    const CCD zs[3] = {decSparse(z, ccd::zAx), z, incSparse(z, ccd::zAx)};
    for (int position = 0; position < 27; ++position)
        a[position] = xs[position % 3] | ys[position / 3 % 3] | zs[position / 9];
    // Can't fail: on a base of 0, decSparse has ended in a bug. It is written like the condition that it would report.
    ZAV_ASSERT((a[13] = base) != 0, "array[13]=baseCCD");
}

void Calc::completeArray26_RCD(RCD r, RCD* a)
{
    ZAV_ASSERT(rcd::getX(r) > 0 && rcd::getY(r) > 0 && rcd::getZ(r) > 0, "x>0 && y>0 && z>0");
    const RCD lowest = r - rcd::xUnit - rcd::yUnit - rcd::zUnit;
    for (u64 dx = 0; dx < 3; ++dx)
        for (u64 dy = 0; dy < 3; ++dy)
            for (u64 dz = 0; dz < 3; ++dz)
                if (dx != 1 || dy != 1 || dz != 1)
                    *a++ = lowest + dx * rcd::xUnit + dy * rcd::yUnit + dz * rcd::zUnit;
}

void Calc::completeArray27_RCD(RCD r, RCD* a)
{
    ZAV_ASSERT(rcd::getX(r) > 0 && rcd::getY(r) > 0 && rcd::getZ(r) > 0, "x>0 && y>0 && z>0");
    const RCD lowest = r - rcd::xUnit - rcd::yUnit - rcd::zUnit;
    for (u64 position = 0; position < 27; ++position)
        a[position] = lowest + position % 3 * rcd::xUnit + position / 3 % 3 * rcd::yUnit + position / 9 * rcd::zUnit;
}

int Calc::getNeigType(CCD a, CCD b)
{
    ZAV_ASSERT(a != b, "result_xor");
    return 1 + getNumDifferent_CCD(a, b);
}

int Calc::getUniqueSameComponent(CCD a, CCD b)
{
    return singleAxis(7 & ~differingAxes_CCD(a ^ b));
}

int Calc::getUniqueSameComponent(CCD a, CCD b, CCD c)
{
    return singleAxis(7 & ~differingAxes_CCD((a ^ b) | (b ^ c)));
}

int Calc::getUniqueDifferentComponent(CCD a, CCD b)
{
    return singleAxis(differingAxes_CCD(a ^ b));
}

int Calc::getUniqueDifferentComponent_RCD(RCD a, RCD b)
{
    return singleAxis(differingAxes_RCD(a ^ b));
}

} // namespace MIRT_ZAV
