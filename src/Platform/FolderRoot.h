#pragma once

#include "Platform/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace veltry {

/// A folder that holds what somebody else names, and is not left.
///
/// placeOf() follows the links of a path as they are at that moment; read() and writeAtomically() take the place that
/// it found and follow none. So a link that is swapped in between makes them fail and never leads outside. What isn't a
/// link isn't looked through: a second name of a file outside (a hard link) and a file system mounted inside count as
/// inside. May be called from any thread.
class FolderRoot {
public:
    /// Follows the links on the way to the folder itself. Nothing where no folder can be opened.
    [[nodiscard]] static std::optional<FolderRoot> open(const std::filesystem::path& folder);

    /// Where an absolute path without ".." lies below the root; its end may be missing. Nothing outside, for the root
    /// itself, and for a link that leads nowhere.
    [[nodiscard]] std::optional<std::filesystem::path> placeOf(const std::filesystem::path& path) const;

    /// The whole contents of a plain file. Throws SystemError, for anything else too: a pipe could block for ever.
    [[nodiscard]] std::string read(const std::filesystem::path& place) const;

    /// Replaces the contents in one step or makes the file, in a folder that is there. The permissions of a file that
    /// is there are kept. Throws SystemError, and then everything is as it was.
    void writeAtomically(const std::filesystem::path& place, std::string_view bytes) const;

private:
    FolderRoot(std::filesystem::path resolved, FileDescriptor folder)
        : resolved_(std::move(resolved)), folder_(std::move(folder))
    {
    }

    std::filesystem::path resolved_;
    FileDescriptor folder_;
};

} // namespace veltry
