#include "geometry/ColorUtils.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace MIRT_ZAV
{
namespace
{
using LinearTable = std::array<float, 256>;

/// The transfer function of sRGB (IEC 61966-2-1), undone: the share of light in percent for every byte of a channel.
LinearTable makeLinearTable()
{
    LinearTable table{};
    for (size_t i = 0; i < table.size(); ++i)
    {
        const float c = static_cast<float>(i) / 255.0f;
        const float linear = c > 0.04045f ? std::pow((c + 0.055f) / 1.055f, 2.4f) : c / 12.92f;
        table[i] = linear * 100.0f;
    }
    return table;
}

float toLinear(int byte)
{
    static const LinearTable table = makeLinearTable();
    return table[static_cast<size_t>(std::clamp(byte, 0, 255))];
}

/// The response of the eye: a cube root, with a straight piece near black, where the root would be too steep.
float toLabResponse(float ratio)
{
    return ratio > 0.008856f ? std::cbrt(ratio) : 7.787f * ratio + 16.0f / 116.0f;
}

ColorUtils::Rgb getColor(const Point3* p)
{
    return {p->r, p->g, p->b};
}
} // namespace

ColorUtils::Xyz ColorUtils::rgbToXyz(const Rgb& color)
{
    const float r = toLinear(color.r);
    const float g = toLinear(color.g);
    const float b = toLinear(color.b);
    return {0.4124f * r + 0.3576f * g + 0.1805f * b, 0.2126f * r + 0.7152f * g + 0.0722f * b,
            0.0193f * r + 0.1192f * g + 0.9505f * b};
}

ColorUtils::CIELAB ColorUtils::xyzToCIELAB(const Xyz& color)
{
    const float fx = toLabResponse(color.x / 95.047f);
    const float fy = toLabResponse(color.y / 100.0f);
    const float fz = toLabResponse(color.z / 108.883f);
    return {116.0f * fy - 16.0f, 500.0f * (fx - fy), 200.0f * (fy - fz)};
}

float ColorUtils::getColorDeltaE(const Rgb& color0, const Rgb& color1)
{
    const CIELAB lab0 = xyzToCIELAB(rgbToXyz(color0));
    const CIELAB lab1 = xyzToCIELAB(rgbToXyz(color1));
    const float dL = lab0.L - lab1.L;
    const float da = lab0.a - lab1.a;
    const float db = lab0.b - lab1.b;
    return std::sqrt(dL * dL + da * da + db * db);
}

double getColorDiffCIE76(const Point3* p0, const Point3* p1)
{
    return ColorUtils::getColorDeltaE(getColor(p0), getColor(p1));
}

} // namespace MIRT_ZAV
