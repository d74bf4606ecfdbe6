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

/// Writes coordinates as 32-bit floats, without colours. A failure is told on standard error.
/// \param bAscii  true for the text form, with 6 significant digits; false for binary little-endian
bool writePly(std::vector<MIRT_ZAV::Point3*>& vPoints, const std::string& path, bool bAscii);

/// Reads points, or the corners of faces, from a PLY file in any of its three encodings.
/// \param bPointsOnly  true: the vertices, with their colours if the file has any. False: three corners per face in
///                     file order, not shared between faces and uncoloured. Faces are taken to be triangles: lists of
///                     another width aren't split, their indices run on as one sequence, of which three per face are
///                     taken, and zeros where they are short of that.
/// \param vPoints      replaced; unchanged when the coordinates can't be read
/// \return false, after a message but for missing coordinates, when the file can't be read. A file that was cut off,
///         or that has a word in place of a number, is no failure: a warning tells of it, and what lacks is zeros.
/// Coordinates must be of the types float, double or int, colours of uchar or float; colours of other types are told
/// and left out. The fourth colour byte comes from "alpha", else from "scalar_Intensity".
bool readPly(const std::string& path, bool bPointsOnly, std::vector<MIRT_ZAV::Point3>& vPoints);

/// Brings colours into the range of a byte: unit floats are multiplied by 255, colours that exceed 255 are scaled down
/// to it. The fourth channel takes part in the scaling but has no scale of its own, so it can stay above 255.
/// \param vColors  not empty
void adaptTo255(std::vector<VtxColor>& vColors);

} // namespace PLY
