// zav info: what is in a point or mesh file.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "meshStatistics.h"
#include "plyHeader.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace zavtool
{
namespace
{
void printNumber(const char* label, size_t number)
{
    std::printf("%-22s %zu\n", label, number);
}

void printBox(const std::vector<MIRT_ZAV::Point3>& points)
{
    const BoundingBox box = getBoundingBox(points);
    std::printf("%-22s %.9g %.9g %.9g\n", "smallest coordinates", box.min.x(), box.min.y(), box.min.z());
    std::printf("%-22s %.9g %.9g %.9g\n", "largest coordinates", box.max.x(), box.max.y(), box.max.z());
}

void describePoints(const std::string& path)
{
    const Cloud cloud = readCloud(path, false);
    printNumber("points", cloud.points.size() + cloud.numNotFinite);
    printNumber("not finite", cloud.numNotFinite);
    bool bColors = false;
    for (const MIRT_ZAV::Point3& point : cloud.points)
        bColors = bColors || point.hasColor();
    std::printf("%-22s %s\n", "colours", bColors ? "yes" : "no");
    printBox(cloud.points);
}

/// \param maxListed  so many of the longest get a line each
void printBorders(const std::vector<BorderSize>& borders, size_t maxListed)
{
    printNumber("border loops", borders.size());
    for (size_t i = 0; i < std::min(maxListed, borders.size()); ++i)
    {
        const BorderSize& border = borders[i];
        const MIRT_ZAV::Vector3 size = border.box.max - border.box.min;
        const MIRT_ZAV::Point3 middle = border.box.min + size * 0.5;
        std::printf("  %-20s %zu edges, length %.6g, size %.6g %.6g %.6g, around %.6g %.6g %.6g\n",
                    border.bClosed ? "loop" : "open chain", border.numEdges, border.length, size.x(), size.y(),
                    size.z(), middle.x(), middle.y(), middle.z());
    }
    if (borders.size() > maxListed)
        std::printf("  %-20s %zu\n", "shorter ones", borders.size() - maxListed);
}

void describeMesh(Triangles triangles, size_t maxListed)
{
    const MeshStatistics mesh = getMeshStatistics(triangles.corners);
    printNumber("vertices", mesh.numVertices);
    printNumber("triangles", mesh.numTriangles);
    printNumber("collapsed triangles", mesh.numCollapsed);
    printNumber("not finite triangles", mesh.numNotFinite + triangles.numNotFinite);
    printNumber("repeated triangles", mesh.numRepeated);
    printNumber("edges", mesh.numEdges);
    printNumber("  with 1 triangle", mesh.numBorderEdges);
    printNumber("  with 2 triangles", mesh.numRegularEdges);
    printNumber("  with 3 and more", mesh.numMultipleEdges);
    printNumber("  wound against", mesh.numTurnedEdges);
    printNumber("components", mesh.numComponents);
    std::printf("%-22s %lld\n", "Euler characteristic", mesh.getEuler());
    std::printf("%-22s %.9g\n", "mean edge length", mesh.meanEdgeLength);
    std::printf("%-22s least %.2f, median %.2f; %.2f %% below 5, %.2f %% below 10, %.2f %% below 30\n",
                "smallest angles", mesh.leastAngle, mesh.medianAngle, 100.0 * mesh.shareBelow5,
                100.0 * mesh.shareBelow10, 100.0 * mesh.shareBelow30);
    printBorders(mesh.borders, maxListed);
    if (!triangles.corners.empty())
        printBox(triangles.corners);
}

void describe(const std::string& path, size_t maxListed)
{
    if (getType(path) == FileType::stl)
        return describeMesh(readTriangles(path), maxListed);
    const PlyHeader header = getType(path) == FileType::ply ? readPlyHeader(path) : PlyHeader();
    if (header.getCount("face") == 0)
        return describePoints(path);
    printNumber("vertices in the file", header.getCount("vertex"));
    describeMesh({readCorners(path), 0}, maxListed);
}
} // namespace

Command addInfo(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("info", "Print what is in a point or mesh file");
    auto path = std::make_shared<std::string>();
    auto maxListed = std::make_shared<size_t>(20);
    command->add_option("FILE", *path, "Point file (.ply .xyz .txt .asc .bin) or mesh file (.ply .stl)")->required();
    command->add_option("--loops", *maxListed, "Number of border loops to list, the longest first")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command->footer(R"(For points: their number, how many aren't finite, whether they have colours, the bounding box.
For a PLY file with faces or a text STL file: vertices, triangles, edges by the number of their triangles, components,
the Euler characteristic (2 for a sphere, 0 for a torus), the mean edge length, and for each triangle's smallest angle
the least, the median, and the share of small ones, in degrees. Corners with equal coordinates count as one vertex;
triangles with two such corners are counted as collapsed and left out of the rest. An edge is wound against where its two
triangles run along it in the same direction. A border loop is a hole or the rim of an open piece: its edges with their
length, the size of its bounding box, and the middle of that. Faces have to be triangles.)");
    return {command, [path, maxListed] { describe(*path, *maxListed); }};
}

} // namespace zavtool
