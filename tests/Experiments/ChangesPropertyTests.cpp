#include "ComparedNode.h"
#include "Platform/Files.h"
#include "Support/Stress.h"

#include <gmock/gmock.h>

#include <map>
#include <random>

namespace veltry {
namespace {

using test::ComparedNode;
using test::stressed;

using Tree = std::map<std::string, std::string>;
using Lines = std::vector<std::string>;

/// Sorted behind all others, and without white space at its end, which alone git's text may lose.
const std::string lastFile = "\U0010FFFD";

class RandomTrees {
public:
    explicit RandomTrees(unsigned seed) : random_(seed) {}

    Tree tree()
    {
        Tree files{{lastFile, std::to_string(random_())}};
        for (const char* path : {"a", "b c", "d/e", "d/f*", "g\"", "h\ti", "ü"})
            if (below(3) > 0)
                files[path] = someText();
        return files;
    }

    Tree edited(Tree files)
    {
        files[lastFile] = std::to_string(random_());
        Tree result;
        for (auto& [path, contents] : files)
            switch (path == lastFile ? 0 : below(7)) {
            case 0:
                result[path] = contents;
                break;
            case 1:
                break;
            case 2:
                result[path + ".moved"] = contents;
                break;
            case 3:
                result["moved/" + path] = edited(contents);
                break;
            case 4:
                result[path] = someText();
                break;
            default:
                result[path] = edited(contents);
            }
        if (below(2) == 0)
            result["new"] = someText();
        if (below(2) == 0) // then git is asked for the others by name
            result["large"] = text::replacingAll(std::string(Changes::fileLimit + 1, '.'), ".", "x\n");
        return result;
    }

private:
    std::size_t below(std::size_t count) { return random_() % count; }

    std::string line()
    {
        static const std::vector<std::string_view> lines = text::split(
            "| |\t|a|b|c|}|@@ -1 +1 @@|@@ -3,2 +4 @@ f|diff --git a/x b/x|-- a/x|++ b/x|\\ No newline at end of file|"
            "Submodule x 1..2:|é|x\r|\f|\u00A0|\u2028",
            '|');
        return std::string(lines[below(lines.size())]);
    }

    std::string someText()
    {
        std::string result;
        for (std::size_t left = below(60); left > 0; --left)
            result += line() + '\n';
        if (!result.empty() && below(4) == 0)
            result.pop_back();
        return result;
    }

    std::string edited(std::string contents)
    {
        for (std::size_t left = 1 + below(4); left > 0; --left) {
            const std::size_t at = contents.empty() ? 0 : contents.find('\n', below(contents.size()));
            if (at == std::string::npos || below(2) == 0)
                contents.insert(at == std::string::npos ? 0 : at, "\n" + line());
            else
                contents.erase(at, contents.find('\n', at + 1) - at);
        }
        return contents;
    }

    std::mt19937 random_;
};

void replaceFiles(const std::filesystem::path& folder, const Tree& files)
{
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().filename() != ".git")
            std::filesystem::remove_all(entry.path());
    for (const auto& [path, contents] : files) {
        Files::createFolders((folder / path).parent_path());
        Files::writeAtomically(folder / path, contents);
    }
}

Lines linesOf(std::string_view contents)
{
    if (contents.ends_with('\n'))
        contents.remove_suffix(1);
    else if (contents.empty())
        return {};
    Lines lines;
    for (const std::string_view line : text::split(contents, '\n'))
        lines.emplace_back(line);
    return lines;
}

/// The new side of a file, from its old side and the hunks that are shown, each line of which has to fit.
Lines applied(const Lines& before, const Changes::File& file)
{
    Lines after;
    std::size_t next = 0; // of the old side
    for (const Changes::Hunk& hunk : file.hunks) {
        for (const Changes::Line& line : hunk.lines) {
            using enum Changes::Line::Kind;
            if (line.kind == added) {
                while (after.size() + 1 < static_cast<std::size_t>(*line.newNumber))
                    after.push_back(before.at(next++));
            } else {
                while (next + 1 < static_cast<std::size_t>(*line.oldNumber))
                    after.push_back(before.at(next++));
                EXPECT_EQ(before.at(next), line.text);
                ++next;
            }
            if (line.kind != removed) {
                after.push_back(line.text);
                EXPECT_EQ(std::ssize(after), line.newNumber);
            }
        }
    }
    after.insert(after.end(), before.begin() + static_cast<std::ptrdiff_t>(next), before.end());
    return after;
}

TEST(ChangesProperty, TheOldSideWithTheHunksIsTheNewSide)
{
    test::TestLab test;
    const unsigned seeds = stressed(300U);
    for (unsigned seed = 0; seed < seeds; ++seed) {
        RandomTrees random(seed);
        const Tree before = random.tree();
        const ComparedNode compared(test, ":");
        replaceFiles(test.lab.worktree(compared.parent), before);
        test::runScript(test.lab.worktree(compared.parent), "git add --all; git commit -q -m before");
        const Experiment node = test.child(compared.parent, "Child");
        for (int round = 0; round < 10; ++round) {
            SCOPED_TRACE(fmt::format("seed {}, round {}", seed, round));
            Tree rest = before;
            const Tree after = random.edited(before);
            replaceFiles(test.lab.worktree(node), after);
            const Changes changes = test.lab.changes(node);
            Tree unshown = after;
            for (const Changes::File& file : changes.files) {
                SCOPED_TRACE(file.path);
                const std::string old = before.contains(file.oldPath.value_or(file.path))
                                            ? before.at(file.oldPath.value_or(file.path))
                                            : "";
                const Lines wanted = after.contains(file.path) ? linesOf(after.at(file.path)) : Lines();
                ASSERT_EQ(file.path == "large" ? wanted : applied(linesOf(old), file), wanted);
                rest.erase(file.oldPath.value_or(file.path));
                unshown.erase(file.path);
            }
            EXPECT_EQ(unshown, rest) << "what isn't shown hasn't changed";
        }
    }
}

} // namespace
} // namespace veltry
