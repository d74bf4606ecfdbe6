// Numbers for the cells of a set under which neighbours lie close to each other in memory.
//
// The lattice is cut into bricks of 4 x 4 x 4 cells, and every brick that holds a cell of the set is numbered. What is
// known of cells stands in arrays by slot: brick after brick, 64 slots each. The slots of the neighbours follow from
// the slot of a cell and the links between bricks, without a search.
//
//     slot        0 ... 63        64 ... 127      128 ... 191
//                 missing bricks  brick 1         brick 2          ...
//     links                       27 bricks each: itself and those around it, 0 for a missing one
#pragma once

#include "lattice/BrickTable.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Immutable; the set itself isn't kept. The position of a neighbour is its place in Calc::completeArray27.
class CellBricks
{
public:
    using Slot = std::uint32_t;
    static constexpr size_t slotsPerBrick = BrickTable::cellsPerBrick;
    /// A slot of the brick that stands for all missing ones.
    static constexpr Slot nowhere = 0;

    /// \param sorted  distinct cells in ascending order
    explicit CellBricks(const std::vector<RCD>& sorted);

    /// The length of an array by slot. Cells that only share a brick with the set have slots, too.
    size_t getNumSlots() const { return bricks.size() * slotsPerBrick; }

    /// The slot of a cell; one below 64 where no cell of the set shares its brick. All missing bricks share these.
    Slot find(RCD r) const
    {
        return static_cast<Slot>(bricks.find(BrickTable::getBaseOf(r)) * slotsPerBrick + BrickTable::toInner(r));
    }

    /// The cell of a slot, unless it is one of the missing bricks.
    RCD getCell(Slot slot) const
    {
        return bricks.getBase(slot / slotsPerBrick) + BrickTable::fromInner(slot % slotsPerBrick);
    }

    Slot getNeig(Slot slot, unsigned position) const
    {
        const Step step = steps[slot % slotsPerBrick][position];
        return static_cast<Slot>(links[slot / slotsPerBrick][step.brick] * slotsPerBrick + step.inner);
    }

    // Functions that only fetch ahead look free of effects to compilers, which drop the calls unless they are inlined
    // early.

    /// Fetches ahead what getCell and getNeig will read.
    [[gnu::always_inline]] void prefetch(Slot slot) const
    {
        bricks.prefetchBase(slot / slotsPerBrick);
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

    static constexpr StepTable makeSteps();
    static const StepTable steps; // by place inside a brick and position

    void linkBricks();

    BrickTable bricks;
    std::vector<Links> links;
};

} // namespace MIRT_ZAV
