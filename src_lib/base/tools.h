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

// Terminal colours: the text between the colour's escape sequence and the reset sequence.
std::string redString(const std::string& text, int attribute);
std::string greenString(const std::string& text, int attribute);
std::string yellowString(const std::string& text, int attribute);
std::string magentaString(const std::string& text, int attribute, bool underline);

// Messages on standard output. They don't change the flow. Lines of several threads can interleave.
void warning(const std::string& tag, const std::string& message);
void error(const std::string& tag, const std::string& message);
void errorMsg(const std::string& tag, const std::string& message);
/// An empty tag gives the uncoloured form.
void info(const std::string& tag, const std::string& message);

/// The usual tag of a message: " ** function:line ** " in yellow.
std::string locationTag(const char* function, int line);
#define ZAV_LOCATION ::MIRT_ZAV::locationTag(__PRETTY_FUNCTION__, __LINE__)

/// Prints where a condition failed and throws ZavBugException; it never returns.
[[noreturn]] void showBug(std::string file, std::string line, std::string function, std::string condition);
/// showBug for the assertion macro: keeps the string building out of the callers' code.
[[noreturn]] void assertionFailed(const char* file, int line, const char* function, const char* condition);

/// Tests a condition, also in release builds. The text is what the user reads; it is given literally so that it never
/// depends on how the condition is written here.
#define ZAV_ASSERT(condition, text)                                                                                    \
    do                                                                                                                 \
    {                                                                                                                  \
        if (__builtin_expect(!(condition), 0))                                                                         \
            ::MIRT_ZAV::assertionFailed(__FILE__, __LINE__, __PRETTY_FUNCTION__, text);                                \
    } while (false)

/// A place that no correct run reaches.
#define ZAV_BUG(text) ::MIRT_ZAV::assertionFailed(__FILE__, __LINE__, __PRETTY_FUNCTION__, text)

/// Crashes on purpose, so that a core dump holds the stack.
[[noreturn]] void goToHell(const std::string& text);
/// A developer's stop: prints and ends the process with exit code 0.
[[noreturn]] void deliberateExit(const std::string& text);

// Developer's timers and counters by name; no flow of the pipeline calls them. Not thread-safe.
/// Starts the timer at the first call with a name and stops it at the second; "STOP AND REPORT" lists all timers.
void stopWatch(const std::string& name);
/// Like stopWatch, one line at each end; a name that begins with "[quiet]" prints nothing.
void timerx(const std::string& name);
/// Adds one to the counter of the name; "GETCOUNTERS" prints all counters.
void benchCounter(const std::string& name);

/// Replaces all occurrences from left to right, going on behind each inserted text. An empty from changes nothing.
std::string repstr(std::string s, const std::string& from, const std::string& to);

/// Decimal text of a number.
template <class T>
std::string toString(const T& value)
{
    std::ostringstream text;
    text << value;
    return text.str();
}

} // namespace MIRT_ZAV
