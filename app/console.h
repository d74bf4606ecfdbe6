// What the tool says on standard error, and how it keeps the library's messages apart from its own output.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

namespace zavtool
{

/// The run failed: exit code 1. The text is one plain sentence that says what happened and what to try now.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The call can't be meant: exit code 2.
class WrongUsage : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

constexpr int exitFailure = 1;
constexpr int exitWrongUsage = 2;

/// One line on standard error, "zav: " before it.
void tell(const std::string& line);

/// Whether standard error is a terminal.
bool isTerminal();

/// Holds back what the library writes to standard output and standard error while the object lives: standard output
/// belongs to the tool's own results, and of the messages a user wants the problems alone. One object at a time.
class LibraryMessages
{
public:
    LibraryMessages();
    ~LibraryMessages();
    LibraryMessages(const LibraryMessages&) = delete;
    LibraryMessages& operator=(const LibraryMessages&) = delete;

    /// The warnings and errors so far, one line each, without colours.
    std::vector<std::string> getProblems();

    /// Writes the warnings and errors so far on standard error, and takes no memory for it. Nothing where no object
    /// lives.
    static void tellAtBitterEnd();

private:
    /// Takes text from several threads: the library's workers print, too.
    class Collector : public std::streambuf
    {
    public:
        Collector() { collected.reserve(4096); }
        std::string getText();
        void tellProblems();

    protected:
        int_type overflow(int_type character) override;
        std::streamsize xsputn(const char* text, std::streamsize length) override;

    private:
        std::mutex mutex;
        std::string collected;
    };

    Collector collector;
    std::streambuf* const standardOutput;
    std::streambuf* const standardError;
};

/// The library ends the process by itself where memory is out, and an exception that nobody catches does. Both then end
/// in one sentence, with exit code 1 and without a half-written output. To be called once.
void prepareForBitterEnds();

/// What the user can try when a call of the library fails, a clause: "try a greater --spacing". Asked for only then.
using Remedy = std::function<std::string()>;

/// Runs a piece of work with the library's messages held back. Its warnings come on standard error afterwards unless
/// bQuiet. What the library throws becomes a Failure.
template <class Work>
auto callLibrary(bool bQuiet, const Remedy& remedy, Work work);

void tellProblems(LibraryMessages& messages);
[[noreturn]] void failAs(const std::exception& problem, LibraryMessages& messages, const std::string& remedy);

template <class Work>
auto callLibrary(bool bQuiet, const Remedy& remedy, Work work)
{
    LibraryMessages messages;
    struct Tell
    {
        LibraryMessages& messages;
        bool bQuiet;
        ~Tell()
        {
            if (!bQuiet)
                tellProblems(messages);
        }
    } tellAtEnd{messages, bQuiet};
    try
    {
        return work();
    }
    catch (const Failure&)
    {
        throw;
    }
    catch (const std::exception& problem)
    {
        failAs(problem, messages, remedy());
    }
}

} // namespace zavtool
