#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <string>

namespace veltry {
namespace {

TEST(Files, WritesAtomicallyAndKeepsTheMode)
{
    const test::TemporaryFolder folder;
    const auto path = folder / "file";
    Files::writeAtomically(path, "one");
    EXPECT_EQ(test::modeOf(path), 0644U);
    ::chmod(path.c_str(), 0600);
    const FileDescriptor old = Files::open(path, O_RDONLY);
    Files::writeAtomically(path, "two");
    EXPECT_EQ(Files::read(path), "two");
    EXPECT_EQ(Files::readAt(old, 0, 10), "one") << "who reads the old file goes on reading it";
    EXPECT_EQ(test::modeOf(path), 0600U);
    EXPECT_EQ(test::entryCount(folder.path()), 1);

    Files::createFolders(folder / "elsewhere");
    std::filesystem::create_symlink("../file", folder / "elsewhere/link");
    Files::writeAtomically(folder / "elsewhere/link", "three");
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "elsewhere/link"));
    EXPECT_EQ(Files::read(path), "three");
}

TEST(Files, AFailedAtomicWriteLeavesEverythingAsItWas)
{
    const test::TemporaryFolder folder;
    const auto path = folder / "file";
    Files::writeAtomically(path, "old");
    Files::createFolders(folder / "folder");
    EXPECT_THROW(Files::writeAtomically(folder / "folder", "new"), SystemError);
    EXPECT_THROW(Files::writeAtomically(folder / "missing" / "file", "new"), SystemError);

    // A file size limit stands in for a full disk: it fails in the middle.
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{.rlim_cur = 1000, .rlim_max = before.rlim_max};
    ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_THROW(Files::writeAtomically(path, std::string(5000, 'a')), SystemError);
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, SIG_DFL);

    EXPECT_EQ(Files::read(path), "old");
    EXPECT_EQ(test::entryCount(folder.path()), 2) << "a temporary file stayed behind";
}

TEST(Files, ReadsWholesAndPieces)
{
    EXPECT_THAT(Files::read("/proc/self/status"), ::testing::HasSubstr("Pid:"));
    const test::TemporaryFolder folder;
    EXPECT_EQ(Files::readIfPossible(folder.path()), std::nullopt);
    EXPECT_EQ(Files::readIfPossible(folder / "missing"), std::nullopt);
    EXPECT_THAT(
        [&] { static_cast<void>(Files::read(folder / "missing")); },
        testing::Throws<SystemError>(testing::Property(
            &SystemError::description,
            "could not open " + (folder / "missing").string() + ": No such file or directory")));

    Files::writeAtomically(folder / "file", "0123456789");
    const FileDescriptor file = Files::open(folder / "file", O_RDONLY);
    EXPECT_EQ(Files::size(file), 10U);
    EXPECT_EQ(Files::readAt(file, 3, 4), "3456");
    EXPECT_EQ(Files::readAt(file, 8, 4), "89");
    EXPECT_EQ(Files::readAt(file, 10, 4), "");
}

TEST(Files, MakesFoldersButNotOverFiles)
{
    const test::TemporaryFolder folder;
    Files::createFolders(folder / "a" / "b");
    Files::createFolders(folder / "a" / "b");
    EXPECT_TRUE(Files::isFolder(folder / "a" / "b"));
    Files::writeAtomically(folder / "file", "");
    EXPECT_THROW(Files::createFolders(folder / "file"), SystemError);
    EXPECT_THROW(Files::createFolders(folder / "file" / "c"), SystemError);
}

TEST(Files, MovesAndRemoves)
{
    const test::TemporaryFolder folder;
    Files::writeAtomically(folder / "a", "a");
    Files::move(folder / "a", folder / "b");
    EXPECT_THROW(Files::move(folder / "a", folder / "d"), SystemError);
    Files::copy(folder / "b", folder / "c");
    EXPECT_TRUE(Files::remove(folder / "b"));
    EXPECT_FALSE(Files::remove(folder / "b"));
    EXPECT_EQ(Files::read(folder / "c"), "a");
    std::filesystem::create_symlink("nowhere", folder / "link");
    EXPECT_TRUE(Files::exists(folder / "link"));
}

} // namespace
} // namespace veltry
