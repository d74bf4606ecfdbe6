// zav reconstruct: from a point file to a mesh file.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "meshRun.h"
#include "outliers.h"

#include <zav_api.h>

#include <algorithm>
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
    std::vector<double> reduction; // length and angle, or empty
    std::vector<double> contrast;  // two fractions, or empty
    RunOptions run;
};

void checkOptions(const ReconstructOptions& options)
{
    checkMeshOutput(options.output);
    refuseSameFile(options.input, options.output);
}

/// Closing holes works with single-precision centres of cells, which lose digits far from the origin: a cloud that lies
/// more than 10^5 cells away is moved to the origin for the run, and its mesh back again.
class Centring
{
public:
    Centring(Cloud& cloud, const ReconstructOptions& options) : points(cloud.points)
    {
        const auto [low, high] = getBox(cloud.points);
        const MIRT_ZAV::Point3 middle = low + (high - low) * 0.5;
        const double distance = (middle - MIRT_ZAV::Point3()).getMaxAbsComponent();
        if (distance <= (high - low).getMaxAbsComponent() || distance <= 1e5 * getCellSide(cloud, options))
            return;
        offset = middle - MIRT_ZAV::Point3();
        for (MIRT_ZAV::Point3& p : points)
            move(p, -offset);
    }

    /// The points go back: what is said about them after a failure is about their true places.
    ~Centring()
    {
        if (!offset.isZero())
            for (MIRT_ZAV::Point3& p : points)
                move(p, offset);
    }
    Centring(const Centring&) = delete;
    Centring& operator=(const Centring&) = delete;

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

    std::vector<MIRT_ZAV::Point3>& points;
    MIRT_ZAV::Vector3 offset; // zero when nothing was moved
};

/// What the user asked for beyond the reconstruction. Flips come before smoothing: the mesh caches normals, and flips
/// after it would go by those of the old places.
void improve(const MIRT_ZAV::MeshPtr& mesh, const ReconstructOptions& options, Timings& timings)
{
    for (int i = 0; i < options.numFlips; ++i)
    {
        MIRT_ZAV::edgeFlips(mesh);
        timings.addRun();
    }
    if (options.bAnneal)
    {
        MIRT_ZAV::edgeFlipsSimA(mesh);
        timings.addRun();
    }
    if (options.numSmooth > 0)
    {
        MIRT_ZAV::laplacianSmoothing(mesh, options.numSmooth);
        timings.addRun();
    }
    reduceMesh(mesh, options.reduction, timings);
    if (!options.contrast.empty())
        mesh->contrastSpread(options.contrast[0], options.contrast[1]);
}

MIRT_ZAV::MeshPtr reconstruct(Cloud& cloud, const ReconstructOptions& options, Timings& timings)
{
    const ShowProgress showProgress(options.run);
    const Centring centring(cloud, options);
    const MIRT_ZAV::MeshPtr mesh = options.spacing > 0.0
                                       ? MIRT_ZAV::reconstruct_abs(cloud.points, options.spacing, options.holeLimit)
                                       : MIRT_ZAV::reconstruct_auto(cloud.points, options.factor, options.holeLimit);
    timings.addRun();
    if (!mesh)
        return mesh;
    improve(mesh, options, timings);
    centring.moveBack(*mesh);
    return mesh;
}

void runReconstruct(const ReconstructOptions& options)
{
    checkOptions(options);
    SafeOutput output(options.output);
    MIRT_ZAV::setGlobalNumCPU(options.run.numThreads);

    Timings timings;
    const Stopwatch reading;
    Cloud cloud = readCloud(options.input, options.run.bQuiet);
    timings.setReading(reading);
    if (!options.run.bQuiet)
        tellNotFinite(cloud);

    const Remedy remedy = [&]
    {
        return adviseOnOutliers(cloud.points, "points",
                                options.numSmooth > 0 ? "try without --smooth, or a greater --factor"
                                                      : "try a greater --spacing or --factor");
    };
    const MIRT_ZAV::MeshPtr mesh =
        callLibrary(options.run.bQuiet, remedy, [&] { return reconstruct(cloud, options, timings); });
    if (!mesh || mesh->getNumT() == 0)
        throw Failure("no surface came out of " + options.input + "; " + remedy());
    if (options.spacing == 0.0 && !options.run.bQuiet)
        tellOutliers(cloud.points);
    writeMesh(mesh, output, options.output, std::to_string(cloud.points.size()) + " points", options.run, timings);
    MIRT_ZAV::destroySingletons();
}
} // namespace

Command addReconstruct(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("reconstruct", "Turn a point file into a mesh file");
    auto options = std::make_shared<ReconstructOptions>();
    command->add_option("IN", options->input, "Point file (.ply .xyz .txt .asc .bin)")->required();
    command
        ->add_option("OUT", options->output,
                     "Mesh file to write (.ply .stl .obj .list); replaced only by a complete mesh")
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
    addReduceOption(*command, options->reduction);
    command
        ->add_option("--contrast", options->contrast,
                     "Stretch the colours; of all values these parts, 0 to 1, may become black and white: LOW,HIGH")
        ->delimiter(',')
        ->expected(2)
        ->check(notNegativeNumber() & CLI::Range(0.0, 1.0));
    addRunOptions(*command, options->run);
    command->footer(R"(The result doesn't depend on the number of threads. Points whose coordinates aren't finite are
left out. PLY holds coordinates with 32 bits: move a cloud far from the origin nearer before.

--flips, --anneal, --smooth, --reduce and --contrast work on the finished mesh, in this order.

Examples:
  zav reconstruct scan.ply mesh.ply --factor 1.5
  zav reconstruct scan.ply mesh.ply --holes 10 --smooth 2 --contrast 0.01,0.01
  zav reconstruct scan.ply mesh.ply --spacing 0.02 --threads 4 --timings)");
    return {command, [options] { runReconstruct(*options); }};
}

} // namespace zavtool
