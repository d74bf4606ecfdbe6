// Public functions that change a mesh.
//
// Called for themselves they set up the calling thread's progress and close it; within a run they count as its stages.
// They do so, too, after a run that wasn't closed, which is one that failed or estimateAvgSpacing. A null mesh ends in
// ZavBugException.
#pragma once

#include "Mesh.h"
#include "zav_export.h"

namespace MIRT_ZAV
{

/// Replaces diagonals of pairs of triangles by the other ones while that bends the surface less, by falling gain. Edges
/// come to lie along features, and along borders between colours. Every edge of the start is considered; edges that
/// flips make are considered by a second call. Degenerate triangles are collapsed at the end. Vertices stay in place,
/// but for coincident ones, which are moved apart.
ZAV_API void edgeFlips(MeshPtr pMesh);

/// Simulated annealing around edgeFlips: between two calls of it, 29 rounds at falling temperature flip edges at a
/// loss, too, which leads out of local minima. Draws from rand(): repeats exactly after the same srand().
ZAV_API void edgeFlipsSimA(MeshPtr pMesh);

/// Moves every vertex that isn't on a border to the mean of its neighbours, all at once, nIter times; then collapses
/// degenerate triangles. Closed meshes shrink. Edges that a flip or collapse has left behind still pull. Normals that
/// edgeFlips has looked at stay as they were: flip first, smooth then.
/// \param nIter  number of rounds; below 1 nothing moves
/// \throws ZavBugException  where vertices coincide, also with one that a collapse has left behind, or were moved by the
///                          caller; the mesh stays usable
ZAV_API void laplacianSmoothing(MeshPtr pMesh, int nIter);

} // namespace MIRT_ZAV
