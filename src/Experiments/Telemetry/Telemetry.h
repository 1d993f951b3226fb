#pragma once

#include "Base/JSONValue.h"
#include "Base/Words.h"
#include "Experiments/Telemetry/TelemetryPath.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

class TelemetryLineReader;
struct TelemetryReading;

/// The numbers that a run reports while it works: the store in memory of its `telemetry.jsonl`.
///
/// The file grows by a line for each point, an object whose numbers are readings of their keys (docs/telemetry.md). It
/// is written by code that may be wrong, so nothing in it is a failure: what goes beyond the limits is refused and
/// counted by reason, and reading goes on after it. A reader keeps one value for a run and calls read() as often as it
/// likes. A plain value without locks: one thread at a time.
class Telemetry {
public:
    static constexpr std::size_t maxLineBytes = 4096;  ///< of a line, without its line feed
    static constexpr std::size_t maxKeysPerPoint = 64; ///< numbers of a line
    static constexpr std::size_t maxKeys = 256;        ///< different keys of a file
    static constexpr std::int32_t maxPoints = 200'000; ///< points of a file
    static constexpr std::size_t pieceBytes = 65'536;  ///< what read() holds of the file at once

    /// Why something was refused.
    enum class Drop { tooLong, notJSON, notObject, noNumbers, tooManyKeys, badKey, keysCap, pointsCap };

    struct DropWords {
        Drop value;
        std::string_view word;    ///< in JSON
        std::string_view one;     ///< what a count of 1 counts
        std::string_view several; ///< what any other count counts
    };

    using Drops = std::map<Drop, std::int64_t>;

    /// The readings of one key. In deques, so that a column grows without moving and takes little more memory than its
    /// readings, a double and a 32-bit number each.
    struct Column {
        std::deque<std::int32_t> seqs; ///< the points that have a reading, strictly rising
        std::deque<double> values;     ///< parallel to `seqs`, all of them finite
        friend bool operator==(const Column&, const Column&) = default;
    };

    /// One point as a value.
    struct Point {
        std::int32_t seq = 0;
        std::map<std::string, double> values; ///< by key
        friend bool operator==(const Point&, const Point&) = default;
    };

    /// Reads what the file has got since the last call, and returns whether that changed the points or what was
    /// refused. What stands after the last line feed may be half written and waits for the next call, unless the run
    /// has `finished`. A file that is missing, is no plain file or can't be read changes nothing, and so does one that
    /// became shorter; the next call tries again. Costs the new bytes, and memory of `pieceBytes`. Never fails.
    bool read(const std::filesystem::path& file, bool finished);

    /// Takes in the next bytes of a file, as read() does, without a file: all whole lines, and if it is `finished` what
    /// stands after them too. Returns how many bytes these were; the caller brings the rest again with more after it.
    std::size_t take(std::string_view bytes, bool finished);

    /// The keys in the order of their first reading.
    [[nodiscard]] const std::vector<std::string>& keys() const noexcept { return keys_; }

    /// How many points there are. They are numbered by arrival, from 1, so this is also the last one's `seq`.
    [[nodiscard]] std::int32_t pointCount() const noexcept { return pointCount_; }

    /// How much was refused. A reason that never occurred has no entry.
    [[nodiscard]] const Drops& dropped() const noexcept { return dropped_; }

    /// A key's readings, at least one; null for a key that was never read. Good until the next read().
    [[nodiscard]] const Column* column(std::string_view key) const;

    /// The point of that number; nothing if there is none.
    [[nodiscard]] std::optional<Point> point(std::int32_t seq) const;

    /// True for the spelling of a key, such as `eval.loss`.
    [[nodiscard]] static bool isPath(std::string_view text) { return isTelemetryPath(text); }

    /// What `count` of a reason counts, without the count itself: "lines with no numbers".
    [[nodiscard]] static std::string_view describe(Drop drop, std::int64_t count);

    /// The same readings and refusals from the same bytes. How far an unfinished line was searched doesn't count.
    friend bool operator==(const Telemetry& left, const Telemetry& right);

private:
    class Pass;

    /// A line longer than `maxLineBytes` of which nothing is kept: it is refused however it ends, unless it is blank.
    struct LongLine {
        std::uint64_t length = 0; ///< bytes so far; 0 for none
        bool blank = true;
        std::string start; ///< its first and its last bytes, by which it is known again
        std::string end;
    };

    void takeLine(std::string_view line, TelemetryLineReader& reader);
    void takeLongLine(const LongLine& line, std::uint64_t bytes);
    void addPoint(std::span<TelemetryReading> readings);
    [[nodiscard]] std::optional<std::size_t> columnFor(const std::string& key);

    std::vector<std::string> keys_;
    std::int32_t pointCount_ = 0;
    Drops dropped_;
    std::vector<Column> columns_;                           // parallel to keys_
    std::map<std::string, std::size_t, std::less<>> known_; // places in keys_
    std::uint64_t offset_ = 0;                              // how many bytes of the file its lines took
    LongLine unfinished_;                                   // after them, where it is too long to be read again
};

template <>
inline constexpr auto wordsOf<Telemetry::Drop> = std::to_array<Telemetry::DropWords>({
    {Telemetry::Drop::tooLong, "too_long", "line over 4 KiB", "lines over 4 KiB"},
    {Telemetry::Drop::notJSON, "not_json", "line that was not JSON", "lines that were not JSON"},
    {Telemetry::Drop::notObject, "not_object", "line of JSON that was not an object",
     "lines of JSON that were not an object"},
    {Telemetry::Drop::noNumbers, "no_numbers", "line with no numbers", "lines with no numbers"},
    {Telemetry::Drop::tooManyKeys, "too_many_keys", "line with more than 64 numbers",
     "lines with more than 64 numbers"},
    {Telemetry::Drop::badKey, "bad_key", "key not spelt in letters, digits, _ and -",
     "keys not spelt in letters, digits, _ and -"},
    {Telemetry::Drop::keysCap, "keys_cap", "key past the 256 a run keeps", "keys past the 256 a run keeps"},
    {Telemetry::Drop::pointsCap, "points_cap", "point past the 200,000 a run keeps",
     "points past the 200,000 a run keeps"},
});

/// The reasons by their names: `{"bad_key": 2}`.
[[nodiscard]] JSONValue toJSON(const Telemetry::Drops& dropped);

/// A summary without the readings: `keys`, `pointCount` and `dropped`.
[[nodiscard]] JSONValue toJSON(const Telemetry& telemetry);

} // namespace veltry
