// A progress bar on standard error.
#pragma once

#include <Progress.h>

#include <string>

namespace zavtool
{

/// Draws one line that grows; it is to be removed by finish() before anything else is said. The library keeps the
/// pointer of a subscriber, so it lives until the process ends.
class ProgressBar : public MIRT_ZAV::ProgressBase
{
public:
    void update(const std::string& name, double fraction) override;
    void finish();

private:
    int lastPercent = -1;
};

} // namespace zavtool
