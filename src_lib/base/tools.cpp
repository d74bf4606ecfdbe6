#include "base/tools.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sys/time.h>
#include <thread>

namespace MIRT_ZAV
{
namespace
{
const char* const messagePrefix = "      [ZAV Message] ";

std::string colored(const std::string& text, int attribute, const char* colorCode)
{
    return "\033[" + toString(attribute) + colorCode + text + "\033[m";
}

double wallClockSeconds()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_usec);
}

int hardwareThreads()
{
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

/// More threads than this only cost memory and switches between them.
int limitThreads(int numWanted)
{
    constexpr int threadsPerCpu = 4;
    const int limit = threadsPerCpu * hardwareThreads();
    if (numWanted <= limit)
        return numWanted;
    static std::atomic<bool> bTold{false};
    if (!bTold.exchange(true))
        warning(ZAV_LOCATION, toString(numWanted) + " threads are wanted, but no more than " + toString(limit) +
                                  " are used, " + toString(threadsPerCpu) + " for each CPU.");
    return limit;
}

struct NamedTimer
{
    bool running = false;
    double start = 0.0;
    double total = 0.0;

    /// Starts, or stops if it runs.
    /// \return the seconds since the start; negative when it has just started
    double toggle()
    {
        running = !running;
        if (running)
        {
            start = wallClockSeconds();
            return -1.0;
        }
        const double elapsed = wallClockSeconds() - start;
        total += elapsed;
        return elapsed;
    }
};
} // namespace

ZavBugException::~ZavBugException() = default;

const char* ZavBugException::what() const noexcept
{
    return "ZAV Exception - Bug OR incorrect usage. Kindly report any bugs to ensure they are solved quickly!";
}

void throwZavBugException()
{
    throw ZavBugException();
}

std::string redString(const std::string& text, int attribute)
{
    return colored(text, attribute, ";31m");
}

std::string greenString(const std::string& text, int attribute)
{
    return colored(text, attribute, ";32m");
}

std::string yellowString(const std::string& text, int attribute)
{
    return colored(text, attribute, ";93m");
}

std::string magentaString(const std::string& text, int attribute, bool underline)
{
    return colored(text, attribute, underline ? ";35;4m" : ";35m");
}

void warning(const std::string& tag, const std::string& message)
{
    std::cout << '\n' << yellowString(messagePrefix + tag + ", WARNING: " + message, 0) << "\n\n";
}

void error(const std::string& tag, const std::string& message)
{
    std::cout << '\n' << magentaString(messagePrefix + tag + ", ERROR: " + message, 0, false) << "\n\n";
}

void errorMsg(const std::string& tag, const std::string& message)
{
    std::cout << '\n' << redString(messagePrefix + tag + ", ERROR: " + message, 0) << "\n\n";
}

void info(const std::string& tag, const std::string& message)
{
    if (tag.empty())
        std::cout << '\n' << messagePrefix << "INFO: " << message << '\n';
    else
        std::cout << '\n' << magentaString("      " + tag + ", INFO: " + message, 0, false) << '\n';
}

std::string locationTag(const char* function, int line)
{
    return yellowString(" ** " + std::string(function) + ":" + toString(line) + " ** ", 0);
}

void showBug(std::string file, std::string line, std::string function, std::string condition)
{
    std::cout << redString("      " + file + ":" + line, 0) << '\n';
    std::cout << redString("      " + function, 0) << '\n';
    errorMsg("ASSEX", "Condition [ " + condition + " failed ]");
    std::cout.flush(); // an exception that nobody catches ends the process without a flush
    throwZavBugException();
}

void assertionFailed(const char* file, int line, const char* function, const char* condition)
{
    // "src_lib/lattice/Calc.cpp" is reported as "src_lib/Calc.cpp", so that reports outlast a move to another room.
    std::string path(file);
    const size_t root = path.find('/'), name = path.rfind('/');
    if (name != std::string::npos)
        path.erase(root, name - root);
    showBug(path, toString(line), function, condition);
}

void refuse(const std::string& sentence)
{
    errorMsg("", sentence);
    std::cout.flush();
    throwZavBugException();
}

void goToHell(const std::string& text)
{
    std::cout << "goToHell(): " << text << std::endl;
    volatile int* nowhere = nullptr;
    *nowhere = 0; // NOLINT: the crash is the purpose
    std::abort();
}

void deliberateExit(const std::string& text)
{
    std::cout << greenString("\n\ndeliberateExit(" + text + ")\n", 0) << std::flush;
    std::exit(0);
}

void stopWatch(const std::string& name)
{
    static std::map<std::string, NamedTimer> timers;
    if (name == "STOP AND REPORT")
    {
        for (auto& [timerName, timer] : timers)
        {
            if (timer.running)
                timer.toggle();
            std::cout << "* [ " << timerName << " ], Time: [" << timer.total << " s]\n";
        }
        return;
    }
    const double elapsed = timers[name].toggle();
    if (elapsed < 0.0)
        std::cout << "\n* START [ " << name << " ] ";
    else
        std::cout << "* STOP [ " << name << " ], Time: [" << elapsed << " s]\n";
}

void timerx(const std::string& name)
{
    static std::map<std::string, NamedTimer> timers;
    const double elapsed = timers[name].toggle();
    if (name.rfind("[quiet]", 0) == 0)
        return;
    if (elapsed < 0.0)
        std::cout << "...Timer [" << name << "] start\n";
    else
        std::cout << "...Timer [" << name << "] stop, elapsed time: " << elapsed << " s\n";
}

void benchCounter(const std::string& name)
{
    static std::map<std::string, unsigned long long> counters;
    if (name == "GETCOUNTERS")
    {
        std::cout << "Benchmark: ";
        for (const auto& [counterName, count] : counters)
            std::cout << counterName << '=' << count << ' ';
        std::cout << '\n';
        return;
    }
    ++counters[name];
}

std::string repstr(std::string s, const std::string& from, const std::string& to)
{
    if (from.empty())
        return s;
    for (size_t pos = s.find(from); pos != std::string::npos; pos = s.find(from, pos + to.size()))
        s.replace(pos, from.size(), to);
    return s;
}

int getSetGlobalNumCPU(int numCPU)
{
    static std::atomic<int> globalNumCPU{hardwareThreads()};
    if (numCPU == 0)
        globalNumCPU = hardwareThreads();
    else if (numCPU > 0)
        globalNumCPU = limitThreads(numCPU);
    return globalNumCPU;
}

int getGlobalNumCPU()
{
    return getSetGlobalNumCPU(-1);
}

} // namespace MIRT_ZAV
