// A block of 64 x 64 x 64 lattice cells: one bit a cell, and links to the 26 blocks around it.
#pragma once

#include "base/SimplePool.h"
#include "lattice/Calc.h"

#include <array>
#include <bit>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Position of a cell inside its block: z * 4096 + y * 64 + x, of the low six bits of the coordinates. x runs fastest,
/// the opposite of the order of RCD, so that a row of 64 cells along x is one word.
using ADDR = unsigned;

/// The bits of one block, with the meaning of a bitset over ADDR. The 64 layers of equal z get memory when a bit is
/// first set in them; until then they read a shared layer of zeros, so that a sparse set of cells stays small.
class BlockBits
{
public:
    using Layer = std::array<u64, 64>; // bit x of word y
    using LayerPool = MIRT_TOOLS::SimplePool<Layer>;

    static constexpr ADDR size = 1u << 18;

    /// The pool outlives the bits.
    explicit BlockBits(LayerPool& layerPool);

    bool test(ADDR address) const { return (word(address >> 12, address >> 6 & 63) >> (address & 63) & 1) != 0; }
    bool operator[](ADDR address) const { return test(address); }
    void set(ADDR address);
    void reset(ADDR address)
    {
        if (hasLayer(address >> 12))
            (*layers[address >> 12])[address >> 6 & 63] &= ~(u64(1) << (address & 63));
    }
    /// Clears all bits.
    void reset();

    /// The row of 64 cells along x.
    u64 word(unsigned z, unsigned y) const { return (*layers[z])[y]; }
    bool hasLayer(unsigned z) const { return layers[z] != emptyLayer(); }

private:
    static Layer* emptyLayer() { return const_cast<Layer*>(&zeros); } // told apart by its address, never written
    static const Layer zeros;

    std::array<Layer*, 64> layers;
    LayerPool* pool;
};

/// One block. A neighbourhood is a 27-bit word: the cell at offset (dx, dy, dz) from its centre has the bit
/// 9 * (dz + 1) + 3 * (dy + 1) + (dx + 1), called its position; the centre is position 13.
class RCDMatrix
{
public:
    /// Selects the low six bits of each field of an RCD, the place inside the block. The other bits are the block's.
    static constexpr RCD lowerMask = 0xfc0007e0003f;
    /// The six face neighbours of a neighbourhood word.
    static constexpr unsigned faceMask = 0x415410;

    explicit RCDMatrix(BlockBits::LayerPool& layerPool) : bits(layerPool) {}

    RCD baseRCD = 0;                      // the block's cell of least coordinates
    RCDMatrix* aNeigMtx[3][3][3] = {};    // [dx + 1][dy + 1][dz + 1], null where there is no block, and in the middle
    BlockBits bits;                       // 1 while the cell is alive
    unsigned long long minAddr = 0x40000; // bounds of the addresses ever stored; clearing doesn't tighten them
    unsigned long long maxAddr = 0;

    /// The address of a cell in its block; takes whole codes and lower parts.
    static ADDR rcdToAddress(RCD r) { return static_cast<ADDR>((r & 63) << 12 | (r >> 21 & 63) << 6 | (r >> 42 & 63)); }
    static void addressToXYZ(ADDR address, unsigned& x, unsigned& y, unsigned& z)
    {
        x = address & 63;
        y = address >> 6 & 63;
        z = address >> 12;
    }

    /// Clears the block and sets the cells of list[first, last), pairs of upper and lower part of a code. A lower part
    /// that lies outside of a block throws std::out_of_range.
    void store(std::vector<std::pair<RCD, RCD>>& list, int first, int last);

    /// Enters the neighbour block at an offset; each one can be entered once.
    void setNeigMtx(int offx, int offy, int offz, RCDMatrix* pMatrix);

    /// The neighbourhood of an alive cell and the number of its bits, 1 to 27; for a dead cell config 0 and -1.
    int getConfiguration(ADDR address, unsigned& config) const
    {
        config = getConfiguration(address);
        return config == 0 ? -1 : std::popcount(config);
    }
    /// The same without the count.
    unsigned getConfiguration(ADDR address) const { return bits.test(address) ? getNeighbourhood(address) : 0; }

    /// Appends the alive ones of the 26 neighbours in the order of positions, also for a dead cell.
    void getNeigRCD26(ADDR address, std::vector<RCD>& out) const;

    /// Counts the alive face neighbours; appends them in the order x-1, x+1, y-1, y+1, z-1, z+1 if out is not null.
    int getNeigs6(ADDR address, std::vector<RCD>* out) const;

    /// Appends the alive cells by address.
    void getAllMatrixRCD(std::vector<RCD>& out) const;

private:
    RCD toRCD(ADDR address) const
    {
        return baseRCD | RCD(address & 63) << 42 | RCD(address >> 6 & 63) << 21 | address >> 12;
    }

    /// The neighbourhood whether the centre is alive or not. A missing block reads as empty.
    unsigned getNeighbourhood(ADDR address) const
    {
        unsigned x, y, z;
        addressToXYZ(address, x, y, z);
        const bool bInside = x - 1 < 62 && y - 1 < 62 && z - 1 < 62;
        if (!bInside)
            return getNeighbourhoodAtSide(static_cast<int>(x), static_cast<int>(y), static_cast<int>(z));
        return getLayer(x, y, z - 1) | getLayer(x, y, z) << 9 | getLayer(x, y, z + 1) << 18;
    }
    unsigned getLayer(unsigned x, unsigned y, unsigned z) const
    {
        const auto three = [=, this](unsigned row) { return static_cast<unsigned>(bits.word(z, row) >> (x - 1) & 7); };
        return three(y - 1) | three(y) << 3 | three(y + 1) << 6;
    }
    unsigned getNeighbourhoodAtSide(int x, int y, int z) const;
    unsigned getThreeAtSide(int x, int y, int z) const;

    /// The bits of a block among this one and its neighbours; null where there is none.
    const BlockBits* bitsAt(int offx, int offy, int offz) const;
};

} // namespace MIRT_ZAV
