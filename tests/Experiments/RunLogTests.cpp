#include "Experiments/RunLog.h"
#include "Experiments/RunLogStamp.h"
#include "Experiments/RunLogStamper.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/Eventually.h"
#include "Support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <limits>
#include <thread>

namespace veltry {

namespace RunLog {

void PrintTo(const Line& line, std::ostream* out)
{
    *out << (line.number ? std::to_string(*line.number) : "-") << ' '
         << (line.at ? fmt::format("{:.3f}", line.at->secondsSince1970()) : "-") << " \"" << line.text << '"';
}

} // namespace RunLog

namespace {

using RunLog::LineScanner;
using RunLog::Stamp;
using RunLog::Stamper;
using test::eventually;
using test::TemporaryFolder;
using testing::ElementsAre;

void append(const std::filesystem::path& file, std::string_view bytes)
{
    Files::writeAll(Files::open(file, O_WRONLY | O_APPEND | O_CREAT), bytes, file.string());
}

std::string records(const std::vector<Stamp>& stamps)
{
    std::string text;
    for (const Stamp& stamp : stamps)
        stamp.appendTo(text);
    return text;
}

std::vector<Stamp> stamps(const std::filesystem::path& sideFile)
{
    const std::string text = Files::read(sideFile);
    EXPECT_EQ(text.size() % Stamp::length, 0U);
    std::vector<Stamp> result;
    for (std::size_t at = 0; at + Stamp::length <= text.size(); at += Stamp::length)
        result.push_back(Stamp::parse(text.substr(at, Stamp::length)).value_or(Stamp{}));
    return result;
}

std::vector<std::uint64_t> offsets(const std::filesystem::path& sideFile)
{
    std::vector<std::uint64_t> result;
    for (const Stamp& stamp : stamps(sideFile))
        result.push_back(stamp.offset);
    return result;
}

RunLog::Line line(std::optional<std::int64_t> number, std::optional<double> seconds, std::string text)
{
    return {.number = number, .at = seconds.transform(Date::sinceUnixEpoch), .text = std::move(text)};
}

TEST(RunLog, ARecordHasThirtyBytesAndReadsBackEqual)
{
    const struct {
        Stamp stamp;
        std::string_view record;
    } cases[] = {
        {Stamp::at(0, Date::sinceUnixEpoch(0.001)), "000000000000000 0000000000001\n"},
        {Stamp::at(0, Date::sinceUnixEpoch(1767225600.0625)), "000000000000000 1767225600063\n"},
        {{.offset = 999'999'999'999'999, .milliseconds = 9'999'999'999'999}, "999999999999999 9999999999999\n"},
        {Stamp::at(7, Date::sinceUnixEpoch(-1)), "000000000000007 -000000001000\n"},
        {Stamp::at(7, Date::sinceUnixEpoch(-std::numeric_limits<double>::infinity())),
         "000000000000007 -999999999999\n"},
    };

    for (const auto& c : cases) {
        EXPECT_EQ(records({c.stamp}), c.record);
        const std::optional<Stamp> parsed = Stamp::parse(c.record);
        ASSERT_TRUE(parsed) << c.record;
        EXPECT_EQ(records({*parsed}), c.record);
    }
}

TEST(RunLog, OnlyTwoDecimalNumbersMakeARecord)
{
    EXPECT_EQ(Stamp::parse("  3   -4\n"), (Stamp{.offset = 3, .milliseconds = -4}));
    for (const std::string_view text :
         {"", "000000000000003\n", "3 4 5\n", "-3 4\n", "0x3 4\n", "3 4.5\n", "18446744073709551616 4\n", "3\t4\n",
          "3 9223372036854775808\n", "\xFF\xFE 4\n"})
        EXPECT_EQ(Stamp::parse(text), std::nullopt) << text;
}

TEST(RunLog, LinesBeginAtTheSamePlacesHoweverTheLogIsCut)
{
    const std::string log = "one\n\n\nfour\r\nfive\n\nseven";
    const std::vector<std::uint64_t> starts{0, 4, 5, 6, 12, 17, 18};
    for (std::size_t cut = 0; cut <= log.size(); ++cut) {
        for (std::size_t second = cut; second <= log.size(); ++second) {
            std::vector<std::uint64_t> found;
            LineScanner scanner;
            const std::string_view all = log;
            for (const std::string_view piece : {all.substr(0, cut), all.substr(cut, second - cut), all.substr(second)})
                scanner.scan(piece, [&](std::uint64_t offset) { found.push_back(offset); });
            ASSERT_EQ(found, starts) << "cut at " << cut << " and " << second;
        }
    }
}

TEST(RunLog, StampWholeReplacesTheSideFile)
{
    const TemporaryFolder folder;
    const std::filesystem::path log = folder / "log";
    append(log, "a\nbc\n\nlast");
    append(RunLog::times(log), std::string(1000, 'x'));
    RunLog::stampWhole(log, Date::sinceUnixEpoch(100), 0.5);
    EXPECT_EQ(stamps(RunLog::times(log)), (std::vector<Stamp>{{0, 100'000}, {2, 100'500}, {5, 101'000}, {6, 101'500}}));
    EXPECT_EQ(RunLog::tail(log, 1), std::vector{line(4, 101.5, "last")});

    std::filesystem::resize_file(log, 0);
    RunLog::stampWhole(log, Date::sinceUnixEpoch(100), 0.5);
    EXPECT_EQ(Files::read(RunLog::times(log)), "");
    EXPECT_THROW(RunLog::stampWhole(folder / "missing", {}, 1), SystemError);
    EXPECT_FALSE(Files::exists(folder / "missing.times"));
}

TEST(RunLog, TheStamperFollowsAGrowingLog)
{
    const TemporaryFolder folder;
    const std::filesystem::path log = folder / "log";
    append(log, "before\n");
    Stamper stamper(log);
    stamper.start();
    EXPECT_THAT(offsets(RunLog::times(log)), ElementsAre(0)) << "stamped before start() returns";

    append(log, "abc");
    ASSERT_TRUE(eventually([&] { return offsets(RunLog::times(log)).size() == 2; }));
    const Stamp unfinished = stamps(RunLog::times(log)).back();
    append(log, "def\n");
    append(log, "\n");
    ASSERT_TRUE(eventually([&] { return offsets(RunLog::times(log)).size() == 3; }));
    append(log, "last");
    stamper.stop();
    stamper.stop();
    EXPECT_THAT(offsets(RunLog::times(log)), ElementsAre(0, 7, 14, 15));
    EXPECT_EQ(stamps(RunLog::times(log))[1], unfinished) << "its time is that of its first byte";
    append(log, "\nafter\n");
    const double seen = static_cast<double>(stamps(RunLog::times(log)).back().milliseconds) / 1000;
    EXPECT_EQ(RunLog::tail(log, 2), (std::vector{line(4, seen, "last"), line(5, {}, "after")}));
}

TEST(RunLog, AStamperThatCantStartLeavesNothingToStop)
{
    const TemporaryFolder folder;
    Stamper missing(folder / "no folder/log");
    EXPECT_THROW(missing.start(), SystemError);
    missing.stop();
    Files::createFolders(folder / "log.times");
    Stamper blocked(folder / "log");
    EXPECT_THROW(blocked.start(), SystemError);
    Stamper unused(folder / "other");
    unused.stop();
    EXPECT_FALSE(Files::exists(folder / "other"));
}

TEST(RunLog, ALogThatWasCutIsStampedOnceItHasGrownPastItsOldEnd)
{
    const TemporaryFolder folder;
    const std::filesystem::path log = folder / "log";
    append(log, "one\ntwo\n");
    Stamper stamper(log);
    stamper.start();
    std::filesystem::resize_file(log, 0);
    append(log, "three\nfour");
    stamper.stop();
    EXPECT_THAT(offsets(RunLog::times(log)), ElementsAre(0, 4, 8));
}

TEST(RunLog, StopEndsThoughTheLogGrowsForEver)
{
    const TemporaryFolder folder;
    const std::filesystem::path log = folder / "log";
    append(log, "");
    std::atomic<bool> done = false;
    std::thread writer([&] {
        const FileDescriptor file = Files::open(log, O_WRONLY | O_APPEND);
        std::string bytes;
        for (int count = 0; count < 1000; ++count)
            bytes += std::string(99, 'x') + '\n';
        while (!done && Files::size(file) < 100'000'000)
            Files::writeAll(file, bytes, "the log");
    });
    Stamper stamper(log);
    stamper.start();
    EXPECT_TRUE(eventually([&] { return Files::size(Files::open(RunLog::times(log), O_RDONLY)) > 0; }));
    stamper.stop();
    done = true;
    writer.join();
    const std::vector<std::uint64_t> found = offsets(RunLog::times(log));
    for (std::size_t index = 0; index < found.size(); ++index)
        ASSERT_EQ(found[index], index * 100);
}

TEST(RunLog, TailGivesTheLastLinesWithWhatTheSideFileSaysOfThem)
{
    const std::vector<Stamp> three{{0, 1000}, {2, 2000}, {4, 3000}};
    const std::string damaged = "0000000000000zz 0000000002000\n";

    const struct {
        std::string_view name;
        std::string log;
        std::optional<std::string> sideFile;
        std::int64_t count;
        std::vector<RunLog::Line> lines;
    } cases[] = {
        {"the last two", "a\nb\nc\n", records(three), 2, {line(2, 2, "b"), line(3, 3, "c")}},
        {"no last line feed", "a\nb\nc", records(three), 1, {line(3, 3, "c")}},
        {"more than there are", "a\nb", records(three), 100, {line(1, 1, "a"), line(2, 2, "b")}},
        {"more than can be counted",
         "a\nb",
         records(three),
         std::numeric_limits<std::int64_t>::max(),
         {line(1, 1, "a"), line(2, 2, "b")}},
        {"none asked for", "a\nb\n", records(three), 0, {}},
        {"fewer than none", "a\nb\n", records(three), std::numeric_limits<std::int64_t>::min(), {}},
        {"an empty log", "", records(three), 5, {}},
        {"empty lines", "\n\n", records({{0, 1000}, {1, 2000}}), 5, {line(1, 1, ""), line(2, 2, "")}},
        {"not stamped yet",
         "a\nb\nc\nd\n",
         records({{0, 1000}, {2, 2000}}),
         3,
         {line(2, 2, "b"), line(3, {}, "c"), line(4, {}, "d")}},
        {"no side file", "a\nb\n", std::nullopt, 2, {line({}, {}, "a"), line({}, {}, "b")}},
        {"half a record alone", "a\n", "000000000000000 000000", 2, {line({}, {}, "a")}},
        {"half a record at the end",
         "a\nb\n",
         records({{0, 1000}}) + "000000000000002 00000",
         2,
         {line(1, 1, "a"), line(2, {}, "b")}},
        {"a damaged record counts",
         "a\nb\nc\n",
         records({three[0]}) + damaged + records({three[2]}),
         3,
         {line(1, 1, "a"), line(2, {}, "b"), line(3, 3, "c")}},
        {"a lost record",
         "a\nb\nc\n",
         records({three[0], three[2]}),
         3,
         {line(1, 1, "a"), line(2, {}, "b"), line(2, 3, "c")}},
        {"foreign bytes", "\xFF\xC3(\n", records({{0, 1000}}), 1, {line(1, 1, "\uFFFD\uFFFD(")}},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const TemporaryFolder folder;
        append(folder / "log", c.log);
        if (c.sideFile)
            append(folder / "log.times", *c.sideFile);
        EXPECT_EQ(RunLog::tail(folder / "log", c.count), c.lines);
    }
}

TEST(RunLog, TailGivesNothingWhereThereIsNoPlainLog)
{
    const TemporaryFolder folder;
    EXPECT_EQ(RunLog::tail(folder / "missing", 5), std::vector<RunLog::Line>{});
    EXPECT_EQ(RunLog::tail(folder.path(), 5), std::vector<RunLog::Line>{});
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(RunLog::tail(folder / "pipe", 5), std::vector<RunLog::Line>{}) << "and it doesn't wait for a writer";
}

TEST(RunLog, TailDropsThePieceBeforeTheFirstLineFeedOfItsSpan)
{
    // One line is asked for, so that the span has 4,496 bytes.
    const TemporaryFolder folder;
    append(folder / "whole", std::string(4494, 'x') + "\n");
    EXPECT_EQ(RunLog::tail(folder / "whole", 1).size(), 1U);
    append(folder / "chance", "first\n" + std::string(4495, 'x') + "\n");
    EXPECT_EQ(RunLog::tail(folder / "chance", 1).size(), 0U) << "a whole line, but who could tell";
    append(folder / "fits", "first\n" + std::string(4494, 'x') + "\n");
    EXPECT_EQ(RunLog::tail(folder / "fits", 1).size(), 1U);
}

/// Bytes that this process has read so far, by the kernel's count.
std::uint64_t bytesRead()
{
    std::ifstream file("/proc/self/io");
    std::string name;
    std::uint64_t count = 0;
    file >> name >> count;
    return count;
}

TEST(RunLog, TailReadsAsMuchOfALongLogAsOfAShortOne)
{
    const TemporaryFolder folder;
    const std::filesystem::path log = folder / "log";
    constexpr std::uint64_t size = 10'000'000'000;
    append(log, "");
    std::filesystem::resize_file(log, size); // sparse: all but its end costs no disk
    std::string sideFile;
    for (std::uint64_t index = 0; index < 100'000; ++index)
        Stamp{.offset = index * 100'000 + (index > 0 ? 1 : 0), .milliseconds = 5000}.appendTo(sideFile);
    append(log, "\n");
    for (int index = 0; index < 20; ++index) {
        Stamp{.offset = size + 1 + static_cast<std::uint64_t>(index) * 2, .milliseconds = 7000}.appendTo(sideFile);
        append(log, "y\n");
    }
    append(RunLog::times(log), sideFile);
    const std::uint64_t before = bytesRead();
    const std::vector<RunLog::Line> lines = RunLog::tail(log, 3);
    const std::uint64_t read = bytesRead() - before;
    EXPECT_EQ(lines, (std::vector{line(100'018, 7, "y"), line(100'019, 7, "y"), line(100'020, 7, "y")}));
    EXPECT_LT(read, 8000U);
}

} // namespace
} // namespace veltry
