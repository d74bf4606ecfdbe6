// The public handle of a mesh.
#include "Mesh.h"
#include "RMesh.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace MIRT_ZAV;

TEST(Mesh, IndexedFormGivesTheTrianglesBack)
{
    auto pRMesh = new RMesh(1.0);
    const Mesh mesh(pRMesh);
    std::vector<Point3*> p;
    for (int i = 0; i < 8; ++i)
        p.push_back(pRMesh->createVertex({1.0 * i, 0, 0}));
    pRMesh->createT(p[6], p[2], p[4]);
    pRMesh->createT(p[5], p[6], p[7])->kill(pRMesh);
    pRMesh->createT(p[4], p[2], p[1]);
    std::vector<Point3*> points, corners;
    std::vector<int> indices;
    mesh.getVertexIndexData(points, indices);
    mesh.getTriangles(corners);
    EXPECT_EQ(points, (std::vector<Point3*>{p[1], p[2], p[4], p[6]}));
    EXPECT_EQ(indices, (std::vector<int>{3, 1, 2, 2, 1, 0}));
    ASSERT_EQ(corners.size(), 3 * mesh.getNumT());
    for (size_t i = 0; i < corners.size(); ++i)
        EXPECT_EQ(points[size_t(indices[i])], corners[i]);
    EXPECT_DOUBLE_EQ(mesh.getAverageEdgeLength(), (4 + 2 + 2 + 1 + 3) / 5.0);
    testing::internal::CaptureStdout();
    mesh.printStatistics("after all");
    EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("after all\nvertices: 4", 0), 0u);
}

TEST(Mesh, Empty)
{
    const Mesh mesh(new RMesh(1.0));
    std::vector<Point3*> points;
    std::vector<int> indices;
    mesh.getVertexIndexData(points, indices);
    EXPECT_TRUE(points.empty() && indices.empty());
    EXPECT_EQ(mesh.getAverageEdgeLength(), -1.0);
}

TEST(Mesh, PlyFormsAreCrossed)
{
    auto pRMesh = new RMesh(1.0);
    const Mesh mesh(pRMesh);
    pRMesh->createT(pRMesh->createVertex({0, 0, 0}), pRMesh->createVertex({1, 0, 0}), pRMesh->createVertex({0, 1, 0}));
    const auto formatOf = [](const std::string& path)
    {
        std::ifstream file(path);
        std::string line;
        while (std::getline(file, line) && line.rfind("format", 0) != 0)
            ;
        return line;
    };
    const std::string path = testing::TempDir() + "mesh_test.ply";
    ASSERT_TRUE(mesh.writePly_BIN(path));
    EXPECT_EQ(formatOf(path), "format ascii 1.0");
    ASSERT_TRUE(mesh.writePly_ASCII(path));
    EXPECT_EQ(formatOf(path), "format binary_little_endian 1.0");
}
