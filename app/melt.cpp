// zav cloud and zav melt: from triangles to points and to a new mesh.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "meshRun.h"
#include "outliers.h"

#include <zav_api.h>

#include <cstdio>
#include <memory>

namespace zavtool
{
namespace
{
struct MeltOptions
{
    std::string input;
    std::string output;
    double spacing = 0.0;
    double featureAngle = 30.0;
    std::vector<double> reduction; // length and angle, or empty
    RunOptions run;
};

Remedy makeRemedy(const Triangles& triangles)
{
    return [&triangles]
    {
        return adviseOnOutliers(triangles.corners, "corners",
                                "try a greater --spacing, or take needle-shaped triangles out");
    };
}

void addCommonOptions(CLI::App& command, MeltOptions& options)
{
    command.add_option("IN", options.input, "File of triangles (.stl as text, .ply)")->required();
    command.add_option("--spacing", options.spacing, "Side of a lattice cell in the units of the input")
        ->check(positiveNumber())
        ->required();
    command
        .add_option("--feature-angle", options.featureAngle,
                    "Edges that fold by more degrees keep their shape; from 360 on only borders do")
        ->check(notNegativeNumber())
        ->capture_default_str();
}

Triangles read(const MeltOptions& options, Timings& timings)
{
    const Stopwatch reading;
    Triangles triangles = readTriangles(options.input);
    timings.setReading(reading);
    if (triangles.numNotFinite > 0 && !options.run.bQuiet)
        tell(std::to_string(triangles.numNotFinite) + " triangles left out: their coordinates aren't finite");
    return triangles;
}

void runCloud(const MeltOptions& options)
{
    checkPointOutput(options.output, options.run.bAscii);
    refuseSameFile(options.input, options.output);
    SafeOutput output(options.output);
    MIRT_ZAV::setGlobalNumCPU(options.run.numThreads);
    Timings timings;
    Triangles triangles = read(options, timings);
    std::vector<MIRT_ZAV::Point3> points;
    callLibrary(options.run.bQuiet, makeRemedy(triangles),
                [&]
                {
                    const ShowProgress showProgress(options.run);
                    MIRT_ZAV::toCloud(triangles.corners, options.spacing, options.featureAngle, points);
                    timings.addRun();
                });
    if (points.empty())
        throw Failure("no points came out of " + options.input + "; its triangles have no area");
    const Stopwatch writing;
    writePoints(output, points, Coordinates::asFloats, options.run.bAscii);
    timings.setWriting(writing);
    if (options.run.bTimings)
        timings.print();
    if (!options.run.bQuiet)
        std::printf("%s: %zu points from %zu triangles\n", options.output.c_str(), points.size(),
                    triangles.corners.size() / 3);
    MIRT_ZAV::destroySingletons();
}

void runMelt(const MeltOptions& options)
{
    checkMeshOutput(options.output);
    refuseSameFile(options.input, options.output);
    SafeOutput output(options.output);
    MIRT_ZAV::setGlobalNumCPU(options.run.numThreads);
    Timings timings;
    Triangles triangles = read(options, timings);
    const MIRT_ZAV::MeshPtr mesh = callLibrary(options.run.bQuiet, makeRemedy(triangles),
                                               [&]
                                               {
                                                   const ShowProgress showProgress(options.run);
                                                   MIRT_ZAV::MeshPtr molten = MIRT_ZAV::melt(
                                                       triangles.corners, options.spacing, options.featureAngle);
                                                   timings.addRun();
                                                   reduceMesh(molten, options.reduction, timings);
                                                   return molten;
                                               });
    if (!mesh || mesh->getNumT() == 0)
        throw Failure("no surface came out of " + options.input + "; try a smaller --spacing");
    writeMesh(mesh, output, options.output, std::to_string(triangles.corners.size() / 3) + " triangles", options.run,
              timings);
    MIRT_ZAV::destroySingletons();
}
} // namespace

Command addCloud(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("cloud", "Turn a file of triangles into an even point file");
    auto options = std::make_shared<MeltOptions>();
    addCommonOptions(*command, *options);
    command->add_option("OUT", options->output, "Point file to write (.ply .xyz .txt .asc .bin .list)")->required();
    addRunOptions(*command, options->run);
    command->footer(
        R"(One point for every cell of the lattice that a triangle touches. Points on corners, on edges that fold and on
borders lie exactly on them. Triangles may overlap, be torn, turned or repeated.

Example:
  zav cloud part.stl part.xyz --spacing 0.1 --feature-angle 20)");
    return {command, [options] { runCloud(*options); }};
}

Command addMelt(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("melt", "Mesh a file of triangles anew, into one clean surface");
    auto options = std::make_shared<MeltOptions>();
    addCommonOptions(*command, *options);
    command
        ->add_option("OUT", options->output,
                     "Mesh file to write (.ply .stl .obj .list); replaced only by a complete mesh")
        ->required();
    addReduceOption(*command, options->reduction);
    addRunOptions(*command, options->run);
    command->footer(
        R"(Overlapping, flipped and repeated triangles melt into one surface on the cells of 'zav cloud'. Gaps wider than a cell
stay open.

Example:
  zav melt soup.stl mesh.ply --spacing 0.1 --reduce 0.5,10)");
    return {command, [options] { runMelt(*options); }};
}

} // namespace zavtool
