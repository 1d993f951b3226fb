#pragma once

#include "Base/Date.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What a run prints, and when it printed each line.
///
/// A run writes into its `log` itself: no pipe and no program of ours stands between, so that the log survives our
/// crash and no reader can hold the run up. The times stand in a side file, which RunLog::Stamper (Stamper.h)
/// writes while the run goes on; Stamp.h has its format. All functions may be called from any thread and any
/// process while a stamper writes.
namespace veltry::RunLog {

struct Line {
    std::optional<std::int64_t> number; ///< from 1; nothing if no stamp tells it
    std::optional<Date> at;             ///< when its first byte was seen; nothing if it has no stamp (yet)
    std::string text;                   ///< valid UTF-8 without the line feed

    friend bool operator==(const Line&, const Line&) = default;
};

/// The side file of a log: `.times` after its name.
[[nodiscard]] std::filesystem::path times(const std::filesystem::path& log);

/// Replaces the side file of a finished log whose real times nobody knows: its first line was seen at `start`, each
/// further one `seconds` later. Throws SystemError; a failure on the way leaves the side file incomplete.
void stampWhole(const std::filesystem::path& log, Date start, double seconds);

/// At most `count` lines from the end of the log, oldest first. It never fails: what can't be read gives no lines.
///
/// It costs the same however long the log is, since it reads `count` * 400 + 4096 bytes of it: of a log with longer
/// lines fewer come back. Lines that the stamper hasn't reached are numbered on from the one before, without a time.
[[nodiscard]] std::vector<Line> tail(const std::filesystem::path& log, std::int64_t count);

} // namespace veltry::RunLog
