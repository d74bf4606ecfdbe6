// zav reconstruct: from a point file to a mesh file.
#include "ProgressBar.h"
#include "commands.h"
#include "console.h"
#include "files.h"

#include <zav_api.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

namespace zavtool
{
namespace
{
struct ReconstructOptions
{
    std::string input;
    std::string output;
    double factor = 1.0;
    double spacing = 0.0; // 0: the factor counts
    int holeLimit = 0;
    int numFlips = 0;
    bool bAnneal = false;
    int numSmooth = 0;
    std::vector<double> contrast; // two fractions, or empty
    int numThreads = 0;
    bool bAscii = false;
    bool bTimings = false;
    bool bQuiet = false;
};

class Stopwatch
{
public:
    double getSeconds() const { return std::chrono::duration<double>(Clock::now() - start).count(); }

private:
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
};

void checkOptions(const ReconstructOptions& options)
{
    if (getType(options.output) != FileType::ply)
        throw WrongUsage("meshes are written as PLY; give an output name that ends in .ply");
    refuseSameFile(options.input, options.output);
}

/// Closing holes works with single-precision centres of cells, which lose digits far from the origin: a cloud that lies
/// more than 10^5 cells away is moved to the origin for the run, and its mesh back again.
class Centring
{
public:
    Centring(Cloud& cloud, const ReconstructOptions& options)
    {
        const auto [low, high] = getBox(cloud.points);
        const MIRT_ZAV::Point3 middle = low + (high - low) * 0.5;
        const double distance = (middle - MIRT_ZAV::Point3()).getMaxAbsComponent();
        if (distance <= (high - low).getMaxAbsComponent() || distance <= 1e5 * getCellSide(cloud, options))
            return;
        offset = middle - MIRT_ZAV::Point3();
        for (MIRT_ZAV::Point3& p : cloud.points)
            move(p, -offset);
    }

    void moveBack(MIRT_ZAV::Mesh& mesh) const
    {
        std::vector<MIRT_ZAV::Point3*> vertices;
        mesh.getPoints(vertices);
        for (MIRT_ZAV::Point3* const p : vertices)
            move(*p, offset);
    }

private:
    static std::pair<MIRT_ZAV::Point3, MIRT_ZAV::Point3> getBox(const std::vector<MIRT_ZAV::Point3>& points)
    {
        MIRT_ZAV::Point3 low = points.front(), high = points.front();
        for (const MIRT_ZAV::Point3& p : points)
        {
            low.set(std::min(low.x(), p.x()), std::min(low.y(), p.y()), std::min(low.z(), p.z()));
            high.set(std::max(high.x(), p.x()), std::max(high.y(), p.y()), std::max(high.z(), p.z()));
        }
        return {low, high};
    }

    static double getCellSide(Cloud& cloud, const ReconstructOptions& options)
    {
        return options.spacing > 0.0 ? options.spacing : options.factor * MIRT_ZAV::estimateAvgSpacing(cloud.points);
    }

    static void move(MIRT_ZAV::Point3& p, const MIRT_ZAV::Vector3& by)
    {
        p.set(p.x() + by.x(), p.y() + by.y(), p.z() + by.z());
    }

    MIRT_ZAV::Vector3 offset; // zero when nothing was moved
};

using Timings = std::vector<MIRT_ZAV::StageTiming>;

/// Appends the stages of the library's last run.
void addTimings(Timings& timings)
{
    const Timings last = MIRT_ZAV::getStageTimings();
    timings.insert(timings.end(), last.begin(), last.end());
}

/// What the user asked for beyond the reconstruction. Smoothing comes after the flips, which would go by normals from
/// before it.
void improve(const MIRT_ZAV::MeshPtr& mesh, const ReconstructOptions& options, Timings& timings)
{
    for (int i = 0; i < options.numFlips; ++i)
    {
        MIRT_ZAV::edgeFlips(mesh);
        addTimings(timings);
    }
    if (options.bAnneal)
    {
        MIRT_ZAV::edgeFlipsSimA(mesh);
        addTimings(timings);
    }
    if (options.numSmooth > 0)
    {
        MIRT_ZAV::laplacianSmoothing(mesh, options.numSmooth);
        addTimings(timings);
    }
    if (!options.contrast.empty())
        mesh->contrastSpread(options.contrast[0], options.contrast[1]);
}

MIRT_ZAV::MeshPtr reconstruct(Cloud& cloud, const ReconstructOptions& options, Timings& timings)
{
    static ProgressBar bar; // the library keeps a subscriber's address
    if (isTerminal() && !options.bQuiet)
        MIRT_ZAV::subscribe(&bar);
    struct RemoveBar
    {
        ~RemoveBar() { bar.finish(); }
    } removeBar;
    const Centring centring(cloud, options);
    const MIRT_ZAV::MeshPtr mesh = options.spacing > 0.0
                                       ? MIRT_ZAV::reconstruct_abs(cloud.points, options.spacing, options.holeLimit)
                                       : MIRT_ZAV::reconstruct_auto(cloud.points, options.factor, options.holeLimit);
    addTimings(timings);
    if (!mesh)
        return mesh;
    improve(mesh, options, timings);
    centring.moveBack(*mesh);
    return mesh;
}

void printTiming(int depth, const std::string& label, double seconds, long peakMemoryKB)
{
    std::fprintf(stderr, "%*s%-*s %9.3f s", 2 * depth, "", 24 - 2 * depth, label.c_str(), seconds);
    if (peakMemoryKB > 0)
        std::fprintf(stderr, " %9.1f MB", static_cast<double>(peakMemoryKB) / 1024.0);
    std::fputc('\n', stderr);
}

void printTimings(double readSeconds, const Timings& timings, double writeSeconds)
{
    std::fprintf(stderr, "%-24s %11s %12s\n", "stage", "time", "peak memory");
    printTiming(0, "read", readSeconds, 0);
    for (const MIRT_ZAV::StageTiming& timing : timings)
        printTiming(timing.depth, timing.label, timing.seconds, timing.peakMemoryKB);
    printTiming(0, "write", writeSeconds, 0);
}

void runReconstruct(const ReconstructOptions& options)
{
    checkOptions(options);
    SafeOutput output(options.output);
    MIRT_ZAV::setGlobalNumCPU(options.numThreads);

    const Stopwatch reading;
    Cloud cloud = readCloud(options.input, options.bQuiet);
    const double readSeconds = reading.getSeconds();
    if (!options.bQuiet)
        tellNotFinite(cloud);

    Timings timings;
    const MIRT_ZAV::MeshPtr mesh = callLibrary(options.bQuiet,
                                               options.numSmooth > 0 ? "try without --smooth, or a greater --factor"
                                                                     : "try a greater --spacing or --factor",
                                               [&] { return reconstruct(cloud, options, timings); });
    if (!mesh || mesh->getNumT() == 0)
        throw Failure("no surface came out of " + options.input + "; try a greater --factor or --spacing");

    const Stopwatch writing;
    callLibrary(options.bQuiet, "check the space on the disk",
                [&]
                {
                    // Crossed in the library: writePly_ASCII writes the binary form, writePly_BIN the text form.
                    output.writeBy([&](const std::string& path)
                                   { return options.bAscii ? mesh->writePly_BIN(path) : mesh->writePly_ASCII(path); });
                });
    const double writeSeconds = writing.getSeconds();

    if (options.bTimings)
        printTimings(readSeconds, timings, writeSeconds);
    if (!options.bQuiet)
    {
        std::vector<MIRT_ZAV::Point3*> vertices;
        mesh->getPoints(vertices);
        std::printf("%s: %zu vertices, %zu triangles from %zu points\n", options.output.c_str(), vertices.size(),
                    static_cast<size_t>(mesh->getNumT()), cloud.points.size());
    }
    MIRT_ZAV::destroySingletons();
}
} // namespace

Command addReconstruct(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("reconstruct", "Turn a point file into a mesh file");
    auto options = std::make_shared<ReconstructOptions>();
    command->add_option("IN", options->input, "Point file (.ply .xyz .txt .asc .bin)")->required();
    command->add_option("OUT", options->output, "Mesh file to write (.ply); replaced only by a complete mesh")
        ->required();
    CLI::Option* factor =
        command
            ->add_option("--factor", options->factor,
                         "Cell side as a multiple of the detected spacing of the points: 1 for cells at "
                         "that spacing, more for a coarser mesh, less for a finer one with more holes")
            ->check(positiveNumber())
            ->capture_default_str();
    command->add_option("--spacing", options->spacing, "Cell side in the units of the input; nothing is detected then")
        ->check(positiveNumber())
        ->excludes(factor);
    command
        ->add_option(
            "--holes", options->holeLimit,
            "Grow up to this many cells from the rims of the surface, which closes gaps up to twice that wide; 0 "
            "closes none")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str();
    command
        ->add_option("--flips", options->numFlips,
                     "Flip edges this many more times; the mesh comes with two rounds of flips")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    command->add_flag("--anneal", options->bAnneal,
                      "Flip edges at a loss, too, at falling temperature; takes about 30 times as long as one round");
    command
        ->add_option("--smooth", options->numSmooth,
                     "Move every vertex that isn't on a border to the mean of its neighbours, this many times")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    command
        ->add_option("--contrast", options->contrast,
                     "Stretch the colours; of all values these parts, 0 to 1, may become black and white: LOW,HIGH")
        ->delimiter(',')
        ->expected(2)
        ->check(notNegativeNumber() & CLI::Range(0.0, 1.0));
    command->add_option("--threads", options->numThreads, "Number of threads; 0 for all of the machine")
        ->check(CLI::Range(0, 1024))
        ->capture_default_str();
    command->add_flag("--ascii", options->bAscii, "Write the text form of PLY instead of the binary one");
    command->add_flag("--timings", options->bTimings,
                      "Print the tree of stages with time and peak memory on standard error");
    command->add_flag("--quiet", options->bQuiet, "Print nothing but failures, and the timings if asked for");
    command->footer(R"(The result doesn't depend on the number of threads. Points whose coordinates aren't finite are
left out. PLY holds coordinates with 32 bits: move a cloud far from the origin nearer before.

--flips, --anneal, --smooth and --contrast work on the finished mesh, in this order.

Examples:
  zav reconstruct scan.ply mesh.ply --factor 1.5
  zav reconstruct scan.ply mesh.ply --holes 10 --smooth 2 --contrast 0.01,0.01
  zav reconstruct scan.ply mesh.ply --spacing 0.02 --threads 4 --timings)");
    return {command, [options] { runReconstruct(*options); }};
}

} // namespace zavtool
