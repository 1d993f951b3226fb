#include "ACP/ACPClient/ACPClient.h"
#include "FakeAgent.h"
#include "Platform/Files.h"
#include "Support/LogLines.h"
#include "Support/RunOnExecutor.h"
#include "Support/TemporaryFolder.h"

#include <asio/post.hpp>
#include <fmt/format.h>
#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::FakeAgent;
using test::FakeDelegate;
using test::LogLines;
using test::runOnExecutor;
using testing::ElementsAre;

/// What an operation ended with, as text.
asio::awaitable<std::string> outcomeOf(asio::awaitable<std::string> operation)
{
    std::string outcome;
    try {
        std::string text = co_await std::move(operation);
        outcome = std::move(text);
    } catch (const std::exception& error) {
        outcome = "threw " + describe(error);
    }
    co_return outcome;
}

/// One operation of the client, and what came of it.
asio::awaitable<std::string> perform(std::shared_ptr<ACPClient> client, std::string operation)
{
    const std::string s = "s";
    const std::string old = "old";
    const SessionSetup plain{.cwd = "/p"};
    if (operation == "initialize") {
        const InitializeResult result = co_await client->initialize();
        co_return encoded(result).text();
    }
    if (operation == "authenticate") {
        const std::string method = "m";
        co_await client->authenticate(method);
    } else if (operation == "new session") {
        SessionSetup setup{.cwd = "/p"};
        setup.additionalDirectories = {"/a", "/b"};
        setup.mcpServers = {{.name = "m", .command = "c", .args = {}, .env = {}}};
        setup.systemPrompt = "be kind";
        const std::string id = co_await client->newSession(std::move(setup));
        co_return id + " with " + std::to_string(client->configOptions(id).size());
    } else if (operation == "load") {
        co_await client->loadSession(old, plain);
        co_return std::to_string(client->configOptions("old").size()) + " options";
    } else if (operation == "resume") {
        co_await client->resumeSession(old, plain);
    } else if (operation == "list") {
        const std::filesystem::path cwd = "/p";
        const std::vector<SessionInfo> sessions = co_await client->listSessions(cwd);
        std::string ids;
        for (const SessionInfo& session : sessions)
            ids += session.sessionId;
        co_return ids;
    } else if (operation == "set option") {
        const std::string id = "model";
        const std::string value = "big";
        const std::vector<ConfigOption> options = co_await client->setConfigOption(s, id, value);
        co_return client->configOptions("s") == options ? options.at(0).currentChoice()->name : "differs";
    } else if (operation == "prompt") {
        const std::string text = "hi";
        const StopReason reason = co_await client->prompt(s, text);
        co_return reason.word;
    } else if (operation == "steer") {
        const std::vector<ContentBlock> content{ContentBlock::text("also")};
        const SteerOutcome outcome = co_await client->steer(s, content);
        co_return outcome == SteerOutcome::injected ? "injected" : "prompt required";
    } else {
        co_await client->cancel(s);
    }
    co_return "done";
}

/// A client whose connection runs, its agent and its delegate.
struct Scene {
    explicit Scene(const asio::any_io_executor& on)
        : executor(on), agent(std::make_shared<FakeAgent>(on)), delegate(std::make_shared<FakeDelegate>(on)),
          client(ACPClient::make(on, agent, delegate, false))
    {
    }

    /// Starts an operation; `outcome` is its end.
    void begin(const char* operation) { begin(perform(client, operation)); }

    void begin(asio::awaitable<std::string> operation)
    {
        outcome.clear();
        asio::co_spawn(executor, outcomeOf(std::move(operation)), [this](std::exception_ptr, std::string text) {
            outcome = std::move(text);
        });
    }

    asio::awaitable<void> until(std::function<bool()> condition) const
    {
        while (!condition())
            co_await asio::post(executor, asio::use_awaitable);
    }

    asio::awaitable<void> ended()
    {
        return until([this] { return !outcome.empty(); });
    }

    asio::awaitable<void> handshake()
    {
        begin("initialize");
        co_await agent->receive();
        co_await agent->send(R"({"id":0,"jsonrpc":"2.0","result":{"protocolVersion":1}})");
        co_await ended();
    }

    /// Opens session "s".
    asio::awaitable<void> openSession(SessionSetup setup)
    {
        begin(client->newSession(std::move(setup)));
        co_await agent->receive();
        co_await agent->send(R"({"id":1,"jsonrpc":"2.0","result":{"sessionId":"s"}})");
        co_await ended();
    }

    asio::awaitable<void> ask(JSONValue id, std::string method, JSONValue params) const
    {
        Envelope request;
        request.id = std::move(id);
        request.method = std::move(method);
        request.params = std::move(params);
        return agent->send(request.line());
    }

    asio::any_io_executor executor;
    std::shared_ptr<FakeAgent> agent;
    std::shared_ptr<FakeDelegate> delegate;
    std::shared_ptr<ACPClient> client;
    std::string outcome;
};

/// A test that begins behind the handshake.
template <typename Body>
void withScene(Body body)
{
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Scene scene(executor);
        co_await scene.handshake();
        co_await body(scene);
    });
}

TEST(ACPClient, EachOperationAsksTheAgentAndReadsItsAnswer)
{
    struct Exchange {
        std::string method, params, answer;
    };
    const struct {
        const char* operation;
        std::vector<Exchange> exchanges;
        std::string_view outcome;
    } cases[] = {
        {"initialize",
         {{"initialize",
           R"({"clientCapabilities":{"fs":{"readTextFile":true,"writeTextFile":true},"terminal":false},"clientInfo":{"name":"harrowick-veltry","version":"0.0.0"},"protocolVersion":1})",
           R"("result":{"protocolVersion":1,"agentInfo":{}})"}},
         R"({"protocolVersion":1})"},
        {"authenticate", {{"authenticate", R"({"methodId":"m"})", R"("result":null)"}}, "done"},
        {"new session",
         {{"session/new",
           R"({"additionalDirectories":["/a","/b"],"cwd":"/p","mcpServers":[{"args":[],"command":"c","env":[],"name":"m"}],"systemPrompt":{"content":[{"text":"be kind","type":"text"}],"mode":"append"}})",
           R"("result":{"sessionId":"n","configOptions":[{"id":"i","name":"n"},5]})"}},
         "n with 1"},
        {"new session",
         {{"session/new", "", R"("error":{"code":-32000,"message":"log in"})"}},
         "threw log in (-32000)"},
        {"new session", {{"session/new", "", R"("result":{"sessionId":1})"}}, "threw sessionId is no text"},
        {"load",
         {{"session/load", R"({"cwd":"/p","mcpServers":[],"sessionId":"old"})", R"("result":null)"}},
         "threw the value is no object"},
        {"load", {{"session/load", "", R"("result":{"configOptions":[{"id":"i","name":"n"}]})"}}, "1 options"},
        {"resume", {{"session/resume", R"({"cwd":"/p","mcpServers":[],"sessionId":"old"})", R"("result":{})"}}, "done"},
        {"list",
         {{"session/list", R"({"cwd":"/p"})",
           R"("result":{"sessions":[{"sessionId":"a","cwd":"/"},{"sessionId":"b","cwd":"/"}],"nextCursor":"1"})"},
          {"session/list", R"({"cursor":"1","cwd":"/p"})", R"("result":{"sessions":[],"nextCursor":"2"})"},
          {"session/list", R"({"cursor":"2","cwd":"/p"})",
           R"("result":{"sessions":[{"sessionId":"c","cwd":"/"}],"nextCursor":null})"}},
         "abc"},
        {"list",
         {{"session/list", "", R"("result":{"sessions":[{"sessionId":"a","cwd":"/"}],"nextCursor":"1"})"},
          {"session/list", "", R"("result":{"sessions":[{"sessionId":"b","cwd":"/"}],"nextCursor":"1"})"}},
         "ab"},
        {"list",
         {{"session/list", "", R"("result":{"sessions":[],"nextCursor":"1"})"},
          {"session/list", "", R"("result":{"sessions":[{}]})"}},
         "threw sessions[0].sessionId is missing"},
        {"set option",
         {{"session/set_config_option", R"({"configId":"model","sessionId":"s","value":"big"})",
           R"("result":{"configOptions":[{"id":"model","name":"M","currentValue":"big","options":[{"value":"big","name":"Big"}]}]})"}},
         "Big"},
        {"prompt",
         {{"session/prompt", R"({"prompt":[{"text":"hi","type":"text"}],"sessionId":"s"})",
           R"("result":{"stopReason":"max_tokens","usage":{}})"}},
         "max_tokens"},
        {"steer",
         {{"_session/steering",
           R"({"_meta":{"steering":{"idleBehavior":"promptRequired"}},"prompt":[{"text":"also","type":"text"}],"sessionId":"s"})",
           R"("result":{"outcome":"queued"})"}},
         "injected"},
        {"steer", {{"_session/steering", "", R"("result":{"outcome":"promptRequired"})"}}, "prompt required"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.operation + std::string(", ") + c.exchanges.back().answer);
        withScene([&](Scene& scene) -> asio::awaitable<void> {
            scene.begin(c.operation);
            for (const Exchange& exchange : c.exchanges) {
                const std::string line = co_await scene.agent->receive();
                const JSONValue request = JSONValue::parse(line);
                EXPECT_EQ(*request.find("method"), JSONValue(exchange.method));
                if (!exchange.params.empty()) {
                    EXPECT_EQ(request.find("params")->text(), exchange.params);
                }
                const std::string id = request.find("id")->text();
                const std::string answer = R"({"jsonrpc":"2.0","id":)" + id + "," + exchange.answer + "}";
                co_await scene.agent->send(answer);
            }
            co_await scene.ended();
            EXPECT_EQ(scene.outcome, c.outcome);
        });
    }
}

JSONValue permission(const char* session)
{
    return JSONValue::object(
        {{"sessionId", session},
         {"toolCall", JSONValue::object({{"toolCallId", "c"}})},
         {"options", JSONValue::array({})}});
}

TEST(ACPClient, AnswersWhatTheAgentAsks)
{
    const test::TemporaryFolder folder;
    Files::writeAtomically(folder / "ten", "1\n2\n3\n4\n5\n6\n7\n8\n9\n10");
    const std::string ten = folder / "ten";
    const std::string fresh = folder / "fresh";
    const std::string lost = folder / "missing/file";
    const auto file = [](std::string_view session, std::string_view path, JSONValue::Object more) {
        more.emplace("sessionId", session);
        more.emplace("path", path);
        return JSONValue(std::move(more));
    };
    const struct {
        std::string_view name, method;
        JSONValue params;
        std::string answer;
    } cases[] = {
        {"read", "fs/read_text_file", file("s", ten, {{"line", 3}, {"limit", 2}}), R"({"content":"3\n4"})"},
        {"write", "fs/write_text_file", file("s", fresh, {{"content", "käse"}}), "null"},
        {"read what was written", "fs/read_text_file", file("s", fresh, {{"line", nullptr}}), R"({"content":"käse"})"},
        {"a folder that is missing", "fs/write_text_file", file("s", lost, {{"content", ""}}),
         R"({"code":-32603,"message":"could not write )" + lost + R"(: No such file or directory"})"},
        {"no session", "fs/read_text_file", file("t", ten, {}), R"({"code":-32602,"message":"no session t"})"},
        {"params", "fs/write_text_file", file("s", ten, {}),
         R"({"code":-32602,"message":"unreadable params: content is missing"})"},
        {"method", "terminal/create", nullptr, R"({"code":-32601,"message":"method not found: terminal/create"})"},
        {"permission without a call", "session/request_permission", JSONValue::object({{"sessionId", "s"}}),
         R"({"code":-32602,"message":"unreadable params: toolCall is missing"})"},
        {"permission without a delegate", "session/request_permission", permission("s"),
         R"({"outcome":{"outcome":"cancelled"}})"},
    };
    withScene([&](Scene& scene) -> asio::awaitable<void> {
        SessionSetup setup{.cwd = folder.path()};
        co_await scene.openSession(std::move(setup));
        scene.delegate.reset();
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            co_await scene.ask("q", std::string(c.method), c.params);
            const std::string line = co_await scene.agent->receive();
            const JSONValue answer = JSONValue::parse(line);
            const JSONValue* result = answer.find("result");
            EXPECT_EQ((result ? result : answer.find("error"))->text(), c.answer);
        }
    });
}

TEST(ACPClient, UpdatesArriveInOrderBeforeTheTurnEndsAndAfter)
{
    LogLines log("acp");
    withScene([](Scene& scene) -> asio::awaitable<void> {
        const auto update = [&](std::string_view session, std::string_view text) {
            return scene.agent->send(fmt::format(
                R"({{"jsonrpc":"2.0","method":"session/update","params":{{"sessionId":"{}","update":{}}}}})", session,
                text));
        };
        scene.begin("prompt");
        co_await scene.agent->receive();
        co_await update("s", R"({"sessionUpdate":"usage_update","used":1})");
        co_await update("s", R"({"sessionUpdate":"plan"})");
        co_await update("s", R"({"sessionUpdate":"plan","entries":[]})");
        co_await scene.agent->send(R"({"jsonrpc":"2.0","method":"_agent/anything"})");
        co_await scene.agent->send(R"({"id":1,"jsonrpc":"2.0","result":{"stopReason":"end_turn"}})");
        co_await scene.ended();
        EXPECT_EQ(scene.outcome, "end_turn");
        EXPECT_THAT(
            scene.delegate->updates,
            ElementsAre(R"({"sessionUpdate":"usage_update","used":1})", R"({"entries":[],"sessionUpdate":"plan"})"));
        co_await update("x", R"({"sessionUpdate":"session_info_update","title":null})");
        const auto came = [&] { return scene.delegate->updates.size() == 3; };
        co_await scene.until(came);
    });
    EXPECT_THAT(log.lines, ElementsAre("skipped a session/update this build cannot read: update.entries is missing"));
}

TEST(ACPClient, ACancelAnswersTheAsksOfItsSessionFirst)
{
    withScene([](Scene& scene) -> asio::awaitable<void> {
        co_await scene.ask(10, "session/request_permission", permission("s"));
        co_await scene.ask(11, "session/request_permission", permission("t"));
        co_await scene.ask(12, "session/request_permission", permission("s"));
        const auto asked = [&] { return scene.delegate->asked.size() == 3; };
        co_await scene.until(asked);
        scene.begin("cancel");
        const std::string cancelled = R"("jsonrpc":"2.0","result":{"outcome":{"outcome":"cancelled"}}})";
        const std::string first = co_await scene.agent->receive();
        EXPECT_EQ(first, R"({"id":10,)" + cancelled);
        const std::string second = co_await scene.agent->receive();
        EXPECT_EQ(second, R"({"id":12,)" + cancelled);
        const std::string notice = co_await scene.agent->receive();
        EXPECT_EQ(notice, R"({"jsonrpc":"2.0","method":"session/cancel","params":{"sessionId":"s"}})");
        // Decisions that come too late change nothing; the other session's counts.
        for (int count = 0; count < 3; ++count)
            scene.delegate->decisions.push(PermissionOutcome::selected("yes"));
        const std::string other = co_await scene.agent->receive();
        EXPECT_EQ(other, R"({"id":11,"jsonrpc":"2.0","result":{"outcome":{"optionId":"yes","outcome":"selected"}}})");
        scene.agent->exit(0);
        co_await scene.agent->far->close();
        const std::string end = co_await scene.agent->receive();
        EXPECT_EQ(end, "(end)");
    });
}

TEST(ACPClient, AnAgentThatExitsFailsWhatWaitsAndWhatComesLater)
{
    LogLines log("acp");
    withScene([](Scene& scene) -> asio::awaitable<void> {
        const std::string exited = "threw the agent exited with status 3";
        scene.begin("prompt");
        co_await scene.agent->receive();
        scene.agent->exit(3); // its output stays open, as through a child of its own
        co_await scene.ended();
        EXPECT_EQ(scene.outcome, exited);
        scene.begin("prompt");
        co_await scene.ended();
        EXPECT_EQ(scene.outcome, exited);
        scene.begin("cancel");
        co_await scene.ended();
        EXPECT_EQ(scene.outcome, "done");
    });
    EXPECT_THAT(log.lines, ElementsAre("could not send session/cancel: the agent exited with status 3"));
}

TEST(ACPClient, AClientThatGoesCancelsItsAsksAndClosesTheAgentsInput)
{
    withScene([](Scene& scene) -> asio::awaitable<void> {
        co_await scene.ask(10, "session/request_permission", permission("s"));
        const auto asked = [&] { return !scene.delegate->asked.empty(); };
        co_await scene.until(asked);
        const std::weak_ptr<ACPClient> watched = scene.client;
        asio::co_spawn(scene.executor, scene.client->cancel("s"), asio::detached);
        scene.client.reset();
        EXPECT_TRUE(watched.expired());
        std::string line;
        do
            line = co_await scene.agent->receive();
        while (line != "(end)");
        scene.delegate->decisions.push(PermissionOutcome::selected("late"));
        co_await asio::post(scene.executor, asio::use_awaitable);
    });
}

} // namespace
} // namespace veltry
