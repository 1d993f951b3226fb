#include "Experiments/RunLog/RunLog.h"

#include "Base/Text.h"
#include "Experiments/RunLog/StampReader.h"
#include "Experiments/RunLog/StampWriter.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <algorithm>
#include <string_view>

namespace veltry::RunLog {

namespace {

constexpr std::size_t pieceSize = 65536;
// The end of a log is read at once, so that it costs the same in a long one; where lines are longer, fewer come.
constexpr std::uint64_t bytesForEachLine = 400;
constexpr std::uint64_t bytesBesides = 4096;

/// Where the last `count` lines of a chunk begin. What stands before its first line feed is the rest of an earlier
/// line, unless the chunk begins the log.
std::vector<std::size_t> lastStarts(std::string_view chunk, bool beginsLog, std::uint64_t count)
{
    std::vector<std::size_t> starts;
    std::size_t end = chunk.ends_with('\n') ? chunk.size() - 1 : chunk.size(); // a last line feed begins no line
    while (!chunk.empty() && starts.size() < count) {
        const std::size_t feed = end == 0 ? std::string_view::npos : chunk.rfind('\n', end - 1);
        if (feed == std::string_view::npos) {
            if (beginsLog)
                starts.push_back(0);
            break;
        }
        starts.push_back(feed + 1);
        end = feed;
    }
    std::ranges::reverse(starts);
    return starts;
}

/// The lines of `chunk`, which stands at `base` in the log, with what the side file says of them.
std::vector<Line> lines(
    std::string_view chunk, std::uint64_t base, const std::vector<std::size_t>& starts, StampReader stamps)
{
    if (chunk.ends_with('\n'))
        chunk.remove_suffix(1);
    std::vector<Line> result;
    result.reserve(starts.size());
    std::optional<std::int64_t> last;
    std::optional<StampReader::Numbered> stamp = stamps.next();
    for (std::size_t index = 0; index < starts.size(); ++index) {
        const std::size_t start = starts[index];
        const std::size_t end = index + 1 < starts.size() ? starts[index + 1] - 1 : chunk.size();
        while (stamp && stamp->stamp.offset < base + start)
            stamp = stamps.next();
        Line line{.number = {}, .at = {}, .text = text::repaired(chunk.substr(start, end - start))};
        if (stamp && stamp->stamp.offset == base + start) {
            last = stamp->number;
            line.at = stamp->stamp.time();
        } else if (last) {
            last = *last + 1;
        }
        line.number = last;
        result.push_back(std::move(line));
    }
    return result;
}

} // namespace

std::filesystem::path times(const std::filesystem::path& log)
{
    std::filesystem::path sideFile = log;
    return sideFile += ".times";
}

void stampWhole(const std::filesystem::path& log, Date start, double seconds)
{
    const FileDescriptor reader = Files::open(log, Files::forReading);
    StampWriter writer(times(log), Files::forReplacing);
    LineScanner scanner;
    double count = 0;
    std::string piece;
    do {
        piece = Files::readAt(reader, scanner.offset(), pieceSize);
        scanner.scan(piece, [&](std::uint64_t offset) {
            writer.add(Stamp::at(offset, Date{start.secondsSince2001 + count * seconds}));
            ++count;
        });
        if (piece.size() < pieceSize)
            writer.flush();
        writer.throwFailure();
    } while (piece.size() == pieceSize);
}

std::vector<Line> tail(const std::filesystem::path& log, std::int64_t count)
{
    if (count < 1)
        return {};
    try {
        const FileDescriptor file = Files::open(log, Files::forReadingPlain);
        const std::uint64_t size = Files::size(file);
        const auto wanted = static_cast<std::uint64_t>(count);
        // The comparison is written as a division because the product may not fit.
        const bool whole = size <= bytesBesides || wanted >= (size - bytesBesides) / bytesForEachLine + 1;
        const std::uint64_t span = whole ? size : wanted * bytesForEachLine + bytesBesides;
        const std::uint64_t base = size - span;
        const std::string chunk = Files::readAt(file, base, span);
        const std::vector<std::size_t> starts = lastStarts(chunk, base == 0, wanted);
        if (starts.empty())
            return {};
        return lines(chunk, base, starts, StampReader(times(log), base + starts.front(), starts.size()));
    } catch (const std::exception&) {
        return {}; // no such log, a folder in its place, more lines than memory holds
    }
}

} // namespace veltry::RunLog
