#include "Host/Refusal.h"
#include "Host/Words/RoundAnswers.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;

const Terminal plain(1, false, false, true);

Question makeQuestion(std::vector<std::string> labels, bool multiSelect = false)
{
    Question question{.question = "Which?", .detail = {}, .options = {}, .multiSelect = multiSelect};
    for (std::string& label : labels)
        question.options.push_back({.label = std::move(label), .description = {}});
    return question;
}

/// "a;b|words", as short as a table's cell.
std::string text(const Answer& answer)
{
    std::string chosen;
    for (const std::string& label : answer.chosen)
        chosen += (chosen.empty() ? "" : ";") + label;
    return chosen + (answer.other ? "|" + *answer.other : "");
}

TEST(RoundAnswers, ReadsWhatIsTyped)
{
    const Question one = makeQuestion({"AdamW", "SGD", "3"});
    const Question several = makeQuestion({"AdamW", "SGD", "C"}, true);
    const Question open = makeQuestion({});
    const Question sizes = makeQuestion({"2", "4", "8", "1, 2"}, true);
    const struct {
        const Question& question;
        std::string_view line, means;
    } cases[] = {
        {one, "2", "SGD"},
        {one, " 1 \r", "AdamW"},
        {one, "adamw", "AdamW"},
        {one, "3", "3"},
        {one, "1 + with decay", "AdamW|with decay"},
        {one, "1+", "AdamW"},
        {one, "c++ or 1", "|c++ or 1"},
        {one, "2 or 1", "|2 or 1"},
        {one, "\"2\"", "|2"},
        {one, "-", ""},
        {several, "3, 1", "AdamW;C"},
        {several, "1 3 1", "AdamW;C"},
        {open, "42", "|42"},
        {open, "1 + 1", "|1 + 1"},
        {sizes, "3", "8"},
        {sizes, "8, 1", "2;8"},
        {sizes, "#2+x", "4|x"},
        {sizes, "#1, #2", "2;4"},
        // refused
        {sizes, "2", "2 is one choice's number and another's label. Write #1 for \"2\" or #2 for \"4\"."},
        {sizes, "1, 4 + x", "4 is one choice's number and another's label. Write #2 for \"4\" or #4 for \"1, 2\"."},
        {one, "", "Type 1 to 3, or words; - leaves the question without an answer."},
        {one, "4", "There is no choice 4. Type 1 to 3, or words; a number as your own words goes in quotes: \"4\"."},
        {several, "0",
         "There is no choice 0. Type 1 to 3, several with commas, or words; a number as your own words "
         "goes in quotes: \"0\"."},
        {one, "1, 2", "Only one may be chosen."},
        {open, " \t", "Type words; - leaves the question without an answer."},
    };
    for (const auto& c : cases) {
        const std::expected<Answer, std::string> answer = RoundAnswers::fromLine(c.question, c.line);
        EXPECT_EQ(answer ? text(*answer) : answer.error(), c.means) << c.line;
    }
}

TEST(RoundAnswers, ReadsTheOptionsOfAScript)
{
    const std::vector<Question> one = {makeQuestion({"AdamW", "SGD", "1:x"})};
    const std::vector<Question> two = {makeQuestion({"AdamW", "SGD"}), makeQuestion({"SGD", "Lion", "2"}, true)};
    const struct {
        const std::vector<Question>& questions;
        std::vector<std::string> choices, words;
        std::string means; ///< the answers, or a part of what is refused
    } cases[] = {
        {one, {"2"}, {}, "SGD "},
        {one, {"1:2"}, {}, "SGD "},
        {one, {"1:x"}, {}, "1:x "},
        {one, {"sgd"}, {"2:1"}, "SGD|2:1 "},
        {one, {}, {"a", "b"}, "|a\nb "},
        {two, {"1:1", "2:1", "2:lion"}, {}, "AdamW SGD;Lion "},
        {two, {"AdamW", "2:#2"}, {"1:now"}, "AdamW|now Lion "},
        // refused
        {two,
         {"AdamW", "2:2"},
         {},
         "--choose 2:2 may mean several choices. Write 2:#2 for \"Lion\" or 2:#3 for \"2\"."},
        {one, {"4"}, {}, "\"4\" isn't a choice of the question"},
        {one, {"1", "2"}, {}, "Question 1 takes one choice, not 2"},
        {one, {}, {" "}, "Question 1 has no answer"},
        {two, {"SGD"}, {}, "Write 1:#2 for \"SGD\" or 2:#1 for \"SGD\"."},
        {two, {"3:1"}, {}, "\"3:1\" isn't a choice"},
        {two, {"1:1"}, {}, "Question 2 has no answer"},
        {two, {}, {"both"}, "Which question is \"both\" for?"},
    };
    for (const auto& c : cases) {
        std::string meant;
        try {
            for (const Answer& answer : RoundAnswers::fromOptions(c.questions, c.choices, c.words))
                meant += text(answer) + " ";
            EXPECT_EQ(meant, c.means);
        } catch (const UsageError& error) {
            EXPECT_THAT(error.message, HasSubstr(c.means));
        }
    }
}

TEST(RoundAnswers, ShowsTheAgentsWordsInTheirLinesAndHarmless)
{
    Question question = makeQuestion({"A\x1b[2J", "B"});
    question.question = "Which\n  of both?\n";
    question.detail = "It matters.";
    question.options[1].description = "slower";
    EXPECT_EQ(
        RoundAnswers::text(question, 2, " ", plain), " 2. Which\n"
                                                     "    of both?\n"
                                                     "    It matters.\n"
                                                     "      1  A\uFFFD[2J\n"
                                                     "      2  B\n"
                                                     "         slower\n");
}

} // namespace
} // namespace veltry
