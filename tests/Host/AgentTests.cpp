#include "Host/Agent/Transcript.h"
#include "Platform/Files.h"
#include "Projects/Database.h"
#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::AllOf;
using testing::HasSubstr;

/// `veltry agent` with the example agent of the protocol's own library, a process of Node.
class AgentCommand : public testing::Test {
protected:
    void SetUp() override
    {
        if (!Files::exists(std::string(AGENT_LIBRARY) + "/dist/acp.js"))
            GTEST_SKIP() << "The protocol's own library isn't here; `script/setup --with-node` installs it and Node.";
    }

    [[nodiscard]] std::vector<std::string> arguments(std::vector<std::string> more) const
    {
        more.insert(more.begin(), {"agent", "--command", "node " TEST_AGENTS "/example.mjs " AGENT_LIBRARY});
        return more;
    }

    [[nodiscard]] Conversation onlyConversation() const
    {
        const std::vector<Conversation> all = lab.store->conversations(lab.lab.project.id);
        EXPECT_EQ(all.size(), 1u);
        return all.at(0);
    }

    test::HostLab lab;
};

TEST_F(AgentCommand, ATurnIsShownAndKeptAndFoundAgain)
{
    const ChildProcess::Output output = lab.veltry(arguments({"--allow-all", "Improve", "the\tbaseline"}));

    EXPECT_EQ(output.exitNumber, 0) << output.error;
    EXPECT_THAT(
        output.output, AllOf(
                           HasSubstr("› Reading project files\n"),
                           HasSubstr("Perfect! I've successfully updated the configuration.")));
    const Conversation conversation = onlyConversation();
    EXPECT_EQ(conversation.title, "Improve the baseline");
    EXPECT_EQ(conversation.harness, "node");
    EXPECT_TRUE(conversation.agentSessionID);
    const std::vector<SaidMatch> said = lab.store->said(std::vector<std::string>{"successfully"});
    ASSERT_EQ(said.size(), 1u);
    EXPECT_EQ(said[0].conversationID, conversation.id);

    // The agent can't continue a session; the conversation does all the same.
    const ChildProcess::Output again =
        lab.veltry(arguments({"--conversation", conversation.id.text().substr(0, 6), "Once more"}));
    EXPECT_EQ(again.exitNumber, 0) << again.error;
    EXPECT_THAT(again.output, HasSubstr("refused. --allow-all permits"));
    EXPECT_THAT(
        *lab.store->transcript(onlyConversation().id), AllOf(HasSubstr("successfully"), HasSubstr("Once more")));
}

TEST_F(AgentCommand, APersonDecidesCancelsAndEnds)
{
    test::PseudoTerminal terminal(test::hostProgram(), arguments({}), lab.environment(), lab.repository.path());
    ASSERT_TRUE(terminal.shows("> "));
    terminal.type("Do it\n");
    ASSERT_TRUE(terminal.shows("1-2: "));
    terminal.type("7\n");
    ASSERT_TRUE(terminal.shows("none of the numbers"));
    ASSERT_TRUE(terminal.shows("1-2: "));
    const AgentQuestions round = lab.store->ask(
        {{.question = "Which \033[31mmetric\033[0m?", .detail = {}, .options = {{.label = "loss", .description = {}}}}},
        onlyConversation().id);
    terminal.type("1\n");
    ASSERT_TRUE(terminal.shows("Perfect!"));
    ASSERT_TRUE(terminal.shows("> "));
    EXPECT_NE(lab.store->questions(round.id)->status, AgentQuestions::Status::open); // the turn is over

    terminal.type("Again\n");
    ASSERT_TRUE(terminal.shows("1-2: "));
    terminal.type("\003");
    ASSERT_TRUE(terminal.shows("Cancelled."));
    ASSERT_TRUE(terminal.shows("> "));
    terminal.type("\003");
    EXPECT_EQ(terminal.wait(), 130);
    EXPECT_THAT(terminal.output(), testing::Not(HasSubstr("\033[31mmetric")));
}

TEST_F(AgentCommand, OffersOlderSessionsUntilTheyAreTakenUp)
{
    const std::string agent = "node " TEST_AGENTS "/agent.mjs " AGENT_LIBRARY;
    const auto offered = [&] {
        test::PseudoTerminal terminal(
            test::hostProgram(), {"agent", "--command", agent}, lab.environment(), lab.repository.path());
        EXPECT_TRUE(terminal.shows("> "));
        terminal.type("/quit\n");
        EXPECT_EQ(terminal.wait(), 0);
        return terminal.output().contains("veltry import takes them up");
    };
    EXPECT_TRUE(offered());
    EXPECT_THAT(lab.veltry({"import", "--list", "--command", agent}).output, HasSubstr("Untitled session"));
    EXPECT_TRUE(offered());
    EXPECT_THAT(lab.veltry({"import", "--command", agent}).error, HasSubstr("2 sessions of node can be continued"));
    EXPECT_FALSE(offered());
    EXPECT_THAT(lab.veltry({"import", "--command", agent}).error, HasSubstr("that aren't here already"));
}

TEST_F(AgentCommand, TellsWhyNothingBegan)
{
    const Conversation old = lab.store->createConversation(lab.lab.project.id, "Old", "goose");
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* error;
    } cases[] = {
        {{"--command", "/not/there", "x"},
         1,
         "there ended with status 127. It said: /bin/sh: 1: exec: /not/there: not found"},
        {{"--command", "true", "x"}, 1, "true ended with status 0. It said nothing."},
        {{"--command", " ", "x"}, 2, "--command is blank."},
        {{"--harness", "Gemni", "x"},
         2,
         "There is no harness \"Gemni\". These are known: Claude Code, Codex, OpenCode."},
        {{"--conversation", old.id.text(), "x"}, 1, "That conversation was with goose."},
        {{"--conversation", "nope", "x"}, 1, "There is no conversation \"nope\"."},
        {{}, 2, "There is no prompt"},
        {{"--project", "Bare", "x"}, 1, "The project Bare has no folder."},
    };
    lab.store->createProject("Bare", {"/gone"});
    Database(lab.database()).write([](Connection& store) {
        store.execute("DELETE FROM project_folder WHERE path = '/gone'");
    });
    EXPECT_THAT(lab.veltry({"import", "--project", "Bare"}).error, HasSubstr("The project Bare has no folder."));

    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        std::vector<std::string> words = c.arguments;
        words.insert(words.begin(), "agent");
        const ChildProcess::Output output = lab.veltry(words);
        EXPECT_EQ(output.exitNumber, c.status);
        EXPECT_THAT(output.error, HasSubstr(c.error));
        EXPECT_EQ(std::ranges::count(output.error, '\n'), 1);
    }
    EXPECT_EQ(onlyConversation().id, old.id);
}

TEST(Transcript, JoinsPiecesOfAMessageAndKeepsWhatItDoesNotKnow)
{
    Transcript transcript(R"([{"id":"1","kind":{"later":{"x":1}}}])");
    const auto words = [](std::string text, std::optional<std::string> id) {
        return SessionUpdate{SessionUpdate::AgentMessageChunk{{ContentBlock::text(std::move(text)), std::move(id)}}};
    };
    transcript.add(words("a", "m1"));
    transcript.add(words("b", "m1"));
    transcript.add(words("c", "m2"));
    transcript.add(SessionUpdate{
        ToolCall{.toolCallId = "t", .title = "Read", .kind = {}, .status = {}, .content = {}, .locations = {}}});
    ToolCallUpdate done{
        .toolCallId = "t",
        .title = {},
        .kind = {},
        .status = ToolCallStatus::completed,
        .content = {},
        .locations = {}};
    transcript.add(SessionUpdate{std::move(done)});

    std::vector<std::string> kinds;
    const JSONValue stored = JSONValue::parse(transcript.text());
    for (const JSONValue& item : *stored.array())
        kinds.push_back(item.find("kind")->text());
    EXPECT_THAT(
        kinds, testing::ElementsAre(
                   R"({"later":{"x":1}})", R"({"agent":{"_0":"ab"}})", R"({"agent":{"_0":"c"}})",
                   R"({"tool":{"_0":{"status":"completed","title":"Read","toolCallId":"t"}}})"));
    EXPECT_THROW(Transcript("{}"), JSONValue::Failure);
}

} // namespace
} // namespace veltry
