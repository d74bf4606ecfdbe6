// An output file that appears under its name only when it is complete.
#pragma once

#include <functional>
#include <string>

namespace zavtool
{

/// The file is written in a directory of its own beside the place where it belongs, and renamed at the end: a run that
/// fails, or is killed, leaves what stood there before. The directory has a name that nobody can guess and lets nobody
/// else in, so that no link or file of somebody else can be waiting in it. It is held by its descriptor, not by its
/// name. A run that ends in any way takes it away; one that is killed can't, and a later run in the same place does.
///
/// One object at a time.
class SafeOutput
{
public:
    /// Tries the place at once: a long run shouldn't find out at its end that it can't be written.
    /// \throws Failure  when nothing can be written there, or when there is what shouldn't be replaced: no ordinary
    ///                  file, one of another user, or one that is read-only
    explicit SafeOutput(const std::string& path);
    ~SafeOutput();
    SafeOutput(const SafeOutput&) = delete;
    SafeOutput& operator=(const SafeOutput&) = delete;

    /// \param write  writes to the path it gets, which ends like the constructor's: writers go by the ending. False for
    ///               a failure
    /// \throws Failure  when it didn't write everything, or the file can't take its place
    void writeBy(const std::function<bool(const std::string& path)>& write);

private:
    void resolveLinks();
    void refuseToReplace() const;
    void makeDirectory();
    bool tryToMakeDirectory();
    std::string getTemporaryPath() const;
    [[noreturn]] void failToWrite(int problem) const;

    std::string given; // the name that the user knows
    std::string path;  // where the file goes, links resolved
    std::string name;  // the last part of it
    int file = -1;     // what is being written
};

/// Takes away what the present run has written so far. For ends of the process that no destructor sees.
void removeUnfinishedOutput();

} // namespace zavtool
