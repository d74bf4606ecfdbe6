// Files that lie: cut off, with counts and types that aren't true, of the wrong kind, with endless lines. Each has to
// give what the public headers say, in memory of the order of the file.
#include "helpers/plain_files.h"
#include "zav/pointFiles.h"
#include "zav/stlFiles.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <malloc.h>
#include <new>

// All memory in use is counted here. The readers have no threads, so that the peak is theirs alone.

static std::atomic<size_t> numBytesInUse{0}, mostBytesInUse{0};

void* operator new(size_t n)
{
    void* const p = std::malloc(n);
    if (p == nullptr)
        throw std::bad_alloc();
    mostBytesInUse = std::max<size_t>(mostBytesInUse, numBytesInUse += malloc_usable_size(p));
    return p;
}
void operator delete(void* p) noexcept
{
    numBytesInUse -= malloc_usable_size(p);
    std::free(p);
}
void operator delete(void* p, size_t) noexcept
{
    operator delete(p);
}

using namespace test;

namespace
{
constexpr size_t MiB = size_t(1) << 20;
const char* const ascii = plyEncodings[0];
const char* const little = plyEncodings[1];

struct Reader
{
    std::function<bool(const char* path, Points& points)> read;
    const char* told[2]; // around a path that can't be read, on standard output
    Points (*plain)(const std::string& bytes) = nullptr;
};
const Reader text = {MIRT_ZAV::readPoints_ASCII, {"", " is unreadable\n"}, plainTextPoints};
const Reader binary = {MIRT_ZAV::readPoints_BIN, {"", " can't be read\n"}, plainBinaryPoints};
const Reader stl = {MIRT_ZAV::readSTL_ASCII, {"readSTL(): ", " is unreadable\n"}, plainStlCorners};
const Reader corners = {MIRT_ZAV::readSTLTriCorners, {"Failed to open ", ""}, plainTriCorners};
const auto readPly = [](bool bPointsOnly)
{ return [=](const char* path, Points& points) { return MIRT_ZAV::readPly(path, bPointsOnly, points); }; };
const Reader plyPoints = {readPly(true), {"readPly, ERROR: ", " not read"}};
const Reader plyCorners = {readPly(false), {"readPly, ERROR: ", " not read"}};

/// What a reader makes of a file.
struct Outcome
{
    Outcome(const Reader& reader, const std::string& path)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const size_t before = mostBytesInUse = numBytesInUse.load();
        bRead = reader.read(path.c_str(), points);
        memory = mostBytesInUse - before;
        told = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
        EXPECT_LT(memory, 256 * MiB);
    }

    bool bRead = false;
    Points points;
    size_t memory = 0;
    std::string told;
};

MemoryFile file;
Points ignored;

Outcome read(const Reader& reader, const std::string& bytes)
{
    return {reader, file.put(bytes)};
}
void expectPoints(const Reader& reader, const std::string& bytes, const Points& expected)
{
    const Outcome outcome = read(reader, bytes);
    EXPECT_TRUE(outcome.bRead) << outcome.told;
    EXPECT_EQ(bytesOf(outcome.points), bytesOf(expected)) << bytes.substr(0, 1000);
}
void expectPlain(const Reader& reader, const std::string& bytes)
{
    expectPoints(reader, bytes, reader.plain(bytes));
}

std::string header(const std::string& encoding, const std::string& elements)
{
    return "ply\nformat " + encoding + " 1.0\n" + elements + "end_header\n";
}
std::string vertices(const std::string& count, const std::string& more = "")
{
    return "element vertex " + count + "\nproperty float x\nproperty float y\nproperty float z\n" + more;
}
std::string faces(const std::string& count, const std::string& type = "uchar int")
{
    return "element face " + count + "\nproperty list " + type + " vertex_indices\n";
}
} // namespace

TEST(HostileFiles, CutAtEveryByte)
{
    for (const std::string& whole : {smallText(), smallBinary(true), smallBinary(false), smallStl()})
        for (size_t n = 0; n <= whole.size(); ++n)
            for (const Reader* const reader : {&text, &binary, &stl, &corners})
                expectPlain(*reader, whole.substr(0, n));

    for (const char* encoding : plyEncodings)
        for (const std::string& whole : {smallPly(encoding), richPly(encoding, 3, ignored, ignored)})
            for (size_t n = 0; n <= whole.size(); ++n)
                for (const Reader* const reader : {&plyPoints, &plyCorners})
                {
                    const Outcome outcome = read(*reader, whole.substr(0, n));
                    if (n < whole.find("end_header\n") + 11) // points of zeros, or none
                        for (const Point3& p : outcome.points)
                            EXPECT_EQ(p, Point3());
                    else if (encoding == ascii) // as if a word followed that is no number
                        expectPoints(*reader, whole.substr(0, n) + " x", outcome.points);
                    else // as if zeros followed, and a warning says so
                    {
                        EXPECT_TRUE(reader == &plyPoints || n == whole.size() ||
                                    outcome.told.find("zeros follow") != std::string::npos);
                        expectPoints(*reader, whole.substr(0, n) + std::string(whole.size() - n, '\0'), outcome.points);
                    }
                }
}

TEST(HostileFiles, CountsThatLie)
{
    const Points two = {{1, 2, 3}, {4, 5, 6}};
    for (const std::uint64_t count : {std::uint64_t(0), ~std::uint64_t(0), std::uint64_t(1) << 31,
                                      std::uint64_t(1) << 62, std::uint64_t(1e18), std::uint64_t(MiB) + 5})
    {
        const Outcome outcome = read(binary, raw(30) + raw(count) + bytesOf(two));
        EXPECT_EQ(bytesOf(outcome.points), bytesOf(count == 0 ? Points() : two)) << count;
        EXPECT_EQ(outcome.told.find(" points too early\n") == std::string::npos, count == 0);
    }
    expectPlain(binary, raw(30) + raw(std::uint64_t(MiB) + 4) + bytesOf(two));       // filled up
    expectPlain(binary, raw(20) + raw(std::uint64_t(1)) + std::string(300000, 'x')); // and bytes behind

    for (const char* encoding : plyEncodings)
    {
        for (const char* count : {"-1", "2147483648", "4611686018427387904", "1e18", "1000000000000000000",
                                  "18446744073709551615", "18446744073709551616", "400000"})
        {
            const bool bOne = std::string(count) == "1e18"; // a whole number ends at the e
            EXPECT_EQ(read(plyPoints, header(encoding, vertices(count)) + "\1\2").bRead, bOne) << count;
            EXPECT_EQ(read(plyCorners, header(encoding, vertices("1") + faces(count)) + "0 0 0 ").bRead, bOne) << count;
            // Rows without properties are no bytes.
            expectPoints(plyPoints, header(encoding, "element none " + std::string(count) + '\n' + vertices("2")),
                         Points(2));
        }
        // A face whose list is missing gives vertex 0 three times, as long as the file has about as many bytes.
        const Outcome few = read(plyCorners, header(encoding, vertices("1") + faces("80000")));
        EXPECT_EQ(few.points.size(), 240000u);
        EXPECT_LT(few.memory, 32 * MiB);
        const Outcome many = read(plyCorners, header(encoding, vertices("0") + faces("3000000")) +
                                                  std::string(6000000, encoding == ascii ? '0' : '\0'));
        EXPECT_FALSE(many.bRead);
        EXPECT_NE(many.told.find("too short"), std::string::npos);
    }
}

TEST(HostileFiles, ListsAndTypesThatLie)
{
    using Row = std::pair<std::string, std::string>;
    const std::string zeros(24, '\0');
    // Lists longer than the file hide the rest of it.
    const Row endless[] = {
        {"uint double", raw(0xffffffffu)}, {"int char", raw(0x7fffffff)}, {"double double", raw(9e15)}};
    for (const auto& [type, count] : endless)
    {
        const std::string elements = "element a 2\nproperty list " + type + " l\n" + vertices("2");
        expectPoints(plyPoints, header(little, elements) + count + zeros + '\7', Points(2));
        expectPoints(plyPoints, header(ascii, elements) + "2147483647 1 2 3 4 5 6", Points(2));
    }
    // Counts and indices that can't be, the latter as wide as their type says.
    const std::string lists[] = {"float int",     raw(-1.0f),   "float int",    raw(std::nanf("")),
                                 "double int",    raw(1e300),   "int int",      raw(-1),
                                 "char int",      "\xff",       "strange int",  "\3",
                                 "uchar strange", "\3",         "uchar float",  "\3",
                                 "uchar char",    "\3\xff",     "uchar uchar",  "\3\xff",
                                 "uchar short",   "\3\xff\xff", "uchar ushort", "\3\2",
                                 "uchar uint",    "\3\2",       "uchar int",    raw('\3') + raw(1 << 31)};
    for (size_t i = 0; i < std::size(lists); i += 2)
    {
        const std::string elements = vertices("2") + faces("1", lists[i]);
        EXPECT_FALSE(read(plyCorners, header(little, elements) + zeros + lists[i + 1] + zeros).bRead) << lists[i];
    }
    // An element without rows may have anything, but colours for nobody end in false.
    for (const Reader* const reader : {&plyPoints, &plyCorners})
    {
        expectPoints(*reader, header(little, vertices("0", "property list strange thing l\n") + faces("0")), {});
        const std::string colors = "property uchar red\nproperty uchar green\nproperty uchar blue\n";
        EXPECT_FALSE(read(*reader, header(little, vertices("0", colors) + faces("0"))).bRead);
    }
    // An unknown line ends the header; what was declared before it is read.
    expectPoints(plyPoints, "ply\n" + vertices("1") + "what is this\n1 2 3", {{1, 2, 3}});
    EXPECT_FALSE(read(plyPoints, "ply\nelement vertex 1\nwhat is this\n" + vertices("1")).bRead);
    // Of equal names the first one is meant, the others are read over.
    const std::string others = "property float x\nelement vertexx 1\nproperty char y\n";
    expectPoints(plyPoints, header(ascii, vertices("1", others) + vertices("9")) + "1 2 3 4 5 6", {{1, 2, 3}});
    // Other ends of line; in binary files NaN and infinity come through bit by bit.
    expectPoints(plyPoints, "ply\r\nformat ascii 1.0\r\n" + vertices("1") + "end_header\r\n1\r\n2\r\n3", {{1, 2, 3}});
    const Points odd = {{std::nan("7"), -HUGE_VAL, 5e-324}};
    expectPoints(binary, raw(30) + raw(std::uint64_t(1)) + bytesOf(odd), odd);
    const std::string doubles = "element vertex 1\nproperty double x\nproperty double y\nproperty double z\n";
    expectPoints(plyPoints, header(little, doubles) + bytesOf(odd), odd);
}

TEST(HostileFiles, FilesOfAnotherKind)
{
    const std::string directory = std::filesystem::temp_directory_path().string();
    for (const Reader* const reader : {&text, &binary, &stl, &corners, &plyPoints, &plyCorners})
    {
        // The directory and the last one can be opened, and then not read.
        for (const std::string& path : {directory, directory + "/none/none", std::string("/proc/self/mem")})
        {
            const Outcome outcome(*reader, path);
            EXPECT_FALSE(outcome.bRead) << path;
            EXPECT_NE(outcome.told.find(reader->told[0] + path + reader->told[1]), std::string::npos) << outcome.told;
            EXPECT_EQ(outcome.told.find(path), outcome.told.rfind(path)) << "told once";
        }
        EXPECT_TRUE(read(*reader, "").points.empty());
    }
    for (const std::string& bytes : {smallText(), smallStl(), smallBinary(true)})
        EXPECT_FALSE(read(plyPoints, bytes).bRead);
}

TEST(HostileFiles, EndlessLines)
{
    const auto expect = [](const Reader& reader, const std::string& before, const std::string& part,
                           const std::string& behind, const Points& expected, bool bRead = true)
    {
        std::string block;
        while (block.size() < MiB)
            block += part;
        file.put(before);
        for (size_t n = 0; n < 100000000; n += block.size())
            file.append(block);
        const Outcome outcome(reader, file.append(behind));
        EXPECT_EQ(outcome.bRead, bRead) << before << part;
        EXPECT_EQ(bytesOf(outcome.points), bytesOf(expected)) << before << part;
    };
    const Points one = {{1, 2, 3}};
    expect(text, "1 2 ", "7", "\n1 2 3\n", one); // too large for a number
    expect(stl, "outer loop\nvertex 1 2 3", " vertex", "endloop\nvertex 4 5 6", {});
    expect(corners, "1 2 ", "v", "vertex 1 2 3 4\nvertex 1 2 3", {one[0], one[0]});
    expect(stl, "outer loop\n", "vertex", " 1 2 3\nendloop\nvertex 4 5 6", one);
    for (const std::string line : {"comment ", "ply\n", "comment\n", " "})
        expect(plyPoints, "ply\n" + line, line, "", {}, false);
    expect(plyPoints, header(ascii, "element a 1\nproperty int skipped\n" + vertices("1")), "x", " 1 2 3", one);
    expect(plyCorners, header(ascii, vertices("1") + faces("1", "int int")) + "1 2 3 50000000 ", "0 ", "", {3, one[0]});
}
