// Runs the built tool as a user would and looks at its exit codes, its output and its files.
#include "helpers/plain_files.h"
#include "helpers/tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;
using test::bytesOf, test::Point3, test::raw;

namespace
{
using test::countLines;
using test::Outcome;

class Tool : public test::InToolDirectory
{
};

/// The words behind a label of "zav info".
std::string valueOf(const std::string& label, const Outcome& info)
{
    std::istringstream lines(info.out);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(label + std::string(22 - label.size(), ' ') + ' ', 0) == 0) // labels stand in a column
            return line.substr(23);
    ADD_FAILURE() << "no line '" << label << "' in:\n" << info.out << info.err;
    return "";
}

/// Triangles of three corners each.
std::string stlOf(const std::vector<std::array<int, 3>>& corners)
{
    std::ostringstream text;
    text << "solid\n";
    for (size_t i = 0; i < corners.size(); ++i)
        text << (i % 3 == 0 ? "facet normal 0 0 0\nouter loop\n" : "") << "vertex " << corners[i][0] << ' '
             << corners[i][1] << ' ' << corners[i][2] << (i % 3 == 2 ? "\nendloop\nendfacet\n" : "\n");
    return text.str() + "endsolid\n";
}

/// A square of points.
std::string squareOfPoints(int side, double step = 1.0)
{
    std::ostringstream text;
    for (int x = 0; x < side; ++x)
        for (int y = 0; y < side; ++y)
            text << x * step << ' ' << y * step << " 0\n";
    return text.str();
}
} // namespace

TEST_F(Tool, helpEndsWith0AndWrongUsageWith2)
{
    for (const char* arguments : {"--help", "reconstruct --help", "info --help", "--version"})
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << arguments;
        EXPECT_EQ(outcome.err, "") << arguments;
        EXPECT_NE(outcome.out, "") << arguments;
    }
    EXPECT_EQ(run("--version").out, "zav 1.17\n");

    write("in.xyz", squareOfPoints(5));
    fs::create_symlink("in.xyz", directory / "link.ply");
    for (const char* arguments : {"",
                                  "paint",
                                  "reconstruct in.xyz",
                                  "reconstruct in.xyz out.xyz",
                                  "reconstruct in.xyz out",
                                  "reconstruct in.xyz out.ply --factor 0",
                                  "reconstruct in.xyz out.ply --factor nan",
                                  "reconstruct in.xyz out.ply --spacing -1",
                                  "reconstruct in.xyz out.ply --spacing inf",
                                  "reconstruct in.xyz out.ply --factor 2 --spacing 2",
                                  "reconstruct in.xyz out.ply --threads x",
                                  "reconstruct in.stl out.ply",
                                  "reconstruct in.xyz link.ply",
                                  "info x",
                                  "generate cube out.ply",
                                  "generate box out.obj",
                                  "generate box out.bin --ascii",
                                  "convert in.xyz out.stl",
                                  "convert in.xyz in.xyz",
                                  "convert in.stl out.ply",
                                  "generate box out.ply --points 0"})
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 2) << arguments;
        EXPECT_NE(outcome.err, "") << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
    }
    EXPECT_EQ(countFiles(), 2u);
    EXPECT_EQ(contentOf("in.xyz"), squareOfPoints(5)); // the input is never overwritten
}

TEST_F(Tool, failureSaysWhyInOneLineAndLeavesTheOldOutput)
{
    write("empty.xyz", "");
    write("words.xyz", "no numbers here\n");
    write("cut.ply", "ply\nformat binary_little_endian 1.0\nelement vertex 1000000000000\nproperty float x\n"
                     "property float y\nproperty float z\nend_header\nabc");
    write("noheader.ply", "1 2 3\n");
    const std::string text =
        "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n";
    write("nan.ply", text + "end_header\n0 0 0\n1 0 0\nnan 1 0\n1 1 0\n"); // the library would read zeros from there on
    write("atend.ply", text + "end_header");
    const std::string face =
        text + "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0 1 0 0 0 1 0 1 1 0\n";
    write("quad.ply", face + "4 0 1 2 3\n");
    write("cutface.ply", face + "3 0 1\n");
    write("index.ply", face + "3 0 1 4\n");
    write("cut.bin", raw(30) + raw(std::uint64_t(1) << 60) + bytesOf(Point3(0, 0, 0)));
    write("other.bin", "something else altogether");
    write("nan.bin", raw(30) + raw(std::uint64_t(1)) + bytesOf(Point3(std::nan(""), 0, 0)));
    fs::create_directory(directory / "directory.xyz");
    write("good.xyz", squareOfPoints(5));
    write("far.xyz", "0 0 0\n1e12 0 0\n");
    write("out.ply", "an older result");
    const size_t numFiles = countFiles();

    for (const char* arguments :
         {"missing.ply out.ply", "empty.xyz out.ply", "words.xyz out.ply", "cut.ply out.ply", "noheader.ply out.ply",
          "nan.ply out.ply", "atend.ply out.ply", "cut.bin out.ply", "other.bin out.ply", "nan.bin out.ply",
          "directory.xyz out.ply", "good.xyz nowhere/out.ply"})
    {
        const Outcome outcome = run(std::string("reconstruct ") + arguments);
        EXPECT_EQ(outcome.exitCode, 1) << arguments;
        EXPECT_EQ(countLines(outcome.err), 1u) << arguments << ": " << outcome.err;
        EXPECT_EQ(outcome.out, "") << arguments;
    }
    for (const auto& [name, reason] : {std::pair("quad.ply", "aren't triangles"),
                                       {"cutface.ply", "cut short"},
                                       {"index.ply", "index out of range: 4"},
                                       {"directory.xyz", "is a directory"}})
        EXPECT_NE(run(std::string("info ") + name).err.find(reason), std::string::npos) << name;
    const Outcome outcome = run("reconstruct far.xyz out.ply --spacing 0.001"); // the lattice can't hold both points
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.err.find("--spacing"), std::string::npos) << outcome.err;
    EXPECT_EQ(contentOf("out.ply"), "an older result");
    EXPECT_EQ(countFiles(), numFiles); // nothing half written stays behind
}

TEST_F(Tool, generatesWhatWasAskedFor)
{
    for (const std::string shape : {"sphere", "torus", "box", "wave"})
        for (const std::string name : {"a.ply", "a.xyz", "a.bin"})
        {
            ASSERT_EQ(run("generate " + shape + ' ' + name + " --points 1234").exitCode, 0);
            const Outcome info = run("info " + name);
            EXPECT_EQ(valueOf("points", info), "1234") << shape << ' ' << name;
            EXPECT_EQ(valueOf("colours", info), name == "a.ply" ? "yes" : "no");
        }

    ASSERT_EQ(run("generate sphere sphere.xyz --points 2000 --noise 0 --gap 4").exitCode, 0);
    std::istringstream lines(contentOf("sphere.xyz"));
    const double halfGap = 0.5 * 4.0 * std::sqrt(12.566 / 2000.0);
    for (double x, y, z; lines >> x >> y >> z;)
    {
        EXPECT_NEAR(std::sqrt(x * x + y * y + z * z), 1.0, 1e-8);
        EXPECT_TRUE(z <= 0.0 || std::fabs(x) >= halfGap);
    }
}

TEST_F(Tool, infoCountsAMeshByHand)
{
    // A tetrahedron, a fin on one of its edges, a collapsed triangle, and one of its own that comes twice with the same
    // winding. That one has the sides 3, 4 and 5; its vertices stand in the file twice.
    write("mesh.ply", "ply\nformat ascii 1.0\nelement vertex 11\nproperty double x\nproperty double y\n"
                      "property double z\nelement face 8\nproperty list uchar int vertex_indices\nend_header\n"
                      "0 0 0\n1 0 0\n0 1 0\n0 0 1\n0.5 -1 0\n10 0 0\n13 0 0\n10 4 0\n10 0 0\n13 0 0\n10 4 0\n"
                      "3 0 2 1\n3 0 1 3\n3 1 2 3\n3 2 0 3\n3 0 1 4\n3 5 6 10\n3 5 8 6\n3 8 6 10\n");
    const Outcome info = run("info mesh.ply");
    ASSERT_EQ(info.exitCode, 0) << info.err;
    const std::pair<const char*, const char*> expected[] = {
        {"vertices in the file", "11"},
        {"vertices", "8"},
        {"triangles", "7"},
        {"collapsed triangles", "1"},
        {"edges", "11"},
        {"  with 1 triangle", "2"},
        {"  with 2 triangles", "8"},
        {"  with 3 and more", "1"},
        {"  wound against", "3"},
        {"repeated triangles", "1"},
        {"components", "2"},
        {"border loops", "1"},
        {"  open chain", "2 edges, length 2.23607, size 1 1 0, around 0.5 -0.5 0"}, // it ends at the fin's edge
        {"Euler characteristic", "4"},
        {"smallest angles", "least 36.87, median 45.00; 0.00 % below 5, 0.00 % below 10, 0.00 % below 30"},
        {"smallest coordinates", "0 -1 0"},
        {"largest coordinates", "13 4 1"}};
    for (const auto& [label, value] : expected)
        EXPECT_EQ(valueOf(label, info), value) << label;
    const double lengths = 3.0 + 3.0 * std::sqrt(2.0) + 2.0 * std::sqrt(1.25) + 3.0 + 4.0 + 5.0;
    EXPECT_NEAR(std::stod(valueOf("mean edge length", info)), lengths / 11.0, 1e-8);
}

TEST_F(Tool, infoListsBorders)
{
    // A square of 4 x 4 cells with two holes that share a vertex, and a triangle at one of its corners.
    std::vector<std::array<int, 3>> corners = {{0, 0, 0}, {-3, 0, 0}, {0, -4, 0}};
    for (int x = 0; x < 4; ++x)
        for (int y = 0; y < 4; ++y)
            if ((x != 1 || y != 1) && (x != 2 || y != 2))
                corners.insert(
                    corners.end(),
                    {{x, y, 0}, {x + 1, y, 0}, {x + 1, y + 1, 0}, {x, y, 0}, {x + 1, y + 1, 0}, {x, y + 1, 0}});
    write("mesh.stl", stlOf(corners));
    const Outcome info = run("info mesh.stl --loops 3");
    EXPECT_EQ(valueOf("border loops", info), "4") << info.err;
    EXPECT_NE(info.out.find("loop                 16 edges, length 16, size 4 4 0, around 2 2 0\n"
                            "  loop                 3 edges, length 12, size 3 4 0, around -1.5 -2 0\n"
                            "  loop                 4 edges, length 4, size 1 1 0"),
              std::string::npos)
        << info.out;
    EXPECT_EQ(valueOf("  shorter ones", info), "1");
}

TEST_F(Tool, convertsPointsWithoutLoss)
{
    // The first can't be held by floats; colours and their fourth byte go along between PLY files.
    write("far.xyz", "4612345.678 0.1 1e-300\n1 2 3\n");
    write("colors.ply",
          "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\nproperty float z\n"
          "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar alpha\nend_header\n"
          "0.1 2 1e+30 1 2 3 4\n5 6 7 8 9 10 11\n");
    for (const char* ascii : {"", " --ascii"})
    {
        ASSERT_EQ(run(std::string("convert far.xyz far.ply") + ascii).exitCode, 0);
        ASSERT_EQ(run("convert far.ply far.bin").exitCode + run("convert far.bin again.xyz").exitCode, 0);
        std::istringstream numbers(contentOf("again.xyz"));
        for (const double expected : {4612345.678, 0.1, 1e-300, 1.0, 2.0, 3.0})
        {
            double number = 0.0;
            EXPECT_TRUE(numbers >> number && number == expected) << number;
        }
        ASSERT_EQ(run(std::string("convert colors.ply binary.ply") + ascii).exitCode, 0);
        ASSERT_EQ(run("convert binary.ply text.ply --ascii").exitCode, 0);
        EXPECT_EQ(contentOf("text.ply"), contentOf("colors.ply"));
    }
    EXPECT_NE(run("convert colors.ply out.list").err.find("colours are left out"), std::string::npos);
    EXPECT_EQ(contentOf("out.list").find("LIST\n"), 0u);
}

TEST_F(Tool, outputsGoBehindLinksInTheFormatOfTheNameGiven)
{
    write("in.xyz", squareOfPoints(5));
    write("data.bin", "an older result");
    fs::permissions(directory / "data.bin", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("data.bin", directory / "link.xyz");
    fs::create_symlink("new.dat", directory / "dangling.xyz");
    for (const char* name : {"link.xyz", "dangling.xyz"})
    {
        EXPECT_EQ(run(std::string("convert in.xyz ") + name).exitCode, 0) << name;
        EXPECT_TRUE(fs::is_symlink(directory / name));
        EXPECT_EQ(contentOf(name), squareOfPoints(5)) << name;
    }
    EXPECT_EQ(fs::status(directory / "data.bin").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_EQ(mkfifo((directory / "pipe.xyz").c_str(), 0600), 0);
    EXPECT_EQ(run("convert in.xyz pipe.xyz").exitCode, 1);
    EXPECT_TRUE(fs::is_fifo(directory / "pipe.xyz"));
}

TEST_F(Tool, tellsWhatAFormatCanNotHold)
{
    std::string moved;
    std::istringstream lines(squareOfPoints(20, 0.1));
    for (double x, y, z; lines >> x >> y >> z;)
        moved += std::to_string(4500000 + x) + ' ' + std::to_string(y) + " 0\n";
    write("far.xyz", moved);
    ASSERT_EQ(run("generate sphere colors.ply --points 2000").exitCode, 0);
    EXPECT_NE(run("reconstruct far.xyz out.ply").err.find("too many digits"), std::string::npos);
    EXPECT_EQ(run("reconstruct far.xyz out.stl").err, "");
    EXPECT_NE(run("reconstruct colors.ply out.stl").err.find("colours are left out"), std::string::npos);
}

TEST_F(Tool, writesMeshesInAllFormatsAndTellsFullDisks)
{
    write("in.xyz", squareOfPoints(30));
    for (const std::string ending : {"ply", "stl", "obj", "list"})
    {
        ASSERT_EQ(run("reconstruct in.xyz mesh." + ending).exitCode, 0) << ending;
        const std::string whole = contentOf("mesh." + ending);
        EXPECT_GT(whole.size(), 10000u);
        // A limit for the size of files, in blocks of 512 bytes, stands in for a full disk.
        limit = "trap '' XFSZ; ulimit -f 8; ";
        const Outcome outcome = run("reconstruct in.xyz mesh." + ending);
        limit.clear();
        EXPECT_EQ(outcome.exitCode, 1) << ending;
        EXPECT_NE(outcome.err.find("couldn't be written completely"), std::string::npos) << outcome.err;
        EXPECT_EQ(contentOf("mesh." + ending), whole) << ending;
    }
    EXPECT_EQ(countFiles(), 5u);
}

TEST_F(Tool, pointsThatAreNotFiniteAreLeftOutAndCounted)
{
    std::string points =
        raw(30) + raw(std::uint64_t(402)) + bytesOf(Point3(std::nan(""), 0, 0)) + bytesOf(Point3(0, HUGE_VAL, 0));
    for (int i = 0; i < 400; ++i)
        points += bytesOf(Point3(i / 20, i % 20, 0));
    write("points.bin", points);
    write("clean.xyz", squareOfPoints(20));

    const Outcome info = run("info points.bin");
    EXPECT_EQ(valueOf("points", info), "402");
    EXPECT_EQ(valueOf("not finite", info), "2");
    EXPECT_EQ(valueOf("largest coordinates", info), "19 19 0");

    const Outcome outcome = run("reconstruct points.bin with.ply");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("2 of 402 points left out"), std::string::npos) << outcome.err;
    ASSERT_EQ(run("reconstruct clean.xyz without.ply").exitCode, 0);
    EXPECT_EQ(contentOf("with.ply"), contentOf("without.ply"));
}

TEST_F(Tool, closesHolesAlsoFarFromTheOrigin)
{
    const auto sheetWithHole = [](double offset)
    {
        std::ostringstream text;
        for (int i = 0; i < 40; ++i)
            for (int j = 0; j < 40; ++j)
                if (i < 18 || i > 20 || j < 18 || j > 20)
                    text << std::fixed << offset + i << ' ' << offset - j << " 0\n";
        return text.str();
    };
    write("near.xyz", sheetWithHole(0.0));
    write("far.xyz", sheetWithHole(3e9)); // in single precision all cells would be one
    const Outcome near = run("reconstruct near.xyz out.ply --spacing 1 --holes 2");
    EXPECT_EQ(near.exitCode, 0) << near.err;
    EXPECT_EQ(run("reconstruct far.xyz out.ply --spacing 1 --holes 2").out, near.out);
    const Outcome open = run("reconstruct near.xyz out.ply --spacing 1");
    EXPECT_NE(open.out.find("1591 vertices"), std::string::npos) << open.out;
    EXPECT_NE(open.out, near.out);
}

TEST_F(Tool, reconstructsTheSameBytesInEveryProcessForAnyNumberOfThreads)
{
    ASSERT_EQ(run("generate torus torus.ply --points 30000 --noise 0.3 --seed 3").exitCode, 0);
    ASSERT_EQ(run("generate wave wave.ply --points 20000 --noise 0.1 --seed 4").exitCode, 0);
    for (const std::string shape : {"torus", "wave"})
    {
        const std::string arguments = "reconstruct " + shape + ".ply mesh.ply --holes 6 --threads ";
        write("mesh.ply", "an older result");
        const Outcome outcome = run(arguments + "1 --timings");
        const std::string first = contentOf("mesh.ply");
        ASSERT_GT(first.size(), 100000u);
        EXPECT_EQ(first.find("format binary_little_endian"), 4u);
        EXPECT_EQ(countLines(outcome.out), 1u) << outcome.out; // the library's own messages don't mix in
        for (const char* label : {"triangles", "vertices"})
            EXPECT_NE(outcome.out.find(valueOf(label, run("info mesh.ply")) + ' ' + label), std::string::npos) << label;
        for (const char* expected : {"read", "Reconstruct", "CL_eres", "write", " MB"})
            EXPECT_NE(outcome.err.find(expected), std::string::npos) << expected << ':' << outcome.err;
        for (const std::string threads : {"1", "2", "3", "7"})
        {
            const Outcome quiet = run(arguments + threads + " --quiet");
            EXPECT_EQ(quiet.out + quiet.err, "");
            EXPECT_TRUE(contentOf("mesh.ply") == first) << shape << " with " << threads << " threads";
        }
    }
}

TEST_F(Tool, improvesTheMeshAsAsked)
{
    ASSERT_EQ(run("generate torus torus.ply --points 4000 --noise 0.5").exitCode, 0);
    ASSERT_EQ(run("reconstruct torus.ply plain.ply --ascii").exitCode, 0);
    const std::string plain = contentOf("plain.ply");
    EXPECT_EQ(plain.find("format ascii"), 4u);
    for (const char* option :
         {"--factor 2", "--flips 2", "--anneal", "--smooth 2", "--reduce 0.2,20", "--contrast 0.2,0.2"})
    {
        ASSERT_EQ(run(std::string("reconstruct torus.ply other.ply --ascii ") + option).exitCode, 0);
        EXPECT_NE(contentOf("other.ply"), plain) << option;
    }
    for (const char* option : {"--reduce 0.5", "--contrast 0.2", "--contrast 0.2,1.2"})
        EXPECT_EQ(run(std::string("reconstruct torus.ply no.ply ") + option).exitCode, 2) << option;
}

TEST_F(Tool, makesCloudsAndMeshesOfTriangles)
{
    std::vector<std::array<int, 3>> corners; // of a cube of side 8; number i lies at the bits of i
    for (const int i :
         {0, 2, 3, 0, 3, 1, 4, 5, 7, 4, 7, 6, 0, 1, 5, 0, 5, 4, 2, 6, 7, 2, 7, 3, 0, 4, 6, 0, 6, 2, 1, 3, 7, 1, 7, 5})
        corners.push_back({i % 2 * 8, i / 2 % 2 * 8, i / 4 * 8});
    const std::string stl = stlOf(corners);
    write("part.stl", stl);
    ASSERT_EQ(run("melt part.stl mesh.ply --spacing 0.5").exitCode, 0);
    const Outcome info = run("info mesh.ply");
    EXPECT_EQ(valueOf("Euler characteristic", info), "2");
    EXPECT_EQ(valueOf("  with 1 triangle", info), "0");
    ASSERT_EQ(run("melt part.stl thin.ply --spacing 0.5 --reduce 3,5 --timings").exitCode, 0);
    EXPECT_LT(std::stoul(valueOf("triangles", run("info thin.ply"))), std::stoul(valueOf("triangles", info)) / 2);
    ASSERT_EQ(run("cloud part.stl cloud.xyz --spacing 0.5 --feature-angle 20").exitCode, 0);
    EXPECT_EQ(run("info cloud.xyz").exitCode, 0);
    ASSERT_EQ(run("cloud mesh.ply again.bin --spacing 0.5").exitCode, 0); // a mesh is a soup, too

    for (const char* arguments :
         {"melt part.stl no.ply", "melt part.stl no.ply --spacing 0", "cloud part.stl no.stl --spacing 1",
          "melt part.xyz no.ply --spacing 1", "melt part.stl no.ply --spacing 1 --reduce 3"})
        EXPECT_EQ(run(arguments).exitCode, 2) << arguments;
    write("binary.stl", std::string(84, '\0'));
    write("cut.stl", stl.substr(0, stl.size() - 30)); // three corners stand in the last facet
    for (const char* name : {"binary.stl", "cut.stl", "missing.stl"})
    {
        const Outcome outcome = run(std::string("melt ") + name + " no.ply --spacing 0.1");
        EXPECT_EQ(outcome.exitCode, 1) << name;
        EXPECT_EQ(countLines(outcome.err), 1u) << outcome.err;
    }
}
