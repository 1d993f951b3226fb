#include "Host/Agent/ConversationPhase.h"
#include "Host/Agent/TypedLines.h"
#include "Platform/Files.h"
#include "Support/Eventually.h"
#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"
#include "Support/RunOnExecutor.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;
using testing::Not;
using Phase = ConversationPhase::Phase;
using Event = ConversationPhase::Event;
using Action = ConversationPhase::Action;
using Typed = ConversationPhase::Typed;

TEST(ConversationPhase, CancelsBreaksOffAndHurriesByWhatIsGoingOn)
{
    const struct {
        std::vector<Event> before;
        Event event;
        Action action;
        Phase phase;
    } cases[] = {
        {{}, Event::interrupted, Action::breakOff, Phase::ending},
        {{Event::rejoins}, Event::joins, Action::none, Phase::joining}, // the older session isn't known any more
        {{Event::joins}, Event::stopped, Action::breakOff, Phase::ending},
        {{Event::joins, Event::begins}, Event::interrupted, Action::breakOff, Phase::ending},
        {{Event::joins, Event::begins, Event::prompted}, Event::interrupted, Action::cancelTurn, Phase::cancelling},
        {{Event::joins, Event::begins, Event::prompted}, Event::stopped, Action::breakOff, Phase::ending},
        {{Event::joins, Event::begins, Event::prompted, Event::interrupted},
         Event::turnEnds,
         Action::none,
         Phase::idle},
        {{Event::joins, Event::begins, Event::prompted, Event::interrupted},
         Event::interrupted,
         Action::breakOff,
         Phase::ending},
        {{Event::interrupted}, Event::interrupted, Action::hurry, Phase::ending},
        {{Event::over}, Event::stopped, Action::hurry, Phase::ending},
        {{Event::stopped}, Event::turnEnds, Action::none, Phase::ending}, // which the agent's end brings about
        {{Event::stopped}, Event::begins, Action::none, Phase::ending},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        ConversationPhase phase;
        for (const Event event : c.before)
            phase.on(event);
        EXPECT_EQ(phase.on(c.event), c.action);
        EXPECT_EQ(phase.phase(), c.phase);
    }
}

TEST(TypedLines, TheOldestQuestionComesFirstAndWhatWasDroppedTakesNothing)
{
    test::runOnExecutor([](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        TypedLines typed(executor);
        EXPECT_EQ(typed.give("steer", Typed::steer), "steer");
        EXPECT_EQ(typed.give(" ", Typed::steer), std::nullopt);
        EXPECT_EQ(typed.give("lost", Typed::drop), std::nullopt);
        EXPECT_EQ(typed.give("later", Typed::wait), std::nullopt);

        auto first = std::make_unique<TypedLines::Question>(typed);
        TypedLines::Question second(typed);
        EXPECT_EQ(typed.give("to the first", Typed::steer), std::nullopt);
        const bool isFirstsTurn = co_await first->turn();
        EXPECT_TRUE(isFirstsTurn);
        const std::optional<std::string> answer = co_await first->line();
        EXPECT_EQ(answer, "to the first");
        first.reset();
        EXPECT_EQ(typed.give("to the second", Typed::prompt), std::nullopt);
        const bool isSecondsTurn = co_await second.turn();
        EXPECT_TRUE(isSecondsTurn);
        typed.dropQuestions(); // in the middle, with a line that isn't read yet
        TypedLines::Question third(typed);
        EXPECT_EQ(typed.give("to the third", Typed::prompt), std::nullopt);
        const std::optional<std::string> late = co_await third.line();
        EXPECT_EQ(late, "to the third");

        const std::optional<std::string> prompt = co_await typed.prompt();
        EXPECT_EQ(prompt, "later");
        typed.finish();
        TypedLines::Question last(typed);
        const bool isLastsTurn = co_await last.turn();
        EXPECT_FALSE(isLastsTurn);
    });
}

/// `veltry agent` with an agent of our own, which does on request what others don't.
class Conversations : public testing::Test {
protected:
    [[nodiscard]] static std::vector<std::string> words(std::vector<std::string> more)
    {
        more.insert(more.begin(), {"agent", "--command", "sh " TEST_AGENT});
        return more;
    }

    /// In a shell, where "$agent" is the command without its prompt.
    [[nodiscard]] ChildProcess::Output shell(const std::string& script, ChildProcess::Environment more = {}) const
    {
        more.merge(lab.environment());
        more.emplace("agent", fmt::format("{} agent --command 'sh {}'", test::hostProgram().string(), TEST_AGENT));
        more.emplace("SHELL", "/bin/sh");
        return test::runProgram("/bin/bash", {"-c", script}, more, lab.repository.path());
    }

    [[nodiscard]] std::string transcript() const
    {
        const std::vector<Conversation> all = lab.store->conversations(lab.lab.project.id);
        return all.empty() ? "" : lab.store->transcript(all.back().id).value_or("");
    }

    test::HostLab lab;
};

TEST_F(Conversations, EndAndAreKeptHoweverTheyEnd)
{
    const struct {
        const char* name;
        const char* script;
        int status;
        const char *output, *error, *kept;
    } cases[] = {
        {"plainly", R"(eval "$agent hello")", 0, "Done\n", "To continue: veltry agent --conversation", "Done"},
        {"the agent's error", R"(eval "$agent fail")", 1, "", "veltry: The agent failed: out of quota (-32603).",
         "fail"},
        {"the agent's end", R"(eval "$agent die")", 1, "", "sh ended with status 3.", "die"},
        {"a permission without choices", R"(eval "$agent none")", 0, "counts as cancelled.\nNone given", "", "None"},
        {"a full disk", R"(eval "$agent hello" >/dev/full)", 1, "", "could not write the output: No space", "hello"},
        {"a reader that goes", R"(set -o pipefail; eval "$agent flood" | head -n 1)", 0, "[ ] Flood\n", "", "line"},
        {"a reader that rests",
         R"(exec 3> >(sleep 5 >/dev/null 2>&1); eval "exec $agent flood" >&3 & sleep 1; kill $!; wait $!)", 143, "",
         "To continue", "line"},
        {"a deaf agent", R"(eval "exec $agent deaf" & sleep 1; kill $!; wait $!)", 143, "I hear nothing", "To continue",
         "I hear nothing"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ChildProcess::Output output = shell(c.script);
        EXPECT_EQ(output.exitNumber, c.status);
        EXPECT_THAT(output.output, HasSubstr(c.output));
        EXPECT_THAT(output.error, HasSubstr(c.error));
        EXPECT_THAT(transcript(), HasSubstr(c.kept));
    }
}

TEST_F(Conversations, PermissionsComeOneByOneAlsoWhileASteeringMessageWaits)
{
    test::PseudoTerminal terminal(test::hostProgram(), words({}), lab.environment(), lab.repository.path());
    ASSERT_TRUE(terminal.shows("> "));
    terminal.type("two\n");
    ASSERT_TRUE(terminal.shows("1-2: "));
    EXPECT_THAT(terminal.output(), Not(HasSubstr("Tool second")));
    terminal.type("2\n");
    ASSERT_TRUE(terminal.shows("Tool second"));
    ASSERT_TRUE(terminal.shows("1-2: "));
    terminal.type("1\n");
    ASSERT_TRUE(terminal.shows("Second given"));
    EXPECT_THAT(terminal.output(), HasSubstr("First refused"));

    ASSERT_TRUE(terminal.shows("> "));
    terminal.type("wait\n");
    ASSERT_TRUE(terminal.shows("Waiting"));
    EXPECT_TRUE(test::eventually([&] { return transcript().contains("Waiting"); })); // though nothing follows
    terminal.type("and this\n");
    ASSERT_TRUE(terminal.shows("Tool steered"));
    ASSERT_TRUE(terminal.shows("1-2: "));
    terminal.type("1\n");
    ASSERT_TRUE(terminal.shows("Steered"));

    ASSERT_TRUE(terminal.shows("> "));
    terminal.type("deaf\n");
    ASSERT_TRUE(terminal.shows("I hear nothing"));
    terminal.type("\003");
    ASSERT_TRUE(terminal.shows("Ctrl-C again ends"));
    terminal.type("\003");
    EXPECT_EQ(terminal.wait(), 130);
}

TEST_F(Conversations, ACancelledTurnEndsTheLoopAroundIt)
{
    ChildProcess::Environment environment = lab.environment();
    environment["agent"] = fmt::format("{} agent --command 'sh {}' wait", test::hostProgram().string(), TEST_AGENT);
    test::PseudoTerminal terminal(
        "/bin/bash", {"-c", R"(for round in 1 2; do eval "$agent"; echo "round $round: $?"; done)"}, environment,
        lab.repository.path());
    ASSERT_TRUE(terminal.shows("Waiting"));
    terminal.type("\003");
    EXPECT_EQ(terminal.wait(), 130);
    EXPECT_THAT(terminal.output(), HasSubstr("Cancelled."));
    EXPECT_THAT(terminal.output(), Not(HasSubstr("round")));
}

TEST_F(Conversations, TheLoginShellGoesWithACommandThatIsEndedWhileItStarts)
{
    const std::filesystem::path fake = lab / "shell";
    Files::writeAtomically(
        fake, "#!/bin/sh\n[ \"$1\" = -ilc ] || exit 0\nsleep 77 & echo $$ $! > \"$STARTED\"\nwait\n");
    std::filesystem::permissions(fake, std::filesystem::perms::owner_all);
    const std::string started = lab / "started";
    for (const char* const command : {"$agent hello", "${agent/ agent / import } --list"}) {
        SCOPED_TRACE(command);
        const ChildProcess::Output output = shell(
            std::string("eval \"exec ") + command + R"(" & until [ -s "$STARTED" ]; do sleep 0.05; done
kill $!; wait $!; status=$?; sleep 0.2
for pid in $(cat "$STARTED"); do grep -q '^State:.[^Z]' "/proc/$pid/status" 2>/dev/null && exit 1; done
rm "$STARTED"; exit $status)",
            {{"SHELL", fake.string()}, {"STARTED", started}});
        EXPECT_EQ(output.exitNumber, 143) << output.error;
    }
}

TEST_F(Conversations, WhatTheAgentGetsOfTheEnvironment)
{
    Files::writeAtomically(lab / ".profile", "BIG=$(head -c 140000 /dev/zero | tr '\\0' x)\nexport BIG\n");
    const ChildProcess::Output output = shell(R"(eval "$agent hello")", {{"HOME", lab.path().string()}});
    EXPECT_EQ(output.exitNumber, 0) << output.error;
    EXPECT_THAT(output.error, HasSubstr("longer than the system hands to a program"));

    const ChildProcess::Environment key = {{"OPENALEX_API_KEY", "secret"}};
    EXPECT_EQ(shell(R"(eval "$agent hello")", key).output, "Done with a key\n");
    ASSERT_EQ(lab.veltry({"settings", "set", "agents.pass_api_keys", "false"}).exitNumber, 0);
    EXPECT_EQ(shell(R"(eval "$agent hello")", key).output, "Done\n");
}

TEST_F(Conversations, ARoundWithoutQuestionsNeedsNobody)
{
    const Conversation old = lab.store->createConversation(lab.lab.project.id, "Old", "sh");
    const AgentQuestions empty = lab.store->ask({}, old.id);
    EXPECT_EQ(lab.veltry(words({"--conversation", old.id.text(), "slow"})).exitNumber, 0);
    EXPECT_NE(lab.store->questions(empty.id)->status, AgentQuestions::Status::open);
}

} // namespace
} // namespace veltry
