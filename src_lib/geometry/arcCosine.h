// The arc cosine with the same bits everywhere.
//
// The C library's acos may round differently from one processor to the next. That would reorder collapses of nearly
// equal penalty and change every triangle after them. This one is made of additions, multiplications, divisions and
// square roots alone, which round the same everywhere.
//
// Method: the Taylor series of the arc sine, on which large arguments are reduced by the half angle:
//
//     |x| <= 0.5    acos x = pi/2 - asin x
//     x > 0.5       acos x = 2 asin sqrt((1 - x) / 2)
//     x < -0.5      acos x = pi - acos -x
#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace MIRT_ZAV
{

namespace arcCosine_detail
{
constexpr double pi = 3.14159265358979323846;
constexpr std::size_t numTerms = 26;    // enough for squares up to 1 / 4
constexpr std::size_t numFewTerms = 12; // enough up to 1 / 32: angles below 20 degrees, which is most of them

/// The factors of x, x^3, x^5 and so on.
constexpr std::array<double, numTerms> makeFactors()
{
    std::array<double, numTerms> factors{};
    double binomial = 1.0; // (2n over n) / 4^n
    for (std::size_t n = 0; n < numTerms; ++n)
    {
        const double twice = 2.0 * static_cast<double>(n);
        factors[n] = binomial / (twice + 1.0);
        binomial *= (twice + 1.0) / (twice + 2.0);
    }
    return factors;
}
inline constexpr std::array<double, numTerms> factors = makeFactors();

/// A number as the sum of two doubles, the lower one at most half a unit in the last place of the upper one.
struct Twofold
{
    double high;
    double low;
};
constexpr Twofold halfPi = {1.57079632679489655800, 6.12323399573676603587e-17};

/// a + b without rounding, after Knuth.
inline Twofold addExactly(double a, double b)
{
    const double sum = a + b;
    const double fromB = sum - a;
    return {sum, (a - (sum - fromB)) + (b - fromB)};
}

/// square - root * root without rounding, after Dekker; the two are nearly equal.
inline double getRestOfRoot(double square, double root)
{
    const double scaled = root * 134217729.0; // 2^27 + 1 splits the root in halves of 26 bits
    const double high = scaled - (scaled - root), low = root - high;
    return ((square - high * high) - 2.0 * high * low) - low * low;
}

/// The arc sine of x, from -0.5 to 0.5, less x itself. The caller has the square at hand.
inline double arcSineRest(double x, double square)
{
    std::size_t n = square < 0.03125 ? numFewTerms : numTerms;
    double sum = 0.0;
    while (n-- > 1)
        sum = (sum + factors[n]) * square;
    return x * sum;
}
} // namespace arcCosine_detail

/// \return acos(x) to within two units in the last place; NaN for arguments beyond -1 and 1. Reductions depend on its
/// digits; what needs better ones takes arcCosineRounded
inline double arcCosine(double x)
{
    using namespace arcCosine_detail;
    if (std::fabs(x) <= 0.5)
        return 0.5 * pi - (x + arcSineRest(x, x * x));
    const double square = 0.5 * (1.0 - std::fabs(x)); // that of the sine of half the angle
    const double root = std::sqrt(square);
    const double angle = 2.0 * (root + arcSineRest(root, square));
    return x > 0.0 ? angle : pi - angle;
}

/// The same by sums of two doubles, so that only the last operation rounds visibly.
/// \return acos(x), in all but one of 200 cases the double next to it, else the one beside; NaN beyond -1 and 1
inline double arcCosineRounded(double x)
{
    using namespace arcCosine_detail;
    if (std::fabs(x) <= 0.5)
    {
        const Twofold difference = addExactly(halfPi.high, -x);
        return difference.high + (difference.low + (halfPi.low - arcSineRest(x, x * x)));
    }
    const double square = 0.5 * (1.0 - std::fabs(x)); // exact
    if (square == 0.0)
        return x > 0.0 ? 0.0 : pi;
    const double root = std::sqrt(square);
    const double lost = getRestOfRoot(square, root) / (2.0 * root); // by the rounding of the root
    const double low = arcSineRest(root, square) + lost / std::sqrt(1.0 - square);
    if (x > 0.0)
        return 2.0 * (root + low);
    const Twofold difference = addExactly(2.0 * halfPi.high, -2.0 * root);
    return difference.high + (difference.low + 2.0 * (halfPi.low - low));
}

} // namespace MIRT_ZAV
