#include "base/memoryLimits.h"

#include "base/tools.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <limits>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

namespace MIRT_ZAV
{
namespace
{
constexpr double noLimit = std::numeric_limits<double>::infinity();

/// The first number of a file; infinity where there is none, as in "max".
double readNumber(const char* path)
{
    std::ifstream in(path);
    double number = 0.0;
    return in >> number ? number : noLimit;
}

double getFreeOfMachine()
{
    std::ifstream in("/proc/meminfo");
    std::string word;
    while (in >> word)
        if (double kilobytes = 0.0; word == "MemAvailable:" && in >> kilobytes)
            return 1024.0 * kilobytes;
    return static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double getFreeOfContainer()
{
    const double limit = readNumber("/sys/fs/cgroup/memory.max");
    return limit == noLimit ? noLimit : limit - readNumber("/sys/fs/cgroup/memory.current");
}

double getFreeOfProcess()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return noLimit;
    return static_cast<double>(limit.rlim_cur) -
           readNumber("/proc/self/statm") * static_cast<double>(sysconf(_SC_PAGESIZE));
}

/// In gigabytes with two digits.
std::string inGigabytes(double numBytes)
{
    std::ostringstream text;
    text << std::setprecision(2) << numBytes / 1e9 << " GB";
    return text.str();
}
} // namespace

double getFreeMemory()
{
    return std::max(0.0, std::min({getFreeOfMachine(), getFreeOfContainer(), getFreeOfProcess()}));
}

void requireMemory(double numBytes, const std::string& what, double side)
{
    const double numFree = getFreeMemory();
    if (numBytes <= numFree)
        return;
    std::ostringstream spacing;
    spacing << std::setprecision(2) << 1.1 * side * std::sqrt(numBytes / std::max(numFree, 1e6));
    refuse(what + " takes some " + inGigabytes(numBytes) + ", and " + inGigabytes(numFree) +
           " are free. A spacing of about " + spacing.str() + " fits.");
}

} // namespace MIRT_ZAV
