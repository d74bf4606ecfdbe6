// Radix sort for keys whose order is that of an unsigned 64-bit number.
//
// A range larger than the cache is cut by the highest digit into parts; a part that fits the cache is sorted from the
// lowest digit to the highest. Only bits in which the keys differ cost a pass. Lattice codes have few of them: those of
// one object share the upper bits, and in a row code those of each of the three coordinates.
//
//     row codes of one object   ======iiiiiii ======jjjjjj ======kkkkkkk      =: the same bits in all of them
//
// The sort is stable. Where pairs are ordered by both members, runs of equal first members are finished by comparison.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace MIRT_ZAV::radix
{

template <class T>
constexpr bool isKey = std::is_same_v<T, unsigned long long> || std::is_same_v<T, unsigned long> ||
                       std::is_same_v<T, int> || std::is_same_v<T, double> || std::is_pointer_v<T>;

template <class T>
struct FirstOf
{
    using Type = void;
};
template <class A, class B>
struct FirstOf<std::pair<A, B>>
{
    using Type = A;
};

template <class T, class Compare>
constexpr bool isLess = std::is_same_v<Compare, std::less<T>> || std::is_same_v<Compare, std::less<void>>;

/// Keys, or pairs with a key in front, under operator<.
template <class T, class Compare>
constexpr bool isNaturalOrder = isLess<T, Compare> && (isKey<T> || isKey<typename FirstOf<T>::Type>);

/// Pairs with a key in front, ordered by it alone.
template <class T, class Compare, class FirstCompare>
constexpr bool isFirstOrder = std::is_same_v<Compare, FirstCompare>&& isKey<typename FirstOf<T>::Type>;

/// With fewer elements a comparison sort is faster.
constexpr std::ptrdiff_t leastSize = 1024;

// Each turns a key into a number that sorts as the key does.
inline std::uint64_t toBits(unsigned long long key)
{
    return key;
}
inline std::uint64_t toBits(unsigned long key)
{
    return key;
}
inline std::uint64_t toBits(int key)
{
    return static_cast<std::uint32_t>(key) ^ 0x80000000u;
}
inline std::uint64_t toBits(const void* key)
{
    return reinterpret_cast<std::uintptr_t>(key);
}
/// The usual trick for IEEE numbers: negative ones are inverted, the others get the top bit. Adding 0.0 makes both
/// zeros the same. NaN has no place in the order; ranges that hold one aren't sorted here.
inline std::uint64_t toBits(double key)
{
    const auto bits = std::bit_cast<std::uint64_t>(key + 0.0);
    return bits >> 63 ? ~bits : bits | 0x8000000000000000u;
}

template <class T>
std::uint64_t keyOf(const T& element)
{
    if constexpr (isKey<T>)
        return toBits(element);
    else
        return toBits(element.first);
}

/// Bits of a digit. Wide digits save passes, as long as everything fits a near cache. Beyond it each digit writes to a
/// memory page of its own, and narrow digits keep the number of pages small enough for the TLB.
constexpr int wideDigit = 11;
constexpr int narrowDigit = 8;
/// Ranges up to this size are sorted within the cache.
constexpr std::size_t cacheBytes = std::size_t(1) << 19;

/// Where the elements of each digit start; the last entry is the end.
template <int digitBits>
using DigitStarts = std::array<std::size_t, (std::size_t(1) << digitBits) + 1>;

/// One stable pass by the digit that begins at bit shift, from one buffer to the other.
template <int digitBits, class T>
DigitStarts<digitBits> scatterByDigit(const T* from, const T* end, T* to, int shift)
{
    constexpr std::size_t mask = (std::size_t(1) << digitBits) - 1;
    const auto digitOf = [shift](const T& element) { return (keyOf(element) >> shift) & mask; };
    DigitStarts<digitBits> starts{};
    for (const T* it = from; it != end; ++it)
        ++starts[digitOf(*it) + 1];
    for (std::size_t digit = 0; digit <= mask; ++digit)
        starts[digit + 1] += starts[digit];
    DigitStarts<digitBits> position = starts;
    for (const T* it = from; it != end; ++it)
        to[position[digitOf(*it)]++] = *it;
    return starts;
}

/// The bits in which the keys of a range differ, and whether the range is sorted already.
struct KeySurvey
{
    std::uint64_t varyingBits = 0;
    bool bSorted = true;

    template <class T>
    KeySurvey(const T* first, const T* last)
    {
        if (first == last)
            return;
        const std::uint64_t firstKey = keyOf(*first);
        std::uint64_t previous = firstKey;
        for (const T* it = first; it != last; ++it)
        {
            const std::uint64_t key = keyOf(*it);
            varyingBits |= key ^ firstKey;
            bSorted &= previous <= key;
            previous = key;
        }
    }
};

/// Stable sort of a range that fits the cache, lowest digit first. Passes go to and fro between the two buffers.
/// \param from         holds the elements; afterwards the result or anything
/// \param buffer       the other one, as large
/// \param bIntoBuffer  where the result has to stand: in buffer, or in from
template <class T>
void sortInCache(T* from, T* buffer, std::size_t n, std::uint64_t varyingBits, bool bIntoBuffer)
{
    T* const result = bIntoBuffer ? buffer : from;
    while (varyingBits != 0)
    {
        const int shift = std::countr_zero(varyingBits);
        scatterByDigit<wideDigit>(from, from + n, buffer, shift);
        std::swap(from, buffer);
        const int next = shift + wideDigit;
        varyingBits = next >= 64 ? 0 : varyingBits >> next << next;
    }
    if (from != result)
        std::copy(from, from + n, result);
}

/// Stable; the fastest for a few elements.
template <class T>
void insertionSort(T* first, T* last)
{
    for (T* it = first; it != last; ++it)
    {
        T element = std::move(*it);
        T* hole = it;
        for (; hole != first && keyOf(element) < keyOf(hole[-1]); --hole)
            *hole = std::move(hole[-1]);
        *hole = std::move(element);
    }
}

/// Runs f(i) for all i below n, one after the other.
struct SerialLoop
{
    template <class F>
    void operator()(std::size_t n, const F& f) const
    {
        for (std::size_t i = 0; i < n; ++i)
            f(i);
    }
};

/// Stable sort of any range: a large one is cut by its highest varying digit into parts, which lie in the other buffer
/// and are sorted each by itself. Parameters as for sortInCache.
/// \param loop  runs the parts, possibly at the same time
template <class T, class Loop>
void sortRange(T* from, T* buffer, std::size_t n, bool bIntoBuffer, const Loop& loop)
{
    constexpr std::size_t fewElements = 48;
    const KeySurvey survey(from, from + n);
    if (survey.bSorted || n <= fewElements)
    {
        if (!survey.bSorted)
            insertionSort(from, from + n);
        if (bIntoBuffer)
            std::copy(from, from + n, buffer);
        return;
    }
    if (n * sizeof(T) <= cacheBytes)
    {
        sortInCache(from, buffer, n, survey.varyingBits, bIntoBuffer);
        return;
    }
    const int shift = std::max(0, 64 - std::countl_zero(survey.varyingBits) - narrowDigit);
    const auto starts = scatterByDigit<narrowDigit>(from, from + n, buffer, shift);
    loop(starts.size() - 1,
         [&](std::size_t part)
         {
             const std::size_t start = starts[part];
             sortRange(buffer + start, from + start, starts[part + 1] - start, !bIntoBuffer, SerialLoop());
         });
}

/// Stable sort by the key alone. Takes a buffer as large as the range, unless that is sorted already.
/// \param loop  runs the parts of a large range, possibly at the same time
template <class T, class Loop = SerialLoop>
void sortByKey(T* first, T* last, const Loop& loop = Loop())
{
    const std::size_t n = static_cast<std::size_t>(last - first);
    if (KeySurvey(first, last).bSorted)
        return;
    const std::unique_ptr<T[]> buffer = std::make_unique_for_overwrite<T[]>(n);
    sortRange(first, buffer.get(), n, false, loop);
}

/// After a sort by the first member: sorts every run of equal first members under the full order.
template <class T, class Compare>
void finishRuns(T* first, T* last, const Compare& comp)
{
    for (T* run = first; run != last;)
    {
        T* runEnd = run + 1;
        while (runEnd != last && keyOf(*runEnd) == keyOf(*run))
            ++runEnd;
        if (runEnd - run > 1 && !std::is_sorted(run, runEnd, comp))
            std::sort(run, runEnd, comp);
        run = runEnd;
    }
}

/// Whether a key has no place in the order of toBits.
template <class T>
bool hasNaN(const T* first, const T* last)
{
    if constexpr (std::is_same_v<T, double>)
        return std::any_of(first, last, [](double key) { return std::isnan(key); });
    else if constexpr (std::is_same_v<typename FirstOf<T>::Type, double>)
        return std::any_of(first, last, [](const T& element) { return std::isnan(element.first); });
    else
        return false;
}

/// Sorts a contiguous range under comp, which must be operator< or, for pairs, that of the first members alone.
/// \param loop  runs the parts of a large range, possibly at the same time
/// \return false, with nothing done, where a comparison sort is the better or the only choice
template <class RandomIt, class Compare, class Loop = SerialLoop>
bool sort(RandomIt first, RandomIt last, const Compare& comp, const Loop& loop = Loop())
{
    using T = typename std::iterator_traits<RandomIt>::value_type;
    if constexpr (!std::contiguous_iterator<RandomIt> || !std::is_default_constructible_v<T>)
        return false;
    else
    {
        if (last - first < leastSize)
            return false;
        T* const begin = std::to_address(first);
        T* const end = begin + (last - first);
        if (hasNaN(begin, end))
            return false;
        sortByKey(begin, end, loop);
        if constexpr (!isKey<T> && isLess<T, Compare>)
            finishRuns(begin, end, comp);
        return true;
    }
}

} // namespace MIRT_ZAV::radix
