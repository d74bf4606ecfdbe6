// A straight piece between two points.
#pragma once

#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// Keeps copies of both ends, with their colours.
class Segment3
{
public:
    Segment3() = default;
    Segment3(const Point3& src, const Point3& trg) : src_(src), trg_(trg) {}

    const Point3& getSrc() const { return src_; }
    const Point3& getTrg() const { return trg_; }

private:
    Point3 src_;
    Point3 trg_;
};

} // namespace MIRT_ZAV
