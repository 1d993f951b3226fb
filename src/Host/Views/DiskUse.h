#pragma once

#include "Experiments/Lab.h"
#include "Projects/Run.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// How much room projects take on the disk, and what of it can be freed because git has it.
namespace veltry::DiskUse {

/// In bytes as the disk has them, links not followed. 0 for what isn't there; what may not be read doesn't count.
[[nodiscard]] std::uint64_t weight(const std::filesystem::path& path);

struct Project {
    std::uint64_t snapshots = 0; ///< the runs' `src` folders
    std::uint64_t records = 0;   ///< logs, results, telemetry
    std::uint64_t worktrees = 0;
};
[[nodiscard]] Project project(const Lab& lab);

/// The `src` folder of a run that has ended.
struct Snapshot {
    struct File {
        std::filesystem::path path; ///< below `src`
        std::uint64_t bytes = 0;
    };

    std::vector<File> committed; ///< byte for byte those of the run's commit
    std::vector<File> own;       ///< whatever else lies there, the heaviest first
};
/// Empty for a run in flight. Throws Git::Failure where the commit is gone.
[[nodiscard]] Snapshot snapshot(const Lab& lab, const Run& run);

/// Looks again and removes what is `committed` then, and folders of the commit that this leaves empty. Returns
/// how many bytes this freed.
std::uint64_t release(const Lab& lab, const Run& run);

} // namespace veltry::DiskUse
