#include "zav/Vector3.h"

namespace MIRT_ZAV
{

std::ostream& operator<<(std::ostream& out, const Vector3& v)
{
    return out << v.x() << ' ' << v.y() << ' ' << v.z();
}

} // namespace MIRT_ZAV
