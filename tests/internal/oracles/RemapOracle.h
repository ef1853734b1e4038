#pragma once

// The grouping of CalculateSmoothNormalRemapping written as plainly as it is
// described: one record per corner, built in corner order, sorted by (source
// vertex, normal x, y, z), then walked, a record joining the current group
// when its vertex and each normal component equal (float ==) the group's
// first. One rule is added so that the order is total: NaN records (any
// component NaN) come after the others of their vertex, in corner order. The
// sort is stable, so equal keys keep corner order, and the first corner of a
// group decides the bits of its normal (-0 or +0). Header-only, for the tests
// and the fuzz target.

#include <Rendering/Mesh.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace Oracles {

template <typename I>
Zorvan::Rendering::SmoothNormalRemapping<I> GroupCornerNormals(
    std::vector<std::array<I, 3>> const& triangles, std::vector<Zorvan::Math::point<float, 3>> const& cornerNormals)
{
    using Normal = Zorvan::Math::point<float, 3>;
    struct Record {
        I vertex;
        Normal normal;
        std::uint64_t corner;
    };
    std::vector<Record> records;
    records.reserve(3 * triangles.size());
    for (std::size_t t = 0; t < triangles.size(); ++t)
        for (std::size_t k = 0; k < 3; ++k)
            records.push_back({triangles[t][k], cornerNormals[3 * t + k], 3 * t + k});

    Zorvan::Rendering::SmoothNormalRemapping<I> result;
    result.remapping.assign(records.size(), 0);
    if (records.empty())
        return result;

    auto isNan = [](Normal const& n) { return std::isnan(n[0]) || std::isnan(n[1]) || std::isnan(n[2]); };
    std::stable_sort(records.begin(), records.end(), [&](Record const& a, Record const& b) {
        if (a.vertex != b.vertex)
            return a.vertex < b.vertex;
        if (isNan(a.normal) || isNan(b.normal))
            return !isNan(a.normal) && isNan(b.normal);
        if (a.normal[0] != b.normal[0])
            return a.normal[0] < b.normal[0];
        if (a.normal[1] != b.normal[1])
            return a.normal[1] < b.normal[1];
        return a.normal[2] < b.normal[2];
    });

    I counter = 0;
    Record key = records.front();
    result.vertices.push_back(key.vertex);
    result.normals.push_back(key.normal);
    result.remapping[key.corner] = 0;
    for (std::size_t r = 1; r < records.size(); ++r) {
        Record const& record = records[r];
        bool const joins = record.vertex == key.vertex && record.normal[0] == key.normal[0] &&
                           record.normal[1] == key.normal[1] && record.normal[2] == key.normal[2];
        if (!joins) {
            ++counter;
            key = record;
            result.vertices.push_back(record.vertex);
            result.normals.push_back(record.normal);
        }
        result.remapping[record.corner] = counter;
    }
    return result;
}

} // namespace Oracles
