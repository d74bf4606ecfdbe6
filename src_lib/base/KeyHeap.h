// A binary heap of small words, for millions of entries.
//
// The bytes of every result depend on the order in which entries of equal keys leave. It is that of std::push_heap and
// std::pop_heap as they are usually written, so this heap takes the very same steps. A new entry rises as long as it is
// smaller than what is above it. Taking the top out is Floyd's variant: the gap sinks to the bottom, each time pulling
// up the smaller child (of equals the second); then the last entry goes in there and rises.
//
//     level 0       1              ( )              3               3
//     level 1     3   5           3   5           4   5           4   5
//     level 2    7 4 8 6         7 4 8           7 ( ) 8         7 6 8
//
//                 before       the top and      the gap at      6 put in: it has
//                              6 taken out      the bottom      nothing to rise over
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace MIRT_TOOLS
{

/// The smallest key on top; values have no part in the order.
class KeyHeap
{
public:
    struct Entry
    {
        std::uint32_t value;
        std::uint32_t key;
    };

    static constexpr int announcedLevels = 3;

    bool empty() const { return entries.empty(); }
    void reserve(size_t n) { entries.reserve(n); }

    void push(std::uint32_t key, std::uint32_t value)
    {
        entries.push_back({value, key});
        rise(entries.size() - 1, {value, key});
    }

    /// Takes out the top. Entries that come near the top by that are announced: they will leave soon, and the caller
    /// can fetch the memory that it will read for them.
    /// \param announce  called as announce(level, value) for each entry that moves up to a level from 1, right below
    ///                  the top, to announcedLevels
    template <class F>
    Entry pop(const F& announce)
    {
        const Entry top = entries.front();
        const Entry last = entries.back();
        entries.pop_back();
        if (!entries.empty())
            rise(sinkGap(announce), last);
        return top;
    }

private:
    /// Puts an entry into the gap, or above it after larger ones have moved down.
    void rise(size_t gap, Entry entry)
    {
        while (gap > 0 && entries[(gap - 1) / 2].key > entry.key)
        {
            entries[gap] = entries[(gap - 1) / 2];
            gap = (gap - 1) / 2;
        }
        entries[gap] = entry;
    }

    /// Lets the gap sink from the top to the bottom; returns where it ends.
    template <class F>
    size_t sinkGap(const F& announce)
    {
        Entry* const e = entries.data();
        const size_t n = entries.size();
        size_t gap = 0;
        size_t child = 2;
        for (int level = 0; level <= announcedLevels && child < n; ++level, child = 2 * gap + 2)
        {
            gap = moveSmallerUp(e, gap);
            if (level > 0)
                announce(level, e[(gap - 1) / 2].value);
        }
        for (; child < n; child = 2 * gap + 2)
        {
            // All eight places three levels below the gap: memory answers while the levels between are dealt with.
            __builtin_prefetch(e + 8 * gap + 7);
            __builtin_prefetch(e + 8 * gap + 14);
            gap = moveSmallerUp(e, gap);
        }
        if (child == n)
        {
            e[gap] = e[n - 1];
            gap = n - 1;
        }
        return gap;
    }

    /// Fills a gap with the smaller of two children, the second one of equals; returns where the new gap is.
    static size_t moveSmallerUp(Entry* e, size_t gap)
    {
        const size_t second = 2 * gap + 2;
        const size_t child = second - (e[second].key > e[second - 1].key ? 1 : 0);
        e[gap] = e[child];
        return child;
    }

    std::vector<Entry> entries;
};

} // namespace MIRT_TOOLS
