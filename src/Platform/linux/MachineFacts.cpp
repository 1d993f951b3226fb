#include "Platform/MachineFacts.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/linux/ControlGroup.h"

#include <fmt/format.h>

#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

namespace veltry::MachineFacts {

namespace {

std::optional<std::string> firstLine(const std::filesystem::path& file)
{
    const std::optional<std::string> contents = Files::readIfPossible(file);
    if (!contents)
        return std::nullopt;
    std::string line(text::trimmed(text::split(text::repaired(*contents), '\n').front()));
    return line.empty() ? std::nullopt : std::optional(std::move(line));
}

std::optional<std::int64_t> number(const std::filesystem::path& file)
{
    const std::optional<std::string> line = firstLine(file);
    return line ? text::integer(*line) : std::nullopt;
}

/// Linux writes lists of processors as "0-3,8,10-11".
std::set<std::int64_t> processors(const std::filesystem::path& file)
{
    std::set<std::int64_t> result;
    const std::string list = firstLine(file).value_or("");
    for (std::string_view piece : text::split(list, ',')) {
        const std::size_t hyphen = piece.find('-');
        const auto first = text::integer(piece.substr(0, hyphen));
        const auto last = hyphen == std::string_view::npos ? first : text::integer(piece.substr(hyphen + 1));
        if (first && last)
            for (std::int64_t index = *first; index <= *last; ++index)
                result.insert(index);
    }
    return result;
}

/// Processors that may run something, one for each physical core: siblings of a core share it.
std::set<std::int64_t> physicalCores()
{
    std::set<std::pair<std::int64_t, std::int64_t>> seen;
    std::set<std::int64_t> result;
    for (std::int64_t cpu : processors("/sys/devices/system/cpu/online")) {
        const std::filesystem::path topology = fmt::format("/sys/devices/system/cpu/cpu{}/topology", cpu);
        // Where the kernel tells no topology, each processor counts as a core of its own.
        const auto package = number(topology / "physical_package_id").value_or(0);
        const auto core = number(topology / "core_id").value_or(cpu);
        if (seen.emplace(package, core).second)
            result.insert(cpu);
    }
    return result;
}

/// Processors of the slower kind: Intel's hybrids list them, Arm gives each a capacity of at most 1024.
std::set<std::int64_t> efficiencyProcessors(const std::set<std::int64_t>& all)
{
    std::set<std::int64_t> slow = processors("/sys/devices/cpu_atom/cpus");
    if (!slow.empty())
        return slow;
    std::map<std::int64_t, std::int64_t> capacities;
    std::int64_t highest = 0;
    for (std::int64_t cpu : all) {
        const auto capacity = number(fmt::format("/sys/devices/system/cpu/cpu{}/cpu_capacity", cpu));
        // Without the capacity of each there is nothing to compare.
        if (!capacity)
            return {};
        capacities[cpu] = *capacity;
        highest = std::max(highest, *capacity);
    }
    for (const auto& [cpu, capacity] : capacities)
        if (capacity < highest)
            slow.insert(cpu);
    return slow;
}

/// The value of `name` in a file of lines `NAME=value`, as a shell would read it: quoted or not.
std::optional<std::string> assigned(std::string_view contents, std::string_view name)
{
    for (std::string_view line : text::split(contents, '\n')) {
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos || line.substr(0, equals) != name)
            continue;
        std::string_view value = text::trimmed(line.substr(equals + 1));
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        return value.empty() ? std::nullopt : std::optional<std::string>(value);
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> systemName()
{
    // The first overrides the second (os-release(5)).
    for (const char* file : {"/etc/os-release", "/usr/lib/os-release"}) {
        const std::optional<std::string> contents = Files::readIfPossible(file);
        if (!contents)
            continue;
        const std::optional<std::string> name = assigned(*contents, "NAME");
        const std::optional<std::string> version = assigned(*contents, "VERSION_ID"); // rolling systems have none
        if (name)
            return version ? *name + " " + *version : *name;
    }
    return std::nullopt;
}

std::string kernelName()
{
    utsname names{};
    ::uname(&names); // fails for a bad address alone
    const std::string_view release = names.release;
    const std::size_t second = release.find('.', std::min(release.size(), release.find('.') + 1));
    return fmt::format("{} {}", names.sysname, release.substr(0, second));
}

std::string architecture()
{
    utsname names{};
    ::uname(&names);
    const std::string_view machine = names.machine;
    return std::string(machine == "x86_64" ? "x86-64" : machine == "aarch64" ? "Arm64" : machine);
}

std::optional<std::string> productName()
{
    for (const char* file :
         {"/sys/class/dmi/id/product_name", "/proc/device-tree/model", "/sys/class/dmi/id/board_name"})
        if (std::optional<std::string> name = firstLine(file)) {
            name->erase(std::find(name->begin(), name->end(), '\0'), name->end()); // device trees end texts with NUL
            if (!name->empty())
                return name;
        }
    return std::nullopt;
}

std::optional<std::string> processorName()
{
    const std::string contents = Files::readIfPossible("/proc/cpuinfo").value_or("");
    for (std::string_view line : text::split(contents, '\n')) {
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || text::trimmed(line.substr(0, colon)) != "model name")
            continue;
        const std::string_view name = text::trimmed(line.substr(colon + 1));
        if (!name.empty())
            return std::string(name);
    }
    return std::nullopt; // Arm's kernels give numbers of implementers and parts instead
}

CoreCounts cores()
{
    const std::set<std::int64_t> all = physicalCores();
    if (all.empty())
        return {.performance = std::max<std::int64_t>(0, ::sysconf(_SC_NPROCESSORS_ONLN)), .efficiency = 0};
    const std::set<std::int64_t> slow = efficiencyProcessors(all);
    CoreCounts counts;
    for (std::int64_t cpu : all)
        ++(slow.contains(cpu) ? counts.efficiency : counts.performance);
    return counts;
}

std::int64_t threads()
{
    return std::max<std::int64_t>(1, ::sysconf(_SC_NPROCESSORS_ONLN));
}

double usableThreads()
{
    double usable = static_cast<double>(threads());
    cpu_set_t set;
    if (::sched_getaffinity(0, sizeof set, &set) == 0) // fails on machines of over 1,024 processors
        usable = std::min(usable, static_cast<double>(CPU_COUNT(&set)));
    // A container's share of time, which the affinity says nothing of.
    return std::min(usable, controlGroupLimits().processors.value_or(usable));
}

std::optional<std::int64_t> gpuCores()
{
    return std::nullopt; // no file of the kernel's tells such a number
}

std::uint64_t memory()
{
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    return pages > 0 && pageSize > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize) : 0;
}

std::optional<std::uint64_t> availableMemory()
{
    const std::string contents = Files::readIfPossible("/proc/meminfo").value_or("");
    // Counts the caches that the kernel would give up, as MemFree doesn't.
    constexpr std::string_view name = "MemAvailable:";
    for (std::string_view line : text::split(contents, '\n'))
        if (line.starts_with(name)) {
            const std::string_view value = text::trimmed(line.substr(name.size()));
            if (const auto kibibytes = text::integer(value.substr(0, value.find(' '))))
                return static_cast<std::uint64_t>(*kibibytes) * 1024;
        }
    return std::nullopt;
}

std::optional<std::uint64_t> memoryLimit()
{
    // Without a limit, version 1 of control groups writes a number above all memory.
    const std::optional<std::uint64_t> limit = controlGroupLimits().memory;
    return limit && *limit < memory() ? limit : std::nullopt;
}

} // namespace veltry::MachineFacts
