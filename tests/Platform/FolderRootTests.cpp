#include "Platform/Files.h"
#include "Platform/FolderRoot.h"
#include "Platform/SystemError.h"
#include "Support/Stress.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>

namespace veltry {
namespace {

namespace fs = std::filesystem;

/// A project with folders inside each other, a neighbour whose name begins like its own, and a secret outside.
struct Tree {
    Tree()
    {
        Files::createFolders(project / "a/b/c");
        Files::createFolders(outside);
        Files::createFolders(base / "project-two");
        for (const char* file : {"project/file", "project/a/b/c/deep", "project-two/file"})
            Files::writeAtomically(base / file, "inside");
        Files::writeAtomically(outside / "secret", "secret");
        fs::create_symlink("project", base / "linked");
    }

    /// The first root found at `root`, whose place of a path under the base is returned.
    std::string place(const char* root, const std::string& path) const
    {
        const std::optional<FolderRoot> opened = FolderRoot::open(base / root);
        const std::optional<fs::path> found = opened ? opened->placeOf(base.path().string() + path) : std::nullopt;
        return found ? found->string() : "outside";
    }

    test::TemporaryFolder base;
    fs::path project = base / "project";
    fs::path outside = base / "outside";
};

/// Runs `body` on a thread of its own where the calls of `number` fail with `code` whose third argument has one of
/// these bits; with 0 for `code` they work.
void withFailing(unsigned number, unsigned bits, int code, const std::function<void()>& body)
{
    std::thread([&] {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 3),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])), // its lower half
            BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, bits, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(code)),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog program{.len = std::size(filter), .filter = filter};
        if (code != 0) {
            ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
            ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
        }
        body();
    }).join();
}

/// As on an older kernel (ENOSYS) or in a sandbox (EPERM).
void withOpenat2Failing(int code, const std::function<void()>& body)
{
    withFailing(SYS_openat2, ~0U, code, body);
}

TEST(FolderRoot, FindsThePlaceOfAPathBehindItsLinks)
{
    const Tree tree;
    const struct {
        const char *link, *target;
    } links[] = {
        {"project/in", "a/b"},
        {"project/a/absolute", "/"},
        {"project/out", "../outside"},
        {"project/a/out", "../../outside"},
        {"project/a/b/c/out", "../../../../outside/secret"},
        {"project/a/back", "../../outside/../project/file"},
        {"project/dangling", "nowhere"},
        {"project/loop", "loop"},
        {"outside/home", "../project"},
    };
    for (const auto& link : links)
        fs::create_symlink(link.target, tree.base / link.link);

    const struct {
        const char *root, *path, *place;
    } cases[] = {
        {"project", "/project/file", "file"},
        {"project", "/project/new", "new"},
        {"project", "/project/no/such/folder", "no/such/folder"},
        {"project", "/project/file/below", "file/below"}, // opening it fails
        {"project", "/project/in/c/deep", "a/b/c/deep"},
        {"project", "/project/a/back", "file"},
        {"project", "/outside/home/file", "file"},
        {"project", "/linked/file", "file"},
        {"linked", "/project/file", "file"},
        {"project", "/project", "outside"},
        {"project", "/linked", "outside"},
        {"project", "/project-two/file", "outside"},
        {"project", "/outside/secret", "outside"},
        {"project", "/project/out/secret", "outside"},
        {"project", "/project/a/out/secret", "outside"},
        {"project", "/project/a/absolute/etc/passwd", "outside"},
        {"project", "/project/a/b/c/out", "outside"},
        {"project", "/project/dangling", "outside"},
        {"project", "/project/loop", "outside"},
        {"missing", "/missing/file", "outside"},
        {"project/file", "/project/file/x", "outside"},
        {"project/out", "/outside/secret", "secret"}, // the root itself may be reached by a link
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(tree.place(c.root, c.path), c.place);
    }
    EXPECT_EQ(tree.place("project", "/project/" + std::string(5000, 'x')), std::string(5000, 'x'));
    EXPECT_FALSE(FolderRoot::open(tree.project)->placeOf("file"));
}

TEST(FolderRoot, FollowsNoLinkThatWasSwappedInAfterTheCheck)
{
    for (const int failure : {0, ENOSYS, EPERM})
        for (const char* swapped : {"a", "a/b", "a/b/c", "a/b/c/deep"}) {
            SCOPED_TRACE(std::string(swapped) + " with openat2 failing by " + std::to_string(failure));
            withOpenat2Failing(failure, [&] {
                const Tree tree;
                const FolderRoot root = FolderRoot::open(tree.project).value();
                const fs::path place = root.placeOf(tree.project / "a/b/c/deep").value();
                root.writeAtomically(place, "changed");
                EXPECT_EQ(root.read(place), "changed");

                fs::rename(tree.project / swapped, tree.outside / "moved");
                fs::create_symlink(tree.outside / "moved", tree.project / swapped);
                EXPECT_EQ(Files::read(tree.project / place), "changed") << "the way leads through the link";
                EXPECT_THROW((void)root.read(place), SystemError);
                EXPECT_THROW(root.writeAtomically(place, "broken into"), SystemError);
                EXPECT_EQ(Files::read(tree.project / place), "changed");
                EXPECT_EQ(test::entryCount((tree.project / place).parent_path()), 1) << "a file was left outside";
                EXPECT_THROW((void)root.read("../outside/secret"), SystemError);
            });
        }
}

/// A link and a folder change places all the time: what is read and written lies inside, or nothing is.
TEST(FolderRoot, NeverLeavesWhileLinksAreSwapped)
{
    for (const int failure : {0, ENOSYS}) {
        const Tree tree;
        Files::createFolders(tree.outside / "b");
        Files::writeAtomically(tree.outside / "b/file", "secret");
        Files::writeAtomically(tree.project / "a/b/file", "inside");
        fs::create_symlink(tree.outside, tree.project / "evil");
        std::atomic<bool> done = false;
        std::thread swapper([&] {
            const std::string one = tree.project / "a";
            const std::string other = tree.project / "evil";
            while (!done)
                ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
        });
        int reached = 0;
        withOpenat2Failing(failure, [&] {
            const FolderRoot root = FolderRoot::open(tree.project).value();
            for (int round = 0; round < test::stressed(20'000) || (reached == 0 && round < 1'000'000); ++round)
                try {
                    const std::optional<fs::path> place = root.placeOf(tree.project / "a/b/file");
                    if (!place)
                        continue;
                    EXPECT_EQ(root.read(*place), "inside");
                    root.writeAtomically(*place, "inside");
                    ++reached;
                } catch (const SystemError&) { // swapped in between
                }
        });
        done = true;
        swapper.join();
        EXPECT_GT(reached, 0);
        EXPECT_EQ(Files::read(tree.outside / "b/file"), "secret");
        EXPECT_EQ(test::entryCount(tree.outside / "b"), 1) << "a file was left outside";
    }
}

void expectAWriteThatKeepsThePermissionsAndLeavesNothingBehind()
{
    const Tree tree;
    const FolderRoot root = FolderRoot::open(tree.project).value();
    const mode_t mask = ::umask(027);
    root.writeAtomically("new", "#!");
    ::umask(mask);
    EXPECT_EQ(test::modeOf(tree.project / "new"), 0640U);
    for (const auto& [before, after] : {std::pair{0755U, 0755U}, {0600U, 0600U}, {04711U, 0711U}}) {
        ::chmod((tree.project / "new").c_str(), before);
        root.writeAtomically("new", std::to_string(before));
        EXPECT_EQ(Files::read(tree.project / "new"), std::to_string(before));
        EXPECT_EQ(test::modeOf(tree.project / "new"), after);
    }

    ASSERT_EQ(::mkfifo((tree.project / "pipe").c_str(), 0600), 0);
    const std::ptrdiff_t before = test::entryCount(tree.project);
    for (const char* place : {"a", "pipe", "missing/file", "file/below"}) {
        SCOPED_TRACE(place);
        EXPECT_THROW(root.writeAtomically(place, "x"), SystemError);
        EXPECT_THROW((void)root.read(place), SystemError);
    }
    EXPECT_THROW(root.writeAtomically(std::string(300, 'n'), "x"), SystemError); // fails at the rename
    EXPECT_EQ(test::entryCount(tree.project), before);
}

TEST(FolderRoot, AWriteKeepsThePermissionsAndLeavesNothingBehind)
{
    expectAWriteThatKeepsThePermissionsAndLeavesNothingBehind();
    // Where the file system has no files without names, as network file systems don't.
    constexpr unsigned nameless = O_TMPFILE & ~O_DIRECTORY;
    withFailing(SYS_openat, nameless, EOPNOTSUPP, expectAWriteThatKeepsThePermissionsAndLeavesNothingBehind);
}

} // namespace
} // namespace veltry
