// zav convert: the points of a file in another format.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "plyHeader.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace zavtool
{
namespace
{
struct ConvertOptions
{
    std::string input;
    std::string output;
    bool bAscii = false;
    bool bQuiet = false;
};

/// Says what the output can't hold.
void tellLosses(const ConvertOptions& options, const Cloud& cloud)
{
    tellNotFinite(cloud);
    if (getType(options.input) == FileType::ply)
    {
        const PlyHeader header = readPlyHeader(options.input);
        if (const std::uint64_t numFaces = header.getCount("face"); numFaces > 0)
            tell(std::to_string(numFaces) + " faces left out: only the points are converted");
        std::string names;
        for (const std::string& name : header.getUnreadNames())
            names += (names.empty() ? "" : ", ") + name;
        if (!names.empty())
            tell("properties left out: " + names);
    }
    const bool bColors =
        std::any_of(cloud.points.begin(), cloud.points.end(), [](const auto& p) { return p.hasColor(); });
    if (bColors && getType(options.output) != FileType::ply)
        tell("the colours are left out: of point files only .ply keeps them");
}

void runConvert(const ConvertOptions& options)
{
    checkPointOutput(options.output, options.bAscii);
    refuseSameFile(options.input, options.output);
    SafeOutput output(options.output);
    Cloud cloud = readCloud(options.input, options.bQuiet);
    if (!options.bQuiet)
        tellLosses(options, cloud);
    writePoints(output, cloud.points, Coordinates::exact, options.bAscii);
    if (!options.bQuiet)
        std::printf("%s: %zu points\n", options.output.c_str(), cloud.points.size());
}
} // namespace

Command addConvert(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("convert", "Write the points of a file in another format");
    auto options = std::make_shared<ConvertOptions>();
    command->add_option("IN", options->input, "Point file (.ply .xyz .txt .asc .bin)")->required();
    command->add_option("OUT", options->output, "Point file to write (.ply .xyz .txt .asc .bin .list)")->required();
    command->add_flag("--ascii", options->bAscii, "Write the text form of PLY instead of the binary one");
    command->add_flag("--quiet", options->bQuiet, "Print nothing but failures");
    command->footer(
        R"(The endings of the names decide. Coordinates keep all their bits, but in .list, which has 15 digits;
PLY files hold floats where that is enough for all points, else doubles. Colours go from PLY to PLY. Points whose
coordinates aren't finite are left out, and so are the faces of a mesh.

Examples:
  zav convert scan.xyz scan.ply
  zav convert scan.ply scan.bin)");
    return {command, [options] { runConvert(*options); }};
}

} // namespace zavtool
