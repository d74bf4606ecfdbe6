// Public functions: reconstruction, spacing, set-up of the library.
#pragma once

#include "Mesh.h"
#include "Point3.h"
#include "Progress.h"
#include "zav_export.h"

#include <vector>

namespace MIRT_ZAV
{

/// Turns a point cloud into a mesh on a lattice whose cell side is a multiple of the detected point spacing.
/// \param points            the cloud, not changed; colours are carried along. Points that aren't finite make no cells,
///                          but a first point that isn't a number, or an infinite coordinate, spoils the bounding box:
///                          take such points out before
/// \param spacingFactor     cell side as a multiple of the detected spacing: 1.0 for cells at that spacing, more for a
///                          coarser mesh, less for a finer one with more holes
/// \param holeControlLimit  number of cells that hole control grows from the rims: gaps up to about twice as wide are
///                          closed, wider ones stay open; below 1 none is closed. It works with single-precision
///                          centres of cells: move a cloud that is more than 10^5 cells from the origin with autoOffset
/// \return the mesh, or null, after a message, when no cell came out
/// \throws ZavBugException  when the spacing isn't above 0, the bounding box isn't finite or the cloud needs more than
///                          2087152 cells along an axis, or where two vertices of filled holes come to coincide;
///                          after a sentence, when closing holes would take more memory than there is, more than
///                          2^31 cells or 2^26 blocks of 64, or cells of less than 1e-18 or about 1e17 input units
ZAV_API MeshPtr reconstruct_auto(std::vector<Point3>& points, double spacingFactor, int holeControlLimit);

/// The same with the cell side given in the units of the input; the spacing isn't estimated.
ZAV_API MeshPtr reconstruct_abs(std::vector<Point3>& points, double spacing, int holeControlLimit);

/// Turns triangles into an even cloud: one point for every lattice cell that they touch. Corners and edges that fold,
/// and borders, get their points first, exactly on them.
/// \param vTriangleCorners  three points per triangle in any order and orientation, not changed; any other number is a
///                          bug. Degenerate triangles are left out and counted in a warning
/// \param spacing           side of a lattice cell in input units, above 0
/// \param featureAngle      degrees: an edge that folds more keeps its shape; at 360.0 or more only borders do
/// \param vOut              the points are appended, by ascending cell; none, after a warning, for no triangles
/// \throws ZavBugException  when the spacing isn't above 0, so fine that the triangles need more than 2087152 cells
///                          along an axis or one of them some 10^9 cells; when a coordinate is infinite, or one of
///                          the first point not a number (elsewhere such triangles are left out); for a needle whose
///                          normal exists in one order of its corners and not in another; after a sentence that
///                          names a spacing that fits, when the cells would take more memory than there is
ZAV_API void toCloud(std::vector<Point3>& vTriangleCorners, double spacing, double featureAngle,
                     std::vector<Point3>& vOut);

/// Meshes triangles anew, on the cells of toCloud: overlapping, flipped and repeated triangles melt into one surface.
/// Parameters and errors as with toCloud.
/// \return the mesh, or null, after a warning, for no triangles
ZAV_API MeshPtr melt(std::vector<Point3>& vTriangleCorners, double spacing, double featureAngle);

/// The detected average point spacing in input units; -1.0 for an empty cloud. Costs a whole intake with hole control
/// off. The last fraction that a subscriber hears is about 2/3, so don't wait for 1.0.
ZAV_API double estimateAvgSpacing(std::vector<Point3>& points);

/// From now on the object hears of the progress of the calling thread's runs. It isn't owned and has to live until this
/// thread runs the library no more, or another object takes its place: null is ignored. A run that fails or that the
/// object cancels changes nothing about that.
ZAV_API void subscribe(ProgressBase* pProgress);

/// The stages of the calling thread's last run with their times: the run itself first, then each stage in the order in
/// which it began. Empty before the first run.
ZAV_API std::vector<StageTiming> getStageTimings();

/// Sets the number of threads that the library uses from now on; 0 means the hardware's number, a negative value warns
/// and changes nothing. At most 4 times the hardware's number is taken, with a warning once in a process;
/// getGlobalNumCPU() gives the number in force. Where the system gives fewer threads, the library works with those.
/// Thread pools that exist keep their threads until destroySingletons(). To be called before work starts.
ZAV_API void setGlobalNumCPU(int numCPU);

/// Ends the thread pools, for example before unloading the library. They come back on demand. May be called at any time:
/// a pool that another thread is using goes on for that thread and ends when its work is done.
ZAV_API void destroySingletons();

/// Subtracts the middle of the bounding box, which brings a far cloud, such as one in map coordinates, to the origin,
/// where doubles are densest.
///
/// Beware of an axis along which every point lies below all earlier ones; a single point is enough. A coordinate that
/// lowers the minimum isn't tried as the maximum, which keeps its start value then, and the offset comes out at about
/// -9e307. Callers rely on the offsets as they are.
/// \param points   changed in place
/// \param x, y, z  receive what was subtracted; 0 for an empty cloud
ZAV_API void autoOffset(std::vector<Point3>& points, double& x, double& y, double& z);

/// 1 and 17.
ZAV_API void getVersion(int& major, int& minor);
/// "ZAV, version 1.17" on standard output.
ZAV_API void printVersion();
/// True.
ZAV_API bool isRelease();
/// False: binary point files have their 64-bit form.
ZAV_API bool is32bitSystem();

} // namespace MIRT_ZAV
