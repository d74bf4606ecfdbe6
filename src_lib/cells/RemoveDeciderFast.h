// The loops that thin occupied cells down to a shell.
//
// Every alive cell is a gap cell, a border cell or neither; LUT.h has pictures of them. Gap cells stay, border cells go
// where the caller allows it, the others may go at any time. In names, "area" is all that is alive and not border, gap
// cells included, and "doomed" is what isn't alive.
#pragma once

#include "cells/LUT.h"
#include "cells/RCDStore.h"

#include <map>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class ProgressPart;

/// What pruneByDistance may kill.
enum PruningMode
{
    PM_PRUNE_BORDERS = 0, // border cells
    PM_PRUNE_AREA = 1     // what is neither border nor gap
};

/// Cells go one by one, and each is judged by what the earlier ones have left around it. If many were judged at once,
/// two neighbours could each be superfluous thanks to the other, and with both gone the shell would have a hole. So
/// kills stay on one thread, and their order is the same for any number of CPUs.
///
/// Unless said otherwise, a cell that is asked for must lie in a block of the initial cells. For any other there is a
/// warning, then a null pointer is followed.
class RemoveDeciderFast
{
public:
    using RCDPoints = std::vector<std::pair<RCD, Point3>>;

    /// \param cells    the initial cells, each one once and sorted, all alive at first; not owned, and to be kept
    ///                 unchanged as long as the decider lives
    /// \param calcArg  the lattice; not owned
    RemoveDeciderFast(std::vector<RCD>& cells, Calc* calcArg);

    /// From now on weights come from this list (sorted by cell, not owned), and a cell that is missing there is a bug;
    /// null goes back to computed weights.
    void set(std::vector<std::pair<RCD, int>>* pvCard2RCD) { pvCard2RCD_srt = pvCard2RCD; }

    // State of cells. kill and unkill count without a look at the cell's state: a double kill counts twice.
    void kill(RCD r);
    void unkill(RCD r);
    bool isAlive(RCD r) const { return store.getRCDMatrix(r)->bits.test(RCDMatrix::rcdToAddress(r)); }
    bool isDoomed(RCD r) const { return !isAlive(r); }
    /// isAlive for any cell at all: false, with a warning, where there is no block.
    bool isSet(RCD r) const;
    /// Appends all alive cells, then sorts all of out.
    void getAliveRCD(std::vector<RCD>& out) const;
    /// The alive ones of the 26 neighbours, by position.
    /// \param vNeigs  has to be empty, else it is a bug
    void getNeigs(RCD r, std::vector<RCD>& vNeigs) const;

    // Kinds of cells. A dead cell has index 0, the index of a lone cell, and counts as border, not as gap.

    /// The index for gapBit and borderBit.
    u64 getBitmap_altVersion(RCD r) const { return convertToAltBitmap(getConfiguration(r)); }
    static u64 convertToAltBitmap(u64 config) { return getAlternativeBitmap(config); }
    bool isBorder(RCD r) const { return borderBit(static_cast<unsigned>(getBitmap_altVersion(r))); }
    bool removingCreatesGap(RCD r) const { return gapBit(static_cast<unsigned>(getBitmap_altVersion(r))); }
    /// Appends every alive cell to one of the lists, sorted only as long as nothing is killed; later it is block by
    /// block.
    void detectAreaAndBorder(std::vector<RCD>& area, std::vector<RCD>& border) const;

    /// By which prunePrioq orders cells, the lowest first: few face neighbours, then a point far from the middle of its
    /// cell. The formula is n + s - d / s with the number n of alive face neighbours, the cell side s and the distance
    /// d from the point to the centre, both in input units. The first s is the same for all cells and matters by
    /// rounding alone, which can make or break ties: the bytes of every result depend on it.
    /// \param vRCDPoint  sorted by cell; a cell that is missing there is a bug. Not read if set() gave weights
    double getWeight(const RCDPoints& vRCDPoint, RCD r) const;

    /// Weighs cells and enters them in a queue; of equal weights the cell of lower code comes first.
    void createPrioq(std::vector<RCD>& cells, const RCDPoints& vRCDPoint, std::multimap<double, RCD>& queue) const;

    /// Kills the cells that may go, the lowest weight first. When a sweep is through, the next one looks at the cells
    /// around its kills, until a sweep kills nothing.
    /// \param vRCDPoint    the point of every cell, sorted by cell
    /// \param vRCD         the cells that may be killed, sorted; others stay
    /// \param vKept        becomes vRCD without vRemoved
    /// \param vRemoved     the killed cells are appended, then all of it is sorted
    /// \param killBorders  whether border cells may go as well
    /// \param prePrune     whether prePruneSmallBorderCCs goes first
    /// \return the number of cells killed
    size_t prunePrioq(const RCDPoints& vRCDPoint, const std::vector<RCD>& vRCD, std::vector<RCD>& vKept,
                      std::vector<RCD>& vRemoved, bool killBorders, bool prePrune);

    /// Kills cells that the mode allows, the farthest first; cells outside of the list stay. A cell that is buried, and
    /// in PM_PRUNE_AREA any cell that can't go yet, waits and is looked at again whenever a neighbour has died.
    /// \param vDist    distance and cell, in any unit; gets sorted by descending distance, then by cell
    /// \param vKept    becomes the cells of vDist that are alive in the end, sorted
    /// \param vKilled  becomes those that are dead in the end, sorted, those among them that were dead before
    /// \param pPart    counts the cells of vDist as their first turn comes; or null
    /// \return the number of cells killed
    size_t pruneByDistance(PruningMode mode, std::vector<std::pair<double, RCD>>& vDist, std::vector<RCD>& vKept,
                           std::vector<RCD>& vKilled, ProgressPart* pPart = nullptr);

    /// Calls tryRemoveBorderCC for every connected piece of at most 40 border cells.
    /// \return the number of cells killed
    size_t prePruneSmallBorderCCs(std::vector<RCD>& vRemoved);

    /// Kills a piece of border cells, but only if the cells behind it don't become border cells then: a loose bit goes,
    /// the rim of something greater stays as it is. A cell that has become a gap cell by the time its turn comes stays.
    /// \param cc        the piece; gets sorted
    /// \param vRemoved  the killed cells are appended
    /// \return the number of cells killed; 0, with nothing changed, if the border would move on
    size_t tryRemoveBorderCC(std::vector<RCD>& cc, std::vector<RCD>& vRemoved);

private:
    class PointWeights;
    struct PruneRun;

    unsigned getConfiguration(RCD r) const
    {
        return store.getRCDMatrix(r)->getConfiguration(RCDMatrix::rcdToAddress(r));
    }
    int countFaceNeigs(RCD r) const { return store.getRCDMatrix(r)->getNeigs6(RCDMatrix::rcdToAddress(r), nullptr); }
    void appendNeigs26(RCD r, std::vector<RCD>& out) const
    {
        store.getRCDMatrix(r)->getNeigRCD26(RCDMatrix::rcdToAddress(r), out);
    }

    double getCardWeight(RCD r) const;
    /// The distance from a cell's point to its centre, in cell sides.
    double getRelativeDistance(RCD r, const Point3& point) const;
    std::vector<std::pair<double, RCD>> weighSorted(const std::vector<RCD>& cells, const PointWeights& weights) const;
    void sweepPrioq(const std::vector<RCD>& candidates, PruneRun& run);
    void getNextCandidates(std::vector<RCD>& killed, std::vector<RCD>& candidates) const;

public:
    double sideLen;
    std::vector<RCD>* pvRCD;
    Calc* calc;
    RCDStore store;
    int numKilled = 0;
    std::vector<std::pair<RCD, int>>* pvCard2RCD_srt = nullptr;
};

} // namespace MIRT_ZAV
