#include "StoreSupport.h"

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Status = AgentQuestions::Status;

class QuestionTest : public StoreTest {
protected:
    /// Status, answers and whether the time of closing is set, as they stand in the row.
    std::string row(const UUID& id)
    {
        return rows(
                   "SELECT status, coalesce(answers, '-'), answered_at IS NOT NULL FROM question WHERE id = '" +
                       id.text() + "'",
                   3)
            .at(0);
    }

    UUID project = store.createProject("p", {"/p"}).id;
    UUID here = store.createConversation(project, "here", "agent").id;
    UUID elsewhere = store.createConversation(project, "elsewhere", "agent").id;
    Question pick{
        .question = "Adam/W?",
        .detail = "a line",
        .options = {{.label = "Yes"}, {.label = "No", .description = "SGD \"plain\""}},
        .multiSelect = true};
    Question write{.question = "Why?"};
    std::vector<Question> both{pick, write};
};

TEST_F(QuestionTest, TheSameQuestionsAreOneRoundWhileItIsOpen)
{
    const AgentQuestions round = store.ask(both, here);
    EXPECT_EQ(round.questions, both);
    EXPECT_EQ(round.status, Status::open);
    EXPECT_EQ(store.questions(round.id), round);
    EXPECT_EQ(store.ask(both, here), round);

    std::vector<Question> otherwise = both;
    otherwise[0].options[1].description.reset();
    const AgentQuestions second = store.ask(otherwise, here);
    EXPECT_NE(second.id, round.id);
    EXPECT_NE(store.ask({write, pick}, here).id, round.id);
    EXPECT_NE(store.ask(both, elsewhere).id, round.id);
    EXPECT_THAT(store.openQuestions(here), SizeIs(3));

    store.answer(round.id, {});
    const AgentQuestions again = store.ask(both, here);
    EXPECT_NE(again.id, round.id);
    execute("UPDATE question SET created_at = 1 WHERE id = ?", again.id);
    EXPECT_EQ(store.openQuestions(here).front().id, again.id); // by age
    EXPECT_EQ(store.openQuestions(here).at(1), second);

    EXPECT_THROW(store.ask(both, UUID::random()), DatabaseError);
    EXPECT_EQ(store.questions(UUID::random()), std::nullopt);
}

TEST_F(QuestionTest, ProcessesThatAskAtOnceShareTheRounds)
{
    EXPECT_THAT(inProcesses(4, store.path(), {"ask", here.text(), "25"}), IsEmpty());
    EXPECT_THAT(store.openQuestions(here), SizeIs(25));
}

TEST_F(QuestionTest, KeepsARoundAsItsJSON)
{
    const AgentQuestions round = store.ask(both, here);
    store.answer(round.id, {{.chosen = {"Yes", "N/A"}}, {.other = " \n"}});
    EXPECT_THAT(
        rows("SELECT questions, answers FROM question", 2),
        ElementsAre(R"([{"detail":"a line","multiSelect":true,"options":[{"label":"Yes"},)"
                    R"({"description":"SGD \"plain\"","label":"No"}],"question":"Adam\/W?"},)"
                    R"({"multiSelect":false,"options":[],"question":"Why?"}])"
                    R"(|[{"chosen":["Yes","N\/A"]},{"chosen":[],"other":" \n"}])"));
    const std::vector<Answer> answers = store.questions(round.id)->answers.value();
    EXPECT_THAT(answers, ElementsAre(Answer{{"Yes", "N/A"}, {}}, Answer{{}, " \n"}));
    EXPECT_FALSE(answers[0].isEmpty());
    EXPECT_TRUE(answers[1].isEmpty());
}

TEST_F(QuestionTest, TheFirstToCloseARoundWins)
{
    const std::vector<Answer> answers{{.chosen = {"Yes"}}, {}};

    const struct {
        std::string name;
        std::function<void(const UUID& round)> close;
        Status status;
        std::string row;
    } closings[] = {
        {"answer", [&](const UUID& id) { store.answer(id, answers); }, Status::answered,
         R"(answered|[{"chosen":["Yes"]},{"chosen":[]}]|1)"},
        {"dismiss", [&](const UUID& id) { store.dismissQuestions(id); }, Status::dismissed, "dismissed|-|1"},
        {"withdraw", [&](const UUID&) { store.withdrawQuestions(here); }, Status::withdrawn, "withdrawn|-|1"},
    };

    const UUID other = store.ask(both, elsewhere).id;
    for (const auto& first : closings) {
        SCOPED_TRACE(first.name);
        const UUID id = store.ask(both, here).id;
        first.close(id);
        const std::optional<AgentQuestions> closed = store.questions(id);
        EXPECT_EQ(closed->status, first.status);
        EXPECT_EQ(closed->answers, first.status == Status::answered ? std::optional(answers) : std::nullopt);
        EXPECT_EQ(row(id), first.row);
        execute("UPDATE question SET answered_at = 1 WHERE id = ?", id);
        for (const auto& late : closings)
            late.close(id);
        EXPECT_EQ(row(id), first.row);
        EXPECT_THAT(rows("SELECT 1 FROM question WHERE answered_at <> 1"), IsEmpty());
    }
    EXPECT_EQ(row(other), "open|-|0");
    store.answer(UUID::random(), answers); // nobody's: nothing happens
    const UUID second = store.ask({write}, elsewhere).id;
    store.withdrawQuestions(elsewhere);
    EXPECT_EQ(row(other) + row(second), "withdrawn|-|1withdrawn|-|1");
}

TEST_F(QuestionTest, DamagedRowsGiveNoRoundAndDamagedAnswersNone)
{
    const struct {
        std::string name, column, value;
        bool reads;
    } cases[] = {
        {"least", "questions", R"([{"question":"","options":[],"multiSelect":false}])", true},
        {"nulls count as absent", "questions",
         R"([{"question":"","detail":null,"options":[{"label":"","description":null}],"multiSelect":false}])", true},
        {"no multiSelect", "questions", R"([{"question":"","options":[]}])", false},
        {"option without a label", "questions", R"([{"question":"","options":[{}],"multiSelect":false}])", false},
        {"detail as a number", "questions", R"([{"question":"","detail":1,"options":[],"multiSelect":false}])", false},
        {"no list", "questions", "{}", false},
        {"no JSON", "questions", "[", false},
        {"another status", "status", "postponed", false},
        {"no identifier", "id", "x", false},
        {"answers of another shape", "answers", R"([{"chosen":"Yes"}])", true},
        {"answers without the picked", "answers", R"([{"other":"x"}])", true},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const UUID id = store.ask({write}, here).id;
        execute("UPDATE question SET " + c.column + " = ? WHERE id = ?", c.value, id);
        const std::optional<AgentQuestions> round = store.questions(id);
        EXPECT_EQ(round.has_value(), c.reads);
        EXPECT_THAT(store.openQuestions(here), SizeIs(c.reads ? 1 : 0));
        EXPECT_TRUE(!round || !round->answers);
        execute("DELETE FROM question");
    }
}

} // namespace
} // namespace veltry::test
