#pragma once

#include "Experiments/RunLog/RunLog.h"
#include "Experiments/RunLog/StampReader.h"
#include "Platform/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::RunLog {

/// Reads a log onwards from its last lines while the run may still write: every line once and none left out, in memory
/// of a few `pieceBytes` however much the run prints and however long its lines are.
///
/// For one thread. Nothing here waits: a FileWatch tells when another look pays.
class Follower {
public:
    static constexpr std::size_t pieceBytes = 262'144;

    /// Begins with the last `count` lines, which it finds by reading backwards, as far as they reach. The log need not
    /// be there yet. Throws SystemError if it can't be read.
    Follower(std::filesystem::path log, std::int64_t count);

    /// A line, or a part of one that is longer than `pieceBytes`.
    struct Piece {
        Line line; ///< each part has its line's number and time
        bool begins = true;
        bool ends = true;
        friend bool operator==(const Piece&, const Piece&) = default;
    };

    /// What follows, the oldest first; nothing if no further line is whole yet. What stands after the last line feed
    /// is held back, until finish(). Throws SystemError.
    [[nodiscard]] std::vector<Piece> next();

    /// The run has ended: next() goes as far as the log reaches now, with an unfinished last line, and then gives
    /// nothing, even if a process in the background writes on for ever.
    void finish();

private:
    [[nodiscard]] bool open();
    [[nodiscard]] std::uint64_t startOfLast(std::int64_t count) const;
    void cut(std::vector<Piece>& pieces);
    void give(std::string_view bytes, bool ends, std::vector<Piece>& pieces);
    void number(Line& line);

    std::filesystem::path log_;
    FileDescriptor file_;
    std::string held_;        // what was read and not given yet
    std::uint64_t begin_ = 0; // where that stands in the log
    bool inLine_ = false;     // it goes on with a line whose beginning was given
    std::optional<std::uint64_t> end_;
    std::optional<StampReader> stamps_;
    std::optional<StampReader::Numbered> stamp_; // of the line at begin_ or a later one
    Line last_{.number = {}, .at = {}, .text = {}};
};

} // namespace veltry::RunLog
