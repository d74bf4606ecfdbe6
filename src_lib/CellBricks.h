// Numbers for the cells of a set under which neighbours lie close to each other in memory.
//
// The lattice is cut into bricks of 4 x 4 x 4 cells, and every brick that holds a cell of the set is numbered. What is
// known of cells stands in arrays by slot: brick after brick, 64 slots each. The slots of the neighbours follow from
// the slot of a cell and the links between bricks, without a search.
#pragma once

#include "Calc.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Immutable; the set itself isn't kept. A neighbour's position is 9 * (dz + 1) + 3 * (dy + 1) + (dx + 1), as in
/// RCDMatrix.
class CellBricks
{
public:
    using Slot = std::uint32_t;
    static constexpr size_t slotsPerBrick = 64;
    /// A slot of the brick that stands for all missing ones.
    static constexpr Slot nowhere = 0;

    /// \param sorted  distinct cells in ascending order
    explicit CellBricks(const std::vector<RCD>& sorted);

    /// The length of an array by slot. It has places also for cells that aren't in the set.
    size_t getNumSlots() const { return bases.size() * slotsPerBrick; }

    /// The slot of a cell; a slot of the missing bricks where no cell of the set shares the cell's brick.
    Slot find(RCD r) const { return static_cast<Slot>(findBrick(r & ~innerMask) * slotsPerBrick + toInner(r)); }

    /// The cell of a slot, unless it is one of the missing bricks.
    RCD getCell(Slot slot) const
    {
        const RCD inner = slot % slotsPerBrick;
        const auto coordinate = [inner](int shift) { return (inner >> shift & 1) | (inner >> (shift + 2) & 2); };
        return bases[slot / slotsPerBrick] + rcd::fromXYZ(coordinate(2), coordinate(1), coordinate(0));
    }

    Slot getNeig(Slot slot, unsigned position) const
    {
        const Step step = steps[slot % slotsPerBrick][position];
        return static_cast<Slot>(links[slot / slotsPerBrick][step.brick] * slotsPerBrick + step.inner);
    }

    // Functions that only fetch ahead look free of effects to compilers, which drop them unless they are inlined early.

    /// Fetches ahead what getCell and getNeig will read.
    [[gnu::always_inline]] void prefetch(Slot slot) const
    {
        __builtin_prefetch(&bases[slot / slotsPerBrick]);
        const char* const link = reinterpret_cast<const char*>(&links[slot / slotsPerBrick]);
        __builtin_prefetch(link);
        __builtin_prefetch(link + sizeof(Links) - 1);
    }

    /// Fetches ahead what an array by slot holds of the neighbours of a cell.
    template <class T>
    [[gnu::always_inline]] void prefetchAround(Slot slot, const T* bySlot) const
    {
        for (const unsigned corner : {0u, 2u, 6u, 8u, 18u, 20u, 24u, 26u}) // all neighbours share lines with these
            __builtin_prefetch(bySlot + getNeig(slot, corner));
    }

private:
    using Links = std::array<std::uint32_t, 27>; // the bricks around one by position; 0 where there is none
    struct Step
    {
        unsigned char brick; // position of the neighbour's brick
        unsigned char inner; // place inside it
    };
    using StepTable = std::array<std::array<Step, 27>, slotsPerBrick>;
    struct Entry
    {
        RCD base;
        size_t brick; // 0 for a free place
    };

    static constexpr RCD innerMask = 3 * (rcd::xUnit + rcd::yUnit + rcd::zUnit);
    static constexpr StepTable makeSteps();
    static const StepTable steps; // by place inside a brick and position

    /// The bits of the coordinates take turns, so that cells close to each other share lines of the cache.
    static constexpr RCD toInner(RCD r)
    {
        return (r >> 38 & 0x20) | (r >> 18 & 0x10) | (r << 2 & 8) | (r >> 40 & 4) | (r >> 20 & 2) | (r & 1);
    }

    /// The place of a brick in the table, or the free one where it would stand.
    size_t findPlace(RCD base) const
    {
        size_t place = (base >> 2) * 0x9e3779b97f4a7c15u >> hashShift;
        while (table[place].brick != 0 && table[place].base != base)
            place = (place + 1) & (table.size() - 1);
        return place;
    }
    size_t findBrick(RCD base) const { return table[findPlace(base)].brick; }
    void addBrick(RCD base);
    void resizeTable(int bits);
    void linkBricks();

    std::vector<RCD> bases; // least cell by brick
    std::vector<Links> links;
    std::vector<Entry> table; // a hash table of a power of two, at most half full
    int hashShift = 0;
};

} // namespace MIRT_ZAV
