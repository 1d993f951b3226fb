#include "QuickTools.h"
#include "VeltryTools/AskUser.h"

#include <gmock/gmock.h>

#include <functional>

namespace veltry {
namespace {

using test::call;
using test::callTwice;
using test::quickTools;
using test::TestLab;
using testing::ElementsAre;
using testing::SizeIs;

/// Tools for a conversation that is in the store.
LabTools toolsWithPerson(const TestLab& test)
{
    LabTools tools = quickTools(test);
    tools.conversation = test.store->createConversation(test.lab.project.id, "chat", "agent").id;
    return tools;
}

const JSONValue optimizer = JSONValue::parse(R"({"questions":[{"question":"Which optimizer?"}]})");

TEST(AskUser, ReadsQuestionsWithTolerance)
{
    const JSONValue arguments = JSONValue::parse(
        R"({"questions":[)"
        R"({"question":" A? ","detail":" d ","multi_select":true,)"
        R"("options":[{"label":"A"},{"label":"a","description":" x "},{"label":"A "},{"label":"b","description":" "}]},)"
        R"({"question":"B?","detail":" \n","options":[],"multi_select":"true"},)"
        R"({"question":"C?","detail":5,"options":null,"multi_select":1},)"
        R"({"question":"D?","options":[{"label":"l","description":["x"]}],"multi_select":false}]})");
    EXPECT_THAT(
        AskUser::questions(arguments), ElementsAre(
                                           Question{" A? ", " d ", {{"A"}, {"a", " x "}, {"A "}, {"b"}}, true},
                                           Question{"B?"}, Question{"C?"}, Question{"D?", {}, {{"l"}}}));
}

TEST(AskUser, RefusesWhatNobodyCouldAnswer)
{
    const std::string five = R"({"label":"1"},{"label":"2"},{"label":"3"},{"label":"4"},)";

    const struct {
        std::string name, questions, text;
    } cases[] = {
        {"none", "[]", "missing_argument: Pass questions: one to 4 of them."},
        {"a text", R"("Why?")", "missing_argument: Pass questions: one to 4 of them."},
        {"five", "[1,1,1,1,1]", "too_many_questions: Ask at most 4 questions at once. Ask the rest after."},
        {"no object", R"(["Why?"])", "missing_argument: Pass question."},
        {"a blank question", R"([{"question":" \n","options":5}])", "missing_argument: Pass question."},
        {"the second one", R"([{"question":"A?"},{}])", "missing_argument: Pass question."},
        {"options as a text", R"([{"question":"A?","options":"yes"}])",
         "invalid_options: options is a list of {label, description}."},
        {"a bare option", R"([{"question":"A?","options":["yes"]}])", "missing_argument: Pass label."},
        {"five options", R"([{"question":" \"A\"? ","options":[)" + five + R"({"label":"1"}]}])",
         "too_many_options: \" \"A\"? \" has 5 options. Offer at most 4; the person can always answer in their own "
         "words."},
        {"a fifth without label", R"([{"question":"A?","options":[)" + five + R"({"label":" "}]}])",
         "missing_argument: Pass label."},
        {"a label twice", R"([{"question":"A?","options":[{"label":"x"},{"label":"A"},{"label":"A"}]}])",
         "duplicate_options: \"A?\" offers the same label twice."},
        {"the first fault counts", R"([{"question":"A?","options":[{"label":"A"},{"label":"A"}]},5])",
         "duplicate_options: \"A?\" offers the same label twice."},
    };

    const TestLab test;
    const LabTools tools = quickTools(test); // the arguments are looked at before the conversation
    for (const auto& c : cases)
        EXPECT_EQ(call(tools, "ask_user", JSONValue::parse(R"({"questions":)" + c.questions + "}")), "!" + c.text)
            << c.name;
    EXPECT_EQ(
        call(tools, "ask_user", optimizer),
        "!no_conversation: Nobody is there to answer: this server serves no conversation.");
    LabTools elsewhere = tools;
    elsewhere.conversation = UUID::random(); // not in the store, which refuses it
    EXPECT_THAT(call(elsewhere, "ask_user", optimizer), testing::StartsWith("!SQLite error 19"));
}

TEST(AskUser, RendersAnswersByPosition)
{
    const std::vector<Question> asked = {{"Which optimizer?"}, {"How long should it train?"}};

    const struct {
        std::string name;
        std::vector<Answer> answers;
        std::string text;
    } cases[] = {
        {"picked and typed",
         {{{"AdamW"}, {}}, {{}, "one hour at most"}},
         "1. Which optimizer?\n   Chose: AdamW\n2. How long should it train?\n   In their words: one hour at most"},
        {"both at once, and nothing",
         {{{"AdamW", "SGD"}, "\t or a new one\n"}, {}},
         "1. Which optimizer?\n   Chose: AdamW; SGD\n   In their words: or a new one\n2. How long should it train?"},
        {"a blank text", {{{"AdamW"}, " \n"}}, "1. Which optimizer?\n   Chose: AdamW"},
        {"lines", {{{}, "a\n b "}}, "1. Which optimizer?\n   In their words: a\n b"},
        {"fewer answers", {{}}, "1. Which optimizer?"},
        {"more answers", {{}, {}, {{"x"}, {}}}, "1. Which optimizer?\n2. How long should it train?"},
    };

    for (const auto& c : cases)
        EXPECT_EQ(AskUser::rendered(asked, c.answers), c.text) << c.name;
}

TEST(AskUser, TwoCallsWaitOnOneRoundAndBothLearnHowItEnds)
{
    const TestLab test;
    const LabTools tools = toolsWithPerson(test);

    const struct {
        std::string name;
        std::function<void(const UUID& round)> close;
        std::string text;
    } cases[] = {
        {"answered", [&](const UUID& id) { test.store->answer(id, {{{"AdamW"}, {}}}); },
         "1. Which optimizer?\n   Chose: AdamW"},
        {"answered without an answer", [&](const UUID& id) { test.store->answer(id, {}); }, ""},
        {"dismissed", [&](const UUID& id) { test.store->dismissQuestions(id); },
         "The person closed the questions without answering. Decide yourself, and say what you assumed."},
        {"withdrawn", [&](const UUID&) { test.store->withdrawQuestions(*tools.conversation); },
         "The questions were withdrawn before an answer: the turn ended."},
        {"gone", [&](const UUID&) { test.store->removeProject(test.lab.project.id); },
         "No answer yet. The questions are still on screen. Call ask_user again with the same questions to keep "
         "waiting."},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<std::string> texts = callTwice(tools, "ask_user", optimizer, [&] {
            const std::vector<AgentQuestions> open = test.store->openQuestions(*tools.conversation);
            ASSERT_THAT(open, SizeIs(1));
            c.close(open[0].id);
        });
        EXPECT_THAT(texts, testing::Each(c.text));
    }
}

TEST(AskUser, ACallThatWaitedInVainLeavesTheRoundToTheNext)
{
    const TestLab test;
    LabTools tools = toolsWithPerson(test);
    tools.questionWait = std::chrono::milliseconds(200);
    std::vector<std::string> notices;
    const Progress collect = [&](const std::string& message) { notices.push_back(message); };
    for (int index = 0; index < 2; ++index)
        EXPECT_EQ(call(tools, "ask_user", optimizer, collect), AskUser::noAnswerYet);
    EXPECT_THAT(notices, testing::AllOf(SizeIs(testing::Ge(2)), testing::Each("waiting for the person's answer")));
    const std::vector<AgentQuestions> open = test.store->openQuestions(*tools.conversation);
    ASSERT_THAT(open, SizeIs(1));

    // Answered while no call waited: the round is closed, and the same questions are new ones.
    test.store->answer(open[0].id, {{{"AdamW"}, {}}});
    EXPECT_EQ(call(tools, "ask_user", optimizer), AskUser::noAnswerYet);
    EXPECT_NE(test.store->openQuestions(*tools.conversation).at(0).id, open[0].id);
}

} // namespace
} // namespace veltry
