#pragma once

#include "Base/RecordCoding.h"
#include "Projects/Conversation.h"
#include "Projects/Experiment.h"
#include "Projects/Paper.h"
#include "Projects/Project.h"
#include "Projects/Question.h"
#include "Projects/Run.h"

/// The fields of the store's records: key in JSON, member, column. What reads rows, what writes the JSON forms and what
/// shows records to programs takes them from here.
namespace veltry::records {

/// A text, which may be absent if it is optional, but is never empty.
struct NotEmpty {
    template <typename Text>
    static void read(Text& value, const JSONValue* json)
    {
        Strict::read(value, json);
        if (value == "")
            throw DecodingFailure("is empty");
    }
};

template <>
inline constexpr auto fields<Project> = std::tuple(
    field("id", &Project::id, "id"), field("name", &Project::name, "name"),
    // In a table of their own.
    field("folders", &Project::folders), field("createdAt", &Project::createdAt, "created_at"),
    field("importDismissed", &Project::importDismissed, "import_dismissed"),
    field("collapsed", &Project::collapsed, "collapsed"));

template <>
inline constexpr auto fields<Conversation> = std::tuple(
    field("id", &Conversation::id, "id"), field("projectID", &Conversation::projectID, "project_id"),
    field("title", &Conversation::title, "title"), field("harness", &Conversation::harness, "harness"),
    field("createdAt", &Conversation::createdAt, "created_at"),
    field("agentSessionID", &Conversation::agentSessionID, "agent_session_id"),
    field("archivedAt", &Conversation::archivedAt, "archived_at"));

template <>
inline constexpr auto fields<SaidMatch> = std::tuple(
    field("conversationID", &SaidMatch::conversationID, "conversation_id"),
    field("itemID", &SaidMatch::itemID, "item_id"), field("text", &SaidMatch::text, "text"));

template <>
inline constexpr auto fields<Experiment> = std::tuple(
    field("id", &Experiment::id, "id"), field("projectID", &Experiment::projectID, "project_id"),
    field("parentID", &Experiment::parentID, "parent_id"), field("slug", &Experiment::slug, "slug"),
    field("branch", &Experiment::branch, "branch"), field("title", &Experiment::title, "title"),
    field("notes", &Experiment::notes, "notes"), field("runCommand", &Experiment::runCommand, "run_command"),
    field("archived", &Experiment::archived, "archived"),
    field("conversationID", &Experiment::conversationID, "conversation_id"),
    field("createdAt", &Experiment::createdAt, "created_at"));

template <>
inline constexpr auto fields<Run> = std::tuple(
    field("id", &Run::id, "id"), field("experimentID", &Run::experimentID, "experiment_id"),
    field("projectID", &Run::projectID, "project_id"), field("number", &Run::number, "number"),
    field("status", &Run::status, "status"), field("commit", &Run::commit, "commit_sha"),
    field("command", &Run::command, "command"), field("directory", &Run::directory, "directory"),
    field("pid", &Run::pid, "pid"), field("exitCode", &Run::exitCode, "exit_code"),
    field("result", &Run::result, "result"), field("cancelRequested", &Run::cancelRequested, "cancel_requested"),
    field("createdAt", &Run::createdAt, "created_at"), field("endedAt", &Run::endedAt, "ended_at"));

template <>
inline constexpr auto fields<Question::Option> =
    std::tuple(field("label", &Question::Option::label), field("description", &Question::Option::description));

template <>
inline constexpr auto fields<Question> = std::tuple(
    field("question", &Question::question), field("detail", &Question::detail), field("options", &Question::options),
    field("multiSelect", &Question::multiSelect));

template <>
inline constexpr auto fields<Answer> = std::tuple(field("chosen", &Answer::chosen), field("other", &Answer::other));

template <>
inline constexpr auto fields<AgentQuestions> = std::tuple(
    field("id", &AgentQuestions::id, "id"), field("conversationID", &AgentQuestions::conversationID, "conversation_id"),
    field("questions", &AgentQuestions::questions, "questions"), field("answers", &AgentQuestions::answers, "answers"),
    field("status", &AgentQuestions::status, "status"), field("askedAt", &AgentQuestions::askedAt, "created_at"));

template <>
inline constexpr auto fields<Paper> = std::tuple(
    field("id", &Paper::id), field("title", &Paper::title), field("authors", &Paper::authors),
    field("year", &Paper::year), field("venue", &Paper::venue), field("citations", &Paper::citations),
    // No text without a character is an address.
    field("doi", &Paper::doi), field<NotEmpty>("url", &Paper::url), field<NotEmpty>("pdfURL", &Paper::pdfURL),
    field("abstract", &Paper::abstract));

template <>
inline constexpr auto fields<Citation> = std::tuple(
    field("experimentID", &Citation::experimentID, "experiment_id"), field("paper", &Citation::paper, "paper"),
    field("reason", &Citation::reason, "reason"), field("createdAt", &Citation::createdAt, "created_at"));

} // namespace veltry::records
