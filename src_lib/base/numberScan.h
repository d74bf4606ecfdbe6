// Numbers in text, fast. What a file may contain is decided by operator>> on a stream with the "C" locale. Here only
// the plain notation is read, with the same bits as a result; everything else is left to the stream.
#pragma once

#include <charconv>
#include <system_error>

namespace MIRT_ZAV
{

/// White space as a stream with the "C" locale sees it.
inline bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

inline const char* skipBlanks(const char* first, const char* last)
{
    while (first != last && isBlank(*first))
        ++first;
    return first;
}

/// Reads a plain number that begins at first and ends at white space or at last.
/// \return the place behind the number; null for anything else, also where a stream would take the text or a part of it
///         (a plus sign, "1-2"): the caller asks the stream then. value is undefined in that case.
template <class T>
const char* scanNumber(const char* first, const char* last, T& value)
{
    const char* const unsignedPart = (first != last && *first == '-') ? first + 1 : first;
    if (unsignedPart == last || !(isDigit(*unsignedPart) || *unsignedPart == '.'))
        return nullptr; // from_chars would take "inf" and "nan", which a stream refuses
    const std::from_chars_result result = std::from_chars(first, last, value);
    if (result.ec != std::errc() || (result.ptr != last && !isBlank(*result.ptr)))
        return nullptr; // out of range, or a tail: of "1e" from_chars takes the 1, a stream nothing
    return result.ptr;
}

} // namespace MIRT_ZAV
