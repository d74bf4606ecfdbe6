#include "SafeOutput.h"

#include "console.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string_view>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace zavtool
{
namespace
{
constexpr std::string_view directoryPrefix = ".zav-part-";
constexpr std::string_view filePrefix = "new"; // and the ending that the writers go by

/// The unfinished output of the process. A signal handler reads it: plain data, and set before bThere is.
struct Unfinished
{
    int parent = -1;    // where the output goes
    int directory = -1; // in it, with the output
    char directoryName[32] = {};
    char fileName[256] = {};
    volatile std::sig_atomic_t bThere = 0;
} unfinished;

void endBySignal(int signal)
{
    removeUnfinishedOutput();
    std::raise(signal); // which has its usual effect again
}

/// Only of those signals that would end the process: one that was ignored stays so.
void removeUnfinishedOutputOnSignals()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
            continue;
        action.sa_handler = endBySignal;
        action.sa_flags = SA_RESETHAND;
        sigaction(signal, &action, nullptr);
    }
}

/// Five bits a letter; empty when the system has no random numbers.
std::string makeRandomName()
{
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes)))
        return "";
    std::string name(directoryPrefix);
    for (const unsigned char byte : bytes)
        name += "abcdefghijklmnopqrstuvwxyz234567"[byte % 32];
    return name;
}

bool isMine(int directory)
{
    struct stat status = {};
    return fstat(directory, &status) == 0 && status.st_uid == geteuid() && (status.st_mode & 0077) == 0;
}

int openDirectory(int parent, const char* name)
{
    return openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

std::unique_ptr<DIR, int (*)(DIR*)> list(int descriptor)
{
    return {fdopendir(descriptor), closedir};
}

/// Takes away the directory of a run that was killed: nobody holds its lock. Nothing but what such a run writes goes.
void removeIfLeft(int parent, const char* name)
{
    const int directory = openDirectory(parent, name);
    if (directory < 0)
        return;
    if (isMine(directory) && flock(directory, LOCK_EX | LOCK_NB) == 0)
    {
        if (const auto entries = list(dup(directory)))
            while (const dirent* const entry = readdir(entries.get()))
                if (std::string_view(entry->d_name).substr(0, filePrefix.size()) == filePrefix)
                    unlinkat(directory, entry->d_name, 0);
        unlinkat(parent, name, AT_REMOVEDIR);
    }
    close(directory);
}

void removeLeftovers(int parent)
{
    if (const auto entries = list(openDirectory(parent, ".")))
        while (const dirent* const entry = readdir(entries.get()))
            if (std::string_view(entry->d_name).substr(0, directoryPrefix.size()) == directoryPrefix)
                removeIfLeft(parent, entry->d_name);
}

/// A link in a directory where everybody may write could be anybody's: like the system itself, this follows only one's
/// own there, and those of the directory's owner.
bool mayFollow(const std::string& link)
{
    const fs::path parent = fs::path(link).parent_path();
    struct stat status = {}, around = {};
    if (lstat(link.c_str(), &status) != 0 || stat(parent.empty() ? "." : parent.c_str(), &around) != 0)
        return false;
    const bool bShared = (around.st_mode & S_ISVTX) != 0 && (around.st_mode & S_IWOTH) != 0;
    return !bShared || status.st_uid == geteuid() || status.st_uid == around.st_uid;
}
} // namespace

void removeUnfinishedOutput()
{
    if (!unfinished.bThere)
        return;
    unfinished.bThere = 0;
    unlinkat(unfinished.directory, unfinished.fileName, 0);
    unlinkat(unfinished.parent, unfinished.directoryName, AT_REMOVEDIR);
}

SafeOutput::SafeOutput(const std::string& pathArg) : given(pathArg), path(pathArg)
{
    resolveLinks();
    name = fs::path(path).filename().string();
    const fs::path around = fs::path(path).parent_path();
    unfinished.parent = open(around.empty() ? "." : around.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (unfinished.parent < 0)
        failToWrite(errno);
    try
    {
        refuseToReplace();
        removeLeftovers(unfinished.parent);
        makeDirectory();
    }
    catch (...)
    {
        close(unfinished.parent);
        throw;
    }
}

SafeOutput::~SafeOutput()
{
    removeUnfinishedOutput();
    for (const int descriptor : {file, unfinished.directory, unfinished.parent})
        close(descriptor);
}

/// The file behind a link is replaced, not the link.
void SafeOutput::resolveLinks()
{
    std::error_code ignored;
    for (int i = 0; i < 40 && fs::is_symlink(path, ignored); ++i)
    {
        if (!mayFollow(path))
            throw Failure(given + " is a link of another user; give another name");
        path = (fs::path(path).parent_path() / fs::read_symlink(path, ignored)).string();
    }
}

void SafeOutput::refuseToReplace() const
{
    struct stat status = {};
    if (fstatat(unfinished.parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    if (!S_ISREG(status.st_mode))
        throw Failure(given + (S_ISDIR(status.st_mode) ? " is a directory" : " is no ordinary file") +
                      "; give the name of a file");
    if (status.st_uid != geteuid())
        throw Failure(given + " belongs to another user and isn't replaced; remove it, or give another name");
    if ((status.st_mode & S_IWUSR) == 0)
        throw Failure(given + " is read-only and isn't replaced; allow writing to it, or give another name");
}

void SafeOutput::makeDirectory()
{
    constexpr int numTrials = 10;
    int trial = 0;
    while (trial < numTrials && !tryToMakeDirectory())
        ++trial;
    if (trial == numTrials)
        failToWrite(errno);
    const size_t dot = given.rfind('.'); // also of a name that is nothing but its ending
    std::string fileName(filePrefix);
    fileName += dot == std::string::npos ? "" : given.substr(dot);
    fileName.copy(unfinished.fileName, sizeof(unfinished.fileName) - 1);
    file =
        openat(unfinished.directory, unfinished.fileName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    const int problem = errno;
    unfinished.bThere = 1;
    if (file < 0)
    {
        removeUnfinishedOutput();
        close(unfinished.directory);
        failToWrite(problem);
    }
    removeUnfinishedOutputOnSignals();
}

/// False, with errno set, also when another run took the new directory for a leftover before it was locked.
bool SafeOutput::tryToMakeDirectory()
{
    const std::string random = makeRandomName();
    if (random.empty() || mkdirat(unfinished.parent, random.c_str(), 0700) != 0)
        return false;
    unfinished.directory = openDirectory(unfinished.parent, random.c_str());
    if (unfinished.directory < 0)
    {
        const int problem = errno;
        unlinkat(unfinished.parent, random.c_str(), AT_REMOVEDIR);
        errno = problem;
        return false;
    }
    flock(unfinished.directory, LOCK_SH); // where a file system has no locks, leftovers stay
    struct stat status = {};
    errno = EAGAIN;
    if (isMine(unfinished.directory) && fstat(unfinished.directory, &status) == 0 && status.st_nlink > 0)
    {
        random.copy(unfinished.directoryName, sizeof(unfinished.directoryName) - 1);
        return true;
    }
    close(unfinished.directory);
    return false;
}

/// By the descriptor, which stays the same directory whatever others do to its name.
std::string SafeOutput::getTemporaryPath() const
{
    const std::string held = "/proc/self/fd/" + std::to_string(unfinished.directory);
    if (access(held.c_str(), X_OK) == 0)
        return held + '/' + unfinished.fileName;
    return (fs::path(path).parent_path() / unfinished.directoryName / unfinished.fileName).string();
}

void SafeOutput::failToWrite(int problem) const
{
    throw Failure(given + " can't be written (" + std::strerror(problem) + "); choose another place");
}

void SafeOutput::writeBy(const std::function<bool(const std::string& path)>& write)
{
    if (!write(getTemporaryPath()))
        throw Failure(given + " couldn't be written completely; check the space on the disk");
    refuseToReplace(); // a long run may lie between
    struct stat before = {};
    if (fstatat(unfinished.parent, name.c_str(), &before, AT_SYMLINK_NOFOLLOW) == 0)
        fchmod(file, before.st_mode & 07777);
    if (renameat(unfinished.directory, unfinished.fileName, unfinished.parent, name.c_str()) != 0)
        throw Failure(given + " couldn't be replaced (" + std::strerror(errno) + "); choose another place");
}

} // namespace zavtool
