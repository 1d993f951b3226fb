#pragma once

#include "Host/Doctor/Finding.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace veltry {

class ProjectStore;

/// The store, where it lies, and the settings.
namespace StoreFindings {

struct Store {
    enum class State {
        absent,
        sound,
        ill,     ///< it opens, but not all of it is whole
        damaged, ///< it can't be read; it may be set aside
        newer,   ///< a newer version made it
        busy,
        refused, ///< may not be opened
    };
    State state = State::absent;
    Finding finding;
    std::shared_ptr<ProjectStore> store; ///< where it could be opened
};

/// Reads all of it, if it is there, and opens it if it is sound. What isn't is left as it was found, with its WAL.
[[nodiscard]] Store store(const std::filesystem::path& path);

/// The file systems of the store and of the runs, and what is free there.
[[nodiscard]] std::vector<Finding> places(const std::filesystem::path& store, const std::filesystem::path& runs);
/// Whether that is enough. Pure.
[[nodiscard]] Finding freeDisk(std::uint64_t freeBytes);

/// Projects whose folder is gone.
[[nodiscard]] std::vector<Finding> projects(const ProjectStore& store);

/// A finding for each warning about the settings file, or one that says that all is well.
[[nodiscard]] std::vector<Finding> settings(const std::filesystem::path& file);

} // namespace StoreFindings

} // namespace veltry
