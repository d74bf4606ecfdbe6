// Reading and writing points in each of their formats, and reading the faces of a mesh; the argument is the number of
// points or faces. The files stay in the page cache: what counts here is the conversion, not the disk.
#include "files/plyMesh.h"
#include "zav/pointFiles.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <stdexcept>
#include <stdlib.h>

using namespace MIRT_ZAV;

namespace
{
using Points = std::vector<Point3>;

/// A directory of its own for every benchmark. It also silences standard output, where the writers report.
struct Place
{
    Place()
    {
        std::string name = (std::filesystem::temp_directory_path() / "zav_formats_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no directory for the files");
        dir = name;
        std::cout.setstate(std::ios::failbit);
    }
    ~Place()
    {
        std::cout.clear();
        std::filesystem::remove_all(dir);
    }
    std::string path(const std::string& name) const { return (dir / name).string(); }

    std::filesystem::path dir;
};

Points somePoints(size_t n)
{
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> coordinate(-1000.0, 1000.0);
    Points points;
    for (size_t i = 0; i < n; ++i)
        points.emplace_back(coordinate(random), coordinate(random), coordinate(random));
    return points;
}

bool write(const std::string& format, const std::string& path, Points& points)
{
    if (format == "xyz")
        return writePoints_ASCII(path.c_str(), points);
    if (format == "bin")
        return writePoints_BIN(path.c_str(), points);
    return writePointsPly(path, points, format == "ply_text");
}

bool read(const std::string& format, const std::string& path, Points& points)
{
    if (format == "xyz")
        return readPoints_ASCII(path.c_str(), points);
    if (format == "bin")
        return readPoints_BIN(path.c_str(), points);
    return readPly(path.c_str(), true, points);
}

/// Reports points and bytes of the file per second.
void setProcessed(benchmark::State& state, const std::string& path)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * std::int64_t(std::filesystem::file_size(path)));
}

void BM_Write(benchmark::State& state, const std::string& format)
{
    const Place place;
    Points points = somePoints(size_t(state.range(0)));
    for (auto _ : state)
    {
        std::filesystem::remove(place.path("a")); // writing over a file may have to wait for the disk
        if (!write(format, place.path("a"), points))
            state.SkipWithError("not written");
    }
    setProcessed(state, place.path("a"));
}

void BM_Read(benchmark::State& state, const std::string& format)
{
    const Place place;
    Points points = somePoints(size_t(state.range(0)));
    write(format, place.path("a"), points);
    for (auto _ : state)
    {
        Points result;
        if (!read(format, place.path("a"), result) || result.size() != points.size())
            state.SkipWithError("not read");
        benchmark::DoNotOptimize(result.data());
    }
    setProcessed(state, place.path("a"));
}

/// A file as colourful meshes give: rows of 16 bytes for vertices, and as many of 13 bytes for faces.
void BM_ReadFaces(benchmark::State& state)
{
    const Place place;
    const auto n = std::uint32_t(state.range(0));
    {
        std::ofstream out(place.path("a"), std::ios::binary);
        out << "ply\nformat binary_little_endian 1.0\nelement vertex " << n
            << "\nproperty float x\nproperty float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
               "property uchar blue\nproperty uchar alpha\nelement face "
            << n << "\nproperty list uchar uint vertex_indices\nend_header\n";
        out << std::string(size_t(n) * 16, '\1');
        for (std::uint32_t i = 0; i < n; ++i)
        {
            const std::uint32_t indices[3] = {i, (i + 1) % n, (i + 7) % n};
            out.put(3);
            out.write(reinterpret_cast<const char*>(indices), sizeof indices);
        }
    }
    for (auto _ : state)
    {
        Points corners;
        if (!readPly(place.path("a").c_str(), false, corners) || corners.size() != 3 * size_t(n))
            state.SkipWithError("not read");
        benchmark::DoNotOptimize(corners.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

const int million = 1000000;
BENCHMARK_CAPTURE(BM_Read, ply_binary, "ply_binary")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Read, ply_text, "ply_text")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Read, bin, "bin")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Read, xyz, "xyz")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, ply_binary, "ply_binary")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, ply_text, "ply_text")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, bin, "bin")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, xyz, "xyz")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadFaces)->Arg(million)->Unit(benchmark::kMillisecond);
} // namespace
