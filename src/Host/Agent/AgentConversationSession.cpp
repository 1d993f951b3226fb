// How a conversation's session with the agent is opened: a new one, or one that the agent still knows.

#include "Host/Agent/AgentConversation.h"
#include "Host/Agent/AgentLaunch.h"
#include "Host/Registration/ClientConfiguration.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

namespace veltry {

asio::awaitable<void> AgentConversation::open()
{
    agent_ = co_await AgentLaunch::start(context_, setup_.harness, context_.project().folders.front());
    client_ = ACPClient::make(executor_, agent_, weak_from_this(), Context::settings().logAgentTraffic);
    abilities_ = co_await client_->initialize();
}

/// To whoever begins anew, until an import or a refusal has answered it.
void AgentConversation::offerImport()
{
    if (isInteractive_ && !setup_.conversation && abilities_.listsSessions() && !context_.project().importDismissed)
        display_.line(fmt::format(
            "{} may know older sessions of this folder: veltry import takes them up, veltry import --dismiss ends "
            "this line.",
            setup_.harness.name));
}

asio::awaitable<void> AgentConversation::beginSession()
{
    bool mustLogIn = false;
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (mustLogIn)
            co_await logIn();
        try {
            const std::optional<std::string> known = setup_.conversation->agentSessionID;
            bool isContinued = false;
            if (known)
                isContinued = co_await continueSession(*known);
            if (!isContinued) {
                happened(transcript_.isEmpty() ? Event::joins : Event::rejoins);
                SessionSetup setup = sessionSetup();
                sessionID_ = co_await client_->newSession(std::move(setup));
            }
            store_.setAgentSession(setup_.conversation->id, sessionID_);
            happened(Event::begins);
            co_return;
        } catch (const JSONRPCError& error) {
            // An agent may tell only here that it wants a login; it gets one chance after that.
            if (!error.isAuthRequired() || attempt > 0)
                throw Refusal(fmt::format("{} began no session: {}.", setup_.harness.name, error.description()));
        }
        mustLogIn = true;
    }
}

/// False if the agent can't, or doesn't know the session any more.
asio::awaitable<bool> AgentConversation::continueSession(std::string sessionID)
{
    const bool isNew = transcript_.isEmpty();
    // Loading tells the whole history, which only an empty transcript needs.
    const bool loads = abilities_.loadsSessions() && (isNew || !abilities_.resumesSessions());
    if (!loads && !abilities_.resumesSessions()) {
        display_.line(fmt::format("{} can't continue an older session; it begins a new one.", setup_.harness.name));
        co_return false;
    }
    sessionID_ = sessionID;
    happened(isNew ? Event::joins : Event::rejoins);
    try {
        SessionSetup setup = sessionSetup();
        if (loads)
            co_await client_->loadSession(sessionID, std::move(setup));
        else
            co_await client_->resumeSession(sessionID, std::move(setup));
        co_return true;
    } catch (const JSONRPCError& error) {
        if (error.isAuthRequired())
            throw;
        display_.line(fmt::format(
            "{} doesn't continue its session: {}. It begins a new one.", setup_.harness.name, error.description()));
    }
    co_return false;
}

asio::awaitable<void> AgentConversation::logIn()
{
    const std::vector<AuthMethod> methods = abilities_.authMethods.value_or(std::vector<AuthMethod>());
    if (methods.empty() || !isInteractive_)
        throw Refusal(fmt::format(
            "{} asks to be logged in to{}. Do that with its own command, then try again.", setup_.harness.name,
            methods.empty() ? " and offers no way" : ""));
    const std::function<void()> show = [&] {
        display_.line(fmt::format("{} asks to be logged in to. How?", setup_.harness.name), Style::bold);
        for (std::size_t index = 0; index < methods.size(); ++index)
            display_.line(
                fmt::format(
                    "  {}. {}{}", index + 1, methods[index].name,
                    methods[index].description ? ": " + *methods[index].description : std::string()),
                Style::plain);
    };
    const std::optional<std::size_t> chosen = co_await choice(methods.size(), show);
    if (!chosen)
        throw Refusal("No way to log in was chosen.");
    co_await client_->authenticate(methods[*chosen].id);
}

asio::awaitable<void> AgentConversation::setAutoMode()
{
    if (!setup_.harness.autoMode || !Context::settings().startInAuto)
        co_return;
    const std::vector<ConfigOption> options = client_->configOptions(sessionID_);
    for (const ConfigOption& option : options)
        if (option.category == "mode" || option.id == "mode")
            for (const ConfigChoice& mode : option.choices)
                if (mode.value == *setup_.harness.autoMode && option.currentChoice() != mode) {
                    co_await setOption(option.id, mode.value);
                    co_return;
                }
}

SessionSetup AgentConversation::sessionSetup() const
{
    const Project& project = context_.project();
    ClientConfiguration client = ClientConfiguration::of(
        store_, project, *setup_.conversation, AgentLaunch::permitted(ProcessFacts::environment()),
        ClientConfiguration::kindOf(setup_.harness.name));
    McpServerStdio server{
        .name = "veltry", .command = client.command.string(), .args = std::move(client.arguments), .env = {}};
    for (const auto& [name, value] : client.environment)
        server.env.push_back({.name = name, .value = value});
    SessionSetup setup{
        .cwd = project.folders.front(),
        .additionalDirectories = {project.folders.begin() + 1, project.folders.end()},
        .mcpServers = {std::move(server)},
    };
    if (abilities_.takesSystemPrompt())
        setup.systemPrompt = fmt::format(
            "You work on the project \"{}\". Its experiments are a tree that you reach through the tools of the MCP "
            "server \"veltry\": call experiment_tree before you plan or run anything, and ask the person by ask_user.",
            project.name);
    return setup;
}

} // namespace veltry
