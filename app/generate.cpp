// zav generate: point files to play with.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "scan.h"

#include <zav_api.h>

#include <cstdio>
#include <cstring>
#include <fstream>
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

/// Unlike the library's writer for points, with colours.
bool writeColoredPly(const std::string& path, const std::vector<MIRT_ZAV::Point3>& points, bool bAscii)
{
    std::ofstream out(path, std::ios::binary);
    out << "ply\nformat " << (bAscii ? "ascii" : "binary_little_endian") << " 1.0\nelement vertex " << points.size()
        << "\nproperty float x\nproperty float y\nproperty float z\n"
           "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n";
    for (const MIRT_ZAV::Point3& p : points)
    {
        const float xyz[3] = {static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(p.z())};
        char row[100];
        int length = 15;
        if (bAscii)
            length = std::snprintf(row, sizeof(row), "%.9g %.9g %.9g %d %d %d\n", static_cast<double>(xyz[0]),
                                   static_cast<double>(xyz[1]), static_cast<double>(xyz[2]), p.r, p.g, p.b);
        else
        {
            const unsigned char rgb[3] = {p.r, p.g, p.b};
            std::memcpy(row, xyz, sizeof(xyz));
            std::memcpy(row + sizeof(xyz), rgb, sizeof(rgb));
        }
        out.write(row, length);
    }
    return static_cast<bool>(out.flush());
}

void runGenerate(const GenerateOptions& options)
{
    const FileType type = getType(options.output);
    if (type == FileType::other || type == FileType::stl)
        throw WrongUsage("points are written as .ply, .xyz, .txt, .asc or .bin; give an output name that ends so");
    if (options.bAscii && type == FileType::binary)
        throw WrongUsage("a .bin file has no text form; leave out --ascii or write .xyz");
    SafeOutput output(options.output);
    std::vector<MIRT_ZAV::Point3> points = scan(options.scan);
    callLibrary(options.bQuiet, "check the space on the disk",
                [&]
                {
                    output.writeBy(
                        [&](const std::string& path)
                        {
                            if (type == FileType::ply)
                                return writeColoredPly(path, points, options.bAscii);
                            return MIRT_ZAV::writePoints_auto(path, points, options.bAscii);
                        });
                });
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
    command->add_option("OUT", options->output, "File to write (.ply with colours; .xyz .txt .asc .bin without)")
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
