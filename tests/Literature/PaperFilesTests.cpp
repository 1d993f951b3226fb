#include "Literature/PaperFiles.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/FakeOpenAlex.h"
#include "Support/RunOnExecutor.h"
#include "Support/SmallDisk.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::FakeOpenAlex;
using testing::StartsWith;

constexpr const char* unreachable = "The PDF did not download. Check the connection and try again.";
constexpr const char* webPage =
    "The PDF link answered with a web page, not a PDF. Open it in the browser to read it there.";

Paper paperWith(const std::optional<std::string>& pdf, const std::string& id = "W1")
{
    return {.id = id, .title = "T", .url = "u", .pdfURL = pdf};
}

class PaperFilesTest : public testing::Test {
protected:
    /// The path or the error's text.
    std::string pdf(const Paper& paper)
    {
        try {
            return test::resultOf(files.pdf(paper)).string();
        } catch (const Error& error) {
            return error.description();
        }
    }

    bool leftNothing() const { return std::filesystem::is_empty(folder.path()); }

    FakeOpenAlex server;
    test::TemporaryFolder folder;
    PaperFiles files{.folder = folder / "store/Papers", .session = std::make_shared<HTTPSession>()};
};

TEST_F(PaperFilesTest, DownloadsAPaperOnce)
{
    server.reply("/1.pdf", {.body = "%PDF-1.7 text", .type = "application/pdf"});
    const Paper paper = paperWith(server.address("/1.pdf"));
    EXPECT_EQ(files.cached(paper), std::nullopt);
    const std::string path = (folder / "store/Papers/W1.pdf").string();
    EXPECT_EQ(pdf(paper), path);
    EXPECT_EQ(Files::read(path), "%PDF-1.7 text");
    EXPECT_EQ(server.asked().back().headers.at("User-Agent"), "HarrowickVeltry/0.1 (macOS)");
    EXPECT_EQ(pdf(paper), path);
    EXPECT_EQ(pdf(paperWith({})), path) << "a cached file needs no address";
    EXPECT_EQ(server.asked().size(), 1U);
}

TEST_F(PaperFilesTest, AFailedDownloadLeavesNothingBehind)
{
    const struct {
        std::string_view name;
        FakeOpenAlex::Reply reply;
        std::string text;
    } cases[] = {
        {"a web page", {.body = "<html>", .type = "text/html"}, webPage},
        {"too short", {.body = "%PDF"}, webPage},
        {"empty", {}, webPage},
        {"refused with a PDF", {.status = 404, .body = "%PDF-1.7"}, unreachable},
        {"to a file", {.status = 302, .location = "file:///etc/hostname"}, unreachable},
        {"cut off", {.body = "%PDF-1.7 and much more", .cutAfter = 12}, unreachable},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        server.reply("/1.pdf", c.reply);
        EXPECT_EQ(pdf(paperWith(server.address("/1.pdf"))), c.text);
        EXPECT_TRUE(leftNothing());
    }
    EXPECT_EQ(pdf(paperWith({})), "This paper has no open-access PDF. Open it in the browser to read it there.");
    EXPECT_EQ(pdf(paperWith("no address")), unreachable);
    EXPECT_TRUE(leftNothing());
}

TEST_F(PaperFilesTest, TakesAStoredFileAddressAndTheShortestPDF)
{
    Files::writeAtomically(folder / "my paper", "%PDF-");
    EXPECT_EQ(pdf(paperWith("file://" + (folder / "my paper").string())), (folder / "store/Papers/W1.pdf").string());
    EXPECT_EQ(Files::read(folder / "store/Papers/W1.pdf"), "%PDF-");
}

TEST_F(PaperFilesTest, AFullDiskLeavesNothingBehind)
{
    const test::SmallDisk disk(folder / "store/Papers");
    if (!disk.mounted)
        GTEST_SKIP() << "mounting a small disk takes root";
    server.reply("/big.pdf", {.body = "%PDF-" + std::string(3U << 20, 'x')});
    EXPECT_THAT(pdf(paperWith(server.address("/big.pdf"))), StartsWith("could not write the PDF to "));
    EXPECT_TRUE(std::filesystem::is_empty(folder / "store/Papers"));
}

TEST_F(PaperFilesTest, NamesFilesByTheLettersMarksAndDigitsOfTheID)
{
    const struct {
        std::string_view id, name;
    } cases[] = {
        {"W4385245566", "W4385245566.pdf"}, {"W/1:2", "W12.pdf"}, {"../..", "paper.pdf"}, {"", "paper.pdf"},
        {"W-é\u0301٣_", "Wé\u0301٣.pdf"},
    };

    for (const auto& c : cases)
        EXPECT_EQ(files.location(paperWith({}, std::string(c.id))), files.folder / c.name);
    EXPECT_EQ(PaperFiles::beside("/a/veltry.sqlite").folder, "/a/Papers");
}

} // namespace
} // namespace veltry
