#pragma once

#include "Base/Text.h"
#include "Experiments/Lab.h"
#include "Platform/ProcessFacts.h"
#include "Support/TestLab.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>

namespace veltry::test {

/// Runs a script of the shell in a folder. Throws with its errors if it fails.
inline void runScript(const std::filesystem::path& folder, const std::string& script)
{
    ChildProcess::Environment environment = ProcessFacts::environment();
    for (const char* name : {"GIT_AUTHOR_NAME", "GIT_AUTHOR_EMAIL", "GIT_COMMITTER_NAME", "GIT_COMMITTER_EMAIL"})
        environment[name] = "tester"; // also of repositories that the script makes
    const ChildProcess::Output output = ChildProcess::run(
        {.executable = "/bin/sh",
         .arguments = {"-e", "-c", script},
         .environment = std::move(environment),
         .directory = folder,
         .input = {},
         .output = {},
         .error = {}});
    if (output.exitNumber != 0)
        throw std::runtime_error(script + ": " + output.error);
}

/// A baseline with files and a child whose worktree is changed, each by a script of the shell.
struct ComparedNode {
    ComparedNode(TestLab& lab, const std::string& before, const std::string& after = "")
        : test(lab), parent(test.baseline("true")), node(afterCommit(before))
    {
        runScript(folder(), after);
    }

    [[nodiscard]] std::filesystem::path folder() const { return test.lab.worktree(node); }

    /// Commits the node's worktree and records a run of that commit with a result.
    void freeze()
    {
        runScript(folder(), "git add --all && git commit --quiet --no-verify --allow-empty -m frozen");
        const UUID id = UUID::random();
        test.store->insertRun(id, node, *Git(folder()).resolve("HEAD"), test.runs() / id.text());
        test.store->finishRun(id, Run::Status::succeeded, 0, "{}");
    }

    [[nodiscard]] Changes changes() const { return test.lab.changes(node); }

    TestLab& test;
    Experiment parent;
    Experiment node;

private:
    Experiment afterCommit(const std::string& before)
    {
        runScript(test.lab.worktree(parent), before + "\ngit add --all && git commit --quiet --allow-empty -m before");
        return test.child(parent, "Child");
    }
};

inline std::string shownAs(Changes::File::Shown shown)
{
    using enum Changes::File::Shown;
    return shown == lines ? "" : shown == binary ? " binary" : " tooLarge";
}

/// The files as text: a line for each file, hunk and line, with the numbers checked on the way.
inline std::string rendered(const std::vector<Changes::File>& files)
{
    std::string text;
    for (const Changes::File& file : files) {
        const std::string origin = file.oldPath ? *file.oldPath + " -> " : "";
        const std::string counts = file.added ? fmt::format(" +{} -{}", *file.added, file.removed.value()) : "";
        text += fmt::format("{} {}{}{}{}\n", toWord(file.kind), origin, file.path, counts, shownAs(file.shown));
        for (const Changes::Hunk& hunk : file.hunks) {
            text += fmt::format("@@ {} {} {}\n", hunk.oldStart, hunk.newStart, hunk.heading);
            std::int64_t oldNumber = hunk.oldStart;
            std::int64_t newNumber = hunk.newStart;
            for (const Changes::Line& line : hunk.lines) {
                using enum Changes::Line::Kind;
                const bool numbered =
                    line.oldNumber == (line.kind == added ? std::nullopt : std::optional(oldNumber)) &&
                    line.newNumber == (line.kind == removed ? std::nullopt : std::optional(newNumber));
                oldNumber += line.kind != added;
                newNumber += line.kind != removed;
                text += line.kind == added ? '+' : line.kind == removed ? '-' : ' ';
                text += line.text + (numbered ? "\n" : " (wrong number)\n");
            }
        }
    }
    return text;
}

} // namespace veltry::test
