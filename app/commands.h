// The commands of the tool. Each one adds itself with its options to the command line and gives back what to run.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace zavtool
{

struct Command
{
    CLI::App* options;         // parsed by the command line; owned by it
    std::function<void()> run; // throws Failure or WrongUsage
};

Command addReconstruct(CLI::App& app);
Command addCloud(CLI::App& app);
Command addMelt(CLI::App& app);
Command addSpacing(CLI::App& app);
Command addGenerate(CLI::App& app);
Command addConvert(CLI::App& app);
Command addInfo(CLI::App& app);

/// Accepts finite numbers above 0.
CLI::Validator positiveNumber();
/// Accepts finite numbers from 0 on.
CLI::Validator notNegativeNumber();

} // namespace zavtool
