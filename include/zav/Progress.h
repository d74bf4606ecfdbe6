// What an application hears about a run: its progress as one fraction, and the times of its stages.
#pragma once

#include "zav_export.h"

#include <string>

namespace MIRT_ZAV
{

/// Implemented by an application that wants to hear about progress.
class ZAV_API ProgressBase
{
public:
    virtual ~ProgressBase();
    /// Called on the thread that runs the operation, with the lock of the progress tree held: it should return soon and
    /// must not call back into the library.
    ///
    /// An exception that it throws cancels the operation: it passes to the operation's caller as it is, once all threads
    /// are through with what they were doing. The next operation starts afresh. A mesh that was being changed stays
    /// usable, somewhere between what it was and what it would have become.
    /// \param name      what runs, e.g. "Reconstruct"
    /// \param fraction  the part done, 0 to 1
    virtual void update(const std::string& name, double fraction) = 0;
};

/// Time and memory of one stage of a run.
struct StageTiming
{
    std::string label;     // the stage's name in the tree
    int depth = 0;         // number of stages that were under way when it began
    double seconds = 0.0;  // wall time, summed when a stage was entered several times
    long peakMemoryKB = 0; // the process's largest resident size up to the stage's end
};

} // namespace MIRT_ZAV
