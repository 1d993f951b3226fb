#pragma once

#include "Experiments/RunLog/Stamp.h"
#include "Platform/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace veltry::RunLog {

/// The records of a side file from the first one that may matter, read in pieces. The file may grow meanwhile.
class StampReader {
public:
    /// Finds the first record whose offset isn't below `first`, where `expected` records are thought to follow. A side
    /// file that can't be read has no records.
    StampReader(const std::filesystem::path& sideFile, std::uint64_t first, std::uint64_t expected);

    /// Whether the side file could be opened.
    [[nodiscard]] bool isOpen() const { return static_cast<bool>(file_); }

    struct Numbered {
        Stamp stamp;
        std::int64_t number; ///< of the line, from 1: a damaged record counts too
    };

    /// The next record that isn't damaged; nothing at the end, after which a later call may find more.
    std::optional<Numbered> next();

private:
    static constexpr std::size_t recordsInPiece = 500;

    [[nodiscard]] std::string read(std::uint64_t index, std::size_t count) const;

    FileDescriptor file_;
    std::uint64_t next_ = 0;
    std::string piece_;
    std::size_t at_ = 0;
};

} // namespace veltry::RunLog
