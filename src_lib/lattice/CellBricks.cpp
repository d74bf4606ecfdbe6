#include "lattice/CellBricks.h"

#include "base/sortMT.h"

#include <algorithm>

namespace MIRT_ZAV
{

constexpr CellBricks::StepTable CellBricks::makeSteps()
{
    StepTable table{};
    for (RCD cell = 0; cell < slotsPerBrick; ++cell)
        for (RCD position = 0; position < 27; ++position)
        {
            // The neighbour's coordinates, counted from the brick before, so that nothing falls below 0.
            const RCD x = cell % 4 + 3 + position % 3;
            const RCD y = cell / 4 % 4 + 3 + position / 3 % 3;
            const RCD z = cell / 16 + 3 + position / 9;
            table[BrickTable::toInner(rcd::fromXYZ(cell % 4, cell / 4 % 4, cell / 16))][position] = {
                static_cast<unsigned char>(9 * (z / 4) + 3 * (y / 4) + x / 4),
                static_cast<unsigned char>(BrickTable::toInner(rcd::fromXYZ(x, y, z)))};
        }
    return table;
}

constinit const CellBricks::StepTable CellBricks::steps = makeSteps();

CellBricks::CellBricks(const std::vector<RCD>& sorted)
{
    RCD last = ~RCD(0); // of no brick
    for (const RCD r : sorted)
    {
        const RCD base = BrickTable::getBaseOf(r);
        if (base != last)
            bricks.findOrAdd(base);
        last = base;
    }
    if (bricks.size() > size_t(1) << 26) // slots of 32 bits
        refuse(
            "More than 67108863 blocks of 4 x 4 x 4 cells at once. Take a greater spacing, or fewer cells for holes.");
    linkBricks();
}

void CellBricks::linkBricks()
{
    links.assign(bricks.size(), Links{});
    const auto getNumber = [this](size_t brick, RCD position)
    {
        const RCD offset =
            (position % 3 - 1) * rcd::xUnit + (position / 3 % 3 - 1) * rcd::yUnit + (position / 9 - 1) * rcd::zUnit;
        return static_cast<std::uint32_t>(bricks.find(bricks.getBase(brick) + 4 * offset));
    };
    forSlicesMT(bricks.size(), 8,
                [&](size_t begin, size_t end)
                {
                    for (size_t brick = std::max<size_t>(1, begin); brick < end; ++brick)
                        for (RCD position = 0; position < 27; ++position)
                            links[brick][position] = getNumber(brick, position);
                });
}

} // namespace MIRT_ZAV
