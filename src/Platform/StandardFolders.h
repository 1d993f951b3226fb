#pragma once

#include <filesystem>

/// The user's own folders.
namespace veltry::StandardFolders {

/// Where applications keep their data: `$XDG_DATA_HOME` if it is an absolute path, else `~/.local/share`.
[[nodiscard]] std::filesystem::path applicationSupport();

/// The home folder: `$HOME`, or else what the password database says.
[[nodiscard]] std::filesystem::path home();

} // namespace veltry::StandardFolders
