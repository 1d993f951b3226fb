#include "Platform/Files.h"
#include "Support/Eventually.h"
#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace veltry {
namespace {

using test::eventually;
using testing::HasSubstr;
using Status = AgentQuestions::Status;

class QuestionCommandsTest : public testing::Test {
protected:
    AgentQuestions ask(const std::vector<Question>& questions) const
    {
        return lab_.store->ask(questions, conversation_.id);
    }

    AgentQuestions askOne(const std::string& question = "Which optimizer?") const
    {
        return ask(
            {{.question = question,
              .detail = {},
              .options = {{.label = "AdamW", .description = {}}, {.label = "SGD", .description = {}}},
              .multiSelect = false}});
    }

    AgentQuestions now(const AgentQuestions& round) const { return lab_.store->questions(round.id).value(); }

    /// `veltry answer 1` with that input.
    ChildProcess::Output answerWith(const std::string& input) const
    {
        Files::writeAtomically(lab_ / "input", input);
        const FileDescriptor file = Files::open(lab_ / "input", Files::forReading);
        ChildProcess::Command command;
        command.executable = test::hostProgram();
        command.arguments = {"answer", "1"};
        command.environment = lab_.environment();
        command.directory = lab_.repository.path();
        command.input = ChildProcess::Stream::to(file.get());
        return ChildProcess::run(std::move(command));
    }

    test::PseudoTerminal terminal(const std::vector<std::string>& arguments, ChildProcess::Environment added = {}) const
    {
        added.merge(lab_.environment());
        return {test::hostProgram(), arguments, added, lab_.repository.path()};
    }

    const test::HostLab lab_;
    const Conversation conversation_ = lab_.store->createConversation(lab_.lab.project.id, "Talk\033[2J", "x");
    const std::vector<Question> two_ = {
        {.question = "How long?", .detail = {}, .options = {}, .multiSelect = false},
        {.question = "Which?",
         .detail = {},
         .options = {{.label = "A", .description = {}}, {.label = "B", .description = {}}},
         .multiSelect = true}};
};

TEST_F(QuestionCommandsTest, ListsOpenRoundsWithTheirPlaces)
{
    EXPECT_EQ(lab_.veltry({"questions"}).error, "No agent is asking anything.\n");
    const AgentQuestions first = askOne();
    lab_.store->dismissQuestions(askOne("Closed?").id);
    const AgentQuestions second = ask(two_);
    const ChildProcess::Output shown = lab_.veltry({"questions"});
    EXPECT_EQ(
        shown.output, "1  " + first.id.text().substr(0, 8) +
                          "  Talk\uFFFD[2J, asked just now\n"
                          "   Which optimizer?\n     1  AdamW\n     2  SGD\n\n"
                          "2  " +
                          second.id.text().substr(0, 8) +
                          "  Talk\uFFFD[2J, asked just now\n"
                          "   1. How long?\n   2. Which?\n        1  A\n        2  B\n");
    const JSONValue list = lab_.json({"questions", "--all"});
    ASSERT_EQ(list.array()->size(), 2u);
    EXPECT_EQ(*list.array()->at(1).find("id")->string(), second.id.text());
}

TEST_F(QuestionCommandsTest, AnswersAndDismissesOnce)
{
    const AgentQuestions first = askOne();
    const AgentQuestions second = ask(two_);
    const std::string id = second.id.text();
    EXPECT_EQ(
        lab_.veltry({"answer", id.substr(0, 6), "--choose", "2:B", "--choose", "A", "--other", "1:1 h"}).error,
        "Answered:\n  1. \"1 h\"\n  2. A, B\nThe agent that waits reads it within a second.\n");
    const std::vector<Answer> wanted = {{.chosen = {}, .other = "1 h"}, {.chosen = {"A", "B"}, .other = {}}};
    EXPECT_EQ(now(second).answers, wanted);
    EXPECT_THAT(lab_.veltry({"dismiss", id}).error, HasSubstr("The round " + id + " is closed: it was answered."));
    EXPECT_EQ(lab_.veltry({"dismiss", "1"}).exitNumber, 0);
    EXPECT_EQ(now(first).status, Status::dismissed);
    EXPECT_THAT(lab_.veltry({"answer", "1"}).error, HasSubstr("no agent of the project is asking anything"));
}

TEST_F(QuestionCommandsTest, ReadsAnswersFromAPipeAndSilenceAnswersNothing)
{
    const AgentQuestions round = ask(two_);
    const struct {
        std::string input, error;
    } refused[] = {
        {"", "Nothing was answered: the input ended at question 1 of 2."},
        {"an hour\n", "Nothing was answered: the input ended at question 2 of 2."},
        {"\n1\n", "Nothing was answered. \"\": Type words"},
        {"an hour\n3\n", "Nothing was answered. \"3\": There is no choice 3."},
        {"-\n-\n", "Nothing was answered. To let the agent decide: veltry dismiss"},
    };
    for (const auto& c : refused) {
        const ChildProcess::Output output = answerWith(c.input);
        EXPECT_EQ(output.exitNumber, 1);
        EXPECT_THAT(output.error, HasSubstr(c.error));
    }
    EXPECT_EQ(now(round).status, Status::open);
    EXPECT_EQ(answerWith("-\n1,2 + both").exitNumber, 0);
    const std::vector<Answer> wanted = {{}, {.chosen = {"A", "B"}, .other = "both"}};
    EXPECT_EQ(now(round).answers, wanted);
}

TEST_F(QuestionCommandsTest, AsksAPersonAtATerminal)
{
    const AgentQuestions round = ask(two_);
    for (const auto& [keys, status] : {std::pair("\003", 130), std::pair("an hour\n\004", 1)}) {
        test::PseudoTerminal left = terminal({"answer", "1"});
        ASSERT_TRUE(left.shows("> "));
        left.type(keys);
        EXPECT_EQ(left.wait(), status) << left.output();
        EXPECT_EQ(now(round).status, Status::open);
    }
    test::PseudoTerminal asked = terminal({"answer", "1"});
    ASSERT_TRUE(asked.shows("How long?"));
    ASSERT_TRUE(asked.shows("> "));
    asked.type("an hour\n");
    ASSERT_TRUE(asked.shows("2  B"));
    ASSERT_TRUE(asked.shows("> "));
    asked.type("9\n");
    ASSERT_TRUE(asked.shows("There is no choice 9."));
    ASSERT_TRUE(asked.shows("> "));
    asked.type("2\n");
    EXPECT_EQ(asked.wait(), 0) << asked.output();
    const std::vector<Answer> wanted = {{.chosen = {}, .other = "an hour"}, {.chosen = {"B"}, .other = {}}};
    EXPECT_EQ(now(round).answers, wanted);
}

TEST_F(QuestionCommandsTest, TellsWhoCameTooLate)
{
    const AgentQuestions round = askOne();
    test::PseudoTerminal slow = terminal({"answer", "1"});
    ASSERT_TRUE(slow.shows("> "));
    lab_.store->withdrawQuestions(conversation_.id);
    slow.type("1\n");
    EXPECT_EQ(slow.wait(), 1);
    EXPECT_THAT(slow.output(), HasSubstr("was withdrawn meanwhile"));
}

TEST_F(QuestionCommandsTest, WatchCallsForNewRoundsAsTheSettingsSay)
{
    const std::filesystem::path sender = lab_ / "bin/notify-send";
    const std::filesystem::path sent = lab_ / "sent";
    Files::createFolders(sender.parent_path());
    Files::writeAtomically(
        sender, "#!/bin/sh\nprintf '%s\\n' \"$@\" >\"$0.part\"; mv \"$0.part\" '" + sent.string() + "'\n");
    std::filesystem::permissions(sender, std::filesystem::perms::owner_all);
    const ChildProcess::Environment environment = {
        {"PATH", sender.parent_path().string() + ":/usr/bin:/bin"},
        {"VELTRY_SETTINGS_PATH", (lab_ / "settings.toml").string()}};

    const AgentQuestions old = askOne();
    test::PseudoTerminal watch = terminal({"questions", "--watch"}, environment);
    ASSERT_TRUE(watch.shows("veltry answer " + old.id.text().substr(0, 8)));
    askOne("Is a < b?");
    ASSERT_TRUE(watch.shows("Is a < b?"));
    ASSERT_TRUE(watch.shows("\a"));
    ASSERT_TRUE(eventually([&] { return Files::exists(sent); }));
    EXPECT_THAT(Files::read(sent), HasSubstr(" asks\nIs a &lt; b?\n"));
    lab_.store->dismissQuestions(old.id);
    ASSERT_TRUE(watch.shows("dismissed"));

    Files::remove(sent);
    Files::writeAtomically(lab_ / "settings.toml", "[notifications]\nturns = false\nsound = \"none\"\n");
    const std::size_t before = watch.output().size();
    askOne("Quiet?");
    askOne("Quieter?");
    ASSERT_TRUE(watch.shows("Quieter?"));
    EXPECT_EQ(watch.output().find('\a', before), std::string::npos);
    watch.type("\003");
    EXPECT_EQ(watch.wait(), 130);
    EXPECT_FALSE(Files::exists(sent));
}

} // namespace
} // namespace veltry
