#pragma once

// Meshes shared by the normal and remapping tests.

#include <Rendering/Core.h>

#include <array>
#include <bit>
#include <cstdint>
#include <random>
#include <vector>

namespace MeshFixtures {

using Zorvan::Math::point;

template <typename T, typename I>
struct Mesh {
    std::vector<point<T, 3>> positions;
    std::vector<std::array<I, 3>> triangles;
};

// A unit cube around the origin: eight shared vertices, two triangles per
// face, all wound outwards.
template <typename T = float, typename I = std::uint32_t>
Mesh<T, I> Cube()
{
    Mesh<T, I> m;
    for (int i = 0; i < 8; ++i)
        m.positions.push_back({{T(i & 1 ? 0.5 : -0.5), T(i & 2 ? 0.5 : -0.5), T(i & 4 ? 0.5 : -0.5)}});
    // Quads as corner bits, counter-clockwise seen from outside.
    int const quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (auto const& q : quads) {
        m.triangles.push_back({I(q[0]), I(q[1]), I(q[2])});
        m.triangles.push_back({I(q[0]), I(q[2]), I(q[3])});
    }
    return m;
}

// A bumpy height field of side x side vertices with triangles in shuffled
// order, plus a few degenerate triangles (repeated or collinear corners) and
// a few unused vertices at the end.
template <typename T, typename I>
Mesh<T, I> BumpyGrid(std::mt19937& rng, unsigned side, bool withDegenerates)
{
    std::uniform_real_distribution<double> bump(-0.6, 0.6);
    Mesh<T, I> m;
    for (unsigned y = 0; y < side; ++y)
        for (unsigned x = 0; x < side; ++x)
            m.positions.push_back({{T(x), T(y), T(bump(rng))}});
    auto at = [side](unsigned x, unsigned y) { return I(y * side + x); };
    for (unsigned y = 0; y + 1 < side; ++y)
        for (unsigned x = 0; x + 1 < side; ++x) {
            m.triangles.push_back({at(x, y), at(x + 1, y), at(x, y + 1)});
            m.triangles.push_back({at(x + 1, y), at(x + 1, y + 1), at(x, y + 1)});
        }
    if (withDegenerates) {
        std::uniform_int_distribution<unsigned> pick(0, side * side - 1);
        for (int i = 0; i < 40; ++i) {
            I a = I(pick(rng)), b = I(pick(rng));
            m.triangles.push_back({a, a, b});
        }
        m.positions.push_back({{T(0), T(0), T(7)}});
        m.positions.push_back({{T(1), T(1), T(7)}});
        m.positions.push_back({{T(2), T(2), T(7)}});
        I const n = I(m.positions.size());
        m.triangles.push_back({I(n - 3), I(n - 2), I(n - 1)}); // collinear
    }
    m.positions.push_back({{T(9), T(9), T(9)}}); // unused
    std::shuffle(m.triangles.begin(), m.triangles.end(), rng);
    return m;
}

inline bool SameBits(point<float, 3> const& a, point<float, 3> const& b)
{
    for (int i = 0; i < 3; ++i)
        if (std::bit_cast<std::uint32_t>(a[i]) != std::bit_cast<std::uint32_t>(b[i]))
            return false;
    return true;
}

} // namespace MeshFixtures
