// Numbers in text, fast. What a file may contain is decided by operator>> on a stream with the "C" locale; these
// functions take the plain notation only, with the same bits as a result, and leave every other text to the stream.
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

/// Reads a number that begins at first and ends at white space or at last.
/// \return the place behind the number; null when the text is anything else than a plain number in range, even where a
///         stream would take it (a plus sign, numbers glued together) or take a part of it. Then value is undefined.
template <class T>
const char* scanNumber(const char* first, const char* last, T& value)
{
    const char* const unsignedPart = (first != last && *first == '-') ? first + 1 : first;
    if (unsignedPart == last || !(isDigit(*unsignedPart) || *unsignedPart == '.'))
        return nullptr; // from_chars would take "inf" and "nan", a stream refuses them
    const std::from_chars_result result = std::from_chars(first, last, value);
    if (result.ec != std::errc() || (result.ptr != last && !isBlank(*result.ptr)))
        return nullptr; // out of range, or a tail such as that of "1e", where a stream refuses the whole
    return result.ptr;
}

} // namespace MIRT_ZAV
