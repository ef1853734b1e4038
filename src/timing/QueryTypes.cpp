// Which device queries are begun and ended, and which record one value.

#include <Rendering/Timing.h>

namespace Zorvan::Rendering {

bool IsRangeQuery(QueryType type)
{
    return type == QueryType::TimestampFrequency;
}

// Not a classification of its own: every value that is not a range query,
// also values this library never creates.
bool IsSampleQuery(QueryType type)
{
    return !IsRangeQuery(type);
}

} // namespace Zorvan::Rendering
