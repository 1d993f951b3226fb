#pragma once

#include "Experiments/Changes/Changes.h"
#include "Experiments/Git.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// Two states of a repository, compared by git.
///
/// git is asked for names and for counts first; these decide which files are asked for with their text, so that a huge
/// file costs a line and not its diff. Every setting that changes what git prints is given on the command line.
class Comparison {
public:
    struct Sides {
        std::filesystem::path folder; ///< the uppermost one of a work tree: git's paths are relative to it
        Git::Arguments revisions;     ///< as `git diff` takes them: two commits, or "--cached" and one
        Git::Environment environment; ///< added to git's
    };

    explicit Comparison(Sides sides) : sides_(std::move(sides)), git_(sides_.folder) {}

    /// Blocks while git works. Throws what Git::run() throws.
    [[nodiscard]] std::vector<Changes::File> files() const;

private:
    /// A file of the list. Its paths are bytes as git has them, since they go back to git.
    struct Entry {
        char status = 'M'; ///< git's letter
        std::optional<std::string> oldPath;
        std::string path;
        std::optional<std::int64_t> added;
        std::optional<std::int64_t> removed;
        bool chosen = false; ///< its text is to be shown
        bool isLast = false; ///< the last of the chosen ones
        std::optional<std::vector<Changes::Hunk>> hunks{};
    };

    using Entries = std::vector<Entry>;
    using Wanted = std::vector<Entry*>;

    [[nodiscard]] static Entries joined(std::string_view names, std::string_view counts);
    static void choose(Entries& entries);
    [[nodiscard]] static Changes::File file(Entry& entry);

    [[nodiscard]] Entries list() const;
    [[nodiscard]] Git::Arguments command(const Git::Arguments& options) const;
    void readText(Entries& entries) const;
    void read(const Wanted& wanted, const Git::Arguments& options, bool byPath = true) const;
    void readBatch(const Wanted& wanted, const Git::Arguments& options, const Git::Arguments& paths) const;

    Sides sides_;
    Git git_;
};

} // namespace veltry
