// Object tracking, lookups and reports of ValidatingGpu.

#include "ValidatorState.h"

#include <sstream>

namespace Zorvan::Rendering::Testing::Validation {

void Retired::Add(std::uint64_t handle)
{
    if (!set_.insert(handle).second)
        return;
    order_.push_back(handle);
    if (order_.size() > Capacity) {
        set_.erase(order_.front());
        order_.pop_front();
    }
}

std::string Tracker::Name(ResourceKind kind, std::uint64_t handle)
{
    if (static_cast<std::uint32_t>(handle) == ~std::uint32_t{0})
        return std::string("invalid ") + ToString(kind) + " handle";
    std::ostringstream out;
    out << ToString(kind) << " 0x" << std::hex << handle;
    return out.str();
}

void Tracker::Report(Op op, Rule rule, std::string const& object, std::string const& message)
{
    violations.push_back({rule, op, object, message});
    if (onViolation)
        onViolation(violations.back());
}

void Tracker::Report(Op op, Checks::Findings const& found)
{
    for (Checks::Finding const& finding : found)
        Report(op, finding.rule, finding.object, finding.message);
}

Entry* Tracker::Find(Op op, ResourceKind kind, std::uint64_t handle, std::string const& role)
{
    std::string const who = (role.empty() ? "" : role + " ") + Name(kind, handle);
    auto const k = static_cast<std::size_t>(kind);
    if (static_cast<std::uint32_t>(handle) == ~std::uint32_t{0}) {
        Report(op, Rule::InvalidHandle, who, Checks::HandleMessage(Rule::InvalidHandle, who));
        return nullptr;
    }
    if (auto it = live[k].find(handle); it != live[k].end())
        return &it->second;
    if (retired[k].Contains(handle)) {
        bool const destroy = std::string_view(ToString(op)).starts_with("Destroy");
        Rule const rule = destroy ? Rule::DoubleDestroy : Rule::StaleHandle;
        Report(op, rule, who, Checks::HandleMessage(rule, who));
        return nullptr;
    }
    std::string message = Checks::HandleMessage(Rule::UnknownHandle, who);
    for (std::size_t other = 0; other < live.size(); ++other)
        if (other != k && live[other].contains(handle)) {
            message += " (a live " + std::string(ToString(static_cast<ResourceKind>(other))) + " has this value)";
            break;
        }
    Report(op, Rule::UnknownHandle, who, message);
    return nullptr;
}

void Tracker::CheckOptional(Op op, ResourceKind kind, std::uint64_t handle, std::string const& role)
{
    if (static_cast<std::uint32_t>(handle) != ~std::uint32_t{0})
        Find(op, kind, handle, role);
}

void Tracker::CheckPackedView(Op op, PackedRtvId view, std::string const& role)
{
    if (!view.IsValid())
        return;
    std::ostringstream name;
    name << role << " RenderTargetView 0x" << std::hex << view.Handle() << " (low 32 bits)";
    auto const it = packedViews.find(view.Handle());
    if (it != packedViews.end()) {
        CheckViewedImage(op, ResourceKind::RenderTargetView, it->second);
        return;
    }
    Rule const rule = retiredPacked.Contains(view.Handle()) ? Rule::StaleHandle : Rule::UnknownHandle;
    Report(op, rule, name.str(), Checks::HandleMessage(rule, name.str()));
}

void Tracker::CheckViewedImage(Op op, ResourceKind viewKind, std::uint64_t view)
{
    auto const& views = live[static_cast<std::size_t>(viewKind)];
    auto const it = views.find(view);
    if (it == views.end())
        return;
    std::uint64_t const image = std::get<ViewEntry>(it->second).image;
    if (!live[static_cast<std::size_t>(ResourceKind::Image)].contains(image)) {
        std::string const who = Name(viewKind, view);
        Report(op, Rule::ViewOfDestroyedImage, who,
               Checks::HandleMessage(Rule::ViewOfDestroyedImage, who) + " (" + Name(ResourceKind::Image, image) + ")");
    }
}

void Tracker::Add(Op op, ResourceKind kind, std::uint64_t handle, Entry entry)
{
    auto const k = static_cast<std::size_t>(kind);
    std::string const who = Name(kind, handle);
    if (live[k].contains(handle))
        Report(op, Rule::DeviceReusedHandle, who, who + ": returned by a create while it is still live");
    retired[k].Forget(handle);
    live[k][handle] = std::move(entry);
    if (kind == ResourceKind::RenderTargetView) {
        auto const low = static_cast<std::uint32_t>(handle);
        auto const [it, added] = packedViews.try_emplace(low, handle);
        if (!added && it->second != handle)
            Report(op, Rule::DevicePackedHandle, who,
                   who + ": its low 32 bits equal those of the live " + Name(kind, it->second) +
                       ", so a BindingState cannot tell them apart");
        it->second = handle;
        retiredPacked.Forget(low);
    }
}

void Tracker::Remove(ResourceKind kind, std::uint64_t handle)
{
    auto const k = static_cast<std::size_t>(kind);
    if (live[k].erase(handle) == 0)
        return;
    retired[k].Add(handle);
    if (kind == ResourceKind::RenderTargetView) {
        auto const low = static_cast<std::uint32_t>(handle);
        if (auto it = packedViews.find(low); it != packedViews.end() && it->second == handle) {
            packedViews.erase(it);
            retiredPacked.Add(low);
        }
    }
}

std::size_t Tracker::LiveCount() const noexcept
{
    std::size_t count = 0;
    for (auto const& kind : live)
        count += kind.size();
    return count;
}

std::size_t Tracker::OpenMaps() const noexcept
{
    std::size_t open = 0;
    for (auto const& [handle, entry] : live[static_cast<std::size_t>(ResourceKind::Buffer)])
        open += std::get<BufferEntry>(entry).mapped ? 1 : 0;
    for (auto const& [handle, entry] : live[static_cast<std::size_t>(ResourceKind::Image)])
        open += std::get<ImageEntry>(entry).maps.size();
    return open;
}

std::size_t Tracker::OpenQueries() const noexcept
{
    std::size_t open = 0;
    for (auto const& [handle, entry] : live[static_cast<std::size_t>(ResourceKind::Query)])
        open += std::get<QueryEntry>(entry).begun ? 1 : 0;
    return open;
}

namespace {

void Section(std::ostringstream& out, char const* title, std::vector<std::string> const& lines)
{
    if (lines.empty())
        return;
    out << title << " (" << lines.size() << "):\n";
    for (auto const& line : lines)
        out << "  " << line << '\n';
}

} // namespace

std::string Tracker::Problems() const
{
    std::vector<std::string> broken;
    for (Violation const& violation : violations)
        broken.push_back(violation.Text());
    std::vector<std::string> objects;
    std::vector<std::string> maps;
    std::vector<std::string> queries;
    for (std::size_t k = 0; k < live.size(); ++k) {
        auto const kind = static_cast<ResourceKind>(k);
        std::map<std::uint64_t, Entry const*> ordered; // stable report order
        for (auto const& [handle, entry] : live[k])
            ordered.emplace(handle, &entry);
        for (auto const& [handle, entry] : ordered) {
            std::string const who = Name(kind, handle);
            if (auto const* image = std::get_if<ImageEntry>(entry)) {
                objects.push_back(who + ": " + Checks::DescriptionText(image->facts.description));
                for (auto const& [where, failed] : image->maps)
                    maps.push_back(who + " " + Checks::SubImageText({where.first, where.second}) +
                                   (failed ? " (the map failed)" : ""));
            } else if (auto const* buffer = std::get_if<BufferEntry>(entry)) {
                objects.push_back(who + ": " + std::to_string(buffer->description.size) + " bytes, flags " +
                                  Checks::Hex(buffer->description.flags));
                if (buffer->mapped)
                    maps.push_back(who);
            } else if (auto const* query = std::get_if<QueryEntry>(entry)) {
                objects.push_back(who);
                if (query->begun)
                    queries.push_back(who + " begun and not ended");
            } else {
                objects.push_back(who);
            }
        }
    }
    std::ostringstream out;
    Section(out, "violations", broken);
    Section(out, "live objects", objects);
    Section(out, "open maps", maps);
    Section(out, "open queries", queries);
    return out.str();
}

} // namespace Zorvan::Rendering::Testing::Validation
