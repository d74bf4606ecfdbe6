// An associative container for meshes: look-ups through a hash table, results in the order of an ordered tree.
//
// A tree of millions of nodes costs a chain of cache misses for every look-up. Meshes look up constantly and iterate in
// key order rarely. So the entries lie in one array, found through a hash table of their indices, and the array is
// sorted only when an iteration asks for it. The hash decides how fast it goes, never an order.
//
//     slots    [ 3 |   | 0 | 4 |   |   | 1 | 2 ]     linear probing
//     entries  [ a   c   f | d   b ]
//                sorted      as they came            numSorted = 3
#pragma once

#include "base/sortMT.h"

#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

namespace MIRT_TOOLS
{

/// Spreads the bits of a 64-bit number over the whole word: multiplicative hashing by the golden ratio (Knuth).
inline std::uint64_t mixBits(std::uint64_t x)
{
    x *= 0x9e3779b97f4a7c15u;
    return x ^ (x >> 32);
}

/// Hash of integers, pointers and pairs of them.
struct WordHash
{
    std::uint64_t operator()(unsigned long long key) const { return mixBits(key); }
    std::uint64_t operator()(const void* key) const { return mixBits(reinterpret_cast<std::uintptr_t>(key)); }
    template <class A, class B>
    std::uint64_t operator()(const std::pair<A, B>& key) const
    {
        return mixBits((*this)(key.first) + std::rotl((*this)(key.second), 29));
    }
};

/// Unique keys with a value each, like std::map. An insertion or erasure may move other entries, so it ends iterations
/// and makes pointers to values invalid. Look-ups of several threads may overlap; begin() overlaps with nothing, as it
/// may sort.
template <class Key, class Value, class Hash = WordHash>
class OrderedIndex
{
public:
    using value_type = std::pair<Key, Value>;
    using const_iterator = typename std::vector<value_type>::const_iterator;

    size_t size() const { return entries.size(); }
    bool empty() const { return entries.empty(); }

    void clear()
    {
        entries.clear();
        slots.clear();
        numSorted = 0;
    }

    void reserve(size_t n)
    {
        entries.reserve(n);
        if (numSlotsFor(n) > slots.size())
            rebuildSlots(numSlotsFor(n));
    }

    /// The value of a key, or null. Valid until the next change and the next begin().
    Value* find(const Key& key)
    {
        const size_t slot = findSlot(key, Hash()(key));
        return slot == notFound ? nullptr : &entries[slots[slot].index].second;
    }
    const Value* find(const Key& key) const { return const_cast<OrderedIndex*>(this)->find(key); }
    size_t count(const Key& key) const { return find(key) != nullptr ? 1 : 0; }

    /// Asks the processor to load the place where the search for a key will begin.
    void prefetch(const Key& key) const
    {
        if (!slots.empty())
            __builtin_prefetch(&slots[homeOf(Hash()(key))]);
    }

    /// False when the key is there already; its value stays.
    bool insert(const Key& key, const Value& value) { return insertOrFind(key, value).second; }

    /// \return the value of the key, which is the one given if the key wasn't there, and whether it wasn't
    std::pair<Value*, bool> insertOrFind(const Key& key, const Value& value)
    {
        const std::uint64_t hash = Hash()(key);
        if (const size_t slot = findSlot(key, hash); slot != notFound)
            return {&entries[slots[slot].index].second, false};
        if (numSlotsFor(entries.size() + 1) > slots.size())
            rebuildSlots(numSlotsFor(entries.size() + 1));
        if (numSorted == entries.size() && (entries.empty() || entries.back().first < key))
            ++numSorted; // keys that arrive in order spare the sort
        entries.emplace_back(key, value);
        occupy(hash, static_cast<std::uint32_t>(entries.size() - 1));
        return {&entries.back().second, true};
    }

    /// The last entry fills the gap, so that the array stays dense.
    /// \return the number of entries erased, 0 or 1
    size_t erase(const Key& key)
    {
        const size_t slot = findSlot(key, Hash()(key));
        if (slot == notFound)
            return 0;
        const std::uint32_t hole = slots[slot].index;
        vacate(slot);
        const std::uint32_t last = static_cast<std::uint32_t>(entries.size() - 1);
        if (hole != last)
        {
            slots[findSlotOf(last)].index = hole;
            entries[hole] = std::move(entries[last]);
        }
        entries.pop_back();
        numSorted = std::min<size_t>(numSorted, hole);
        return 1;
    }

    const_iterator begin() const
    {
        putInOrder();
        return entries.begin();
    }
    const_iterator end() const { return entries.end(); }

private:
    /// A place of the table. The tag, the upper half of the hash, tells most keys apart without a look at the entries.
    struct Slot
    {
        std::uint32_t tag = 0;
        std::uint32_t index = noEntry;
    };
    static constexpr std::uint32_t noEntry = 0xffffffffu;
    static constexpr size_t notFound = ~size_t(0);

    static size_t numSlotsFor(size_t numEntries)
    {
        return std::bit_ceil(std::max<size_t>(16, numEntries + numEntries / 2));
    }
    static std::uint32_t tagOf(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 32); }
    size_t homeOf(std::uint64_t hash) const { return hash & (slots.size() - 1); }
    size_t next(size_t slot) const { return (slot + 1) & (slots.size() - 1); }

    size_t findSlot(const Key& key, std::uint64_t hash) const
    {
        if (slots.empty())
            return notFound;
        for (size_t slot = homeOf(hash); slots[slot].index != noEntry; slot = next(slot))
            if (slots[slot].tag == tagOf(hash) && entries[slots[slot].index].first == key)
                return slot;
        return notFound;
    }

    /// The place of an entry. It compares indices, not keys: a point with a NaN in it isn't even equal to itself.
    size_t findSlotOf(std::uint32_t index) const
    {
        size_t slot = homeOf(Hash()(entries[index].first));
        while (slots[slot].index != index)
            slot = next(slot);
        return slot;
    }

    void occupy(std::uint64_t hash, std::uint32_t index) const
    {
        size_t slot = homeOf(hash);
        while (slots[slot].index != noEntry)
            slot = next(slot);
        slots[slot] = {tagOf(hash), index};
    }

    /// Empties a place. A search ends at the first empty place, so entries behind the hole that would no longer be
    /// found move into it (Knuth's algorithm R for linear probing): those whose home isn't behind the hole.
    ///
    ///     home of x         hole         x            x moves into the hole and leaves the next one
    ///         |...............|..........|
    void vacate(size_t hole)
    {
        for (size_t slot = next(hole); slots[slot].index != noEntry; slot = next(slot))
        {
            const size_t home = homeOf(Hash()(entries[slots[slot].index].first));
            const size_t mask = slots.size() - 1;
            if (((slot - home) & mask) >= ((slot - hole) & mask))
            {
                slots[hole] = slots[slot];
                hole = slot;
            }
        }
        slots[hole] = Slot();
    }

    void rebuildSlots(size_t numSlots) const
    {
        slots.assign(numSlots, Slot());
        for (size_t i = 0; i < entries.size(); ++i)
            occupy(Hash()(entries[i].first), static_cast<std::uint32_t>(i));
    }

    void putInOrder() const
    {
        if (numSorted == entries.size())
            return;
        const auto byKey = [](const value_type& x, const value_type& y) { return x.first < y.first; };
        const auto middle = entries.begin() + static_cast<std::ptrdiff_t>(numSorted);
        MIRT_ZAV::sortMT(middle, entries.end(), byKey);
        std::inplace_merge(entries.begin(), middle, entries.end(), byKey);
        numSorted = entries.size();
        rebuildSlots(slots.size());
    }

    // Mutable, as an iteration over a constant index sorts it, too.
    mutable std::vector<value_type> entries;
    mutable std::vector<Slot> slots; // a power of two, at most two thirds full
    mutable size_t numSorted = 0;    // so many entries from the front are in order
};

} // namespace MIRT_TOOLS
