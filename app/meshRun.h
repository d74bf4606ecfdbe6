// What the commands that run the library have in common: options, progress, times, writing.
#pragma once

#include "files.h"

#include <zav_api.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace zavtool
{

struct RunOptions
{
    int numThreads = 0; // 0: all of the machine
    bool bAscii = false;
    bool bTimings = false;
    bool bQuiet = false;
};

/// Adds --threads, --ascii, --timings and --quiet.
void addRunOptions(CLI::App& command, RunOptions& options);

class Stopwatch
{
public:
    double getSeconds() const { return std::chrono::duration<double>(Clock::now() - start).count(); }

private:
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
};

/// The stages of the library's runs, with reading before and writing behind.
class Timings
{
public:
    void setReading(const Stopwatch& watch) { readSeconds = watch.getSeconds(); }
    void setWriting(const Stopwatch& watch) { writeSeconds = watch.getSeconds(); }
    /// Appends the stages of the last run.
    void addRun();
    /// To standard error.
    void print() const;

private:
    double readSeconds = 0.0;
    double writeSeconds = 0.0;
    std::vector<MIRT_ZAV::StageTiming> stages;
};

/// Shows a bar on a terminal as long as it exists.
class ShowProgress
{
public:
    explicit ShowProgress(const RunOptions& options);
    ~ShowProgress();
    ShowProgress(const ShowProgress&) = delete;
    ShowProgress& operator=(const ShowProgress&) = delete;
};

/// Adds --reduce; bounds stays empty without it, else it gets length and angle.
void addReduceOption(CLI::App& command, std::vector<double>& bounds);
/// Thins the mesh if asked for. Call it where the library's messages are held back.
void reduceMesh(const MIRT_ZAV::MeshPtr& mesh, const std::vector<double>& bounds, Timings& timings);

/// Writes the mesh, prints the times if asked for, and says what was written.
/// \param madeFrom  e.g. "100 points"
void writeMesh(const MIRT_ZAV::MeshPtr& mesh, SafeOutput& output, const std::string& path, const std::string& madeFrom,
               const RunOptions& options, Timings& timings);

} // namespace zavtool
