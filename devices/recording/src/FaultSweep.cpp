// Fault sweeps over an operation on fresh recording devices.

#include <Rendering/Testing/FaultSweep.h>

#include <algorithm>
#include <exception>
#include <string_view>
#include <sstream>

namespace Zorvan::Rendering::Testing {

namespace {

// Problems() as "section: item" lines, so that two reports can be compared by line.
std::vector<std::string> Items(std::string const& problems)
{
    std::vector<std::string> items;
    std::istringstream in(problems);
    std::string line;
    std::string section;
    while (std::getline(in, line)) {
        if (line.rfind("  ", 0) == 0)
            items.push_back(section + ": " + line.substr(2));
        else
            section = line.substr(0, line.find(" ("));
    }
    return items;
}

// An error about the invalid handle itself (all ones in the low 32 bits)
// handed to anything but a destroy (destroying it is still a caller's
// fault), or about an image sized from its empty description.
bool PassesOnInvalidHandle(std::string const& item)
{
    std::string_view rest(item);
    constexpr std::string_view section = "errors: ";
    if (!rest.starts_with(section))
        return false;
    rest.remove_prefix(section.size());
    if (rest.starts_with("Destroy"))
        return false;
    auto const colon = rest.find(": ");
    if (colon == std::string_view::npos)
        return false;
    rest.remove_prefix(colon + 2);
    auto const kindEnd = rest.find(' ', std::string_view("invalid ").size());
    if (rest.starts_with("invalid ") && kindEnd != std::string_view::npos && rest.substr(kindEnd).starts_with(" handle"))
        return true;
    // The description of the invalid image reads as all zero, so a temporary
    // sized from it has an empty extent, which is refused in turn.
    return item.starts_with("errors: CreateImage: an image of 0x0x0 ") && item.ends_with(": an empty extent");
}

struct Run {
    std::vector<std::string> problems;
    bool faultHit = false;
    std::vector<Op> ops;
};

Run RunOnce(std::function<void(RecordingGpu&)> const& operation, std::function<void(RecordingGpu&)> const& setup,
            std::optional<std::pair<std::uint64_t, FaultKind>> fault)
{
    RecordingGpu gpu;
    if (setup)
        setup(gpu);
    gpu.ResetAccounting();
    std::vector<std::string> const baseline = Items(gpu.Problems());
    std::size_t const logStart = gpu.Log().size();
    if (fault)
        gpu.InjectFaultAtCall(gpu.CallCount() + fault->first, fault->second);

    Run run;
    try {
        operation(gpu);
    } catch (InjectedFault const&) {
        // The failure being simulated; the operation had to let it pass cleanly.
    } catch (std::exception const& e) {
        run.problems.push_back(std::string("unexpected exception: ") + e.what());
    } catch (...) {
        run.problems.push_back("unexpected exception of unknown type");
    }
    bool const handsOutInvalid = fault && fault->second == FaultKind::InvalidHandle;
    for (auto const& item : Items(gpu.Problems())) {
        if (std::find(baseline.begin(), baseline.end(), item) != baseline.end())
            continue;
        // The library passes a failed creation's invalid handle on as it came;
        // the device refusing it again is expected, not a fault of the caller.
        if (handsOutInvalid && PassesOnInvalidHandle(item))
            continue;
        run.problems.push_back(item);
    }
    run.faultHit = gpu.FaultsHit() != 0;
    for (std::size_t i = logStart; i < gpu.Log().size(); ++i)
        run.ops.push_back(gpu.Log()[i].op);
    return run;
}

std::string Join(std::vector<std::string> const& lines)
{
    std::string text;
    for (auto const& line : lines)
        text += (text.empty() ? "" : "\n") + line;
    return text;
}

} // namespace

char const* ToString(FaultKind kind)
{
    switch (kind) {
    case FaultKind::Throw: return "Throw";
    case FaultKind::InvalidHandle: return "InvalidHandle";
    case FaultKind::NullMap: return "NullMap";
    }
    return "<unknown FaultKind>";
}

std::string SweepResult::Report() const
{
    std::ostringstream out;
    for (auto const& failure : failures) {
        if (failure.kind)
            out << "call " << failure.call << " (" << ToString(failure.op) << ") failing with "
                << ToString(*failure.kind) << ":\n";
        else
            out << "the run without a fault:\n";
        std::istringstream lines(failure.problems);
        for (std::string line; std::getline(lines, line);)
            out << "  " << line << '\n';
    }
    return out.str();
}

SweepResult SweepFaults(std::function<void(RecordingGpu&)> const& operation,
                        std::function<void(RecordingGpu&)> const& setup, std::initializer_list<FaultKind> kinds)
{
    SweepResult result;
    Run const clean = RunOnce(operation, setup, std::nullopt);
    result.calls = clean.ops.size();
    if (!clean.problems.empty())
        result.failures.push_back({0, std::nullopt, Op{}, Join(clean.problems)});

    for (std::uint64_t call = 0; call < result.calls; ++call) {
        for (FaultKind const kind : kinds) {
            Run const run = RunOnce(operation, setup, std::pair{call, kind});
            result.cases += run.faultHit ? 1 : 0;
            if (!run.problems.empty())
                result.failures.push_back({call, kind, clean.ops[call], Join(run.problems)});
        }
    }
    return result;
}

} // namespace Zorvan::Rendering::Testing
