// Public functions that change a mesh.
//
// Each call is a run with its own progress, whatever came before it, also a run that failed or was cancelled. Only where
// an operation calls another one, as edgeFlipsSimA does, the inner one shows as stages of the outer. A null mesh ends in
// ZavBugException.
#pragma once

#include "Mesh.h"
#include "zav_export.h"

namespace MIRT_ZAV
{

/// Turns edges in their quadrilaterals while that bends the surface less, the greatest gain first:
///
///      p-----b          p-----b
///      |   / |          | \   |
///      | /   |    ->    |   \ |
///      a-----q          a-----q
///
/// So edges come to lie along features, and along borders between colours: the swaps of data-dependent triangulation
/// (Dyn, Levin and Rippa 1990), on a mesh. Only edges of the start get their turn; a second call takes those that flips
/// made. At the end degenerate triangles are collapsed. Vertices stay in place, but coincident ones are moved apart.
ZAV_API void edgeFlips(MeshPtr pMesh);

/// edgeFlips takes no step back and gets stuck in local minima. Simulated annealing leads out of them: between two
/// calls of edgeFlips come 29 rounds at falling temperature, in which edges flip at a loss, too. Draws from rand():
/// repeats exactly after the same srand().
ZAV_API void edgeFlipsSimA(MeshPtr pMesh);

/// Moves every vertex that isn't on a border to the mean of its neighbours, all at once, nIter times; then collapses
/// degenerate triangles. Closed meshes shrink. An edge that a flip or collapse took out of the surface still pulls its
/// ends together. The normals that edgeFlips has cached don't follow the vertices: flip first, smooth then.
/// \param nIter  number of rounds; below 1 nothing moves
/// \throws ZavBugException  where vertices coincide, also with one that a collapse has left behind, or were moved by
///                          the caller; the mesh stays usable
ZAV_API void laplacianSmoothing(MeshPtr pMesh, int nIter);

/// Thins a mesh by half-edge collapses: one end of an edge moves onto the other, the triangles on the edge go. The
/// collapse that turns the surface least comes first, short edges before long ones, like colours before unlike ones;
/// it goes on as long as any is allowed. Degenerate triangles are collapsed at the end, outside of these limits:
/// - No edge longer than maxEdgeLength is collapsed.
/// - No triangle turns by more than maxAngleDeg in one collapse. Turns of several collapses add up.
/// - No vertex moves and none is new: positions and colours of the result are a subset of the mesh's.
/// - A vertex that is on a border at the start leaves only along the border, where that bends by less than 10 degrees.
/// - Where a vertex has a colour, only colours that differ by at most 1.0 (CIE76, in L*a*b*) merge; less for edges
///   longer than a cell. A vertex without colour counts with the bytes it holds.
/// - No triangle comes to stand twice. An edge may get more than two triangles, where a thin tube or ridge closes up.
/// \param maxEdgeLength  in input units; 0 collapses only edges between coincident vertices; the sign doesn't count
/// \param maxAngleDeg    in degrees; 0 allows what keeps all normals; below 0 nothing is allowed. A limit that isn't a
///                       number limits nothing
/// \return the number of triangles that the collapses removed, without those that were degenerate at the end
/// \throws ZavBugException  for a null mesh
ZAV_API int reduce(MeshPtr pMesh, double maxEdgeLength, double maxAngleDeg);

} // namespace MIRT_ZAV
