#include "Platform/FileDescriptor.h"
#include "Platform/FileLock.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/Eventually.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace veltry {
namespace {

TEST(FileLock, HasOneHolder)
{
    const test::TemporaryFolder folder;
    const auto path = folder / "lock";
    EXPECT_FALSE(FileLock::isHeld(path));
    EXPECT_FALSE(Files::exists(path)) << "asking makes no file";
    {
        const auto lock = FileLock::tryTake(path);
        ASSERT_TRUE(lock);
        EXPECT_TRUE(FileLock::isHeld(path));
        EXPECT_FALSE(FileLock::tryTake(path));
    }
    EXPECT_FALSE(FileLock::isHeld(path));
    EXPECT_TRUE(FileLock::tryTake(path));
    EXPECT_FALSE(FileLock::tryTake(folder / "missing" / "lock"));
    EXPECT_THROW(static_cast<void>(FileLock::take(folder / "missing" / "lock")), SystemError);
}

TEST(FileLock, IsDroppedWhenItsHolderIsKilled)
{
    const test::TemporaryFolder folder;
    const auto path = folder / "lock";
    Pipe pipe = Pipe::make();
    const pid_t holder = ::fork();
    if (holder == 0) {
        const auto lock = FileLock::tryTake(path);
        Files::writeAll(pipe.writing, lock ? "y" : "n", "the pipe");
        while (true)
            ::pause();
    }
    char answer = 0;
    ASSERT_EQ(::read(pipe.reading.get(), &answer, 1), 1);
    ASSERT_EQ(answer, 'y');
    EXPECT_TRUE(FileLock::isHeld(path));
    EXPECT_FALSE(FileLock::tryTake(path));

    std::atomic<bool> taken = false;
    std::jthread waiting([&] {
        const FileLock lock = FileLock::take(path);
        taken = true;
    });
    EXPECT_FALSE(taken);
    ::kill(holder, SIGKILL);
    EXPECT_TRUE(test::eventually([&] { return taken.load(); }));
    ::waitpid(holder, nullptr, 0);
}

TEST(FileLock, IsNotLostToThoseWhoOnlyAsk)
{
    const test::TemporaryFolder folder;
    const auto path = folder / "lock";
    {
        const auto made = FileLock::tryTake(path);
    }
    std::atomic<bool> stop = false;
    const auto ask = [&] {
        while (!stop)
            static_cast<void>(FileLock::isHeld(path));
    };
    std::jthread first(ask);
    std::jthread second(ask);
    int refused = 0;
    for (int count = 0; count < 5000; ++count)
        refused += FileLock::tryTake(path) ? 0 : 1;
    stop = true;
    EXPECT_EQ(refused, 0);
}

} // namespace
} // namespace veltry
