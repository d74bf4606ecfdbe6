// A progress bar on standard error.
#pragma once

#include <Progress.h>

#include <string>

namespace zavtool
{

/// Draws one line over and over on the same row of the terminal. finish() wipes it, which has to come before any other
/// output: that would end up on the same row. The library never lets go of a subscriber, so make one that lives as long
/// as the process.
class ProgressBar : public MIRT_ZAV::ProgressBase
{
public:
    void update(const std::string& name, double fraction) override;
    void finish();

private:
    int lastPercent = -1;
};

} // namespace zavtool
