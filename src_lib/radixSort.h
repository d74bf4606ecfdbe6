// Least-significant-digit radix sort for keys whose order is that of an unsigned 64-bit number.
//
// Only the bits in which the keys differ are looked at: cell codes of one object share their upper bits, and the three
// fields of a row code leave wide gaps of equal bits between them. Digits of 11 bits keep the counters in the first
// cache level. The sort is stable; where pairs are ordered by both members, runs of equal first members are finished by
// comparison.
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

/// Elements that are keys or pairs with a key in front, under operator<.
template <class T, class Compare>
constexpr bool isNaturalOrder = isLess<T, Compare> && (isKey<T> || isKey<typename FirstOf<T>::Type>);

/// Pairs with a key in front, ordered by it alone.
template <class T, class Compare, class FirstCompare>
constexpr bool isFirstOrder = std::is_same_v<Compare, FirstCompare>&& isKey<typename FirstOf<T>::Type>;

/// Numbers of keys below which a comparison sort is faster.
constexpr std::ptrdiff_t leastSize = 1024;

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
/// The order of doubles; both zeros give the same bits. Numbers that aren't a number have no place in it.
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

constexpr int digitBits = 11;

/// The lowest bits of the digits that hold every bit of the mask.
inline std::vector<int> digitShifts(std::uint64_t varyingBits)
{
    std::vector<int> shifts;
    while (varyingBits != 0)
    {
        const int shift = std::countr_zero(varyingBits);
        shifts.push_back(shift);
        const int next = shift + digitBits;
        varyingBits = next >= 64 ? 0 : varyingBits >> next << next;
    }
    return shifts;
}

/// One stable pass by the digit at shift, from one buffer to the other.
template <class T>
void scatterByDigit(const T* from, const T* end, T* to, int shift)
{
    constexpr std::size_t numDigits = std::size_t(1) << digitBits;
    std::array<std::size_t, numDigits> position{};
    const auto digitOf = [shift](const T& element) { return (keyOf(element) >> shift) & (numDigits - 1); };
    for (const T* it = from; it != end; ++it)
        ++position[digitOf(*it)];
    std::size_t sum = 0;
    for (std::size_t& p : position)
        sum += std::exchange(p, sum);
    for (const T* it = from; it != end; ++it)
        to[position[digitOf(*it)]++] = *it;
}

/// Stable sort by the key alone.
template <class T>
void sortByKey(T* first, T* last)
{
    std::uint64_t varyingBits = 0;
    bool bSorted = true;
    const std::uint64_t firstKey = keyOf(*first);
    std::uint64_t previous = firstKey;
    for (const T* it = first; it != last; ++it)
    {
        const std::uint64_t key = keyOf(*it);
        varyingBits |= key ^ firstKey;
        bSorted &= previous <= key;
        previous = key;
    }
    if (bSorted)
        return;

    const std::size_t n = static_cast<std::size_t>(last - first);
    const std::unique_ptr<T[]> buffer = std::make_unique_for_overwrite<T[]>(n);
    T* from = first;
    T* to = buffer.get();
    for (const int shift : digitShifts(varyingBits))
    {
        scatterByDigit(from, from + n, to, shift);
        std::swap(from, to);
    }
    if (from != first)
        std::copy(from, from + n, first);
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

/// Sorts a contiguous range; false, with nothing done, where a comparison sort is the better or the only choice.
template <class RandomIt, class Compare>
bool sort(RandomIt first, RandomIt last, const Compare& comp)
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
        sortByKey(begin, end);
        if constexpr (!isKey<T> && isLess<T, Compare>)
            finishRuns(begin, end, comp);
        return true;
    }
}

} // namespace MIRT_ZAV::radix
