// zav generate: point files to play with.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "scan.h"

#include <zav_api.h>

#include <cstdio>
#include <memory>

namespace zavtool
{
namespace
{
struct GenerateOptions
{
    ScanSettings scan;
    std::string output;
    bool bAscii = false;
    bool bQuiet = false;
};

void runGenerate(const GenerateOptions& options)
{
    checkPointOutput(options.output, options.bAscii);
    SafeOutput output(options.output);
    std::vector<MIRT_ZAV::Point3> points = scan(options.scan);
    writePoints(output, points, Coordinates::asFloats, options.bAscii);
    if (!options.bQuiet)
        std::printf("%s: %zu points\n", options.output.c_str(), points.size());
}
} // namespace

Command addGenerate(CLI::App& app)
{
    CLI::App* command =
        app.add_subcommand("generate", "Make a point file, as a scanner would measure a made-up object");
    auto options = std::make_shared<GenerateOptions>();
    ScanSettings& scanned = options->scan;
    command->add_option("SHAPE", scanned.shape, "What is scanned; each fits into the cube from -1 to 1")
        ->required()
        ->check(CLI::IsMember({"sphere", "torus", "box", "wave"}));
    command->add_option("OUT", options->output, "File to write (.ply with colours; .xyz .txt .asc .bin .list without)")
        ->required();
    command->add_option("--points", scanned.numPoints, "Number of points")
        ->check(CLI::Range(100, 200000000))
        ->capture_default_str();
    command->add_option("--views", scanned.numViews, "Number of places the scanner looks from")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    command->add_option("--noise", scanned.noise, "Standard deviation along the normal, in mean spacings of the points")
        ->check(notNegativeNumber())
        ->capture_default_str();
    command
        ->add_option("--gap", scanned.gap,
                     "Width of a strip left out of the upper half, where x is near 0, in mean spacings of the points")
        ->check(notNegativeNumber())
        ->capture_default_str();
    command->add_option("--seed", scanned.seed, "Number that the random numbers start from")->capture_default_str();
    command->add_flag("--ascii", options->bAscii, "Write the text form of PLY instead of the binary one");
    command->add_flag("--quiet", options->bQuiet, "Print nothing but failures");
    command->footer(
        R"(sphere, torus and box are closed; wave is an open height field, seen from above. With few views some of the surface
stays unseen. The same options give the same file, byte for byte.

Examples:
  zav generate torus torus.ply --points 1000000
  zav generate wave wave.xyz --views 3 --noise 0 --gap 4)");
    return {command, [options] { runGenerate(*options); }};
}

} // namespace zavtool
