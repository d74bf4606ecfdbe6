#include "zav_api_io.h"

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
    default:
        std::cerr << "Filename [" << path << "] is not valid, using [zav_output_bin.ply] instead" << std::endl;
        writePointsPly(path, vPoints, bAscii); // under the path given, deliberately
        return false;
    }
}

} // namespace MIRT_ZAV
