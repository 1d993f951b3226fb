#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/LoginPython.h"
#include "Experiments/Spawn.h"
#include "Host/Agent/AgentConversation.h"
#include "Host/Agent/AgentLaunch.h"
#include "Host/Agent/PastSessions.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"
#include "Platform/Async/Awaited.h"
#include "Platform/ProcessEnd.h"
#include "Platform/StandardStreams.h"

#include <fmt/format.h>

#include <array>
#include <chrono>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;

/// The conversation to continue. One that changes to another agent forgets its session with the agent before.
std::optional<Conversation> conversationFor(Context& context, const Arguments& arguments, const Harness& harness)
{
    const std::optional<std::string> named = arguments.text("--conversation");
    if (!named)
        return std::nullopt;
    Conversation conversation = context.conversation(*named);
    if (conversation.harness != harness.name) {
        context.store()->setHarness(conversation.id, harness.name);
        conversation.agentSessionID.reset();
    }
    return conversation;
}

/// The prompt of the command line, or of a standard input that is no terminal.
std::optional<std::string> promptOf(const Arguments& arguments)
{
    const std::vector<std::string> words = arguments.all("PROMPT");
    if (!words.empty())
        return text::joined(words, " ");
    if (canAsk())
        return std::nullopt;
    std::string prompt = StandardStreams::restOfInput();
    if (text::isBlank(prompt))
        throw UsageError("There is no prompt: give it on the command line, on standard input, or call veltry agent on "
                         "a terminal.");
    return prompt;
}

/// The agent that is named, or else the one of the conversation, or else the default one.
Harness harnessOf(Context& context, const Arguments& arguments)
{
    const std::optional<std::string> name = arguments.text("--harness");
    const std::optional<std::string> command = arguments.text("--command");
    std::string usual = Context::settings().defaultAgent;
    if (const std::optional<std::string> named = arguments.text("--conversation")) {
        usual = context.conversation(*named).harness;
        if (!name && !command && Harness::named(usual).name != usual)
            throw Refusal(fmt::format(
                "That conversation was with {}. Name its program with --command, or another agent with --harness.",
                usual));
    }
    return AgentLaunch::harnessFor(name, command, usual);
}

void agent(Context& context, const Arguments& arguments)
{
    const Harness harness = harnessOf(context, arguments);
    static_cast<void>(context.workingLab()); // refuses a project whose folder is gone
    std::optional<std::string> prompt = promptOf(arguments);
    // For the description of the computer that the agent's server gives.
    static_cast<void>(
        LoginPython::kept(LoginPython::file(Context::settingsPath()), Spawn::loginShell(), std::chrono::hours(24)));
    std::optional<Conversation> conversation = conversationFor(context, arguments, harness);
    std::optional<int> signal;
    {
        const ProcessEnd::TakenElsewhere taken;
        OwnExecutor executor;
        const auto talk = std::make_shared<AgentConversation>(
            context,
            AgentConversation::Setup{
                .harness = harness,
                .conversation = std::move(conversation),
                .prompt = std::move(prompt),
                .allowsAll = arguments.has("--allow-all"),
            },
            executor.get());
        signal = executor.run(talk->run(talk));
        conversation = talk->conversation();
    }
    if (conversation)
        context.note(fmt::format("To continue: veltry agent --conversation {}", conversation->id.text().substr(0, 8)));
    if (signal)
        throw ProcessEnd::Requested{*signal};
}

void import(Context& context, const Arguments& arguments)
{
    if (arguments.has("--dismiss")) {
        context.store()->dismissImport(context.project().id);
        return context.note("Noted: past sessions are no longer offered for this project.");
    }
    if (context.json() && !arguments.has("--list"))
        throw UsageError("--json is for --list: it shows the sessions and imports nothing.");
    const Harness harness = harnessOf(context, arguments);
    const std::vector<PastConversation> past = awaited(PastSessions::found(context, harness));
    if (!arguments.has("--list"))
        context.store()->dismissImport(context.project().id); // the offer is answered
    if (context.json()) {
        JSONValue::Array documents;
        for (const PastConversation& session : past)
            documents.push_back(JSONValue::object(
                {{"title", session.title},
                 {"agentSessionID", session.agentSessionID},
                 {"lastUsedAt", session.createdAt.iso8601()}}));
        return context.printJSON(JSONValue(std::move(documents)));
    }
    if (past.empty())
        return context.note(
            fmt::format("{} has no past sessions in this folder that aren't here already.", harness.name));
    TextTable table({{.heading = "session", .mayBeCut = true}, {.heading = "last used"}});
    for (const PastConversation& session : past)
        table.add({{session.title}, {Times::ago(session.createdAt), Style::dim}});
    context.print(table.text(context.out()));
    if (arguments.has("--list"))
        return;
    context.store()->importConversations(past, context.project().id, harness.name);
    context.note(fmt::format(
        "{} of {} can be continued: veltry conversations lists them.", counted(std::ssize(past), "session", "sessions"),
        harness.name));
}

constexpr Option harnessOption = {
    "--harness", "NAME", "The agent: Claude Code, Codex or OpenCode; by default the setting agents.default"};
constexpr Option commandOption = {
    "--command", "LINE", "Any program that speaks ACP on its pipes, with its arguments, in place of a harness"};

constexpr std::array agentOptions = {
    harnessOption,
    commandOption,
    Option{
        "--conversation", "ID", "Continue this one; by default a new one begins", Count::optional,
        Completion::conversation},
    Option{"--allow-all", "", "Permit whatever the agent asks for, without asking you"},
    Option{"PROMPT", "", "One turn with this prompt; without it you are asked for prompts", Count::many},
};

constexpr std::array importOptions = {
    harnessOption,
    commandOption,
    Option{"--list", "", "Show what there is, and import nothing"},
    Option{"--dismiss", "", "Don't offer it for this project again"},
};

constexpr std::array table = {
    Command{
        .name = "agent",
        .summary = "Talk to a coding agent in the project, which gets the experiment tools",
        .example = "veltry agent\nveltry agent --harness Codex \"Try a smaller learning rate\"",
        .options = agentOptions,
        .run = &agent},
    Command{
        .name = "import",
        .summary = "Take up an agent's own past sessions in this folder as conversations",
        .example = "veltry import --harness Codex",
        .hasJSON = true,
        .options = importOptions,
        .run = &import},
};

} // namespace

Family agentCommands()
{
    return table;
}

} // namespace veltry::Commands
