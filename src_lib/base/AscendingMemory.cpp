#include "base/AscendingMemory.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <sys/mman.h>
#include <sys/resource.h>

namespace MIRT_TOOLS
{
namespace
{
constexpr size_t alignment = 16;
constexpr size_t smallCommit = size_t(64) << 10; // a small mesh doesn't pay for a whole huge page
constexpr size_t hugePage = size_t(2) << 20;
constexpr size_t usualRange = size_t(16) << 30; // address space is cheap, and most meshes stay within one range
constexpr size_t slotSize = size_t(64) << 30;   // distance of the places at which ranges try to lie
constexpr size_t maxBlock = size_t(1) << 46;    // half of a process's address space; keeps roundUp from overflowing

size_t roundUp(size_t n, size_t unit)
{
    return (n + unit - 1) / unit * unit;
}

/// How much address space one range may take. Under a limit such as that of "ulimit -v" it is a small part, or a few
/// meshes would use the limit up and leave nothing for the general allocator.
size_t rangeSize()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return usualRange;
    return std::min<size_t>(usualRange, std::max<size_t>(hugePage, limit.rlim_cur / 256));
}

void* reserve(void* wish, size_t size)
{
    return mmap(wish, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
}

/// Where the first range of the next object should lie: in a slot of its own in the empty middle of the address space,
/// with room to grow upwards. The system would put it right below other mappings, and a second range would find no
/// place above it. After 256 objects the slots come round again; reserveUpwards passes over those that are still taken.
char* nextSlot()
{
    static const std::uintptr_t middle = []
    {
        void* const probe = reserve(nullptr, hugePage);
        if (probe == MAP_FAILED)
            return std::uintptr_t(0);
        munmap(probe, hugePage);
        return roundUp(reinterpret_cast<std::uintptr_t>(probe) / 2, hugePage);
    }();
    static std::atomic<unsigned> numSlotsTaken{0};
    constexpr unsigned numSlots = 256;
    return reinterpret_cast<char*>(middle + slotSize * (numSlotsTaken++ % numSlots));
}

/// Address space at wish or whole slots above it; anywhere if all of those are taken; null if there is none.
char* reserveUpwards(char* wish, size_t size)
{
    constexpr int maxTries = 64;
    for (int i = 0; i < maxTries; ++i, wish += slotSize)
    {
        void* const memory = reserve(wish, size);
        if (memory == wish)
            return wish;
        if (memory == MAP_FAILED)
            return nullptr;
        munmap(memory, size);
    }
    void* const memory = reserve(nullptr, size);
    return memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
}
} // namespace

void* AscendingMemory::allocate(size_t numBytes)
{
    if (numBytes > maxBlock)
        return nullptr;
    const size_t needed = roundUp(numBytes, alignment);
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
    const size_t leastSize = roundUp(std::max<size_t>(numBytes, 1), smallCommit);
    char* const wish = vRanges.empty() ? nextSlot() : vRanges.back().end; // addresses rise across ranges, too
    for (size_t size = std::max(leastSize, rangeSize());; size = std::max(leastSize, size / 2))
    {
        if (char* const begin = reserveUpwards(wish, size))
        {
            // Meshes are walked in no order: huge pages spare most page faults and TLB misses.
            madvise(begin, size, MADV_HUGEPAGE);
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
    // From the back: where two ranges touch, the end of the lower one is the first block of the upper one.
    const auto holder = std::find_if(vRanges.rbegin(), vRanges.rend(), holdsStart);
    if (holder == vRanges.rend())
        return;
    for (auto it = holder.base(); it != vRanges.end(); ++it)
        munmap(it->begin, static_cast<size_t>(it->end - it->begin));
    vRanges.erase(holder.base(), vRanges.end());

    vRanges.back().top = address;
}

void AscendingMemory::release()
{
    for (const Range& range : vRanges)
        munmap(range.begin, static_cast<size_t>(range.end - range.begin));
    vRanges.clear();
}

} // namespace MIRT_TOOLS
