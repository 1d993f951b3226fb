#include "Experiments/RunLog/RunLog.h"
#include "Experiments/RunLog/Stamp.h"
#include "Experiments/RunLog/Stamper.h"
#include "Platform/Files.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

#include <sys/resource.h>

#include <stdexcept>

namespace veltry::bench {

namespace {

constexpr std::uint64_t lineLength = 100;
constexpr std::int64_t realLines = 1000; // at a log's end, far more than a tail reads
constexpr std::int64_t wantedLines = 60;

/// A log of `size` bytes whose last lines are real. The rest is a hole, with stamps as if it held `count` lines: the
/// stamps of a long log are what a reader searches in.
std::filesystem::path makeLog(
    const std::filesystem::path& folder, std::string_view name, std::uint64_t size, std::uint64_t count)
{
    const std::filesystem::path log = folder / name;
    const std::uint64_t end = size - realLines * lineLength;
    std::string stamps;
    for (std::uint64_t line = 0; line < count; ++line)
        RunLog::Stamp::at(line * (end / count), Date::now()).appendTo(stamps);
    std::string lines;
    for (std::uint64_t line = 0; line < realLines; ++line) {
        RunLog::Stamp::at(end + line * lineLength, Date::now()).appendTo(stamps);
        lines += fmt::format("{:<{}}\n", fmt::format("step {} loss 1.0123", line), lineLength - 1);
    }
    const FileDescriptor file = Files::open(log, Files::forAppending);
    Files::truncate(file, end);
    Files::writeAll(file, lines, name);
    Files::writeAll(Files::open(RunLog::times(log), Files::forAppending), stamps, name);
    return log;
}

double tailSeconds(const std::filesystem::path& log)
{
    return medianSecondsOf(100, [&] {
        const std::vector<RunLog::Line> lines = RunLog::tail(log, wantedLines);
        if (lines.size() != static_cast<std::size_t>(wantedLines) || !lines.front().number)
            throw std::runtime_error("the log's end wasn't read");
    });
}

double cpuSeconds(int who)
{
    rusage usage{};
    ::getrusage(who, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

constexpr std::uint64_t stampedLines = 250'000;

/// Processor time of the stamper while another process writes the log as fast as it can.
double stamperSeconds(const std::filesystem::path& log)
{
    Files::remove(log);
    Files::remove(RunLog::times(log));
    const std::string write = fmt::format("yes {:x<999} | head -c {} >'{}'", "", stampedLines * 1000, log.string());
    const double before = cpuSeconds(RUSAGE_SELF);
    RunLog::Stamper stamper(log);
    stamper.start();
    runScript(write);
    stamper.stop();
    const double spent = cpuSeconds(RUSAGE_SELF) - before;
    if (Files::size(Files::open(RunLog::times(log), Files::forReading)) != stampedLines * RunLog::Stamp::length)
        throw std::runtime_error("not every line got a stamp");
    return spent;
}

double catSeconds(const std::filesystem::path& log)
{
    const double before = cpuSeconds(RUSAGE_CHILDREN);
    runScript(fmt::format("exec cat '{}' >/dev/null", log.string()));
    return cpuSeconds(RUSAGE_CHILDREN) - before;
}

} // namespace

Measured logTail(const Workplace& place)
{
    constexpr std::uint64_t megabyte = 1'000'000;
    const auto large = makeLog(place.folder, "large", 10'000 * megabyte, 1'000'000);
    const auto small = makeLog(place.folder, "small", megabyte, 9'000);
    return interleaved(15, [&] { return tailSeconds(large); }, [&] { return tailSeconds(small); });
}

Measured stamper(const Workplace& place)
{
    const std::filesystem::path log = place.folder / "log";
    return interleaved(5, [&] { return stamperSeconds(log); }, [&] { return catSeconds(log); });
}

} // namespace veltry::bench
