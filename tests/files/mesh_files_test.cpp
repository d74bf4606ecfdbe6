// Meshes as STL, OBJ and debug geometry, byte for byte; the choice of the writer by name; full disks.
#include "files/stlMesh.h"
#include "helpers/capture.h"
#include "helpers/coarse_cells.h"
#include "helpers/mesh_shapes.h"
#include "refined/Visualizer3.h"
#include "zav/zav_api_io.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <set>

using namespace MIRT_ZAV;

namespace
{
class MeshFiles : public test::InDirectory
{
};

/// A triangle, a flat one that shares an edge with it, and a dead one. The first vertex has a colour if asked for.
MeshPtr smallMesh(bool bColors)
{
    auto* const mesh = new RMesh(1.0);
    Point3* const v[] = {mesh->createVertex({0, 0, 0}), mesh->createVertex({1.23456789012345, 0, 0}),
                         mesh->createVertex({0, 1e-7, 0}), mesh->createVertex({0, 0, 2})};
    mesh->createT(v[3], v[0], v[1])->kill(mesh);
    mesh->createT(v[0], v[1], v[2]);
    v[3]->set(2.4691357802469, 0, 0); // in line with the first two
    mesh->createT(v[1], v[0], v[3]);
    if (bColors)
        v[0]->setColor(255, 51, 0, 1);
    return std::make_shared<Mesh>(mesh);
}

const std::string box = "material { backdiffuse 0 0 0 } lighting {ambient 0 0 1 }";

std::string linesOf(const std::string& color, const std::string& segments, const std::string& points, int n)
{
    std::string twos, zeros;
    for (int i = 0; i < n; ++i)
        twos += "2 ", zeros += i == 0 ? "1 " : "0 ";
    return "\n{\nappearance{linewidth 1}\n\n{\nVECT\n" + segments + " 1\n" + twos + "\n" + zeros + "\n" + points +
           color + "\n}\n}\n";
}
} // namespace

TEST_F(MeshFiles, StlByteForByte)
{
    ASSERT_TRUE(smallMesh(true)->writeStl_ASCII(path("a.stl")));
    EXPECT_EQ(contentOf("a.stl"), "solid - ZAV\n"
                                  "facet normal 0 0 1\n outer loop\n  vertex 0 0 0\n  vertex 1.23456789 0 0\n"
                                  "  vertex 0 1e-07 0\n endloop\nendfacet\n"
                                  "facet normal 0 0 0\n outer loop\n  vertex 1.23456789 0 0\n  vertex 0 0 0\n"
                                  "  vertex 2.46913578 0 0\n endloop\nendfacet\n"
                                  "endsolid - ZAV\n");
    std::vector<Point3> inLoops, anywhere;
    ASSERT_TRUE(readSTL_ASCII(path("a.stl").c_str(), inLoops) && readSTLTriCorners(path("a.stl"), anywhere));
    EXPECT_EQ(inLoops, anywhere);
    ASSERT_EQ(inLoops.size(), 6u);
    EXPECT_EQ(inLoops[5], Point3(2.46913578, 0, 0));
    ASSERT_TRUE(std::make_shared<Mesh>(new RMesh(1.0))->writeStl_ASCII(path("empty.stl")));
    EXPECT_EQ(contentOf("empty.stl"), "solid - ZAV\nendsolid - ZAV\n");
}

TEST_F(MeshFiles, ObjByteForByte)
{
    EXPECT_EQ(test::outputOf([&] { toObj(smallMesh(true), path("a.obj")); }), "Writing " + path("a.obj") + "\n");
    EXPECT_EQ(contentOf("a.obj"), "v 0 0 0\nv 1.23457 0 0\nv 0 1e-07 0\nv 2.46914 0 0\nf 1 2 3\nf 2 1 4\n");
}

TEST_F(MeshFiles, DebugGeometryByteForByte)
{
    const std::string faces[] = {"3 0 1 2", "3 3 4 5"};
    const std::string ends[] = {"0 0 0", "1.23456789012345 0 0", "0 1e-07 0", "2.4691357802469 0 0"};
    const std::string gray = " 0.2 0.2 0.2 1\n", red = " 1 0.2 0 0.00392156862745098\n";
    const std::string border = linesOf("1 0 0 0.5", "4 8",
                                       ends[0] + "\n" + ends[2] + "\n" + ends[0] + "\n" + ends[3] + "\n" + ends[1] +
                                           "\n" + ends[2] + "\n" + ends[1] + "\n" + ends[3] + "\n",
                                       4);
    EXPECT_EQ(test::outputOf([&] { ASSERT_TRUE(smallMesh(true)->writeGeomview_ASCII(path("a.list"))); }),
              "Writing " + path("a.list") + "\n");
    EXPECT_EQ(contentOf("a.list"), "LIST\n{\n\n{\nappearance { -edge  material " + box + " }\nCOFF\n6 2 0\n" + ends[0] +
                                       red + ends[1] + gray + ends[2] + gray + ends[1] + gray + ends[0] + red +
                                       ends[3] + gray + faces[0] + "\n" + faces[1] + "\n}\n" + border + "}");
    ASSERT_TRUE(smallMesh(false)->writeGeomview_ASCII(path("b.list")));
    EXPECT_EQ(contentOf("b.list"), "LIST\n{\n\n{\nappearance { -edge  material " + box + " }\nOFF\n6 2 0\n" + ends[0] +
                                       "\n" + ends[1] + "\n" + ends[2] + "\n" + ends[1] + "\n" + ends[0] + "\n" +
                                       ends[3] + "\n" + faces[0] + " 0 1 0 0.5\n" + faces[1] + " 0 1 0 0.5\n}\n" +
                                       border + "}");
    {
        Visualizer3 visualizer(path("c.list"), nullptr, true);
        visualizer.setBackfaces(false);
        visualizer.startList(0, 0, true, false);
        visualizer.endList();
        visualizer.writePoints(std::vector<Point3>{{1, 2, 3}, {0.1, 0, 0}}, 10, Visualizer3::CRED);
    }
    EXPECT_EQ(contentOf("c.list"),
              "LIST\n{\n\n{\nappearance { +edge  }\nOFF\n0 0 0\n}\n"
              "\n{\nappearance{linewidth 10}\n\n{\nVECT\n2 2 1\n1 1 \n1 0 \n1 2 3\n0.1 0 0\n1 0 0 0.5\n}\n}\n}");
}

TEST_F(MeshFiles, DebugGeometryColorsEdgesByDegree)
{
    const std::pair<int, std::string> cases[] = {
        {2, ""}, {3, "\n0.627 0.125 0.941 0.5\n"}, {4, "\n0 0.70 .9 0.5\n"}, {5, "\n1 0.411 0.705 0.5\n"}};
    for (const auto& [degree, color] : cases)
    {
        auto* const mesh = new RMesh(1.0);
        Point3 *const a = mesh->createVertex({0, 0, 0}), *const b = mesh->createVertex({1, 0, 0});
        for (int i = 0; i < degree; ++i)
            mesh->createT(a, b, mesh->createVertex({0, 1.0, 1.0 * i}));
        ASSERT_TRUE(Mesh(mesh).writeGeomview_ASCII(path("a.list")));
        for (const auto& [otherDegree, otherColor] : cases)
            EXPECT_EQ(contentOf("a.list").find(otherColor + "}\n}\n") != std::string::npos,
                      otherDegree <= 2 || degree == otherDegree)
                << degree << ' ' << otherDegree;
    }
}

TEST_F(MeshFiles, AutoPicksTheWriter)
{
    const MeshPtr mesh = smallMesh(true);
    const std::tuple<const char*, bool, const char*> cases[] = {{"a.stl", true, "solid - ZAV\n"},
                                                                {"a.ply", true, "ply\nformat binary_little"},
                                                                {"b.ply", false, "ply\nformat ascii"},
                                                                {"a.List", false, "LIST\n"},
                                                                {"a.dat", true, "ply\nformat ascii"}};
    testing::internal::CaptureStderr();
    for (const auto& [name, bBinary, begin] : cases)
    {
        EXPECT_TRUE(writeMesh_auto(path(name), mesh, bBinary)) << name;
        EXPECT_EQ(contentOf(name).find(begin), 0u) << name;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Filename [" + path("a.dat") + "] is not valid, using [zav_output.ply] instead\n");
    EXPECT_NE(test::outputOf([&] { EXPECT_FALSE(writeMesh_auto("ply", mesh, true)); }).find("writing ply failed"),
              std::string::npos);
    EXPECT_FALSE(writeMesh_auto(path("a.ply"), nullptr, true));
    std::vector<Point3> points = {{1, 2, 3}};
    EXPECT_TRUE(writePoints_auto(path("p.list"), points, true));
    EXPECT_NE(contentOf("p.list").find("VECT\n1 1 1\n1 \n1 \n1 2 3\n1 0 0 0.5\n"), std::string::npos);
}

TEST_F(MeshFiles, FullDisksAndMissingDirectoriesAreTold)
{
    const MeshPtr mesh = smallMesh(true);
    std::vector<Point3> points(3);
    for (const std::string place : {"full", "none"})
        for (const std::string name : {"a.stl", "a.ply", "a.list", "a.obj", "p.xyz", "p.bin", "p.ply", "p.list"})
        {
            const std::string file = path(place + name);
            if (place == "full")
                std::filesystem::create_symlink("/dev/full", file);
            const std::string target = place == "full" ? file : path("none/" + name);
            testing::internal::CaptureStderr();
            const std::string out = test::outputOf(
                [&]
                {
                    if (name == "a.obj")
                        toObj(mesh, target);
                    else if (name[0] == 'a')
                        EXPECT_FALSE(writeMesh_auto(target, mesh, true)) << target;
                    else
                        EXPECT_FALSE(writePoints_auto(target, points, true)) << target;
                });
            const std::string told = repstr(out, "Writing " + target, "") + testing::internal::GetCapturedStderr();
            EXPECT_NE(told.find(target), std::string::npos) << target << ": " << told;
        }
}
