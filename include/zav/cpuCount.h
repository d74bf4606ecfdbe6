// The number of threads that the library uses, one for the process.
#pragma once

#include "zav_export.h"

namespace MIRT_ZAV
{

/// Sets the number of threads of the pools that are made from now on; a pool that exists keeps its threads.
/// \param numCPU  0 for the hardware's number; a negative value changes nothing. At most 4 times the hardware's number
///                is taken, and the first time that cuts a number down, a warning says so
/// \return the value in force, at least 1
ZAV_API int getSetGlobalNumCPU(int numCPU);
/// The value in force.
ZAV_API int getGlobalNumCPU();

} // namespace MIRT_ZAV
