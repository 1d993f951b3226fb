#include "Experiments/RunLog/Follower.h"
#include "Experiments/RunLog/RunLog.h"
#include "Experiments/RunLog/Stamp.h"
#include "Experiments/RunLog/Stamper.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/Eventually.h"
#include "Support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <limits>

namespace veltry {
namespace {

using RunLog::Follower;
using RunLog::Stamp;
using RunLog::Stamper;
using test::eventually;
using testing::ElementsAre;
using testing::IsEmpty;

void append(const std::filesystem::path& file, std::string_view bytes)
{
    Files::writeAll(Files::open(file, Files::forAppending), bytes, file.string());
}

std::string records(const std::vector<Stamp>& stamps)
{
    std::string text;
    for (const Stamp& stamp : stamps)
        stamp.appendTo(text);
    return text;
}

/// "2@3 text" for line 2, seen at second 3, and "-" for what isn't known.
std::string shown(const RunLog::Line& line)
{
    return fmt::format(
        "{}@{} {}", line.number ? std::to_string(*line.number) : "-",
        line.at ? fmt::format("{}", line.at->secondsSince1970()) : "-", line.text);
}

/// A line for each.
std::string shown(const std::vector<RunLog::Line>& lines)
{
    std::string text;
    for (const RunLog::Line& line : lines)
        text += shown(line) + '\n';
    return text;
}

/// With "..." at an end that is none yet.
std::vector<std::string> shown(const std::vector<Follower::Piece>& pieces)
{
    std::vector<std::string> texts;
    for (const Follower::Piece& piece : pieces)
        texts.push_back((piece.begins ? "" : "...") + shown(piece.line) + (piece.ends ? "" : "..."));
    return texts;
}

class RunLogTest : public testing::Test {
protected:
    /// What the side file holds.
    [[nodiscard]] std::vector<Stamp> stamps() const
    {
        const std::string text = Files::read(times);
        EXPECT_EQ(text.size() % Stamp::length, 0U);
        std::vector<Stamp> result;
        for (std::size_t at = 0; at + Stamp::length <= text.size(); at += Stamp::length)
            result.push_back(Stamp::parse(text.substr(at, Stamp::length)).value_or(Stamp{}));
        return result;
    }

    [[nodiscard]] std::vector<std::uint64_t> offsets() const
    {
        std::vector<std::uint64_t> result;
        for (const Stamp& stamp : stamps())
            result.push_back(stamp.offset);
        return result;
    }

    /// Stamps the next lines as a stamper does, each at the second that its offset says.
    void stamp(std::initializer_list<std::uint64_t> next) const
    {
        for (const std::uint64_t offset : next)
            append(times, records({Stamp::at(offset, Date::sinceUnixEpoch(static_cast<double>(offset)))}));
    }

    test::TemporaryFolder folder;
    const std::filesystem::path log = folder / "log";
    const std::filesystem::path times = RunLog::times(log);
};

TEST(RunLog, ARecordHasThirtyBytes)
{
    EXPECT_EQ(records({Stamp::at(0, Date::sinceUnixEpoch(1767225600.0625))}), "000000000000000 1767225600063\n");
    EXPECT_EQ(records({{999'999'999'999'999, 9'999'999'999'999}}), "999999999999999 9999999999999\n");
    EXPECT_EQ(
        records({Stamp::at(7, Date::sinceUnixEpoch(-std::numeric_limits<double>::infinity()))}),
        "000000000000007 -999999999999\n");

    EXPECT_EQ(Stamp::parse("  3   -4\n"), (Stamp{.offset = 3, .milliseconds = -4}));
    for (const std::string_view text :
         {"", "000000000000003\n", "3 4 5\n", "-3 4\n", "0x3 4\n", "3 4.5\n", "18446744073709551616 4\n", "3\t4\n",
          "3 9223372036854775808\n", "\xFF\xFE 4\n"})
        EXPECT_EQ(Stamp::parse(text), std::nullopt) << text;
}

TEST_F(RunLogTest, StampWholeReplacesTheSideFile)
{
    append(log, "a\nbc\n\nlast");
    append(times, std::string(1000, 'x'));
    RunLog::stampWhole(log, Date::sinceUnixEpoch(100), 0.5);
    EXPECT_EQ(stamps(), (std::vector<Stamp>{{0, 100'000}, {2, 100'500}, {5, 101'000}, {6, 101'500}}));
    EXPECT_EQ(shown(RunLog::tail(log, 1)), "4@101.5 last\n");

    std::filesystem::resize_file(log, 0);
    RunLog::stampWhole(log, Date::sinceUnixEpoch(100), 0.5);
    EXPECT_EQ(Files::read(times), "");
    EXPECT_THROW(RunLog::stampWhole(folder / "missing", {}, 1), SystemError);
    EXPECT_FALSE(Files::exists(folder / "missing.times"));
}

TEST_F(RunLogTest, TheStamperFollowsAGrowingLog)
{
    append(log, "before\n");
    Stamper stamper(log);
    stamper.start();
    EXPECT_THAT(offsets(), ElementsAre(0)) << "stamped before start() returns";

    append(log, "abc");
    ASSERT_TRUE(eventually([&] { return offsets().size() == 2; }));
    const Stamp unfinished = stamps().back();
    append(log, "def\n");
    append(log, "\n");
    ASSERT_TRUE(eventually([&] { return offsets().size() == 3; }));
    append(log, "last");
    stamper.stop();
    stamper.stop();
    EXPECT_THAT(offsets(), ElementsAre(0, 7, 14, 15));
    EXPECT_EQ(stamps()[1], unfinished) << "its time is that of its first byte";
    append(log, "\nafter\n");
    const double seen = static_cast<double>(stamps().back().milliseconds) / 1000;
    EXPECT_EQ(shown(RunLog::tail(log, 2)), fmt::format("4@{} last\n5@- after\n", seen));
}

TEST_F(RunLogTest, AStamperThatCantStartLeavesNothingToStop)
{
    Stamper missing(folder / "no folder/log");
    EXPECT_THROW(missing.start(), SystemError);
    missing.stop();
    Files::createFolders(times);
    Stamper blocked(log);
    EXPECT_THROW(blocked.start(), SystemError);
    Stamper unused(folder / "other");
    unused.stop();
    EXPECT_FALSE(Files::exists(folder / "other"));
}

TEST_F(RunLogTest, ALogThatWasCutIsStampedOnceItHasGrownPastItsOldEnd)
{
    append(log, "one\ntwo\n");
    Stamper stamper(log);
    stamper.start();
    std::filesystem::resize_file(log, 0);
    append(log, "three\nfour");
    stamper.stop();
    EXPECT_THAT(offsets(), ElementsAre(0, 4, 8));
}

TEST_F(RunLogTest, TailGivesTheLastLinesWithWhatTheSideFileSaysOfThem)
{
    const std::string one = records({{0, 1000}});
    const std::string two = records({{2, 2000}});
    const std::string three = records({{4, 3000}});
    const std::string all = one + two + three;
    const std::string damaged = "0000000000000zz 0000000002000\n";

    const struct {
        std::string_view log;
        std::optional<std::string> sideFile;
        std::int64_t count;
        std::string lines;
    } cases[] = {
        {"a\nb\nc\n", all, 2, "2@2 b\n3@3 c\n"},
        {"a\nb\nc", all, 1, "3@3 c\n"},
        {"a\nb", all, std::numeric_limits<std::int64_t>::max(), "1@1 a\n2@2 b\n"},
        {"a\nb\n", all, 0, ""},
        {"a\nb\n", all, std::numeric_limits<std::int64_t>::min(), ""},
        {"", all, 5, ""},
        {"\n\n", one + records({{1, 2000}}), 5, "1@1 \n2@2 \n"},
        {"a\nb\nc\nd\n", one + two, 3, "2@2 b\n3@- c\n4@- d\n"},
        {"a\nb\n", std::nullopt, 2, "-@- a\n-@- b\n"},
        {"a\n", "000000000000000 000000", 2, "-@- a\n"},
        {"a\nb\n", one + "000000000000002 00000", 2, "1@1 a\n2@- b\n"},
        {"a\nb\nc\n", one + damaged + three, 3, "1@1 a\n2@- b\n3@3 c\n"}, // a damaged record counts
        {"a\nb\nc\n", one + three, 3, "1@1 a\n2@- b\n2@3 c\n"},           // a lost one doesn't
        {"\xFF\xC3(\n", one, 1, "1@1 \uFFFD\uFFFD(\n"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.log) + " beside " + c.sideFile.value_or("nothing"));
        Files::writeAtomically(log, c.log);
        Files::remove(times);
        if (c.sideFile)
            append(times, *c.sideFile);
        EXPECT_EQ(shown(RunLog::tail(log, c.count)), c.lines);
    }
}

TEST_F(RunLogTest, TailGivesNothingWhereThereIsNoPlainLog)
{
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0); // which has no writer to wait for
    for (const char* name : {"missing", ".", "pipe"})
        EXPECT_THAT(RunLog::tail(folder / name, 5), IsEmpty()) << name;
}

TEST_F(RunLogTest, TailDropsThePieceBeforeTheFirstLineFeedOfItsSpan)
{
    // One line is asked for, so that the span has 4,496 bytes.
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

TEST_F(RunLogTest, TailReadsAsMuchOfALongLogAsOfAShortOne)
{
    constexpr std::uint64_t size = 10'000'000'000;
    append(log, "");
    std::filesystem::resize_file(log, size); // sparse: all but its end costs no disk
    std::string sideFile;
    for (std::uint64_t index = 0; index < 100'000; ++index)
        Stamp{.offset = index * 100'000 + (index > 0 ? 1 : 0), .milliseconds = 5000}.appendTo(sideFile);
    append(log, "\n");
    for (std::uint64_t index = 0; index < 20; ++index) {
        Stamp{.offset = size + 1 + index * 2, .milliseconds = 7000}.appendTo(sideFile);
        append(log, "y\n");
    }
    append(times, sideFile);
    const std::uint64_t before = bytesRead();
    const std::vector<RunLog::Line> lines = RunLog::tail(log, 3);
    const std::uint64_t read = bytesRead() - before;
    EXPECT_EQ(shown(lines), "100018@7 y\n100019@7 y\n100020@7 y\n");
    EXPECT_LT(read, 8000U);
}

TEST_F(RunLogTest, AFollowerGivesEachLineOnceItIsWhole)
{
    Follower follower(log, 10);
    EXPECT_THAT(follower.next(), IsEmpty()); // no log yet
    append(log, "a\nb");
    EXPECT_THAT(shown(follower.next()), ElementsAre("1@- a")); // no stamps yet
    stamp({0, 2});
    EXPECT_THAT(follower.next(), IsEmpty());
    append(log, "b\n\nd\n");
    stamp({5, 6});
    EXPECT_THAT(shown(follower.next()), ElementsAre("2@2 bb", "3@5 ", "4@6 d"));
    append(log, "unstamped\nend");
    EXPECT_THAT(shown(follower.next()), ElementsAre("5@- unstamped"));
    follower.finish();
    append(log, " and more");
    EXPECT_THAT(shown(follower.next()), ElementsAre("6@- end"));
    EXPECT_THAT(follower.next(), IsEmpty());
}

TEST_F(RunLogTest, AFollowerBeginsWithTheLastLines)
{
    append(log, "a\nb\nc\n");
    stamp({0, 2, 4});
    EXPECT_THAT(Follower(log, 0).next(), IsEmpty());
    EXPECT_THAT(shown(Follower(log, 2).next()), ElementsAre("2@2 b", "3@4 c"));
    EXPECT_THAT(shown(Follower(log, 9).next()), ElementsAre("1@0 a", "2@2 b", "3@4 c"));
    append(log, "d");
    Follower follower(log, 2);
    EXPECT_THAT(shown(follower.next()), ElementsAre("3@4 c"));
    append(log, "\n");
    EXPECT_THAT(shown(follower.next()), ElementsAre("4@- d"));
}

TEST_F(RunLogTest, AFollowerGivesLongLinesInParts)
{
    std::string line = "x"; // so that no part could end between the two bytes of a character
    while (line.size() < 3 * Follower::pieceBytes)
        line += "ü";
    append(log, "a\n" + line + "\n" + line + "\nz\n");
    stamp({0, 2});
    Follower follower(log, 3);
    std::string joined;
    std::size_t parts = 0;
    for (auto pieces = follower.next(); !pieces.empty(); pieces = follower.next())
        for (const Follower::Piece& piece : pieces) {
            joined += piece.line.text + (piece.ends ? "\n" : "");
            EXPECT_LE(piece.line.text.size(), 2 * Follower::pieceBytes);
            EXPECT_EQ(piece.line.number, piece.line.text == "z" ? 4 : joined.size() <= line.size() + 1 ? 2 : 3);
            ++parts;
        }
    EXPECT_EQ(joined, line + "\n" + line + "\nz\n");
    EXPECT_GT(parts, 5u);
}

} // namespace
} // namespace veltry
