#include "Base/Text.h"
#include "Experiments/Changes/Comparison.h"
#include "Experiments/Changes/NeutralRepository.h"
#include "Experiments/Lab.h"
#include "Platform/Files.h"
#include "Platform/Leftover.h"
#include "Platform/SystemError.h"

#include <fmt/format.h>

namespace veltry {

namespace {

constexpr std::size_t shortCommit = 7;
constexpr int stagingAttempts = 100;

/// What one node is compared with, and how that is called.
struct Counterpart {
    std::string reference;
    std::string name;
};

/// What the repository has checked out: a branch, or a commit without one.
Counterpart checkedOut(const Git& git)
{
    std::string name;
    try {
        name = git.run({"symbolic-ref", "--short", "--quiet", "HEAD"});
    } catch (const Git::Failure&) { // no branch
        name = git.resolve("HEAD").value_or("HEAD").substr(0, shortCommit);
    }
    return {.reference = "HEAD", .name = std::move(name)};
}

/// git's messages as isMomentary() knows them, whatever language the person reads.
const Git::Environment plainWords{{"LC_ALL", "C.UTF-8"}, {"LANGUAGE", ""}};

/// git maps large files, and whoever reads of a map what was cut off the file is ended by the system.
bool readsWhatShrank(const Git::Failure& failure)
{
    return failure.exitNumber == ChildProcess::endedByLostBytes;
}

/// True if git gave up only because a file went away or shrank between two looks at it.
bool isMomentary(const Git::Failure& failure)
{
    if (readsWhatShrank(failure))
        return true;
    const std::string_view errors = failure.output;
    for (const std::string_view line : text::split(errors, '\n')) {
        const bool isError = line.starts_with("error: ") || line.starts_with("fatal: ");
        const bool isCause = line.ends_with(": No such file or directory") || line.contains("short read");
        const bool isConsequence = line.starts_with("error: unable to index file") || line.ends_with("files failed") ||
                                   line.ends_with(": failed to insert into database");
        if (isError && !isCause && !isConsequence)
            return false;
    }
    return errors.contains(": No such file or directory") || errors.contains("short read");
}

/// A worktree's index as a file of ours, in which everything can be staged. The worktree's own is only read, so that
/// git's lock on it is of no concern.
class StagedCopy {
public:
    StagedCopy(const Git& git, const std::filesystem::path& worktree, const std::filesystem::path& index)
        : folder_("veltry-index"), path_(folder_ / "index")
    {
        copy(index);
        stage(git, worktree);
    }

    [[nodiscard]] Git::Environment environment() const { return {{"GIT_INDEX_FILE", path_.string()}}; }

private:
    /// With the time of the original: git reads a file whose size and times are those of its entry only if they aren't
    /// older than the index, and would miss a change of the same moment in a copy that seems younger.
    void copy(const std::filesystem::path& index) const
    {
        std::error_code error;
        const auto time = std::filesystem::last_write_time(index, error); // before the copy: too old is only slower
        if (error)
            return; // the staging starts empty
        try {
            Files::copy(index, path_);
        } catch (const SystemError&) {
            Files::remove(path_); // as well; not a part of it
            return;
        }
        std::filesystem::last_write_time(path_, time, error);
        if (error)
            Files::remove(path_);
    }

    /// Somebody who writes at that moment is met by trying again.
    void stage(const Git& git, const std::filesystem::path& worktree) const
    {
        Git::Environment own = environment();
        own.insert(plainWords.begin(), plainWords.end());
        for (int left = stagingAttempts - 1;; --left)
            try {
                git.run({"add", "--all"}, worktree, own);
                return;
            } catch (const Git::Failure& failure) {
                if (left == 0 || !isMomentary(failure))
                    throw;
                Files::remove(path_.string() + ".lock"); // of a git that was killed
            }
    }

    ScratchFolder folder_;
    std::filesystem::path path_;
};

/// The places that `git rev-parse` names, one a line: `option` and the folder that all worktrees share.
struct Places {
    std::filesystem::path asked;
    std::filesystem::path common;
};

Places places(const Git& git, const std::filesystem::path& in, Git::Arguments option)
{
    Git::Arguments arguments{"rev-parse", "--path-format=absolute"};
    arguments.insert(arguments.end(), option.begin(), option.end());
    arguments.emplace_back("--git-common-dir");
    const std::string lines = git.run(arguments, in);
    const std::size_t end = lines.find("\n/"); // a path may hold a line feed, but hardly at the end of a folder's name
    if (end == std::string::npos)
        return {.asked = lines, .common = {}};
    return {.asked = lines.substr(0, end), .common = lines.substr(end + 1)};
}

/// The worktree as it stands.
std::vector<Changes::File> workingFiles(const Git& git, const std::filesystem::path& worktree, const std::string& base)
{
    const Places found = places(git, worktree, {"--git-path", "index"});
    const NeutralRepository neutral(Git(worktree), found.common);
    const StagedCopy index(git, worktree, found.asked);
    Git::Environment environment = neutral.environment();
    environment.merge(index.environment());
    Comparison::Sides sides{.folder = worktree, .revisions = {"--cached", base}, .environment = std::move(environment)};
    try {
        return Comparison(sides).files();
    } catch (const Git::Failure& failure) {
        if (!readsWhatShrank(failure))
            throw;
    }
    // What is staged can be read from the worktree as well, and git does; of two trees it reads neither from there. The
    // tree isn't made each time, since it stays in the repository.
    sides.revisions = {base, git.run({"write-tree"}, worktree, sides.environment)};
    return Comparison(std::move(sides)).files();
}

std::vector<Changes::File> committedFiles(const Git& git, const std::string& base, const std::string& tip)
{
    const Places found = places(git, git.directory, {"--show-toplevel"});
    const NeutralRepository neutral(git, found.common);
    return Comparison({.folder = found.asked, .revisions = {base, tip}, .environment = neutral.environment()}).files();
}

} // namespace

Changes Lab::changes(const Experiment& node) const
try {
    const Git git = repository();
    std::optional<Experiment> parent;
    if (node.parentID)
        parent = experiment(*node.parentID);
    const ExperimentTree look = alone(node);
    const Run* answer = look.nodes().front().answer;
    const bool frozen = look.nodes().front().isFrozen();

    const Counterpart counterpart =
        parent ? Counterpart{.reference = Git::branchReference(parent->branch), .name = parent->branch}
               : checkedOut(git);
    const std::string tip = answer ? answer->commit : Git::branchReference(node.branch);
    const std::optional<std::string> tipCommit = git.resolve(tip);
    if (!tipCommit)
        throw LabError(
            LabError::Code::branchMissing, fmt::format("The branch {} is gone.", node.branch), {.branch = node.branch});
    if (!git.resolve(counterpart.reference))
        throw LabError(
            LabError::Code::branchMissing, fmt::format("{} is gone from the repository.", counterpart.name),
            {.branch = counterpart.name});

    Changes changes{
        .base = git.run({"merge-base", counterpart.reference, tip}),
        .against = counterpart.name,
        .frozen = frozen,
        .files = {}};
    const std::filesystem::path folder = worktree(node);
    changes.files = !frozen && Files::exists(folder / ".git") ? workingFiles(git, folder, changes.base)
                                                              : committedFiles(git, changes.base, *tipCommit);
    return changes;
} catch (const Git::Failure& failure) {
    throw LabError::of(failure);
}

} // namespace veltry
