#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// One entry of a folder.
struct FolderEntry {
    std::filesystem::path path; ///< its path, which also tells it apart; of a link the link's own
    bool isDirectory = false;   ///< a folder, or a link that leads to one

    [[nodiscard]] std::string name() const { return path.filename().string(); }

    friend bool operator==(const FolderEntry&, const FolderEntry&) = default;
};

/// The contents of a folder in the order in which people look for them.
namespace FolderListing {

/// Names that are never listed.
inline constexpr std::array<std::string_view, 3> hidden{".git", ".DS_Store", ".veltry"};

/// The folder's own entries, dot files too: folders first, and within both by name as the user's language sorts, letter
/// case ignored and runs of digits compared as numbers. Throws SystemError if the folder can't be read.
[[nodiscard]] std::vector<FolderEntry> entries(const std::filesystem::path& in);

} // namespace FolderListing

} // namespace veltry
