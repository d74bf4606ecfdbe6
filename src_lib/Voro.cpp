#include "Voro.h"

#include "Progress.h"
#include "RemoveDecider.h"
#include "sortMT.h"
#include "tools.h"
#include "vectorHelpers.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cstdint>
#include <utility>

namespace MIRT_ZAV
{
namespace
{
/// Entries of vStaticVCD2CCD that are reported as progress at once.
constexpr std::uint64_t countedAtOnce = 10000;

/// Values of one record of an ambiguous square: two triangles, the vertex, the configuration.
constexpr size_t recordLength = 8;

/// Four cells in one face of the eight: two triangles, whose diagonal is open.
bool isSquare(int config)
{
    return config == 15 || config == 51 || config == 102 || config == 153 || config == 204 || config == 240;
}
} // namespace

/// Corners of a square with the diagonals (c0, c3) and (c1, c2).
struct Voro::Square
{
    CCD c0, c1, c2, c3;
};

Voro::Voro(Calc* pCalcArg, std::map<CCD, Bundle*>& map, std::vector<CCD>& fill, TRIMODE mode)
    : pCalc(pCalcArg), pMap(&map), pvFill(&fill), casx(mode, false)
{
    vCCD.reserve(map.size());
    for (const auto& [c, bundle] : map)
        vCCD.push_back(c);
    setVCD2CCD();
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

void Voro::setVCD2CCD()
{
    vStaticVCD2CCD.reserve(vStaticVCD2CCD.size() + 8 * vCCD.size());
    for (const CCD c : vCCD)
    {
        std::array<VCD, 8> vertices;
        vertices[0] = c;
        pCalc->completeArrayPlus(vertices.data());
        for (const VCD vertex : vertices)
            vStaticVCD2CCD.emplace_back(vertex, c);
    }
    sortMT(vStaticVCD2CCD.begin(), vStaticVCD2CCD.end());
}

int Voro::getConfig(VCD vertex, const std::vector<CCD>& cells) const
{
    // By 4 * sameX + 2 * sameY + sameZ: the bit of the cell in the order of Calc::completeArraySym.
    constexpr std::array<int, 7> maskOf = {8, 1, 128, 16, 4, 2, 64};
    int config = 0;
    for (const CCD c : cells)
    {
        const u64 difference = c ^ vertex;
        if (difference == 0)
        {
            config += 32;
            continue;
        }
        const size_t index = ((difference & ccd::xMask) == 0 ? 4u : 0u) + ((difference & ccd::yMask) == 0 ? 2u : 0u) +
                             ((difference & ccd::zMask) == 0 ? 1u : 0u);
        ZAV_ASSERT(index < maskOf.size(), "false");
        config += maskOf[index];
    }
    return config;
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

    Progress* const walk = getThreadProgress()->getChildProgressSetTodo("VO_ftx", vStaticVCD2CCD.size());
    std::vector<unsigned long long> ambiguous;
    std::vector<CCD> cells, vTri;
    std::uint64_t numUncounted = 0;
    for (auto it = vStaticVCD2CCD.begin(); it != vStaticVCD2CCD.end();)
    {
        const VCD vertex = it->first;
        cells.clear();
        for (; it != vStaticVCD2CCD.end() && it->first == vertex; ++it)
            cells.push_back(it->second);
        extractAtVertex(vertex, cells, ambiguous, vTri);
        numUncounted += cells.size();
        if (numUncounted >= countedAtOnce)
            walk->incProgressBy(std::exchange(numUncounted, 0));
    }
    walk->incProgressBy(numUncounted);
    walk->setDone(true);

    Progress* const solving = getThreadProgress()->getChildProgressSetTodo("VO_amb", 2);
    solveAmbiguousT(ambiguous);
    solving->incProgressByOne();
    pCMesh->killDups();
    solving->incProgressByOne();
    solving->setDone(true);
}

/// vTri is scratch space, kept from vertex to vertex.
void Voro::extractAtVertex(VCD vertex, const std::vector<CCD>& cells, std::vector<unsigned long long>& ambiguous,
                           std::vector<CCD>& vTri)
{
    // Two cells make no triangle, and eight mean that the vertex lies inside.
    if (cells.size() < 3 || cells.size() > 7)
        return;
    const int config = getConfig(vertex, cells);
    std::array<CCD, 8> corners;
    corners[5] = vertex;
    pCalc->completeArraySym(corners.data());
    vTri.clear();
    casx.getTriangles(config, corners.data(), vTri, TUT);
    if (isSquare(config))
    {
        ZAV_ASSERT(vTri.size() == 6, "vTriVCD.size()==6");
        ambiguous.insert(ambiguous.end(), vTri.begin(), vTri.end());
        ambiguous.push_back(vertex);
        ambiguous.push_back(static_cast<unsigned long long>(config));
        return;
    }
    for (size_t i = 0; i < vTri.size(); i += 3)
        createUnlessThere(pCMesh->getEdge(vTri[i], vTri[i + 1]), vTri[i], vTri[i + 1], vTri[i + 2], vertex, config);
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

void Voro::solveAmbiguousT(std::vector<unsigned long long>& list)
{
    ZAV_ASSERT(list.size() % recordLength == 0, "vAmbiguousT.size()%8==0");
    for (size_t i = 0; i < list.size(); i += recordLength)
    {
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
        CEdge* const e = pCMesh->getEdge(s.c3, s.c0); // null when neither diagonal exists: both are made
        createUnlessThere(e, s.c0, s.c1, s.c3, vertex, config);
        createUnlessThere(e, s.c0, s.c3, s.c2, vertex, config);
    }
}

CMesh* Voro::meshAgain(std::vector<VCD>& vVCD)
{
    std::vector<CCD> vExtra, vRemove;
    createExtraCCDs_borderFix(vVCD, vExtra, vRemove);
    vCCD.insert(vCCD.end(), vExtra.begin(), vExtra.end());
    oneInstance(vCCD);
    removeRemovable(vRemove, vExtra); // looks at the cells alone: the vertices are needed for the final list only
    vStaticVCD2CCD.clear();
    setVCD2CCD();
    fatExtractTriangles();
    for (const CCD c : vExtra)
        if (!pCMesh->hasBundle(c))
            pCMesh->addBundle(c, DBL_MAX, DBL_MAX, DBL_MAX); // a new cell has no position yet
    pCMesh->integrateAdditionalBundles();
    pCMesh->averageBundles();
    return pCMesh;
}

void Voro::createExtraCCDs_borderFix(const std::vector<VCD>& vVCD, std::vector<CCD>& vExtra, std::vector<CCD>& vRemove)
{
    for (const VCD vertex : vVCD)
    {
        auto q_it = std::lower_bound(vStaticVCD2CCD.begin(), vStaticVCD2CCD.end(), std::pair<VCD, CCD>(vertex, 0));
        ZAV_ASSERT(q_it != vStaticVCD2CCD.end(), "q_it!=vStaticVCD2CCD.end()");
        std::vector<CCD> cells;
        for (; q_it != vStaticVCD2CCD.end() && q_it->first == vertex; ++q_it)
            cells.push_back(q_it->second);
        if (cells.size() < 3 || cells.size() > 7)
            continue;
        const int config = getConfig(vertex, cells);
        const unsigned extra = Casx::getExtraCbs(config);
        const unsigned remove = extra > 0 ? Casx::getRemoveCbs(config) : 0;
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
                decider.registerDoomed(c); // the next tests see it
                bRemovedAny = true;
            }
    }
    std::erase_if(vCCD, [&decider](CCD c) { return decider.isDoomed(c); });
}

} // namespace MIRT_ZAV
