// Cell preparation: from the points of a cloud to a thin shell of cells, whose points become the mesh's vertices.
#pragma once

#include "base/Progress.h"
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
    // The result: cells with their points, which live in the pool; sorted by cell. No cell is ever taken off it.
    std::vector<std::pair<RCD, Point3*>> vRCD2Vtxsrt;
    // The shell that the next pass of hole control sees, each list sorted: all cells, and which of them are border.
    std::vector<RCD> vAllRCDsrt;
    std::vector<RCD> vAreaRCDsrt; // those that aren't border
    std::vector<RCD> vBorderRCDsrt;
    std::vector<RCD> vFillRCD; // what each pass of hole control added, pass after pass

    /// \param points            the cloud; not owned and not changed, has to live as long as this object
    /// \param holeControlLimit  size of the last hole control pass, in cells: gaps of up to about twice as many cells
    ///                          get closed. Below 1 there is no pass
    /// \param pCalc             the lattice; not owned
    Prepare(std::vector<Point3>& points, int holeControlLimit, Calc* pCalc);

    /// Does all of it. Counts progress in the stages PREP_createRCD, PREP_fillHoles and PREP_integFill.
    /// \param vCCDPoint  the result cells and copies of their points are appended, then all of it is sorted
    /// \param vFillCCD   the cells that hole control added are appended, then all of it is sorted
    void run(std::vector<std::pair<CCD, Point3>>& vCCDPoint, std::vector<CCD>& vFillCCD);

    /// First stage: finds the cells of the points, picks a point for each, and takes surplus cells off.
    void createRCDs();
    /// Last stage: hands out the result as run() does.
    void integrateNew(std::vector<std::pair<CCD, Point3>>& vCCDPoint, std::vector<CCD>& vFillCCD);

    /// The sizes of the hole control passes. They double from 2 on up to the limit; a size that comes within a quarter
    /// of the limit is replaced by the limit, so that no pass is spent on a small rest: 10 gives 2, 4 and 10.
    /// 1 gives 1, and a limit below 1 gives nothing.
    static std::vector<int> getHoleControlSizes(int holeControlLimit);

private:
    friend struct PrepareTestAccess;                       // tests compare the distances of the march
    using Distances = std::vector<std::pair<double, RCD>>; // distance from the shell in input units, cell; by cell

    /// The cells around the rim that one march is about.
    struct MarchZone
    {
        explicit MarchZone(const std::vector<RCD>& cells) : bricks(cells) {}

        std::vector<RCD> newCells;           // sorted; empty so far, may become part of the shell
        std::vector<RCD> shellCells;         // sorted
        std::vector<Point3> shellPoints;     // of shellCells, by index; copies, as the march reads them over and over
        CellBricks bricks;                   // of both kinds of cells
        std::vector<CellBricks::Slot> slots; // of newCells, by index
        // By slot, how a new cell has been reached so far.
        std::vector<float> dists;           // to the point of the source; FLT_MAX while there is none. Negative once
                                            // final, and for all that isn't a new cell: no distance is below that, so
                                            // that one comparison sorts out what mustn't change
        std::vector<std::uint32_t> sources; // index of the shell cell that the front came from
    };

    std::vector<std::pair<RCD, Point3*>> getCellsOfPoints() const;
    std::vector<std::pair<RCD, Point3>> getRepresentatives() const;
    void storeKeptCells(const std::vector<std::pair<RCD, Point3>>& vRCDPoint);

    /// A part of the steps of the present pass; they are divided by about the time that its steps take.
    ProgressPart getPartOfPass(unsigned percent, std::uint64_t numItems) const
    {
        return {pFilling, percent * stepsPerPercent, numItems};
    }

    // One pass of hole control (Prepare_holeControl.cpp): cells grow from the rim, and what bridges no gap is cut off.
    void hc_holeControlMain(int size, bool bFirstOrLast);
    std::vector<RCD> hc_findVolumeFills(const std::vector<RCD>& newCells) const;
    static void hc_addVolumeFills(const std::vector<RCD>& pockets, Distances& vDist2RCD);
    void hc_pruneDown(bool bFirstOrLast, Distances& vDist2RCD);
    void hc_unprotect(RemoveDeciderFast& decider, std::vector<RCD>& vKept, std::vector<RCD>& vUnprotected) const;
    std::vector<RCD> hc_removeFrayedRims(RemoveDeciderFast& decider, const std::vector<RCD>& fill, bool bFirstOrLast);
    void hc_takeOver(const std::vector<RCD>& membranes, const std::vector<RCD>& vCut);
    static void cleanupDist2RCD(std::vector<RCD>& vKept, Distances& vDist2RCD);

    // How far new cells lie from the shell (Prepare_marching.cpp).
    MarchZone rcdmch_createZone(int size) const;
    void rcdmch_getDist2RCD(MarchZone& zone, Distances& vDist2RCD) const;
    void rcdmch_reachFromShell(MarchZone& zone) const;
    void rcdmch_reachFromShell(MarchZone& zone, RCD beginX, RCD endX) const;
    void rcdmch_march(MarchZone& zone) const;

public:
    std::vector<Point3>* pvPoints; // not owned
    int holeControlLimit;
    Calc* pCalc; // not owned
    float sideLen;
    MIRT_TOOLS::SimplePool<Point3> poolVtx; // owns the points of vRCD2Vtxsrt

private:
    Progress* pFilling = nullptr; // the stage of hole control while it runs, else nobody counts
    std::uint64_t stepsPerPercent = 0;
};

} // namespace MIRT_ZAV
