// The case table: which triangles a pattern of occupied cells around a lattice vertex gives.
//
// Like the table of marching cubes (Lorensen and Cline 1987) it has a row for each pattern of a cube's eight corners.
// Here the corners are the eight cells that meet in a lattice vertex, and triangles join cells, not points on the
// cube's edges. There are 23 patterns that no rotation of the cube turns into each other: these are written down, the
// other rows are rotated copies.
//
// The cells by their bits, as Calc::completeArraySym puts them:
//
//        z
//        ^     0---1        4---5
//        |     |   |        |   |        pattern 15 is the lower square,
//        |     3---2        7---6        triangle mask 11 = 1 + 2 + 8 joins the cells 0, 1 and 3
//        |
//        +--> x   lower y      upper y
#pragma once

#include "lattice/Calc.h"

#include <vector>

namespace MIRT_ZAV
{

enum TRIMODE
{
    TM_THIN = 0, // a single sheet per configuration
    TM_FAT = 1   // a sheet, and under roles of their own the triangles that it leaves out
};

/// Role of a triangle of the fat table.
enum TriUse
{
    TUU = 0, // any; as a filter it passes all
    TUT = 1, // of the thin sheet: what extraction asks for
    TUF = 2, // fat only
    TUI = 3  // inner triangle of a fat configuration
};

/// A configuration is a pattern of occupied cells, a bit for each of the eight; a triangle is a mask of the same kind
/// with three bits. Constant after construction.
class Casx
{
public:
    static constexpr int numConfigs = 256;
    static constexpr int rowLength = 12;
    static constexpr int endOfRow = 512;

    TRIMODE mode;
    bool bExperimental;
    std::vector<int> vTriVec;    // numConfigs rows of triangle masks; endOfRow fills the rest of a row
    std::vector<TriUse> vTriUse; // parallel to vTriVec
    std::vector<int> vBaseCases; // the smallest configuration of each class of rotations

    /// With bExperimental a notice is printed. Both ways give the same table, grown from the base cases.
    Casx(TRIMODE mode, bool bExperimental);

    /// Appends the corners of the triangles of a configuration, three codes each, by ascending bit.
    /// \param corners  the eight cells in bit order
    /// \param use      role of the triangles wanted
    void getTriangles(int config, const CCD* corners, std::vector<CCD>& out, TriUse use) const;

    /// The empty corners of a configuration of 6 or 7 cells, as a mask; else 0.
    static unsigned getExtraCbs(int config);
    /// The cells that may go once these corners are filled, as a mask: those straight across the vertex. Filling a dent
    /// makes the shell thicker, and the far side can give it back. In two dimensions, '.' being empty:
    ///
    ///     # .        # #        # #
    ///     # #   -->  # #   -->  . #
    ///
    /// Two empty corners have to share a face, else the mask is 0, as it is for all other configurations.
    static unsigned getRemoveCbs(int config);

    /// Writes one row of triangle masks.
    void addTriConfig(int config, const std::vector<int>& triangles);
    /// Writes the same row of roles to all 24 rotations of a configuration.
    void addTriUse(int config, const std::vector<TriUse>& uses);

private:
    void initAllCases();
    void initBaseCases();
    void expandBaseCases();
    void setTriUse(int config, const std::vector<TriUse>& uses);
    std::vector<int> getRow(int config) const;
    std::vector<TriUse> getUseRow(int config) const;
};

/// Makes two triangles that split a square of four cells in one face split it through the cell of the lowest code:
///
///     2---3        2---3        numbered by code
///     |\  |        |  /|
///     | \ |   -->  | / |        The two cubes that share the square see it from either side. Without a rule
///     |  \|        |/  |        they could choose different diagonals, and their triangles wouldn't meet.
///     0---1        0---1
///
/// Pairs of triangles that aren't such a square are left alone.
void samePlaneUnify(int& triangle0, int& triangle1);

} // namespace MIRT_ZAV
