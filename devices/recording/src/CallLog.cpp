// Call log and fault injection of RecordingGpu.

#include "DeviceState.h"

#include <algorithm>

namespace Zorvan::Rendering::Testing {

namespace {

// Destroy and unmap operations are noexcept: a throw fault cannot land there.
bool IsNoexcept(Op op) noexcept
{
    switch (op) {
    case Op::DestroyBuffer:
    case Op::UnmapBuffer:
    case Op::DestroySampler:
    case Op::DestroyRenderTargetView:
    case Op::DestroyShaderResourceView:
    case Op::DestroyImage:
    case Op::UnmapImage:
    case Op::DestroyShader:
    case Op::DestroyQuery:
    case Op::DestroyPipelineState: return true;
    default: return false;
    }
}

bool Applies(FaultKind kind, Op op) noexcept
{
    switch (kind) {
    case FaultKind::Throw: return !IsNoexcept(op);
    case FaultKind::InvalidHandle: return Recording::IsCreate(op);
    case FaultKind::NullMap: return op == Op::MapBuffer || op == Op::MapImage;
    }
    return false;
}

} // namespace

namespace Recording {

bool IsCreate(Op op) noexcept
{
    switch (op) {
    case Op::CreateBuffer:
    case Op::CreateImage:
    case Op::CreateShaderResourceView:
    case Op::CreateRenderTargetView:
    case Op::CreateSampler:
    case Op::CreateShader:
    case Op::CreatePipelineState:
    case Op::CreateQuery: return true;
    default: return false;
    }
}

std::optional<FaultKind> DeviceState::Enter(Call call)
{
    Op const op = call.op;
    std::uint64_t const index = callCount++;
    std::uint64_t const opIndex = opCalls[static_cast<std::size_t>(op)]++;
    log.push_back(std::move(call));

    std::optional<FaultKind> hit;
    for (auto it = faults.begin(); it != faults.end();) {
        bool const match = it->callIndex ? *it->callIndex == index : (it->op == op && it->opCallIndex == opIndex);
        if (!match) {
            ++it;
            continue;
        }
        // Consumed whether or not it applies to this operation.
        if (!hit && Applies(it->kind, op))
            hit = it->kind;
        it = faults.erase(it);
    }
    if (!hit)
        return std::nullopt;
    Current().faulted = true;
    ++faultsHit;
    if (*hit == FaultKind::Throw)
        throw InjectedFault("injected fault at call " + std::to_string(index) + " (" + ToString(op) + ")");
    return hit;
}

} // namespace Recording

std::vector<Call> const& RecordingGpu::Log() const noexcept { return state_->log; }
void RecordingGpu::ClearLog() noexcept { state_->log.clear(); }
std::uint64_t RecordingGpu::CallCount() const noexcept { return state_->callCount; }

std::size_t RecordingGpu::Count(Op op) const noexcept
{
    return static_cast<std::size_t>(
        std::count_if(state_->log.begin(), state_->log.end(), [op](Call const& c) { return c.op == op; }));
}

std::vector<Call const*> RecordingGpu::Calls(Op op) const
{
    std::vector<Call const*> calls;
    for (auto const& call : state_->log)
        if (call.op == op)
            calls.push_back(&call);
    return calls;
}

std::vector<Op> RecordingGpu::Ops() const
{
    std::vector<Op> ops;
    ops.reserve(state_->log.size());
    for (auto const& call : state_->log)
        ops.push_back(call.op);
    return ops;
}

std::vector<Op> RecordingGpu::Ops(std::initializer_list<Op> filter) const
{
    std::vector<Op> ops;
    for (auto const& call : state_->log)
        if (std::find(filter.begin(), filter.end(), call.op) != filter.end())
            ops.push_back(call.op);
    return ops;
}

void RecordingGpu::InjectFaultAtCall(std::uint64_t callIndex, FaultKind kind)
{
    state_->faults.push_back({callIndex, Op{}, 0, kind});
}

void RecordingGpu::InjectFault(Op op, std::uint64_t nth, FaultKind kind)
{
    state_->faults.push_back({std::nullopt, op, state_->opCalls[static_cast<std::size_t>(op)] + nth, kind});
}

void RecordingGpu::ClearFaults() noexcept { state_->faults.clear(); }
std::size_t RecordingGpu::FaultsHit() const noexcept { return state_->faultsHit; }

} // namespace Zorvan::Rendering::Testing
