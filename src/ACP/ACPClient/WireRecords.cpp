// The wire in tables: each record's fields with their keys and their tolerance, and the words of the enumerations.

#include "ACP/ACPClient/Handshake.h"
#include "ACP/ACPClient/Permissions.h"
#include "ACP/ACPClient/Prompts.h"
#include "ACP/ACPClient/SessionUpdates.h"
#include "ACP/ACPClient/Sessions.h"
#include "ACP/ACPClient/TextFiles.h"
#include "Base/RecordCoding.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace veltry {

template <>
constexpr auto wordsOf<StopReason::Kind> = std::to_array<Word<StopReason::Kind>>({
    {StopReason::Kind::other, ""},
    {StopReason::Kind::endTurn, "end_turn"},
    {StopReason::Kind::maxTokens, "max_tokens"},
    {StopReason::Kind::maxTurnRequests, "max_turn_requests"},
    {StopReason::Kind::refusal, "refusal"},
    {StopReason::Kind::cancelled, "cancelled"},
});
template <>
constexpr auto wordsOf<PermissionOptionKind::Kind> = std::to_array<Word<PermissionOptionKind::Kind>>({
    {PermissionOptionKind::Kind::other, ""},
    {PermissionOptionKind::Kind::allowOnce, "allow_once"},
    {PermissionOptionKind::Kind::allowAlways, "allow_always"},
    {PermissionOptionKind::Kind::rejectOnce, "reject_once"},
    {PermissionOptionKind::Kind::rejectAlways, "reject_always"},
});
template <>
constexpr auto wordsOf<ToolKind> = std::to_array<Word<ToolKind>>({
    {ToolKind::read, "read"},
    {ToolKind::edit, "edit"},
    {ToolKind::delete_, "delete"},
    {ToolKind::move, "move"},
    {ToolKind::search, "search"},
    {ToolKind::execute, "execute"},
    {ToolKind::think, "think"},
    {ToolKind::fetch, "fetch"},
    {ToolKind::other, "other"},
    {ToolKind::switchMode, "switch_mode"},
});
template <>
constexpr auto wordsOf<ToolCallStatus> = std::to_array<Word<ToolCallStatus>>({
    {ToolCallStatus::pending, "pending"},
    {ToolCallStatus::completed, "completed"},
    {ToolCallStatus::failed, "failed"},
    {ToolCallStatus::inProgress, "in_progress"},
});

namespace records {

using std::tuple;

// Handshake

template <>
constexpr auto fields<Implementation> =
    tuple(field("name", &Implementation::name), field("version", &Implementation::version));
template <>
constexpr auto fields<FileSystemCapabilities> = tuple(
    field("readTextFile", &FileSystemCapabilities::readTextFile),
    field("writeTextFile", &FileSystemCapabilities::writeTextFile));
template <>
constexpr auto fields<ClientCapabilities> =
    tuple(field("fs", &ClientCapabilities::fs), field("terminal", &ClientCapabilities::terminal));
template <>
constexpr auto fields<InitializeParams> = tuple(
    field("protocolVersion", &InitializeParams::protocolVersion),
    field("clientCapabilities", &InitializeParams::clientCapabilities),
    field("clientInfo", &InitializeParams::clientInfo));
template <>
constexpr auto fields<AuthMethod> = tuple(
    field("id", &AuthMethod::id), field("name", &AuthMethod::name), field("description", &AuthMethod::description));
template <>
constexpr auto fields<InitializeResult> = tuple(
    field("protocolVersion", &InitializeResult::protocolVersion),
    field("agentCapabilities", &InitializeResult::agentCapabilities),
    field("authMethods", &InitializeResult::authMethods), field("_meta", &InitializeResult::meta));
template <>
constexpr auto fields<AuthenticateParams> = tuple(field("methodId", &AuthenticateParams::methodId));

// Content

template <>
constexpr std::string_view caseKey<ContentBlock> = "type";
template <>
constexpr std::string_view caseWord<ContentBlock::Text> = "text";
template <>
constexpr auto fields<ContentBlock::Text> = tuple(field("text", &ContentBlock::Text::text));
template <>
constexpr std::string_view caseWord<ContentBlock::ResourceLink> = "resource_link";
template <>
constexpr auto fields<ContentBlock::ResourceLink> =
    tuple(field("uri", &ContentBlock::ResourceLink::uri), field("name", &ContentBlock::ResourceLink::name));

template <>
constexpr auto fields<ContentChunk> =
    tuple(field("content", &ContentChunk::content), field("messageId", &ContentChunk::messageId));

// Tool calls

template <>
constexpr auto fields<ToolCallLocation> =
    tuple(field("path", &ToolCallLocation::path), field("line", &ToolCallLocation::line));
template <typename Call>
constexpr auto fieldsOfACall = tuple(
    field("toolCallId", &Call::toolCallId), field("title", &Call::title), field<OrDefault<Strict>>("kind", &Call::kind),
    field<OrDefault<Strict>>("status", &Call::status), field("content", &Call::content),
    field<OrDefault<Strict>>("locations", &Call::locations));
template <>
constexpr auto fields<ToolCall> = fieldsOfACall<ToolCall>;
template <>
constexpr auto fields<ToolCallUpdate> = fieldsOfACall<ToolCallUpdate>;

// Options

template <>
constexpr auto fields<ConfigChoice> = tuple(
    field("value", &ConfigChoice::value), field("name", &ConfigChoice::name),
    field("description", &ConfigChoice::description));

struct ChoiceGroup {
    std::vector<ConfigChoice> choices;
};

template <>
constexpr auto fields<ChoiceGroup> = tuple(field("options", &ChoiceGroup::choices));

/// A list of choices, or one of groups, whose choices are joined.
struct FlatOrGrouped {
    static void read(std::vector<ConfigChoice>& choices, const JSONValue* json)
    {
        OrDefault<Strict>::read(choices, json);
        if (!choices.empty())
            return;
        std::vector<ChoiceGroup> groups;
        OrDefault<Strict>::read(groups, json);
        for (ChoiceGroup& group : groups)
            std::ranges::move(group.choices, std::back_inserter(choices));
    }
};

template <>
constexpr auto fields<ConfigOption> = tuple(
    field("id", &ConfigOption::id), field("name", &ConfigOption::name),
    field<OrDefault<Strict>>("category", &ConfigOption::category),
    field<OrDefault<Strict>>("type", &ConfigOption::type), field("currentValue", &ConfigOption::currentValue),
    field<FlatOrGrouped>("options", &ConfigOption::choices));

template <>
struct Codec<LenientConfigOptions> {
    static LenientConfigOptions read(const JSONValue& json)
    {
        LenientConfigOptions list;
        EachThatReads::read(list.options, &json);
        return list;
    }
    static JSONValue write(const LenientConfigOptions& list)
    {
        return Codec<decltype(list.options)>::write(list.options);
    }
};

using OptionsIfAny = OrDefault<EachThatReads>;

// Sessions

template <>
constexpr auto fields<EnvVariable> = tuple(field("name", &EnvVariable::name), field("value", &EnvVariable::value));
template <>
constexpr auto fields<McpServerStdio> = tuple(
    field("name", &McpServerStdio::name), field("command", &McpServerStdio::command),
    field("args", &McpServerStdio::args), field("env", &McpServerStdio::env));
template <>
constexpr auto fields<SystemPrompt> =
    tuple(field("mode", &SystemPrompt::mode), field("content", &SystemPrompt::content));
template <>
constexpr auto fields<NewSessionParams> = tuple(
    field("cwd", &NewSessionParams::cwd), field("mcpServers", &NewSessionParams::mcpServers),
    field("additionalDirectories", &NewSessionParams::additionalDirectories),
    field("systemPrompt", &NewSessionParams::systemPrompt));
template <>
constexpr auto fields<NewSessionResult> = tuple(
    field("sessionId", &NewSessionResult::sessionId),
    field<OptionsIfAny>("configOptions", &NewSessionResult::configOptions));
template <>
constexpr auto fields<ResumeSessionParams> = tuple(
    field("sessionId", &ResumeSessionParams::sessionId), field("cwd", &ResumeSessionParams::cwd),
    field("mcpServers", &ResumeSessionParams::mcpServers),
    field("additionalDirectories", &ResumeSessionParams::additionalDirectories),
    field("systemPrompt", &ResumeSessionParams::systemPrompt));
template <>
constexpr auto fields<ResumeSessionResult> =
    tuple(field<OptionsIfAny>("configOptions", &ResumeSessionResult::configOptions));
template <>
constexpr auto fields<ListSessionsParams> =
    tuple(field("cwd", &ListSessionsParams::cwd), field("cursor", &ListSessionsParams::cursor));
template <>
constexpr auto fields<SessionInfo> = tuple(
    field("sessionId", &SessionInfo::sessionId), field("cwd", &SessionInfo::cwd), field("title", &SessionInfo::title),
    field("updatedAt", &SessionInfo::updatedAt));
template <>
constexpr auto fields<ListSessionsResult> =
    tuple(field("sessions", &ListSessionsResult::sessions), field("nextCursor", &ListSessionsResult::nextCursor));
template <>
constexpr auto fields<SetConfigOptionParams> = tuple(
    field("sessionId", &SetConfigOptionParams::sessionId), field("configId", &SetConfigOptionParams::configId),
    field("value", &SetConfigOptionParams::value));
template <>
constexpr auto fields<SetConfigOptionResult> =
    tuple(field<OptionsIfAny>("configOptions", &SetConfigOptionResult::configOptions));

// Prompts

template <>
constexpr auto fields<PromptParams> =
    tuple(field("sessionId", &PromptParams::sessionId), field("prompt", &PromptParams::prompt));
template <>
constexpr auto fields<PromptResult> = tuple(field("stopReason", &PromptResult::stopReason));
template <>
constexpr auto fields<SteerParams> = tuple(
    field("sessionId", &SteerParams::sessionId), field("prompt", &SteerParams::prompt),
    field("_meta", &SteerParams::meta));
template <>
constexpr auto fields<SteerResult> = tuple(field("outcome", &SteerResult::outcome));
template <>
constexpr auto fields<CancelParams> = tuple(field("sessionId", &CancelParams::sessionId));

// Permissions

template <>
constexpr auto fields<PermissionOption> = tuple(
    field("optionId", &PermissionOption::optionId), field("name", &PermissionOption::name),
    field("kind", &PermissionOption::kind));
template <>
constexpr auto fields<RequestPermissionParams> = tuple(
    field("sessionId", &RequestPermissionParams::sessionId), field("toolCall", &RequestPermissionParams::toolCall),
    field("options", &RequestPermissionParams::options));

/// "outcome" is "selected", which needs its "optionId", or else the question counts as cancelled.
template <>
struct Codec<PermissionOutcome> {
    static PermissionOutcome read(const JSONValue& json)
    {
        const auto member = [&](std::string_view key) {
            return within(key, [&] { return Codec<std::string>::read(expect(json.find(key), "is missing")); });
        };
        return member("outcome") == "selected" ? PermissionOutcome::selected(member("optionId"))
                                               : PermissionOutcome::cancelled();
    }
    static JSONValue write(const PermissionOutcome& outcome)
    {
        if (outcome.optionId)
            return JSONValue::object({{"outcome", "selected"}, {"optionId", *outcome.optionId}});
        return JSONValue::object({{"outcome", "cancelled"}});
    }
};

template <>
constexpr auto fields<RequestPermissionResult> = tuple(field("outcome", &RequestPermissionResult::outcome));

// Files

template <>
constexpr auto fields<ReadTextFileParams> = tuple(
    field("sessionId", &ReadTextFileParams::sessionId), field("path", &ReadTextFileParams::path),
    field("line", &ReadTextFileParams::line), field("limit", &ReadTextFileParams::limit));
template <>
constexpr auto fields<ReadTextFileResult> = tuple(field("content", &ReadTextFileResult::content));
template <>
constexpr auto fields<WriteTextFileParams> = tuple(
    field("sessionId", &WriteTextFileParams::sessionId), field("path", &WriteTextFileParams::path),
    field("content", &WriteTextFileParams::content));

// Updates

template <>
constexpr auto fields<PlanEntry> = tuple(
    field("content", &PlanEntry::content), field("status", &PlanEntry::status),
    field("priority", &PlanEntry::priority));
template <>
constexpr auto fields<AvailableCommand::Input> = tuple(field("hint", &AvailableCommand::Input::hint));
template <>
constexpr auto fields<AvailableCommand> = tuple(
    field("name", &AvailableCommand::name), field<OrDefault<Strict>>("description", &AvailableCommand::description),
    field<OrDefault<Strict>>("input", &AvailableCommand::input));

template <>
constexpr std::string_view caseKey<SessionUpdate> = "sessionUpdate";
template <>
constexpr std::string_view caseWord<SessionUpdate::UserMessageChunk> = "user_message_chunk";
template <>
constexpr auto fields<SessionUpdate::UserMessageChunk> = fields<ContentChunk>;
template <>
constexpr std::string_view caseWord<SessionUpdate::AgentMessageChunk> = "agent_message_chunk";
template <>
constexpr auto fields<SessionUpdate::AgentMessageChunk> = fields<ContentChunk>;
template <>
constexpr std::string_view caseWord<SessionUpdate::AgentThoughtChunk> = "agent_thought_chunk";
template <>
constexpr auto fields<SessionUpdate::AgentThoughtChunk> = fields<ContentChunk>;
template <>
constexpr std::string_view caseWord<ToolCall> = "tool_call";
template <>
constexpr std::string_view caseWord<ToolCallUpdate> = "tool_call_update";
template <>
constexpr std::string_view caseWord<SessionUpdate::Plan> = "plan";
template <>
constexpr auto fields<SessionUpdate::Plan> = tuple(field("entries", &SessionUpdate::Plan::entries));
template <>
constexpr std::string_view caseWord<SessionUpdate::ConfigOptions> = "config_option_update";
template <>
constexpr auto fields<SessionUpdate::ConfigOptions> =
    tuple(field<EachThatReads>("configOptions", &SessionUpdate::ConfigOptions::options));
template <>
constexpr std::string_view caseWord<SessionUpdate::AvailableCommands> = "available_commands_update";
template <>
constexpr auto fields<SessionUpdate::AvailableCommands> =
    tuple(field<EachThatReads>("availableCommands", &SessionUpdate::AvailableCommands::commands));

template <>
constexpr auto fields<SessionNotification> =
    tuple(field("sessionId", &SessionNotification::sessionId), field("update", &SessionNotification::update));

} // namespace records

StopReason::StopReason(Kind known) : kind(known), word(toWord(known)) {}

StopReason::StopReason(std::string wireWord)
    : kind(fromWord<Kind>(wireWord).value_or(Kind::other)), word(std::move(wireWord))
{
}

PermissionOptionKind::PermissionOptionKind(Kind known) : kind(known), word(toWord(known)) {}

PermissionOptionKind::PermissionOptionKind(std::string wireWord)
    : kind(fromWord<Kind>(wireWord).value_or(Kind::other)), word(std::move(wireWord))
{
}

template <typename Record>
Record decoded(const JSONValue& value)
{
    return records::Codec<Record>::read(value);
}

template <typename Record>
JSONValue encoded(const Record& record)
{
    return records::Codec<Record>::write(record);
}

template NewSessionResult decoded(const JSONValue&);
template ResumeSessionResult decoded(const JSONValue&);
template SetConfigOptionResult decoded(const JSONValue&);
template SteerResult decoded(const JSONValue&);
template Implementation decoded(const JSONValue&);
template JSONValue encoded(const Implementation&);
template FileSystemCapabilities decoded(const JSONValue&);
template JSONValue encoded(const FileSystemCapabilities&);
template ClientCapabilities decoded(const JSONValue&);
template JSONValue encoded(const ClientCapabilities&);
template InitializeParams decoded(const JSONValue&);
template JSONValue encoded(const InitializeParams&);
template AuthMethod decoded(const JSONValue&);
template JSONValue encoded(const AuthMethod&);
template InitializeResult decoded(const JSONValue&);
template JSONValue encoded(const InitializeResult&);
template AuthenticateParams decoded(const JSONValue&);
template JSONValue encoded(const AuthenticateParams&);
template ContentBlock decoded(const JSONValue&);
template JSONValue encoded(const ContentBlock&);
template ContentChunk decoded(const JSONValue&);
template JSONValue encoded(const ContentChunk&);
template ToolCallLocation decoded(const JSONValue&);
template JSONValue encoded(const ToolCallLocation&);
template ToolCall decoded(const JSONValue&);
template JSONValue encoded(const ToolCall&);
template ToolCallUpdate decoded(const JSONValue&);
template JSONValue encoded(const ToolCallUpdate&);
template ConfigChoice decoded(const JSONValue&);
template JSONValue encoded(const ConfigChoice&);
template ConfigOption decoded(const JSONValue&);
template JSONValue encoded(const ConfigOption&);
template LenientConfigOptions decoded(const JSONValue&);
template JSONValue encoded(const LenientConfigOptions&);
template EnvVariable decoded(const JSONValue&);
template JSONValue encoded(const EnvVariable&);
template McpServerStdio decoded(const JSONValue&);
template JSONValue encoded(const McpServerStdio&);
template SystemPrompt decoded(const JSONValue&);
template JSONValue encoded(const SystemPrompt&);
template NewSessionParams decoded(const JSONValue&);
template JSONValue encoded(const NewSessionParams&);
template ResumeSessionParams decoded(const JSONValue&);
template JSONValue encoded(const ResumeSessionParams&);
template ListSessionsParams decoded(const JSONValue&);
template JSONValue encoded(const ListSessionsParams&);
template SessionInfo decoded(const JSONValue&);
template JSONValue encoded(const SessionInfo&);
template ListSessionsResult decoded(const JSONValue&);
template JSONValue encoded(const ListSessionsResult&);
template SetConfigOptionParams decoded(const JSONValue&);
template JSONValue encoded(const SetConfigOptionParams&);
template PromptParams decoded(const JSONValue&);
template JSONValue encoded(const PromptParams&);
template PromptResult decoded(const JSONValue&);
template JSONValue encoded(const PromptResult&);
template SteerParams decoded(const JSONValue&);
template JSONValue encoded(const SteerParams&);
template CancelParams decoded(const JSONValue&);
template JSONValue encoded(const CancelParams&);
template PermissionOption decoded(const JSONValue&);
template JSONValue encoded(const PermissionOption&);
template RequestPermissionParams decoded(const JSONValue&);
template JSONValue encoded(const RequestPermissionParams&);
template PermissionOutcome decoded(const JSONValue&);
template JSONValue encoded(const PermissionOutcome&);
template RequestPermissionResult decoded(const JSONValue&);
template JSONValue encoded(const RequestPermissionResult&);
template ReadTextFileParams decoded(const JSONValue&);
template JSONValue encoded(const ReadTextFileParams&);
template ReadTextFileResult decoded(const JSONValue&);
template JSONValue encoded(const ReadTextFileResult&);
template WriteTextFileParams decoded(const JSONValue&);
template JSONValue encoded(const WriteTextFileParams&);
template PlanEntry decoded(const JSONValue&);
template JSONValue encoded(const PlanEntry&);
template AvailableCommand decoded(const JSONValue&);
template JSONValue encoded(const AvailableCommand&);
template SessionUpdate decoded(const JSONValue&);
template JSONValue encoded(const SessionUpdate&);
template SessionNotification decoded(const JSONValue&);
template JSONValue encoded(const SessionNotification&);

} // namespace veltry
