#include "Literature/OpenAlex.h"
#include "Support/FakeOpenAlex.h"
#include "Support/RunOnExecutor.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace veltry {
namespace {

using test::FakeOpenAlex;
using test::pageOf;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr const char* fields = "id,display_name,publication_year,authorships,primary_location,cited_by_count,doi,"
                               "abstract_inverted_index,best_oa_location,locations";

class OpenAlexTest : public testing::Test {
protected:
    OpenAlexTest() { ::setenv(OpenAlex::baseVariable, server.address("/base/").c_str(), 1); }

    ~OpenAlexTest() override { ::unsetenv(OpenAlex::baseVariable); }

    /// What came of one call: "found", "nothing" or the error's text.
    template <typename Call>
    std::string outcome(const std::optional<std::string>& key, Call call)
    {
        try {
            const OpenAlex service([key] { return key; }, session);
            const auto result = test::resultOf(call(service));
            if constexpr (requires { result.papers; })
                return result.papers.empty() ? "nothing" : "found";
            else
                return result ? "found" : "nothing";
        } catch (const Error& error) {
            return error.description();
        }
    }

    std::string search(const std::string& query, const std::optional<std::string>& key = std::nullopt)
    {
        return outcome(key, [query](const OpenAlex& service) { return service.search(query); });
    }

    std::string paper(const std::string& id, const std::optional<std::string>& key = std::nullopt)
    {
        return outcome(key, [id](const OpenAlex& service) { return service.paper(id); });
    }

    FakeOpenAlex server;
    std::shared_ptr<HTTPSession> session = std::make_shared<HTTPSession>();
};

const std::string work = R"({"id":"https://openalex.org/W1","display_name":"T"})";

TEST_F(OpenAlexTest, AsksForWhatItReads)
{
    server.reply("/base/works", {.body = pageOf({work}, 1)});
    server.reply("/base/works/W123", {.body = work});
    EXPECT_EQ(search("a, b|c+ü&d"), "found");
    EXPECT_EQ(search("x", "the key&"), "found");
    EXPECT_EQ(paper("W123", ""), "found");
    EXPECT_EQ(paper("W123", "k"), "found");
    EXPECT_EQ(paper("W12"), "nothing");

    const std::vector<FakeOpenAlex::Asked> asked = server.asked();
    ASSERT_EQ(asked.size(), 5U);
    EXPECT_EQ(
        asked[0].target, "/base/works?filter=title_and_abstract.search:a%20%20b%20c%2B%C3%BC%26d&per_page=25&select=" +
                             std::string(fields));
    EXPECT_THAT(
        asked[1].query, UnorderedElementsAre(
                            Pair("filter", "title_and_abstract.search:x"), Pair("per_page", "25"),
                            Pair("select", fields), Pair("api_key", "the key&")));
    EXPECT_THAT(asked[2].query, UnorderedElementsAre(Pair("select", fields)));
    EXPECT_THAT(asked[3].query, UnorderedElementsAre(Pair("select", fields), Pair("api_key", "k")));
    EXPECT_FALSE(asked[0].headers.contains("User-Agent"));
}

TEST_F(OpenAlexTest, AsksNobodyForWhatIsNoID)
{
    for (const char* id : {"w123", "W", "W12a", "10.1000/182", "", "W1 ", "W١", "https://openalex.org/W1"})
        EXPECT_EQ(paper(id), "nothing") << id;
    EXPECT_THAT(server.asked(), IsEmpty());
}

TEST_F(OpenAlexTest, SaysWhatToDoWhenTheServiceRefuses)
{
    const std::string unreachable = "OpenAlex did not answer. Check the connection and search again.";
    const std::string refused = "OpenAlex refused the key. Check it in Settings › Literature.";
    const std::string unreadable = "OpenAlex answered with something Veltry could not read. Search again.";
    const std::string usedUp = "This OpenAlex key's searches are used up for today. Search again tomorrow.";
    const std::string freeOnes =
        "OpenAlex's free searches from this network are used up for today. Add an OpenAlex key "
        "in Settings › Literature, or search again tomorrow.";

    const struct {
        FakeOpenAlex::Reply reply;
        std::string withKey, withoutKey;
    } cases[] = {
        {{.status = 401}, refused, unreachable},
        {{.status = 403}, refused, unreachable},
        {{.status = 429}, usedUp, freeOnes},
        {{.status = 500, .body = pageOf({}, 0)}, unreachable, unreachable},
        {{.status = 204}, unreachable, unreachable},
        {{.body = pageOf({work}, 1), .cutAfter = 20}, unreachable, unreachable},
        {{.body = "{\"meta\":"}, unreadable, unreadable},
        {{.body = "<html>Sign in</html>", .type = "text/html"}, unreadable, unreadable},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply.status);
        for (const char* path : {"/base/works", "/base/works/W1"})
            server.reply(path, c.reply);
        EXPECT_EQ(search("x", "key"), c.withKey);
        EXPECT_EQ(paper("W1", "key"), c.withKey);
        EXPECT_EQ(search("x"), c.withoutKey);
        EXPECT_EQ(paper("W1", ""), c.withoutKey);
    }
    server.reply("/base/works", {.status = 404});
    EXPECT_EQ(search("x"), unreachable);
    ::setenv(OpenAlex::baseVariable, "http://127.0.0.1:1", 1);
    EXPECT_EQ(search("x"), unreachable);
}

TEST_F(OpenAlexTest, ReadsItsBaseAddressWithOrWithoutTheLastSlash)
{
    ::setenv(OpenAlex::baseVariable, "http://a.org/b", 1);
    EXPECT_EQ(OpenAlex::endpoint(), "http://a.org/b/works");
    ::setenv(OpenAlex::baseVariable, "http://a.org/", 1);
    EXPECT_EQ(OpenAlex::endpoint(), "http://a.org/works");
    for (const bool isSet : {true, false}) {
        isSet ? ::setenv(OpenAlex::baseVariable, "", 1) : ::unsetenv(OpenAlex::baseVariable);
        EXPECT_EQ(OpenAlex::endpoint(), "https://api.openalex.org/works");
    }
}

} // namespace
} // namespace veltry
