#include "Base/Text.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Projects/Templates.h"
#include "Support/FakeOpenAlex.h"
#include "Support/RunOnExecutor.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace veltry {
namespace {

using test::FakeOpenAlex;
using test::TemporaryFolder;
using testing::StartsWith;

/// Writes an archive of what the lines say: "f NAME CONTENTS", "l NAME TARGET" for a link, "h" for a hard link, "c" for
/// a device, "p" for a pipe.
constexpr const char* archiver = R"python(
import io, sys, tarfile
kinds = {"l": tarfile.SYMTYPE, "h": tarfile.LNKTYPE, "c": tarfile.CHRTYPE, "p": tarfile.FIFOTYPE}
with tarfile.open(sys.argv[1], "w:gz") as archive:
    for line in sys.argv[2].splitlines():
        kind, name, text = (line + " ").split(" ")[:3]
        member = tarfile.TarInfo(name)
        if kind in kinds:
            member.type, member.linkname, member.devmajor, member.devminor = kinds[kind], text, 1, 3
            archive.addfile(member)
        else:
            member.size = len(text)
            archive.addfile(member, io.BytesIO(text.encode()))
)python";

class TemplatesTest : public testing::Test {
protected:
    TemplatesTest() { emptyTarget(); }

    void emptyTarget() const
    {
        std::filesystem::remove_all(target);
        Files::createFolders(target);
    }

    std::filesystem::path archive(const std::string& lines) const
    {
        const std::filesystem::path path = folder / "an:archive.tar.gz";
        const ChildProcess::Output written = ChildProcess::run(
            {.executable = "/usr/bin/python3", .arguments = {"-c", archiver, path.string(), lines}, .environment = {}});
        EXPECT_EQ(written.exitNumber, 0) << written.error;
        return path;
    }

    /// The error's text, or "done".
    std::string fetch(const std::string& name, const Templates::Archive& from) const
    {
        try {
            test::runOnExecutor([&](const auto&) { return Templates::fetch(name, target, from, session); });
        } catch (const Error& error) {
            return error.description();
        }
        return "done";
    }

    /// Every path in the target, with what a file holds.
    std::string unpacked() const
    {
        std::vector<std::string> lines;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(target)) {
            std::string line = entry.path().lexically_relative(target).string();
            if (entry.is_symlink())
                line += " -> " + std::filesystem::read_symlink(entry.path()).string();
            else if (entry.is_regular_file())
                line += "=" + Files::read(entry.path());
            lines.push_back(line);
        }
        std::ranges::sort(lines);
        return testing::PrintToString(lines);
    }

    TemporaryFolder folder;
    std::filesystem::path target = folder / "the\\target";
    std::shared_ptr<HTTPSession> session = std::make_shared<HTTPSession>();
};

TEST_F(TemplatesTest, UnpacksOneTemplateWithoutItsTwoUppermostFolders)
{
    const Templates::Archive from =
        archive("f top/a-1/x 1\nf top/a-1/d/y 2\nf top/a-1/d/a-1/z 3\nf top/a-10/x 4\nf top/d/a-1/x 5\nf top/x 6\n"
                "l top/a-1/l x");
    EXPECT_EQ(fetch("a-1", from), "done");
    EXPECT_EQ(unpacked(), R"({ "d", "d/a-1", "d/a-1/z=3", "d/y=2", "l -> x", "x=1" })");
    EXPECT_EQ(fetch("none", from), "done") << "a folder that holds something passes";
    std::filesystem::remove_all(target);
    EXPECT_THAT(fetch("a-1", from), StartsWith("The template could not be unpacked: /usr/bin/tar: "));
    Files::createFolders(target);
    EXPECT_EQ(fetch("none", from), "There is no template none.");
    EXPECT_TRUE(Files::exists(std::get<std::filesystem::path>(from)));
    Files::writeAtomically(folder / "broken", Files::read(std::get<std::filesystem::path>(from)).substr(0, 60));
    EXPECT_THAT(fetch("a-1", folder / "broken"), StartsWith("The template could not be unpacked: "));
    EXPECT_THAT(fetch("a-1", folder / "missing"), StartsWith("The template could not be unpacked: "));
}

TEST_F(TemplatesTest, NothingIsWrittenOutsideTheFolder)
{
    const std::string outside = (folder / "outside").string();
    Files::createFolders(outside);
    Files::writeAtomically(outside + "/victim", "safe");

    const struct {
        std::string_view name;
        std::string lines;
        bool fails;
    } cases[] = {
        {"absolute names", "f /t/n/x 1\nf " + outside + "/n/x 1\nf //n/y 1\nf t/n/ok 1", false},
        {"names with dots", "f t/n/../../../outside/x 1\nf ../n/../../outside/y 1\nf t/n/ok 1", true},
        {"through a link", "l t/n/a " + outside + "\nf t/n/a/x 1\nl t/n/b ../outside\nf t/n/b/x 1", true},
        {"over a link", "l t/n/a " + outside + "/victim\nf t/n/a pwned", false},
        {"a link in the place of the template", "l t/n " + outside + "\nf t/n/x 1", false},
        {"a hard link", "h t/n/a " + outside + "/victim\nf t/n/a pwned", true},
        {"a hard link to a link", "l t/n/a " + outside + "/victim\nh t/n/b t/n/a\nf t/n/b pwned", false},
        {"a device", "f t/n/ok 1\nc t/n/null", true},
        {"a pipe", "f t/n/ok 1\np t/n/pipe", true},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(fetch("n", archive(c.lines)) != "done", c.fails);
        EXPECT_EQ(Files::read(outside + "/victim"), "safe");
        EXPECT_EQ(test::entryCount(outside), 1);
        EXPECT_EQ(test::entryCount(folder.path()), 3);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(target))
            EXPECT_TRUE(entry.is_symlink() || entry.is_regular_file() || entry.is_directory()) << entry.path();
        emptyTarget();
    }
}

TEST_F(TemplatesTest, NothingOfGitsOwnIsUnpacked)
{
    EXPECT_EQ(
        fetch(
            "n", archive("f t/n/.git/hooks/pre-commit 1\nf t/n/.GIT/config 2\nf t/n/deep/.Git/x 3\nl t/n/d/.git /tmp\n"
                         "f t/n/d/.git/y 4\nf t/n/.gitignore 5\nf t/n/a.git/x 6\nf t/n/git 7")),
        "done");
    EXPECT_EQ(unpacked(), R"({ ".gitignore=5", "a.git", "a.git/x=6", "git=7" })");
}

TEST_F(TemplatesTest, FindsTheTopFolderOfAnyArchive)
{
    const struct {
        std::string_view name;
        std::string lines, names;
    } cases[] = {
        {"plain", "f top/n/x 1\nf top/m/x 2", "m n"},
        {"dots before one folder", "f ./top/n/x 1\nf ./top/m/x 2", "m n"},
        {"a dot alone", "f ./n/x 1\nf ./m/x 2", "m n"},
        {"a dot alone over one", "f ./n/x 1", "n"},
        {"several tops", "f a/n/x 1\nf b/m/x 2", "m n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Templates::Archive from = archive(c.lines);
        const std::vector<std::string> names = test::resultOf(Templates::names(from, session));
        EXPECT_EQ(text::joined(names, " "), c.names);
        EXPECT_EQ(fetch("n", from), "done");
        EXPECT_EQ(unpacked(), R"({ "x=1" })");
        emptyTarget();
    }
}

TEST_F(TemplatesTest, DownloadsAnAddress)
{
    FakeOpenAlex server;
    server.reply("/main.tar.gz", {.body = Files::read(archive("f t/n/x 1")), .type = "application/gzip"});
    const TemporaryFolder temporary;
    ::setenv("TMPDIR", temporary.path().c_str(), 1);
    for (const char* name : {"Bad_Name", "../x", "-a", "", "a/b", "a*"})
        EXPECT_EQ(
            fetch(name, Templates::archive(server.address("/main.tar.gz"))),
            std::string("There is no template ") + name + ".");
    EXPECT_TRUE(server.asked().empty());
    EXPECT_EQ(fetch("n", Templates::archive(server.address("/main.tar.gz"))), "done");
    EXPECT_EQ(unpacked(), R"({ "x=1" })");
    EXPECT_EQ(
        fetch("n", Templates::archive(server.address("/other"))), "The templates could not be downloaded: HTTP 404.");
    EXPECT_NE(fetch("n", Templates::archive("ftp://127.0.0.1/x")), "done");
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
    ::unsetenv("TMPDIR");
}

TEST(Templates, AnArchiveIsAnAddressOrAPath)
{
    using Path = std::filesystem::path;
    const struct {
        std::string_view text;
        Templates::Archive archive;
    } cases[] = {
        {"https://example.org/a b.tar.gz", Templates::WebAddress{"https://example.org/a%20b.tar.gz"}},
        {"/a/b.tar.gz", Path("/a/b.tar.gz")},
        {"b.tar.gz", Path("b.tar.gz")},
        {"file:///a%20b", Path("/a b")},
        {"file://localhost/a", Path("/a")},
        {"FILE:/a?b", Path("/a")},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Templates::archive(c.text), c.archive) << c.text;
        ::setenv("VELTRY_TEMPLATES_ARCHIVE", std::string(c.text).c_str(), 1);
        EXPECT_EQ(Templates::archive(), c.archive) << c.text;
    }
    ::unsetenv("VELTRY_TEMPLATES_ARCHIVE");
}

TEST_F(TemplatesTest, TheInstalledArchiveHoldsOurs)
{
    for (const char* name : {"empty", "python-baseline", "pytorch-baseline"}) {
        EXPECT_EQ(fetch(name, Templates::archive()), "done");
        EXPECT_TRUE(Files::exists(target / "README.md")) << name;
        EXPECT_EQ(Files::exists(target / "telemetry.toml"), std::string_view(name) != "empty") << name;
        emptyTarget();
    }
}

} // namespace
} // namespace veltry
