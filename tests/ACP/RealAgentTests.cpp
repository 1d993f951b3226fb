#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "FakeAgent.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Support/EventuallyOnExecutor.h"
#include "Support/RunOnExecutor.h"
#include "Support/TemporaryFolder.h"

#include <asio/detached.hpp>
#include <gmock/gmock.h>

#include <sys/stat.h>

#include <csignal>

namespace veltry {
namespace {

using test::eventuallyOnExecutor;
using test::FakeDelegate;
using test::runOnExecutor;
using testing::ElementsAre;
using testing::HasSubstr;

/// Agents over the protocol's own library, as processes of Node.
class RealAgentTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::signal(SIGPIPE, SIG_IGN);
        const std::string path = environment["PATH"];
        if (Harness{.name = "Node", .executable = "node"}.missing(path) || !Files::exists(library + "/dist/acp.js"))
            GTEST_SKIP() << "Node or the protocol's own library isn't here; `script/setup --with-node` installs both.";
        Files::createFolders(project);
    }

    ~RealAgentTest() override { std::signal(SIGPIPE, SIG_DFL); }

    [[nodiscard]] std::shared_ptr<AgentProcess> start(const asio::any_io_executor& executor, const char* agent) const
    {
        const Harness harness{
            .name = "A script", .executable = "node", .arguments = {std::string(TEST_AGENTS) + "/" + agent, library}};
        return AgentProcess::start(executor, harness, environment, folder.path());
    }

    const std::string library = AGENT_LIBRARY;
    ChildProcess::Environment environment = ProcessFacts::environment();
    test::TemporaryFolder folder;
    const std::filesystem::path project = folder / "project";
};

/// The kinds of the updates, in order.
std::vector<std::string> kinds(const FakeDelegate& delegate)
{
    std::vector<std::string> result;
    for (const std::string& update : delegate.updates)
        result.push_back(*JSONValue::parse(update).find("sessionUpdate")->string());
    return result;
}

asio::awaitable<void> promptOf(
    std::shared_ptr<ACPClient> client, std::string session, std::string text, std::optional<StopReason>& reason)
{
    reason = co_await client->prompt(std::move(session), std::move(text));
}

TEST_F(RealAgentTest, TheLibrarysExampleGoesThroughATurnACancelAndItsEnd)
{
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        const auto agent = start(executor, "example.mjs");
        const auto delegate = std::make_shared<FakeDelegate>(executor);
        const auto client = ACPClient::make(executor, agent, delegate, false);
        const InitializeResult about = co_await client->initialize();
        EXPECT_EQ(about.protocolVersion, 1);
        EXPECT_FALSE(about.loadsSessions());
        SessionSetup setup{.cwd = project};
        const std::string session = co_await client->newSession(std::move(setup));
        EXPECT_FALSE(session.empty());

        delegate->decisions.push(PermissionOutcome::selected("allow"));
        std::string text = "hello";
        const StopReason reason = co_await client->prompt(session, std::move(text));
        EXPECT_EQ(reason, StopReason::Kind::endTurn);
        EXPECT_THAT(delegate->asked, ElementsAre(session));
        EXPECT_THAT(
            kinds(*delegate), ElementsAre(
                                  "agent_message_chunk", "tool_call", "tool_call_update", "agent_message_chunk",
                                  "tool_call", "tool_call_update", "agent_message_chunk"));
        EXPECT_THAT(delegate->updates.back(), HasSubstr("successfully updated the configuration"));

        delegate->updates.clear();
        std::optional<StopReason> second;
        asio::co_spawn(executor, promptOf(client, session, "again", second), asio::detached);
        const std::function<bool()> begun = [&] { return !delegate->updates.empty(); };
        co_await eventuallyOnExecutor(begun);
        co_await client->cancel(session);
        const std::function<bool()> ended = [&] { return second.has_value(); };
        co_await eventuallyOnExecutor(ended);
        EXPECT_EQ(second, StopReason::Kind::cancelled);

        co_await agent->transport()->close(); // which ends its input
        const std::int32_t status = co_await agent->waitForExit();
        EXPECT_EQ(status, 0) << agent->recentStderr();
    });
}

/// A conversation with the test's own agent, whose prompts are commands.
class Conversation {
public:
    Conversation(const asio::any_io_executor& executor, std::shared_ptr<AgentProcess> process)
        : agent(std::move(process)), delegate(std::make_shared<FakeDelegate>(executor)),
          client(ACPClient::make(executor, agent, delegate, false))
    {
    }

    asio::awaitable<void> begin(std::filesystem::path project)
    {
        about = co_await client->initialize();
        SessionSetup setup{.cwd = std::move(project)};
        session = co_await client->newSession(std::move(setup));
    }

    /// What the agent tells of a request that it made.
    asio::awaitable<std::string> ask(std::string method, JSONValue params)
    {
        const JSONValue command = JSONValue::array({"ask", std::move(method), std::move(params)});
        std::string text = command.text();
        co_await client->prompt(session, std::move(text));
        const JSONValue told = JSONValue::parse(delegate->updates.back());
        co_return *told.find("content")->find("text")->string();
    }

    std::shared_ptr<AgentProcess> agent;
    std::shared_ptr<FakeDelegate> delegate;
    std::shared_ptr<ACPClient> client;
    InitializeResult about;
    std::string session;
};

TEST_F(RealAgentTest, AnAgentReadsAndWritesTheFilesOfItsProject)
{
    Files::writeAtomically(project / "lines", "one\ntwo\nthree\n");
    Files::writeAtomically(folder / "outside", "secret");
    Files::writeAtomically(project / "script", "old");
    ::chmod((project / "script").c_str(), 0755);
    const auto in = [&](const char* name) { return (project / name).string(); };
    const struct {
        const char* method;
        JSONValue::Object params;
        std::string answer;
    } cases[] = {
        {"fs/read_text_file", {{"path", in("lines")}}, R"({"content":"one\ntwo\nthree\n"})"},
        {"fs/read_text_file", {{"path", in("lines")}, {"line", 2}, {"limit", 1}}, R"({"content":"two"})"},
        {"fs/read_text_file",
         {{"path", in("lines")}, {"line", nullptr}, {"limit", nullptr}},
         R"({"content":"one\ntwo\nthree\n"})"},
        {"fs/read_text_file",
         {{"path", in("../outside")}},
         R"({"code":-32602,"message":"path is outside the project"})"},
        // Their library takes a result of null for an empty one, and refuses a response without any.
        {"fs/write_text_file", {{"path", in("new")}, {"content", "new\n"}}, "{}"},
        {"fs/write_text_file", {{"path", in("script")}, {"content", "#!/bin/sh\n"}}, "{}"},
        {"fs/write_text_file",
         {{"path", (folder / "outside").string()}, {"content", ""}},
         R"({"code":-32602,"message":"path is outside the project"})"},
        {"terminal/create", {{"command", "ls"}}, R"({"code":-32601,"message":"method not found: terminal/create"})"},
    };
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Conversation conversation(executor, start(executor, "agent.mjs"));
        co_await conversation.begin(project);
        for (const auto& c : cases) {
            const JSONValue params = c.params;
            const std::string answer = co_await conversation.ask(c.method, params);
            EXPECT_EQ(answer, c.answer) << c.method << " " << params.text();
        }
    });
    EXPECT_EQ(Files::read(project / "new"), "new\n");
    EXPECT_EQ(Files::read(project / "script"), "#!/bin/sh\n");
    EXPECT_TRUE(Files::isExecutable(project / "script"));
    EXPECT_EQ(Files::read(folder / "outside"), "secret");
}

TEST_F(RealAgentTest, WhatAgentsSayDifferentlyIsNeitherLostNorAFailure)
{
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Conversation conversation(executor, start(executor, "agent.mjs"));
        co_await conversation.begin(project);
        ACPClient& client = *conversation.client;
        EXPECT_FALSE(conversation.about.loadsSessions());
        EXPECT_TRUE(conversation.about.listsSessions());
        EXPECT_THAT(client.configOptions(conversation.session), ElementsAre());
        const std::vector<SessionInfo> sessions = co_await client.listSessions(project);
        EXPECT_EQ(sessions.size(), 2U); // the second page ends with a cursor of null

        std::string odd = R"(["odd"])";
        co_await client.prompt(conversation.session, std::move(odd));
        const FakeDelegate& delegate = *conversation.delegate;
        const std::function<bool()> lateOne = [&] { return delegate.updates.size() == 7; };
        co_await eventuallyOnExecutor(lateOne);
        EXPECT_THAT(
            kinds(delegate), ElementsAre(
                                 "usage_update", "session_info_update", "of_next_year", "agent_message_chunk",
                                 "tool_call", "available_commands_update", "usage_update"));
        EXPECT_THAT(delegate.updates[2], HasSubstr(R"("payload":[1,null])"));
        EXPECT_THAT(delegate.updates[3], HasSubstr(R"("data":"AA==")"));
        EXPECT_THAT(delegate.updates[6], HasSubstr("53001"));

        std::optional<JSONRPCError> refused;
        try {
            std::string fail = R"(["fail",4001])";
            co_await client.prompt(conversation.session, std::move(fail));
        } catch (const JSONRPCError& error) {
            refused = error;
        }
        EXPECT_EQ(refused.value().code, 4001);
        EXPECT_EQ(refused->message, "out of quota");

        std::string ended;
        try {
            std::string exit = R"(["exit",9])";
            co_await client.prompt(conversation.session, std::move(exit));
        } catch (const ConnectionError& error) {
            ended = error.description();
        }
        EXPECT_EQ(ended, "the agent exited with status 9");
    });
}

} // namespace
} // namespace veltry
