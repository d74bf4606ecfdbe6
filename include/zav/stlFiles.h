// Triangles in text STL files.
#pragma once

#include "Point3.h"
#include "zav_export.h"

#include <string>
#include <vector>

namespace MIRT_ZAV
{

/// Reads the corners of all facets of a text STL file, three per facet, in file order. Between a line with "outer
/// loop" and one with "endloop", every line with "vertex" is a corner: a word and three numbers. Words count in lower
/// case. "OUTER LOOP" opens a loop, too, but "VERTEX" is no corner and "ENDLOOP" no end: a file all in upper case gives
/// nothing.
/// \param vPoints  the corners are appended, without colours. Numbers that a line lacks are those of the corner before,
///                 or 0. Facets of more or fewer than three corners aren't noticed
/// \return whether the file could be opened and read; if not, a line on standard output says so. True for a binary STL
///         file, too, which gives no corners: this reader can't tell it from a text without facets
ZAV_API bool readSTL_ASCII(const char* path, std::vector<Point3>& vPoints);

/// Reads the corners by a simpler rule: every line with "vertex", wherever it stands, is a corner if three numbers
/// follow that word.
/// \param vPoints  the corners are appended, without colours
/// \return whether the file could be opened and read; if not, an error message says so
ZAV_API bool readSTLTriCorners(const std::string& path, std::vector<Point3>& vPoints);

} // namespace MIRT_ZAV
