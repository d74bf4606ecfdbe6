#include "zav/pointFiles.h"

#include "base/BlockBuffer.h"
#include "base/BlockWriter.h"
#include "base/lineScan.h"
#include "files/plyMesh.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
constexpr std::int32_t fileType3D = 30;
constexpr std::int32_t fileType2D = 20;
constexpr std::uint64_t toleratedShortfall = std::uint64_t(1) << 20; // points, besides as many as the file holds
constexpr int digitsOfText = 18;

/// Room for n more points. It at least doubles: with just enough room for each of many small files, all points would be
/// copied for each of them.
void reserveMore(std::vector<Point3>& vPoints, size_t n)
{
    if (vPoints.size() + n > vPoints.capacity())
        vPoints.reserve(std::max(vPoints.size() + n, 2 * vPoints.capacity()));
}

/// The points of a binary file behind its header.
class BinaryPoints
{
public:
    BinaryPoints(std::istream& stream, bool is3D) : in(stream), numBytes(is3D ? 24 : 16) {}

    size_t rowBytes() const { return numBytes; }

    /// Appends up to n points, as many as are complete; returns their number.
    std::uint64_t readComplete(std::uint64_t n, std::vector<Point3>& vPoints)
    {
        std::uint64_t numRead = 0;
        while (numRead < n && in.require(numBytes))
        {
            const size_t num = std::min<std::uint64_t>(n - numRead, in.available() / numBytes);
            reserveMore(vPoints, num);
            for (size_t i = 0; i < num; ++i)
            {
                take(numBytes);
                append(vPoints);
            }
            numRead += num;
        }
        return numRead;
    }

    /// Appends n points that the file lacks. The first takes what is left of the file; all other bytes stay those of
    /// the point before.
    void appendMissing(std::uint64_t n, std::vector<Point3>& vPoints)
    {
        take(in.available());
        reserveMore(vPoints, n);
        for (std::uint64_t i = 0; i < n; ++i)
            append(vPoints);
    }

private:
    void take(size_t n)
    {
        std::memcpy(xyz, in.begin(), n);
        in.advance(n);
    }
    void append(std::vector<Point3>& vPoints) const { vPoints.emplace_back(xyz[0], xyz[1], xyz[2]); }

    BlockBuffer in;
    size_t numBytes;
    double xyz[3] = {0.0, 0.0, 0.0};
};

/// 0 when the file ends within the value.
template <class T>
T readValue(std::istream& in)
{
    T value{};
    return in.read(reinterpret_cast<char*>(&value), sizeof(value)) ? value : T{};
}
/// Writes a file of points. \param write  fills it; whether the bytes arrive is checked here
template <class Write>
bool writeFile(const char* path, std::ios::openmode mode, const Write& write)
{
    std::ofstream file(path, std::ios::out | std::ios::trunc | mode);
    if (file.is_open())
    {
        BlockWriter out(file, digitsOfText);
        write(out);
        out.flush();
        file.close();
        if (file.good())
            return true;
    }
    std::cout << path << " can't be written" << std::endl;
    return false;
}
} // namespace

bool readPoints_ASCII(const char* path, std::vector<Point3>& vPoints)
{
    std::ifstream file(path);
    if (!file.is_open() || !isReadable(file))
    {
        std::cout << path << " is unreadable" << std::endl;
        return false;
    }
    BlockBuffer in(file);
    PointParser parser;
    double xyz[3];
    while (!in.atEnd())
    {
        bool bPoint = false;
        if (const std::optional<size_t> length = findLine(in))
        {
            bPoint = parser.parse(in.begin(), in.begin() + *length, xyz);
            skipLine(in, *length);
        }
        else
        {
            LongLine line(in);
            bPoint = PointParser::parse(line, xyz);
            line.finish();
        }
        if (bPoint)
            vPoints.emplace_back(xyz[0], xyz[1], xyz[2]);
    }
    return true;
}

bool readPoints_BIN(const char* path, std::vector<Point3>& vPoints)
{
    std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file.is_open() || !isReadable(file))
    {
        std::cout << path << " can't be read" << std::endl;
        return false;
    }
    const std::int32_t fileType = readValue<std::int32_t>(file);
    if (fileType != fileType3D && fileType != fileType2D)
    {
        std::cout << path << " has wrong filetype " << fileType << ", expected: 30 or 20" << std::endl;
        return true; // the file was open, which is all that the result says
    }
    const std::uint64_t numPoints = readValue<std::uint64_t>(file);
    const std::int64_t left = bytesLeft(file);
    BinaryPoints points(file, fileType == fileType3D);
    if (left > 0)
        reserveMore(vPoints, std::min<std::uint64_t>(numPoints, static_cast<std::uint64_t>(left) / points.rowBytes()));
    const std::uint64_t numComplete = points.readComplete(numPoints, vPoints);
    const std::uint64_t numMissing = numPoints - numComplete;
    if (numMissing == 0)
        return true; // whatever stands behind the points isn't looked at
    if (numMissing <= numComplete + toleratedShortfall)
        points.appendMissing(numMissing, vPoints);
    else
        std::cout << path << " ends " << numMissing << " points too early" << std::endl;
    return true;
}

bool writePoints_ASCII(const char* path, const std::vector<Point3>& vPoints)
{
    return writeFile(path, {},
                     [&vPoints](BlockWriter& out)
                     {
                         for (const Point3& point : vPoints)
                         {
                             out.putNumbers(point.x(), point.y(), point.z());
                             out.put('\n');
                         }
                     });
}

bool writePoints_BIN(const char* path, const std::vector<Point3>& vPoints)
{
    return writeFile(path, std::ios::binary,
                     [&vPoints](BlockWriter& out)
                     {
                         const std::uint64_t numPoints = vPoints.size();
                         std::memcpy(out.take(sizeof(fileType3D)), &fileType3D, sizeof(fileType3D));
                         std::memcpy(out.take(sizeof(numPoints)), &numPoints, sizeof(numPoints));
                         for (const Point3& point : vPoints)
                         {
                             const double xyz[3] = {point.x(), point.y(), point.z()};
                             std::memcpy(out.take(sizeof(xyz)), xyz, sizeof(xyz));
                         }
                     });
}

bool writePointsPly(const std::string& path, std::vector<Point3>& vPoints, bool bAscii)
{
    std::vector<Point3*> pointers;
    pointers.reserve(vPoints.size());
    for (Point3& point : vPoints)
        pointers.push_back(&point);
    return PLY::writePly(pointers, path, bAscii);
}

bool readPly(const char* path, bool bPointsOnly, std::vector<Point3>& vPoints)
{
    return PLY::readPly(path, bPointsOnly, vPoints);
}

} // namespace MIRT_ZAV
