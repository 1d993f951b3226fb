#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

namespace veltry::FolderWalk {

struct Entry {
    /// Begins with the folder as it was given. Valid during the visit.
    std::string_view path;
    bool isFolder = false;
    /// As the disk has it: holes take none, and a small file takes a whole block.
    std::uint64_t bytesOnDisk = 0;
    /// Equal for all names of one file. Nothing where it has one name, and for a folder.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> identity{};
};

/// Visits the folder, if it is there, and everything below it, which may change meanwhile; a folder before what it
/// holds, else in no order. Links are not followed, and what may not be read is left out.
void visit(const std::filesystem::path& folder, const std::function<void(const Entry& entry)>& visitor);

} // namespace veltry::FolderWalk
