#include "Experiments/RunLog/StampReader.h"

#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <string_view>

namespace veltry::RunLog {

StampReader::StampReader(const std::filesystem::path& sideFile, std::uint64_t first, std::uint64_t expected)
    : file_(Files::tryOpen(sideFile, Files::forReadingPlain))
{
    const auto isBefore = [&](std::uint64_t index) {
        const std::optional<Stamp> stamp = Stamp::parse(read(index, 1));
        return stamp && stamp->offset < first; // a damaged record is none to rely on: the search goes further back
    };
    const std::uint64_t count = Files::size(file_) / Stamp::length;
    std::uint64_t low = 0;
    std::uint64_t high = count;
    // From the end backwards in growing steps, so that the cost doesn't grow with the file, and then by bisection.
    for (std::uint64_t step = expected + 1; step < count; step *= 2) {
        if (isBefore(count - step)) {
            low = count - step + 1;
            break;
        }
        high = count - step;
    }
    while (low < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        if (isBefore(middle))
            low = middle + 1;
        else
            high = middle;
    }
    next_ = low;
}

std::optional<StampReader::Numbered> StampReader::next()
{
    while (true) {
        if (piece_.size() - at_ < Stamp::length) {
            piece_ = read(next_, recordsInPiece);
            at_ = 0;
            if (piece_.size() < Stamp::length)
                return std::nullopt;
        }
        const std::optional<Stamp> stamp = Stamp::parse(std::string_view(piece_).substr(at_, Stamp::length));
        at_ += Stamp::length;
        ++next_;
        if (stamp)
            return Numbered{.stamp = *stamp, .number = static_cast<std::int64_t>(next_)};
    }
}

std::string StampReader::read(std::uint64_t index, std::size_t count) const
{
    try {
        return Files::readAt(file_, index * Stamp::length, count * Stamp::length);
    } catch (const SystemError&) {
        return {}; // no plain side file: lines come without times
    }
}

} // namespace veltry::RunLog
