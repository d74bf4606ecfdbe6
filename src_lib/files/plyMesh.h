// The library's own PLY files: meshes and points, with the elements and properties that it reads and writes.
#pragma once

#include "zav/Point3.h"

#include <string>
#include <vector>

namespace MIRT_ZAV
{
class RMesh;
}

namespace PLY
{

/// A colour while it is being read; the range is the file's, until adaptTo255.
struct VtxColor
{
    float red = 0.0f;
    float green = 0.0f;
    float blue = 0.0f;
    float alpha = 0.0f;
};

/// Writes the alive triangles and the vertices that they use, numbered in the order of first use: coordinates as 32-bit
/// floats, and always four colour bytes, which are what the points hold, zeros where they never had a colour.
/// \param bAscii  true for the text form, with 6 significant digits; false for binary little-endian
/// \return false, after an error message, when the file can't be written; no exception leaves the function
bool writePly(MIRT_ZAV::RMesh* pRMesh, const std::string& path, bool bAscii);

/// Writes coordinates as 32-bit floats, without colours.
/// \param bAscii  true for the text form, with 6 significant digits; false for binary little-endian
/// \return false, after a line on standard error, when the file can't be written
bool writePly(std::vector<MIRT_ZAV::Point3*>& vPoints, const std::string& path, bool bAscii);

/// The work behind readPly of zav/pointFiles.h, which says what becomes of odd faces, colours and cut files.
/// \param bPointsOnly  true: the vertices. False: three corners per face in file order
/// \param vPoints      replaced; unchanged when the coordinates can't be read
/// \return false when the file can't be read; a message says so, except where the coordinates are missing
bool readPly(const std::string& path, bool bPointsOnly, std::vector<MIRT_ZAV::Point3>& vPoints);

/// Brings colours into the range of a byte: where none is above 1 all are multiplied by 255, where one exceeds 255 all
/// are scaled down. A file doesn't say which it means: bytes of nothing but 0 and 1 come out as 0 and 255, too. The
/// fourth channel takes part in the scaling but has no scale of its own, so it can stay above 255.
/// \param vColors  not empty
void adaptTo255(std::vector<VtxColor>& vColors);

} // namespace PLY
