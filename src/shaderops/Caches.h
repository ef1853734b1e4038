#pragma once

// Get-or-create over the shader and pipeline caches. Entries are never
// evicted; whatever id the device returns is cached, an invalid one included.

#include <Rendering/Core.h>
#include <Rendering/Device.h>

#include <utility>

namespace Zorvan::Rendering::detail {

// Returns the id cached under key, or calls create() on a miss and caches
// its result owned by gpu.
template <typename Map, typename Key, typename Create>
auto GetOrCreate(Map& map, Key const& key, IGpu& gpu, Create&& create)
{
    if (auto found = map.find(key); found != map.end())
        return found->second.Get();
    // Owned before insertion, so a failing insertion still releases it.
    typename Map::mapped_type owned(&gpu, std::forward<Create>(create)());
    return map.emplace(key, std::move(owned)).first->second.Get();
}

} // namespace Zorvan::Rendering::detail
