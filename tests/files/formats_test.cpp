// File formats: point files, PLY, and the choice of a format by name.
#include "files/plyMesh.h"
#include "files/tinyply.h"
#include "helpers/capture.h"
#include "helpers/plain_files.h"
#include "refined/RMesh.h"
#include "zav/zav_api_io.h"

#include <array>
#include <cfloat>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iomanip>
#include <limits>
#include <locale>
#include <map>
#include <random>
#include <sstream>
#include <tuple>
#include <unistd.h>

using namespace MIRT_ZAV;
using test::bytesOf, test::Points, test::randomPoints, test::raw;

namespace
{
class Formats : public test::InDirectory
{
protected:
    std::string put(const std::string& name, const std::string& bytes) const
    {
        std::filesystem::remove(path(name)); // writing over a file again and again is far slower
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    bool readPlyText(const std::string& bytes, Points& points, bool bPointsOnly = true) const
    {
        return readPly(put("in.ply", bytes).c_str(), bPointsOnly, points);
    }
};

std::string floatsOf(const Point3& p)
{
    return raw(float(p.x())) + raw(float(p.y())) + raw(float(p.z()));
}

void expectSame(const Points& actual, const Points& expected)
{
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        ASSERT_EQ(bytesOf(actual[i]), bytesOf(expected[i])) << i << ": " << actual[i] << expected[i];
}

Points roundedToFloat(const Points& points)
{
    Points result;
    for (const Point3& p : points)
        result.emplace_back(float(p.x()), float(p.y()), float(p.z()));
    return result;
}

const char* const pointHeader = "element vertex 2\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
} // namespace

TEST_F(Formats, FileTypesByTheEndOfTheName)
{
    const std::pair<const char*, int> cases[] = {{"a.Stl", 0}, {".ply", 1},    {"a.Xyz", 2},  {"a.TXT", 2},
                                                 {"a.asc", 2}, {"a.BIN", 3},   {"a.list", 4}, {"list", 5},
                                                 {"a.xYz", 5}, {"a.ply.gz", 5}};
    for (const auto& [name, type] : cases)
        EXPECT_EQ(getFileType(name), type) << name;
    EXPECT_THROW(getFileType("ply"), std::out_of_range);
}

TEST_F(Formats, AutoPicksReaderAndWriter)
{
    Points points = randomPoints(100), read;
    const Points rounded = roundedToFloat(points);
    for (const std::string name : {"a.xyz", "a.bin", "a.Ply"})
    {
        std::string file = path(name);
        ASSERT_TRUE(writePoints_auto(file, points, false) && readPoints_auto(file, read = {}));
        expectSame(read, name == "a.Ply" ? rounded : points);
    }
    testing::internal::CaptureStderr();
    std::string stl = path("a.stl");
    EXPECT_FALSE(readPoints_auto(stl, points));
    // The data go to the name that was given, not to the one in the message.
    EXPECT_FALSE(writePoints_auto(path("a.dat"), points, true));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Filename extension of [" + path("a.stl") + "] is not valid, expected *.ply, *.xyz or *.bin\n" +
                  "Filename [" + path("a.dat") + "] is not valid, using [zav_output_bin.ply] instead\n");
    EXPECT_EQ(contentOf("a.dat").substr(0, 21), "ply\nformat ascii 1.0\n");
}

TEST_F(Formats, BinaryPointsByteForByte)
{
    Points points = {{1.5, -2.5, 1e300}};
    points[0].setColor(1, 2, 3, 4);
    ASSERT_TRUE(writePoints_BIN(path("a.bin").c_str(), points));
    EXPECT_EQ(contentOf("a.bin"), raw(30) + raw(std::uint64_t(1)) + bytesOf(points[0]));

    // Reading appends; points of type 20 lie at z 0.
    put("c.bin", raw(20) + raw(std::uint64_t(2)) + raw(1.0) + raw(2.0) + raw(3.0) + raw(4.0));
    ASSERT_TRUE(readPoints_BIN(path("c.bin").c_str(), points));
    expectSame(points, {{1.5, -2.5, 1e300}, {1, 2, 0}, {3, 4, 0}});
    EXPECT_FALSE(points[1].hasColor());

    testing::internal::CaptureStdout();
    EXPECT_TRUE(readPoints_BIN(put("d.bin", raw(10) + bytesOf(points[0])).c_str(), points));
    EXPECT_EQ(points.size(), 3u);
    EXPECT_FALSE(readPoints_BIN(path("none.bin").c_str(), points));
    EXPECT_FALSE(writePoints_BIN(path("none/a.bin").c_str(), points));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), path("d.bin") + " has wrong filetype 10, expected: 30 or 20\n" +
                                                          path("none.bin") + " can't be read\n" + path("none/a.bin") +
                                                          " can't be written\n");
}

TEST_F(Formats, TextPointsAreThoseOfAStream)
{
    std::mt19937 random(7);
    const auto below = [&random](unsigned n) { return random() % n; };
    const std::vector<std::string> parts = {"0",   "1",   "9",     "00",  ".",     "-",     "+",   "e",  "E",
                                            "e-",  "e+3", " ",     " ",   " ",     "\t",    "\r",  "\v", "\f",
                                            ",",   "x",   "nan",   "inf", "12345", "e5",    "1.5", "-7", "#",
                                            "308", "999", "e-320", "\n",  "\n",    "0x1p3", "_"};
    std::string text = "\t1e1\v.5\f-1.e-1\r\n1-2-3\n1 2 inf\n1 2 3abc\n1 2 1e999\n1 2 1e-999\n1.2.3.4\n1e5e5 1 1\n";
    for (int i = 0; i < 200000; ++i)
        text += parts[below(unsigned(parts.size()))];
    text += std::string(1, '\0') + "1 2 3\n1 2 3" + std::string(1, '\0') + "\n";
    text += std::string(600000, ' ') + "1 2 3\n1 " + std::string(300000, '1') + " 3\n4 5 6";
    for (int i = 0; i < 20000; ++i)
    {
        // Random bits are numbers of any magnitude; with up to 25 digits they catch a reader that rounds by itself.
        std::ostringstream line;
        for (int axis = 0; axis < 3; ++axis)
        {
            const std::uint64_t bits = (std::uint64_t(random()) << 32) | random();
            double value;
            std::memcpy(&value, &bits, sizeof value);
            line << std::setprecision(int(1 + below(25))) << value << (below(9) == 0 ? "\t" : " ");
        }
        (text += '\n') += line.str();
    }
    const Points expected = test::plainTextPoints(text);
    ASSERT_GT(expected.size(), 18000u);
    Points points;
    ASSERT_TRUE(readPoints_ASCII(put("a.xyz", text).c_str(), points));
    expectSame(points, expected);
    EXPECT_EQ(test::outputOf([&] { EXPECT_FALSE(readPoints_ASCII(path("none.xyz").c_str(), points)); }),
              path("none.xyz") + " is unreadable\n");
}

TEST_F(Formats, TextPointsAreWrittenWith18Digits)
{
    Points points = randomPoints(2000);
    for (const double x : {0.0, -0.0, 0.1, 1e100, DBL_MIN / 8, DBL_MAX, 123456789012345678.0, 1e17, 1e18, 1e-5, 1e-4})
        points.emplace_back(x, -x, std::nextafter(x, 1.0));
    points.emplace_back(std::numeric_limits<double>::infinity(), std::nan(""), 0.0);
    std::ostringstream expected;
    expected << std::setprecision(18);
    for (const Point3& p : points)
        expected << p.x() << ' ' << p.y() << ' ' << p.z() << '\n';
    ASSERT_TRUE(writePoints_ASCII(path("a.txt").c_str(), points));
    EXPECT_EQ(contentOf("a.txt"), expected.str());

    points.pop_back(); // not a number isn't read back
    Points read;
    ASSERT_TRUE(readPoints_ASCII(path("a.txt").c_str(), read));
    expectSame(read, points);
}

TEST_F(Formats, PlyPointFiles)
{
    Points points = {{0.1234567, -2, 1e10}, {1.0 / 3.0, 0, 100000}};
    points[0].setColor(9, 9, 9, 9);
    EXPECT_EQ(test::outputOf([&] { ASSERT_TRUE(writePointsPly(path("a.ply"), points, true)); }),
              "writePointsPly, received 2 points\n");
    test::outputOf([&] { ASSERT_TRUE(writePointsPly(path("b.ply"), points, false)); });
    const std::string header = pointHeader;
    EXPECT_EQ(contentOf("a.ply"), "ply\nformat ascii 1.0\n" + header + "0.123457 -2 1e+10 \n0.333333 0 100000 \n");
    EXPECT_EQ(contentOf("b.ply"),
              "ply\nformat binary_little_endian 1.0\n" + header + floatsOf(points[0]) + floatsOf(points[1]));

    testing::internal::CaptureStderr();
    EXPECT_FALSE(writePointsPly(path("none/a.ply"), points, true));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Can't write " + path("none/a.ply") + "\n");
}

TEST_F(Formats, PlyMeshFiles)
{
    RMesh mesh(1.0);
    Point3* const v[4] = {mesh.createVertex({0, 0, 0}), mesh.createVertex({1, 0, 0}), mesh.createVertex({1, 1, 0}),
                          mesh.createVertex({0, 1, 0.1234567})};
    v[2]->setColor(1, 2, 3, 255);
    v[3]->g = 77; // a byte without the flag is written all the same
    mesh.createT(v[0], v[1], v[3])->kill(&mesh);
    mesh.createT(v[2], v[3], v[0]);
    mesh.createT(v[0], v[1], v[2]);

    const std::string header = "element vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
                               "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar alpha\n"
                               "element face 2\nproperty list uchar uint vertex_indices\nend_header\n";
    ASSERT_TRUE(PLY::writePly(&mesh, path("a.ply"), true));
    EXPECT_EQ(contentOf("a.ply"), "ply\nformat ascii 1.0\n" + header +
                                      "1 1 0 1 2 3 255 \n0 1 0.123457 0 77 0 0 \n0 0 0 0 0 0 0 \n1 0 0 0 0 0 0 \n"
                                      "3 0 1 2 \n3 2 3 0 \n");
    ASSERT_TRUE(PLY::writePly(&mesh, path("b.ply"), false));
    std::string body;
    for (const Point3* const p : {v[2], v[3], v[0], v[1]})
        body += floatsOf(*p) + raw(p->r) + raw(p->g) + raw(p->b) + raw(p->a);
    for (const auto& [a, b, c] : {std::array<std::uint32_t, 3>{0, 1, 2}, {2, 3, 0}})
        body += "\3" + raw(a) + raw(b) + raw(c);
    EXPECT_EQ(contentOf("b.ply"), "ply\nformat binary_little_endian 1.0\n" + header + body);

    Points read;
    ASSERT_TRUE(readPly(path("b.ply").c_str(), false, read));
    expectSame(read, roundedToFloat({*v[2], *v[3], *v[0], *v[0], *v[1], *v[2]}));
    EXPECT_FALSE(read[0].hasColor());

    EXPECT_NE(test::outputOf([&] { EXPECT_FALSE(PLY::writePly(&mesh, path("none/a.ply"), true)); })
                  .find(", ERROR: Failed, filename=" + path("none/a.ply")),
              std::string::npos);
}

TEST_F(Formats, PlyReadsAllEncodings)
{
    for (const char* encoding : test::plyEncodings)
        for (const size_t n : {1u, 1000u, 20001u})
        {
            SCOPED_TRACE(encoding);
            Points vertices, corners, read = {{1, 2, 3}};
            const std::string file = test::richPly(encoding, n, vertices, corners);
            ASSERT_TRUE(readPlyText(file, read));
            expectSame(read, vertices);
            for (size_t i = 0; i < n; ++i)
                ASSERT_TRUE(read[i].hasColor() && std::memcmp(&read[i].r, &vertices[i].r, 4) == 0) << i;
            const std::string told =
                "numPoints=" + std::to_string(3 * n) + ", numColors=" + std::to_string(n) + " colors not used";
            EXPECT_NE(test::outputOf([&] { ASSERT_TRUE(readPlyText(file, read, false)); }).find(told),
                      std::string::npos);
            expectSame(read, corners);
            EXPECT_FALSE(read[0].hasColor());
        }
}

TEST_F(Formats, PlyColorsAndTypes)
{
    Points points;
    const auto read = [&](const std::string& types, const std::string& names, const std::string& values)
    {
        // The types are named by letters, the properties by words.
        const std::map<char, std::string> typeNames = {{'i', "int"},   {'f', "float"},  {'u', "uchar"},
                                                       {'s', "short"}, {'S', "ushort"}, {'d', "double"}};
        std::istringstream words("x y z " + names);
        std::string header = "ply\nformat ascii 1.0\nelement vertex 1\n", name;
        for (const char type : types)
            header += "property " + typeNames.at(type) + ' ' + (words >> name ? name : "?") + '\n';
        return readPlyText(header + "end_header\n" + values, points = {});
    };
    using Color = std::array<int, 5>; // first whether there is one
    const std::string rgb = "red green blue";
    const std::tuple<std::string, std::string, std::string, Color> cases[] = {
        {"iii", "", "", {0, 0, 0, 0, 0}},
        {"iiifff", rgb, "0.5 1 0.01", {1, 127, 255, 2, 0}},
        {"iiifff", rgb, "510 255 1", {1, 255, 127, 0, 0}},
        {"iiiuuuf", rgb + " alpha", "9 8 7 0.5", {1, 9, 8, 7, 0}},
        {"iiiffff", rgb + " alpha", "1 0 0 0.5", {1, 255, 0, 0, 127}},
        {"iiiuuuf", rgb + " scalar_Intensity", "9 8 7 300", {1, 9, 8, 7, 44}},
        {"iiiuuuuu", rgb + " scalar_Intensity alpha", "9 8 7 5 6", {1, 9, 8, 7, 6}},
        {"iiiuu", "red blue", "9 8", {0, 0, 0, 0, 0}},
        {"iiifff", rgb, "-1e30 -1 255", {1, 0, 255, 255, 0}}, // no integer holds the first value
        {"iiiSSS", rgb, "1 1 1", {0, 0, 0, 0, 0}},
    };
    testing::internal::CaptureStdout();
    for (const auto& [types, names, values, color] : cases)
    {
        ASSERT_TRUE(read(types, names, "-1 2 3 " + values)) << types << names;
        const Point3& p = points.at(0);
        EXPECT_EQ(p, Point3(-1, 2, 3));
        EXPECT_EQ((Color{p.hasColor(), p.r, p.g, p.b, p.a}), color) << types << names << values;
    }
    for (const char* types : {"sss", "fdf", "ff"})
        EXPECT_FALSE(read(types, "", "1 2 3"));
    EXPECT_NE(testing::internal::GetCapturedStdout().find("unsupported type in , ERROR: readPly"), std::string::npos);
}

TEST_F(Formats, PlyFacesOfOtherWidthsAndValuesThatAStreamRefuses)
{
    Points points;
    const std::string ascii = std::string("ply\nformat ascii 1.0\n") + pointHeader;
    // Nothing is read behind a value that a stream refuses.
    const std::pair<const char*, Points> cases[] = {{"1-2-3\n+4 .5 6e0", {{1, -2, -3}, {4, 0.5, 6}}},
                                                    {"1 2 nan\n4 5 6", {{1, 2, 0}, {0, 0, 0}}},
                                                    {"1 2 1e39\n4 5 6", {{1, 2, FLT_MAX}, {0, 0, 0}}}};
    for (const auto& [text, expected] : cases)
    {
        ASSERT_TRUE(readPlyText(ascii + text, points));
        expectSame(points, expected);
    }
    const auto read = [&](const std::string& body)
    {
        const std::string vertex = "ply\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n";
        const std::string face = "element face 2\nproperty list uchar int vertex_indices\nend_header\n";
        return readPlyText(vertex + face + body, points, false);
    };
    const std::string four = "0 0 0 1 0 0 2 0 0 3 0 0\n";
    // Indices run on across faces, three are taken for each: 0 1 2 | 3 3 2 of the first file, 1 2 3 | 0 0 0 of the
    // second.
    ASSERT_TRUE(read(four + "4 0 1 2 3\n5 3 2 1 0 3"));
    expectSame(points, {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {3, 0, 0}, {2, 0, 0}});
    ASSERT_TRUE(read(four + "2 1 2\n1 3"));
    expectSame(points, {{1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}});
}

TEST(Ply, WrongHeadersAndRequestsAreRefused)
{
    std::istringstream bad("what is this\nend_header\n"), orphan("property int x\n"),
        in("comment  two\ncomment\nelement v 1\nproperty int x\nproperty weird w\nend_header\n1 2");
    EXPECT_FALSE(PLY::PlyFile().parse_header(bad));
    EXPECT_THROW(PLY::PlyFile().parse_header(orphan), std::runtime_error);
    PLY::PlyFile file;
    EXPECT_TRUE(file.parse_header(in));
    EXPECT_EQ(file.getComments(), std::vector<std::string>({" two", ""}));
    for (const std::vector<std::string>& keys : {{}, {"x", "r"}, std::vector<std::string>{"x", "x"}})
        EXPECT_THROW(file.request_properties_from_element("v", keys, 0), std::invalid_argument);
    file.request_properties_from_element("v", {"x"}, 0); // nothing of the failed requests is left
    EXPECT_THROW(file.read(in), std::invalid_argument);  // "weird"
}

TEST(Ply, EqualNamesMeanTheFirstOne)
{
    // "v" + "xy" and "vx" + "y" hash to the same key, which must not bring values of one to the buffer of the other.
    std::istringstream in("element v 2\nproperty int xy\nproperty int xy\nelement vx 2\nproperty int y\n"
                          "element v 2\nproperty int xy\nend_header\n1 2 3 4 5 6 7 8");
    PLY::PlyFile file;
    file.parse_header(in);
    const auto data = file.request_properties_from_element("v", {"xy"}, 0);
    EXPECT_THROW(file.request_properties_from_element("vx", {"y"}, 0), std::invalid_argument);
    file.read(in);
    ASSERT_EQ(data->buffer.sizeInBytes(), 8u);
    EXPECT_EQ(std::memcmp(data->buffer.get(), (raw(1) + raw(3)).data(), 8), 0);
}

TEST(Ply, ListsAndGroupsRoundTrip)
{
    std::vector<float> ab = {1, 2, 3, 4, 5, 6};
    std::vector<std::int16_t> lists = {1, -2, 3, -4, 5, -6};
    std::vector<std::int8_t> c = {-1, 0, 1};
    const auto bytes = [](auto& v) { return reinterpret_cast<std::uint8_t*>(v.data()); };
    for (const bool bBinary : {false, true})
    {
        std::stringstream stream;
        PLY::PlyFile writer;
        writer.getComments().push_back("made by hand");
        writer.add_properties_to_element("e", {"a", "b"}, PLY::Type::FLOAT32, 3, bytes(ab), PLY::Type::INVALID, 0);
        writer.add_properties_to_element("e", {"l"}, PLY::Type::INT16, 3, bytes(lists), PLY::Type::UINT32, 2);
        writer.add_properties_to_element("e", {"c"}, PLY::Type::INT8, 3, bytes(c), PLY::Type::INVALID, 0);
        writer.write(stream, bBinary);
        const std::string text = bBinary ? "" : stream.str();
        EXPECT_EQ(text, bBinary ? ""
                                : "ply\nformat ascii 1.0\ncomment made by hand\nelement e 3\nproperty float a\n"
                                  "property float b\nproperty list uint short l\nproperty char c\nend_header\n"
                                  "1 2 2 1 -2 -1 \n3 4 2 3 -4 0 \n5 6 2 5 -6 1 \n");
        for (const size_t hint : {0u, 1u, 2u}) // counted, too short, exact
        {
            std::istringstream in(stream.str());
            PLY::PlyFile reader;
            reader.parse_header(in);
            const auto data = reader.request_properties_from_element("e", {"l"}, hint);
            reader.read(in);
            ASSERT_TRUE(data->isList && data->count == 3 && data->buffer.sizeInBytes() == 12);
            EXPECT_EQ(std::memcmp(data->buffer.get(), lists.data(), 12), 0);
        }
    }
}
