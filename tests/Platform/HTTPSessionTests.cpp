#include "Base/Text.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/HTTPSession.h"
#include "Support/Eventually.h"
#include "Support/FakeOpenAlex.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <atomic>
#include <future>

namespace veltry {
namespace {

using test::FakeOpenAlex;
using test::TemporaryFolder;
using testing::HasSubstr;
using Kind = HTTPSession::Failure::Kind;

HTTPSession::Outcome get(HTTPSession& session, HTTPSession::Request request)
{
    std::promise<HTTPSession::Outcome> promise;
    session.get(std::move(request), [&](HTTPSession::Outcome outcome) { promise.set_value(std::move(outcome)); });
    return promise.get_future().get();
}

TEST(HTTPSession, GivesWhatTheServerAnswered)
{
    FakeOpenAlex server;
    server.reply("/plain", {.body = "{}"});
    server.reply("/missing", {.status = 404, .body = "gone"});
    server.reply("/slow", {.body = "abcdef", .pieces = 6, .pause = std::chrono::milliseconds(5)});
    server.reply("/moved", {.status = 302, .location = "/plain"});
    server.reply("/far", {.status = 301, .location = server.address("/moved")});
    HTTPSession session;

    const struct {
        std::string path;
        int status;
        std::string body;
    } cases[] = {
        {"/plain", 200, "{}"}, {"/missing", 404, "gone"}, {"/slow", 200, "abcdef"},
        {"/moved", 200, "{}"}, {"/far", 200, "{}"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        const HTTPSession::Outcome outcome = get(session, {.address = server.address(c.path)});
        ASSERT_TRUE(outcome) << outcome.error().description();
        EXPECT_EQ(outcome->status, c.status);
        EXPECT_EQ(outcome->body, c.body);
    }
    get(session, {.address = server.address("/plain?q=a%20b"), .headers = {"User-Agent: x"}});
    EXPECT_EQ(server.asked().back().query.at("q"), "a b");
    EXPECT_EQ(server.asked().back().headers.at("User-Agent"), "x");
}

TEST(HTTPSession, TellsWhyNoWholeAnswerCame)
{
    FakeOpenAlex server;
    const TemporaryFolder folder;
    Files::writeAtomically(folder / "secret", "%PDF-secret");
    const std::string file = "file://" + (folder / "secret").string();
    server.reply("/cut", {.body = std::string(100, 'x'), .cutAfter = 50});
    server.reply("/stands", {.body = "ab", .pieces = 2, .pause = std::chrono::seconds(60)});
    server.reply("/long", {.body = std::string(1001, 'x')});
    server.reply("/to-file", {.status = 302, .location = file});
    server.reply("/round", {.status = 302, .location = "/round"});
    HTTPSession session;
    for (const std::string& address :
         {server.address("/cut"), server.address("/stands"), server.address("/long"), server.address("/to-file"),
          server.address("/round"), std::string("http://127.0.0.1:1/"), file, std::string("ftp://127.0.0.1/x"),
          std::string("127.0.0.1/x"), std::string("http://"), std::string()}) {
        SCOPED_TRACE(address);
        const HTTPSession::Outcome outcome =
            get(session, {.address = address, .longestBody = 1000, .patience = std::chrono::seconds(1)});
        ASSERT_FALSE(outcome);
        EXPECT_EQ(outcome.error().kind, Kind::transfer);
        EXPECT_NE(outcome.error().description(), "");
    }
    EXPECT_TRUE(get(session, {.address = server.address("/long"), .longestBody = 1001}));
}

TEST(HTTPSession, WritesTheBodyIntoAFile)
{
    FakeOpenAlex server;
    const TemporaryFolder folder;
    const std::string body(300'000, 'x');
    server.reply("/paper", {.body = body});
    HTTPSession session;
    HTTPSession::Request request{.address = server.address("/paper"), .longestBody = 10};
    request.file = Files::open(folder / "body", Files::forAppending);
    const HTTPSession::Outcome outcome = get(session, std::move(request));
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->body, "");
    EXPECT_EQ(Files::read(folder / "body"), body);

    HTTPSession::Request full{.address = server.address("/paper")};
    full.file = Files::open("/dev/full", Files::forWriting);
    const HTTPSession::Outcome failed = get(session, std::move(full));
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().kind, Kind::disk);
    EXPECT_EQ(failed.error().code, ENOSPC);
}

TEST(HTTPSession, ReadsPlainFilesWhereItMay)
{
    const TemporaryFolder folder;
    Files::writeAtomically(folder / "a b", "text");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    const std::string path = folder.path().string();
    HTTPSession session;
    for (const std::string& address :
         {"file://" + path + "/a%20b", "FILE:" + path + "/a%20b?x", "file://localhost" + path + "/a b"}) {
        const HTTPSession::Outcome outcome = get(session, {.address = address, .mayBeFile = true});
        ASSERT_TRUE(outcome) << address;
        EXPECT_EQ(outcome->status, 0);
        EXPECT_EQ(outcome->body, "text");
    }
    for (const std::string& address :
         {"file://" + path, "file://" + path + "/none", "file://" + path + "/fifo", std::string("file:///dev/zero"),
          "file://elsewhere" + path + "/a%20b", "file://" + path + "/a%20b%00.pdf", "file:" + path.substr(1)})
        EXPECT_FALSE(get(session, {.address = address, .mayBeFile = true})) << address;
}

TEST(HTTPSession, ASlowTransferHoldsUpNoOther)
{
    FakeOpenAlex server;
    server.reply("/slow", {.body = "ab", .pieces = 2, .pause = std::chrono::seconds(60)});
    server.reply("/plain", {.body = "{}"});
    const std::ptrdiff_t before = test::entryCount("/proc/self/task");
    std::atomic<int> slow = 0;
    {
        HTTPSession session;
        EXPECT_EQ(test::entryCount("/proc/self/task"), before) << "no thread before the first request";
        session.get({.address = server.address("/slow")}, [&](const HTTPSession::Outcome&) { ++slow; });
        std::atomic<int> finished = 0;
        for (int index = 0; index < 20; ++index)
            session.get({.address = server.address("/plain")}, [&](const HTTPSession::Outcome& outcome) {
                finished += outcome && outcome->body == "{}" ? 1 : 0;
            });
        EXPECT_TRUE(test::eventually([&] { return finished == 20; }));
    }
    EXPECT_EQ(slow, 0) << "the session's end drops what is under way";
}

TEST(HTTPSession, GoesThroughTheProxyThatTheEnvironmentNames)
{
    FakeOpenAlex server;
    ::setenv("http_proxy", server.address().c_str(), 1);
    HTTPSession session;
    EXPECT_TRUE(get(session, {.address = "http://papers.invalid/x"}));
    EXPECT_THAT(server.asked().back().target, HasSubstr("papers.invalid"));
    ::setenv("no_proxy", "papers.invalid", 1);
    EXPECT_FALSE(get(session, {.address = "http://papers.invalid/x"}));
    ::unsetenv("http_proxy");
    ::unsetenv("no_proxy");
}

TEST(HTTPSession, RefusesACertificateThatNobodyVouchesFor)
{
    const TemporaryFolder folder;
    if (!Files::isExecutable("/usr/bin/openssl"))
        GTEST_SKIP() << "openssl makes the certificate, and isn't here";
    ChildProcess::Command command;
    command.executable = "/usr/bin/openssl";
    for (const std::string_view word :
         text::split("req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1", ' '))
        command.arguments.emplace_back(word);
    command.arguments.insert(command.arguments.end(), {"-keyout", folder / "key", "-out", folder / "certificate"});
    ASSERT_EQ(ChildProcess::run(command).exitNumber, 0);
    FakeOpenAlex server(folder / "certificate", folder / "key");
    server.reply("/x", {.body = "{}"});
    HTTPSession session;
    const HTTPSession::Outcome outcome = get(session, {.address = server.address("/x")});
    ASSERT_FALSE(outcome);
    EXPECT_THAT(outcome.error().description(), HasSubstr("certificate"));
    EXPECT_TRUE(server.asked().empty());
}

} // namespace
} // namespace veltry
