#pragma once

#include <filesystem>
#include <string_view>

/// Where a new project's folder is made.
namespace veltry::NewProjectFolder {

/// "HarrowickVeltry" in the user's home folder.
[[nodiscard]] std::filesystem::path defaultRoot();

/// Makes a new, empty folder named after the title in `parent`, which is made if it isn't there, and returns its path.
/// What a name can't hold is replaced or left out ("a/b" is "a-b", "..." is "Untitled"), and a name that is taken gets
/// a number after it, from 2. Several callers at once get a folder each. Throws SystemError.
[[nodiscard]] std::filesystem::path make(std::string_view named, const std::filesystem::path& in);

} // namespace veltry::NewProjectFolder
