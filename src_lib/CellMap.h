// A map from cells to values for many look-ups near each other.
#pragma once

#include "Calc.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// A map from cell to value as a sorted list. A directory of the rows of equal x and y makes a search a matter of few
/// entries; where the cells are too thin for it, several rows share a slot.
template <class T>
class CellMap
{
public:
    using Entry = std::pair<RCD, T>;

    explicit CellMap(std::vector<Entry> sortedEntries) : entries(std::move(sortedEntries))
    {
        if (entries.empty())
            return;
        chooseSlots();
        vFirst.reserve(slotOf(entries.back().first) + 2);
        for (size_t i = 0; i < entries.size(); ++i)
            for (const size_t slot = slotOf(entries[i].first); vFirst.size() <= slot;)
                vFirst.push_back(static_cast<unsigned>(i));
        vFirst.push_back(static_cast<unsigned>(entries.size()));
    }

    /// The value of a cell, null where there is none.
    T* find(RCD r)
    {
        if (entries.empty() || r < entries.front().first || r > entries.back().first || rcd::getY(r) < minY ||
            rcd::getY(r) > maxY)
            return nullptr;
        const size_t slot = slotOf(r);
        Entry* it = entries.data() + vFirst[slot];
        Entry* const end = entries.data() + vFirst[slot + 1];
        const auto isBelow = [](const Entry& entry, RCD cell) { return entry.first < cell; };
        if (end - it > 16)
            it = std::lower_bound(it, end, r, isBelow);
        while (it != end && isBelow(*it, r))
            ++it;
        return it != end && it->first == r ? &it->second : nullptr;
    }
    const T* find(RCD r) const { return const_cast<CellMap*>(this)->find(r); }

private:
    size_t slotOf(RCD r) const
    {
        return ((rcd::getX(r) - minX) >> shiftX) * slotsPerX + ((rcd::getY(r) - minY) >> shiftY);
    }

    /// Slots of rows, then of planes of equal x, in the order of the cells; not many more slots than cells.
    void chooseSlots()
    {
        minX = rcd::getX(entries.front().first);
        for (const Entry& entry : entries)
        {
            minY = std::min(minY, rcd::getY(entry.first));
            maxY = std::max(maxY, rcd::getY(entry.first));
        }
        const u64 numX = rcd::getX(entries.back().first) - minX + 1;
        while ((((maxY - minY) >> shiftY) + 1) * numX > entries.size() && (maxY - minY) >> shiftY > 0)
            ++shiftY;
        slotsPerX = ((maxY - minY) >> shiftY) + 1;
        while (numX >> shiftX > entries.size())
            ++shiftX;
    }

    std::vector<Entry> entries;
    std::vector<unsigned> vFirst; // per slot its first entry, and the end
    u64 minX = 0;
    u64 minY = ~u64(0), maxY = 0;
    u64 slotsPerX = 1;
    unsigned shiftX = 0, shiftY = 0; // the first only when the second leaves one slot per x
};

} // namespace MIRT_ZAV
