#include "Projects/Database.h"
#include "Projects/ProjectStore.h"
#include "Projects/RowDecoder.h"

namespace veltry {

namespace {

/// The form of the columns `questions` and `answers`. Equal questions give equal texts, since keys are sorted: rounds
/// are told apart by it.
template <typename Record>
std::string stored(const std::vector<Record>& list)
{
    return toJSON(list).text(JSONValue::Slashes::escaped);
}

/// Only an open round: the first to close it wins.
void close(Database& database, const UUID& id, AgentQuestions::Status status, const std::optional<std::string>& answers)
{
    const Date now = Date::now();
    database.write([&](Connection& connection) {
        connection.execute(
            R"(UPDATE question SET status = ?, answers = ?, answered_at = ?
WHERE id = ? AND status = 'open')",
            toWord(status), answers, now, id);
    });
}

} // namespace

AgentQuestions ProjectStore::ask(const std::vector<Question>& questions, const UUID& conversationID)
{
    const std::string text = stored(questions);
    return database_->write([&](Connection& connection) {
        // Who asks the same once more gets the round that is open, so that nobody is asked twice at the same time.
        std::vector<AgentQuestions> open = decodeAll<AgentQuestions>(connection.query(
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
        return decodeFirst<AgentQuestions>(connection.query("SELECT * FROM question WHERE id = ?", id));
    });
}

std::vector<AgentQuestions> ProjectStore::openQuestions(const UUID& conversationID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<AgentQuestions>(connection.query(
            R"(SELECT * FROM question WHERE conversation_id = ? AND status = 'open'
ORDER BY created_at, rowid)",
            conversationID));
    });
}

std::vector<AgentQuestions> ProjectStore::openRounds(const std::optional<UUID>& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<AgentQuestions>(connection.query(
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
