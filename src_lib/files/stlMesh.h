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

/// Writes the alive triangles in order of creation, with 10 significant digits. A triangle without a normal is written
/// with a zero one. \return false, after an error message, when the file can't be written
bool writeSTL(RMesh* pRMesh, const std::string& path);

/// The same for a coarse mesh, for debugging. \param mCCDBundle  holds every corner, else ZavBugException
bool writeSTL(CMesh* pCMesh, const std::map<CCD, Bundle*>& mCCDBundle, const std::string& path);

} // namespace MIRT_ZAV
