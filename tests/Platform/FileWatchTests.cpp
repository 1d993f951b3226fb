#include "Platform/FileWatch.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <thread>

namespace veltry {
namespace {

using namespace std::chrono_literals;
using Event = FileWatch::Event;

TEST(FileWatch, TellsOfWhatIsAppended)
{
    const test::TemporaryFolder folder;
    const FileDescriptor file = Files::open(folder / "log", Files::forAppending);
    FileWatch watch(folder / "log");
    EXPECT_EQ(watch.wait(0ms), Event::timedOut);
    for (int count = 0; count < 3; ++count)
        Files::writeAll(file, "line\n", "the log");
    EXPECT_EQ(watch.wait(30s), Event::changed);
    EXPECT_EQ(watch.wait(0ms), Event::timedOut) << "several changes are told once";
    std::jthread writer([&] { Files::writeAll(file, "late\n", "the log"); });
    EXPECT_EQ(watch.wait(30s), Event::changed);
}

TEST(FileWatch, IsWokenFromAnotherThread)
{
    const test::TemporaryFolder folder;
    Files::writeAtomically(folder / "log", "");
    FileWatch watch(folder / "log");
    watch.wake(); // nobody waits yet
    watch.wake();
    EXPECT_EQ(watch.wait(30s), Event::woken);
    EXPECT_EQ(watch.wait(0ms), Event::timedOut);
    std::jthread waker([&] { watch.wake(); });
    EXPECT_EQ(watch.wait(30s), Event::woken);
}

TEST(FileWatch, WantsAFile)
{
    const test::TemporaryFolder folder;
    EXPECT_THROW(FileWatch(folder / "missing"), SystemError);
}

} // namespace
} // namespace veltry
