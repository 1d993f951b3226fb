#include "Base/Text.h"
#include "Projects/Database.h"
#include "Projects/ProjectStore.h"
#include "Projects/RowDecoder.h"

#include <algorithm>

namespace veltry {

namespace {

bool canBeFound(std::string_view term)
{
    return std::ranges::any_of(text::scalars(term), text::isLetterOrNumber);
}

/// The term as a prefix of the full-text query language, in which nothing inside quotes has a meaning. A NUL would end
/// the query for SQLite, and parts words like a blank.
std::string prefixTerm(std::string_view term)
{
    std::string result = text::replacingAll(term, "\"", "\"\"");
    std::ranges::replace(result, '\0', ' ');
    return "\"" + result + "\" *";
}

} // namespace

std::vector<Conversation> ProjectStore::conversations(const UUID& projectID) const
{
    return database_->read([&](Connection& connection) {
        return decodeAll<Conversation>(
            connection.query("SELECT * FROM conversation WHERE project_id = ? ORDER BY created_at, rowid", projectID));
    });
}

Conversation ProjectStore::createConversation(const UUID& projectID, std::string_view title, std::string_view harness)
{
    Conversation made{
        .id = UUID::random(),
        .projectID = projectID,
        .title = std::string(title),
        .harness = std::string(harness),
        .createdAt = Date::now(),
        .agentSessionID = {},
        .archivedAt = {},
    };
    database_->write([&](Connection& connection) {
        connection.execute(
            R"(INSERT INTO conversation (id, project_id, title, harness, created_at)
VALUES (?, ?, ?, ?, ?))",
            made.id, made.projectID, made.title, made.harness, made.createdAt);
    });
    return made;
}

std::vector<Conversation> ProjectStore::importConversations(
    std::span<const PastConversation> past, const UUID& projectID, std::string_view harness)
{
    std::vector<Conversation> imported;
    for (const PastConversation& one : past)
        imported.push_back({
            .id = UUID::random(),
            .projectID = projectID,
            .title = one.title,
            .harness = std::string(harness),
            .createdAt = one.createdAt,
            .agentSessionID = one.agentSessionID,
            .archivedAt = {},
        });
    database_->write([&](Connection& connection) {
        for (const Conversation& one : imported)
            connection.execute(
                R"(INSERT INTO conversation (id, project_id, title, harness, created_at, agent_session_id)
VALUES (?, ?, ?, ?, ?, ?))",
                one.id, one.projectID, one.title, one.harness, one.createdAt, one.agentSessionID);
    });
    return imported;
}

void ProjectStore::retitleConversation(const UUID& id, std::string_view title)
{
    database_->write([&](Connection& connection) {
        connection.execute("UPDATE conversation SET title = ? WHERE id = ?", title, id);
    });
}

void ProjectStore::setHarness(const UUID& id, std::string_view harness)
{
    database_->write([&](Connection& connection) {
        // The session goes with the agent that it was held with: no other could continue it.
        connection.execute("UPDATE conversation SET harness = ?, agent_session_id = NULL WHERE id = ?", harness, id);
    });
}

void ProjectStore::setAgentSession(const UUID& id, const std::optional<std::string>& sessionID)
{
    database_->write([&](Connection& connection) {
        connection.execute("UPDATE conversation SET agent_session_id = ? WHERE id = ?", sessionID, id);
    });
}

void ProjectStore::setConversationArchived(const UUID& id, bool archived)
{
    const std::optional<Date> since = archived ? std::optional(Date::now()) : std::nullopt;
    database_->write([&](Connection& connection) {
        connection.execute("UPDATE conversation SET archived_at = ? WHERE id = ?", since, id);
    });
}

std::optional<std::string> ProjectStore::transcript(const UUID& conversationID) const
{
    return database_->read([&](Connection& connection) {
        Statement row =
            connection.query("SELECT items FROM conversation_transcript WHERE conversation_id = ?", conversationID);
        return row.step() ? std::optional(std::string(row.bytes(0))) : std::nullopt;
    });
}

void ProjectStore::saveTranscript(const UUID& conversationID, std::string_view items)
{
    // The SELECT gives no row for an unknown conversation, where VALUES would break the foreign key.
    database_->write([&](Connection& connection) {
        connection.execute(
            R"(INSERT INTO conversation_transcript (conversation_id, items)
SELECT id, ? FROM conversation WHERE id = ?
ON CONFLICT (conversation_id) DO UPDATE SET items = excluded.items)",
            Blob{items}, conversationID);
    });
}

std::vector<SaidMatch> ProjectStore::said(std::span<const std::string> terms) const
{
    std::vector<std::string> wanted;
    for (const std::string& term : terms)
        if (canBeFound(term))
            wanted.push_back(prefixTerm(term));
    if (wanted.empty())
        return {};
    return database_->read([&](Connection& connection) {
        return decodeAll<SaidMatch>(connection.query(
            R"(SELECT conversation_id, item_id, text, min(rank)
FROM (
  SELECT conversation_id, item_id, text, rank FROM conversation_text
  WHERE conversation_text MATCH ?
)
GROUP BY conversation_id)",
            text::joined(wanted, " AND ")));
    });
}

} // namespace veltry
