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

/// Thins a mesh by edge collapses: one end of an edge moves onto the other, the triangles between them go. The collapse
/// that turns the surface least comes first, short edges before long ones, like colours before unlike ones; collapses
/// go on as long as any is allowed. Degenerate triangles are collapsed at the end, outside of these limits:
/// - No edge longer than maxEdgeLength is collapsed.
/// - No triangle turns by more than maxAngleDeg in one collapse. Turns of several collapses add up.
/// - No vertex moves and none is new: positions and colours of the result are a subset of the mesh's.
/// - A vertex that is on a border at the start leaves only along the border, where that bends by less than 10 degrees.
/// - Where a vertex has a colour, only colours that differ by at most 1.0 in L*a*b* merge; less for edges longer than a
///   cell. A vertex without colour counts with the bytes it holds.
/// - No triangle comes to stand twice. An edge may get more than two triangles, where a thin tube or ridge closes up.
/// \param maxEdgeLength  in input units; 0 collapses only edges between coincident vertices; the sign doesn't count
/// \param maxAngleDeg    in degrees; 0 allows what keeps all normals; below 0 nothing is allowed. A limit that isn't a
///                       number limits nothing
/// \return the number of triangles that the collapses removed, without those that were degenerate at the end
/// \throws ZavBugException  for a null mesh
ZAV_API int reduce(MeshPtr pMesh, double maxEdgeLength, double maxAngleDeg);

} // namespace MIRT_ZAV
