#include "ComparedNode.h"
#include "Experiments/Changes/NeutralRepository.h"
#include "Platform/Files.h"
#include "Refusal.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <thread>

namespace veltry {
namespace {

using test::ComparedNode;
using test::refusal;
using test::rendered;
using test::runScript;
using test::TestLab;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class ChangesTest : public testing::Test {
protected:
    TestLab test;
};

TEST_F(ChangesTest, ShowsEveryFormOfAChangeWithItsOwnHunks)
{
    const struct {
        std::string_view name;
        std::string before, after, expected;
    } cases[] = {
        {"renamed without a change", "seq 9 > a", "mv a b", "renamed a -> b +0 -0\n"},
        {"another mode", "echo a > a", "chmod +x a", "modified a +0 -0\n"},
        {"a file that became a link", "printf '1\\n2\\n' > a", "ln -sf z a",
         "modified a +1 -2\n@@ 1 0 \n-1\n-2\n@@ 0 1 \n+z\n"},
        {"empty files", "touch a", "rm a; touch b; mkdir c; touch c/d", "renamed a -> b +0 -0\nadded c/d +0 -0\n"},
        {"odd paths", ":", R"(for n in 'a	b' 'a"b' 'a\b' 'a
b' ' a' 'aä'; do echo 1 > "$n"; done)",
         "added  a +1 -0\n@@ 0 1 \n+1\nadded a\tb +1 -0\n@@ 0 1 \n+1\nadded a\nb +1 -0\n@@ 0 1 \n+1\n"
         "added a\"b +1 -0\n@@ 0 1 \n+1\nadded a\\b +1 -0\n@@ 0 1 \n+1\n"
         "added aä +1 -0\n@@ 0 1 \n+1\n"},
        {"a path that is no UTF-8", ":", "n=$(printf 'a\\377'); echo 1 > $n; printf '\\376\\n' > ${n}b",
         "added a\uFFFD +1 -0\n@@ 0 1 \n+1\nadded a\uFFFDb +1 -0\n@@ 0 1 \n+\uFFFD\n"},
        {"a binary file", "printf 'a\\0b' > a; printf 'c\\0' > b", "printf 'a\\0c' > a; mv b c",
         "modified a binary\nrenamed b -> c binary\n"},
        {"a heading", "printf 'def f():\\n 1\\n 2\\n 3\\n 4\\n 5\\n' > a", "sed -i s/5/6/ a",
         "modified a +1 -1\n@@ 3 3 def f():\n  2\n  3\n  4\n- 5\n+ 6\n"},
        {"an ignored file and one that was deleted", "echo 1 > a; echo '*.log' > .gitignore", "rm a; echo 1 > b.log",
         "deleted a +0 -1\n@@ 1 0 \n-1\n"},
        {"a submodule", "git init -q m; git -C m commit -q --allow-empty -m 1",
         "git init -q m; git -C m commit -q --allow-empty -m 2", "modified m +1 -1\n@@ 1 1 \n"},
        {"a folder in the place of a file", "seq 2 > a", "rm a; mkdir a; seq 3001 > a/big; echo b > a/small",
         "deleted a +0 -2\n@@ 1 0 \n-1\n-2\nadded a/big +3001 -0 tooLarge\nadded a/small +1 -0\n@@ 0 1 \n+b\n"},
        {"a folder in the place of a file that was renamed", "seq 9 > a", "mv a b; mkdir a; seq 3001 > a/big",
         "added a/big +3001 -0 tooLarge\nrenamed a -> b +0 -0\n"},
        {"one line that begins two sections", "mkdir 'x b'; seq 9 > x; seq 20 29 > 'x b/y'",
         "mkdir -p 'y b/x b'; mv x 'y b/x b/y'; echo 10 >> 'y b/x b/y'; echo 30 >> 'x b/y'",
         "modified x b/y +1 -0\n@@ 8 8 \n 27\n 28\n 29\n+30\nrenamed x -> y b/x b/y +1 -0\n"
         "@@ 7 7 \n 7\n 8\n 9\n+10\n"},
        {"blanks at the end of texts that git is asked for apart", "mkdir a; seq 3001 > a/big",
         "rm -r a; printf 'x  \n\t\n' > a", "added a +2 -0\n@@ 0 1 \n+x  \n+\t\ndeleted a/big +0 -3001 tooLarge\n"},
        {"a file in the place of a folder", "mkdir a; seq 3001 > a/big", "rm -r a; echo 1 > a",
         "added a +1 -0\n@@ 0 1 \n+1\ndeleted a/big +0 -3001 tooLarge\n"},
    };

    const std::string last = "modified z.txt +1 -1\n@@ 1 1 \n-z\n+Z\n";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ComparedNode compared(test, "echo z > z.txt\n" + c.before, c.after + "\necho Z > z.txt");
        const Changes shown = compared.changes();
        std::string text = rendered(shown.files);
        if (c.name == "a submodule") // whose commits have other ids each time
            for (std::size_t at; (at = text.find("Subproject")) != std::string::npos;)
                text.erase(at - 1, text.find('\n', at) - at + 2);
        EXPECT_EQ(text, c.expected + last);
        EXPECT_FALSE(shown.frozen);
        compared.freeze();
        EXPECT_EQ(compared.changes().files, shown.files) << "what is committed is what was there";
    }
}

/// Everything that a setting could turn over: a rename, context without text, several hunks, submodules, a driver.
TEST_F(ChangesTest, ThePersonsConfigurationHasNoSay)
{
    ComparedNode compared(
        test,
        "seq 40 | sed '3s/.*//; 36s/.*//' > a.txt; echo '*.txt diff=notes' > .gitattributes; seq 30 > moved; "
        "printf 'x\\n\\ny\\n' > b.py; git init -q m; git -C m commit -q --allow-empty -m 1",
        "sed -i 's/^5$/five/; s/^14$/14th/; s/^35$/x/' a.txt; mv moved to; echo 31 >> to; cp to copy; "
        "printf 'x\\n\\nz\\n' > b.py; git init -q m; git -C m commit -q --allow-empty -m 2");
    const Changes plain = compared.changes();
    ASSERT_EQ(plain.files.size(), 5U);
    const std::string script = (test / "driver").string();
    runScript("/", "printf '#!/bin/sh\\necho it is driven\\n' > '" + script + "'; chmod +x '" + script + "'");
    const std::string attributes = (test / "attributes").string();
    runScript("/", "printf '* -diff\\n' > '" + attributes + "'; echo to > '" + attributes + ".order'");

    const std::string settings[] = {
        "color.ui=always",
        "color.diff=always",
        "core.quotePath=true",
        "core.attributesFile=" + attributes,
        "diff.algorithm=histogram",
        "diff.colorMoved=zebra",
        "diff.context=0",
        "diff.external=" + script,
        "diff.ignoreSubmodules=all",
        "diff.indentHeuristic=false",
        "diff.interHunkContext=20",
        "diff.mnemonicPrefix=true",
        "diff.noprefix=true",
        "diff.notes.binary=true",
        "diff.notes.command=" + script,
        "diff.notes.textconv=" + script,
        "diff.notes.xfuncname=^[0-9]*$",
        "diff.orderFile=" + attributes + ".order",
        "diff.relative=true",
        "diff.renameLimit=1",
        "diff.renames=copies",
        "diff.submodule=log",
        "diff.suppressBlankEmpty=true",
        "diff.wordRegex=."};
    const auto showsTheSame = [&](const std::string& name) {
        EXPECT_EQ(rendered(compared.changes().files), rendered(plain.files)) << name;
        EXPECT_EQ(compared.changes(), plain) << name;
    };
    const auto set = [&](const std::string& setting) {
        const std::size_t end = setting.find('=');
        test.repository.git({"config", setting.substr(0, end), setting.substr(end + 1)});
    };
    for (const std::string& setting : settings) {
        set(setting);
        showsTheSame(setting);
        test.repository.git({"config", "--unset", setting.substr(0, setting.find('='))});
    }

    const std::pair<const char*, std::string> variables[] = {
        {"GIT_DIFF_OPTS", "--unified=0"},
        {"GIT_EXTERNAL_DIFF", script},
        {"GIT_GLOB_PATHSPECS", "1"},
        {"GIT_ICASE_PATHSPECS", "1"},
    };
    for (const auto& [name, value] : variables) {
        ::setenv(name, value.c_str(), 1);
        showsTheSame(name);
        ::unsetenv(name);
    }

    test.repository.write(".git/info/attributes", "* -diff\n");
    for (const std::string& setting : settings)
        set(setting);
    showsTheSame("all at once, with the repository's own attributes");
    compared.freeze();
    EXPECT_EQ(rendered(compared.changes().files), rendered(plain.files));
}

TEST(NeutralRepository, CopiesOfTheConfigurationOnlyWhatAComparisonNeeds)
{
    using std::string_view_literals::operator""sv;
    constexpr std::string_view list =
        "core.bare\nfalse\0diff.notes.binary\ntrue\0http.https://h.extraheader\nsecret\0"
        "remote.origin.url\nhttps://me:secret@h\0user.name\nme\0filter.lfs.clean\nlfs\0"sv;
    EXPECT_EQ(
        NeutralRepository::withoutDrivers(list), "[core]\n\tbare = \"false\"\n[filter \"lfs\"]\n\tclean = \"lfs\"\n");
    const std::string partial = std::string(list).append("remote.origin.promisor\ntrue\0"sv);
    EXPECT_THAT(NeutralRepository::withoutDrivers(partial).value(), HasSubstr("secret@h"));
    EXPECT_EQ(NeutralRepository::withoutDrivers("core.bare\nfalse\0"sv), std::nullopt);
}

TEST_F(ChangesTest, TheProjectsAttributesCount)
{
    const ComparedNode compared(test, "printf '*.csv -diff\\n*.py diff=python\\n' > .gitattributes", "echo 1 > a.csv");
    EXPECT_EQ(rendered(compared.changes().files), "added a.csv binary\n");
}

TEST_F(ChangesTest, KeepsToItsLimits)
{
    const ComparedNode compared(
        test, "true",
        "for n in 1 2 3 4 5 6 7; do seq 3000 > f$n; done; seq 3001 > a; seq 2000 > g; printf '\\0' > b; "
        "seq 1 > h");
    std::string shown;
    const Changes changes = compared.changes();
    for (const Changes::File& file : changes.files) {
        shown += file.path + (file.hunks.empty() ? veltry::test::shownAs(file.shown) : " shown") + "\n";
        EXPECT_TRUE(file.hunks.empty() || std::ssize(file.hunks.front().lines) == file.added);
    }
    EXPECT_EQ(
        shown,
        "a tooLarge\nb binary\nf1 shown\nf2 shown\nf3 shown\nf4 shown\nf5 shown\nf6 shown\nf7 tooLarge\ng shown\n"
        "h tooLarge\n");
    EXPECT_EQ(changes.added(), 7 * 3000 + 3001 + 2000 + 1);
    EXPECT_EQ(changes.removed(), 0);
}

/// With many files git gives up looking for renames; among the few that are shown, those within the limits, it would
/// find them.
TEST_F(ChangesTest, ManyFilesDontShiftEachOthersHunks)
{
    const Experiment parent = test.baseline("true");
    const Experiment node = test.child(parent, "Child");
    test.repository.git({"worktree", "remove", test.lab.worktree(node).string()}); // so that its branch is compared
    constexpr std::string_view script = R"(awk '
        function commit(branch, from, name, path, lines) {{
            printf "commit refs/heads/%s\ncommitter T <t> 0 +0000\ndata 0\nfrom %s\ndeleteall\n", branch, from
            for (n = 0; n < 1001; n++) {{
                printf "M 644 inline %s%d\ndata <<E\n", name, n
                for (i = 0; i < 30; i++) print name, n * i
                print "E"
            }}
            printf "M 644 inline %s\ndata <<E\n", path
            for (i = 0; i < lines; i++) print i
            print "E"
        }}
        BEGIN {{
            commit("{0}", "refs/heads/{0}^0", "old", "0x", 40)
            commit("{1}", "refs/heads/{0}", "new", "0y", 41)
        }}' | git fast-import --quiet --force)";
    runScript(test.repository.path(), fmt::format(script, parent.branch, node.branch));
    const std::vector<Changes::File> shown = test.lab.changes(node).files;
    ASSERT_EQ(shown.size(), 2004U);
    EXPECT_EQ(shown[0].path, "0x");
    EXPECT_EQ(shown[1].path, "0y");
    for (const Changes::File& file : shown) {
        const std::size_t lines = file.hunks.empty() ? 0 : file.hunks.front().lines.size();
        EXPECT_EQ(lines, file.shown == Changes::File::Shown::tooLarge ? 0U : *file.added + *file.removed) << file.path;
    }
}

TEST_F(ChangesTest, LeavesTheWorktreeAndItsIndexAlone)
{
    const ComparedNode compared(test, "echo 1 > a; echo 2 > b", "echo 3 > a; git add a; echo 4 > b; echo 5 > c");
    const Git git(compared.folder());
    const std::filesystem::path index = git.run({"rev-parse", "--path-format=absolute", "--git-path", "index"});
    const std::string status = git.run({"status", "--porcelain"});
    const std::string before = Files::read(index);
    runScript("/", "touch '" + index.string() + ".lock'");
    const std::string expected = "modified a +1 -1\n@@ 1 1 \n-1\n+3\nmodified b +1 -1\n@@ 1 1 \n-2\n+4\n"
                                 "added c +1 -0\n@@ 0 1 \n+5\n";
    const veltry::test::TemporaryFolder temporary;
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    EXPECT_EQ(rendered(compared.changes().files), expected);
    EXPECT_EQ(Files::read(index), before);
    EXPECT_TRUE(Files::remove(index.string() + ".lock"));
    EXPECT_EQ(git.run({"status", "--porcelain"}), status);
    std::filesystem::remove(index);
    EXPECT_EQ(rendered(compared.changes().files), expected) << "without an index every file is looked at";
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
    ::unsetenv("TMPDIR");
}

/// The clock of a file system moves in steps: what is written twice within one has the size and times that the index
/// knows, and only the index's own time tells git to look closer.
TEST_F(ChangesTest, SeesAChangeOfTheSameMoment)
{
    const ComparedNode compared(
        test, "echo 1 > a",
        "git config core.trustctime false; touch -d -10seconds a; git update-index -q --refresh; index=$(git rev-parse "
        "--git-path index); touch -r a \"$index\"; echo 2 > a; touch -r \"$index\" a");
    EXPECT_EQ(rendered(compared.changes().files), "modified a +1 -1\n@@ 1 1 \n-1\n+2\n");
}

TEST_F(ChangesTest, ComparesWhileAnAgentWrites)
{
    const ComparedNode compared(test, "echo 1 > a", "echo 2 > a");
    const std::jthread agent([&](const std::stop_token& over) {
        for (std::size_t count = 0; !over.stop_requested(); ++count) {
            test.write(compared.node, "note" + std::to_string(count % 3), std::string(count % 50'000, 'x'));
            Files::remove(compared.folder() / ("note" + std::to_string((count + 1) % 3)));
        }
    });
    for (int time = 0; time < 20; ++time)
        EXPECT_THAT(rendered(compared.changes().files), StartsWith("modified a +1 -1\n@@ 1 1 \n-1\n+2\n"));
}

TEST_F(ChangesTest, AFrozenNodeShowsItsRunAndAnotherItsBranchIfNoWorktreeIsThere)
{
    ComparedNode compared(test, "echo 1 > a");
    EXPECT_THAT(compared.changes().files, IsEmpty());
    runScript(compared.folder(), "echo 2 > a; git commit -q -a -m x; echo 3 > a");
    const std::string committed = "modified a +1 -1\n@@ 1 1 \n-1\n+2\n";
    runScript("/", "rm -r '" + compared.folder().string() + "'");
    EXPECT_EQ(rendered(compared.changes().files), committed);
    EXPECT_FALSE(compared.changes().frozen);
    test.repository.git({"worktree", "prune"});
    test.repository.git({"worktree", "add", "-q", compared.folder().string(), compared.node.branch});
    compared.freeze();
    runScript(compared.folder(), "echo 4 > a; git commit -q -a -m y; echo 5 > b");
    const Changes frozen = compared.changes();
    EXPECT_TRUE(frozen.frozen);
    EXPECT_EQ(rendered(frozen.files), committed);
    EXPECT_EQ(frozen.against, compared.parent.branch);
}

TEST_F(ChangesTest, SaysWhatItComparesWith)
{
    const Experiment node = test.baseline("true");
    const std::string head = test.repository.git({"rev-parse", "HEAD"});
    test.repository.write("later", "");
    test.repository.commit();
    EXPECT_EQ(test.lab.changes(node), (Changes{.base = head, .against = "main", .frozen = false, .files = {}}));
    test.repository.git({"checkout", "-q", "--detach", head});
    EXPECT_EQ(test.lab.changes(node).against, head.substr(0, 7));
}

TEST_F(ChangesTest, AProjectMayLieBelowTheRepositorysTop)
{
    test.repository.write("sub/code/a", "1\n");
    test.repository.write("z", "1\n");
    test.repository.commit();
    test.lab.project.folders = {test.repository / "sub"};
    const Experiment node = test.baseline("true");
    runScript(test.lab.worktree(node), "echo 2 > sub/code/a; echo 2 > z; seq 3001 > big");
    const std::string expected = "added big +3001 -0 tooLarge\nmodified sub/code/a +1 -1\n@@ 1 1 \n-1\n+2\n"
                                 "modified z +1 -1\n@@ 1 1 \n-1\n+2\n";
    EXPECT_EQ(rendered(test.lab.changes(node).files), expected);
    runScript(test.lab.worktree(node), "git add --all; git commit -q -m x");
    runScript("/", "rm -r '" + test.lab.worktree(node).string() + "'");
    EXPECT_EQ(rendered(test.lab.changes(node).files), expected);
}

TEST_F(ChangesTest, FailsWithALabError)
{
    ComparedNode compared(test, "true");
    const Lab& lab = test.lab;
    const veltry::test::Repository& repository = test.repository;
    const auto refused = [&] { return refusal([&] { return lab.changes(compared.node); }); };
    runScript(compared.folder(), "git init -q inner; touch inner/a");
    EXPECT_EQ(refused().substr(0, 63), "git_failed: git add --all failed: error: 'inner/' does not have");
    runScript(
        compared.folder(), "rm -r inner; git checkout -q --orphan other; git commit -q --allow-empty -m x; git "
                           "branch -M other " +
                               compared.node.branch);
    EXPECT_EQ(
        refused(), "git_failed: git merge-base refs/heads/" + compared.parent.branch + " refs/heads/" +
                       compared.node.branch + " failed: ");
    runScript(lab.worktree(compared.parent), "git checkout -q --detach");
    repository.git({"branch", "-D", compared.parent.branch});
    EXPECT_EQ(refused(), "branch_missing: " + compared.parent.branch + " is gone from the repository.");
    runScript(compared.folder(), "git checkout -q --detach");
    repository.git({"branch", "-D", compared.node.branch});
    EXPECT_EQ(refused(), "branch_missing: The branch " + compared.node.branch + " is gone.");
    Experiment orphan = compared.node;
    orphan.parentID = UUID::random();
    EXPECT_THAT(refusal([&] { return lab.changes(orphan); }), StartsWith("experiment_not_found: "));
}

TEST_F(ChangesTest, HasAJSONForm)
{
    const ComparedNode compared(test, "seq 2 > a; printf '\\0' > b", "mv a c; echo 3 >> c; rm b");
    const Changes changes = compared.changes();
    EXPECT_EQ(
        toJSON(changes).text(),
        R"({"against":"veltry/baseline","base":")" + changes.base +
            R"(","files":[{"hunks":[],"kind":"deleted","path":"b","shown":"binary"},{"added":1,"hunks":[{"heading":"",)"
            R"("lines":[{"kind":"context","new":1,"old":1,"text":"1"},{"kind":"context","new":2,"old":2,"text":"2"},)"
            R"({"kind":"added","new":3,"text":"3"}],"newStart":1,"oldStart":1}],"kind":"renamed","oldPath":"a",)"
            R"("path":"c","removed":0,"shown":"lines"}],"frozen":false})");
}

} // namespace
} // namespace veltry
