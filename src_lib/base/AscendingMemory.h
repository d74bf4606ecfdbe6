// Memory in blocks of ever rising addresses.
//
// Meshes tell their objects apart, and order them, by address. As long as later objects lie higher, that order is the
// order of creation, and a run gives the same bytes in every process and with any number of threads. The general
// allocator doesn't keep it: large blocks come from the top of the address space downwards.
#pragma once

#include <cstddef>
#include <vector>

namespace MIRT_TOOLS
{

/// Hands out raw blocks, each one above all earlier blocks of the same object. Address space is reserved in wide ranges
/// that cost no memory; pages become usable as blocks need them. All of it goes with the object. Only when a range is
/// full and the address space above it is taken can a block lie below earlier ones.
class AscendingMemory
{
public:
    AscendingMemory() = default;
    ~AscendingMemory() { release(); }
    AscendingMemory(const AscendingMemory&) = delete;
    AscendingMemory& operator=(const AscendingMemory&) = delete;

    /// \param numBytes  0 is fine: the next block then has the same address
    /// \return a block aligned to 16 bytes, not cleared; null when memory or address space is out
    void* allocate(size_t numBytes);

    /// Takes back a block and all that were handed out after it. The pages of the range that it lies in stay: they are
    /// usually needed again at once, and the system would have to clear them anew.
    /// \param start  an address that allocate gave
    void releaseFrom(void* start);

    /// Gives all memory back to the system.
    void release();

private:
    /// One reservation of address space. Only what lies below committed can cost memory:
    ///
    ///     begin           top              committed                end
    ///     |  handed out   |  ready for use   |  reserved, no access   |
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
