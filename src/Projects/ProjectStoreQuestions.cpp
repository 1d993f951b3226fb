#include "Projects/Database.h"
#include "Projects/JSONFields.h"
#include "Projects/ProjectStore.h"

namespace veltry {

namespace {

/// The form of the columns `questions` and `answers`. Equal questions give equal texts, since keys are sorted: rounds
/// are told apart by it.
template <typename Record>
std::string stored(const std::vector<Record>& records)
{
    return listToJSON(records).text(JSONValue::Slashes::escaped);
}

template <typename Record>
std::optional<std::vector<Record>> listFromText(std::string_view text, std::optional<Record> (*read)(const JSONValue&))
{
    const std::optional<JSONValue> value = JSONValue::parseIfValid(text);
    return value ? listFromJSON(*value, read) : std::nullopt;
}

struct RoundRow {
    using Record = AgentQuestions;

    explicit RoundRow(const Statement& rows)
        : id(rows.column("id")), conversationID(rows.column("conversation_id")), questions(rows.column("questions")),
          answers(rows.column("answers")), status(rows.column("status")), createdAt(rows.column("created_at"))
    {
    }

    std::optional<AgentQuestions> operator()(const Statement& row) const
    {
        const std::optional<UUID> ownID = row.id(id);
        const std::optional<UUID> conversation = row.id(conversationID);
        const std::optional<AgentQuestions::Status> known = AgentQuestions::parseStatus(row.text(status));
        std::optional<std::vector<Question>> asked = listFromText(row.text(questions), &questionFromJSON);
        if (!ownID || !conversation || !known || !asked)
            return std::nullopt;
        AgentQuestions round{
            .id = *ownID,
            .conversationID = *conversation,
            .questions = std::move(*asked),
            .answers = {},
            .status = *known,
            .askedAt = row.date(createdAt),
        };
        if (!row.isNull(answers))
            round.answers = listFromText(row.text(answers), &answerFromJSON);
        return round;
    }

    int id, conversationID, questions, answers, status, createdAt;
};

/// Only an open round: the first to close it wins.
void close(Database& database, const UUID& id, AgentQuestions::Status status, const std::optional<std::string>& answers)
{
    const Date now = Date::now();
    database.write([&](Connection& connection) {
        connection.execute(
            R"(UPDATE question SET status = ?, answers = ?, answered_at = ?
WHERE id = ? AND status = 'open')",
            AgentQuestions::statusText(status), answers, now, id);
    });
}

} // namespace

AgentQuestions ProjectStore::ask(const std::vector<Question>& questions, const UUID& conversationID)
{
    const std::string text = stored(questions);
    return database_->write([&](Connection& connection) {
        std::vector<AgentQuestions> open = decodeAll<RoundRow>(connection.query(
            "SELECT * FROM question WHERE conversation_id = ? AND questions = ? AND status = 'open'", conversationID,
            text));
        if (!open.empty())
            return std::move(open.front());
        AgentQuestions made{
            .id = UUID::random(),
            .conversationID = conversationID,
            .questions = questions,
            .answers = {},
            .status = AgentQuestions::Status::open,
            .askedAt = Date::now(),
        };
        connection.execute(
            R"(INSERT INTO question (id, conversation_id, questions, status, created_at)
VALUES (?, ?, ?, 'open', ?))",
            made.id, conversationID, text, made.askedAt);
        return made;
    });
}

std::optional<AgentQuestions> ProjectStore::questions(const UUID& id) const
{
    return database_->read([&](Connection& connection) {
        return decodeFirst<RoundRow>(connection.query("SELECT * FROM question WHERE id = ?", id));
    });
}

std::vector<AgentQuestions> ProjectStore::openQuestions(const UUID& conversationID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<RoundRow>(connection.query(
            R"(SELECT * FROM question WHERE conversation_id = ? AND status = 'open'
ORDER BY created_at, rowid)",
            conversationID));
    });
}

std::vector<AgentQuestions> ProjectStore::openRounds(const std::optional<UUID>& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<RoundRow>(connection.query(
            R"(SELECT question.* FROM question JOIN conversation ON conversation.id = question.conversation_id
WHERE question.status = 'open' AND (?1 IS NULL OR conversation.project_id = ?1)
ORDER BY question.created_at, question.rowid)",
            projectID));
    });
}

void ProjectStore::answer(const UUID& id, const std::vector<Answer>& answers)
{
    close(*database_, id, AgentQuestions::Status::answered, stored(answers));
}

void ProjectStore::dismissQuestions(const UUID& id)
{
    close(*database_, id, AgentQuestions::Status::dismissed, std::nullopt);
}

void ProjectStore::withdrawQuestions(const UUID& conversationID)
{
    const Date now = Date::now();
    database_->write([&](Connection& connection) {
        connection.execute(
            R"(UPDATE question SET status = 'withdrawn', answered_at = ?
WHERE conversation_id = ? AND status = 'open')",
            now, conversationID);
    });
}

} // namespace veltry
