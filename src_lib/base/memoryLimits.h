// How much memory a run may take, so that one that can't end well is refused before it begins.
#pragma once

#include <string>

namespace MIRT_ZAV
{

/// Bytes that the process can still take: what the machine has free or can free, less under a limit of the process
/// ("ulimit -v") or of its container (cgroup version 2).
double getFreeMemory();

/// Ends the operation with refuse() if it needs more than there is.
/// \param numBytes  what it needs, estimated
/// \param what      the beginning of the sentence, without "takes some 7 GB": "This and that"
/// \param side      the present cell side in input units; the sentence names one that fits, taking the cells to be those
///                  of a surface
void requireMemory(double numBytes, const std::string& what, double side);

} // namespace MIRT_ZAV
