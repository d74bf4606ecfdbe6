// Point clouds in files: text, the library's own binary form, PLY.
//
// Coordinates are in whatever unit the file has. None of these functions throws for what a file contains; a path must
// not be null.
#pragma once

#include "Point3.h"
#include "zav_export.h"

#include <string>
#include <vector>

namespace MIRT_ZAV
{

/// Reads text: one point per line, three numbers separated by white space, in the notation of a C++ stream with the "C"
/// locale. Further text on a line is ignored, a line without three numbers ("nan" isn't one) is skipped silently.
/// \param vPoints  the points are appended, without colours
/// \return whether the file could be opened and read; if not, a line on standard output says so
ZAV_API bool readPoints_ASCII(const char* path, std::vector<Point3>& vPoints);

/// Reads the binary form, little-endian, nothing between the values:
///
///     byte  0   file type   int32    30: points of x, y, z    20: points of x, y; z becomes 0.0
///     byte  4   n           uint64   number of points
///     byte 12   points      float64  n times 3 or 2 coordinates
///
/// A file may be cut off. As long as it lacks no more than 2^20 points and as many as it holds, that isn't noticed: the
/// values read last are repeated for the missing points, 0.0 if there were none. Where it lacks more, its complete
/// points come, and a line on standard output.
/// \param vPoints  the points are appended, without colours
/// \return whether the file could be opened and read; if not, a line on standard output says so. True for another file
///         type, too, which gives no points and a line on standard output; callers rely on that
ZAV_API bool readPoints_BIN(const char* path, std::vector<Point3>& vPoints);

/// Writes x, y, z of each point in text, with 18 significant digits, which keeps every bit. Colours aren't written.
/// \return whether the file was written; if not, also on a full disk, a line on standard output says so
ZAV_API bool writePoints_ASCII(const char* path, const std::vector<Point3>& vPoints);

/// Writes the binary form, always of file type 30: 12 bytes and 24 for each point. Colours aren't written.
/// \return as writePoints_ASCII
ZAV_API bool writePoints_BIN(const char* path, const std::vector<Point3>& vPoints);

/// Writes a PLY file of points: coordinates as 32-bit floats, which rounds them; no colours.
/// \param bAscii  true for the text form, with 6 significant digits; false for binary little-endian
/// \return false, after a line on standard error, when the file can't be written
ZAV_API bool writePointsPly(const std::string& path, std::vector<Point3>& vPoints, bool bAscii);

/// Reads a PLY file in any of its three encodings: its vertices, or the corners of its faces.
///
/// Faces should be triangles. Others aren't split: the indices of all faces run on as one sequence, three are taken for
/// each face, zeros where there are too few, and a warning says so:
///
///     faces in the file    0 1 2 3   4 5     ->     corners    0 1 2   3 4 5
///
/// Colours may be uchar, or float from 0 to 1 or above; other types are left out, with a message. The fourth byte comes
/// from "alpha", else from "scalar_Intensity".
/// \param bPointsOnly  true: the vertices, with their colours if the file has red, green and blue. False: three corners
///                     per face in file order, not shared between faces and without colours. Except in a file of just
///                     three vertices for each face: there the corners get the colours of the vertices in order,
///                     whatever the indices say, and callers rely on it
/// \param vPoints      replaced; unchanged when the coordinates can't be read
/// \return false when the file can't be read: unreadable, no PLY, coordinates missing, of several types, or of other
///         types than float, double and int, indices out of range or no integers; also for colours without a vertex. A
///         file that was cut off, or that has a word in place of a number, is no failure: a warning says so, and zeros
///         stand for what is missing
ZAV_API bool readPly(const char* path, bool bPointsOnly, std::vector<Point3>& vPoints);

} // namespace MIRT_ZAV
