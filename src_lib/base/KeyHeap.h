// A binary heap of small words, for millions of entries.
//
// Among equal keys the order in which entries leave follows from the order of pushes, and results depend on it. It is
// the order of std::push_heap and std::pop_heap as they have always been written: a new entry rises as long as it is
// smaller than what is above it; to take the top out, the smaller of two children (the second one of equals) moves up
// until the gap has reached the bottom, and the last entry rises from there.
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

    /// Takes out the top. Entries that come near to it on this occasion are announced, so that what will be read for
    /// them can be fetched ahead.
    /// \param announce  called as announce(level, value) for the entry that moved up to each of the levels 1 to
    ///                  announcedLevels below the top
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
    /// Writes an entry to the gap at a place or above it.
    void rise(size_t gap, Entry entry)
    {
        while (gap > 0 && entries[(gap - 1) / 2].key > entry.key)
        {
            entries[gap] = entries[(gap - 1) / 2];
            gap = (gap - 1) / 2;
        }
        entries[gap] = entry;
    }

    /// Moves the gap at the top to the bottom; returns its place there.
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
            // Three levels ahead, so that the memory answers while the levels between are dealt with.
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
