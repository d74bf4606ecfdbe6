#include "cells/RCDMatrix.h"

#include <new>
#include <stdexcept>

namespace MIRT_ZAV
{
namespace
{
/// By position, what to add to a cell's code to get the neighbour's; a step down is added as its complement.
constexpr std::array<RCD, 27> makeOffsets()
{
    std::array<RCD, 27> offsets{};
    for (RCD position = 0; position < 27; ++position)
        offsets[position] = (position % 3 - 1) * rcd::xUnit + (position / 3 % 3 - 1) * rcd::yUnit + (position / 9 - 1);
    return offsets;
}
constexpr std::array<RCD, 27> offsetOf = makeOffsets();

/// Which block a coordinate relative to this one falls in.
int blockOffset(int coordinate)
{
    return coordinate < 0 ? -1 : coordinate > 63 ? 1 : 0;
}
} // namespace

const BlockBits::Layer BlockBits::zeros{};

BlockBits::BlockBits(LayerPool& layerPool) : pool(&layerPool)
{
    layers.fill(emptyLayer());
}

void BlockBits::set(ADDR address)
{
    Layer*& layer = layers[address >> 12];
    if (layer == emptyLayer())
        layer = new (pool->take()) Layer{};
    (*layer)[address >> 6 & 63] |= u64(1) << (address & 63);
}

void BlockBits::reset()
{
    for (Layer* layer : layers)
        if (layer != emptyLayer())
            layer->fill(0);
}

void RCDMatrix::store(std::vector<std::pair<RCD, RCD>>& list, int first, int last)
{
    bits.reset();
    for (int i = first; i < last; ++i)
    {
        const RCD lower = list[static_cast<size_t>(i)].second;
        if ((lower & ~lowerMask) != 0)
            throw std::out_of_range("bitset::set");
        const ADDR address = rcdToAddress(lower);
        bits.set(address);
        minAddr = std::min<unsigned long long>(minAddr, address);
        maxAddr = std::max<unsigned long long>(maxAddr, address);
    }
}

void RCDMatrix::setNeigMtx(int offx, int offy, int offz, RCDMatrix* pMatrix)
{
    RCDMatrix*& link = aNeigMtx[offx + 1][offy + 1][offz + 1];
    ZAV_ASSERT(link == nullptr, "aNeigMtx[offx+1][offy+1][offz+1]==__null");
    link = pMatrix;
}

void RCDMatrix::getNeigRCD26(ADDR address, std::vector<RCD>& out) const
{
    const RCD centre = toRCD(address);
    for (unsigned rest = getNeighbourhood(address) & ~(1u << 13); rest != 0; rest &= rest - 1)
        out.push_back(centre + offsetOf[static_cast<size_t>(std::countr_zero(rest))]);
}

int RCDMatrix::getNeigs6(ADDR address, std::vector<RCD>* out) const
{
    const unsigned faces = getNeighbourhood(address) & faceMask;
    if (out != nullptr)
    {
        const RCD centre = toRCD(address);
        for (const unsigned position : {12u, 14u, 10u, 16u, 4u, 22u})
            if ((faces >> position & 1) != 0)
                out->push_back(centre + offsetOf[position]);
    }
    return std::popcount(faces);
}

void RCDMatrix::getAllMatrixRCD(std::vector<RCD>& out) const
{
    if (minAddr > maxAddr)
        return;
    const unsigned firstWord = static_cast<unsigned>(minAddr >> 6), lastWord = static_cast<unsigned>(maxAddr >> 6);
    for (unsigned i = firstWord; i <= lastWord; ++i)
    {
        u64 word = bits.word(i >> 6, i & 63);
        if (i == firstWord)
            word &= ~u64(0) << (minAddr & 63);
        if (i == lastWord)
            word &= ~u64(0) >> (63 - (maxAddr & 63));
        for (; word != 0; word &= word - 1)
            out.push_back(toRCD(i << 6 | static_cast<unsigned>(std::countr_zero(word))));
    }
}

unsigned RCDMatrix::getNeighbourhoodAtSide(int x, int y, int z) const
{
    unsigned config = 0;
    for (int row = 0; row < 9; ++row)
        config |= getThreeAtSide(x, y + row % 3 - 1, z + row / 3 - 1) << (3 * row);
    return config;
}

/// The cells x - 1, x and x + 1 of a row as three bits. x lies in this block, the row and the two outer cells may not.
unsigned RCDMatrix::getThreeAtSide(int x, int y, int z) const
{
    const int offy = blockOffset(y), offz = blockOffset(z);
    const auto wordAt = [&](int offx)
    {
        const BlockBits* const pBits = bitsAt(offx, offy, offz);
        return pBits != nullptr ? pBits->word(static_cast<unsigned>(z) & 63, static_cast<unsigned>(y) & 63) : 0;
    };
    const u64 word = wordAt(0);
    if (x == 0)
        return static_cast<unsigned>((word & 3) << 1 | wordAt(-1) >> 63);
    if (x == 63)
        return static_cast<unsigned>(word >> 62 | (wordAt(1) & 1) << 2);
    return static_cast<unsigned>(word >> (x - 1) & 7);
}

const BlockBits* RCDMatrix::bitsAt(int offx, int offy, int offz) const
{
    if (offx == 0 && offy == 0 && offz == 0)
        return &bits;
    const RCDMatrix* const pNeig = aNeigMtx[offx + 1][offy + 1][offz + 1];
    return pNeig != nullptr ? &pNeig->bits : nullptr;
}

} // namespace MIRT_ZAV
