// zav spacing: the spacing of the points as the library detects it.
#include "commands.h"
#include "console.h"
#include "files.h"
#include "outliers.h"

#include <zav_api.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>

namespace zavtool
{
namespace
{
struct SpacingOptions
{
    std::string input;
    int numThreads = 0;
    bool bQuiet = false;
};

void runSpacing(const SpacingOptions& options)
{
    MIRT_ZAV::setGlobalNumCPU(options.numThreads);
    Cloud cloud = readCloud(options.input, options.bQuiet);
    if (!options.bQuiet)
        tellNotFinite(cloud);
    const double spacing = callLibrary(
        options.bQuiet, [&] { return adviseOnOutliers(cloud.points, "points", "check the points with 'zav info'"); },
        [&] { return MIRT_ZAV::estimateAvgSpacing(cloud.points); });
    if (!(spacing > 0.0) || !std::isfinite(spacing))
        throw Failure("no spacing can be detected in " + options.input +
                      "; it takes several points at different places");
    if (!options.bQuiet)
        tellOutliers(cloud.points);

    char text[64]; // the shortest text that reads back as the same number
    *std::to_chars(text, text + sizeof(text) - 1, spacing).ptr = '\0';
    std::puts(text);
}
} // namespace

Command addSpacing(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("spacing", "Print the average spacing of the points");
    auto options = std::make_shared<SpacingOptions>();
    command->add_option("IN", options->input, "Point file (.ply .xyz .txt .asc .bin)")->required();
    command->add_option("--threads", options->numThreads, "Number of threads; 0 for all of the machine")
        ->check(CLI::Range(0, 1024))
        ->capture_default_str();
    command->add_flag("--quiet", options->bQuiet, "Nothing on standard error unless the run fails");
    command->footer(
        "The number goes to standard output, alone on its line, in the units of the input. 'zav reconstruct' "
        "makes cells of --factor times this number.");
    return {command, [options] { runSpacing(*options); }};
}

} // namespace zavtool
