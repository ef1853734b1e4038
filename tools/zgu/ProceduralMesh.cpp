#include "ProceduralMesh.h"

#include <cmath>
#include <numbers>
#include <unordered_map>

namespace Zorvan::Tool {
namespace {

using Vec = Math::point<double, 3>;

Vec Cross(Vec const& a, Vec const& b)
{
    return {{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}};
}

Vec Normalized(Vec v)
{
    double const length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    return v / length;
}

Vec KnotCurve(double t)
{
    constexpr double p = 2.0;
    constexpr double q = 3.0;
    double const ring = 2.2 + std::cos(q * t);
    return {{ring * std::cos(p * t), ring * std::sin(p * t), 0.9 * std::sin(q * t)}};
}

void AddKnot(MeshData& mesh, unsigned segments, unsigned sides)
{
    constexpr double tube = 0.45;
    auto const base = static_cast<std::uint32_t>(mesh.positions.size());
    double const dt = 2.0 * std::numbers::pi / segments;
    for (unsigned i = 0; i < segments; ++i) {
        double const t = i * dt;
        Vec const centre = KnotCurve(t);
        Vec const tangent = Normalized(KnotCurve(t + 0.5 * dt) - KnotCurve(t - 0.5 * dt));
        // The knot's tangent never points along z (its xy speed is at least
        // p), so z gives a frame without a singularity.
        Vec const normal = Normalized(Cross(tangent, Vec{{0.0, 0.0, 1.0}}));
        Vec const binormal = Cross(tangent, normal);
        for (unsigned j = 0; j < sides; ++j) {
            double const a = 2.0 * std::numbers::pi * j / sides;
            Vec const radial = normal * std::cos(a);
            Vec p = binormal * std::sin(a);
            p += radial;
            p = p * tube;
            p += centre;
            mesh.positions.push_back({{float(p[0]), float(p[1]), float(p[2])}});
        }
    }
    auto vertex = [&](unsigned i, unsigned j) { return base + (i % segments) * sides + (j % sides); };
    // tangent x around-direction points inwards, so quads wind the other way.
    for (unsigned i = 0; i < segments; ++i)
        for (unsigned j = 0; j < sides; ++j) {
            mesh.triangles.push_back({vertex(i, j), vertex(i, j + 1), vertex(i + 1, j + 1)});
            mesh.triangles.push_back({vertex(i, j), vertex(i + 1, j + 1), vertex(i + 1, j)});
        }
}

// The slab's surface on an integer lattice, so faces share their edge rows.
void AddSlab(MeshData& mesh, Vec const& minimum, Vec const& maximum, std::array<unsigned, 3> cells)
{
    std::unordered_map<std::uint64_t, std::uint32_t> lattice;
    auto vertex = [&](std::array<unsigned, 3> c) {
        std::uint64_t const key = (std::uint64_t(c[0]) * (cells[1] + 1) + c[1]) * (cells[2] + 1) + c[2];
        auto [it, inserted] = lattice.try_emplace(key, static_cast<std::uint32_t>(mesh.positions.size()));
        if (inserted) {
            Math::point<float, 3> p{};
            for (int k = 0; k < 3; ++k)
                p[k] = float(minimum[k] + (maximum[k] - minimum[k]) * c[k] / cells[k]);
            mesh.positions.push_back(p);
        }
        return it->second;
    };
    // Each face: the fixed axis and side, then axes u and v with u x v outward.
    struct Face {
        int fixed;
        bool high;
        int u;
        int v;
    };
    constexpr Face faces[] = {{2, true, 0, 1}, {2, false, 1, 0}, {0, true, 1, 2},
                              {0, false, 2, 1}, {1, true, 2, 0}, {1, false, 0, 2}};
    for (Face const& face : faces)
        for (unsigned a = 0; a < cells[face.u]; ++a)
            for (unsigned b = 0; b < cells[face.v]; ++b) {
                auto corner = [&](unsigned da, unsigned db) {
                    std::array<unsigned, 3> c{};
                    c[face.fixed] = face.high ? cells[face.fixed] : 0;
                    c[face.u] = a + da;
                    c[face.v] = b + db;
                    return vertex(c);
                };
                mesh.triangles.push_back({corner(0, 0), corner(1, 0), corner(1, 1)});
                mesh.triangles.push_back({corner(0, 0), corner(1, 1), corner(0, 1)});
            }
}

} // namespace

MeshData MakeKnotOnSlab(unsigned knotSegments, unsigned tubeSides)
{
    MeshData mesh;
    AddKnot(mesh, knotSegments, tubeSides);
    AddSlab(mesh, Vec{{-4.0, -4.0, -1.95}}, Vec{{4.0, 4.0, -1.35}}, {32, 32, 3});
    return mesh;
}

} // namespace Zorvan::Tool
