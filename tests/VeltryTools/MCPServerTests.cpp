#include "ACP/JSONRPCConnection/MemoryTransport.h"
#include "QuickTools.h"
#include "VeltryTools/MCPServer.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <map>
#include <set>

namespace veltry {
namespace {

using test::McpProcess;
using test::runOnExecutor;
using test::TestLab;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

TEST(MCPServer, AnswersItsFourMethodsAndRefusesTheRest)
{
    const TestLab test;
    McpProcess server = test.serve();
    const auto tool = [](const std::string& text, const std::string& isError) {
        return R"({"content":[{"text":")" + text + R"(","type":"text"}],"isError":)" + isError + "}";
    };

    const struct {
        std::string method, params, answer; ///< the result or the error
    } cases[] = {
        {"ping", "null", "{}"}, // also before initialize
        {"tools/call", R"({"name":3})", R"({"code":-32602,"message":"tools/call needs a name"})"},
        {"tools/call", "null", R"({"code":-32602,"message":"tools/call needs a name"})"},
        {"tools/call", R"({"name":"nope"})", tool("unknown_tool: There is no tool nope.", "true")},
        {"tools/call", R"({"name":"get_run","arguments":5})", tool("missing_argument: Pass run.", "true")},
        {"tools/call", R"({"name":"wait_for_runs"})", tool("Nothing is in flight.", "false")},
        {"resources/list", "{}", R"({"code":-32601,"message":"method not found: resources/list"})"},
        {"Ping", "{}", R"({"code":-32601,"message":"method not found: Ping"})"},
    };

    // Notifications of any kind change nothing.
    server.sendLine(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
    server.sendLine(R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":1}})");
    for (const auto& c : cases) {
        const JSONValue answer = server.answer(server.send(c.method, JSONValue::parse(c.params)));
        const JSONValue* result = answer.find("result");
        EXPECT_EQ((result ? result : answer.find("error"))->text(), c.answer) << c.method << c.params;
    }
}

TEST(MCPServer, InitializeEchoesTheVersion)
{
    const TestLab test;
    McpProcess server = test.serve();

    const struct {
        JSONValue params, version;
    } cases[] = {
        {JSONValue::object({{"protocolVersion", "2024-11-05"}}), "2024-11-05"},
        {JSONValue::object({{"protocolVersion", 7}}), 7},
        {JSONValue::object({}), "2025-06-18"},
        {nullptr, "2025-06-18"},
    };

    for (const auto& c : cases) {
        const JSONValue result = server.request("initialize", c.params);
        EXPECT_EQ(*result.find("protocolVersion"), c.version);
        EXPECT_EQ(result.find("serverInfo")->text(), R"({"name":"harrowick-veltry","version":"0.1.0"})");
        EXPECT_EQ(result.find("capabilities")->text(), R"({"tools":{}})");
    }
}

TEST(MCPServer, TellsTheTruthAboutTheComputerWhereVeltryMadeTheBlock)
{
    const TestLab test;
    const struct {
        const char* client;
        const char* section;
    } cases[] = {
        {"", "its headline number.\n\nThis Mac\n- Computer: "},
        {"codex", "its headline number.\n\nThis computer (where these instructions say \"Mac\", this one is meant)\n"},
    };
    for (const auto& c : cases) {
        McpProcess server = test.serve({}, {{"VELTRY_CLIENT", c.client}});
        const JSONValue result = server.request("initialize");
        EXPECT_THAT(*result.find("instructions")->string(), HasSubstr(c.section));
    }
}

TEST(MCPServer, ListsFifteenToolsWithTheirSchemas)
{
    const TestLab test;
    McpProcess server = test.serve();
    const JSONValue tools = server.request("tools/list");
    std::vector<std::string> names;
    for (const JSONValue& tool : *tools.find("tools")->array()) {
        names.push_back(*tool.find("name")->string());
        const JSONValue& schema = *tool.find("inputSchema");
        EXPECT_EQ(schema.object()->size(), 3u) << names.back();
        for (const JSONValue& key : *schema.find("required")->array())
            EXPECT_TRUE(schema.find("properties")->find(*key.string())) << names.back();
    }
    EXPECT_THAT(
        names, ElementsAre(
                   "experiment_tree", "create_experiment", "set_experiment_notes", "run_experiment", "wait_for_runs",
                   "get_run", "cancel_run", "archive_experiment", "ask_user", "search_papers", "get_paper",
                   "save_paper", "cite_paper", "list_library", "download_paper"));
}

TEST(MCPServer, TellsAClientThatAskedForItThatACallStillWaits)
{
    const TestLab test;
    const Experiment node = test.baseline("true");
    for (int index = 0; index < 2; ++index)
        test.store->insertRun(UUID::random(), node, "commit", test.runs() / "none");
    // Two tokens, and what counts as none: each is that of a call whose id is its place.
    const std::string tokens[] = {R"("t/1")", "-9007199254740991", "1.5", "null", R"(["a"])", "1e300"};
    std::map<std::string, int> notices; // by token
    std::set<std::string> answered;     // by id
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        const MemoryTransport::Pair ends = MemoryTransport::pair(executor);
        LabTools family = test::quickTools(test);
        family.progressInterval = std::chrono::milliseconds(200);
        MCPServer server(family.tools(), [] { return std::string(); });
        MCPServer::serve(std::move(server), executor, ends.first, {});
        for (std::size_t id = 0; id < std::size(tokens); ++id) {
            std::string request = fmt::format(
                R"({{"jsonrpc":"2.0","id":{},"method":"tools/call","params":{{"name":"wait_for_runs",)"
                R"("arguments":{{"timeout_seconds":1}},"_meta":{{"progressToken":{}}}}}}})",
                id, tokens[id]);
            co_await ends.second->send(std::move(request));
        }
        while (answered.size() < std::size(tokens)) {
            const std::optional<std::string> line = co_await ends.second->lines().next();
            const JSONValue message = JSONValue::parse(*line);
            if (const JSONValue* id = message.find("id")) {
                answered.insert(id->text());
                continue;
            }
            const std::string token = message.find("params")->find("progressToken")->text();
            const std::string params = fmt::format(
                R"({{"message":"2 runs in flight","progress":{},"progressToken":{}}})", ++notices[token], token);
            EXPECT_EQ(*line, R"({"jsonrpc":"2.0","method":"notifications/progress","params":)" + params + "}");
            EXPECT_FALSE(answered.contains(token == tokens[0] ? "0" : "1")) << "a notice follows its answer";
        }
        co_await ends.second->close();
    });
    EXPECT_THAT(notices, ElementsAre(Pair(tokens[0], testing::Ge(2)), Pair(tokens[1], testing::Ge(2))));
}

} // namespace
} // namespace veltry
