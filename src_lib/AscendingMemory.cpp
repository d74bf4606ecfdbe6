#include "AscendingMemory.h"

#include <algorithm>
#include <cstdint>
#include <sys/mman.h>
#include <sys/resource.h>

namespace MIRT_TOOLS
{
namespace
{
constexpr size_t alignment = 16;
constexpr size_t smallCommit = size_t(64) << 10;
constexpr size_t hugePage = size_t(2) << 20;
constexpr size_t usualRange = size_t(16) << 30;

size_t roundUp(size_t n, size_t unit)
{
    return (n + unit - 1) / unit * unit;
}

/// How much address space one range may take: little where the process is limited, for its other needs' sake.
size_t rangeSize()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return usualRange;
    return std::min<size_t>(usualRange, std::max<size_t>(hugePage, limit.rlim_cur / 256));
}
} // namespace

void* AscendingMemory::allocate(size_t numBytes)
{
    const size_t needed = roundUp(numBytes, alignment);
    if (needed < numBytes)
        return nullptr;
    if (vRanges.empty() || static_cast<size_t>(vRanges.back().end - vRanges.back().top) < needed)
        if (!addRange(needed))
            return nullptr;

    Range& range = vRanges.back();
    char* const block = range.top;
    if (needed > static_cast<size_t>(range.committed - block))
    {
        const size_t used = static_cast<size_t>(block + needed - range.begin);
        const size_t wanted = roundUp(used, used < hugePage ? smallCommit : hugePage);
        char* const newCommitted = std::min(range.end, range.begin + wanted);
        if (mprotect(range.committed, static_cast<size_t>(newCommitted - range.committed), PROT_READ | PROT_WRITE) != 0)
            return nullptr;
        range.committed = newCommitted;
    }
    range.top = block + needed;
    return block;
}

bool AscendingMemory::addRange(size_t numBytes)
{
    const size_t leastSize = roundUp(numBytes, hugePage) + hugePage;   // room to start at a huge page's border
    void* const wish = vRanges.empty() ? nullptr : vRanges.back().end; // rising addresses also across ranges
    for (size_t size = std::max(leastSize, rangeSize());; size = std::max(leastSize, size / 2))
    {
        void* const memory = mmap(wish, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory != MAP_FAILED)
        {
            // Mesh pools are walked at random: huge pages save most of their page faults and address look-ups.
            madvise(memory, size, MADV_HUGEPAGE);
            char* const begin = static_cast<char*>(memory);
            vRanges.push_back({begin, begin, begin, begin + size});
            return true;
        }
        if (size == leastSize)
            return false;
    }
}

void AscendingMemory::releaseFrom(void* start)
{
    char* const address = static_cast<char*>(start);
    const auto holdsStart = [address](const Range& r) { return address >= r.begin && address <= r.end; };
    const auto keep = std::find_if(vRanges.begin(), vRanges.end(), holdsStart);
    if (keep == vRanges.end())
        return;
    for (auto it = keep + 1; it != vRanges.end(); ++it)
        munmap(it->begin, static_cast<size_t>(it->end - it->begin));
    vRanges.erase(keep + 1, vRanges.end());

    Range& range = vRanges.back();
    const size_t kept = roundUp(static_cast<size_t>(address - range.begin), smallCommit);
    char* const firstFree = std::min(range.end, range.begin + kept);
    if (firstFree < range.committed)
    {
        madvise(firstFree, static_cast<size_t>(range.committed - firstFree), MADV_DONTNEED);
        mprotect(firstFree, static_cast<size_t>(range.committed - firstFree), PROT_NONE);
        range.committed = firstFree;
    }
    range.top = address;
}

void AscendingMemory::release()
{
    for (const Range& range : vRanges)
        munmap(range.begin, static_cast<size_t>(range.end - range.begin));
    vRanges.clear();
}

} // namespace MIRT_TOOLS
