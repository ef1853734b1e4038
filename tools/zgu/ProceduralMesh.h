#pragma once

// The demo's mesh, made in code so the demo needs no data files: a (2, 3)
// torus knot tube (smooth everywhere) resting on a subdivided slab (flat faces
// meeting at sharp 90-degree edges), so a crease angle visibly matters.

#include "MeshPrep.h"

namespace Zorvan::Tool {

// Counter-clockwise outward-facing triangles; vertices are shared wherever
// triangles meet, across the slab's edges too (the crease angle must split
// them). Scene units: the knot spans about [-3.4, 3.4] in x and y, z is up.
MeshData MakeKnotOnSlab(unsigned knotSegments = 512, unsigned tubeSides = 48);

} // namespace Zorvan::Tool
