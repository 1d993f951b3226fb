#include "Base/Address.h"
#include "Literature/OpenAlexAnswer.h"
#include "Support/FakeOpenAlex.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::pageOf;
using testing::ElementsAre;
using testing::IsEmpty;

template <typename Read>
bool isUnreadable(Read read)
{
    try {
        static_cast<void>(read());
        return false;
    } catch (const PaperSearchError& error) {
        return error.kind == PaperSearchError::Kind::unreadable;
    }
}

/// A work with an id, a title, and these members more.
std::string workWith(const std::string& members)
{
    return R"({"id":"https://openalex.org/W1","display_name":"T")" + (members.empty() ? "" : "," + members) + "}";
}

Paper read(const std::string& members)
{
    return OpenAlexAnswer::work(workWith(members)).value();
}

TEST(OpenAlexAnswer, ReadsAWholeWork)
{
    const std::optional<Paper> paper = OpenAlexAnswer::work(R"({
        "id": "https://openalex.org/W42/", "display_name": " A <i>title</i>\n", "publication_year": 2017,
        "authorships": [{"author": {"display_name": "Ada"}}, {"author": {}}, {"author": {"display_name": "Zoë"}}],
        "primary_location": {"landing_page_url": "https://a.org/1", "pdf_url": null, "source": {"display_name": "J"}},
        "best_oa_location": {"pdf_url": "https://b.org/1.pdf"}, "locations": [{}, {"pdf_url": "https://c.org/1.pdf"}],
        "cited_by_count": 7, "doi": "https://doi.org/10.1/<x>", "unknown": [1],
        "abstract_inverted_index": {"a": [1], "b": [0, 2], "late": [9000000000000000], "first": [-5]}})");
    EXPECT_EQ(
        paper, (Paper{
                   .id = "W42",
                   .title = "A <i>title</i>",
                   .authors = {"Ada", "Zoë"},
                   .year = 2017,
                   .venue = "J",
                   .citations = 7,
                   .doi = "10.1/<x>",
                   .url = "https://doi.org/10.1/%3Cx%3E",
                   .pdfURL = "https://b.org/1.pdf",
                   .abstract = "first b a b late",
               }));
    EXPECT_EQ(
        OpenAlexAnswer::work(R"({"id":"W7","display_name":"T","doi":null,"abstract_inverted_index":{"a":[]}})"),
        (Paper{.id = "W7", .title = "T", .url = "https://openalex.org/W7"}));
}

TEST(OpenAlexAnswer, RefusesAnyMemberOfAnotherType)
{
    for (const char* members :
         {R"("publication_year":"2017")",
          R"("publication_year":2017.5)",
          R"("publication_year":1e300)",
          R"("cited_by_count":true)",
          R"("doi":1)",
          R"("display_name":[])",
          R"("id":null)",
          R"("authorships":{})",
          R"("authorships":[null])",
          R"("authorships":[{"author":null}])",
          R"("authorships":[{"author":{"display_name":1}}])",
          R"("locations":[{"pdf_url":1}])",
          R"("best_oa_location":{"source":"J"})",
          R"("primary_location":{"source":{"display_name":{}}})",
          R"("primary_location":{"landing_page_url":false})",
          R"("abstract_inverted_index":[])",
          R"("abstract_inverted_index":{"a":null})",
          R"("abstract_inverted_index":{"a":[0.5]})",
          R"("abstract_inverted_index":{"a":["0"]})",
          R"("abstract_inverted_index":{"a":[1e19]})"}) {
        SCOPED_TRACE(members);
        const std::string one = R"({"id":"W1","display_name":"T",)" + std::string(members) + "}";
        EXPECT_TRUE(isUnreadable([&] { return OpenAlexAnswer::work(one); }));
        EXPECT_TRUE(isUnreadable([&] { return OpenAlexAnswer::page(pageOf({workWith(""), one}, 2)); }));
    }
    for (const char* page :
         {"", "[]", "<html>", R"({"meta":{},"results":[]})", R"({"meta":{"count":1}})",
          R"({"meta":{"count":"1"},"results":[]})", R"({"meta":{"count":1},"results":{}})",
          R"({"meta":{"count":1},"results":[null]})", R"({"meta":{"count":1},"results":[{}]})"})
        EXPECT_TRUE(isUnreadable([&] { return OpenAlexAnswer::page(page); })) << page;
    // A work without a title is left out, but not unread.
    EXPECT_TRUE(isUnreadable([] { return OpenAlexAnswer::page(pageOf({R"({"id":"W1","doi":1})"}, 1)); }));
}

TEST(OpenAlexAnswer, TakesTheAddressAndTheFileFromWhereTheyAre)
{
    const struct {
        std::string_view name, members, url, pdf;
    } cases[] = {
        {"landing page", R"("primary_location":{"landing_page_url":"http://a.org/x y"})", "http://a.org/x%20y", ""},
        {"no address", R"("primary_location":{"landing_page_url":"see there"})", "https://openalex.org/W1", ""},
        {"an empty DOI", R"("doi":"https://doi.org/")", "https://doi.org/", ""},
        {"arXiv last", R"("best_oa_location":{"pdf_url":"https://b.org/1"},"locations":[{"pdf_url":"https://c.org/1"},
            {"pdf_url":"https://export.arxiv.org/1"},{"pdf_url":"https://arxiv.org/pdf/1"}])",
         "https://openalex.org/W1", "https://arxiv.org/pdf/1"},
        {"the best is no address",
         R"("best_oa_location":{"pdf_url":"x"},"primary_location":{"pdf_url":"https://p.org/1"},
            "locations":[{"pdf_url":""},{"pdf_url":"https://c.org/1"}])",
         "https://openalex.org/W1", "https://c.org/1"},
        {"the primary",
         R"("primary_location":{"pdf_url":"https://p.org/1"},"locations":[{"pdf_url":"https://c.org/1"}])",
         "https://openalex.org/W1", "https://p.org/1"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Paper paper = read(std::string(c.members));
        EXPECT_EQ(paper.url, c.url);
        EXPECT_EQ(paper.pdfURL.value_or(""), c.pdf);
    }
}

TEST(OpenAlexAnswer, CleansTheVenue)
{
    const struct {
        std::string_view name, venue;
    } cases[] = {
        {"Journal of Things/Journal of Things", "Journal of Things"},
        {"Physics/Chemistry", "Physics/Chemistry"},
        {"Nature / Nature Physics", "Nature"},
        {"/a/a", "a"},
        {"Plain", "Plain"},
        {"//", "//"},
        {"", ""},
    };

    for (const auto& c : cases)
        EXPECT_EQ(
            read(R"("primary_location":{"source":{"display_name":")" + std::string(c.name) + R"("}})").venue, c.venue);
    const std::string best = R"("best_oa_location":{"source":{"display_name":"Best"}})";
    EXPECT_EQ(read(best).venue, "Best");
    EXPECT_EQ(read(best + R"(,"primary_location":{"source":null})").venue, "Best");
    EXPECT_EQ(read(best + R"(,"primary_location":{"source":{}})").venue, std::nullopt);
}

TEST(OpenAlexAnswer, MergesResultsOfTheSameTitle)
{
    const auto work = [](const std::string& id, const std::string& title, const std::string& pdf = "") {
        return R"({"id":")" + id + R"(","display_name":")" + title + R"(","best_oa_location":{"pdf_url":)" +
               (pdf.empty() ? "null" : "\"https://" + pdf + "\"") + "}}";
    };
    const PaperPage page = OpenAlexAnswer::page(pageOf(
        {work("W1", "Attention Is All You Need"), work("W2", " \\n"), work("W3", "Größe 2", "three"),
         work("W4", "attention is all-you need!", "four"), work("W5", "GRÖSSE 2"), work("W6", "GRÖßE, 2", "six"),
         work("W7", "!?"), work("W8", "…", "eight"), work("W9", "ATTENTION is all you need", "nine")},
        4711));
    EXPECT_EQ(page.total, 4711);
    std::vector<std::string> shown;
    for (const Paper& paper : page.papers)
        shown.push_back(paper.id + " " + paper.pdfURL.value_or(""));
    EXPECT_THAT(shown, ElementsAre("W1 https://four", "W3 https://three", "W5 ", "W7 https://eight"));
    EXPECT_THAT(OpenAlexAnswer::page(pageOf({}, 0)).papers, IsEmpty());
}

TEST(OpenAlexAnswer, AnIndexCannotAskForMoreThanItsAnswerIsWorth)
{
    std::string positions = "0";
    for (int index = 0; index < 100'000; ++index)
        positions += ",1";
    const auto index = [&](std::size_t length) {
        return R"("abstract_inverted_index":{")" + std::string(length, 'x') + "\":[" + positions + "]}";
    };
    EXPECT_EQ(read(index(10)).abstract->size(), 11U * 100'001 - 1);
    EXPECT_TRUE(isUnreadable([&] { return OpenAlexAnswer::work(workWith(index(100'000))); })) << "10 GB";
}

TEST(Address, TellsAddressesFromOtherTexts)
{
    const struct {
        std::string_view text, address, host;
    } cases[] = {
        {"https://a.org/x", "https://a.org/x", "a.org"},
        {"HTTP://u:p@A.org:80/%41%zz ü<>", "HTTP://u:p@A.org:80/%41%25zz%20%C3%BC%3C%3E", "a.org"},
        {"https://[::1]:8/x?y=[z]#f", "https://[::1]:8/x?y=[z]#f", "[::1]:8"},
        {"file:///a b.pdf", "file:///a%20b.pdf", ""},
        {"10.1/x", "", ""},
        {"https://", "", ""},
        {"https:a.org", "", ""},
        {"a.org/x", "", ""},
        {" https://a.org", "", ""},
        {"x:", "", ""},
        {"", "", ""},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(Address::absolute(c.text).value_or(""), c.address);
        EXPECT_EQ(Address::host(c.address), c.host);
    }
    EXPECT_EQ(Address::queryValue("a b&c=d+e;f#g%,:é"), "a%20b%26c%3Dd%2Be%3Bf%23g%25,:%C3%A9");
}

} // namespace
} // namespace veltry
