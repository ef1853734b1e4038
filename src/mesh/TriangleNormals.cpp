// Unit face normals and their magnitudes, one triangle per loop iteration.

#include "Normals.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>

#include <cstddef>

namespace Zorvan::Rendering {

template <typename T, typename I>
std::vector<TriangleNormal> CalculateTriangleNormals(span<Math::point<T, 3> const> positions,
                                                     span<std::array<I, 3> const> triangles)
{
    std::vector<TriangleNormal> normals(triangles.size());
    if (triangles.empty())
        return normals;

    tbb::parallel_for(
        tbb::blocked_range<std::size_t>(0, triangles.size(), 1),
        [&](tbb::blocked_range<std::size_t> const& range) {
            for (std::size_t t = range.begin(); t != range.end(); ++t) {
                std::array<I, 3> const& triangle = triangles[t];
                Math::point<T, 3> const& p0 = positions[triangle[0]];
                Math::point<T, 3> const e1 = positions[triangle[1]] - p0;
                Math::point<T, 3> const e2 = positions[triangle[2]] - p0;
                // Edges and cross product stay in the position precision.
                T const cx = e1[1] * e2[2] - e1[2] * e2[1];
                T const cy = e1[2] * e2[0] - e1[0] * e2[2];
                T const cz = e1[0] * e2[1] - e1[1] * e2[0];
                float const magnitude = static_cast<float>(VectorLength(cx, cy, cz));
                TriangleNormal& out = normals[t];
                out.magnitude = magnitude;
                if (magnitude > 0.0f) {
                    T const divisor = static_cast<T>(magnitude);
                    out.normal = {{static_cast<float>(cx / divisor), static_cast<float>(cy / divisor),
                                   static_cast<float>(cz / divisor)}};
                } else {
                    out.normal = {{static_cast<float>(cx), static_cast<float>(cy), static_cast<float>(cz)}};
                }
            }
        },
        tbb::auto_partitioner());
    return normals;
}

template std::vector<TriangleNormal> CalculateTriangleNormals(span<Math::point<float, 3> const>,
                                                              span<std::array<std::uint32_t, 3> const>);
template std::vector<TriangleNormal> CalculateTriangleNormals(span<Math::point<double, 3> const>,
                                                              span<std::array<std::uint32_t, 3> const>);
template std::vector<TriangleNormal> CalculateTriangleNormals(span<Math::point<float, 3> const>,
                                                              span<std::array<std::uint64_t, 3> const>);
template std::vector<TriangleNormal> CalculateTriangleNormals(span<Math::point<double, 3> const>,
                                                              span<std::array<std::uint64_t, 3> const>);

} // namespace Zorvan::Rendering
