#pragma once

#include "Experiments/Git.h"
#include "Platform/Leftover.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace veltry {

/// A repository as git sees it without what its owner set up for diffs alone: the attributes in `info/attributes` and
/// the drivers that `diff.<name>.*` defines, for neither of which git has an option to leave it out.
///
/// Only where there are such settings a stand-in is made for the folder that a repository's worktrees share: a
/// temporary folder of links, with a configuration of its own, that nobody else can read. It goes away with this
/// object, and where a signal ends the process.
class NeutralRepository {
public:
    /// `common` is the shared folder (`git rev-parse --git-common-dir`), absolute. Throws what Git::run() throws, and
    /// SystemError if the stand-in can't be made.
    NeutralRepository(const Git& git, const std::filesystem::path& common);
    NeutralRepository(const NeutralRepository&) = delete;
    NeutralRepository& operator=(const NeutralRepository&) = delete;

    /// To be added to git's: it leads there, and undoes what the caller's own environment says of diffs and paths.
    [[nodiscard]] Git::Environment environment() const;

    /// From the output of `git config -z --list` a configuration file with what a comparison needs, but no diff
    /// drivers. Addresses and what proves somebody's identity to them are left out, except where blobs may have to be
    /// fetched (a partial clone). Nothing if there are no drivers.
    [[nodiscard]] static std::optional<std::string> withoutDrivers(std::string_view list);

private:
    void makeStandIn(const std::filesystem::path& common, const std::string* configuration);

    std::optional<ScratchFolder> standIn_; // nothing where none is needed
    bool ownConfiguration_ = false;
};

} // namespace veltry
