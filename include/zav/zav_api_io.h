// Public functions for files of points and meshes: those that pick the format from the name, and formats that are only
// written.
#pragma once

#include "Mesh.h"
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

/// Reads points from text (readPoints_ASCII), binary (readPoints_BIN) or PLY files (readPly with points only); see
/// there for what happens to vPoints.
/// \return what the reader returned; false, after a line on standard error, for a name of another format
/// \throws std::out_of_range  for a name of fewer than 4 characters
ZAV_API bool readPoints_auto(std::string& path, std::vector<Point3>& vPoints);

/// Writes points as PLY (writePointsPly), text (writePoints_ASCII), binary file (writePoints_BIN) or debug geometry.
/// \param bAscii  the form of a PLY file; the other formats have only one
/// \return whether the file was written. For a name of another format false, with a line on standard error. A PLY file
///         is there all the same, under the name that was given and not under the one in the message: callers look for
///         it there
/// \throws std::out_of_range  for a name of fewer than 4 characters
ZAV_API bool writePoints_auto(const std::string& path, std::vector<Point3>& vPoints, bool bAscii);

/// Writes a mesh as STL (Mesh::writeStl_ASCII), PLY or debug geometry (Mesh::writeGeomview_ASCII).
/// \param bBinary  the form of a PLY file; the other formats have only text
/// \return whether the file was written; if not, a message says so. A name of another format gives a line on standard
///         error and a PLY file in text, under the name that was given and not under the one in the message: callers
///         look for it there
/// No exception leaves the function.
ZAV_API bool writeMesh_auto(const std::string& path, MeshPtr pMesh, bool bBinary);

/// Writes a mesh as OBJ file: vertices with 6 significant digits, triangles with indices from 1, no colours. Standard
/// error hears of a failure, the caller doesn't.
/// \throws ZavBugException  for a null mesh
ZAV_API void toObj(MeshPtr pMesh, const std::string& path);

/// A debugging aid that is locked: it would write the mesh and its border edges to "holes.list", but opens that file
/// without authorisation and so always ends in ZavBugException. 'zav info' lists the borders of a mesh file.
ZAV_API void findHoles(MeshPtr pMesh);

} // namespace MIRT_ZAV
