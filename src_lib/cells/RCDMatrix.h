// A block of 64 x 64 x 64 lattice cells: one bit for each cell, and links to the 26 blocks around it, so that reading a
// neighbourhood searches nothing.
#pragma once

#include "base/SimplePool.h"
#include "lattice/Calc.h"

#include <array>
#include <bit>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// The place of a cell in its block: z * 4096 + y * 64 + x, of the low six bits of its coordinates. x runs fastest,
/// while in an RCD it is z that does: this way 64 cells in a row along x make one word.
using ADDR = unsigned;

/// The bits of one block, by ADDR. Each of the 64 layers of equal z gets memory when its first bit is set, and reads
/// from zeros that all blocks share until then: most blocks hold few cells.
class BlockBits
{
public:
    using Layer = std::array<u64, 64>; // bit x of word y
    using LayerPool = MIRT_TOOLS::SimplePool<Layer>;

    static constexpr ADDR size = 1u << 18;

    /// \param layerPool  gives memory for layers; it has to live as long as the bits
    explicit BlockBits(LayerPool& layerPool);

    bool test(ADDR address) const { return (word(address >> 12, address >> 6 & 63) >> (address & 63) & 1) != 0; }
    bool operator[](ADDR address) const { return test(address); }
    void set(ADDR address);
    void reset(ADDR address)
    {
        if (hasLayer(address >> 12))
            (*layers[address >> 12])[address >> 6 & 63] &= ~(u64(1) << (address & 63));
    }
    /// Clears all bits; layers keep their memory.
    void reset();

    /// The row of 64 cells along x.
    u64 word(unsigned z, unsigned y) const { return (*layers[z])[y]; }
    bool hasLayer(unsigned z) const { return layers[z] != emptyLayer(); }

private:
    static Layer* emptyLayer() { return const_cast<Layer*>(&zeros); } // recognised by its address, never written
    static const Layer zeros;

    std::array<Layer*, 64> layers;
    LayerPool* pool;
};

/// One block. A neighbourhood is a word of 27 bits, for a cell and the 26 around it. The numbers of its bits are called
/// positions:
///
///       dz = -1          dz = 0          dz = 1
///       6  7  8        15 16 17        24 25 26        dy = 1
///       3  4  5        12 13 14        21 22 23        dy = 0
///       0  1  2         9 10 11        18 19 20        dy = -1
///
/// with dx = -1, 0, 1 from left to right. 13 is the cell itself, its faces are 4, 10, 12, 14, 16 and 22, and opposite
/// to p lies 26 - p.
class RCDMatrix
{
public:
    /// The bits of an RCD by which the cells of one block differ: six of each coordinate. The others name the block.
    static constexpr RCD lowerMask = 0xfc0007e0003f;
    /// The six face neighbours of a neighbourhood word.
    static constexpr unsigned faceMask = 0x415410;

    explicit RCDMatrix(BlockBits::LayerPool& layerPool) : bits(layerPool) {}

    RCD baseRCD = 0;                      // the cell with the lowest coordinates
    RCDMatrix* aNeigMtx[3][3][3] = {};    // [dx + 1][dy + 1][dz + 1], null where there is no block, and in the middle
    BlockBits bits;                       // 1 while the cell is alive
    unsigned long long minAddr = 0x40000; // getAllMatrixRCD looks from here to maxAddr only: what store() has seen
    unsigned long long maxAddr = 0;

    /// The address of a cell in its block, from its whole code or from the lower part alone.
    static ADDR rcdToAddress(RCD r) { return static_cast<ADDR>((r & 63) << 12 | (r >> 21 & 63) << 6 | (r >> 42 & 63)); }
    static void addressToXYZ(ADDR address, unsigned& x, unsigned& y, unsigned& z)
    {
        x = address & 63;
        y = address >> 6 & 63;
        z = address >> 12;
    }

    /// Clears the block and sets the cells of a part of a list.
    /// \param list         a code's bits outside of lowerMask, then those inside
    /// \param first, last  the part, without last
    /// \throws std::out_of_range  for second numbers with bits outside of lowerMask
    void store(std::vector<std::pair<RCD, RCD>>& list, int first, int last);

    /// Links the neighbour block at an offset. To link one twice is a bug.
    void setNeigMtx(int offx, int offy, int offz, RCDMatrix* pMatrix);

    /// \param config  receives the neighbourhood of an alive cell; 0 for a dead one
    /// \return the number of alive cells in it, the cell included; -1 for a dead one
    int getConfiguration(ADDR address, unsigned& config) const
    {
        config = getConfiguration(address);
        return config == 0 ? -1 : std::popcount(config);
    }
    /// The same without the count.
    unsigned getConfiguration(ADDR address) const { return bits.test(address) ? getNeighbourhood(address) : 0; }

    /// Appends those of the 26 neighbours that are alive, by position; the cell itself may be dead.
    void getNeigRCD26(ADDR address, std::vector<RCD>& out) const;

    /// Counts the alive face neighbours. If out isn't null they are appended, first those along x, then y, then z, the
    /// lower one ahead; among equal weights, cells are pruned in this order.
    int getNeigs6(ADDR address, std::vector<RCD>* out) const;

    /// Appends the alive cells by ascending address, between minAddr and maxAddr.
    void getAllMatrixRCD(std::vector<RCD>& out) const;

private:
    RCD toRCD(ADDR address) const
    {
        return baseRCD | RCD(address & 63) << 42 | RCD(address >> 6 & 63) << 21 | address >> 12;
    }

    /// The neighbourhood of a cell, alive or dead. A missing block reads as empty.
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

    /// The bits of this block (offsets 0, 0, 0) or of a neighbour; null where there is none.
    const BlockBits* bitsAt(int offx, int offy, int offz) const;
};

} // namespace MIRT_ZAV
