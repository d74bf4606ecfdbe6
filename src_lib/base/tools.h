// Diagnostics of the library: coloured messages on standard output, the assertion that stays active in release builds,
// the one exception it ends in, developer's timers, and the process-wide CPU count.
#pragma once

#include "zav/ZavBugException.h"
#include "zav/cpuCount.h"

#include <sstream>
#include <string>

namespace MIRT_ZAV
{

/// The one place that throws ZavBugException.
[[noreturn]] void throwZavBugException();

// The text between the escape sequences that switch a colour of the terminal on and off. The attribute is the first
// number of the sequence: 0 normal, 1 bold.
std::string redString(const std::string& text, int attribute);
std::string greenString(const std::string& text, int attribute);
std::string yellowString(const std::string& text, int attribute);
std::string magentaString(const std::string& text, int attribute, bool underline);

// Messages on standard output; the caller goes on. Those of several threads may mix.
void warning(const std::string& tag, const std::string& message);
void error(const std::string& tag, const std::string& message);
void errorMsg(const std::string& tag, const std::string& message);
/// Coloured with a tag, plain without one.
void info(const std::string& tag, const std::string& message);

/// The usual tag of a message: " ** function:line ** " in yellow.
std::string locationTag(const char* function, int line);
#define ZAV_LOCATION ::MIRT_ZAV::locationTag(__PRETTY_FUNCTION__, __LINE__)

/// Prints which condition failed where.
/// \throws ZavBugException always
[[noreturn]] void showBug(std::string file, std::string line, std::string function, std::string condition);
/// showBug for the assertion macros, with plain arguments, so that a check costs its caller little code.
[[noreturn]] void assertionFailed(const char* file, int line, const char* function, const char* condition);

/// Tests a condition, in release builds, too. The text is what users read in a report. It is given apart from the
/// condition, so that rewriting that one doesn't change it.
#define ZAV_ASSERT(condition, text)                                                                                    \
    do                                                                                                                 \
    {                                                                                                                  \
        if (__builtin_expect(!(condition), 0))                                                                         \
            ::MIRT_ZAV::assertionFailed(__FILE__, __LINE__, __PRETTY_FUNCTION__, text);                                \
    } while (false)

/// For places that a correct run never reaches.
#define ZAV_BUG(text) ::MIRT_ZAV::assertionFailed(__FILE__, __LINE__, __PRETTY_FUNCTION__, text)

/// Ends an operation that can't be done as asked: prints the sentence, which says what to try, and throws
/// ZavBugException.
[[noreturn]] void refuse(const std::string& sentence);

/// Crashes by a write to address 0, which leaves a core dump with the stack of the caller.
[[noreturn]] void goToHell(const std::string& text);
/// Prints the text and ends the process, with exit code 0.
[[noreturn]] void deliberateExit(const std::string& text);

// Timers and counters by name, to be put into the code while one looks for lost time; a run has none. Not thread-safe.
/// Every other call with a name starts its timer, the next one stops it and prints the seconds in between. The name
/// "STOP AND REPORT" stops all timers and prints their sums.
void stopWatch(const std::string& name);
/// The same with timers of its own and without a report. Names that begin with "[quiet]" print nothing.
void timerx(const std::string& name);
/// Counts its calls with a name. The name "GETCOUNTERS" prints all counters.
void benchCounter(const std::string& name);

/// s with every occurrence of from replaced, from left to right. What was put in isn't searched again, and an empty
/// from changes nothing.
std::string repstr(std::string s, const std::string& from, const std::string& to);

/// What a fresh stream prints for a value: of floating-point numbers 6 significant digits.
template <class T>
std::string toString(const T& value)
{
    std::ostringstream text;
    text << value;
    return text.str();
}

} // namespace MIRT_ZAV
