#include "zav/zav_api_io.h"

#include "api/meshAccess.h"
#include "base/BlockWriter.h"
#include "base/tools.h"
#include "refined/RMesh.h"
#include "refined/Visualizer3.h"

#include <fstream>
#include <initializer_list>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
enum FileType
{
    STL = 0,
    PLY_FILE = 1,
    TEXT_POINTS = 2,
    BINARY_POINTS = 3,
    DEBUG_GEOMETRY = 4,
    UNKNOWN = 5
};

struct Extension
{
    const char* text;
    FileType type;
};

constexpr Extension extensions[] = {
    {".stl", STL},           {".STL", STL},           {".Stl", STL},         {".ply", PLY_FILE},
    {".PLY", PLY_FILE},      {".Ply", PLY_FILE},      {".xyz", TEXT_POINTS}, {".XYZ", TEXT_POINTS},
    {".Xyz", TEXT_POINTS},   {".txt", TEXT_POINTS},   {".TXT", TEXT_POINTS}, {".Txt", TEXT_POINTS},
    {".asc", TEXT_POINTS},   {".ASC", TEXT_POINTS},   {".Asc", TEXT_POINTS}, {".bin", BINARY_POINTS},
    {".BIN", BINARY_POINTS}, {".Bin", BINARY_POINTS},
};

bool writePointsList(const std::string& path, const std::vector<Point3>& vPoints)
{
    constexpr int size = 10;
    Visualizer3 visualizer(path, nullptr, true);
    if (!visualizer.isValid())
        return false;
    visualizer.writePoints(vPoints, size, Visualizer3::CRED);
    visualizer.closeFile();
    return visualizer.isValid();
}

bool writeMeshByType(const std::string& path, const Mesh& mesh, bool bBinary)
{
    switch (getFileType(path))
    {
    case STL:
        return mesh.writeStl_ASCII(path);
    case PLY_FILE: // the names of the two writers are crossed
        return bBinary ? mesh.writePly_ASCII(path) : mesh.writePly_BIN(path);
    case DEBUG_GEOMETRY:
        return mesh.writeGeomview_ASCII(path);
    default:
        std::cerr << "Filename [" << path << "] is not valid, using [zav_output.ply] instead" << std::endl;
        return mesh.writePly_BIN(path); // text, and under the path given: callers look for it there
    }
}

/// One line for each vertex, then one for each triangle, whose indices count from 1.
void putObj(const Mesh& mesh, BlockWriter& out)
{
    std::vector<Point3*> points;
    std::vector<int> indices;
    mesh.getVertexIndexData(points, indices);
    for (const Point3* const p : points)
    {
        out.put("v ");
        out.putNumbers(p->x(), p->y(), p->z());
        out.put('\n');
    }
    for (size_t i = 0; i < indices.size(); i += 3)
    {
        out.put('f');
        for (size_t k = 0; k < 3; ++k)
        {
            out.put(' ');
            out.putNumber(indices[i + k] + 1LL);
        }
        out.put('\n');
    }
}
} // namespace

int getFileType(const std::string& path)
{
    const std::string last4 = path.substr(path.size() - 4); // a shorter path wraps round, which substr refuses
    for (const Extension& extension : extensions)
        if (last4 == extension.text)
            return extension.type;
    if (path.size() >= 5)
        for (const char* const listForm : {".list", ".LIST", ".List"})
            if (path.substr(path.size() - 5) == listForm)
                return DEBUG_GEOMETRY;
    return UNKNOWN;
}

bool readPoints_auto(std::string& path, std::vector<Point3>& vPoints)
{
    switch (getFileType(path))
    {
    case TEXT_POINTS:
        return readPoints_ASCII(path.c_str(), vPoints);
    case BINARY_POINTS:
        return readPoints_BIN(path.c_str(), vPoints);
    case PLY_FILE:
        return readPly(path.c_str(), true, vPoints);
    default:
        std::cerr << "Filename extension of [" << path << "] is not valid, expected *.ply, *.xyz or *.bin" << std::endl;
        return false;
    }
}

bool writePoints_auto(const std::string& path, std::vector<Point3>& vPoints, bool bAscii)
{
    switch (getFileType(path))
    {
    case PLY_FILE:
        return writePointsPly(path, vPoints, bAscii);
    case TEXT_POINTS:
        return writePoints_ASCII(path.c_str(), vPoints);
    case BINARY_POINTS:
        return writePoints_BIN(path.c_str(), vPoints);
    case DEBUG_GEOMETRY:
        return writePointsList(path, vPoints);
    default:
        std::cerr << "Filename [" << path << "] is not valid, using [zav_output_bin.ply] instead" << std::endl;
        writePointsPly(path, vPoints, bAscii); // under the path given: callers look for it there
        return false;
    }
}

bool writeMesh_auto(const std::string& path, MeshPtr pMesh, bool bBinary)
{
    try
    {
        getRMesh(pMesh); // must be there
        return writeMeshByType(path, *pMesh, bBinary);
    }
    catch (const std::exception&)
    {
        errorMsg(ZAV_LOCATION, "writing " + path + " failed");
        return false;
    }
}

void toObj(MeshPtr pMesh, const std::string& path)
{
    getRMesh(pMesh);
    std::ofstream file(path, std::ios::out | std::ios::trunc);
    if (file.is_open())
    {
        std::cout << "Writing " << path << std::endl;
        BlockWriter out(file, static_cast<int>(file.precision()));
        putObj(*pMesh, out);
        out.flush();
        file.close();
        if (file.good())
            return;
    }
    std::cerr << "Can't write " << path << std::endl;
}

void findHoles(MeshPtr pMesh)
{
    std::vector<REdge*> vBorder;
    getRMesh(pMesh)->getDegN(1, vBorder);
    Visualizer3 visualizer("holes.list", nullptr, false); // not authorised, which ends in a bug: the aid is locked
    constexpr int width = 3;
    pMesh->getRMesh()->show(&visualizer, Visualizer3::CWHITE, true, true);
    visualizer.writeSegments(vBorder, width, Visualizer3::CRED);
}

} // namespace MIRT_ZAV
