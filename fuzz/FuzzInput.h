#pragma once

// Draws typed values from a fuzzer's byte string; reads past the end give 0
// so that every input decodes to some case.

#include <cstddef>
#include <cstdint>
#include <cstring>

class FuzzInput {
public:
    FuzzInput(std::uint8_t const* data, std::size_t size) : data_(data), size_(size) {}

    template <typename T>
    T Take()
    {
        T value{};
        std::size_t const n = sizeof(T) < Remaining() ? sizeof(T) : Remaining();
        if (n > 0)
            std::memcpy(&value, data_ + offset_, n);
        offset_ += n;
        return value;
    }

    // A value in [lo, hi].
    std::int64_t Range(std::int64_t lo, std::int64_t hi)
    {
        auto const span = static_cast<std::uint64_t>(hi - lo) + 1;
        return lo + static_cast<std::int64_t>(Take<std::uint32_t>() % span);
    }

    std::size_t Remaining() const { return size_ - offset_; }

private:
    std::uint8_t const* data_;
    std::size_t size_;
    std::size_t offset_ = 0;
};
