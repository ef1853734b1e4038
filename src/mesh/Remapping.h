#pragma once

// The grouping step of CalculateSmoothNormalRemapping, given the corner
// normals: kept apart so that it can be checked and timed on its own.

#include "Normals.h"

#include <Rendering/Mesh.h>

namespace Zorvan::Rendering {

// Numbers one new vertex per distinct (source vertex, corner normal) and maps
// every corner to its new vertex: ascending by source vertex, then by normal
// x, y, z (float comparison, so -0 and +0 are one normal, taken from the
// first such corner); corners with a NaN component come after the others of
// their vertex, by corner number, one new vertex each. adjacency lists each
// vertex's corners in increasing order; cornerNormals has one entry per
// corner. Runs on oneTBB's workers; the result does not depend on them.
template <typename I, typename Index>
SmoothNormalRemapping<I> GroupCornerNormals(CornerAdjacency<Index> const& adjacency,
                                            span<Math::point<float, 3> const> cornerNormals);

} // namespace Zorvan::Rendering
