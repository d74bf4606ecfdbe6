// Small valid files of every format, and plain versions of the readers that go line by line and value by value, too
// simple to be wrong. Shared by the tests and the fuzz targets.
#pragma once

#include "zav/Point3.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace test
{
using MIRT_ZAV::Point3;
using Points = std::vector<Point3>;

/// A file that exists in memory only; its path can be opened as often as wanted.
class MemoryFile
{
public:
    MemoryFile() : descriptor(memfd_create("test", 0)) {}
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }
    /// The path; empty after a failure.
    std::string put(const std::string& bytes)
    {
        return ftruncate(descriptor, 0) == 0 && lseek(descriptor, 0, SEEK_SET) == 0 ? append(bytes) : "";
    }
    std::string append(const std::string& bytes)
    {
        return write(descriptor, bytes.data(), bytes.size()) == ssize_t(bytes.size()) ? path() : "";
    }

private:
    const int descriptor;
};

template <class T>
std::string raw(T value, bool bBigEndian = false)
{
    std::string bytes(sizeof(T), '\0');
    std::memcpy(bytes.data(), &value, sizeof(T));
    if (bBigEndian)
        std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

inline std::string bytesOf(const Point3& p)
{
    return raw(p.x()) + raw(p.y()) + raw(p.z());
}

inline std::string bytesOf(const Points& points)
{
    std::string bytes;
    for (const Point3& p : points)
        bytes += bytesOf(p);
    return bytes;
}

inline Points randomPoints(size_t n)
{
    std::mt19937_64 random(n);
    std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
    std::uniform_int_distribution<int> exponent(-30, 30);
    Points points;
    for (size_t i = 0; i < n; ++i)
        points.emplace_back(std::ldexp(mantissa(random), exponent(random)), mantissa(random), mantissa(random));
    return points;
}

/// What a string stream makes of each line: the rule that the fast reader has to keep.
inline Points plainTextPoints(const std::string& text)
{
    Points points;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        std::istringstream in(line);
        double x, y, z;
        if (in >> x >> y >> z)
            points.emplace_back(x, y, z);
    }
    return points;
}

inline Points plainBinaryPoints(const std::string& bytes)
{
    Points points;
    std::int32_t type = 0;
    std::uint64_t count = 0;
    if (bytes.size() < sizeof(type) + sizeof(count))
        return points;
    std::memcpy(&type, bytes.data(), sizeof(type));
    std::memcpy(&count, bytes.data() + sizeof(type), sizeof(count));
    if (type != 30 && type != 20)
        return points;
    const size_t rowBytes = type == 30 ? 24 : 16;
    const size_t numComplete = (bytes.size() - 12) / rowBytes;
    const bool bFollowed = count <= 2 * numComplete + (size_t(1) << 20);
    double xyz[3] = {0.0, 0.0, 0.0};
    size_t at = 12;
    for (std::uint64_t i = 0; i < (bFollowed ? count : numComplete); ++i)
    {
        const size_t n = std::min(rowBytes, bytes.size() - at);
        std::memcpy(xyz, bytes.data() + at, n);
        at += n;
        points.emplace_back(xyz[0], xyz[1], xyz[2]);
    }
    return points;
}

inline Points plainStlCorners(const std::string& text)
{
    Points corners;
    std::istringstream lines(text);
    bool bInLoop = false;
    double xyz[3] = {0.0, 0.0, 0.0};
    for (std::string line; std::getline(lines, line);)
    {
        const auto has = [&line](const char* words) { return line.find(words) != std::string::npos; };
        if (!bInLoop)
            bInLoop = has("outer loop") || has("OUTER LOOP");
        else if (has("endloop"))
            bInLoop = false;
        else if (has("vertex"))
        {
            std::istringstream in(line);
            std::string word;
            in >> word >> xyz[0] >> xyz[1] >> xyz[2];
            corners.emplace_back(xyz[0], xyz[1], xyz[2]);
        }
    }
    return corners;
}

inline Points plainTriCorners(const std::string& text)
{
    Points corners;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (const size_t at = line.find("vertex"); at != std::string::npos)
        {
            const Points found = plainTextPoints(line.substr(at + 6));
            corners.insert(corners.end(), found.begin(), found.end());
        }
    return corners;
}

/// A PLY file with all that readers stumble over, in the three encodings: unknown properties before, between and behind
/// the coordinates, lists of different lengths among the vertices, an element without rows, 64-bit values.
inline std::string richPly(const std::string& encoding, size_t n, Points& vertices, Points& corners)
{
    const bool bAscii = encoding == "ascii";
    const bool bBig = encoding == "binary_big_endian";
    std::string file = "PLY\r\n\nformat " + encoding +
                       " 1.0\ncomment\ncomment some words\nobj_info\nelement empty 0\n"
                       "property strange thing\nelement camera 2\nproperty int16 id\nelement vertex " +
                       std::to_string(n) +
                       "\nproperty float nx\nproperty float64 x\nproperty double y\nproperty uchar red\n"
                       "property list int int16 links\nproperty uint8 green\nproperty uint8 blue\nproperty double z\n"
                       "property short quality\nproperty uchar scalar_Intensity\nelement face " +
                       std::to_string(n) +
                       "\nproperty list ushort int vertex_indices\nproperty char flag\nend_header\n";
    const auto put = [&](auto value)
    {
        std::ostringstream text;
        text << std::setprecision(17) << +value << (n % 2 == 0 ? " " : "\n");
        file += bAscii ? text.str() : raw(value, bBig);
    };
    const auto putAll = [&put](auto... values) { (put(values), ...); };
    std::mt19937 random(5);
    putAll(std::int16_t(-3), std::int16_t(4));
    vertices = randomPoints(n);
    for (Point3& p : vertices)
    {
        p.setColor(random() % 256, 2, random() % 256, 200);
        const int numLinks = int(random() % 4);
        putAll(0.5f, p.x(), p.y(), p.r, numLinks);
        for (int j = 0; j < numLinks; ++j)
            put(std::int16_t(-j));
        putAll(p.g, p.b, p.z(), std::int16_t(-1), p.a);
    }
    corners.clear();
    for (size_t i = 0; i < n; ++i)
    {
        const std::array<int, 3> face = {int(random() % n), int(random() % n), int(random() % n)};
        putAll(std::uint16_t(3), face[0], face[1], face[2], std::int8_t(-1));
        for (const int index : face)
            corners.push_back(vertices[size_t(index)]);
    }
    return file;
}

/// The simplest file of a mesh: four vertices as floats and two triangles.
inline std::string smallPly(const std::string& encoding)
{
    const bool bBig = encoding == "binary_big_endian";
    std::string file = "ply\nformat " + encoding +
                       " 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
                       "element face 2\nproperty list uchar int vertex_indices\nend_header\n";
    if (encoding == "ascii")
        return file + "1 0 -2.5\n1.5e1 10 0\n0 .25 3\n-7 8 12\n3 0 1 2\n3 3 1 2\n";
    for (const float value : {1.0f, 0.0f, -2.5f, 15.0f, 10.0f, 0.0f, 0.0f, 0.25f, 3.0f, -7.0f, 8.0f, 12.0f})
        file += raw(value, bBig);
    for (const int first : {0, 3})
        file += '\3' + raw(first, bBig) + raw(1, bBig) + raw(2, bBig);
    return file;
}

constexpr std::array<const char*, 3> plyEncodings = {"ascii", "binary_little_endian", "binary_big_endian"};

inline std::string smallText()
{
    return "1 2 3\n# nothing\r\n-.5e1\t+7 1e-320 behind\r\n\n  1 2\n0x1 2 3\n4 nan 6\n12 -34 56.75";
}

inline std::string smallBinary(bool b3D)
{
    std::string file = raw(b3D ? 30 : 20) + raw(std::uint64_t(3));
    for (int i = 1; i <= (b3D ? 9 : 6); ++i)
        file += raw(i / 3.0);
    return file;
}

inline std::string smallStl()
{
    return "solid a\nfacet normal 0 0 1\n outer loop\n  vertex 1 2.5 -3e1\r\n  vertex 4 5\n  vertex 7 x 9\n endloop\n"
           "endfacet\nvertex 0 0 0\nfacet\nOUTER LOOP\nVERTEX 9 9 9\nvertex 1 +2 3\n vertices 4 5 6\nvertex "
           "1-2-3\nendloop\nendsolid "
           "a";
}

} // namespace test
