// Differences of colours as people see them: CIE76, the distance in CIE 1976 L*a*b* (CIE 15), from sRGB under
// illuminant D65.
#pragma once

#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// All in single precision.
class ColorUtils
{
public:
    /// Red, green and blue, 0 to 255 each. Other numbers count as the nearest of these.
    struct Rgb
    {
        int r;
        int g;
        int b;
    };
    struct Xyz
    {
        float x; ///< 0 to about 95.05
        float y; ///< 0 to 100
        float z; ///< 0 to about 108.9
    };
    struct CIELAB
    {
        float L; ///< lightness, 0 to 100
        float a; ///< from green to red
        float b; ///< from blue to yellow
    };

    static Xyz rgbToXyz(const Rgb& color);
    static CIELAB xyzToCIELAB(const Xyz& color);
    /// CIE76: the distance of two colours in L*a*b*, 0 to about 259. An eye begins to tell them apart at about 2.3.
    static float getColorDeltaE(const Rgb& color0, const Rgb& color1);
};

/// CIE76 between the colours of two points. The bytes count as they are, also where hasColor() is false.
double getColorDiffCIE76(const Point3* p0, const Point3* p1);

} // namespace MIRT_ZAV
