// Timestamp and frequency queries of RecordingGpu, with scripted results.

#include "DeviceState.h"

namespace Zorvan::Rendering::Testing {

using Recording::HandleText;
using Recording::QueryResource;

namespace {

char const* TypeName(QueryType type)
{
    return type == QueryType::TimestampFrequency ? "TimestampFrequency" : "Timestamp";
}

} // namespace

std::uint64_t Recording::DeviceState::NextTimestamp()
{
    if (!timestamps.empty()) {
        std::uint64_t const next = timestamps.front();
        timestamps.pop_front();
        return next;
    }
    clock += timestampStep;
    return clock;
}

QueryId RecordingGpu::CreateQuery(QueryType type)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateQuery, .value = static_cast<std::uint32_t>(type)}) == FaultKind::InvalidHandle)
        return QueryId{};
    if (type != QueryType::Timestamp && type != QueryType::TimestampFrequency) {
        s.Error(Op::CreateQuery, "unknown query type " + std::to_string(static_cast<std::uint32_t>(type)));
        return QueryId{};
    }
    return s.Created<QueryId>(QueryResource{.type = type});
}

void RecordingGpu::DestroyQuery(QueryId query) noexcept
{
    auto& s = *state_;
    auto const* q = s.EnterOn<QueryResource>(Op::DestroyQuery, query.Value());
    if (q == nullptr)
        return;
    if (q->open)
        s.Error(Op::DestroyQuery, HandleText(ResourceKind::Query, query.Value()) + ": destroyed while begun");
    s.Remove(query.Value());
}

void RecordingGpu::BeginQuery(QueryId query)
{
    auto& s = *state_;
    auto* q = s.EnterOn<QueryResource>(Op::BeginQuery, query.Value());
    if (q == nullptr)
        return;
    std::string const who = HandleText(ResourceKind::Query, query.Value());
    if (q->type != QueryType::TimestampFrequency)
        s.Error(Op::BeginQuery, who + ": a " + TypeName(q->type) + " query cannot be begun");
    else if (q->open)
        s.Error(Op::BeginQuery, who + ": begun twice without EndQuery");
    else
        q->open = true;
}

void RecordingGpu::EndQuery(QueryId query)
{
    auto& s = *state_;
    auto* q = s.EnterOn<QueryResource>(Op::EndQuery, query.Value());
    if (q == nullptr)
        return;
    std::string const who = HandleText(ResourceKind::Query, query.Value());
    if (q->type != QueryType::TimestampFrequency) {
        s.Error(Op::EndQuery, who + ": a " + TypeName(q->type) + " query cannot be ended");
    } else if (!q->open) {
        s.Error(Op::EndQuery, who + ": ended without BeginQuery");
    } else {
        q->open = false;
        q->endedOnce = true;
    }
}

void RecordingGpu::RecordQuery(QueryId query)
{
    auto& s = *state_;
    auto* q = s.EnterOn<QueryResource>(Op::RecordQuery, query.Value());
    if (q == nullptr)
        return;
    if (q->type != QueryType::Timestamp) {
        s.Error(Op::RecordQuery, HandleText(ResourceKind::Query, query.Value()) + ": a " + TypeName(q->type) +
                                     " query cannot be recorded");
        return;
    }
    q->timestamp = s.NextTimestamp();
}

std::uint64_t RecordingGpu::GetQueryResult(QueryId query)
{
    auto& s = *state_;
    auto const* q = s.EnterOn<QueryResource>(Op::GetQueryResult, query.Value());
    std::uint64_t result = 0;
    if (q != nullptr) {
        if (q->fixed)
            result = *q->fixed;
        else if (q->type == QueryType::TimestampFrequency)
            result = q->endedOnce ? s.frequency : 0;
        else
            result = q->timestamp;
    }
    s.Current().result = result;
    return result;
}

void RecordingGpu::SetTimestampFrequency(std::uint64_t ticksPerSecond) noexcept { state_->frequency = ticksPerSecond; }

void RecordingGpu::QueueTimestamps(std::initializer_list<std::uint64_t> ticks)
{
    state_->timestamps.insert(state_->timestamps.end(), ticks.begin(), ticks.end());
}

void RecordingGpu::SetTimestampStep(std::uint64_t step) noexcept { state_->timestampStep = step; }

void RecordingGpu::SetQueryResult(QueryId query, std::uint64_t value)
{
    state_->Expect<QueryResource>(query.Value(), "SetQueryResult").fixed = value;
}

QueryType RecordingGpu::TypeOf(QueryId query) const
{
    return state_->Expect<QueryResource>(query.Value(), "TypeOf").type;
}

} // namespace Zorvan::Rendering::Testing
