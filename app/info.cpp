// zav info: what is in a point or mesh file.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "meshStatistics.h"

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

void describeMesh(const std::string& path, size_t numVerticesInFile)
{
    std::vector<MIRT_ZAV::Point3> corners = readCorners(path);
    const MeshStatistics mesh = getMeshStatistics(corners);
    printNumber("vertices in the file", numVerticesInFile);
    printNumber("vertices", mesh.numVertices);
    printNumber("triangles", mesh.numTriangles);
    printNumber("collapsed triangles", mesh.numCollapsed);
    printNumber("not finite triangles", mesh.numNotFinite);
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
    if (!corners.empty())
        printBox(corners);
}
} // namespace

Command addInfo(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("info", "Print what is in a point or mesh file");
    auto path = std::make_shared<std::string>();
    command->add_option("FILE", *path, "Point file (.ply .xyz .txt .asc .bin) or mesh file (.ply)")->required();
    command->footer(R"(For points: their number, how many aren't finite, whether they have colours, the bounding box.
For a PLY file with faces: vertices, triangles, edges by the number of their triangles, components, the Euler
characteristic (2 for a sphere, 0 for a torus), the mean edge length, and for each triangle's smallest angle the least,
the median, and the share of small ones, in degrees. Corners with equal coordinates count as one vertex; triangles
with two such corners are counted as collapsed and left out of the rest. An edge is wound against where its two
triangles run along it in the same direction. Faces have to be triangles.)");
    return {command, [path]
            {
                if (getType(*path) == FileType::ply)
                    if (const PlySummary summary = readPlySummary(*path); summary.numFaces > 0)
                        return describeMesh(*path, summary.numVertices);
                describePoints(*path);
            }};
}

} // namespace zavtool
