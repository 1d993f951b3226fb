#include "Experiments/Telemetry/Telemetry.h"

#include "Experiments/Telemetry/TelemetryLineReader.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <algorithm>
#include <utility>

namespace veltry {

namespace {

bool isBlank(std::string_view bytes)
{
    return bytes.find_first_not_of(" \t\r") == std::string_view::npos;
}

} // namespace

/// One pass of read() over the open file, in pieces of bounded size.
class Telemetry::Pass {
public:
    Pass(Telemetry& telemetry, const FileDescriptor& file)
        : telemetry_(telemetry), file_(file), at_(telemetry.offset_), end_(Files::size(file))
    {
    }

    /// Goes up to the size that the file had at the beginning, so that a run that writes for ever can't hold it. Throws
    /// SystemError.
    void run(bool finished)
    {
        resumeLongLine();
        if (at_ < end_)
            buffer_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(pieceBytes, end_ - at_)));
        while (readPiece()) {
            if (long_.length > 0 && !endLongLine())
                continue;
            unread_.remove_prefix(telemetry_.take(unread_, false));
            if (unread_.size() > maxLineBytes)
                extendLongLine();
        }
        if (finished && long_.length > 0)
            telemetry_.takeLongLine(std::exchange(long_, {}), 0);
        else if (finished)
            telemetry_.take(unread_, true);
        telemetry_.unfinished_ = std::move(long_);
    }

private:
    // Enough of a line's two ends to tell that another file has taken this one's place.
    static constexpr std::size_t witnessBytes = 64;

    /// Goes on after the part of a long line that was searched before, if that still stands there.
    void resumeLongLine()
    {
        LongLine line = std::exchange(telemetry_.unfinished_, {});
        const std::uint64_t behind = at_ + line.length;
        if (line.length == 0 || behind > end_ || Files::readAt(file_, at_, line.start.size()) != line.start ||
            Files::readAt(file_, behind - line.end.size(), line.end.size()) != line.end)
            return;
        at_ = behind;
        long_ = std::move(line);
    }

    /// Puts the next bytes after those that are unread; false at the end.
    bool readPiece()
    {
        // The rest of the last piece begins a line that the next piece goes on with.
        std::ranges::copy(unread_, buffer_.begin());
        const auto room = std::span(buffer_).subspan(unread_.size());
        const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), end_ - at_));
        const std::size_t count = wanted == 0 ? 0 : Files::readInto(room.first(wanted), file_, at_);
        at_ += count;
        unread_ = std::string_view(buffer_.data(), unread_.size() + count);
        return count > 0;
    }

    /// Looks for the long line's end in what is unread, and ends it there or takes all of it to the line.
    bool endLongLine()
    {
        const std::size_t lineFeed = unread_.find('\n');
        if (lineFeed == std::string_view::npos) {
            extendLongLine();
            return false;
        }
        long_.blank = long_.blank && isBlank(unread_.substr(0, lineFeed));
        telemetry_.takeLongLine(std::exchange(long_, {}), 1 + lineFeed);
        unread_.remove_prefix(lineFeed + 1);
        return true;
    }

    void extendLongLine()
    {
        long_.blank = long_.blank && isBlank(unread_);
        if (long_.length == 0)
            long_.start = unread_.substr(0, witnessBytes);
        long_.length += unread_.size();
        long_.end.append(unread_.substr(unread_.size() - std::min(unread_.size(), witnessBytes)));
        long_.end.erase(0, long_.end.size() - std::min(long_.end.size(), witnessBytes));
        unread_ = {};
    }

    Telemetry& telemetry_;
    const FileDescriptor& file_;
    std::uint64_t at_; // what is read from there on
    std::uint64_t end_;
    std::string buffer_;
    std::string_view unread_; // in buffer_: the start of a line
    LongLine long_;           // the line before at_, if nothing of it is kept
};

bool Telemetry::read(const std::filesystem::path& file, bool finished)
{
    const FileDescriptor descriptor = Files::tryOpen(file, Files::forReadingPlain);
    if (!descriptor)
        // Often the run hasn't made it yet.
        return false;
    const std::int32_t points = pointCount_;
    const Drops refused = dropped_;
    try {
        Pass(*this, descriptor).run(finished);
    } catch (const SystemError&) {
        // The disk failed. What came before it counts, and the next call tries again.
    }
    return pointCount_ != points || dropped_ != refused;
}

std::size_t Telemetry::take(std::string_view bytes, bool finished)
{
    TelemetryLineReader reader;
    std::size_t taken = 0;
    while (taken < bytes.size()) {
        const std::size_t lineFeed = bytes.find('\n', taken);
        if (lineFeed == std::string_view::npos && !finished)
            break;
        const std::size_t end = std::min(lineFeed, bytes.size());
        takeLine(bytes.substr(taken, end - taken), reader);
        taken = std::min(end + 1, bytes.size());
    }
    offset_ += taken;
    return taken;
}

void Telemetry::takeLine(std::string_view line, TelemetryLineReader& reader)
{
    if (isBlank(line))
        return;
    if (line.size() > maxLineBytes) {
        ++dropped_[Drop::tooLong];
        return;
    }
    const auto readings = reader.read(line);
    if (!readings) {
        ++dropped_[readings.error()];
        return;
    }
    // Before the limit on points: what is wrong with a line's keys is told also where the line comes too late.
    if (reader.badKeys() > 0)
        dropped_[Drop::badKey] += static_cast<std::int64_t>(reader.badKeys());
    if (pointCount_ >= maxPoints)
        ++dropped_[Drop::pointsCap];
    else
        addPoint(*readings);
}

void Telemetry::takeLongLine(const LongLine& line, std::uint64_t bytes)
{
    if (!line.blank)
        ++dropped_[Drop::tooLong];
    offset_ += line.length + bytes;
}

void Telemetry::addPoint(std::span<TelemetryReading> readings)
{
    const std::int32_t seq = pointCount_ + 1;
    for (TelemetryReading& reading : readings) {
        if (!reading.column)
            reading.column = columnFor(reading.key);
        if (!reading.column) {
            ++dropped_[Drop::keysCap];
            continue;
        }
        Column& column = columns_[*reading.column];
        column.seqs.push_back(seq);
        column.values.push_back(reading.number);
        // Only with its first reading: a point whose keys are all over the limit doesn't count.
        pointCount_ = seq;
    }
}

std::optional<std::size_t> Telemetry::columnFor(const std::string& key)
{
    if (const auto found = known_.find(key); found != known_.end())
        return found->second;
    if (keys_.size() == maxKeys)
        return std::nullopt;
    known_.emplace(key, keys_.size());
    keys_.push_back(key);
    columns_.emplace_back();
    return keys_.size() - 1;
}

const Telemetry::Column* Telemetry::column(std::string_view key) const
{
    const auto found = known_.find(key);
    return found == known_.end() ? nullptr : &columns_[found->second];
}

std::optional<Telemetry::Point> Telemetry::point(std::int32_t seq) const
{
    if (seq < 1 || seq > pointCount_)
        return std::nullopt;
    Point point{.seq = seq, .values = {}};
    for (std::size_t index = 0; index < keys_.size(); ++index) {
        const Column& column = columns_[index];
        const auto place = std::ranges::lower_bound(column.seqs, seq);
        if (place != column.seqs.end() && *place == seq)
            point.values.emplace(keys_[index], column.values[static_cast<std::size_t>(place - column.seqs.begin())]);
    }
    return point;
}

std::string_view Telemetry::describe(Drop drop, std::int64_t count)
{
    return count == 1 ? rowOf(drop).one : rowOf(drop).several;
}

bool operator==(const Telemetry& left, const Telemetry& right)
{
    return left.keys_ == right.keys_ && left.pointCount_ == right.pointCount_ && left.dropped_ == right.dropped_ &&
           left.columns_ == right.columns_ && left.known_ == right.known_ && left.offset_ == right.offset_;
}

JSONValue toJSON(const Telemetry::Drops& dropped)
{
    JSONValue::Object counts;
    for (const auto& [drop, count] : dropped)
        counts.emplace(toWord(drop), count);
    return counts;
}

JSONValue toJSON(const Telemetry& telemetry)
{
    return JSONValue::object({
        {"keys", JSONValue::Array(telemetry.keys().begin(), telemetry.keys().end())},
        {"pointCount", telemetry.pointCount()},
        {"dropped", toJSON(telemetry.dropped())},
    });
}

} // namespace veltry
