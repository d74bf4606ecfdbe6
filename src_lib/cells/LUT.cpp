// Over all neighbourhoods, each of the two answers would fill a table of 2^26 bits, or 8 MiB. But corners have no say
// in the first answer and seldom sway the second. So the table goes over the 2^18 patterns of faces and edges: gap,
// border, neither, or "the corners decide", in which case they are looked at on the spot. It takes 64 KiB, and a
// millisecond or two at the first use.
#include "cells/LUT.h"

#include <array>
#include <bit>

namespace MIRT_ZAV
{
namespace
{
enum Kind : unsigned
{
    KIND_GAP,
    KIND_BORDER,
    KIND_NEITHER,
    KIND_CORNERS_DECIDE // between border and neither
};

constexpr std::array<unsigned, 6> facePositions = {4, 10, 12, 14, 16, 22};
constexpr std::array<unsigned, 12> edgePositions = {1, 3, 5, 7, 9, 11, 15, 17, 19, 21, 23, 25};

/// A neighbourhood word (see RCDMatrix for the positions) from a small set, whose bit n stands for the n-th position of
/// a list.
template <size_t N>
constexpr unsigned toNeighbourhood(unsigned set, const std::array<unsigned, N>& positions)
{
    unsigned config = 0;
    for (size_t n = 0; n < N; ++n)
        config |= (set >> n & 1) << positions[n];
    return config;
}

/// The way back; positions that aren't in the list are dropped.
template <size_t N>
constexpr unsigned toSet(unsigned config, const std::array<unsigned, N>& positions)
{
    unsigned set = 0;
    for (size_t n = 0; n < N; ++n)
        set |= (config >> positions[n] & 1) << n;
    return set;
}

constexpr unsigned allFaces = toNeighbourhood(0x3f, facePositions);
constexpr unsigned allEdges = toNeighbourhood(0xfff, edgePositions);
constexpr unsigned allNeigs = 0x7ffdfff;
constexpr unsigned lowX = 0x1249249, highX = 0x4924924;
constexpr unsigned lowY = 0x1c0e07, highY = 0x70381c0;

/// The positions one step along an axis from those of a set. The masks keep a step from wrapping into the next row or
/// layer; steps out of the first or last layer fall off or set bits above 26, which callers mask away.
constexpr unsigned stepFrom(unsigned set)
{
    return (set & ~highX) << 1 | (set & ~lowX) >> 1 | (set & ~highY) << 3 | (set & ~lowY) >> 3 | set << 9 | set >> 9;
}

/// The part of an empty space that can be reached from its faces. The centre isn't empty, so no way leads through it.
constexpr unsigned floodFromFaces(unsigned empty)
{
    unsigned reached = empty & allFaces;
    for (unsigned previous = 0; reached != previous;)
    {
        previous = reached;
        reached |= stepFrom(reached) & empty;
    }
    return reached;
}

/// An index without the bits of its corners: each half keeps nine of its 13 bits.
constexpr unsigned patternOf(unsigned index)
{
    const unsigned upper = index >> 13;
    const unsigned low9 = (index >> 1 & 1) | (index >> 2 & 0xe) | (index >> 3 & 0x10) | (index >> 4 & 0x1e0);
    const unsigned high9 = (upper & 0xf) | (upper >> 1 & 0x10) | (upper >> 2 & 0xe0) | (upper >> 3 & 0x100);
    return low9 | high9 << 9;
}

constexpr unsigned patternOfNeighbourhood(unsigned config)
{
    return patternOf(static_cast<unsigned>(getAlternativeBitmap(config)));
}

/// Finds the kinds of all patterns. Sets of faces have 6 bits, sets of edges 12, in the order of the two lists above.
class KindFinder
{
public:
    KindFinder();

    Kind find(unsigned emptyFaces, unsigned emptyEdges) const;
    unsigned patternOfPresent(unsigned faces, unsigned edges) const { return facePattern[faces] | edgePattern[edges]; }

private:
    static unsigned countJoins(unsigned edges);

    std::array<unsigned, 4096> edgePattern;
    std::array<unsigned, 4096> numJoins; // by set of edges, countJoins
    std::array<unsigned, 4096> around;   // by set of edges, the edges that share a corner with one of them
    std::array<unsigned, 64> facePattern;
    std::array<unsigned, 64> between; // by set of faces, the edges between two of them
    std::array<unsigned, 64> beside;  // by set of faces, the edges beside any of them
};

KindFinder::KindFinder()
{
    for (unsigned edges = 0; edges < 4096; ++edges)
    {
        const unsigned config = toNeighbourhood(edges, edgePositions);
        edgePattern[edges] = patternOfNeighbourhood(config);
        numJoins[edges] = countJoins(edges);
        const unsigned corners = stepFrom(config) & allNeigs & ~allFaces;
        around[edges] = toSet(stepFrom(corners), edgePositions);
    }
    for (unsigned faces = 0; faces < 64; ++faces)
    {
        const unsigned config = toNeighbourhood(faces, facePositions);
        facePattern[faces] = patternOfNeighbourhood(config);
        between[faces] = beside[faces] = 0;
        for (unsigned n = 0; n < 12; ++n)
        {
            const int numFaces = std::popcount(stepFrom(1u << edgePositions[n]) & config);
            between[faces] |= numFaces == 2 ? 1u << n : 0;
            beside[faces] |= numFaces >= 1 ? 1u << n : 0;
        }
    }
}

/// The six faces start as pieces of their own, and every edge joins the two faces beside it. Counts the edges that join
/// different pieces, as Kruskal's algorithm does.
unsigned KindFinder::countJoins(unsigned edges)
{
    std::array<unsigned, 6> pieceOf; // by face, the positions of all faces of its piece
    for (size_t n = 0; n < 6; ++n)
        pieceOf[n] = 1u << facePositions[n];
    unsigned count = 0;
    for (; edges != 0; edges &= edges - 1)
    {
        const unsigned edge = edgePositions[static_cast<size_t>(std::countr_zero(edges))];
        const unsigned two = stepFrom(1u << edge) & allFaces;
        unsigned merged = 0;
        bool bJoined = false;
        for (const unsigned piece : pieceOf)
        {
            merged |= (piece & two) != 0 ? piece : 0;
            bJoined |= (piece & two) == two;
        }
        if (bJoined)
            continue;
        ++count;
        for (unsigned& piece : pieceOf)
            if ((piece & two) != 0)
                piece = merged;
    }
    return count;
}

Kind KindFinder::find(unsigned emptyFaces, unsigned emptyEdges) const
{
    // n faces are one piece if and only if the edges between them join n - 1 times.
    const unsigned numFaces = static_cast<unsigned>(std::popcount(emptyFaces));
    if (numFaces == 0 || numJoins[emptyEdges & between[emptyFaces]] != numFaces - 1)
        return KIND_GAP;
    if ((emptyEdges & ~beside[emptyFaces]) == 0)
        return KIND_BORDER;
    // Edges that lie beside no empty face can only be reached around corners. Those that can't be reached even with all
    // corners empty settle it.
    unsigned reached = emptyEdges & beside[emptyFaces];
    for (unsigned previous = 0; reached != previous;)
    {
        previous = reached;
        reached |= emptyEdges & around[reached];
    }
    return reached == emptyEdges ? KIND_CORNERS_DECIDE : KIND_NEITHER;
}

/// By pattern, its kind in two bits.
class KindTable
{
public:
    KindTable()
    {
        const KindFinder finder;
        for (unsigned faces = 0; faces < 64; ++faces)
            for (unsigned edges = 0; edges < 4096; ++edges)
            {
                const unsigned pattern = finder.patternOfPresent(faces, edges);
                words[pattern / 32] |= u64(finder.find(faces ^ 63, edges ^ 4095)) << (pattern % 32 * 2);
            }
    }

    Kind operator[](unsigned pattern) const { return static_cast<Kind>(words[pattern / 32] >> (pattern % 32 * 2) & 3); }

private:
    std::array<u64, (1 << 18) / 32> words{};
};

const KindTable& getKindTable()
{
    static const KindTable table;
    return table;
}
} // namespace

bool gapBit(unsigned index)
{
    return getKindTable()[patternOf(index)] == KIND_GAP;
}

bool borderBit(unsigned index)
{
    const Kind kind = getKindTable()[patternOf(index)];
    if (kind != KIND_CORNERS_DECIDE)
        return kind == KIND_BORDER;
    const unsigned present = (index & 0x1fff) | (index >> 13) << 14;
    const unsigned empty = ~present & allNeigs;
    return (empty & allEdges & ~floodFromFaces(empty)) == 0;
}

} // namespace MIRT_ZAV
