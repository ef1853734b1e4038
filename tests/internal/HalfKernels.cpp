#include "foundation/HalfTables.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering::detail {
namespace {

// The array half2float picks one kernel at run time; each must give the
// table's bits for every half, whichever this processor would pick.
void ExpectTableBits(std::size_t (*kernel)(unsigned short const*, float*, std::size_t))
{
    std::vector<unsigned short> halves(0x10000 + 5);
    for (std::size_t i = 0; i < halves.size(); ++i)
        halves[i] = static_cast<unsigned short>(i);
    std::vector<float> floats(halves.size(), 7.0f);
    // Whole groups only: the last five are left for the caller.
    ASSERT_EQ(kernel(halves.data(), floats.data(), halves.size()), 0x10000u);
    HalfToFloatTables const& tables = HalfToFloatTablesInstance();
    for (std::uint32_t h = 0; h < 0x10000; ++h)
        ASSERT_EQ(std::bit_cast<std::uint32_t>(floats[h]),
                  std::bit_cast<std::uint32_t>(HalfToFloat(tables, static_cast<std::uint16_t>(h))))
            << std::hex << h;
    EXPECT_EQ(floats[0x10000], 7.0f);
}

TEST(HalfKernels, BaselineGivesTheTableBitsForEveryHalf)
{
    ExpectTableBits(&HalfToFloatGroupsBaseline);
}

#if defined(__x86_64__) || defined(__i386__)
TEST(HalfKernels, Avx2GivesTheTableBitsForEveryHalf)
{
    if (!__builtin_cpu_supports("avx2"))
        GTEST_SKIP() << "no AVX2 on this processor";
    ExpectTableBits(&HalfToFloatGroupsAvx2);
}
#endif

} // namespace
} // namespace Zorvan::Rendering::detail
