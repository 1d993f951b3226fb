#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

/// The file system on which something lies.
namespace veltry::FileSystemFacts {

struct FileSystem {
    std::string type; ///< as the system calls it: "ext4", "nfs4"; may be empty
    /// Other machines may have it too. Locks and shared memory then can't be relied on, and changes aren't told.
    bool isNetwork = false;
    std::uint64_t freeBytes = 0; ///< for us, without what is kept for the administrator
};

/// Where `path` lies, or would lie: nothing need be there yet. Nothing if it can't be told.
[[nodiscard]] std::optional<FileSystem> of(const std::filesystem::path& path);

/// Whether a type's name is that of a network file system.
[[nodiscard]] bool isNetworkType(std::string_view type);

} // namespace veltry::FileSystemFacts
