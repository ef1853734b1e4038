#pragma once

// Host-visible staging memory: GL buffers mapped once, persistently and
// coherently, that pixel transfers pack into and unpack from. A pool keeps
// released buffers for the next transfer, so a level read back every frame
// costs no allocation, no page faults and no mapping call.

#include "GlObject.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering::Gl::detail {

class StagingBuffer {
public:
    StagingBuffer() noexcept = default;
    StagingBuffer(StagingBuffer&& other) noexcept;
    StagingBuffer& operator=(StagingBuffer&& other) noexcept;
    StagingBuffer(StagingBuffer const&) = delete;
    StagingBuffer& operator=(StagingBuffer const&) = delete;
    ~StagingBuffer();

    // A new buffer of at least `bytes`; empty when GL cannot map one.
    static StagingBuffer Create(std::size_t bytes);

    explicit operator bool() const noexcept { return static_cast<bool>(name_); }
    GLuint Name() const noexcept { return name_.Get(); }
    std::size_t Capacity() const noexcept { return capacity_; }
    std::byte* Data() const noexcept { return data_; }

    // Marks the GL commands issued so far as users of the buffer.
    void Fence();
    // Waits until the GL commands that use the buffer are done, so the host
    // may read what they wrote or overwrite what they read.
    void WaitForGpu() noexcept;

private:
    void ReleaseFence() noexcept;

    GlBuffer name_;
    std::byte* data_ = nullptr;
    std::size_t capacity_ = 0;
    GLsync fence_ = nullptr;
};

class StagingPool {
public:
    // Idle buffers beyond this many bytes are freed, largest first.
    explicit StagingPool(std::size_t idleBudget) noexcept : idleBudget_(idleBudget) {}

    // A buffer of at least `bytes`: an idle one that is not wastefully large,
    // else a new one.
    StagingBuffer Acquire(std::size_t bytes);
    void Release(StagingBuffer buffer);
    void Clear() noexcept { idle_.clear(); }

    std::size_t IdleBytes() const noexcept;

private:
    std::size_t idleBudget_;
    std::vector<StagingBuffer> idle_;
};

} // namespace Zorvan::Rendering::Gl::detail
