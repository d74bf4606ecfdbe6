#include "ProgressBar.h"

#include <cstdio>

namespace zavtool
{

void ProgressBar::update(const std::string& name, double fraction)
{
    constexpr int width = 40;
    const int percent = static_cast<int>(fraction * 100.0);
    if (percent == lastPercent)
        return;
    lastPercent = percent;
    const auto numFull = static_cast<size_t>(percent * width / 100);
    const std::string bar = std::string(numFull, '#') + std::string(width - numFull, '.');
    std::fprintf(stderr, "\r%s [%s] %3d %%\033[K", name.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
}

void ProgressBar::finish()
{
    if (lastPercent >= 0)
        std::fputs("\r\033[K", stderr);
    lastPercent = -1;
}

} // namespace zavtool
