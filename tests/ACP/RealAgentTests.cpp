#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "FakeAgent.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Support/EventuallyOnExecutor.h"
#include "Support/RunOnExecutor.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <csignal>

namespace veltry {
namespace {

using test::eventuallyOnExecutor;
using test::FakeDelegate;
using test::runOnExecutor;
using testing::ElementsAre;
using testing::HasSubstr;

/// An agent over the protocol's own library, as a process of Node.
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

    [[nodiscard]] std::shared_ptr<AgentProcess> start(const asio::any_io_executor& executor) const
    {
        const Harness harness{
            .name = "A script", .executable = "node", .arguments = {TEST_AGENTS "/agent.mjs", library}};
        return AgentProcess::start(executor, harness, environment, folder.path());
    }

    const std::string library = AGENT_LIBRARY;
    ChildProcess::Environment environment = ProcessFacts::environment();
    test::TemporaryFolder folder;
    const std::filesystem::path project = folder / "project";
};

/// What the agent tells of a request that it made.
asio::awaitable<std::string> asked(
    std::shared_ptr<ACPClient> client, std::shared_ptr<FakeDelegate> delegate, std::string session, JSONValue command)
{
    std::string text = command.text();
    co_await client->prompt(std::move(session), std::move(text));
    const JSONValue told = JSONValue::parse(delegate->updates.back());
    co_return *told.find("content")->find("text")->string();
}

TEST_F(RealAgentTest, AnAgentReadsAndWritesAndWhatItSaysDifferentlyIsNeitherLostNorAFailure)
{
    const std::string file = project / "file";
    Files::writeAtomically(folder / "outside", "secret");
    const struct {
        const char* method;
        JSONValue::Object params;
        std::string answer;
    } requests[] = {
        // Their library takes a result of null for an empty one, and refuses a response without any.
        {"fs/write_text_file", {{"path", file}, {"content", "one\ntwo\n"}}, "{}"},
        {"fs/read_text_file", {{"path", file}, {"line", nullptr}, {"limit", nullptr}}, R"({"content":"one\ntwo\n"})"},
        {"fs/read_text_file", {{"path", file}, {"line", 2}, {"limit", 1}}, R"({"content":"two"})"},
        {"fs/read_text_file",
         {{"path", (folder / "outside").string()}},
         R"({"code":-32602,"message":"path is outside the project"})"},
        {"terminal/create", {{"command", "ls"}}, R"({"code":-32601,"message":"method not found: terminal/create"})"},
    };
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        const auto delegate = std::make_shared<FakeDelegate>(executor);
        const auto client = ACPClient::make(executor, start(executor), delegate, false);
        const InitializeResult about = co_await client->initialize();
        EXPECT_FALSE(about.loadsSessions());
        EXPECT_TRUE(about.listsSessions());
        SessionSetup setup{.cwd = project};
        const std::string session = co_await client->newSession(std::move(setup));
        EXPECT_THAT(client->configOptions(session), ElementsAre());
        const std::vector<SessionInfo> sessions = co_await client->listSessions(project);
        EXPECT_EQ(sessions.size(), 2U); // the second page ends with a cursor of null

        for (const auto& c : requests) {
            JSONValue command = JSONValue::array({"ask", c.method, c.params});
            const std::string answer = co_await asked(client, delegate, session, std::move(command));
            EXPECT_EQ(answer, c.answer) << c.method;
        }

        delegate->updates.clear();
        std::string odd = R"(["odd"])";
        co_await client->prompt(session, std::move(odd));
        const std::function<bool()> lateOne = [&] { return delegate->updates.size() == 7; };
        co_await eventuallyOnExecutor(lateOne);
        EXPECT_THAT(
            delegate->updates, ElementsAre(
                                   HasSubstr("usage_update"), HasSubstr("session_info_update"),
                                   HasSubstr(R"("payload":[1,null])"), HasSubstr(R"("data":"AA==")"),
                                   HasSubstr("tool_call"), HasSubstr("available_commands_update"), HasSubstr("53001")));

        const std::pair<std::string, std::string> failures[] = {
            {R"(["fail",4001])", "out of quota (4001)"}, {R"(["exit",9])", "the agent exited with status 9"}};
        for (const auto& [command, message] : failures) {
            std::string failure;
            try {
                std::string text = command;
                co_await client->prompt(session, std::move(text));
            } catch (const Error& error) {
                failure = error.description();
            }
            EXPECT_EQ(failure, message);
        }
    });
}

} // namespace
} // namespace veltry
