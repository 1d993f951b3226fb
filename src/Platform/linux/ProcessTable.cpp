#include "Platform/ProcessTable.h"

#include "Base/Text.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fmt/format.h>

#include <dirent.h>
#include <poll.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <initializer_list>
#include <memory>
#include <string_view>

namespace veltry::ProcessTable {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

/// The id that a folder of /proc is named after; 0 for another name.
ProcessID processOf(std::string_view name)
{
    ProcessID process = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    return error == std::errc() && end == name.data() + name.size() ? process : 0;
}

double seconds(const timespec& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Processor time in nanoseconds, where the kernel's files count ticks of ten milliseconds.
std::optional<double> cpuSeconds(ProcessID process)
{
    clockid_t clock = 0;
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0)
        return std::nullopt;
    return seconds(time);
}

/// The rest of the line of a file that begins with that name, without blanks.
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

std::uint64_t sum(std::string_view file, std::initializer_list<std::string_view> names)
{
    std::uint64_t sum = 0;
    for (const std::string_view name : names)
        sum += bytes(field(file, name));
    return sum;
}

template <typename Predicate>
std::vector<ProcessID> processes(Predicate isWanted)
{
    std::vector<ProcessID> found;
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir("/proc"));
    while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr)
        if (const ProcessID process = processOf(entry->d_name); process > 0 && isWanted(process))
            found.push_back(process);
    return found;
}

bool hasInEnvironment(ProcessID process, std::string_view assignment)
{
    const std::optional<std::string> variables = Files::readIfPossible(fmt::format("/proc/{}/environ", process));
    if (!variables)
        return false;
    for (const std::string_view variable : text::split(*variables, '\0'))
        if (variable == assignment)
            return true;
    return false;
}

} // namespace

std::vector<ProcessID> group(ProcessID group)
{
    return processes([group](ProcessID process) { return isInGroup(process, group); });
}

std::vector<ProcessID> carriers(const std::string& variable, const std::string& value)
{
    const std::string assignment = fmt::format("{}={}", variable, value);
    return processes([&](ProcessID process) { return hasInEnvironment(process, assignment); });
}

bool carries(ProcessID process, const std::string& variable, const std::string& value)
{
    return hasInEnvironment(process, fmt::format("{}={}", variable, value));
}

bool isInGroup(ProcessID process, ProcessID group)
{
    return ::getpgid(process) == group;
}

bool kill(ProcessID process, const std::function<bool(ProcessID process)>& isMeant)
{
    try {
        // A hold on the process that has the id now. If that one is still there after the question, the question was
        // about it.
        const FileDescriptor hold = ChildProcess::exitEvent(process);
        if (!isMeant(process))
            return false;
        pollfd ended{.fd = hold.get(), .events = POLLIN, .revents = 0};
        return ::poll(&ended, 1, 0) == 0 && ::syscall(SYS_pidfd_send_signal, hold.get(), SIGKILL, nullptr, 0) == 0;
    } catch (const SystemError&) {
        return false; // it has ended
    }
}

std::optional<double> began(ProcessID process)
{
    const std::optional<std::string> stat = Files::readIfPossible(fmt::format("/proc/{}/stat", process));
    const std::size_t name = stat ? stat->rfind(')') : std::string::npos; // anything may stand in a name
    if (name == std::string::npos)
        return std::nullopt;
    constexpr std::size_t afterName = 20; // the 22nd field of all, see proc(5)
    const auto fields = text::split(std::string_view(*stat).substr(name), ' ');
    const auto ticks = fields.size() > afterName ? text::integer(fields[afterName]) : std::nullopt;
    timespec sinceBoot{};
    timespec now{};
    if (!ticks || ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0)
        return std::nullopt;
    // The start is counted from boot with the time that the machine slept, as CLOCK_BOOTTIME counts.
    return seconds(now) - seconds(sinceBoot) +
           static_cast<double>(*ticks) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

std::optional<Usage> usage(ProcessID process, SharedPages shared)
{
    const std::optional<std::string> status = Files::readIfPossible(fmt::format("/proc/{}/status", process));
    if (!status)
        return std::nullopt;
    const std::string_view state = field(*status, "\nState:");
    const std::optional<double> time = cpuSeconds(process);
    if (!time || state.starts_with('Z') || state.starts_with('X')) // ended, and waiting to be waited for
        return std::nullopt;
    const uid_t user = ::geteuid();
    const std::string_view owners = field(*status, "\nUid:");
    if (user != 0 && owners.substr(0, owners.find('\t')) != std::to_string(user))
        return std::nullopt;
    // Without the pages of files, which the kernel can drop. The divided sums are asked for apart, since the kernel
    // walks through all pages for them.
    if (shared == SharedPages::divide)
        if (const auto sums = Files::readIfPossible(fmt::format("/proc/{}/smaps_rollup", process)))
            return Usage{.cpuSeconds = *time, .memory = sum(*sums, {"\nPss_Anon:", "\nPss_Shmem:", "\nSwapPss:"})};
    return Usage{.cpuSeconds = *time, .memory = sum(*status, {"\nRssAnon:", "\nRssShmem:", "\nVmSwap:"})};
}

} // namespace veltry::ProcessTable
