#pragma once

#include "Experiments/Git.h"

#include <filesystem>
#include <string>
#include <vector>

namespace veltry {

/// The plain files and links below `folder`, relative to it, that are byte for byte and with their mode those of a
/// commit of `git`'s repository. What lies behind a link to a folder doesn't count, nor what a filter of git's changed
/// on its way. May be called from any thread. Throws Git::Failure where there is no such commit, or where a file goes
/// away meanwhile.
[[nodiscard]] std::vector<std::filesystem::path> filesAsCommitted(
    const Git& git, const std::string& commit, const std::filesystem::path& folder);

} // namespace veltry
