// Memory in blocks of ever rising addresses.
//
// Mesh objects are identified and ordered by their address. When later objects always lie higher, address order is
// the order of creation, and a run gives the same bytes in every process and with any number of threads. The general
// allocator does not promise that: it serves large blocks from the top of the address space downwards.
#pragma once

#include <cstddef>
#include <vector>

namespace MIRT_TOOLS
{

/// Hands out raw blocks, each one above all earlier blocks of the same object. Address space is reserved in wide ranges
/// that cost no memory; pages become usable only as blocks need them. All of it is released with the object. Only when
/// a range is full and the address space above it is taken may a block lie below earlier ones.
class AscendingMemory
{
public:
    AscendingMemory() = default;
    ~AscendingMemory() { release(); }
    AscendingMemory(const AscendingMemory&) = delete;
    AscendingMemory& operator=(const AscendingMemory&) = delete;

    /// A block of the given size, aligned for any object; null when memory is out. A size of 0 gives a valid address.
    void* allocate(size_t numBytes);

    /// Takes back all blocks that start at or above an address handed out before. The pages of the range that it lies
    /// in are kept: what goes back is usually taken again at once, and the system would have to clear them anew.
    void releaseFrom(void* start);

    /// Gives back everything.
    void release();

private:
    struct Range
    {
        char* begin;
        char* top;       // first byte not handed out
        char* committed; // first byte that isn't usable yet
        char* end;
    };

    bool addRange(size_t numBytes);

    std::vector<Range> vRanges;
};

} // namespace MIRT_TOOLS
