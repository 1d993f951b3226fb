#include "Experiments/Git.h"
#include "Platform/Files.h"
#include "Support/Repository.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace veltry {
namespace {

using test::Repository;
using test::TemporaryFolder;
using testing::HasSubstr;

/// What the action throws, which has to be a failure of git.
Git::Failure failure(const std::function<void()>& action)
{
    try {
        action();
    } catch (const Git::Failure& caught) {
        return caught;
    }
    ADD_FAILURE() << "git didn't fail";
    return {"", ""};
}

TEST(Git, RunFailsWithWhatGitSaid)
{
    const Repository repository;
    const Git git(repository.path());
    const Git::Failure failed = failure([&] { git.run({"show", "no such thing"}); });
    EXPECT_EQ(failed.command, "git show no such thing");
    EXPECT_THAT(failed.output, testing::StartsWith("fatal: "));
    repository.write("README.md", "other ");
    const Git::Failure silent = failure([&] { git.run({"diff", "--check", "--exit-code"}); });
    EXPECT_THAT(silent.output, HasSubstr("trailing whitespace")) << "standard output stands in for empty errors";
    EXPECT_EQ(
        Git::Failure("git x", "say \"no\"\n").description(), R"(Failure(command: "git x", output: "say \"no\"\n"))");
    EXPECT_THROW(Git(repository.path() / "missing").run({"status"}), Git::Failure);
}

TEST(Git, ResolveAnswersForCommitsAlone)
{
    const Repository repository;
    const std::string head = repository.git({"rev-parse", "HEAD"});
    repository.git({"tag", "-a", "-m", "A tag", "v1"});
    const TemporaryFolder empty;
    const Git git(repository.path());
    for (const char* commit : {"refs/heads/main", "v1"})
        EXPECT_EQ(git.resolve(commit), head) << commit;
    for (const char* other : {"HEAD^{tree}", "HEAD:README.md", "refs/heads/other"})
        EXPECT_EQ(git.resolve(other), std::nullopt) << other;
    for (const std::filesystem::path& folder : {empty.path(), empty / "missing"})
        EXPECT_EQ(Git(folder).resolve("HEAD"), std::nullopt) << folder;
}

TEST(Git, TellsARepositoryAndItsTop)
{
    const Repository repository;
    Files::createFolders(repository / "deep/er");
    const TemporaryFolder empty;
    EXPECT_TRUE(Git(repository / "deep/er").isRepository());
    EXPECT_EQ(Git(repository / "deep/er").topLevel(), repository.path());
    for (const std::filesystem::path& folder : {repository / ".git", empty.path()}) {
        EXPECT_FALSE(Git(folder).isRepository()) << folder;
        EXPECT_THROW(static_cast<void>(Git(folder).topLevel()), Git::Failure) << folder;
    }
}

TEST(Git, AHooksVariablesDontLeadItAstray)
{
    const Repository hooked;
    const Repository repository;
    repository.write("own", "");
    const std::string head = repository.commit();
    ::setenv("GIT_DIR", (hooked / ".git").c_str(), 1);
    ::setenv("GIT_INDEX_FILE", (hooked / ".git/index").c_str(), 1);
    const Git git(repository.path());
    const std::optional<std::string> resolved = git.resolve("HEAD");
    const std::string files = git.run({"ls-files"}, {}, {{"GIT_INDEX_FILE", (hooked / "no index").string()}});
    const bool changed = git.hasChanges(repository.path());
    test::isolateGit();
    EXPECT_EQ(resolved, head);
    EXPECT_EQ(files, "") << "what the caller sets goes through";
    EXPECT_FALSE(changed);
}

TEST(Git, ExcludePrivatelyAddsALineOnceToTheFileThatWorktreesShare)
{
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {std::nullopt, "/.veltry/\n"},
        {"*.o", "*.o\n/.veltry/\n"},
        {"/.veltry/x\n", "/.veltry/x\n/.veltry/\n"},
        {"a\n/.veltry/\n\nb", "a\n/.veltry/\n\nb"},
    };

    const Repository repository;
    repository.git({"worktree", "add", "--quiet", "-b", "side", (repository / ".veltry/side").string()});
    const std::filesystem::path file = repository / ".git/info/exclude";
    for (const auto& [before, after] : cases) {
        std::filesystem::remove_all(file.parent_path());
        if (before)
            repository.write(".git/info/exclude", *before);
        for (const std::filesystem::path& folder : {repository / ".veltry/side", repository.path()}) {
            Git(folder).excludePrivately("/.veltry/");
            EXPECT_EQ(Files::read(file), after);
        }
        EXPECT_FALSE(Git(repository.path()).hasChanges(repository.path()));
    }
}

TEST(Git, CommitAllCommitsUnderThePersonsIdentityOrOurs)
{
    for (const bool identity : {true, false}) {
        const Repository repository({.identity = identity});
        repository.write("new/file", "x");
        repository.write("README.md", "changed");
        repository.write(".git/hooks/pre-commit", "#!/bin/sh\nexit 1\n");
        std::filesystem::permissions(repository / ".git/hooks/pre-commit", std::filesystem::perms::all);
        const Git git(repository.path());
        ASSERT_TRUE(git.hasChanges(repository.path()));
        git.commitAll(repository.path(), "Title: run 1");
        EXPECT_FALSE(git.hasChanges(repository.path()));
        EXPECT_EQ(
            repository.git({"log", "-1", "--format=%an <%ae> %s"}),
            identity ? "Tester <tester@example.org> Title: run 1" : "Harrowick Veltry <veltry@localhost> Title: run 1");
    }
}

TEST(Git, SnapshotFailsIfEitherHalfDoes)
{
    const Repository repository;
    const TemporaryFolder folder;
    const Git git(repository.path());
    const std::string missing(40, '1');
    const Git::Failure source = failure([&] { git.snapshot(missing, folder / "a"); });
    EXPECT_EQ(source.command, "git archive " + missing + " | tar -x");
    EXPECT_THAT(source.output, HasSubstr("fatal: not a")) << "though tar is content with nothing";
    Files::createFolders(folder / "b b/README.md/in the way");
    const Git::Failure sink = failure([&] { git.snapshot("HEAD", folder / "b b"); });
    EXPECT_THAT(sink.output, HasSubstr("README.md"));
}

} // namespace
} // namespace veltry
