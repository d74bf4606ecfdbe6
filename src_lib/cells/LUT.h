// The decision tables of cell removal: what a cell is, by the pattern of its 26 neighbours.
//
// An index is the alternative bitmap of a neighbourhood, one bit per neighbour, set if the neighbour is alive.
#pragma once

#include "lattice/Calc.h"

namespace MIRT_ZAV
{

/// A 27-bit neighbourhood without its centre: bits 0 to 12 stay, bits 14 to 26 move down by one.
constexpr u64 getAlternativeBitmap(u64 config)
{
    return (config >> 1 & 0x7fffffffffffe000) | (config & 0x1fff);
}

/// True where the removal of the cell would open a gap: the empty space around it, seen through its faces and the edges
/// between them, is not one connected piece; also true where no face is empty. Corners don't count.
/// \param index  below 2^26
bool gapBit(unsigned index);

/// True for a cell on a skin or a rim: no gap cell, and every empty edge neighbour hangs together with an empty face
/// neighbour through empty cells that touch by faces.
/// \param index  below 2^26
bool borderBit(unsigned index);

} // namespace MIRT_ZAV
