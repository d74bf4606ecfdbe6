// Text files of points and of triangles, read so that nothing is lost without a word: the library's own readers skip
// what they don't understand, and for numbers that a corner lacks they take those of the corner before. What both
// understand gives the same bits.
#pragma once

#include <Point3.h>

#include <string>
#include <vector>

namespace zavtool
{

/// One point per line: three numbers, separated by white space, and whatever follows.
/// \param bQuiet  don't tell how many lines hold no point. Blank lines, comments and the header, which are the lines
///                before the first point, don't count
/// \throws Failure  for numbers with a comma, and when the file can't be read
std::vector<MIRT_ZAV::Point3> readTextPoints(const std::string& path, bool bQuiet);

/// The corners of the triangles of a text STL file, three per triangle. Words count in upper and lower case.
/// \throws Failure  when the file can't be read, is cut short, has facets of more or fewer than three corners or corners
///                  without three finite numbers
std::vector<MIRT_ZAV::Point3> readTextStl(const std::string& path);

} // namespace zavtool
