// Public functions that pick the format of a file from its name.
#pragma once

#include "Point3.h"
#include "pointFiles.h"
#include "stlFiles.h"
#include "zav_export.h"

#include <string>
#include <vector>

namespace MIRT_ZAV
{

/// The format that the end of a name stands for: 0 STL (.stl), 1 PLY (.ply), 2 text points (.xyz, .txt, .asc), 3 binary
/// points (.bin), 4 debug geometry (.list), 5 unknown. Each ending counts in lower case, in upper case, and with only
/// its first letter in upper case.
/// \throws std::out_of_range  for a name of fewer than 4 characters
ZAV_API int getFileType(const std::string& path);

/// Reads points from text (readPoints_ASCII), binary (readPoints_BIN) or PLY files (readPly with points only), which
/// say what happens to vPoints and what the result means. \return false, after a line on standard error, also for a
/// name of another format \throws std::out_of_range  for a name of fewer than 4 characters
ZAV_API bool readPoints_auto(std::string& path, std::vector<Point3>& vPoints);

/// Writes points as PLY (writePointsPly), text (writePoints_ASCII) or binary file (writePoints_BIN).
/// \param bAscii  the form of a PLY file; the other formats have only one
/// \return whether the file was written. A name of another format gives a line on standard error and, deliberately, a
/// PLY
///         file under the name that was given, not under the one in the message; the result is false then.
/// \throws std::out_of_range  for a name of fewer than 4 characters
ZAV_API bool writePoints_auto(const std::string& path, std::vector<Point3>& vPoints, bool bAscii);

} // namespace MIRT_ZAV
