// Whether a cell can go, by its 26 neighbours alone. Pruning asks that millions of times, so a table has the answers.
//
// Some cells (o) among alive (#) and empty ones, in a section through something that goes on in front and behind:
//
//     . . .       # # #       . . .       . . .       . . .
//     # o #       # o #       # o .       # o #       # o #
//     . . .       # # #       . . .       # # #       # # .
//      gap         gap       border      border      neither
//     sheet       buried       rim        skin
//
// A gap cell keeps two empty sides apart, or has no empty side at all. Without a border cell the surface stays whole
// but shrinks from its rim or skin, so that callers choose whether they want that. What is neither goes without harm.
#pragma once

#include "lattice/Calc.h"

namespace MIRT_ZAV
{

/// The index of the tables: a neighbourhood word (see RCDMatrix) from which the bit of the centre is squeezed out, so
/// that 26 bits are left, each set while its neighbour is alive.
constexpr u64 getAlternativeBitmap(u64 config)
{
    return (config >> 1 & 0x7fffffffffffe000) | (config & 0x1fff);
}

/// Whether the cell has to stay: its empty faces fall into two or more groups, or none is empty. Two faces at right
/// angles are of one group if the edge position between them is empty as well. Corners have no say.
///
/// Safe on several threads; the first call of this or borderBit makes the table.
/// \param index  of getAlternativeBitmap, below 2^26
bool gapBit(unsigned index);

/// Whether the cell lies on a skin or a rim: gapBit is false, and from every empty edge position a walk over empty
/// positions, from face to face and around the cell, gets to an empty face. Corners may be on the way; one that is cut
/// off doesn't matter.
/// \param index  of getAlternativeBitmap, below 2^26
bool borderBit(unsigned index);

} // namespace MIRT_ZAV
