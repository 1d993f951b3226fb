#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

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
    const FileDescriptor old = Files::open(path, Files::forReading);
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
    const FileDescriptor file = Files::open(folder / "file", Files::forReading);
    EXPECT_EQ(Files::size(file), 10U);
    EXPECT_EQ(Files::readAt(file, 3, 4), "3456");
    EXPECT_EQ(Files::readAt(file, 8, 4), "89");
    EXPECT_EQ(Files::readAt(file, 10, 4), "");
}

/// Something of each kind that may lie at a path, and what is asked of it.
class FileKinds : public testing::Test {
protected:
    FileKinds()
    {
        Files::createFolders(folder / "folder");
        Files::writeAtomically(folder / "empty", "");
        Files::writeAtomically(folder / "plain", "1234");
        std::filesystem::create_symlink("plain", folder / "link");
        std::filesystem::create_symlink("nowhere", folder / "dangling");
        std::filesystem::create_symlink("/dev/zero", folder / "device");
        if (::mkfifo((folder / "pipe").c_str(), 0600) != 0) // nobody writes or reads there
            throw SystemError("could not make a pipe");
    }

    test::TemporaryFolder folder;
};

TEST_F(FileKinds, AreOpenedForWhatTheyCanServe)
{
    using Files::Purpose;
    const struct {
        Purpose purpose;
        std::string_view name;
        int failure; // 0 where it opens
        std::string_view plainThen = "1234";
    } cases[] = {
        {Purpose::forReading, "plain", 0},
        {Purpose::forReading, "device", 0},
        {Purpose::forReading, "missing", ENOENT},
        {Purpose::forReadingPlain, "plain", 0},
        {Purpose::forReadingPlain, "link", 0},
        {Purpose::forReadingPlain, "pipe", ENOTSUP},
        {Purpose::forReadingPlain, "device", ENOTSUP},
        {Purpose::forReadingPlain, "folder", EISDIR},
        {Purpose::forReadingPlain, "dangling", ENOENT},
        {Purpose::forWriting, "plain", 0, "1234+"},
        {Purpose::forWriting, "device", 0},
        {Purpose::forWriting, "pipe", ENXIO},
        {Purpose::forWriting, "missing", ENOENT},
        {Purpose::forAppending, "link", 0, "1234+"},
        {Purpose::forAppending, "missing", 0},
        {Purpose::forAppending, "folder", EISDIR},
        {Purpose::forReplacing, "plain", 0, "+"},
        {Purpose::forReplacing, "missing", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " for purpose " + std::to_string(static_cast<int>(c.purpose)));
        Files::writeAtomically(folder / "plain", "1234");
        Files::remove(folder / "missing");
        const FileDescriptor file = Files::tryOpen(folder / c.name, c.purpose);
        EXPECT_EQ(file ? 0 : errno, c.failure);
        if (file && c.purpose != Purpose::forReading && c.purpose != Purpose::forReadingPlain)
            Files::writeAll(file, "+", c.name);
        EXPECT_EQ(Files::read(folder / "plain"), c.plainThen);
    }
}

TEST_F(FileKinds, ShowTheirStartWithoutAWait)
{
    const struct {
        std::string_view name;
        std::size_t count;
        std::optional<std::string> start;
    } cases[] = {
        {"plain", 3, "123"},
        {"plain", 4, "1234"},
        {"plain", 5, "1234"},
        {"plain", 0, ""},
        {"empty", 5, ""},
        {"link", 5, "1234"},
        {"pipe", 5, std::nullopt},
        {"device", 5, std::nullopt},
        {"folder", 5, std::nullopt},
        {"missing", 5, std::nullopt},
        {"dangling", 5, std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Files::readStart(folder / c.name, c.count), c.start) << c.name << ' ' << c.count;
}

TEST_F(FileKinds, GiveWayToANewFileButForDevicesAndFolders)
{
    for (const char* name : {"plain", "pipe", "dangling", "missing"}) {
        Files::writeAtomically(folder / name, "new");
        EXPECT_EQ(Files::readStart(folder / name, 9), "new") << name;
    }
    EXPECT_THROW(Files::writeAtomically(folder / "folder", "new"), SystemError);
    if (::mknod((folder / "own device").c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0) { // the administrator alone can
        EXPECT_THROW(Files::writeAtomically(folder / "own device", "new"), SystemError);
    }
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
