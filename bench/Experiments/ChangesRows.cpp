#include "Experiments/Lab.h"
#include "Platform/Files.h"
#include "Programs.h"
#include "Repository.h"
#include "Rows.h"

#include <fmt/format.h>

#include <stdexcept>

namespace veltry::bench {

namespace {

/// Changes as an agent leaves them: some files edited, one new, nothing added or committed.
constexpr std::int64_t editedFiles = 10;

/// A node whose worktree has `files` files of `lines` lines.
class ComparedNode {
public:
    ComparedNode(const Workplace& place, std::int64_t files, std::int64_t lines, std::int64_t edits)
        : place_(place), lab_(makeLabOf(place, files, lines)),
          parent_(lab_.create({.title = "Base", .notes = {}, .parent = {}, .runCommand = "true", .conversation = {}})),
          node_(lab_.create({.title = "Node", .notes = {}, .parent = parent_.id, .runCommand = {}, .conversation = {}}))
    {
        const std::filesystem::path tree = lab_.worktree(node_);
        for (std::int64_t number = 0; number < edits; ++number)
            Files::writeAtomically(moduleFile(tree, number), moduleText(number, lines, " + 1"));
        if (edits > 1)
            Files::writeAtomically(tree / "new.py", moduleText(1, lines));
        expected_ = edits > 1 ? edits + 1 : edits;
    }

    [[nodiscard]] double ours() const
    {
        return secondsOf([&] {
            if (std::ssize(lab_.changes(node_).files) != expected_)
                throw std::runtime_error("the comparison shows other files");
        });
    }

    /// The same by the command of a person.
    [[nodiscard]] double command() const
    {
        return secondsOf([&] { runProgram(veltryCommand(place_, {"diff", node_.slug}, &lab_)); });
    }

    /// The commands that a comparison can't do without, in a shell.
    [[nodiscard]] double limit() const
    {
        constexpr const char* diff = "git -C \"$tree\" --literal-pathspecs -c core.quotePath=false diff --no-color "
                                     "--no-ext-diff -M";
        const std::string script = fmt::format(
            R"script(set -e
repository='{0}' tree='{1}' target='{2}' parent='refs/heads/{3}' branch='refs/heads/{4}'
git -C "$repository" rev-parse --verify --quiet "$branch^{{commit}}" >"$target/commits"
git -C "$repository" rev-parse --verify --quiet "$parent^{{commit}}" >>"$target/commits"
base=$(git -C "$repository" merge-base "$parent" "$branch")
cp -p "$(git -C "$tree" rev-parse --path-format=absolute --git-path index)" "$target/index"
export GIT_INDEX_FILE="$target/index"
git -C "$tree" add --all
{5} --name-status -z --cached "$base" -- >"$target/names"
{5} --numstat -z --cached "$base" -- >"$target/counts"
{5} --unified=3 --cached "$base" -- >"$target/text"
rm "$target/index"
)script",
            lab_.project.folders.front().string(), lab_.worktree(node_).string(), place_.folder.string(),
            parent_.branch, node_.branch, diff);
        return secondsOf([&] { runScript(script); });
    }

private:
    static Lab makeLabOf(const Workplace& place, std::int64_t files, std::int64_t lines)
    {
        const std::filesystem::path repository = place.folder / "repository";
        makeRepository(repository, files, lines);
        return makeLab(place.folder, repository, place.tools);
    }

    const Workplace& place_;
    Lab lab_;
    Experiment parent_;
    Experiment node_;
    std::int64_t expected_ = 0;
};

} // namespace

Measured comparison(const Workplace& place)
{
    const ComparedNode node(place, 200, 60, editedFiles);
    return interleaved(40, [&] { return node.ours(); }, [&] { return node.limit(); }, least);
}

Measured diffCommand(const Workplace& place)
{
    const ComparedNode node(place, 200, 60, editedFiles);
    return interleaved(40, [&] { return node.command(); }, [&] { return node.limit(); }, least);
}

Measured largeComparison(const Workplace& place)
{
    const ComparedNode node(place, 50'000, 3, 1);
    return interleaved(12, [&] { return node.ours(); }, [&] { return node.limit(); }, least);
}

} // namespace veltry::bench
