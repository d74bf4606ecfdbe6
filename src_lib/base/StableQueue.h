// A priority queue in which equal keys leave in their order of arrival, like a multimap that is only read at its front.
#pragma once

#include "base/sortMT.h"

#include <algorithm>
#include <cstdint>
#include <queue>
#include <utility>
#include <vector>

namespace MIRT_TOOLS
{

/// The smallest key under Compare comes first, and of equal keys the one with the lowest number of arrival. Entries
/// that arrive in bulk are sorted once and then read off one by one; only single entries go through a heap.
///
///     list   . . . . | 1.0 1.5 1.5 2.0 ...      read up to iList
///     heap             1.2 1.5 1.7              front() is the smaller of the two fronts
template <class Key, class Value, class Compare = std::less<Key>>
class StableQueue
{
public:
    using Item = std::pair<Key, Value>;

    bool empty() const { return isListDone() && heap.empty(); }
    size_t size() const { return vList.size() - iList + heap.size(); }

    void push(const Key& key, const Value& value) { pushAt(key, takeArrivals(1), value); }
    /// The same with a number of arrival that was set aside before: the entry takes its place among equal keys as if it
    /// had been pushed back then.
    void pushAt(const Key& key, std::uint64_t arrival, const Value& value) { heap.push({key, arrival, value}); }
    /// Sets n numbers of arrival aside for entries that come later; returns the first.
    std::uint64_t takeArrivals(std::uint64_t n)
    {
        numArrived += n;
        return numArrived - n;
    }

    /// Pushes makeValue(second) under first for all items, in their order.
    template <class T, class F>
    void pushAll(const std::vector<std::pair<Key, T>>& items, const F& makeValue)
    {
        pushAllAt(items, makeValue, [this](const T&) { return takeArrivals(1); });
    }

    /// The same with arrivalOf(second) as number of arrival. A merge costs the length of the list, so that a few items
    /// beside a long list go through the heap instead.
    template <class T, class F, class G>
    void pushAllAt(const std::vector<std::pair<Key, T>>& items, const F& makeValue, const G& arrivalOf)
    {
        if (16 * items.size() < vList.size() - iList)
        {
            for (const auto& [key, item] : items)
                pushAt(key, arrivalOf(item), makeValue(item));
            return;
        }
        std::vector<Entry> vNew(vList.begin() + static_cast<std::ptrdiff_t>(iList), vList.end());
        const auto numOld = static_cast<std::ptrdiff_t>(vNew.size());
        vNew.reserve(vNew.size() + items.size());
        for (const auto& [key, item] : items)
            vNew.push_back({key, arrivalOf(item), makeValue(item)});
        const auto isBefore = [](const Entry& x, const Entry& y) { return comesBefore(x, y); };
        MIRT_ZAV::sortMT(vNew.begin() + numOld, vNew.end(), isBefore);
        std::inplace_merge(vNew.begin(), vNew.begin() + numOld, vNew.end(), isBefore);
        vList.swap(vNew);
        iList = 0;
    }

    /// The first entry; the queue must not be empty.
    Item front() const
    {
        const Entry& entry = isListNext() ? vList[iList] : heap.top();
        return {entry.key, entry.value};
    }

    /// The value n places ahead in the list, or null: a hint at what comes soon, to fetch memory in time. Entries of
    /// the heap don't count.
    const Value* lookAhead(size_t n) const { return n < vList.size() - iList ? &vList[iList + n].value : nullptr; }

    void pop()
    {
        if (isListNext())
            ++iList;
        else
            heap.pop();
    }

private:
    struct Entry
    {
        Key key;
        std::uint64_t arrival;
        Value value;
    };
    static bool comesBefore(const Entry& x, const Entry& y)
    {
        const Compare compare;
        return compare(x.key, y.key) || (!compare(y.key, x.key) && x.arrival < y.arrival);
    }
    struct ComesLater // std::priority_queue has the largest element in front
    {
        bool operator()(const Entry& x, const Entry& y) const { return comesBefore(y, x); }
    };

    bool isListDone() const { return iList == vList.size(); }
    bool isListNext() const { return !isListDone() && (heap.empty() || comesBefore(vList[iList], heap.top())); }

    std::vector<Entry> vList; // sorted
    size_t iList = 0;         // those before it have left
    std::priority_queue<Entry, std::vector<Entry>, ComesLater> heap;
    std::uint64_t numArrived = 0;
};

} // namespace MIRT_TOOLS
