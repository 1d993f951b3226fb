#pragma once

#include "Base/Error.h"
#include "Platform/ChildProcess.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// The git commands of one folder, run by `/usr/bin/git`. A value without state, which any number of threads may use.
///
/// Every operation blocks until git has ended; there is no time limit. git never stops to ask for a password
/// (GIT_TERMINAL_PROMPT=0). It gets our environment without the variables that name a repository (GIT_DIR,
/// GIT_WORK_TREE, GIT_INDEX_FILE and their kind): a program that was started from a hook inherits those of the hook's
/// repository, and they would win over the folder.
///
/// Unless said otherwise an operation throws Failure if git says no, and ChildProcess::StartFailure or SystemError if
/// git can't be run.
class Git {
public:
    /// A command that ended with another status than 0.
    struct Failure : Error {
        Failure(std::string what, std::string said, int status = 1)
            : command(std::move(what)), output(std::move(said)), exitNumber(status)
        {
        }

        /// `Failure(command: "git status", output: "fatal: ...")`.
        [[nodiscard]] std::string description() const override;

        friend bool operator==(const Failure& left, const Failure& right)
        {
            return left.command == right.command && left.output == right.output;
        }

        std::string command; ///< "git" and the arguments joined by blanks, without the folder
        std::string output;  ///< what git said on standard error or, if that is empty, on standard output
        int exitNumber;      ///< 128 + n if signal n ended it
    };

    using Arguments = std::vector<std::string>;
    using Environment = ChildProcess::Environment;

    /// `folder` is absolute and the default of every command.
    explicit Git(std::filesystem::path folder) : directory(std::move(folder)) {}

    /// Standard output as valid UTF-8 without white space at both ends; NUL characters, as git's `-z` forms write them,
    /// stay. `in` is another folder to work in; `environment` is added to git's and replaces what has the same name.
    std::string run(
        const Arguments& arguments, const std::optional<std::filesystem::path>& in = {},
        const Environment& environment = {}) const;
    /// The same, but standard output as it came: for paths, which are bytes.
    [[nodiscard]] std::string output(
        const Arguments& arguments, const std::optional<std::filesystem::path>& in = {},
        const Environment& environment = {}) const;

    /// The full id of the commit that a revision names. Nothing if it names none, and for any failure.
    [[nodiscard]] std::optional<std::string> resolve(std::string_view revision) const;
    /// "refs/heads/<branch>": names the branch whatever tags and files are called.
    [[nodiscard]] static std::string branchReference(std::string_view branch);

    /// True if the folder lies in a work tree. False for any failure.
    [[nodiscard]] bool isRepository() const;
    /// The work tree's uppermost folder, absolute and free of links. Fails with git's words in English.
    [[nodiscard]] std::filesystem::path topLevel() const;

    /// Makes `entry` a line of the repository's `info/exclude`, which no commit ever holds, unless it is one already.
    /// From a linked work tree it reaches the file that all its siblings share.
    void excludePrivately(std::string_view entry) const;

    /// Whether commits made in `in` bear the person's own name; else they bear one of ours. False for any failure.
    [[nodiscard]] bool hasIdentity(const std::filesystem::path& in) const;
    /// True if the work tree `in` differs from its commit; files that git ignores don't count.
    [[nodiscard]] bool hasChanges(const std::filesystem::path& in) const;
    /// Commits all that hasChanges() sees, under the person's identity or, if none is configured, under one of ours.
    /// The repository's pre-commit and commit-msg hooks don't run.
    void commitAll(const std::filesystem::path& in, const std::string& message) const;

    /// Makes the folder a repository, whose first commit holds all that lies in it, under the identity that commitAll()
    /// takes. The branch is what `init.defaultBranch` says or, where that isn't configured, "main".
    void initialize(const std::string& message) const;

    /// A text file of a commit, as run() gives output. Nothing if the commit has no such file, and for any failure.
    [[nodiscard]] std::optional<std::string> fileOf(std::string_view commit, std::string_view path) const;

    /// Writes the files of a commit into the folder `to`, which is made if it isn't there, without any of git's own.
    void snapshot(const std::string& commit, const std::filesystem::path& to) const;

    std::filesystem::path directory;

private:
    /// The value of a configuration variable; empty where there is none, and for any failure.
    [[nodiscard]] std::string configured(const std::string& key, const std::filesystem::path& in) const;
    void commitAll(const std::filesystem::path& in, const std::string& message, const Arguments& options) const;
};

} // namespace veltry
