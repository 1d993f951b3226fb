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

TEST(Git, RunGivesTheStrippedOutputAndPassesArgumentsWhole)
{
    const Repository repository;
    repository.write("a b.txt", "\n  text \n\n");
    repository.write("z", "");
    repository.commit();
    const Git git(repository.path());
    EXPECT_EQ(git.run({"show", "HEAD:a b.txt"}), "text");
    EXPECT_EQ(git.run({"ls-files", "-z", "a b.txt"}), std::string("a b.txt\0", 8));
    EXPECT_EQ(Git("/").run({"rev-parse", "--abbrev-ref", "HEAD"}, repository.path()), "main");
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

    const struct {
        std::string_view name;
        std::filesystem::path folder;
        std::string revision;
        bool resolves;
    } cases[] = {
        {"a branch", repository.path(), "refs/heads/main", true},
        {"an annotated tag", repository.path(), "v1", true},
        {"a tree", repository.path(), "HEAD^{tree}", false},
        {"a blob", repository.path(), "HEAD:README.md", false},
        {"an unknown branch", repository.path(), "refs/heads/other", false},
        {"no repository", empty.path(), "HEAD", false},
        {"no folder", empty / "missing", "HEAD", false},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Git(c.folder).resolve(c.revision), c.resolves ? std::optional(head) : std::nullopt);
    }
}

TEST(Git, TellsARepositoryAndItsTop)
{
    const Repository repository;
    Files::createFolders(repository / "deep/er");
    const TemporaryFolder empty;
    EXPECT_TRUE(Git(repository / "deep/er").isRepository());
    EXPECT_EQ(Git(repository / "deep/er").topLevel(), repository.path());
    EXPECT_FALSE(Git(repository / ".git").isRepository());
    EXPECT_EQ(Git(repository / ".git").topLevel(), std::nullopt);
    EXPECT_FALSE(Git(empty.path()).isRepository());
    EXPECT_EQ(Git(empty.path()).topLevel(), std::nullopt);
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

TEST(Git, ExcludePrivatelyAddsALineOnce)
{
    const struct {
        std::string_view name;
        std::optional<std::string> before;
        std::string after;
    } cases[] = {
        {"no file", std::nullopt, "/.veltry/\n"},
        {"no last line feed", "*.o", "*.o\n/.veltry/\n"},
        {"the entry is part of a line", "/.veltry/x\n", "/.veltry/x\n/.veltry/\n"},
        {"there already", "a\n/.veltry/\n\nb", "a\n/.veltry/\n\nb"},
    };

    const Repository repository;
    const std::filesystem::path file = repository / ".git/info/exclude";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(file.parent_path());
        if (c.before)
            repository.write(".git/info/exclude", *c.before);
        for (int time = 0; time < 2; ++time) {
            Git(repository.path()).excludePrivately("/.veltry/");
            EXPECT_EQ(Files::read(file), c.after);
        }
    }
}

TEST(Git, ExcludePrivatelyReachesTheSharedFileFromALinkedWorktree)
{
    const Repository repository;
    repository.git({"worktree", "add", "--quiet", "-b", "side", (repository / ".veltry/side").string()});
    EXPECT_TRUE(Git(repository.path()).hasChanges(repository.path()));
    Git(repository / ".veltry/side").excludePrivately("/.veltry/");
    EXPECT_FALSE(Git(repository.path()).hasChanges(repository.path()));
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

TEST(Git, SnapshotWritesACommitsFilesWithoutGitsOwn)
{
    const Repository repository;
    repository.write("code/train.py", "print(1)\n");
    const std::string first = repository.commit();
    repository.write("code/train.py", "print(2)\n");
    repository.commit();
    const TemporaryFolder folder;
    const std::filesystem::path target = folder / "run/src it";
    Git(repository.path()).snapshot(first, target);
    EXPECT_EQ(Files::read(target / "code/train.py"), "print(1)\n");
    EXPECT_FALSE(Files::exists(target / ".git"));
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
    Files::createFolders(folder / "b/README.md/in the way");
    const Git::Failure sink = failure([&] { git.snapshot("HEAD", folder / "b"); });
    EXPECT_THAT(sink.output, HasSubstr("README.md"));
}

} // namespace
} // namespace veltry
