#include "files/plyMesh.h"

#include "base/BlockBuffer.h"
#include "base/OrderedIndex.h"
#include "base/tools.h"
#include "files/tinyply.h"
#include "refined/RMesh.h"
#include "refined/RTriangle.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <locale>
#include <memory>
#include <stdexcept>

namespace PLY
{
using MIRT_ZAV::errorMsg;
using MIRT_ZAV::Point3;
using MIRT_ZAV::RMesh;
using MIRT_ZAV::RTriangle;
using MIRT_ZAV::toString;

namespace
{
std::ofstream openForWriting(const std::string& path, bool bAscii)
{
    std::ofstream out(path,
                      bAscii ? std::ios::out | std::ios::trunc : std::ios::out | std::ios::trunc | std::ios::binary);
    out.imbue(std::locale::classic());
    return out;
}

std::vector<float> coordinatesOf(const std::vector<Point3*>& vPoints)
{
    std::vector<float> coordinates;
    coordinates.reserve(3 * vPoints.size());
    for (const Point3* const pPoint : vPoints)
    {
        coordinates.push_back(static_cast<float>(pPoint->x()));
        coordinates.push_back(static_cast<float>(pPoint->y()));
        coordinates.push_back(static_cast<float>(pPoint->z()));
    }
    return coordinates;
}

void addCoordinates(PlyFile& file, std::vector<float>& coordinates)
{
    file.add_properties_to_element("vertex", {"x", "y", "z"}, Type::FLOAT32, coordinates.size() / 3,
                                   reinterpret_cast<std::uint8_t*>(coordinates.data()), Type::INVALID, 0);
}

/// A mesh as a file holds it. Vertices are numbered as the triangles first come across them: the order of the file
/// depends on nothing else.
struct IndexedMesh
{
    std::vector<Point3*> vertices;
    std::vector<std::uint32_t> indices; // three per face
};

IndexedMesh indexMesh(const RMesh& mesh)
{
    std::vector<RTriangle*> triangles;
    mesh.getAliveTriangles(triangles);
    IndexedMesh result;
    result.indices.reserve(3 * triangles.size());
    MIRT_TOOLS::OrderedIndex<const Point3*, std::uint32_t> numberOf;
    numberOf.reserve(triangles.size() / 2 + 2); // as many vertices as a sphere of these triangles has
    for (const RTriangle* const pRT : triangles)
    {
        ZAV_ASSERT(pRT->isAlive(), "pRT->isAlive()");
        for (int i = 0; i < 3; ++i)
        {
            Point3* const pVtx = pRT->getCorner(i);
            const auto [pNumber, bNew] =
                numberOf.insertOrFind(pVtx, static_cast<std::uint32_t>(result.vertices.size()));
            if (bNew)
                result.vertices.push_back(pVtx);
            result.indices.push_back(*pNumber);
        }
    }
    return result;
}

/// The bytes as they stand, also of points whose colour isn't set.
std::vector<std::uint8_t> colorBytesOf(const std::vector<Point3*>& vPoints)
{
    std::vector<std::uint8_t> colors;
    colors.reserve(4 * vPoints.size());
    for (const Point3* const pPoint : vPoints)
        colors.insert(colors.end(), {pPoint->r, pPoint->g, pPoint->b, pPoint->a});
    return colors;
}

/// What readPly asks a file for; null for what it doesn't have.
struct Requests
{
    std::shared_ptr<PlyData> coordinates;
    std::shared_ptr<PlyData> colors;
    std::shared_ptr<PlyData> alpha;
    std::shared_ptr<PlyData> indices;
};

std::shared_ptr<PlyData> requestOptional(PlyFile& file, const std::vector<std::string>& keys)
{
    try
    {
        return file.request_properties_from_element("vertex", keys, 0);
    }
    catch (const std::exception&)
    {
        return nullptr;
    }
}

void requestColors(PlyFile& file, Requests& requests)
{
    requests.colors = requestOptional(file, {"red", "green", "blue"});
    requests.alpha = requestOptional(file, {"alpha"});
    if (requests.alpha == nullptr)
        requests.alpha = requestOptional(file, {"scalar_Intensity"});
}

void tellUnsupportedType()
{
    errorMsg("unsupported type in ", "readPly");
}

template <class T>
T valueAt(const PlyData& data, size_t index)
{
    T value;
    std::memcpy(&value, data.buffer.get() + index * sizeof(T), sizeof(T));
    return value;
}

template <class T>
void convertPoints(const PlyData& data, std::vector<Point3>& points)
{
    points.reserve(data.count);
    for (size_t i = 0; i < data.count; ++i)
        points.emplace_back(valueAt<T>(data, 3 * i), valueAt<T>(data, 3 * i + 1), valueAt<T>(data, 3 * i + 2));
}

bool toPoints(const PlyData& data, std::vector<Point3>& points)
{
    if (!data.isList && data.t == Type::FLOAT32)
        convertPoints<float>(data, points);
    else if (!data.isList && data.t == Type::FLOAT64)
        convertPoints<double>(data, points);
    else if (!data.isList && data.t == Type::INT32)
        convertPoints<std::int32_t>(data, points);
    else
        return false;
    return true;
}

/// Appends the corners that the indices name; indices of fewer than 32 bits are widened.
template <class T>
void convertCorners(const PlyData& data, const std::vector<Point3>& vertices, std::vector<Point3>& corners)
{
    // Three per face, whatever the lists are like: the reader was asked for that many and fills up with zeros.
    const size_t numCorners = 3 * data.count;
    corners.reserve(numCorners);
    for (size_t i = 0; i < numCorners; ++i)
    {
        const std::uint32_t index = static_cast<std::uint32_t>(valueAt<T>(data, i));
        if (index >= vertices.size())
            throw std::runtime_error("vertex index out of range: " + toString(index));
        corners.push_back(vertices[index]);
    }
}

std::vector<Point3> cornersOf(const PlyData& data, const std::vector<Point3>& vertices)
{
    std::vector<Point3> corners;
    const Type type = data.isList ? data.t : Type::INVALID;
    if (type == Type::INT32 || type == Type::UINT32)
        convertCorners<std::uint32_t>(data, vertices, corners);
    else if (type == Type::INT16)
        convertCorners<std::int16_t>(data, vertices, corners);
    else if (type == Type::UINT16)
        convertCorners<std::uint16_t>(data, vertices, corners);
    else if (type == Type::INT8)
        convertCorners<std::int8_t>(data, vertices, corners);
    else if (type == Type::UINT8)
        convertCorners<std::uint8_t>(data, vertices, corners);
    else
        throw std::runtime_error("vertex_indices are no lists of integers");
    return corners;
}

bool isColorType(const PlyData& data)
{
    return !data.isList && (data.t == Type::FLOAT32 || data.t == Type::UINT8);
}

float colorAt(const PlyData& data, size_t index)
{
    return data.t == Type::UINT8 ? valueAt<std::uint8_t>(data, index) : valueAt<float>(data, index);
}

/// Empty when the type of the colours isn't supported.
std::vector<VtxColor> colorsOf(const Requests& requests)
{
    std::vector<VtxColor> colors;
    if (isColorType(*requests.colors))
    {
        colors.resize(requests.colors->count);
        for (size_t i = 0; i < colors.size(); ++i)
        {
            colors[i].red = colorAt(*requests.colors, 3 * i);
            colors[i].green = colorAt(*requests.colors, 3 * i + 1);
            colors[i].blue = colorAt(*requests.colors, 3 * i + 2);
        }
    }
    else
        tellUnsupportedType();

    if (requests.alpha == nullptr || requests.alpha->buffer.sizeInBytes() == 0)
        return colors;
    if (isColorType(*requests.alpha))
        for (size_t i = 0; i < colors.size(); ++i)
            colors[i].alpha = colorAt(*requests.alpha, i);
    else
        tellUnsupportedType();
    return colors;
}

/// The whole part of a channel, of which a byte keeps the low 8 bits; 0 for what isn't a number or fits no integer.
unsigned char toByte(float channel)
{
    return std::fabs(channel) < 9223372036854775808.0f ? static_cast<unsigned char>(static_cast<std::int64_t>(channel))
                                                       : 0;
}

void applyColors(std::vector<VtxColor>& colors, std::vector<Point3>& vPoints)
{
    if (colors.size() != vPoints.size())
    {
        MIRT_ZAV::warning(ZAV_LOCATION, "numPoints=" + toString(vPoints.size()) +
                                            ", numColors=" + toString(colors.size()) + " colors not used");
        return;
    }
    adaptTo255(colors);
    for (size_t i = 0; i < colors.size(); ++i)
        vPoints[i].setColor(toByte(colors[i].red), toByte(colors[i].green), toByte(colors[i].blue),
                            toByte(colors[i].alpha));
}

/// Warns of what was made up or taken apart; the file has been read all the same.
void tellDefects(const PlyFile& file, const Requests& requests, const std::string& path)
{
    if (!file.isComplete())
        MIRT_ZAV::warning(ZAV_LOCATION, path + " ends too early, or has a word in place of a number: zeros follow");
    if (requests.indices != nullptr && !requests.indices->bEven)
        MIRT_ZAV::warning(ZAV_LOCATION,
                          path + " has faces that aren't triangles: their indices run on as one sequence");
}

bool readOpenPly(std::istream& in, const std::string& path, bool bPointsOnly, std::vector<Point3>& vPoints)
{
    PlyFile file;
    file.parse_header(in); // at an unknown line the header just ends
    Requests requests;
    requests.coordinates = requestOptional(file, {"x", "y", "z"});
    if (requests.coordinates == nullptr)
        return false;
    requestColors(file, requests);
    if (!bPointsOnly)
    {
        requests.indices = file.request_properties_from_element("face", {"vertex_indices"}, 3);
        requests.indices->bGrows = false; // what is beyond three per face is never looked at
    }
    file.read(in);
    tellDefects(file, requests, path);

    std::vector<Point3> points;
    if (!toPoints(*requests.coordinates, points))
    {
        tellUnsupportedType();
        return false;
    }
    vPoints = bPointsOnly ? std::move(points) : cornersOf(*requests.indices, points);
    if (requests.colors == nullptr)
        return true;
    std::vector<VtxColor> colors = colorsOf(requests);
    applyColors(colors, vPoints);
    return true;
}
} // namespace

bool writePly(RMesh* pRMesh, const std::string& path, bool bAscii)
{
    try
    {
        IndexedMesh mesh = indexMesh(*pRMesh);
        std::vector<float> coordinates = coordinatesOf(mesh.vertices);
        std::vector<std::uint8_t> colors = colorBytesOf(mesh.vertices);
        std::ofstream out = openForWriting(path, bAscii);
        if (!out.is_open())
            throw std::runtime_error("failed to write " + path);
        PlyFile file;
        addCoordinates(file, coordinates);
        file.add_properties_to_element("vertex", {"red", "green", "blue", "alpha"}, Type::UINT8, mesh.vertices.size(),
                                       colors.data(), Type::INVALID, 0);
        file.add_properties_to_element("face", {"vertex_indices"}, Type::UINT32, mesh.indices.size() / 3,
                                       reinterpret_cast<std::uint8_t*>(mesh.indices.data()), Type::UINT8, 3);
        file.write(out, !bAscii);
        if (!out.flush())
            throw std::runtime_error("failed to write " + path);
        return true;
    }
    catch (const std::exception&)
    {
        errorMsg(ZAV_LOCATION, "Failed, filename=" + path);
        return false;
    }
}

bool writePly(std::vector<Point3*>& vPoints, const std::string& path, bool bAscii)
{
    std::cout << "writePointsPly, received " << vPoints.size() << " points" << std::endl;
    std::vector<float> coordinates = coordinatesOf(vPoints);
    std::ofstream out = openForWriting(path, bAscii);
    if (out.is_open())
    {
        PlyFile file;
        addCoordinates(file, coordinates);
        file.write(out, !bAscii);
        if (out.flush())
            return true;
    }
    std::cerr << "Can't write " << path << std::endl;
    return false;
}

bool readPly(const std::string& path, bool bPointsOnly, std::vector<Point3>& vPoints)
{
    try
    {
        std::ifstream in(path, std::ios::in | std::ios::binary);
        if (in.is_open() && MIRT_ZAV::isReadable(in))
            return readOpenPly(in, path, bPointsOnly, vPoints);
    }
    catch (const std::exception& e)
    {
        std::cerr << "tinyply exception: " << e.what() << std::endl;
    }
    errorMsg("readPly", path + " not read");
    return false;
}

void adaptTo255(std::vector<VtxColor>& vColors)
{
    ZAV_ASSERT(!vColors.empty(), "!vColors.empty()");
    double maxRGB = 0.0;
    double maxA = 0.0;
    for (const VtxColor& color : vColors)
    {
        for (const float channel : {color.red, color.green, color.blue})
            maxRGB = std::max(maxRGB, static_cast<double>(channel));
        maxA = std::max(maxA, static_cast<double>(color.alpha));
    }
    double scale = 1.0;
    if (maxRGB > 0.0 && maxRGB <= 1.0)
        scale = 255.0;
    else if (maxRGB > 255.0)
        scale = 255.0 / maxRGB;
    else if (maxA <= 255.0)
        return;
    for (VtxColor& color : vColors)
        for (float* const channel : {&color.red, &color.green, &color.blue, &color.alpha})
            *channel = static_cast<float>(std::floor(*channel * scale));
}

} // namespace PLY
