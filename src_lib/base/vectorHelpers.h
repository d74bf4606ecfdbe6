// Set algebra on sorted vectors.
#pragma once

#include "base/sortMT.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Makes v a sorted set: sorts and removes duplicates.
template <class T>
void oneInstance(std::vector<T>& v)
{
    sortMT(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
}

template <class T>
void oneInstanceMT(std::vector<T>& v)
{
    oneInstance(v);
}

/// Set difference: removes from a what is also in b. Both must be sorted.
template <class T>
void removeVec(std::vector<T>& a, const std::vector<T>& b)
{
    std::vector<T> difference;
    difference.reserve(a.size());
    auto itB = b.begin();
    for (const T& value : a)
    {
        while (itB != b.end() && *itB < value)
            ++itB;
        if (itB == b.end() || value < *itB)
            difference.push_back(value);
    }
    a.swap(difference);
}

/// Intersection: removes from a what isn't in b. Both must be sorted.
template <class T>
void keepVec(std::vector<T>& a, const std::vector<T>& b)
{
    auto itB = b.begin();
    const auto isMissing = [&itB, &b](const T& value)
    {
        while (itB != b.end() && *itB < value)
            ++itB;
        return itB == b.end() || value < *itB;
    };
    // Not std::remove_if, which may copy its predicate: this one remembers how far it has come in b.
    auto itOut = a.begin();
    for (const T& value : a)
        if (!isMissing(value))
            *itOut++ = value;
    a.erase(itOut, a.end());
}

/// Removes the entries that have both this key and this value; returns how many there were.
template <class K, class V>
int eraseCertainEntry(std::multimap<K, V>& m, const K& k, const V& v)
{
    int numErased = 0;
    auto range = m.equal_range(k);
    for (auto it = range.first; it != range.second;)
    {
        if (it->second == v)
        {
            it = m.erase(it);
            ++numErased;
        }
        else
            ++it;
    }
    return numErased;
}

} // namespace MIRT_ZAV
