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

/// The arc sine of x from -0.5 to 0.5. The caller has the square at hand.
inline double arcSine(double x, double square)
{
    std::size_t n = square < 0.03125 ? numFewTerms : numTerms;
    double sum = 0.0;
    while (n-- > 1)
        sum = (sum + factors[n]) * square;
    return x + x * sum;
}
} // namespace arcCosine_detail

/// \return acos(x) to within two units in the last place; NaN for arguments beyond -1 and 1
inline double arcCosine(double x)
{
    using namespace arcCosine_detail;
    if (std::fabs(x) <= 0.5)
        return 0.5 * pi - arcSine(x, x * x);
    const double square = 0.5 * (1.0 - std::fabs(x)); // that of the sine of half the angle
    const double angle = 2.0 * arcSine(std::sqrt(square), square);
    return x > 0.0 ? angle : pi - angle;
}

} // namespace MIRT_ZAV
