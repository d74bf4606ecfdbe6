// Which cells may go: the classes of cells by their neighbourhood, and the loops that thin occupied cells to a shell.
//
// An alive cell is of one of three kinds, by its 26 neighbours alone (LUT):
//  - a gap cell: its removal would open a gap in the shell, or none of its faces is empty; it is never removed;
//  - a border cell: it lies on the skin of a thick region, or on the rim of a thin sheet;
//  - the rest, which can go without harm.
// An area cell is any alive cell that is no border cell. A doomed cell is a killed cell of the initial set.
#pragma once

#include "cells/LUT.h"
#include "cells/RCDStore.h"

#include <map>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// What pruneByDistance may kill.
enum PruningMode
{
    PM_PRUNE_BORDERS = 0, // border cells only
    PM_PRUNE_AREA = 1     // cells that aren't border
};

/// Takes cells off one at a time in a fixed order and looks at the neighbourhood before each removal, so that the alive
/// cells never come apart. Kills happen on one thread; the result doesn't depend on the number of CPUs.
///
/// Unless said otherwise, a cell that is asked for must lie in a block of the initial cells.
class RemoveDeciderFast
{
public:
    using RCDPoints = std::vector<std::pair<RCD, Point3>>;

    /// \param cells  distinct and sorted; all alive at first. The list stays with the caller, unchanged as long as the
    ///               decider.
    RemoveDeciderFast(std::vector<RCD>& cells, Calc* calcArg);

    /// Gives weights by cell, sorted by cell, in place of those that getWeight computes. Not owned; null for none.
    void set(std::vector<std::pair<RCD, int>>* pvCard2RCD) { pvCard2RCD_srt = pvCard2RCD; }

    // State of cells. A double kill counts twice.
    void kill(RCD r);
    void unkill(RCD r);
    bool isAlive(RCD r) const { return store.getRCDMatrix(r)->bits.test(RCDMatrix::rcdToAddress(r)); }
    bool isDoomed(RCD r) const { return !isAlive(r); }
    /// isAlive for any cell: false, with a warning, where the store has no block.
    bool isSet(RCD r) const;
    int getNumKilled() const { return numKilled; }
    /// Appends all alive cells; then out is sorted.
    void getAliveRCD(std::vector<RCD>& out) const;
    /// The alive ones of the 26 neighbours, by position. out comes in empty.
    void getNeigs(RCD r, std::vector<RCD>& vNeigs) const;

    // Classes by neighbourhood. A dead cell has index 0, so that it counts as border and not as gap.
    /// The index of the decision tables.
    u64 getBitmap_altVersion(RCD r) const { return convertToAltBitmap(getConfiguration(r)); }
    static u64 convertToAltBitmap(u64 config) { return getAlternativeBitmap(config); }
    bool isBorder(RCD r) const { return borderBit(static_cast<unsigned>(getBitmap_altVersion(r))); }
    bool removingCreatesGap(RCD r) const { return gapBit(static_cast<unsigned>(getBitmap_altVersion(r))); }
    /// Appends every alive cell to one of the lists: in the order of the initial cells while nothing is killed, else
    /// by blocks.
    void detectAreaAndBorder(std::vector<RCD>& area, std::vector<RCD>& border) const;

    /// The rank of a cell in the queue of prunePrioq, lowest first: n + s - d / s with the number n of alive face
    /// neighbours, the cell side s, and the distance d from the cell's point to its centre. The weights given to set()
    /// go before.
    /// \param vRCDPoint  sorted by cell; a cell that is missing there is a bug
    double getWeight(const RCDPoints& vRCDPoint, RCD r) const;

    /// Weighs cells and enters them in a queue, among equal weights the smaller cell first.
    void createPrioq(std::vector<RCD>& cells, const RCDPoints& vRCDPoint, std::multimap<double, RCD>& queue) const;

    /// Kills the cells that may go, the lowest weight first, in sweeps until nothing changes.
    /// \param vRCDPoint    the point of every cell, sorted by cell
    /// \param vRCD         the cells to look at, sorted
    /// \param vKept        receives vRCD without vRemoved
    /// \param vRemoved     the killed cells are appended, then it is sorted
    /// \param killBorders  whether border cells may go, too
    /// \param prePrune     whether prePruneSmallBorderCCs goes first
    /// \return the number of cells killed
    size_t prunePrioq(const RCDPoints& vRCDPoint, const std::vector<RCD>& vRCD, std::vector<RCD>& vKept,
                      std::vector<RCD>& vRemoved, bool killBorders, bool prePrune);

    /// Kills cells that the mode allows, the farthest first. A cell that has to stay for now comes back when a
    /// neighbour goes.
    /// \param vDist    distance and cell; gets sorted by descending distance, then by cell
    /// \param vKept    the cells of vDist that live, sorted
    /// \param vKilled  those that are dead, sorted
    /// \return the number of cells killed
    size_t pruneByDistance(PruningMode mode, std::vector<std::pair<double, RCD>>& vDist, std::vector<RCD>& vKept,
                           std::vector<RCD>& vKilled);

    /// tryRemoveBorderCC on every component of at most 40 border cells; the sum of its results.
    size_t prePruneSmallBorderCCs(std::vector<RCD>& vRemoved);

    /// Kills a connected piece of border cells, except for gap cells, unless that would turn cells behind it into
    /// border cells.
    /// \param cc        gets sorted
    /// \param vRemoved  the killed cells are appended
    /// \return the number of cells killed; 0, with nothing changed, if the border would spread
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
    /// d / s of a cell's weight.
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
