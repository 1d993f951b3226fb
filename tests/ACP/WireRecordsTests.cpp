#include "ACP/ACPClient/Handshake.h"
#include "ACP/ACPClient/Permissions.h"
#include "ACP/ACPClient/Prompts.h"
#include "ACP/ACPClient/SessionUpdates.h"
#include "ACP/ACPClient/Sessions.h"
#include "ACP/ACPClient/TextFiles.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The record read from the text and written again, or why it doesn't read.
template <typename Record>
std::string again(std::string_view text)
{
    try {
        return encoded(decoded<Record>(JSONValue::parse(text))).text();
    } catch (const DecodingFailure& failure) {
        return failure.description();
    }
}

TEST(WireRecords, ReadAndWriteWithTheirTolerance)
{
    using Again = std::string (*)(std::string_view);
    const Again initializeResult = again<InitializeResult>, info = again<SessionInfo>, block = again<ContentBlock>,
                call = again<ToolCall>, callUpdate = again<ToolCallUpdate>, permission = again<RequestPermissionParams>,
                command = again<AvailableCommand>, option = again<ConfigOption>, options = again<LenientConfigOptions>,
                outcome = again<RequestPermissionResult>, prompt = again<PromptResult>, update = again<SessionUpdate>,
                file = again<ReadTextFileParams>;
    const struct {
        Again again;
        std::string_view name, text, expected; ///< nothing where the same text comes back
    } cases[] = {
        {initializeResult, "other keys are ignored and null is absent",
         R"({"protocolVersion":1,"agentCapabilities":null,"authMethods":null,"agentInfo":{"name":"x"}})",
         R"({"protocolVersion":1})"},
        {initializeResult, "all of it",
         R"({"_meta":{"a":1},"agentCapabilities":[],"authMethods":[{"id":"1","name":"n","description":null}],"protocolVersion":1})",
         R"({"_meta":{"a":1},"agentCapabilities":[],"authMethods":[{"id":"1","name":"n"}],"protocolVersion":1})"},
        {initializeResult, "a version that is no integer", R"({"protocolVersion":1.5})",
         "protocolVersion is no whole number of 64 bits"},
        {initializeResult, "a bad method", R"({"protocolVersion":1,"authMethods":[{"id":"a","name":"b"},{"id":"c"}]})",
         "authMethods[1].name is missing"},

        {info, "a title of null", R"({"sessionId":"s","cwd":"/","title":null,"updatedAt":"soon"})",
         R"({"cwd":"/","sessionId":"s","updatedAt":"soon"})"},

        {block, "text", R"({"type":"text","text":"hi","annotations":{}})", R"({"text":"hi","type":"text"})"},
        {block, "link", R"({"type":"resource_link","uri":"u","name":"n","size":1})",
         R"({"name":"n","type":"resource_link","uri":"u"})"},
        {block, "any other, whole", R"({"data":"AA==","mimeType":"image/png","type":"image"})", {}},

        {call,
         "all of it",
         R"({"content":[1,{}],"kind":"switch_mode","locations":[{"line":3,"path":"p"},{"path":"q"}],"status":"in_progress","title":"t","toolCallId":"c"})",
         {}},
        {call, "unknown kind and status", R"({"toolCallId":"c","title":"t","kind":"dance","status":"odd"})",
         R"({"title":"t","toolCallId":"c"})"},
        {call, "kind, status, locations of another type",
         R"({"toolCallId":"c","title":"t","kind":1,"status":{},"locations":5})", R"({"title":"t","toolCallId":"c"})"},
        {call, "one bad location", R"({"toolCallId":"c","title":"t","locations":[{"path":"p"},{"line":1}]})",
         R"({"title":"t","toolCallId":"c"})"},
        {call, "content that is no list", R"({"toolCallId":"c","title":"t","content":5})", "content is no list"},
        {callUpdate, "no title", R"({"toolCallId":"c","kind":"delete"})", R"({"kind":"delete","toolCallId":"c"})"},

        {permission,
         "an option of an unknown kind",
         R"({"options":[{"kind":"ask_later","name":"n","optionId":"o"}],"sessionId":"s","toolCall":{"toolCallId":"c"}})",
         {}},
        {permission, "a call of an unknown kind",
         R"({"options":[],"sessionId":"s","toolCall":{"toolCallId":"c","kind":"x"}})",
         R"({"options":[],"sessionId":"s","toolCall":{"toolCallId":"c"}})"},
        {outcome, "selected without an option", R"({"outcome":{"outcome":"selected"}})", "outcome.optionId is missing"},
        {outcome, "any other", R"({"outcome":{"outcome":"expired","optionId":1}})",
         R"({"outcome":{"outcome":"cancelled"}})"},
        {prompt, "a reason beyond those known", R"({"stopReason":"tired"})", {}},
        {file, "integers", R"({"sessionId":"s","path":"p","line":-9223372036854775808,"limit":2.0})",
         R"({"limit":2,"line":-9.223372036854776e+18,"path":"p","sessionId":"s"})"},
        {file, "beyond 64 bits", R"({"sessionId":"s","path":"p","limit":9223372036854775807})",
         "limit is no whole number of 64 bits"},

        {command, "a description and an input that don't read", R"({"name":"n","description":1,"input":{"hint":2}})",
         R"({"description":"","name":"n"})"},
        {option, "no type, odd category", R"({"id":"i","name":"n","category":1,"currentValue":{"a":1}})",
         R"({"currentValue":{"a":1},"id":"i","name":"n","options":[],"type":"select"})"},
        {option, "a flat list",
         R"({"id":"i","name":"n","type":"t","options":[{"value":"a","name":"A","description":"d"}]})",
         R"({"id":"i","name":"n","options":[{"description":"d","name":"A","value":"a"}],"type":"t"})"},
        {option, "groups",
         R"({"id":"i","name":"n","options":[{"group":"g","options":[{"value":"a","name":"A"},{"value":"b","name":"B"}]},{"options":[{"value":"c","name":"C"},{"value":"d","name":"D"}]}]})",
         R"({"id":"i","name":"n","options":[{"name":"A","value":"a"},{"name":"B","value":"b"},{"name":"C","value":"c"},{"name":"D","value":"d"}],"type":"select"})"},
        {option, "neither", R"({"id":"i","name":"n","options":[{"value":"a","name":"A"},{"options":[]}]})",
         R"({"id":"i","name":"n","options":[],"type":"select"})"},
        {options, "an element that doesn't read is dropped", R"([5,{"id":"i","name":"n"},{"id":"j"},null])",
         R"([{"id":"i","name":"n","options":[],"type":"select"}])"},

        {update, "a chunk",
         R"({"sessionUpdate":"agent_message_chunk","content":{"type":"text","text":"x"},"messageId":"m"})",
         R"({"content":{"text":"x","type":"text"},"messageId":"m","sessionUpdate":"agent_message_chunk"})"},
        {update, "a chunk without content", R"({"sessionUpdate":"user_message_chunk"})", "content is missing"},
        {update, "a call", R"({"sessionUpdate":"tool_call","toolCallId":"c","title":"t"})",
         R"({"sessionUpdate":"tool_call","title":"t","toolCallId":"c"})"},
        {update, "a call's update", R"({"sessionUpdate":"tool_call_update","toolCallId":"c","status":"failed"})",
         R"({"sessionUpdate":"tool_call_update","status":"failed","toolCallId":"c"})"},
        {update, "a plan", R"({"sessionUpdate":"plan","entries":[{"content":"c","status":"any","priority":"p"}]})",
         R"({"entries":[{"content":"c","priority":"p","status":"any"}],"sessionUpdate":"plan"})"},
        {update, "a plan with a bad entry", R"({"sessionUpdate":"plan","entries":[{"content":"c","status":"any"}]})",
         "entries[0].priority is missing"},
        {update, "options, without the bad one",
         R"({"sessionUpdate":"config_option_update","configOptions":[{"id":1},{"id":"i","name":"n"}]})",
         R"({"configOptions":[{"id":"i","name":"n","options":[],"type":"select"}],"sessionUpdate":"config_option_update"})"},
        {update, "commands, without the bad one",
         R"({"sessionUpdate":"available_commands_update","availableCommands":[{"name":"a","input":{"hint":"h"}},{"description":"d"}]})",
         R"({"availableCommands":[{"description":"","input":{"hint":"h"},"name":"a"}],"sessionUpdate":"available_commands_update"})"},
        {update, "an unknown kind, whole", R"({"sessionUpdate":"usage_update","size":10,"used":null})", {}},
        {update, "no kind", R"({"content":{}})", "sessionUpdate is missing"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.again(c.text), c.expected.empty() ? c.text : c.expected);
    }
}

TEST(WireRecords, ResultsReadTheirOptionsWhateverTheyAre)
{
    for (const std::string_view text :
         {R"({"sessionId":"s"})", R"({"sessionId":"s","configOptions":null})",
          R"({"sessionId":"s","configOptions":"x"})"}) {
        SCOPED_TRACE(text);
        const JSONValue json = JSONValue::parse(text);
        EXPECT_THAT(decoded<NewSessionResult>(json).configOptions, IsEmpty());
        EXPECT_THAT(decoded<ResumeSessionResult>(json).configOptions, IsEmpty());
        EXPECT_THAT(decoded<SetConfigOptionResult>(json).configOptions, IsEmpty());
    }
    const auto some = decoded<ResumeSessionResult>(JSONValue::parse(R"({"configOptions":[{},{"id":"i","name":"n"}]})"));
    EXPECT_THAT(some.configOptions, ElementsAre(testing::Field(&ConfigOption::id, "i")));
    EXPECT_THROW((void)decoded<NewSessionResult>(JSONValue::object({})), DecodingFailure);
}

TEST(WireRecords, KnowTheWordsOfTheWire)
{
    const auto reason = decoded<PromptResult>(JSONValue::parse(R"({"stopReason":"max_turn_requests"})")).stopReason;
    EXPECT_EQ(reason, StopReason::Kind::maxTurnRequests);
    EXPECT_EQ(StopReason("tired").kind, StopReason::Kind::other);
    EXPECT_EQ(PermissionOptionKind("reject_always"), PermissionOptionKind::Kind::rejectAlways);
}

TEST(WireRecords, AnAgentIsAskedWhatItCanDo)
{
    const struct {
        std::string_view capabilities, meta, answers; // loads, resumes, lists, takes a system prompt, steers
    } cases[] = {
        {"null", "null", "-----"},
        {R"({"loadSession":true,"sessionCapabilities":{"resume":{},"list":null,"systemPrompt":0}})",
         R"({"steering":{"supported":true}})", "lrips"},
        {R"({"loadSession":"true","sessionCapabilities":["resume"]})", R"({"steering":{"supported":"true"}})", "-----"},
        {R"({"sessionCapabilities":{"resume":null}})", R"({"steering":true})", "-r---"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.capabilities);
        const JSONValue json = JSONValue::object(
            {{"protocolVersion", 1},
             {"agentCapabilities", JSONValue::parse(c.capabilities)},
             {"_meta", JSONValue::parse(c.meta)}});
        const auto agent = decoded<InitializeResult>(json);
        const bool answers[] = {
            agent.loadsSessions(), agent.resumesSessions(), agent.listsSessions(), agent.takesSystemPrompt(),
            agent.steers()};
        for (std::size_t index = 0; index < std::size(answers); ++index)
            EXPECT_EQ(answers[index], c.answers[index] != '-') << index;
    }
}

TEST(WireRecords, ASessionKnowsWhenItChanged)
{
    const auto updated = [](std::optional<std::string> text) {
        return SessionInfo{.sessionId = "s", .cwd = "/", .title = {}, .updatedAt = std::move(text)}.updated();
    };
    const std::pair<const char*, double> moments[] = {
        {"1970-01-02T00:00:01Z", 86401},
        {"2026-03-01T12:00:00.250Z", 1772366400.25},
        {"2026-03-01T13:30:00.25+0130", 1772366400.25},
        {"2026-03-01T11:00:00-01:00", 1772366400},
    };
    for (const auto& [text, since1970] : moments)
        EXPECT_NEAR(updated(text).value().secondsSince1970(), since1970, 1e-6) << text;
    for (const char* text :
         {"2026-02-29T12:00:00Z", "2026-03-01T24:00:00Z", "2026-03-01T12:00:00", "2026-03-01T12:00:00.Z",
          "2026-03-01T12:00:00Z ", "2026-03-01 12:00:00Z", "yesterday", ""})
        EXPECT_EQ(updated(text), std::nullopt) << text;
    EXPECT_EQ(updated({}), std::nullopt);
}

} // namespace
} // namespace veltry
