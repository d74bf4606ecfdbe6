// Cell preparation: from the points of a cloud to the shell of cells that carry the mesh's vertices.
#pragma once

#include "base/SimplePool.h"
#include "lattice/Calc.h"
#include "lattice/CellBricks.h"
#include "zav/Point3.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class RemoveDeciderFast;

/// Serves one cloud: made, run once and destroyed, on one thread.
class Prepare
{
public:
    std::vector<std::pair<RCD, Point3*>> vRCD2Vtxsrt; // all result cells with their point in the pool, sorted by cell
    std::vector<RCD> vAllRCDsrt;                      // alive cells, sorted: area and border together
    std::vector<RCD> vAreaRCDsrt;                     // alive cells that aren't border, sorted
    std::vector<RCD> vBorderRCDsrt;                   // border cells, sorted
    std::vector<RCD> vFillRCD;                        // cells that hole control added

    /// \param points            the cloud; not owned, not changed, and it must outlive this object
    /// \param holeControlLimit  largest size of a hole control pass, in cells; below 1 there is none
    /// \param pCalc             the lattice; not owned
    Prepare(std::vector<Point3>& points, int holeControlLimit, Calc* pCalc);

    /// \param vCCDPoint  receives every result cell with a copy of its point, sorted by cell
    /// \param vFillCCD   receives the cells that hole control added, sorted
    void run(std::vector<std::pair<CCD, Point3>>& vCCDPoint, std::vector<CCD>& vFillCCD);

    /// Turns points into cells with one point each and prunes the surplus.
    void createRCDs();
    /// Writes the result in terms of CCDs.
    void integrateNew(std::vector<std::pair<CCD, Point3>>& vCCDPoint, std::vector<CCD>& vFillCCD);

    /// The rising sizes of the hole control passes: 2, 4, 8, ..., where the last one jumps to the limit as soon as
    /// doubling would leave less than a quarter of it undone. Empty for a limit below 1.
    static std::vector<int> getHoleControlSizes(int holeControlLimit);

private:
    friend struct PrepareTestAccess;                       // to see the distances of the march
    using Distances = std::vector<std::pair<double, RCD>>; // distance from the shell in input units, cell; by cell

    /// The cells of one march.
    struct MarchZone
    {
        explicit MarchZone(const std::vector<RCD>& cells) : bricks(cells) {}

        std::vector<RCD> newCells;           // sorted
        std::vector<RCD> shellCells;         // sorted
        std::vector<Point3> shellPoints;     // at the same place; close to each other, as they are read again and again
        CellBricks bricks;                   // of both
        std::vector<CellBricks::Slot> slots; // of the new cells
        // By slot, how a new cell has been reached so far.
        std::vector<float> dists;           // to the source's point; the greatest float when unreached. With the sign
                                            // set when it can't improve any more, and for all cells that aren't new
        std::vector<std::uint32_t> sources; // the place of the shell cell whose point gives the distance
    };

    std::vector<std::pair<RCD, Point3*>> getCellsOfPoints() const;
    std::vector<std::pair<RCD, Point3>> getRepresentatives() const;
    void storeKeptCells(const std::vector<std::pair<RCD, Point3>>& vRCDPoint);

    // One pass of hole control: grows cells from the rim, and cuts away what bridges no gap.
    void hc_holeControlMain(int size, bool bFirstOrLast);
    std::vector<RCD> hc_findVolumeFills(const std::vector<RCD>& newCells) const;
    static void hc_addVolumeFills(const std::vector<RCD>& pockets, Distances& vDist2RCD);
    void hc_pruneDown(bool bFirstOrLast, Distances& vDist2RCD);
    void hc_unprotect(RemoveDeciderFast& decider, std::vector<RCD>& vKept, std::vector<RCD>& vUnprotected) const;
    std::vector<RCD> hc_removeFrayedRims(RemoveDeciderFast& decider, const std::vector<RCD>& fill, bool bFirstOrLast);
    void hc_takeOver(const std::vector<RCD>& membranes, const std::vector<RCD>& vCut);
    static void cleanupDist2RCD(std::vector<RCD>& vKept, Distances& vDist2RCD);

    // How far new cells lie from the shell: a front marches outwards and hands on the nearest shell point.
    MarchZone rcdmch_createZone(int size) const;
    void rcdmch_getDist2RCD(MarchZone& zone, Distances& vDist2RCD) const;
    void rcdmch_reachFromShell(MarchZone& zone) const;
    void rcdmch_reachFromShell(MarchZone& zone, RCD beginX, RCD endX) const;
    void rcdmch_march(MarchZone& zone) const;

public:
    std::vector<Point3>* pvPoints; // not owned
    int holeControlLimit;
    Calc* pCalc;
    float sideLen;
    MIRT_TOOLS::SimplePool<Point3> poolVtx; // owns the points of vRCD2Vtxsrt
};

} // namespace MIRT_ZAV
