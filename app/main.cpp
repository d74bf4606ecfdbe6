// The command line of zav. Exit code 0: done; 1: the run failed, with one sentence saying why; 2: wrong usage.
#include "commands.h"
#include "console.h"

#include <zav_api.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace zavtool
{
namespace
{
const char* const manual = R"(Examples:
  zav reconstruct scan.ply mesh.ply                 mesh at the spacing of the points
  zav reconstruct scan.xyz mesh.ply --factor 2      coarser, with fewer holes
  zav reconstruct scan.bin mesh.ply --spacing 0.05  cells of 0.05 input units
  zav melt soup.stl mesh.ply --spacing 0.1          a new surface from torn triangles
  zav cloud part.stl part.xyz --spacing 0.1         an even cloud from triangles
  zav spacing scan.ply                              the spacing the first line would use
  zav generate torus torus.ply --points 200000      points to play with
  zav convert scan.ply scan.xyz                     the same points in another format
  zav info mesh.ply                                 what is in a file

Point files: .ply (text or binary), .xyz .txt .asc (text, "x y z" per line), .bin; written only: .list.
Triangle files: .stl (text), .ply. Mesh files, written: .ply .stl .obj .list.
Exit codes: 0 done, 1 the run failed, 2 wrong usage. 'zav COMMAND --help' tells more about a command.)";

std::string getVersionText()
{
    int major = 0;
    int minor = 0;
    MIRT_ZAV::getVersion(major, minor);
    return "zav " + std::to_string(major) + "." + std::to_string(minor);
}

CLI::Validator numberFrom(double least, bool bExcluded, const std::string& text)
{
    return CLI::Validator(
        [=](std::string& value)
        {
            char* end = nullptr;
            const double number = std::strtod(value.c_str(), &end);
            const bool bGood = end != value.c_str() && *end == '\0' && std::isfinite(number) &&
                               (bExcluded ? number > least : number >= least);
            return bGood ? std::string() : value + " is no " + text;
        },
        "");
}

int run(int argc, char** argv)
{
    CLI::App app("Turns unordered 3D points into triangle meshes.", "zav");
    app.footer(manual);
    app.set_version_flag("--version", getVersionText(), "Print the version");
    app.require_subcommand(1);
    const Command commands[] = {addReconstruct(app), addMelt(app),    addCloud(app), addSpacing(app),
                                addGenerate(app),    addConvert(app), addInfo(app)};

    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& problem)
    {
        return app.exit(problem) == 0 ? 0 : exitWrongUsage; // --help and --version end here, too
    }
    for (const Command& command : commands)
        if (command.options->parsed())
            command.run();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw Failure("standard output can't be written; check where it goes");
    return 0;
}
} // namespace

CLI::Validator positiveNumber()
{
    return numberFrom(0.0, true, "number above 0");
}

CLI::Validator notNegativeNumber()
{
    return numberFrom(0.0, false, "number from 0 on");
}

} // namespace zavtool

int main(int argc, char** argv)
{
    zavtool::prepareForBitterEnds();
    try
    {
        return zavtool::run(argc, argv);
    }
    catch (const zavtool::WrongUsage& problem)
    {
        zavtool::tell(problem.what());
        return zavtool::exitWrongUsage;
    }
    catch (const std::bad_alloc&)
    {
        zavtool::tell("the memory is not enough; try with fewer points");
    }
    catch (const std::exception& problem)
    {
        zavtool::tell(problem.what());
    }
    return zavtool::exitFailure;
}
