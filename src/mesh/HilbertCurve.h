#pragma once

// Position along a 3D Hilbert curve. Consecutive indices name face-adjacent
// cells, so any run of indices covers a connected, compact block of space
// (a Morton order jumps between distant blocks).
//
// The curve is J. Skilling's ("Programming the Hilbert curve", AIP
// Conference Proceedings 707, 2004). His transform walks the levels from the
// coarsest down; what it has done to the finer bits so far is always a
// permutation of the axes with some axes mirrored, plus one parity bit from
// the final Gray step. That is a small state machine, tabulated here at
// compile time, so an index costs one table step per level instead of a
// dozen data-dependent branches.

#include <array>
#include <cstdint>

namespace Zorvan::Rendering {

// Bits per axis: three axes fill 63 bits of the index.
inline constexpr unsigned HilbertBits = 21;
inline constexpr std::uint32_t HilbertCells = 1u << HilbertBits;

namespace hilbert {

// What the coarser levels did to the finer bits: transposed axis j reads
// source axis axis[j], mirrored when bit j of mirror is set; parity is the
// Gray step's running parity.
struct State {
    std::array<std::uint8_t, 3> axis{0, 1, 2};
    std::uint8_t mirror = 0;
    std::uint8_t parity = 0;

    constexpr bool operator==(State const&) const = default;
};

// Upper bound on the reachable states: 6 permutations x 8 mirrors x 2 parities.
inline constexpr std::size_t MaxStates = 96;

// entry = (next state << 3) | three index bits, for state s and the three
// source bits d = x << 2 | y << 1 | z of one level.
struct Table {
    std::array<std::uint16_t, MaxStates * 8> entry{};
    std::size_t states = 0;
};

constexpr Table MakeTable()
{
    std::array<State, MaxStates> states{};
    std::size_t count = 1; // state 0: nothing done yet
    Table table;
    for (std::size_t s = 0; s < count; ++s) {
        for (unsigned d = 0; d < 8; ++d) {
            State const from = states[s];
            unsigned c[3];
            for (unsigned j = 0; j < 3; ++j)
                c[j] = ((d >> (2 - from.axis[j])) & 1u) ^ ((from.mirror >> j) & 1u);
            // Skilling's step for this level: axis 0 is mirrored below this
            // level where axis i has its bit set, else swapped with axis i.
            State to = from;
            for (unsigned i = 0; i < 3; ++i) {
                if (c[i] != 0) {
                    to.mirror ^= 1u;
                } else {
                    unsigned const m0 = to.mirror & 1u, mi = (to.mirror >> i) & 1u;
                    std::uint8_t const a0 = to.axis[0];
                    to.axis[0] = to.axis[i];
                    to.axis[i] = a0;
                    to.mirror = static_cast<std::uint8_t>((to.mirror & ~((1u << i) | 1u)) | mi | (m0 << i));
                }
            }
            // Gray code within the level, then the parity of the coarser
            // levels' last bits flips all three.
            unsigned const g0 = c[0], g1 = c[1] ^ c[0], g2 = c[2] ^ c[1] ^ c[0];
            unsigned const bits = ((g0 << 2) | (g1 << 1) | g2) ^ (from.parity != 0 ? 7u : 0u);
            to.parity = static_cast<std::uint8_t>(from.parity ^ g2);

            std::size_t next = 0;
            while (next < count && !(states[next] == to))
                ++next;
            if (next == count)
                states[count++] = to;
            table.entry[s * 8 + d] = static_cast<std::uint16_t>((next << 3) | bits);
        }
    }
    table.states = count;
    return table;
}

inline constexpr Table Steps = MakeTable();
static_assert(Steps.states <= MaxStates);

// Two levels per step: entry = (next state << 6) | six index bits, for the
// six source bits of two levels (the coarser level's three on top).
constexpr std::array<std::uint16_t, MaxStates * 64> MakePairTable()
{
    std::array<std::uint16_t, MaxStates * 64> pairs{};
    for (std::size_t s = 0; s < Steps.states; ++s)
        for (unsigned d = 0; d < 64; ++d) {
            unsigned const first = Steps.entry[s * 8 + (d >> 3)];
            unsigned const second = Steps.entry[(first >> 3) * 8 + (d & 7u)];
            pairs[s * 64 + d] = static_cast<std::uint16_t>(((second >> 3) << 6) | ((first & 7u) << 3) | (second & 7u));
        }
    return pairs;
}

inline constexpr std::array<std::uint16_t, MaxStates * 64> PairSteps = MakePairTable();

// The 21 low bits of v moved to every third bit (bit k to bit 3k).
constexpr std::uint64_t Spread(std::uint32_t v) noexcept
{
    std::uint64_t x = v & 0x1FFFFFu;
    x = (x | x << 32) & 0x001F00000000FFFFull;
    x = (x | x << 16) & 0x001F0000FF0000FFull;
    x = (x | x << 8) & 0x100F00F00F00F00Full;
    x = (x | x << 4) & 0x10C30C30C30C30C3ull;
    x = (x | x << 2) & 0x1249249249249249ull;
    return x;
}

} // namespace hilbert

// x, y, z below HilbertCells; the result is below 2^63.
constexpr std::uint64_t HilbertIndex(std::uint32_t x, std::uint32_t y, std::uint32_t z) noexcept
{
    static_assert(HilbertBits % 2 == 1, "one single step, then pairs of levels");
    std::uint64_t const bits = hilbert::Spread(x) << 2 | hilbert::Spread(y) << 1 | hilbert::Spread(z);
    unsigned const top = hilbert::Steps.entry[(bits >> (3 * (HilbertBits - 1))) & 7u];
    std::uint64_t index = top & 7u;
    unsigned state = top >> 3;
    for (unsigned level = HilbertBits - 1; level > 0; level -= 2) {
        unsigned const entry = hilbert::PairSteps[state * 64 + ((bits >> (3 * (level - 2))) & 63u)];
        index = index << 6 | (entry & 63u);
        state = entry >> 6;
    }
    return index;
}

} // namespace Zorvan::Rendering
