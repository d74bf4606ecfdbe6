// Files as the tool handles them: nothing is read that is obviously broken, nothing is overwritten by a failed run.
#pragma once

#include "SafeOutput.h"

#include <Point3.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace zavtool
{

enum class FileType
{
    stl,
    ply,
    text,
    binary,
    list,
    obj,
    other
};

/// By the name's ending, as the library sees it; .obj besides, which the library picks by function and not by name.
FileType getType(const std::string& path);

/// \throws WrongUsage  when the name isn't one of a point file, or one of a binary file that is to be text
void checkPointOutput(const std::string& path, bool bAscii);

/// \throws WrongUsage  when the name isn't one of a mesh file
void checkMeshOutput(const std::string& path);

/// \throws Failure  for a directory and for a file that can't be opened
std::ifstream openInput(const std::string& path);
/// In bytes. \throws Failure  for what is no ordinary file
std::uint64_t getFileSize(const std::string& path);

struct Cloud
{
    std::vector<MIRT_ZAV::Point3> points;
    size_t numNotFinite = 0; // left out
};

/// The points of a file.
/// \throws WrongUsage  when the name's extension is none of a point file
/// \throws Failure     when the file can't be read, is cut short or holds no finite point
Cloud readCloud(const std::string& path, bool bQuiet);

/// Says how many points were left out, if any.
void tellNotFinite(const Cloud& cloud);

/// The corners of the triangles of a PLY file, three per triangle.
std::vector<MIRT_ZAV::Point3> readCorners(const std::string& path);

struct Triangles
{
    std::vector<MIRT_ZAV::Point3> corners; // three per triangle
    size_t numNotFinite = 0;               // triangles left out
};

/// The triangles of a text STL file or of a PLY file with faces.
/// \throws WrongUsage  when the name's extension is none of these
/// \throws Failure     when the file can't be read, is cut short or holds no finite triangle
Triangles readTriangles(const std::string& path);

/// How a PLY file holds coordinates.
enum class Coordinates
{
    asFloats,
    exact // as floats where that keeps every bit of all of them, else as doubles
};

/// Writes points in the format of the output's name. PLY files get the points' colours if there are any.
/// \param bAscii  the text form of a PLY file
/// \throws Failure  when the file can't be written, or can't hold the coordinates
void writePoints(SafeOutput& output, std::vector<MIRT_ZAV::Point3>& points, Coordinates coordinates, bool bAscii);

/// \throws Failure  when a PLY file, which holds 32-bit floats, would hold such a coordinate as infinite
void refuseBeyondFloats(double largestCoordinate, const std::string& path);

/// \throws WrongUsage  when both names mean the same file
void refuseSameFile(const std::string& input, const std::string& output);

} // namespace zavtool
