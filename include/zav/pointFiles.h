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

/// Reads the binary form, little-endian without padding: the file type as a signed 32-bit number (30 for three
/// coordinates per point, 20 for two), the number of points n as an unsigned 64-bit number, n times x, y and, for type
/// 30, z as 64-bit floats. Points of type 20 get z 0.0.
/// \param vPoints  the points are appended, without colours
/// \return whether the file could be opened and read; if not, a line on standard output says so. Deliberately also true
///         after another file type, which is told on standard output and gives no points.
/// A file that is short of its count by up to 2^20 points and as many as it holds isn't noticed: the values read last
/// are repeated for the points that lack, 0.0 if there were none. A shorter one gives its complete points and a line on
/// standard output.
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

/// Reads points, or the corners of faces, from a PLY file in any of its three encodings.
/// \param bPointsOnly  true: the vertices, with their colours if the file has red, green and blue. False: three corners
///                     per face in file order, not shared between faces. They have no colours; deliberately, they get
///                     those of the vertices in order where there are just three vertices for each face. The faces
///                     should be triangles, a warning tells of others.
///                     Lists of another width aren't split, their indices run on as one sequence, of which three per
///                     face are taken, and zeros where they are short of that.
/// \param vPoints      replaced; unchanged when the coordinates can't be read
/// \return false when the file can't be read: unreadable, no PLY, coordinates missing, of several types, or of other
///         types than float, double and int, indices out of range or no integers; also for colours without a vertex. A
///         file that was cut off, or that has a word in place of a number, is no failure: a warning tells of it, and
///         what lacks is zeros.
/// Colours may be of type uchar, or float in the range 0 to 1 or above; others are told and left out. The fourth byte
/// comes from "alpha", else from "scalar_Intensity".
ZAV_API bool readPly(const char* path, bool bPointsOnly, std::vector<Point3>& vPoints);

} // namespace MIRT_ZAV
