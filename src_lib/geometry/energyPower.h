// The power that flattens the energy of an edge.
//
// The C library's pow may round differently from one processor to the next. That would reorder flips of nearly equal
// gain and change every flip after them. This one is made of additions and multiplications alone, which round the same
// everywhere, and is faster.
//
// Method: look-up tables and a short series, after Tang. A number is split into three factors whose powers are easy:
//
//     x = 2^k * c * (1 + r)      c: middle of one of 128 steps from 1 to 2, |r| < 1/256
//
//     x^e = (2^k)^e * c^e * (1 + r)^e
//            table    table   binomial series
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace MIRT_ZAV
{

namespace energyPower_detail
{
constexpr double exponent = 0.335;
constexpr double ln2 = 0.693147180559945309417;

/// exp(x) by its Taylor series; x from 0 to 1.
constexpr double expSeries(double x)
{
    double sum = 1.0;
    for (int n = 22; n > 0; --n)
        sum = 1.0 + sum * x / n;
    return sum;
}

/// log(x) = 2 artanh((x - 1) / (x + 1)), by the Taylor series of artanh; x from 1 to 2.
constexpr double logSeries(double x)
{
    const double t = (x - 1.0) / (x + 1.0);
    double sum = 0.0;
    for (int n = 41; n > 0; n -= 2)
        sum = sum * t * t + 1.0 / n;
    return 2.0 * t * sum;
}

/// For the middle c of each step between 1 and 2: 1 / c and c^e.
constexpr int stepBits = 7;
constexpr std::size_t numSteps = std::size_t(1) << stepBits;
struct Step
{
    double reciprocal = 0.0;
    double power = 0.0;
};
constexpr std::array<Step, numSteps> makeSteps()
{
    std::array<Step, numSteps> steps{};
    for (std::size_t i = 0; i < numSteps; ++i)
    {
        const double middle = 1.0 + (static_cast<double>(i) + 0.5) / static_cast<double>(numSteps);
        steps[i] = {1.0 / middle, expSeries(exponent * logSeries(middle))};
    }
    return steps;
}
inline constexpr std::array<Step, numSteps> steps = makeSteps();

/// (2^k)^e for every exponent of a double.
constexpr int leastScale = -1022;
constexpr int numScales = 2046;
constexpr std::array<double, numScales> makeScales()
{
    std::array<double, numScales> scales{};
    for (int i = 0; i < numScales; ++i)
    {
        const int twoHundredths = 67 * (leastScale + i); // 0.335 is 67 / 200: whole powers of 2 split off exactly
        int whole = twoHundredths / 200;
        if (200 * whole > twoHundredths)
            --whole;
        const auto powerOf2 = std::bit_cast<double>(static_cast<std::uint64_t>(1023 + whole) << 52);
        scales[static_cast<std::size_t>(i)] = expSeries((twoHundredths - 200 * whole) / 200.0 * ln2) * powerOf2;
    }
    return scales;
}
inline constexpr std::array<double, numScales> scales = makeScales();
} // namespace energyPower_detail

/// \param x  not negative
/// \return x to the power 0.335, to within 6e-16 of its value; infinity and NaN come back, NaN for what is negative all the same
inline double energyPower(double x)
{
    using namespace energyPower_detail;
    const auto bits = std::bit_cast<std::uint64_t>(x);
    const int scale = static_cast<int>(bits >> 52) - 1023 - leastScale;
    if (x == 0.0 || scale >= numScales)
        return x >= 0.0 ? x : std::numeric_limits<double>::quiet_NaN();
    if (scale < 0) // below 2^-1022 the bits hold no exponent of their own
        return energyPower(x * 0x1p200) * 0x1p-67;
    const std::uint64_t mantissa = bits & 0xfffffffffffffu;
    const Step& step = steps[mantissa >> (52 - stepBits)];
    const double m = std::bit_cast<double>(mantissa | 0x3ff0000000000000u);
    const double r = m * step.reciprocal - 1.0; // below 2^-8
    // The binomial series of (1 + r)^exponent.
    constexpr double c1 = exponent;
    constexpr double c2 = c1 * (exponent - 1.0) / 2.0;
    constexpr double c3 = c2 * (exponent - 2.0) / 3.0;
    constexpr double c4 = c3 * (exponent - 3.0) / 4.0;
    constexpr double c5 = c4 * (exponent - 4.0) / 5.0;
    constexpr double c6 = c5 * (exponent - 5.0) / 6.0;
    const double tail = r * (c1 + r * (c2 + r * (c3 + r * (c4 + r * (c5 + r * c6)))));
    const double base = step.power * scales[static_cast<std::size_t>(scale)];
    return base + base * tail;
}

} // namespace MIRT_ZAV
