// Meshes as text STL files.
#pragma once

#include "lattice/Calc.h"

#include <map>
#include <string>

namespace MIRT_ZAV
{

class CMesh;
class RMesh;
struct Bundle;

/// Writes the alive triangles in order of creation, with 10 significant digits. A triangle without a normal gets 0 0 0.
/// \return false, after an error message, when the file can't be written
bool writeSTL(RMesh* pRMesh, const std::string& path);

/// Writes a coarse mesh likewise, for a look at the surface before it is refined.
/// \param mCCDBundle  where the corners lie
/// \return as above
/// \throws ZavBugException  for a corner that isn't in the map
bool writeSTL(CMesh* pCMesh, const std::map<CCD, Bundle*>& mCCDBundle, const std::string& path);

} // namespace MIRT_ZAV
