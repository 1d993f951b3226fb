#include "Platform/ProcessTable.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <dirent.h>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <memory>
#include <string_view>

namespace veltry::ProcessTable {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

/// The id that a folder of /proc is named after; 0 for another name.
pid_t processOf(std::string_view name)
{
    pid_t process = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    return error == std::errc() && end == name.data() + name.size() ? process : 0;
}

/// Processor time in nanoseconds, where the kernel's files count ticks of ten milliseconds.
std::optional<double> cpuSeconds(pid_t process)
{
    clockid_t clock = 0;
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0)
        return std::nullopt;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The rest of the line of `status` that begins with that name, without blanks.
std::string_view field(std::string_view status, std::string_view name)
{
    const std::size_t place = status.find(name);
    if (place == std::string_view::npos)
        return {};
    status.remove_prefix(place + name.size());
    return text::trimmed(status.substr(0, status.find('\n')));
}

std::uint64_t bytes(std::string_view kibibytes)
{
    return 1024 * static_cast<std::uint64_t>(text::integer(kibibytes.substr(0, kibibytes.find(' '))).value_or(0));
}

} // namespace

std::vector<pid_t> group(pid_t group)
{
    std::vector<pid_t> processes;
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir("/proc"));
    while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr)
        if (const pid_t process = processOf(entry->d_name); process > 0 && ::getpgid(process) == group)
            processes.push_back(process);
    return processes;
}

std::optional<Usage> usage(pid_t process)
{
    // smaps_rollup tells more, and walks the page tables of all that it measures: 10 milliseconds for each gigabyte.
    const std::optional<std::string> status = Files::readIfPossible(fmt::format("/proc/{}/status", process));
    if (!status)
        return std::nullopt;
    const std::string_view state = field(*status, "\nState:");
    const std::optional<double> time = cpuSeconds(process);
    if (!time || state.starts_with('Z') || state.starts_with('X')) // ended, and waiting to be waited for
        return std::nullopt;
    return Usage{
        .cpuSeconds = *time,
        .memory = bytes(field(*status, "\nRssAnon:")) + bytes(field(*status, "\nRssShmem:")) +
                  bytes(field(*status, "\nVmSwap:"))};
}

} // namespace veltry::ProcessTable
