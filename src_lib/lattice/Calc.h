// Lattice arithmetic: points to cells and back, and the code forms of cells and vertices.
#pragma once

#include "base/tools.h"
#include "zav/Point3.h"

#include <vector>

// The code forms stand outside of the namespace, so that the function signatures in bug reports read plainly "CCD".

/// A cell (i, j, k) as its Morton code: the bits of the three coordinates take turns.
///
///     bit    63   62  61  60   ...   5   4   3    2   1   0
///             0  i20 j20 k20        i1  j1  k1   i0  j0  k0
///
/// Sorted codes follow the Z-order curve, on which cells close in space are mostly close in the list. Every three bits
/// dropped at the low end lead one level up the octree, to the cube of 2 x 2 x 2 that holds the cell.
using CCD = unsigned long long;
/// The cell in row form: a field of 21 bits for each coordinate, that of i on top, that of k lowest. Sorted codes run
/// through columns along z. To step along an axis, add or subtract its unit; at the ends of the lattice that would
/// spoil the next field, which is why clouds keep far away from them.
using RCD = unsigned long long;
/// A lattice vertex as a Morton code, that of the one cell whose minimum corner it is. Seven more cells meet in it.
using VCD = unsigned long long;
/// The vertex in row form.
using RCC = unsigned long long;

namespace MIRT_ZAV
{

using ::CCD;
using ::RCC;
using ::RCD;
using ::VCD;
using u64 = unsigned long long;

constexpr int MAXLEVELS = 21;

/// How two neighbouring cells touch: 1 + the number of axes on which they differ.
enum NeigTyp
{
    NT_FACE = 2,
    NT_EDGE = 3,
    NT_CORNER = 4
};

namespace ccd
{
constexpr u64 xMask = 0x4924924924924924;
constexpr u64 yMask = 0x2492492492492492;
constexpr u64 zMask = 0x1249249249249249;
// Axis selectors: the bit of the axis within the three bits of one level.
constexpr u64 xAx = 4;
constexpr u64 yAx = 2;
constexpr u64 zAx = 1;
} // namespace ccd

namespace rcd
{
constexpr u64 xField = 0x7ffffc0000000000;
constexpr u64 yField = 0x3ffffe00000;
constexpr u64 zField = 0x1fffff;
constexpr u64 xUnit = 0x40000000000;
constexpr u64 yUnit = 0x200000;
constexpr u64 zUnit = 1;

constexpr u64 getX(RCD r)
{
    return r >> 42 & 0x1fffff;
}
constexpr u64 getY(RCD r)
{
    return r >> 21 & 0x1fffff;
}
constexpr u64 getZ(RCD r)
{
    return r & 0x1fffff;
}
constexpr RCD fromXYZ(u64 i, u64 j, u64 k)
{
    return i << 42 | j << 21 | k;
}
} // namespace rcd

/// Spreads the lowest 21 bits to a stride of three: every step doubles the number of groups and halves their width.
constexpr u64 spreadBits(u64 n)
{
    n &= 0x1fffff;
    n = (n | n << 32) & 0x1f00000000ffff;
    n = (n | n << 16) & 0x1f0000ff0000ff;
    n = (n | n << 8) & 0x100f00f00f00f00f;
    n = (n | n << 4) & 0x10c30c30c30c30c3;
    n = (n | n << 2) & 0x1249249249249249;
    return n;
}

/// The inverse: gathers the bits 0, 3, 6, ... of a code.
constexpr u64 gatherBits(u64 c)
{
    c &= 0x1249249249249249;
    c = (c | c >> 2) & 0x10c30c30c30c30c3;
    c = (c | c >> 4) & 0x100f00f00f00f00f;
    c = (c | c >> 8) & 0x1f0000ff0000ff;
    c = (c | c >> 16) & 0x1f00000000ffff;
    c = (c | c >> 32) & 0x1fffff;
    return c;
}

/// The lattice of one run: an origin, the lengths of the domain and the number of levels L, with 2^L cells per axis.
/// Immutable, and used by several threads at once.
class Calc
{
public:
    /// \param x0, y0, z0        minimum corner of cell (0,0,0), input units
    /// \param lenX, lenY, lenZ  side lengths of the whole domain, input units
    /// \param numLevels         L, at most MAXLEVELS, else ZavBugException
    Calc(double x0, double y0, double z0, double lenX, double lenY, double lenZ, int numLevels);

    double getSideLen() const { return stepX; }
    void getSteps(double& x, double& y, double& z) const;
    void getBaseSteps(double& x, double& y, double& z) const { getSteps(x, y, z); }
    void getOrigin(double& x, double& y, double& z) const;
    int getNumLevels() const { return numLevels; }

    // Point to cell. Cells are half open: a point on the wall between two of them lies in the one of greater
    // coordinates. There is no range test: a point outside of the lattice, or with a coordinate that isn't a number,
    // gets a code, too, but one that means nothing.
    CCD getCCD(const Point3* p) const { return interleave(indexX(p->x()), indexY(p->y()), indexZ(p->z())); }
    /// The same after a move by d, in input units, along each axis.
    CCD getCCDPlus(const Point3* p, double d) const
    {
        return interleave(indexX(p->x() + d), indexY(p->y() + d), indexZ(p->z() + d));
    }
    RCD getRCD(const Point3* p) const { return rcd::fromXYZ(indexX(p->x()), indexY(p->y()), indexZ(p->z())); }

    CCD rcd2ccd(RCD r) const;
    RCD ccd2rcd(CCD c) const;
    void extractIntCCD(CCD c, u64& i, u64& j, u64& k) const;
    /// The cell's minimum corner: to the origin is added what each bit is worth, the lowest level first. The last bits
    /// of coordinates, and with them the bytes of results, depend on this order.
    void extractDoubleCCD(CCD c, double& x, double& y, double& z) const;
    /// The same as a point without colour.
    Point3 getRefPoint(CCD c) const;
    /// The centre of the cell, without colour.
    Point3 getMidPoint(CCD c) const;
    /// The centre of the cell as origin + (i + 0.5) * step; it can differ from getMidPoint in the last bits.
    Point3 getCenter(RCD r) const
    {
        return {x0 + (static_cast<double>(rcd::getX(r)) + 0.5) * stepX,
                y0 + (static_cast<double>(rcd::getY(r)) + 0.5) * stepY,
                z0 + (static_cast<double>(rcd::getZ(r)) + 0.5) * stepZ};
    }
    // One point per code is appended, in order.
    void getRefPoints(const std::vector<CCD>& codes, std::vector<Point3>& out) const;
    void getMidPoints(const std::vector<CCD>& codes, std::vector<Point3>& out) const;

    /// Puts the lowest L bits of a coordinate where a CCD holds its axis.
    /// \param axTriBit  ccd::xAx, yAx or zAx; with several of them the coordinate goes to each of these axes
    u64 numberToSparse(u64 number, u64 axTriBit) const;
    /// The way back: the coordinate of a CCD on an axis. Of several axes the coordinates are united bit by bit.
    u64 sparseToNumber(CCD c, u64 axTriBit) const;
    /// One step up or down on one axis.
    /// \param axisBits  a CCD in which the bits of the other axes are clear
    /// \throws ZavBugException  at the end of the lattice
    CCD incSparse(CCD axisBits, CCD axTriBit) const;
    CCD decSparse(CCD axisBits, CCD axTriBit) const;
    /// One step of a full code along an axis, in place. Beyond the lattice: a message, c becomes -1, the result false.
    bool manipOneAxis(CCD& c, bool bIncrease, u64 axTribit) const;

    /// The number of axes, 0 to 3, on which two codes differ.
    static int getNumDifferent_CCD(CCD a, CCD b);
    static int getNumDifferent_RCD(RCD a, RCD b);
    /// Number of bits set in a byte.
    static int getNumSet8(int val);

    // Neighbourhoods in fixed orders, drawn as places in the array. Tables and bit patterns are indexed by them. Those
    // of CCDs end in ZavBugException where they would leave the lattice.

    /// From a vertex in a[0], the eight vertices of the cube above it; from a cell, the block of 2 x 2 x 2 above it.
    ///
    ///           y            y + 1
    ///     z+1   3   2        7   6
    ///     z     0   1        4   5
    ///           x  x+1       x  x+1
    void completeArrayPlus(CCD* a) const;
    /// From a vertex in a[5], the eight cells that meet in it. A place is the bit of the cell in the patterns that the
    /// case table knows.
    ///
    ///          y - 1          y
    ///     z    0 | 1        4 | 5
    ///         ---+---      ---v---      v: the vertex, the minimum corner of cell 5, in the middle of all eight
    ///     z-1  3 | 2        7 | 6
    ///         x-1  x       x-1  x
    void completeArraySym(CCD* a) const;
    /// The block of 3 x 3 x 3 cells around a base, itself at 13. x runs fastest, z slowest.
    ///
    ///            z - 1           z             z + 1
    ///     y+1   6  7  8      15 16 17      24 25 26
    ///     y     3  4  5      12 13 14      21 22 23
    ///     y-1   0  1  2       9 10 11      18 19 20
    ///          x-1 x x+1     x-1 x x+1     x-1 x x+1
    void completeArray27(CCD base, CCD* a) const;
    /// The 26 neighbours in ascending order: x runs slowest, z fastest. A coordinate of 0 is a bug; the upper end of
    /// the lattice isn't tested.
    static void completeArray26_RCD(RCD r, RCD* a);
    /// The block in the order of completeArray27, with the tests of completeArray26_RCD.
    static void completeArray27_RCD(RCD r, RCD* a);

    /// NeigTyp of two different codes; equal codes are a bug.
    static int getNeigType(CCD a, CCD b);
    /// For two codes in one lattice plane, but not in one row: the axis, x 0, y 1 or z 2, on which they agree; else -1.
    /// Two such neighbours are the ends of a diagonal of a square, and the axis stands at right angles to it.
    static int getUniqueSameComponent(CCD a, CCD b);
    /// The same for three codes: the only axis on which all of them agree.
    static int getUniqueSameComponent(CCD a, CCD b, CCD c);
    /// For two different codes in one row: the axis of the row; else -1.
    static int getUniqueDifferentComponent(CCD a, CCD b);
    static int getUniqueDifferentComponent_RCD(RCD a, RCD b);

private:
    /// Rounds down, for every double: below the lattice 0; from 2^21 on, and for what isn't a number, the largest index
    /// of 21 bits. The cast alone would be undefined there.
    static u64 toIndex(double cells)
    {
        return cells < 2097152.0 ? (cells > 0.0 ? static_cast<u64>(cells) : 0) : 0x1fffff;
    }
    u64 indexX(double x) const { return toIndex((x - x0) * scaleX); }
    u64 indexY(double y) const { return toIndex((y - y0) * scaleY); }
    u64 indexZ(double z) const { return toIndex((z - z0) * scaleZ); }
    static CCD interleave(u64 i, u64 j, u64 k) { return spreadBits(i) << 2 | spreadBits(j) << 1 | spreadBits(k); }
    u64 levelMask() const { return numLevels > 0 ? (u64(1) << numLevels) - 1 : 0; }

public:
    // Plain data, set once by the constructor.
    double x0, y0, z0; // minimum corner of cell (0,0,0)
    double lenX, lenY, lenZ;
    int numLevels;
    u64 numCells; // 2^L
    double stepX, stepY, stepZ;
    double scaleX, scaleY, scaleZ;
};

} // namespace MIRT_ZAV
