// Timestamp queries that never block. A frequency query is a pair of
// timestamps around its range; GL timestamps count nanoseconds, so its
// result is 1e9 once both are available.

#include "DeviceCore.h"

namespace Zorvan::Rendering::Gl {

using namespace detail;

namespace {

constexpr std::uint64_t NanosecondsPerSecond = 1'000'000'000;

bool Available(GlQuery const& query)
{
    GLint available = GL_FALSE;
    glGetQueryObjectiv(query.Get(), GL_QUERY_RESULT_AVAILABLE, &available);
    return available == GL_TRUE;
}

GlQuery NewTimestamp()
{
    GLuint name = 0;
    glCreateQueries(GL_TIMESTAMP, 1, &name);
    return GlQuery(name);
}

} // namespace

QueryId GlDevice::CreateQuery(QueryType type)
{
    auto& s = *state_;
    s.MakeCurrent();
    if (type != QueryType::Timestamp && type != QueryType::TimestampFrequency)
        return s.Error("CreateQuery: unknown query type " + std::to_string(static_cast<std::uint32_t>(type))),
               QueryId{};
    QueryRecord record;
    record.type = type;
    record.first = NewTimestamp();
    if (type == QueryType::TimestampFrequency)
        record.second = NewTimestamp();
    s.CheckGlErrors("CreateQuery");
    return QueryId{s.queries.Insert(std::move(record))};
}

void GlDevice::DestroyQuery(QueryId query) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    LookupResult result{};
    auto record = s.queries.Remove(query.Value(), result);
    if (!record)
        return s.ReportLookup(result, query.Value(), "DestroyQuery", "query");
    if (record->open)
        s.Error("DestroyQuery: query " + HandleText(query.Value()) + " destroyed between BeginQuery and EndQuery");
}

void GlDevice::BeginQuery(QueryId query)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.queries, query, "BeginQuery", "query");
    if (record == nullptr)
        return;
    if (record->type != QueryType::TimestampFrequency)
        return s.Error("BeginQuery: query " + HandleText(query.Value()) + " is a timestamp, not a range");
    if (record->open)
        return s.Error("BeginQuery: query " + HandleText(query.Value()) + " has already begun");
    glQueryCounter(record->first.Get(), GL_TIMESTAMP);
    record->issued = true;
    record->open = true;
    record->ended = false;
}

void GlDevice::EndQuery(QueryId query)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.queries, query, "EndQuery", "query");
    if (record == nullptr)
        return;
    if (record->type != QueryType::TimestampFrequency)
        return s.Error("EndQuery: query " + HandleText(query.Value()) + " is a timestamp, not a range");
    if (!record->open)
        return s.Error("EndQuery: query " + HandleText(query.Value()) + " has not begun");
    glQueryCounter(record->second.Get(), GL_TIMESTAMP);
    record->open = false;
    record->ended = true;
}

void GlDevice::RecordQuery(QueryId query)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.queries, query, "RecordQuery", "query");
    if (record == nullptr)
        return;
    if (record->type != QueryType::Timestamp)
        return s.Error("RecordQuery: query " + HandleText(query.Value()) + " is a range, not a timestamp");
    glQueryCounter(record->first.Get(), GL_TIMESTAMP);
    record->issued = true;
}

std::uint64_t GlDevice::GetQueryResult(QueryId query)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.queries, query, "GetQueryResult", "query");
    if (record == nullptr)
        return 0;
    if (record->type == QueryType::TimestampFrequency)
        return record->ended && Available(record->first) && Available(record->second) ? NanosecondsPerSecond : 0;
    if (!record->issued || !Available(record->first))
        return 0;
    GLuint64 ticks = 0;
    glGetQueryObjectui64v(record->first.Get(), GL_QUERY_RESULT, &ticks);
    return ticks;
}

} // namespace Zorvan::Rendering::Gl
