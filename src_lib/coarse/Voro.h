// Surface extraction: from cells to the triangles of the coarse mesh.
#pragma once

#include "coarse/CMesh.h"
#include "coarse/Casx.h"
#include "lattice/Calc.h"
#include "lattice/CellPatterns.h"

#include <cstdint>
#include <map>
#include <vector>

namespace MIRT_ZAV
{

class Progress;
class ProgressPart;

/// Walks every lattice vertex that a cell touches, looks its pattern of cells up in the case table and makes the
/// triangles between the cells. Where the pattern is a flat square of four cells, either diagonal would do: these wait
/// until the rest of the mesh is there and can decide.
class Voro
{
public:
    Calc* pCalc;                  // the lattice; not owned
    std::map<CCD, Bundle*>* pMap; // cells with their bundles; not owned
    std::vector<CCD>* pvFill;     // cells that hole control added; not owned, passed on to the mesh
    CMesh* pCMesh = nullptr;      // made by the first extraction; owned until released
    std::vector<CCD> vCCD;        // the cells that extraction uses, sorted
    CellPatterns patterns;        // of these cells
    Casx casx;

    Voro(Calc* pCalc, std::map<CCD, Bundle*>& map, std::vector<CCD>& fill, TRIMODE mode);
    ~Voro();
    Voro(const Voro&) = delete;
    Voro& operator=(const Voro&) = delete;

    /// Makes all triangles, in a new mesh or in the old one after a reset.
    void fatExtractTriangles();
    /// Splits squares along a diagonal that is an edge of the mesh already, or along (c0, c3) where neither is.
    /// \param list   records of eight values: six corner codes of two triangles, the vertex, the configuration
    /// \param pPart  counts the records; or null
    void solveAmbiguousT(std::vector<unsigned long long>& list, ProgressPart* pPart = nullptr);
    /// Completes nearly full vertices with new cells, removes cells that can go in exchange, and extracts again. All
    /// triangles, edges and patches of before become invalid.
    /// \param pStage    gets the steps of progress, as the first extraction has filled its own stages; or null
    /// \param numSteps  how many they are
    CMesh* meshAgain(std::vector<VCD>& vVCD, Progress* pStage = nullptr, std::uint64_t numSteps = 0);
    CMesh* getCMesh() const { return pCMesh; }
    /// Hands the mesh's ownership over. The mesh stays known here, for meshAgain.
    CMesh* releaseCMesh();

private:
    struct Square;
    struct FoundTriangle;

    void walkVertices(std::vector<unsigned long long>& ambiguous);
    void findTriangles(size_t firstBlock, size_t lastBlock, std::vector<FoundTriangle>& found) const;
    void enterTriangles(const std::vector<FoundTriangle>& found, std::vector<unsigned long long>& ambiguous,
                        ProgressPart& part);
    void createUnlessThere(CEdge* e, VCD a, VCD b, VCD c, VCD vertex, int config);
    void orderByDiagonal(const unsigned long long* record, Square& square) const;
    void createExtraCCDs_borderFix(const std::vector<VCD>& vVCD, std::vector<CCD>& vExtra, std::vector<CCD>& vRemove);
    void removeRemovable(std::vector<CCD>& vRemove, std::vector<CCD>& vExtra);

    bool bOwnsCMesh = false;
    Progress* pAgain = nullptr; // while meshAgain runs: where steps are counted
    std::uint64_t stepsAgain = 0;
};

} // namespace MIRT_ZAV
