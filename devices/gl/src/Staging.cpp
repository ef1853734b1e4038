#include "Staging.h"

#include <algorithm>
#include <utility>

namespace Zorvan::Rendering::Gl::detail {

namespace {

// Capacities come in steps of an eighth of a power of two (at least 64 KiB),
// so levels of similar sizes share buffers and no buffer wastes more than
// an eighth of itself.
std::size_t RoundCapacity(std::size_t bytes) noexcept
{
    constexpr std::size_t Smallest = std::size_t{64} << 10;
    if (bytes <= Smallest)
        return Smallest;
    std::size_t power = Smallest;
    while (power * 2 < bytes)
        power *= 2;
    std::size_t const step = power / 8;
    return (bytes + step - 1) / step * step;
}

} // namespace

StagingBuffer::StagingBuffer(StagingBuffer&& other) noexcept
    : name_(std::move(other.name_)), data_(std::exchange(other.data_, nullptr)),
      capacity_(std::exchange(other.capacity_, 0)), fence_(std::exchange(other.fence_, nullptr))
{
}

StagingBuffer& StagingBuffer::operator=(StagingBuffer&& other) noexcept
{
    if (this != &other) {
        ReleaseFence();
        name_ = std::move(other.name_);
        data_ = std::exchange(other.data_, nullptr);
        capacity_ = std::exchange(other.capacity_, 0);
        fence_ = std::exchange(other.fence_, nullptr);
    }
    return *this;
}

StagingBuffer::~StagingBuffer() { ReleaseFence(); }

StagingBuffer StagingBuffer::Create(std::size_t bytes)
{
    StagingBuffer buffer;
    std::size_t const capacity = RoundCapacity(bytes);
    GLuint name = 0;
    glCreateBuffers(1, &name);
    buffer.name_ = GlBuffer(name);
    // Client storage: the memory the host reads and writes (system memory on
    // discrete GPUs, which their copy engines reach directly).
    GLbitfield const access = GL_MAP_READ_BIT | GL_MAP_WRITE_BIT | GL_MAP_PERSISTENT_BIT | GL_MAP_COHERENT_BIT;
    glNamedBufferStorage(name, static_cast<GLsizeiptr>(capacity), nullptr, access | GL_CLIENT_STORAGE_BIT);
    buffer.data_ = static_cast<std::byte*>(glMapNamedBufferRange(name, 0, static_cast<GLsizeiptr>(capacity), access));
    if (buffer.data_ == nullptr)
        return {};
    buffer.capacity_ = capacity;
    return buffer;
}

void StagingBuffer::Fence()
{
    ReleaseFence();
    fence_ = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
}

void StagingBuffer::WaitForGpu() noexcept
{
    if (fence_ == nullptr)
        return;
    constexpr GLuint64 Second = 1'000'000'000;
    GLbitfield flags = GL_SYNC_FLUSH_COMMANDS_BIT;
    for (;;) {
        GLenum const status = glClientWaitSync(fence_, flags, Second);
        if (status != GL_TIMEOUT_EXPIRED)
            break; // signalled, or the context is lost: waiting longer will not help
        flags = 0;
    }
    ReleaseFence();
}

void StagingBuffer::ReleaseFence() noexcept
{
    if (fence_ != nullptr)
        glDeleteSync(fence_);
    fence_ = nullptr;
}

StagingBuffer StagingPool::Acquire(std::size_t bytes)
{
    auto best = idle_.end();
    for (auto it = idle_.begin(); it != idle_.end(); ++it)
        if (it->Capacity() >= bytes && (best == idle_.end() || it->Capacity() < best->Capacity()))
            best = it;
    // A buffer far larger than needed stays for a transfer of its size.
    if (best != idle_.end() && best->Capacity() / 2 <= std::max(bytes, RoundCapacity(bytes))) {
        StagingBuffer buffer = std::move(*best);
        idle_.erase(best);
        return buffer;
    }
    return StagingBuffer::Create(bytes);
}

void StagingPool::Release(StagingBuffer buffer)
{
    if (!buffer)
        return;
    idle_.push_back(std::move(buffer));
    while (IdleBytes() > idleBudget_) {
        auto largest = std::max_element(idle_.begin(), idle_.end(), [](StagingBuffer const& a, StagingBuffer const& b) {
            return a.Capacity() < b.Capacity();
        });
        idle_.erase(largest);
    }
}

std::size_t StagingPool::IdleBytes() const noexcept
{
    std::size_t bytes = 0;
    for (auto const& buffer : idle_)
        bytes += buffer.Capacity();
    return bytes;
}

} // namespace Zorvan::Rendering::Gl::detail
