#include "zav/Point3.h"

namespace MIRT_ZAV
{

std::ostream& operator<<(std::ostream& out, const Point3& p)
{
    out << "Point3 (" << static_cast<const void*>(&p) << "): " << p.x() << ", " << p.y() << ", " << p.z();
    if (!p.hasColor())
        return out << ", no color";
    return out << ", color(" << int(p.r) << "," << int(p.g) << "," << int(p.b) << "," << int(p.a) << ")";
}

} // namespace MIRT_ZAV
