#pragma once

#include "Base/Date.h"

#include <concepts>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

/// The format of the side file that tells when each line of a log was first seen. Pure functions: no file is touched.
namespace veltry::RunLog {

/// One record: a line's first byte, counted in the log from 0, and when it was seen.
struct Stamp {
    /// The bytes of a record, always: offset in 15 digits, a blank, milliseconds since 1970-01-01 00:00 UTC in 13
    /// digits, a line feed. So the record of line n stands at byte 30 * (n - 1), and no reader has to scan.
    static constexpr std::size_t length = 30;

    std::uint64_t offset = 0;
    std::int64_t milliseconds = 0;

    /// Reads a record with any number of blanks around its two numbers; nothing for what isn't two decimal numbers that
    /// fit.
    [[nodiscard]] static std::optional<Stamp> parse(std::string_view record);
    /// The stamp of a line that was seen at a moment, to the nearest millisecond, halves away from zero.
    [[nodiscard]] static Stamp at(std::uint64_t offset, Date seen);

    [[nodiscard]] Date time() const { return Date::sinceUnixEpoch(static_cast<double>(milliseconds) / 1000.0); }

    /// Appends the record's 30 bytes. A number that is too long for its place keeps its last digits.
    void appendTo(std::string& records) const;

    friend bool operator==(const Stamp&, const Stamp&) = default;
};

/// Finds where the lines of a log begin, while the log comes in pieces that are cut anywhere.
class LineScanner {
public:
    /// Calls `found` with the offset of each line that begins in `piece`, which follows on the pieces before it. A line
    /// begins with its first byte: after a last line feed there is none yet.
    template <std::invocable<std::uint64_t> Found>
    void scan(std::string_view piece, Found found)
    {
        if (piece.empty())
            return;
        if (atLineStart_)
            found(offset_);
        const char* const begin = piece.data();
        const char* const end = begin + piece.size();
        const char* at = begin;
        while (const void* feed = std::memchr(at, '\n', static_cast<std::size_t>(end - at))) {
            at = static_cast<const char*>(feed) + 1;
            if (at == end)
                break;
            found(offset_ + static_cast<std::uint64_t>(at - begin));
        }
        atLineStart_ = piece.back() == '\n';
        offset_ += piece.size();
    }

    /// Bytes scanned so far.
    [[nodiscard]] std::uint64_t offset() const { return offset_; }

private:
    std::uint64_t offset_ = 0;
    bool atLineStart_ = true;
};

} // namespace veltry::RunLog
