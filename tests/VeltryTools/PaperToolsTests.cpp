#include "Literature/OpenAlex.h"
#include "Literature/OpenAlexAnswer.h"
#include "Literature/PaperTexts.h"
#include "Platform/Files.h"
#include "QuickTools.h"
#include "Support/Eventually.h"
#include "Support/FakeOpenAlex.h"
#include "VeltryTools/PaperTools.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdlib>

namespace veltry {
namespace {

using test::FakeOpenAlex;
using test::McpProcess;
using test::pageOf;
using test::TestLab;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

JSONValue paperID(const std::string& id)
{
    return JSONValue::object({{"paper_id", id}});
}

JSONValue query(const std::string& text, JSONValue limit = nullptr)
{
    return JSONValue::object({{"query", text}, {"limit", std::move(limit)}});
}

/// The tools over a real lab, with a service on loopback.
class PaperToolsTest : public testing::Test {
protected:
    PaperToolsTest()
    {
        ::setenv(OpenAlex::baseVariable, server.address().c_str(), 1);
        ::unsetenv(OpenAlex::keyVariable);
        session = std::make_shared<HTTPSession>();
        tools.emplace(PaperTools{
            .lab = std::make_shared<const Lab>(test.lab),
            .search = std::make_shared<const OpenAlex>([] { return std::nullopt; }, session),
            .files = {.folder = test / "Papers", .session = session}});
    }

    ~PaperToolsTest() override { ::unsetenv(OpenAlex::baseVariable); }

    std::string call(const std::string& name, const JSONValue& arguments = JSONValue::object({})) const
    {
        return test::call(*tools, name, arguments);
    }

    std::string cite(const std::string& paper, const std::string& node, const std::string& reason) const
    {
        return call(
            "cite_paper", JSONValue::object({{"paper_id", paper}, {"experiment_id", node}, {"reason", reason}}));
    }

    /// The service has a paper "W5", whose file comes as `file` says.
    void offerFile(const FakeOpenAlex::Reply& file)
    {
        const std::string address = server.address("/file.pdf");
        const std::string work = R"({"id":"W5","display_name":"On Loss","best_oa_location":{"pdf_url":")";
        server.reply("/works/W5", {.body = work + address + "\"}}"});
        server.reply("/file.pdf", file);
    }

    FakeOpenAlex server;
    TestLab test;
    std::shared_ptr<HTTPSession> session;
    std::optional<PaperTools> tools;
};

const std::string fullWork =
    R"({"id":"https://openalex.org/W1","display_name":"Direct Preference","publication_year":2023,"authorships":)"
    R"([{"author":{"display_name":"A"}},{"author":{"display_name":"B"}},{"author":{"display_name":"C"}},)"
    R"({"author":{"display_name":"D"}}],"cited_by_count":1,"doi":"https://doi.org/10.1/x","primary_location":)"
    R"({"source":{"display_name":"arXiv"}},"best_oa_location":{"pdf_url":"https://a.org/1.pdf"},)"
    R"("abstract_inverted_index":{"While":[0],"large":[1]}})";
const std::string bareWork = R"({"id":"https://openalex.org/W2","display_name":"Bare"})";

constexpr const char* fullText =
    "Direct Preference\n\nID: W1\nAuthors: A, B, C, D\nYear: 2023\nVenue: arXiv\nCitations: 1\nDOI: 10.1/x\n"
    "Link: https://doi.org/10.1/x\nPDF: https://a.org/1.pdf\nSaved to this project: no\n\nWhile large";

TEST_F(PaperToolsTest, SearchesAndMarksWhatIsSaved)
{
    server.reply("/works", {.body = pageOf({fullWork, bareWork}, 812)});
    test.store->savePaper(OpenAlexAnswer::work(fullWork).value(), test.lab.project.id);
    const std::string first = "1. W1 · Direct Preference (2023)\n   A, B, C and 1 more · arXiv · 1 citations · "
                              "open-access PDF · saved to this "
                              "project\n   While large";
    const std::string both =
        "2 of 812 papers matching \" pre, ference\":\n\n" + first + "\n\n2. W2 · Bare\n   0 citations";
    for (const JSONValue& limit : {JSONValue(nullptr), JSONValue("2"), JSONValue(100)})
        EXPECT_EQ(call("search_papers", query(" pre, ference", limit)), both);
    EXPECT_EQ(call("search_papers", query("x", -7)), "1 of 812 papers matching \"x\":\n\n" + first);
    std::vector<std::string> works;
    for (int number = 1; number <= 25; ++number)
        works.push_back(fmt::format(R"({{"id":"W{0}","display_name":"T {0}"}})", number));
    server.reply("/works", {.body = pageOf(works, 25)});
    EXPECT_THAT(call("search_papers", query("x")), StartsWith("10 of 25 papers matching \"x\":"));
    server.reply("/works", {.body = pageOf({}, 0)});
    EXPECT_EQ(call("search_papers", query("x")), "No papers match \"x\".");
    EXPECT_EQ(call("search_papers", query(" ")), "!missing_argument: Pass query.");
}

TEST_F(PaperToolsTest, ShowsOnePaperInFull)
{
    server.reply("/works/W1", {.body = fullWork});
    server.reply("/works/W2", {.body = bareWork});
    EXPECT_EQ(call("get_paper", paperID("\t https://openalex.org/W1 ")), fullText);
    EXPECT_EQ(
        call("get_paper", paperID("W2")),
        "Bare\n\nID: W2\nAuthors: \nCitations: 0\nLink: https://openalex.org/W2\nSaved to this project: no\n\n"
        "OpenAlex has no abstract for this paper.");
    EXPECT_EQ(
        call("get_paper", paperID(" W9 ")),
        "!paper_not_found: No paper W9. Use an id from search_papers, like W4385245566.");
    EXPECT_EQ(
        call("save_paper", paperID("W1\n")),
        "!paper_not_found: No paper W1\n. Use an id from search_papers, like W4385245566.");
    EXPECT_EQ(call("get_paper"), "!missing_argument: Pass paper_id.");
    EXPECT_THAT(server.asked(), SizeIs(3));
}

TEST_F(PaperToolsTest, APaperOfAnyProjectsLibraryCostsNoRequest)
{
    test.store->savePaper(OpenAlexAnswer::work(fullWork).value(), test.store->createProject("Q", {"/q"}).id);
    EXPECT_EQ(call("get_paper", paperID("W1")), fullText);
    EXPECT_EQ(call("save_paper", paperID("W1")), "Saved Direct Preference to this project.");
    EXPECT_EQ(call("save_paper", paperID("W1")), "Direct Preference is already saved to this project.");
    Files::createFolders(test / "Papers");
    Files::writeAtomically(test / "Papers/W1.pdf", "%PDF-");
    EXPECT_THAT(
        call("get_paper", paperID("W1")),
        HasSubstr("\nDownloaded: " + (test / "Papers/W1.pdf").string() + "\nSaved to this project: yes\n"));
    EXPECT_EQ(
        call("download_paper", paperID("W1")), "Downloaded Direct Preference to " + (test / "Papers/W1.pdf").string());
    EXPECT_THAT(server.asked(), IsEmpty());
}

TEST_F(PaperToolsTest, CitesAndListsForThisProject)
{
    EXPECT_EQ(call("list_library"), "No papers are saved to this project.");
    server.reply("/works/W1", {.body = fullWork});
    server.reply("/works/W2", {.body = bareWork});
    const std::string node = test.baseline("true", "Base").id.text();
    const Experiment archived = test.baseline("true", "Gone");
    EXPECT_EQ(
        cite("W1", "x", "why"),
        "!experiment_not_found: No experiment x in this project. Call experiment_tree for the ids.");
    EXPECT_THAT(server.asked(), IsEmpty()) << "the node is looked up first";
    EXPECT_EQ(cite("W1", node, " \n"), "!missing_argument: Pass reason.");
    EXPECT_THAT(test.store->libraryPapers(), IsEmpty());
    EXPECT_EQ(cite("W1", node, " The loss.\n"), "Base cites Direct Preference.");
    const std::string entry =
        "W1 · Direct Preference (2023)\n   A, B, C and 1 more · arXiv · 1 citations · open-access PDF · saved to this "
        "project\n   While large\n   Cited by Base (" +
        node + "): The loss.";
    EXPECT_EQ(call("list_library"), "1 paper saved to this project:\n\n1. " + entry);

    EXPECT_EQ(cite("W1", archived.id.text(), "no"), "Gone cites Direct Preference.");
    test.store->setArchived(archived.id, true);
    EXPECT_EQ(call("save_paper", paperID("W2")), "Saved Bare to this project.");
    EXPECT_EQ(
        call("list_library"),
        "2 papers saved to this project:\n\n1. W2 · Bare\n   0 citations · saved to this project\n\n2. " + entry);
}

TEST_F(PaperToolsTest, TellsFailuresOfTheServiceAndOfDownloads)
{
    server.reply("/works", {.status = 429});
    EXPECT_EQ(
        call("search_papers", query("x")),
        "!search_failed: OpenAlex's free searches from this network are used up for today. Add an OpenAlex key in "
        "Settings › Literature, or search again tomorrow.");
    server.reply("/works/W3", {.status = 500});
    for (const char* tool : {"get_paper", "save_paper", "download_paper"})
        EXPECT_EQ(
            call(tool, paperID("W3")),
            "!search_failed: OpenAlex did not answer. Check the connection and search again.");
    server.reply("/works/W2", {.body = bareWork});
    EXPECT_EQ(
        call("download_paper", paperID("W2")),
        "!download_failed: This paper has no open-access PDF. Open it in the browser to read it there.");
    EXPECT_FALSE(Files::exists(test / "Papers"));
    EXPECT_THAT(test.store->libraryPapers(), IsEmpty());
}

/// What a real server does while a download trickles.
TEST_F(PaperToolsTest, ATricklingDownloadHoldsUpNobody)
{
    server.reply("/works", {.body = pageOf({bareWork}, 1)});
    const std::string body = "%PDF-" + std::string(45, 'x');
    offerFile({.body = body, .pieces = 50, .pause = std::chrono::milliseconds(60)});
    McpProcess client = test.serve();
    const std::int64_t download = client.sendCall("download_paper", paperID("W5"));
    ASSERT_TRUE(test::eventually([&] { return server.asked().size() == 2; }));

    EXPECT_THAT(client.call("experiment_tree"), StartsWith("The tree is empty."));
    constexpr int searches = 20;
    for (int index = 0; index < searches; ++index)
        client.sendCall("search_papers", query("x"));
    for (int index = 0; index < searches; ++index) {
        const JSONValue message = client.receive().value();
        EXPECT_NE(*message.find("id"), JSONValue(download)) << "the download is the last to end";
        EXPECT_EQ(test::toolText(message), "1 of 1 papers matching \"x\":\n\n1. W2 · Bare\n   0 citations");
    }
    const std::filesystem::path file = test / "Papers/W5.pdf";
    EXPECT_EQ(test::toolText(client.answer(download)), "Downloaded On Loss to " + file.string());
    EXPECT_EQ(Files::read(file), body);
}

TEST_F(PaperToolsTest, TheEndOfInputDropsADownloadAndLeavesNothingOfIt)
{
    offerFile({.body = "%PDF-xxxx", .pieces = 2, .pause = std::chrono::seconds(60)});
    Files::createFolders(test / "Papers");
    McpProcess client = test.serve();
    client.sendCall("download_paper", paperID("W5"));
    ASSERT_TRUE(test::eventually([&] { return server.asked().size() == 2; }));
    client.closeInput();
    EXPECT_EQ(client.wait(), 0) << "the transfer, which takes a minute, isn't waited for";
    EXPECT_TRUE(std::filesystem::is_empty(test / "Papers"));
}

TEST_F(PaperToolsTest, AServerOfAConversationAsksItsPersonAndCitesWithTheKeyOfItsStart)
{
    offerFile({});
    const UUID conversation = test.store->createConversation(test.lab.project.id, "chat", "agent").id;
    ::setenv(OpenAlex::keyVariable, "secret", 1);
    McpProcess client = test.serve({"--conversation", conversation.text()});
    ::unsetenv(OpenAlex::keyVariable);
    const std::int64_t asked = client.sendCall(
        "ask_user", JSONValue::parse(R"({"questions":[{"question":"Which loss?","options":[{"label":"DPO"}]}]})"));
    ASSERT_TRUE(test::eventually([&] { return !test.store->openQuestions(conversation).empty(); }));
    test.store->answer(test.store->openQuestions(conversation).front().id, {{.chosen = {"DPO"}}});
    EXPECT_THAT(test::toolText(client.answer(asked)), HasSubstr("DPO"));

    const Experiment node = test.baseline("true");
    const JSONValue citation =
        JSONValue::object({{"paper_id", "W5"}, {"experiment_id", node.id.text()}, {"reason", "its loss"}});
    EXPECT_EQ(client.call("cite_paper", citation), "Baseline cites On Loss.");
    EXPECT_EQ(server.asked().back().query.at("api_key"), "secret");
    EXPECT_THAT(client.call("experiment_tree"), testing::EndsWith("\n  cites W5 On Loss: its loss"));
}

} // namespace
} // namespace veltry
