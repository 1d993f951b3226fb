#include "Literature/OpenAlex.h"
#include "Platform/Files.h"
#include "Support/FakeOpenAlex.h"
#include "Support/HostLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;
using testing::Not;

/// The commands with a service on loopback that knows the paper W1.
class PaperCommandsTest : public testing::Test {
protected:
    PaperCommandsTest()
    {
        const std::string work =
            R"({"id":"https://openalex.org/W1","display_name":"A title & more","publication_year":)"
            R"(2020,"cited_by_count":7,"authorships":[{"author":{"display_name":"Ada B"}}],)"
            R"("best_oa_location":{"pdf_url":")" +
            server_.address("/w1.pdf") + R"("},"abstract_inverted_index":{"Words":[0]}})";
        server_.reply("/works", {.body = test::pageOf({work}, 31)});
        server_.reply("/works/W1", {.body = work});
        server_.reply("/w1.pdf", {.body = "%PDF-1.7 x", .type = "application/pdf"});
    }

    ChildProcess::Output papers(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "papers");
        ChildProcess::Environment environment = lab_.environment();
        environment[OpenAlex::baseVariable] = server_.address();
        return test::runProgram(test::hostProgram(), arguments, environment, lab_.repository.path());
    }

    test::FakeOpenAlex server_;
    const test::HostLab lab_;
    const Experiment node_ = lab_.baseline("true");
};

TEST_F(PaperCommandsTest, FindsSavesCitesAndForgets)
{
    ChildProcess::Output found = papers({"search", "some", "words"});
    EXPECT_THAT(found.output, HasSubstr("W1     A title & more  Ada B    2020          7  PDF\n"));
    EXPECT_EQ(found.error, "1 of 31 papers that match, the most relevant first.\n");
    EXPECT_THAT(server_.asked().back().target, HasSubstr("some"));
    EXPECT_THAT(papers({"show", "https://openalex.org/W1"}).output, HasSubstr("  saved      no\n\nWords\n"));
    EXPECT_EQ(papers({"save", "w1"}).error, "A title & more is saved.\n");
    EXPECT_EQ(papers({"cite", "W1", "baseline", "--reason", "The loss."}).exitNumber, 0);
    EXPECT_THAT(papers({"show", "W1"}).output, HasSubstr("  saved      to P\n"));
    const std::size_t asked = server_.asked().size(); // the library knows it now
    EXPECT_EQ(papers({"save", "W1"}).error, "A title & more is saved to this project already.\n");
    EXPECT_EQ(server_.asked().size(), asked);
    EXPECT_THAT(papers({}).output, HasSubstr("7  Baseline\n"));
    EXPECT_EQ(
        *JSONValue::parse(papers({"--all", "--json"}).output)
             .array()
             ->at(0)
             .find("citing")
             ->array()
             ->at(0)
             .find("reason")
             ->string(),
        "The loss.");
    EXPECT_THAT(papers({"bibtex"}).output, HasSubstr("@misc{b2020title,\n  title = {{A title \\& more}},"));
    EXPECT_EQ(papers({"remove", "W1"}).exitNumber, 0);
    EXPECT_THAT(papers({"bibtex"}).output, HasSubstr("b2020title"));
    EXPECT_EQ(papers({"uncite", "W1", "baseline"}).exitNumber, 0);
    EXPECT_EQ(papers({"bibtex"}).error, "No node of this project cites a paper.\n");
}

TEST_F(PaperCommandsTest, DownloadsOnce)
{
    const ChildProcess::Output output = papers({"download", "W1"});
    ASSERT_EQ(output.exitNumber, 0) << output.error;
    EXPECT_EQ(output.output, (lab_ / "Papers/W1.pdf").string() + "\n");
    EXPECT_EQ(Files::read(lab_ / "Papers/W1.pdf"), "%PDF-1.7 x");
    server_.reply("/w1.pdf", {.status = 404});
    EXPECT_EQ(papers({"download", "W1"}).exitNumber, 0);
}

TEST_F(PaperCommandsTest, RefusesInOneLine)
{
    server_.reply("/works", {.status = 429});
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{"show", "W2"}, 1, "There is no paper \"W2\"."},
        {{"show", "about"}, 1, "There is no paper \"about\"."},
        {{"remove", "W1"}, 1, "The paper \"W1\" isn't saved to this project."},
        {{"uncite", "W1", "baseline"}, 1, "Baseline doesn't cite the paper \"W1\"."},
        {{"cite", "W1", "baseline"}, 2, "--reason is required"},
        {{"cite", "W1", "baseline", "--reason", " "}, 2, "The reason is blank."},
        {{"search", " "}, 2, "The words to search for are blank."},
        {{"search", "x"}, 1, "veltry: "},
    };
    for (const auto& c : cases) {
        const ChildProcess::Output output = papers(c.arguments);
        EXPECT_EQ(output.exitNumber, c.status);
        EXPECT_THAT(output.error, HasSubstr(c.error));
        EXPECT_EQ(output.error.find('\n'), output.error.size() - 1);
        EXPECT_EQ(output.output, "");
    }
}

} // namespace
} // namespace veltry
