// A priority queue in which equal keys keep their order of arrival, like a multimap that is only ever read at its
// front.
#pragma once

#include "base/sortMT.h"

#include <algorithm>
#include <cstdint>
#include <queue>
#include <utility>
#include <vector>

namespace MIRT_TOOLS
{

/// The first entry under Compare comes first. A bulk that arrives at once is kept as a sorted list, which costs its
/// readers no search; only single entries go through a heap.
template <class Key, class Value, class Compare = std::less<Key>>
class StableQueue
{
public:
    using Item = std::pair<Key, Value>;

    bool empty() const { return isListDone() && heap.empty(); }
    size_t size() const { return vList.size() - iList + heap.size(); }

    void push(const Key& key, const Value& value) { pushAt(key, takeArrivals(1), value); }
    /// As if the entry had been pushed when this number was the next one.
    void pushAt(const Key& key, std::uint64_t arrival, const Value& value) { heap.push({key, arrival, value}); }
    /// Sets the next n numbers of arrival aside; returns the first.
    std::uint64_t takeArrivals(std::uint64_t n)
    {
        numArrived += n;
        return numArrived - n;
    }

    /// As if makeValue(second) were pushed under first for all items in their order. Merging a bulk into the list costs
    /// the length of the list: a few items beside many go through the heap.
    template <class T, class F>
    void pushAll(const std::vector<std::pair<Key, T>>& items, const F& makeValue)
    {
        pushAllAt(items, makeValue, [this](const T&) { return takeArrivals(1); });
    }

    /// The same with the number arrivalOf(second).
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

    /// The value some way ahead among those that came at once, or null; to fetch memory in time.
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
    struct ComesLater // the standard heap has its largest element in front
    {
        bool operator()(const Entry& x, const Entry& y) const { return comesBefore(y, x); }
    };

    bool isListDone() const { return iList == vList.size(); }
    bool isListNext() const { return !isListDone() && (heap.empty() || comesBefore(vList[iList], heap.top())); }

    std::vector<Entry> vList; // in order
    size_t iList = 0;         // its first entry that is still there
    std::priority_queue<Entry, std::vector<Entry>, ComesLater> heap;
    std::uint64_t numArrived = 0;
};

} // namespace MIRT_TOOLS
