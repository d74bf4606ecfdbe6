// The case table: which triangles a pattern of occupied cells around a lattice vertex gives.
//
// Like the table of marching cubes it lives on a cube of eight, here the eight cells that meet in a vertex, and it is
// told by 23 base cases and the rotations of the cube. Its triangles join cells, not cut points: mesh vertices are
// cells.
#pragma once

#include "lattice/Calc.h"

#include <vector>

namespace MIRT_ZAV
{

enum TRIMODE
{
    TM_THIN = 0, // a single sheet per configuration
    TM_FAT = 1   // also the triangles that close five to seven cells to a solid
};

/// Role of a triangle of the fat table.
enum TriUse
{
    TUU = 0, // any; as a filter it passes all
    TUT = 1, // of the thin sheet: what extraction asks for
    TUF = 2, // fat only
    TUI = 3  // inner triangle of a fat configuration
};

/// A configuration is an 8-bit number with one bit per cell around a vertex, in the order of Calc::completeArraySym. A
/// triangle in the table is an 8-bit mask of the three cells that it joins. Constant after construction.
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
    /// The cells that can go when the empty corners are filled, as a mask; 0 for most configurations.
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

/// Two triangles that share two cells and split a square of four cells in one face: makes the split go through the cell
/// of the lowest code. Both cubes that hold the square thus get the same diagonal. Other pairs are left alone.
void samePlaneUnify(int& triangle0, int& triangle1);

} // namespace MIRT_ZAV
