#include "meshRun.h"

#include "ProgressBar.h"
#include "commands.h"
#include "console.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>

namespace zavtool
{
namespace
{
void printTiming(int depth, const std::string& label, double seconds, long peakMemoryKB)
{
    std::fprintf(stderr, "%*s%-*s %9.3f s", 2 * depth, "", 24 - 2 * depth, label.c_str(), seconds);
    if (peakMemoryKB > 0)
        std::fprintf(stderr, " %9.1f MB", static_cast<double>(peakMemoryKB) / 1024.0);
    std::fputc('\n', stderr);
}

/// toObj doesn't return whether it could write. A look at the file does: it has a line for each vertex and triangle.
bool writeObj(const MIRT_ZAV::MeshPtr& mesh, const std::string& path)
{
    MIRT_ZAV::toObj(mesh, path);
    std::vector<MIRT_ZAV::Point3*> vertices;
    mesh->getPoints(vertices);
    std::ifstream in(path);
    const auto numLines = std::count(std::istreambuf_iterator<char>(in), {}, '\n');
    return static_cast<size_t>(numLines) == vertices.size() + mesh->getNumT();
}

bool writeMeshFile(const MIRT_ZAV::MeshPtr& mesh, const std::string& path, bool bAscii)
{
    return getType(path) == FileType::obj ? writeObj(mesh, path) : MIRT_ZAV::writeMesh_auto(path, mesh, !bAscii);
}

/// By how much a coordinate of 1 can be off in the file, at worst.
double getRounding(FileType type, bool bAscii)
{
    if (type == FileType::stl)
        return 5e-10; // 10 digits
    if (type == FileType::list)
        return 5e-15;
    return type == FileType::obj || bAscii ? 5e-6 : 6e-8; // 6 digits, or the 24 bits of a float
}

double getLargestCoordinate(const std::vector<MIRT_ZAV::Point3*>& points)
{
    double largest = 0.0;
    for (const MIRT_ZAV::Point3* const p : points)
        largest = std::max(largest, (*p - MIRT_ZAV::Point3()).getMaxAbsComponent());
    return largest;
}

/// Says what the file can't hold.
void tellLosses(const MIRT_ZAV::Mesh& mesh, const std::string& path, bool bAscii)
{
    const FileType type = getType(path);
    std::vector<MIRT_ZAV::Point3*> vertices;
    mesh.getPoints(vertices);
    const bool bColors = std::any_of(vertices.begin(), vertices.end(), [](const auto* p) { return p->hasColor(); });
    if (bColors && (type == FileType::stl || type == FileType::obj))
        tell("the colours are left out: of mesh files only .ply and .list keep them");
    if (getLargestCoordinate(vertices) * getRounding(type, bAscii) > 0.05 * mesh.getAverageEdgeLength())
        tell("the coordinates have too many digits for this format, vertices are moved: bring the points nearer to the "
             "origin, or write .list");
}

/// \throws Failure  for vertices that the file would hold as infinite, or all at one place
void refuseOutOfRange(const MIRT_ZAV::Mesh& mesh, const std::string& path)
{
    std::vector<MIRT_ZAV::Point3*> vertices;
    mesh.getPoints(vertices);
    if (!std::all_of(vertices.begin(), vertices.end(), [](const auto* p) { return p->isFinite(); }))
        throw Failure("the coordinates are too large to work with; scale the points down");
    if (getType(path) != FileType::ply)
        return;
    refuseBeyondFloats(getLargestCoordinate(vertices), path);
    constexpr double leastStep = std::numeric_limits<float>::denorm_min();
    if (mesh.getAverageEdgeLength() < 100.0 * leastStep)
        throw Failure(path + " can't hold such small coordinates: PLY has 32-bit floats; scale the points up, or write "
                             ".list");
}

ProgressBar& getBar()
{
    static ProgressBar bar; // the library never lets go of a subscriber
    return bar;
}
} // namespace

void addRunOptions(CLI::App& command, RunOptions& options)
{
    command.add_option("--threads", options.numThreads, "Number of threads; 0 for all of the machine")
        ->check(CLI::Range(0, 1024))
        ->capture_default_str();
    command.add_flag("--ascii", options.bAscii, "Write the text form of PLY instead of the binary one");
    command.add_flag("--timings", options.bTimings,
                     "Print the tree of stages with time and peak memory on standard error");
    command.add_flag("--quiet", options.bQuiet, "Print nothing but failures, and the timings if asked for");
}

void addReduceOption(CLI::App& command, std::vector<double>& bounds)
{
    command
        .add_option(
            "--reduce", bounds,
            "Remove triangles by collapsing edges: LENGTH,ANGLE. No edge longer than LENGTH goes, no triangle turns "
            "by more than ANGLE degrees at a time")
        ->delimiter(',')
        ->expected(2)
        ->check(notNegativeNumber());
}

void reduceMesh(const MIRT_ZAV::MeshPtr& mesh, const std::vector<double>& bounds, Timings& timings)
{
    if (!mesh || bounds.empty())
        return;
    MIRT_ZAV::reduce(mesh, bounds[0], bounds[1]);
    timings.addRun();
}

void Timings::addRun()
{
    const std::vector<MIRT_ZAV::StageTiming> last = MIRT_ZAV::getStageTimings();
    stages.insert(stages.end(), last.begin(), last.end());
}

void Timings::print() const
{
    std::fprintf(stderr, "%-24s %11s %12s\n", "stage", "time", "peak memory");
    printTiming(0, "read", readSeconds, 0);
    for (const MIRT_ZAV::StageTiming& stage : stages)
        printTiming(stage.depth, stage.label, stage.seconds, stage.peakMemoryKB);
    printTiming(0, "write", writeSeconds, 0);
}

ShowProgress::ShowProgress(const RunOptions& options)
{
    if (isTerminal() && !options.bQuiet)
        MIRT_ZAV::subscribe(&getBar());
}

ShowProgress::~ShowProgress()
{
    getBar().finish();
}

void writeMesh(const MIRT_ZAV::MeshPtr& mesh, SafeOutput& output, const std::string& path, const std::string& madeFrom,
               const RunOptions& options, Timings& timings)
{
    refuseOutOfRange(*mesh, path);
    const Stopwatch writing;
    // Of a failure the tool says all that there is to say.
    callLibrary(
        true, [] { return "check the space on the disk"; },
        [&] { output.writeBy([&](const std::string& name) { return writeMeshFile(mesh, name, options.bAscii); }); });
    timings.setWriting(writing);
    if (options.bTimings)
        timings.print();
    if (options.bQuiet)
        return;
    tellLosses(*mesh, path, options.bAscii);
    std::vector<MIRT_ZAV::Point3*> vertices;
    mesh->getPoints(vertices);
    std::printf("%s: %zu vertices, %zu triangles from %s\n", path.c_str(), vertices.size(),
                static_cast<size_t>(mesh->getNumT()), madeFrom.c_str());
}

} // namespace zavtool
