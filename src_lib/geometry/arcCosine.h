// The arc cosine with the same bits everywhere.
//
// The C library's acos may round differently from one processor to the next, which would reorder collapses of nearly
// equal penalty. This one consists of additions, multiplications, divisions and square roots alone.
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
constexpr std::size_t numFewTerms = 12; // and up to 1 / 32: angles below 20 degrees, which is most of them

/// Factors of x, x^3, x^5 and so on in the series of the arc sine.
constexpr std::array<double, numTerms> makeFactors()
{
    std::array<double, numTerms> factors{};
    double binomial = 1.0; // of 2n over n, divided by 4^n
    for (std::size_t n = 0; n < numTerms; ++n)
    {
        const double twice = 2.0 * static_cast<double>(n);
        factors[n] = binomial / (twice + 1.0);
        binomial *= (twice + 1.0) / (twice + 2.0);
    }
    return factors;
}
inline constexpr std::array<double, numTerms> factors = makeFactors();

/// The arc sine of x, given with its square; x from -0.5 to 0.5.
inline double arcSine(double x, double square)
{
    std::size_t n = square < 0.03125 ? numFewTerms : numTerms;
    double sum = 0.0;
    while (n-- > 1)
        sum = (sum + factors[n]) * square;
    return x + x * sum;
}
} // namespace arcCosine_detail

/// acos(x) to within two units in the last place; not a number for arguments beyond -1 and 1.
inline double arcCosine(double x)
{
    using namespace arcCosine_detail;
    if (std::fabs(x) <= 0.5)
        return 0.5 * pi - arcSine(x, x * x);
    const double square = 0.5 * (1.0 - std::fabs(x)); // of the sine of half the angle
    const double angle = 2.0 * arcSine(std::sqrt(square), square);
    return x > 0.0 ? angle : pi - angle;
}

} // namespace MIRT_ZAV
