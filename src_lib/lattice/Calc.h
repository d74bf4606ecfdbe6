// Lattice arithmetic: points to cells and back, and the code forms of cells and vertices.
#pragma once

#include "base/tools.h"
#include "zav/Point3.h"

#include <vector>

// The code forms stand outside of the namespace, so that the function signatures in bug reports read plainly "CCD".

/// A cell (i, j, k) in Morton order: bit n of i stands at bit 3n + 2, of j at 3n + 1, of k at 3n. Sorting sorts along
/// the Z-order curve. At most 21 bits per axis, so bit 63 is never set.
using CCD = unsigned long long;
/// The same cell in row form: i << 42 | j << 21 | k. Sorting sorts by i, then j, then k; a step is one addition.
using RCD = unsigned long long;
/// A lattice vertex, coded like a CCD: the minimum corner of the cell of equal value. Eight cells meet in it.
using VCD = unsigned long long;
/// A lattice vertex in row form: the minimum corner of the RCD of equal value.
using RCC = unsigned long long;

namespace MIRT_ZAV
{

using ::CCD;
using ::RCC;
using ::RCD;
using ::VCD;
using u64 = unsigned long long;

constexpr int MAXLEVELS = 21;

/// Relation of two different cells: 1 + the number of axes on which they differ.
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
constexpr u64 xyMask = 0x6db6db6db6db6db6;
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
constexpr u64 xyFields = 0x7fffffffffe00000;
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

    // Point to cell. The index is truncate((p - origin) * scale): a point on a cell border belongs to the upper cell.
    // No range test: outside of the lattice, and for coordinates that aren't numbers, the code is defined but
    // meaningless.
    CCD getCCD(const Point3* p) const { return interleave(indexX(p->x()), indexY(p->y()), indexZ(p->z())); }
    /// The cell of the point moved by d along all three axes.
    CCD getCCDPlus(const Point3* p, double d) const
    {
        return interleave(indexX(p->x() + d), indexY(p->y() + d), indexZ(p->z() + d));
    }
    RCD getRCD(const Point3* p) const { return rcd::fromXYZ(indexX(p->x()), indexY(p->y()), indexZ(p->z())); }

    CCD rcd2ccd(RCD r) const;
    RCD ccd2rcd(CCD c) const;
    void extractIntCCD(CCD c, u64& i, u64& j, u64& k) const;
    /// The cell's minimum corner, summed level by level with the lowest first: the order decides the last bits.
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

    /// Spreads the lowest L bits of a number on the bits of an axis; a selector of several bits writes several axes.
    u64 numberToSparse(u64 number, u64 axTriBit) const;
    /// Bit n is set when any selected bit of level n is.
    u64 sparseToNumber(CCD c, u64 axTriBit) const;
    /// +1 and -1 in the sparse field of one axis, of which all other bits are clear. Leaving the lattice is a bug.
    CCD incSparse(CCD axisBits, CCD axTriBit) const;
    CCD decSparse(CCD axisBits, CCD axTriBit) const;
    /// One step of a full code along an axis, in place. Beyond the lattice: a message, c becomes -1, the result false.
    bool manipOneAxis(CCD& c, bool bIncrease, u64 axTribit) const;

    /// The number of axes, 0 to 3, on which two codes differ.
    static int getNumDifferent_CCD(CCD a, CCD b);
    static int getNumDifferent_RCD(RCD a, RCD b);
    /// Number of bits set in a byte.
    static int getNumSet8(int val);

    /// a[0] holds a vertex; the other seven of the cube in the direction of growing coordinates are filled, in the
    /// order (0,0,0) (1,0,0) (1,0,1) (0,0,1) (0,1,0) (1,1,0) (1,1,1) (0,1,1).
    void completeArrayPlus(CCD* a) const;
    /// a[5] holds a vertex; the eight cells that meet in it are completed, in the order (-1,-1,0) (0,-1,0) (0,-1,-1)
    /// (-1,-1,-1) (-1,0,0) (0,0,0) (0,0,-1) (-1,0,-1): the bit order of a configuration of eight cells.
    void completeArraySym(CCD* a) const;
    /// The 3 x 3 x 3 block: a[(dx+1) + 3 * (dy+1) + 9 * (dz+1)] = base + (dx,dy,dz). A base of 0 is a bug.
    void completeArray27(CCD base, CCD* a) const;
    /// The 26 neighbours, dx outermost and dz innermost. Coordinates must be above 0; the upper end isn't tested.
    static void completeArray26_RCD(RCD r, RCD* a);
    /// As completeArray27 with the lower end tested as in completeArray26_RCD.
    static void completeArray27_RCD(RCD r, RCD* a);

    /// NeigTyp of two different codes; equal codes are a bug.
    static int getNeigType(CCD a, CCD b);
    /// Two codes that differ on exactly two axes: the index (x 0, y 1, z 2) of the axis on which they agree; else -1.
    static int getUniqueSameComponent(CCD a, CCD b);
    /// The same over the union of the differences of three codes.
    static int getUniqueSameComponent(CCD a, CCD b, CCD c);
    /// Two codes that differ on exactly one axis: its index; else -1.
    static int getUniqueDifferentComponent(CCD a, CCD b);
    static int getUniqueDifferentComponent_RCD(RCD a, RCD b);

private:
    /// truncate() for every double: below the lattice 0; above it, and for what isn't a number, the largest index.
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
