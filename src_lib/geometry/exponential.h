// The exponential function with the same bits everywhere.
//
// The C library's exp may round differently from one processor to the next, and annealing compares it with random
// numbers. This one is made of additions and multiplications alone, which round the same everywhere.
//
// Method: the argument is reduced to |r| <= ln 2 / 2 in two steps (Cody and Waite), so that no digit is lost, and the
// Taylor series of the rest is scaled by a power of 2:
//
//     x = k ln 2 + r      exp x = 2^k exp r
#pragma once

#include <cmath>

namespace MIRT_ZAV
{

/// \return exp(x) to within two units in the last place; 0 below about -745, infinity above about 709, NaN for NaN
inline double exponential(double x)
{
    if (!(x > -746.0 && x < 710.0))
        return std::isnan(x) ? x : x > 0.0 ? HUGE_VAL : 0.0;
    constexpr double perLn2 = 1.44269504088896340736;
    constexpr double ln2High = 0x1.62e42fee00000p-1; // 33 bits, so that its product with k is exact
    constexpr double ln2Low = 0x1.a39ef35793c76p-33;
    const double k = std::floor(x * perLn2 + 0.5);
    const double r = (x - k * ln2High) - k * ln2Low;
    double sum = 1.0;
    for (int n = 14; n > 1; --n)
        sum = 1.0 + sum * r / n;
    return std::ldexp(1.0 + r * sum, static_cast<int>(k));
}

} // namespace MIRT_ZAV
