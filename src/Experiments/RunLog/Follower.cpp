#include "Experiments/RunLog/Follower.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <algorithm>
#include <string_view>

namespace veltry::RunLog {

namespace {

/// The longest start of `bytes`, of which there are more than `limit`, that doesn't end within a character.
std::size_t wholeCharacters(std::string_view bytes, std::size_t limit)
{
    std::size_t end = limit;
    // A character of UTF-8 has at most three bytes after its first.
    for (int back = 0; back < 3 && (bytes[end] & 0xC0) == 0x80; ++back)
        --end;
    return end;
}

} // namespace

Follower::Follower(std::filesystem::path log, std::int64_t count) : log_(std::move(log))
{
    if (open())
        begin_ = startOfLast(count);
}

bool Follower::open()
{
    if (!file_ && Files::exists(log_))
        file_ = Files::open(log_, Files::forReadingPlain);
    return static_cast<bool>(file_);
}

std::uint64_t Follower::startOfLast(std::int64_t count) const
{
    std::uint64_t end = Files::size(file_);
    if (end == 0)
        return 0;
    if (Files::readAt(file_, end - 1, 1) == "\n") {
        if (count < 1)
            return end;
        --end; // the last line feed begins no line
    }
    for (std::int64_t found = 0; end > 0;) {
        const std::uint64_t start = end - std::min<std::uint64_t>(end, pieceBytes);
        const std::string piece = Files::readAt(file_, start, end - start);
        for (std::size_t feed = piece.rfind('\n'); feed != std::string::npos; feed = piece.rfind('\n', feed - 1)) {
            if (++found >= count)
                return start + feed + 1;
            if (feed == 0)
                break;
        }
        end = start;
    }
    return 0;
}

std::vector<Follower::Piece> Follower::next()
{
    std::vector<Piece> pieces;
    if (!open())
        return pieces;
    // The side file may be made after the log.
    if (!stamps_ || !stamps_->isOpen())
        stamps_.emplace(times(log_), begin_, 0);
    while (pieces.empty()) {
        const std::uint64_t at = begin_ + held_.size();
        const std::uint64_t end = end_.value_or(Files::size(file_));
        const std::string read =
            at < end ? Files::readAt(file_, at, std::min<std::uint64_t>(pieceBytes, end - at)) : std::string();
        if (read.empty()) {
            // After the end of the run nothing more comes to complete the line.
            if (end_ && !held_.empty()) {
                give(held_, true, pieces);
                held_.clear();
            }
            break;
        }
        held_ += read;
        cut(pieces);
    }
    return pieces;
}

void Follower::finish()
{
    end_ = open() ? Files::size(file_) : 0;
}

void Follower::cut(std::vector<Piece>& pieces)
{
    const std::string_view bytes = held_;
    std::size_t start = 0;
    for (std::size_t feed = bytes.find('\n'); feed != std::string::npos; feed = bytes.find('\n', start)) {
        give(bytes.substr(start, feed - start), true, pieces);
        start = feed + 1;
        ++begin_;
    }
    // A progress bar may never end its line; it is shown in pieces.
    if (bytes.size() - start > pieceBytes) {
        const std::size_t length = wholeCharacters(bytes.substr(start), pieceBytes);
        give(bytes.substr(start, length), false, pieces);
        start += length;
    }
    held_.erase(0, start);
}

void Follower::give(std::string_view bytes, bool ends, std::vector<Piece>& pieces)
{
    if (!inLine_)
        number(last_);
    Piece piece{.line = last_, .begins = !inLine_, .ends = ends};
    piece.line.text = text::repaired(bytes);
    pieces.push_back(std::move(piece));
    begin_ += bytes.size();
    inLine_ = !ends;
}

void Follower::number(Line& line)
{
    while (!stamp_ || stamp_->stamp.offset < begin_)
        if (stamp_ = stamps_->next(); !stamp_)
            break;
    line.at.reset();
    if (stamp_ && stamp_->stamp.offset == begin_) {
        line.number = stamp_->number;
        line.at = stamp_->stamp.time();
    } else if (begin_ == 0) { // before the stamper has come to it
        line.number = 1;
    } else if (line.number) {
        line.number = *line.number + 1;
    }
}

} // namespace veltry::RunLog
