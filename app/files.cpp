#include "files.h"

#include "SafeOutput.h"
#include "console.h"
#include "plyHeader.h"
#include "textFiles.h"

#include <zav_api.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

namespace fs = std::filesystem;

namespace zavtool
{
namespace
{
/// A binary file begins with 80 bytes of any text, "solid" as likely as not, and the number of triangles in four bytes.
/// The last of these is 0 below 2^24 triangles; a text has no such byte.
void refuseBinaryStl(const std::string& path)
{
    std::ifstream in = openInput(path);
    std::string begin(84, ' ');
    in.read(begin.data(), static_cast<std::streamsize>(begin.size()));
    if (begin.find('\0') != std::string::npos)
        throw Failure(path + " is a binary STL file; convert it to the text form, or to PLY");
}

/// Points as PLY with what the library's own writer leaves out: colours, and digits beyond those of a float.
class PlyPoints
{
public:
    PlyPoints(const std::vector<MIRT_ZAV::Point3>& pointsArg, Coordinates coordinates, bool bAsciiArg)
        : points(pointsArg), bAscii(bAsciiArg),
          bFloats(coordinates == Coordinates::asFloats || std::all_of(points.begin(), points.end(), isOfFloats))
    {
        if (std::any_of(points.begin(), points.end(), [](const auto& p) { return p.hasColor(); }))
            numChannels = 3;
        if (coordinates == Coordinates::exact &&
            std::any_of(points.begin(), points.end(), [](const auto& p) { return p.hasColor() && p.a != 0; }))
            numChannels = 4;
    }

    bool write(const std::string& path) const
    {
        std::ofstream out(path, std::ios::binary);
        writeHeader(out);
        std::string rows;
        for (size_t i = 0; i < points.size(); ++i)
        {
            if (bAscii)
                addTextRow(points[i], rows);
            else
                addRow(points[i], rows);
            if (rows.size() > 100000 || i + 1 == points.size())
            {
                out << rows;
                rows.clear();
            }
        }
        return static_cast<bool>(out.flush());
    }

private:
    static bool isOfFloats(const MIRT_ZAV::Point3& p)
    {
        return static_cast<float>(p.x()) == p.x() && static_cast<float>(p.y()) == p.y() &&
               static_cast<float>(p.z()) == p.z();
    }

    void writeHeader(std::ostream& out) const
    {
        out << "ply\nformat " << (bAscii ? "ascii" : "binary_little_endian") << " 1.0\nelement vertex " << points.size()
            << '\n';
        for (const char axis : {'x', 'y', 'z'})
            out << "property " << (bFloats ? "float " : "double ") << axis << '\n';
        constexpr const char* channels[] = {"red", "green", "blue", "alpha"};
        for (size_t i = 0; i < numChannels; ++i)
            out << "property uchar " << channels[i] << '\n';
        out << "end_header\n";
    }

    void addRow(const MIRT_ZAV::Point3& p, std::string& rows) const
    {
        for (const double coordinate : {p.x(), p.y(), p.z()})
            if (const float rounded = static_cast<float>(coordinate); bFloats)
                rows.append(reinterpret_cast<const char*>(&rounded), sizeof(rounded));
            else
                rows.append(reinterpret_cast<const char*>(&coordinate), sizeof(coordinate));
        const unsigned char channels[] = {p.r, p.g, p.b, p.a};
        rows.append(reinterpret_cast<const char*>(channels), numChannels);
    }

    void addTextRow(const MIRT_ZAV::Point3& p, std::string& rows) const
    {
        char text[40]; // the shortest that reads back as the same number
        for (const double coordinate : {p.x(), p.y(), p.z()})
        {
            char* const end = bFloats ? std::to_chars(text, text + sizeof(text), static_cast<float>(coordinate)).ptr
                                      : std::to_chars(text, text + sizeof(text), coordinate).ptr;
            rows.append(text, end) += ' ';
        }
        const unsigned char channels[] = {p.r, p.g, p.b, p.a};
        for (size_t i = 0; i < numChannels; ++i)
            (rows += std::to_string(channels[i])) += ' ';
        rows.back() = '\n';
    }

    const std::vector<MIRT_ZAV::Point3>& points;
    const bool bAscii;
    const bool bFloats;
    size_t numChannels = 0; // of the colours
};

/// The library fills a damaged PLY file up with zeros and only warns. A user would mesh a clump of points at the origin
/// without knowing why, so the tool refuses.
void refuseDefects(LibraryMessages& messages, const std::string& path)
{
    for (const std::string& problem : messages.getProblems())
    {
        if (problem.find("zeros follow") != std::string::npos)
            throw Failure(path + " is cut short, or has a word in place of a number; get a complete copy or mend it");
        if (problem.find("aren't triangles") != std::string::npos)
            throw Failure(path + " has faces that aren't triangles; split them first");
    }
}

std::string getReason(LibraryMessages& messages)
{
    const std::vector<std::string> problems = messages.getProblems();
    return problems.empty() ? "" : " (" + problems.front() + ")";
}

/// The library repeats points where the header promises more than there are; the tool refuses such a file.
void checkBinaryPoints(const std::string& path)
{
    std::ifstream in = openInput(path);
    std::int32_t type = 0;
    std::uint64_t count = 0;
    in.read(reinterpret_cast<char*>(&type), sizeof(type));
    in.read(reinterpret_cast<char*>(&count), sizeof(count));
    if (!in || (type != 30 && type != 20))
        throw Failure(path + " is no binary point file; it should begin with the number 30 or 20");
    const std::uint64_t pointSize = type == 30 ? 24 : 16;
    const std::uint64_t headerSize = sizeof(type) + sizeof(count);
    if (count > (getFileSize(path) - headerSize) / pointSize)
        throw Failure(path + " is cut short; get a complete copy");
}

/// The library takes the columns of a PLY file that it asks for in the order in which they stand there. Points of a
/// file with another order than x, y, z or red, green, blue get theirs back by the names.
void sortColumns(const PlyHeader& header, std::vector<MIRT_ZAV::Point3>& points)
{
    constexpr std::array<int, 3> usual = {0, 1, 2};
    if (const auto at = header.getOrder({"x", "y", "z"}); at != usual)
        for (MIRT_ZAV::Point3& p : points)
        {
            const double read[3] = {p.x(), p.y(), p.z()};
            p.set(read[at[0]], read[at[1]], read[at[2]]);
        }
    if (const auto at = header.getOrder({"red", "green", "blue"}); at != usual)
        for (MIRT_ZAV::Point3& p : points)
            if (p.hasColor())
            {
                const unsigned char read[3] = {p.r, p.g, p.b};
                p.setColor(read[at[0]], read[at[1]], read[at[2]], p.a);
            }
}

[[noreturn]] void failToUnderstand(const std::string& path, LibraryMessages& messages, const std::string& remedy)
{
    const std::string reason = getReason(messages);
    if (reason.find("bad_alloc") != std::string::npos)
        throw Failure("the memory is not enough for the points of " + path + "; try with fewer points");
    throw Failure(path + " can't be understood" + reason + "; " + remedy);
}

std::vector<MIRT_ZAV::Point3> readByLibrary(const std::string& path, bool bQuiet)
{
    std::vector<MIRT_ZAV::Point3> points;
    std::string name = path;
    LibraryMessages messages;
    const bool bRead = MIRT_ZAV::readPoints_auto(name, points);
    refuseDefects(messages, path);
    if (!bRead)
        failToUnderstand(path, messages, "check that it holds points in the form its name says");
    if (!bQuiet)
        tellProblems(messages);
    return points;
}

std::vector<MIRT_ZAV::Point3> readPlyPoints(const std::string& path, bool bQuiet)
{
    const PlyHeader header = readPlyHeader(path);
    if (header.getCount("vertex") == 0)
        return {};
    std::vector<MIRT_ZAV::Point3> points = readByLibrary(path, bQuiet);
    sortColumns(header, points);
    return points;
}
} // namespace

FileType getType(const std::string& path)
{
    for (const std::string ending : {".obj", ".OBJ", ".Obj"}) // only written, by a function of its own
        if (path.size() >= ending.size() && path.compare(path.size() - ending.size(), ending.size(), ending) == 0)
            return FileType::obj;
    // A name shorter than an extension makes getFileType throw.
    switch (path.size() < 4 ? -1 : MIRT_ZAV::getFileType(path))
    {
    case 0:
        return FileType::stl;
    case 1:
        return FileType::ply;
    case 2:
        return FileType::text;
    case 3:
        return FileType::binary;
    case 4:
        return FileType::list;
    default:
        return FileType::other;
    }
}

void checkPointOutput(const std::string& path, bool bAscii)
{
    const FileType type = getType(path);
    if (type == FileType::other || type == FileType::stl || type == FileType::obj)
        throw WrongUsage(
            "points are written as .ply, .xyz, .txt, .asc, .bin or .list; give an output name that ends so");
    if (bAscii && type == FileType::binary)
        throw WrongUsage("a .bin file has no text form; leave out --ascii or write .xyz");
}

void checkMeshOutput(const std::string& path)
{
    const FileType type = getType(path);
    if (type == FileType::other || type == FileType::text || type == FileType::binary)
        throw WrongUsage("meshes are written as .ply, .stl, .obj or .list; give an output name that ends so");
}

std::ifstream openInput(const std::string& path)
{
    std::error_code ignored;
    if (fs::is_directory(path, ignored))
        throw Failure(path + " is a directory; give the name of a file");
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw Failure(path + " can't be read" +
                      (errno != 0 ? std::string(" (") + std::strerror(errno) + ")" : std::string()) +
                      "; check its name and permissions");
    return in;
}

std::uint64_t getFileSize(const std::string& path)
{
    std::error_code problem;
    const std::uint64_t size = fs::file_size(path, problem);
    if (problem)
        throw Failure(path + " is no ordinary file; copy its contents to one");
    return size;
}

Cloud readCloud(const std::string& path, bool bQuiet)
{
    Cloud cloud;
    switch (getType(path))
    {
    case FileType::ply:
        cloud.points = readPlyPoints(path, bQuiet);
        break;
    case FileType::binary:
        checkBinaryPoints(path);
        cloud.points = readByLibrary(path, bQuiet);
        break;
    case FileType::text:
        cloud.points = readTextPoints(path, bQuiet);
        break;
    case FileType::stl:
    case FileType::list:
    case FileType::obj:
    case FileType::other:
        throw WrongUsage(path +
                         " doesn't look like a point file; give one that ends in .ply, .xyz, .txt, .asc or .bin");
    }
    const auto firstBad = std::remove_if(cloud.points.begin(), cloud.points.end(),
                                         [](const MIRT_ZAV::Point3& point) { return !point.isFinite(); });
    cloud.numNotFinite = static_cast<size_t>(cloud.points.end() - firstBad);
    cloud.points.erase(firstBad, cloud.points.end());
    if (cloud.points.empty())
        throw Failure(path + " holds no points; check that it is the file you meant");
    return cloud;
}

void tellNotFinite(const Cloud& cloud)
{
    if (cloud.numNotFinite > 0)
        tell(std::to_string(cloud.numNotFinite) + " of " + std::to_string(cloud.points.size() + cloud.numNotFinite) +
             " points left out: their coordinates aren't finite");
}

std::vector<MIRT_ZAV::Point3> readCorners(const std::string& path)
{
    const PlyHeader header = readPlyHeader(path);
    std::vector<MIRT_ZAV::Point3> corners;
    LibraryMessages messages; // mostly about colours, which don't fit corners: shown only when reading fails
    const bool bRead = MIRT_ZAV::readPly(path.c_str(), false, corners);
    refuseDefects(messages, path);
    if (!bRead)
        failToUnderstand(path, messages, "its faces have to be triangles that name their vertices in vertex_indices");
    sortColumns(header, corners);
    return corners;
}

Triangles readTriangles(const std::string& path)
{
    Triangles triangles;
    switch (getType(path))
    {
    case FileType::stl:
        refuseBinaryStl(path);
        triangles.corners = readTextStl(path);
        break;
    case FileType::ply:
        triangles.corners = readCorners(path);
        break;
    default:
        throw WrongUsage(path + " doesn't look like a file of triangles; give one that ends in .stl or .ply");
    }
    std::vector<MIRT_ZAV::Point3>& corners = triangles.corners;
    size_t numKept = 0;
    for (size_t i = 0; i < corners.size(); i += 3)
        if (corners[i].isFinite() && corners[i + 1].isFinite() && corners[i + 2].isFinite())
            for (size_t k = 0; k < 3; ++k)
                corners[numKept++] = corners[i + k];
        else
            ++triangles.numNotFinite;
    corners.resize(numKept);
    if (corners.empty() && triangles.numNotFinite > 0)
        throw Failure(path + " holds no triangle whose coordinates are all finite; check how it was written");
    if (corners.empty())
        throw Failure(path + " holds no triangles; check that it is the file you meant");
    return triangles;
}

void writePoints(SafeOutput& output, std::vector<MIRT_ZAV::Point3>& points, Coordinates coordinates, bool bAscii)
{
    const auto write = [&](const std::string& path)
    {
        if (getType(path) != FileType::ply)
            return MIRT_ZAV::writePoints_auto(path, points, bAscii);
        if (coordinates == Coordinates::asFloats)
            for (const MIRT_ZAV::Point3& p : points)
                refuseBeyondFloats((p - MIRT_ZAV::Point3()).getMaxAbsComponent(), "a PLY file");
        return PlyPoints(points, coordinates, bAscii).write(path);
    };
    // Of a failure the tool says all that there is to say.
    callLibrary(
        true, [] { return "check the space on the disk"; }, [&] { output.writeBy(write); });
}

void refuseBeyondFloats(double largestCoordinate, const std::string& path)
{
    if (largestCoordinate > std::numeric_limits<float>::max())
        throw Failure(path + " can't hold coordinates above 3.4e38: PLY has 32-bit floats; scale the points down, or "
                             "write another format");
}

void refuseSameFile(const std::string& input, const std::string& output)
{
    std::error_code ignored, problem;
    const fs::path from = fs::weakly_canonical(input, problem), to = fs::weakly_canonical(output, problem);
    if (fs::equivalent(input, output, ignored) || (!problem && from == to && !from.empty()))
        throw WrongUsage("input and output are the same file; give the output another name");
}

} // namespace zavtool
