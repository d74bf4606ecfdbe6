#include "CellBricks.h"

#include "sortMT.h"

namespace MIRT_ZAV
{

constexpr CellBricks::StepTable CellBricks::makeSteps()
{
    StepTable table{};
    for (RCD cell = 0; cell < slotsPerBrick; ++cell)
        for (RCD position = 0; position < 27; ++position)
        {
            // Moved by one brick, so that nothing falls below 0.
            const RCD x = cell % 4 + 3 + position % 3;
            const RCD y = cell / 4 % 4 + 3 + position / 3 % 3;
            const RCD z = cell / 16 + 3 + position / 9;
            table[toInner(rcd::fromXYZ(cell % 4, cell / 4 % 4, cell / 16))][position] = {
                static_cast<unsigned char>(9 * (z / 4) + 3 * (y / 4) + x / 4),
                static_cast<unsigned char>(toInner(rcd::fromXYZ(x, y, z)))};
        }
    return table;
}

constinit const CellBricks::StepTable CellBricks::steps = makeSteps();

CellBricks::CellBricks(const std::vector<RCD>& sorted)
{
    bases.push_back(0); // the missing bricks
    resizeTable(10);
    RCD last = ~RCD(0); // of no brick
    for (const RCD r : sorted)
    {
        const RCD base = r & ~innerMask;
        if (base != last && findBrick(base) == 0)
            addBrick(base);
        last = base;
    }
    ZAV_ASSERT(bases.size() <= size_t(1) << 26, "bases.size()<=2^26"); // slots of 32 bits
    linkBricks();
}

void CellBricks::addBrick(RCD base)
{
    table[findPlace(base)] = {base, bases.size()};
    bases.push_back(base);
    if (2 * bases.size() > table.size())
        resizeTable(65 - hashShift);
}

void CellBricks::resizeTable(int bits)
{
    table.assign(size_t(1) << bits, {0, 0});
    hashShift = 64 - bits;
    for (size_t brick = 1; brick < bases.size(); ++brick)
        table[findPlace(bases[brick])] = {bases[brick], brick};
}

void CellBricks::linkBricks()
{
    links.assign(bases.size(), Links{});
    forSlicesMT(bases.size(), 8,
                [this](size_t begin, size_t end)
                {
                    for (size_t brick = std::max<size_t>(1, begin); brick < end; ++brick)
                        for (RCD position = 0; position < 27; ++position)
                        {
                            const RCD offset = (position % 3 - 1) * rcd::xUnit + (position / 3 % 3 - 1) * rcd::yUnit +
                                               (position / 9 - 1);
                            links[brick][position] = static_cast<std::uint32_t>(findBrick(bases[brick] + 4 * offset));
                        }
                });
}

} // namespace MIRT_ZAV
