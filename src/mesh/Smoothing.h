#pragma once

// The two halves of crease-aware corner smoothing that the corner loops
// share: the inputs (face normals, vertex -> corner adjacency, threshold) and
// a kernel that smooths all corners of one vertex at once.

#include "Normals.h"

#include <oneapi/tbb/task_group.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {

template <typename Index>
struct SmoothingInputs {
    std::vector<TriangleNormal> faces;
    CornerAdjacency<Index> adjacency;
    double limit = 0; // a face contributes when its dot product exceeds this
};

// Face normals (a parallel loop) and the adjacency (sequential) as two tasks
// of one task group; the calling thread computes the threshold, cos(angle)
// rounded to float, and then runs alsoMeanwhile before waiting.
template <typename Index, typename T, typename I, typename F>
SmoothingInputs<Index> PrepareSmoothing(span<Math::point<T, 3> const> positions,
                                        span<std::array<I, 3> const> triangles, double angle, F&& alsoMeanwhile)
{
    SmoothingInputs<Index> inputs;
    tbb::task_group group;
    group.run([&] { inputs.faces = CalculateTriangleNormals(positions, triangles); });
    group.run([&] { inputs.adjacency = BuildCornerAdjacency<Index>(positions.size(), triangles); });
    inputs.limit = static_cast<float>(std::cos(angle));
    alsoMeanwhile();
    group.wait();
    return inputs;
}

// Smooths the corners of one vertex, corners[0 .. n) from its adjacency list,
// writing out[i] for corners[i]: the same sums, in the same order, as the
// corner-by-corner loop, so the same bits. Working per vertex, each face is
// fetched once rather than once per corner, each dot product serves both
// faces (n · m and m · n are the same double), and corners that every face
// passes for, the whole vertex on smooth surfaces, share one sum.
class VertexSmoother {
public:
    template <typename Index>
    void Smooth(TriangleNormal const* faces, Index const* corners, std::size_t n, double limit,
                Math::point<float, 3>* out)
    {
        if (n > MaskBits) {
            SmoothLargeFan(faces, corners, n, limit, out);
            return;
        }
        Load(faces, corners, n);
        std::uint64_t passes[MaskBits];
        for (std::size_t i = 0; i < n; ++i)
            passes[i] = 0;
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t j = i; j < n; ++j)
                if (Dot(i, j) > limit) {
                    passes[i] |= std::uint64_t{1} << j;
                    passes[j] |= std::uint64_t{1} << i;
                }

        std::uint64_t const everyFace = n == MaskBits ? ~std::uint64_t{0} : (std::uint64_t{1} << n) - 1;
        bool haveShared = false;
        Math::point<float, 3> shared{};
        for (std::size_t i = 0; i < n; ++i) {
            if (passes[i] == everyFace) {
                if (!haveShared) {
                    shared = SumOf(everyFace);
                    haveShared = true;
                }
                out[i] = shared;
            } else {
                out[i] = SumOf(passes[i]);
            }
        }
    }

private:
    static constexpr std::size_t MaskBits = 64;

    // Face j's normal widened for the dot products, and its normal times its
    // magnitude, the term a passing face adds.
    template <typename Index>
    void Load(TriangleNormal const* faces, Index const* corners, std::size_t n)
    {
        if (normal_.size() < n) {
            normal_.resize(n);
            weighted_.resize(n);
        }
        for (std::size_t j = 0; j < n; ++j) {
            TriangleNormal const& face = faces[corners[j] / 3];
            normal_[j] = {{face.normal[0], face.normal[1], face.normal[2]}};
            weighted_[j] = {{face.normal[0] * face.magnitude, face.normal[1] * face.magnitude,
                             face.normal[2] * face.magnitude}};
        }
    }

    double Dot(std::size_t i, std::size_t j) const noexcept
    {
        return normal_[i][0] * normal_[j][0] + normal_[i][1] * normal_[j][1] + normal_[i][2] * normal_[j][2];
    }

    // The passing faces' terms summed in list order, divided by the length.
    // No guard: a corner nothing passed for divides 0 by 0.
    Math::point<float, 3> SumOf(std::uint64_t faces) const noexcept
    {
        float sx = 0.0f, sy = 0.0f, sz = 0.0f;
        for (; faces != 0; faces &= faces - 1) {
            Math::point<float, 3> const& term = weighted_[static_cast<std::size_t>(std::countr_zero(faces))];
            sx += term[0];
            sy += term[1];
            sz += term[2];
        }
        return Normalized(sx, sy, sz);
    }

    static Math::point<float, 3> Normalized(float sx, float sy, float sz) noexcept
    {
        double const length = VectorLength(sx, sy, sz);
        return {{static_cast<float>(sx / length), static_cast<float>(sy / length), static_cast<float>(sz / length)}};
    }

    // More faces than a mask holds (rare): corner by corner, as described.
    template <typename Index>
    void SmoothLargeFan(TriangleNormal const* faces, Index const* corners, std::size_t n, double limit,
                        Math::point<float, 3>* out)
    {
        Load(faces, corners, n);
        for (std::size_t i = 0; i < n; ++i) {
            float sx = 0.0f, sy = 0.0f, sz = 0.0f;
            for (std::size_t j = 0; j < n; ++j)
                if (Dot(i, j) > limit) {
                    sx += weighted_[j][0];
                    sy += weighted_[j][1];
                    sz += weighted_[j][2];
                }
            out[i] = Normalized(sx, sy, sz);
        }
    }

    std::vector<Math::point<double, 3>> normal_;
    std::vector<Math::point<float, 3>> weighted_;
};

} // namespace Zorvan::Rendering
