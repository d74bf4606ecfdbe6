#include "coarse/Voro.h"

#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "cells/RemoveDecider.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cstdint>
#include <utility>

namespace MIRT_ZAV
{
namespace
{
/// So many blocks of vertices at a time: their triangles are found in parallel, entered on one thread, and progress is
/// reported. It bounds the memory for triangles that are found and not yet entered.
constexpr size_t blocksAtOnce = 20000;

/// Values of one record of an ambiguous square: two triangles, the vertex, the configuration.
constexpr size_t recordLength = 8;

/// Four cells in one face of the eight: two triangles, whose diagonal is open.
bool isSquare(int config)
{
    return config == 15 || config == 51 || config == 102 || config == 153 || config == 204 || config == 240;
}

std::vector<CCD> getCells(const std::map<CCD, Bundle*>& map)
{
    std::vector<CCD> cells;
    cells.reserve(map.size());
    for (const auto& [c, bundle] : map)
        cells.push_back(c);
    return cells;
}
} // namespace

struct Voro::FoundTriangle
{
    std::array<CCD, 3> corners;
    VCD vertex;
    int config;
};

/// Corners of a square with the diagonals (c0, c3) and (c1, c2):
///
///     c1---c3
///     |     |
///     c0---c2
struct Voro::Square
{
    CCD c0, c1, c2, c3;
};

Voro::Voro(Calc* pCalcArg, std::map<CCD, Bundle*>& map, std::vector<CCD>& fill, TRIMODE mode)
    : pCalc(pCalcArg), pMap(&map), pvFill(&fill), vCCD(getCells(map)), patterns(*pCalcArg, vCCD), casx(mode, false)
{
}

Voro::~Voro()
{
    if (bOwnsCMesh)
        delete pCMesh;
}

CMesh* Voro::releaseCMesh()
{
    bOwnsCMesh = false;
    return pCMesh;
}

void Voro::fatExtractTriangles()
{
    if (pCMesh == nullptr)
    {
        pCMesh = new CMesh(this, pCalc, pMap, *pvFill);
        bOwnsCMesh = true;
    }
    else
        pCMesh->reset();
    pCMesh->expectVertices(vCCD);

    std::vector<unsigned long long> ambiguous;
    walkVertices(ambiguous);

    const std::uint64_t todo = pAgain != nullptr ? stepsAgain / 2 : 200;
    Progress* const stage = getThreadProgress()->getChildProgressSetTodo("VO_amb", todo);
    Progress* const solving = pAgain != nullptr ? pAgain : stage;
    ProgressPart part(solving, todo / 2, ambiguous.size() / recordLength);
    solveAmbiguousT(ambiguous, &part);
    part.finish();
    pCMesh->killDups();
    solving->incProgressEvenly(todo - todo / 2);
    stage->setDone(true);
}

/// Makes the triangles of all vertices but those of squares, which are appended as records.
void Voro::walkVertices(std::vector<unsigned long long>& ambiguous)
{
    // Vertices, each counted for every cell that touches it.
    const std::uint64_t todo = pAgain != nullptr ? stepsAgain / 2 : 8 * vCCD.size();
    Progress* const stage = getThreadProgress()->getChildProgressSetTodo("VO_ftx", todo);
    Progress* const walk = pAgain != nullptr ? pAgain : stage;
    ambiguous.reserve(2 * recordLength * vCCD.size()); // room for a flat sheet, seen from both sides
    std::vector<FoundTriangle> found;
    const size_t numBlocks = patterns.getNumBlocks();
    for (size_t first = 0; first < numBlocks; first += blocksAtOnce)
    {
        const size_t last = std::min(numBlocks, first + blocksAtOnce);
        found.clear();
        findTriangles(first, last, found);
        const std::uint64_t numSteps = todo * last / numBlocks - todo * first / numBlocks;
        walk->incProgressEvenly(numSteps / 2);
        ProgressPart part(walk, numSteps - numSteps / 2, found.size());
        enterTriangles(found, ambiguous, part);
        part.finish();
    }
    stage->setDone(true);
}

/// Appends the triangles of a range of blocks, in the order of their vertices.
void Voro::findTriangles(size_t firstBlock, size_t lastBlock, std::vector<FoundTriangle>& found) const
{
    collectMT(lastBlock - firstBlock, found,
              [&](size_t begin, size_t end, std::vector<FoundTriangle>& list)
              {
                  std::vector<CCD> vTri;
                  const auto findAt = [&](VCD vertex, int config)
                  {
                      std::array<CCD, 8> corners;
                      corners[5] = vertex;
                      pCalc->completeArraySym(corners.data());
                      vTri.clear();
                      casx.getTriangles(config, corners.data(), vTri, TUT);
                      for (size_t i = 0; i < vTri.size(); i += 3)
                          list.push_back({{vTri[i], vTri[i + 1], vTri[i + 2]}, vertex, config});
                  };
                  for (size_t i = begin; i < end; ++i)
                      patterns.forEachPartlyFilled(firstBlock + i, findAt);
              });
}

void Voro::enterTriangles(const std::vector<FoundTriangle>& found, std::vector<unsigned long long>& ambiguous,
                          ProgressPart& part)
{
    for (size_t i = 0; i < found.size(); ++i)
    {
        part.reach(i);
        const FoundTriangle& t = found[i];
        const auto& [a, b, c] = t.corners;
        if (!isSquare(t.config))
        {
            createUnlessThere(pCMesh->getEdge(a, b), a, b, c, t.vertex, t.config);
            continue;
        }
        ZAV_ASSERT(i + 1 < found.size() && found[i + 1].vertex == t.vertex, "vTriVCD.size()==6");
        const FoundTriangle& other = found[++i];
        ambiguous.insert(ambiguous.end(), t.corners.begin(), t.corners.end());
        ambiguous.insert(ambiguous.end(), other.corners.begin(), other.corners.end());
        ambiguous.push_back(t.vertex);
        ambiguous.push_back(static_cast<unsigned long long>(t.config));
    }
}

void Voro::createUnlessThere(CEdge* e, VCD a, VCD b, VCD c, VCD vertex, int config)
{
    if (e == nullptr || !e->hasAdjT(a, b, c))
        pCMesh->createT(a, b, c, vertex, config);
}

void Voro::orderByDiagonal(const unsigned long long* record, Square& square) const
{
    square = {record[0], record[1], record[2], 0};
    const auto isNew = [record](CCD c) { return c != record[0] && c != record[1] && c != record[2]; };
    const unsigned long long* const fourth = std::find_if(record + 3, record + 6, isNew);
    const bool bFound = fourth != record + 6;
    ZAV_ASSERT(bFound, "bFound");
    square.c3 = *fourth;
    if (Calc::getNeigType(square.c3, square.c0) != NT_EDGE)
        std::swap(square.c0, square.c1);
    if (Calc::getNeigType(square.c3, square.c0) != NT_EDGE)
        std::swap(square.c0, square.c2);
    ZAV_ASSERT(Calc::getNeigType(square.c3, square.c0) == NT_EDGE, "pCalc->getNeigType(v3,v0)==NT_EDGE");
}

void Voro::solveAmbiguousT(std::vector<unsigned long long>& list, ProgressPart* pPart)
{
    ZAV_ASSERT(list.size() % recordLength == 0, "vAmbiguousT.size()%8==0");
    for (size_t i = 0; i < list.size(); i += recordLength)
    {
        if (pPart != nullptr)
            pPart->reach(i / recordLength);
        Square s{};
        orderByDiagonal(&list[i], s);
        const VCD vertex = list[i + 6];
        const int config = static_cast<int>(list[i + 7]);
        if (CEdge* const e = pCMesh->getEdge(s.c1, s.c2); e != nullptr)
        {
            createUnlessThere(e, s.c0, s.c1, s.c2, vertex, config);
            createUnlessThere(e, s.c2, s.c1, s.c3, vertex, config);
            continue;
        }
        CEdge* const e = pCMesh->getEdge(s.c3, s.c0); // null where the mesh has neither diagonal
        createUnlessThere(e, s.c0, s.c1, s.c3, vertex, config);
        createUnlessThere(e, s.c0, s.c3, s.c2, vertex, config);
    }
}

CMesh* Voro::meshAgain(std::vector<VCD>& vVCD, Progress* pStage, std::uint64_t numSteps)
{
    pAgain = pStage;
    stepsAgain = numSteps;
    std::vector<CCD> vExtra, vRemove;
    createExtraCCDs_borderFix(vVCD, vExtra, vRemove);
    vCCD.insert(vCCD.end(), vExtra.begin(), vExtra.end());
    oneInstance(vCCD);
    removeRemovable(vRemove, vExtra);
    patterns = CellPatterns(*pCalc, vCCD);
    fatExtractTriangles();
    pAgain = nullptr;
    for (const CCD c : vExtra)
        if (!pCMesh->hasBundle(c))
            pCMesh->addBundle(c, DBL_MAX, DBL_MAX, DBL_MAX); // starts in the cell's middle
    pCMesh->integrateAdditionalBundles();
    pCMesh->averageBundles();
    return pCMesh;
}

void Voro::createExtraCCDs_borderFix(const std::vector<VCD>& vVCD, std::vector<CCD>& vExtra, std::vector<CCD>& vRemove)
{
    for (const VCD vertex : vVCD)
    {
        ZAV_ASSERT(vertex <= patterns.getLastVertex(), "q_it!=vStaticVCD2CCD.end()");
        const int config = patterns.getPattern(vertex);
        const unsigned extra = Casx::getExtraCbs(config);
        if (extra == 0)
            continue;
        const unsigned remove = Casx::getRemoveCbs(config);
        std::array<CCD, 8> corners;
        corners[5] = vertex;
        pCalc->completeArraySym(corners.data());
        for (size_t bit = 0; bit < corners.size(); ++bit)
        {
            if ((extra >> bit & 1) != 0)
                vExtra.push_back(corners[bit]);
            if ((remove >> bit & 1) != 0)
                vRemove.push_back(corners[bit]);
        }
    }
    oneInstance(vExtra);
    oneInstance(vRemove);
}

void Voro::removeRemovable(std::vector<CCD>& vRemove, std::vector<CCD>& vExtra)
{
    sortMT(vExtra.begin(), vExtra.end());
    sortMT(vCCD.begin(), vCCD.end());
    removeVec(vRemove, vExtra);
    if (vRemove.empty())
        return;
    RemoveDecider decider(vCCD, pCalc);
    for (bool bRemovedAny = true; bRemovedAny;)
    {
        bRemovedAny = false;
        for (const CCD c : vRemove)
            if (!decider.isDoomed(c) && decider.isRemovable(c))
            {
                decider.registerDoomed(c); // the next tests count it as gone
                bRemovedAny = true;
            }
    }
    std::erase_if(vCCD, [&decider](CCD c) { return decider.isDoomed(c); });
}

} // namespace MIRT_ZAV
