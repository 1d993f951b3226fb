#include "Host/Agent/AgentConversation.h"

#include "ACP/JSONRPCConnection/ConnectionError.h"
#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "Base/Text.h"
#include "Host/Agent/AgentLaunch.h"
#include "Host/Registration/ClientConfiguration.h"
#include "Platform/Files.h"
#include "Platform/ProcessEnd.h"
#include "Platform/ProcessFacts.h"
#include "Platform/StandardStreams.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

namespace veltry {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto saveInterval = std::chrono::seconds(5);
constexpr auto farewell = std::chrono::seconds(2);
constexpr std::size_t longestTitle = 60; // characters

std::string titleOf(std::string_view prompt)
{
    const std::string line = text::oneLine(text::trimmed(text::split(text::trimmed(prompt), '\n').front()));
    return std::string(text::firstCharacters(line, longestTitle));
}

/// Words of a line "/set mode auto".
std::vector<std::string> words(std::string_view line)
{
    std::vector<std::string> words;
    for (const std::string_view word : text::split(line, ' '))
        if (!word.empty())
            words.emplace_back(word);
    return words;
}

} // namespace

AgentConversation::AgentConversation(Context& context, Setup setup, const asio::any_io_executor& executor)
    : context_(context), setup_(std::move(setup)), executor_(executor), store_(*context.store()),
      display_(context.out()), isInteractive_(canAsk()), prompts_(executor),
      interrupts_(executor, ProcessEnd::interrupt), roundPause_(executor)
{
    if (setup_.conversation)
        if (const std::optional<std::string> stored = store_.transcript(setup_.conversation->id))
            transcript_ = Transcript(*stored);
    keepsHistory_ = transcript_.isEmpty();
}

asio::awaitable<bool> AgentConversation::run(std::shared_ptr<AgentConversation> self)
{
    asio::co_spawn(executor_, watchInterrupts(self), asio::detached);
    if (isInteractive_) {
        input_ = PipeTransport::make(
            executor_, StandardStreams::duplicate(StandardStreams::input), Files::open("/dev/null", Files::forWriting));
        asio::co_spawn(executor_, readLines(self), asio::detached);
    }
    std::exception_ptr failure;
    try {
        co_await converse();
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        asio::awaitable<std::exception_ptr> told = explained(failure);
        failure = co_await std::move(told);
    }
    save();
    co_await end();
    if (failure && !isBrokenOff_)
        std::rethrow_exception(failure);
    co_return isBrokenOff_;
}

asio::awaitable<void> AgentConversation::converse()
{
    co_await open();
    offerImport();
    if (!setup_.conversation)
        setup_.conversation = store_.createConversation(
            context_.project().id, setup_.prompt ? titleOf(*setup_.prompt) : "", setup_.harness.name);
    co_await beginSession();
    co_await setAutoMode();
    asio::co_spawn(executor_, watchRounds(shared_from_this()), asio::detached);
    if (setup_.prompt) {
        asio::awaitable<void> only = turn(*setup_.prompt);
        co_await std::move(only);
        co_return;
    }
    display_.line("Type what the agent is to do. /options and /set ID VALUE change its settings, /quit ends.");
    while (!isBrokenOff_) {
        std::optional<std::string> line = co_await nextPrompt();
        if (!line)
            co_return;
        if (text::isBlank(*line))
            continue;
        if (line->starts_with("/quit"))
            co_return;
        asio::awaitable<bool> command = obey(*line);
        const bool isOurs = co_await std::move(command);
        if (isOurs)
            continue;
        asio::awaitable<void> next = turn(std::move(*line));
        co_await std::move(next);
    }
}

asio::awaitable<void> AgentConversation::open()
{
    asio::awaitable<std::shared_ptr<AgentProcess>> started =
        AgentLaunch::start(context_, setup_.harness, context_.project().folders.front(), executor_);
    process_ = co_await std::move(started);
    client_ = ACPClient::make(executor_, process_, weak_from_this(), Context::settings().logAgentTraffic);
    asio::awaitable<InitializeResult> greeting = client_->initialize();
    agent_ = co_await std::move(greeting);
}

/// To whoever begins anew, until an import or a refusal has answered it.
void AgentConversation::offerImport()
{
    if (isInteractive_ && !setup_.conversation && agent_.listsSessions() && !context_.project().importDismissed)
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
            bool goesOn = false;
            if (known) {
                asio::awaitable<bool> older = goOn(*known);
                goesOn = co_await std::move(older);
            }
            if (!goesOn) {
                asio::awaitable<std::string> made = client_->newSession(sessionSetup());
                sessionID_ = co_await std::move(made);
            }
            store_.setAgentSession(setup_.conversation->id, sessionID_);
            keepsHistory_ = true;
            co_return;
        } catch (const JSONRPCError& error) {
            if (!error.isAuthRequired() || attempt > 0)
                throw Refusal(fmt::format("{} began no session: {}.", setup_.harness.name, error.description()));
        }
        mustLogIn = true;
    }
}

/// With an older session. False if the agent can't, or doesn't know it any more.
asio::awaitable<bool> AgentConversation::goOn(std::string sessionID)
{
    const bool loads = agent_.loadsSessions() && (keepsHistory_ || !agent_.resumesSessions());
    if (!loads && !agent_.resumesSessions()) {
        display_.line(fmt::format("{} can't go on with an older session; it begins a new one.", setup_.harness.name));
        co_return false;
    }
    sessionID_ = sessionID;
    try {
        asio::awaitable<void> opened =
            loads ? client_->loadSession(sessionID, sessionSetup()) : client_->resumeSession(sessionID, sessionSetup());
        co_await std::move(opened);
        co_return true;
    } catch (const JSONRPCError& error) {
        if (error.isAuthRequired())
            throw;
        display_.line(fmt::format(
            "{} doesn't go on with its session: {}. It begins a new one.", setup_.harness.name, error.description()));
    }
    co_return false;
}

asio::awaitable<void> AgentConversation::logIn()
{
    const std::vector<AuthMethod> methods = agent_.authMethods.value_or(std::vector<AuthMethod>());
    if (methods.empty() || !isInteractive_)
        throw Refusal(fmt::format(
            "{} asks to be logged in to{}. Do that with its own command, then try again.", setup_.harness.name,
            methods.empty() ? " and offers no way" : ""));
    display_.line(fmt::format("{} asks to be logged in to. How?", setup_.harness.name), Style::bold);
    for (std::size_t index = 0; index < methods.size(); ++index)
        display_.line(
            fmt::format(
                "  {}. {}{}", index + 1, methods[index].name,
                methods[index].description ? ": " + *methods[index].description : std::string()),
            Style::plain);
    const std::optional<std::size_t> chosen = co_await choice(methods.size());
    if (!chosen)
        throw Refusal("No way to log in was chosen.");
    asio::awaitable<void> done = client_->authenticate(methods[*chosen].id);
    co_await std::move(done);
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
                    asio::awaitable<void> set = setOption(option.id, mode.value);
                    co_await std::move(set);
                    co_return;
                }
}

asio::awaitable<void> AgentConversation::turn(std::string prompt)
{
    if (setup_.conversation->title.empty()) {
        setup_.conversation->title = titleOf(prompt);
        store_.retitleConversation(setup_.conversation->id, setup_.conversation->title);
    }
    transcript_.userSaid(prompt);
    save();
    isInTurn_ = true;
    isCancelling_ = false;
    std::exception_ptr failure;
    try {
        asio::awaitable<StopReason> asked = client_->prompt(sessionID_, std::move(prompt));
        const StopReason reason = co_await std::move(asked);
        display_.endTurn(isCancelling_ ? StopReason(StopReason::Kind::cancelled) : reason); // agents may not say it
    } catch (const JSONRPCError& error) {
        display_.line(fmt::format("The agent failed: {}.", error.description()), Style::red);
    } catch (...) {
        failure = std::current_exception();
    }
    isInTurn_ = false;
    dropQuestions();
    transcript_.endTurn();
    store_.withdrawQuestions(setup_.conversation->id);
    save();
    if (failure)
        std::rethrow_exception(failure);
}

/// True if the line was one of our own commands.
asio::awaitable<bool> AgentConversation::obey(std::string line)
{
    const std::vector<std::string> given = words(line);
    if (given.front() == "/options") {
        showOptions();
        co_return true;
    }
    if (given.front() == "/set" && given.size() == 3) {
        asio::awaitable<void> set = setOption(given[1], given[2]);
        co_await std::move(set);
        co_return true;
    }
    if (given.front() == "/set") {
        display_.line("/set takes an option's id and a value; /options lists them.", Style::yellow);
        co_return true;
    }
    co_return false;
}

asio::awaitable<void> AgentConversation::setOption(std::string id, std::string value)
{
    std::string problem;
    try {
        asio::awaitable<std::vector<ConfigOption>> set = client_->setConfigOption(sessionID_, id, value);
        const std::vector<ConfigOption> ignored = co_await std::move(set);
        display_.line(fmt::format("{} is {} now.", id, value));
    } catch (const JSONRPCError& error) {
        problem = error.description();
    } catch (const DecodingFailure& error) {
        problem = error.description();
    }
    if (!problem.empty())
        display_.line(
            fmt::format("{} could not be set to {}: {}. /options lists what there is.", id, value, problem),
            Style::yellow);
}

void AgentConversation::showOptions()
{
    const std::vector<ConfigOption> options = client_->configOptions(sessionID_);
    if (options.empty())
        display_.line("The agent offers no settings.");
    for (const ConfigOption& option : options) {
        const std::optional<ConfigChoice> current = option.currentChoice();
        display_.line(
            fmt::format("{} ({}): {}", option.id, option.name, current ? current->value : "not set"), Style::plain);
        for (const ConfigChoice& choice : option.choices)
            display_.line(fmt::format("    {}  {}", choice.value, choice.name));
    }
}

asio::awaitable<void> AgentConversation::end()
{
    interrupts_.cancel();
    roundPause_.cancel();
    if (input_)
        co_await input_->close();
    client_.reset();
    if (!process_)
        co_return;
    process_->terminate();
    co_await ended(); // it goes with this process in any case
}

asio::awaitable<void> AgentConversation::receive(SessionNotification notification)
{
    if (notification.sessionId != sessionID_ && !sessionID_.empty())
        co_return;
    if (keepsHistory_)
        transcript_.add(notification.update);
    if (isInTurn_ || keepsHistory_)
        display_.show(notification.update);
    if (Clock::now() - savedAt_ > saveInterval)
        save();
}

SessionSetup AgentConversation::sessionSetup() const
{
    const Project& project = context_.project();
    ClientConfiguration client = ClientConfiguration::of(
        store_, project, *setup_.conversation, ProcessFacts::environment(),
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
    if (agent_.takesSystemPrompt())
        setup.systemPrompt = fmt::format(
            "You work on the project \"{}\". Its experiments are a tree that you reach through the tools of the MCP "
            "server \"veltry\": call experiment_tree before you plan or run anything, and ask the person by ask_user.",
            project.name);
    return setup;
}

asio::awaitable<std::exception_ptr> AgentConversation::explained(std::exception_ptr failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const Refusal&) {
        co_return failure;
    } catch (...) { // of the connection, or whatever an agent that went away left behind
    }
    if (!process_)
        co_return failure;
    co_await ended();
    const std::optional<std::int32_t> status = process_->exitCode();
    if (!status)
        co_return failure;
    co_return std::make_exception_ptr(Refusal(fmt::format(
        "{} ended with status {}. {}", setup_.harness.name, *status,
        AgentLaunch::lastWords(setup_.harness, process_->recentStderr()))));
}

/// Waits for the agent's end, but not for long.
asio::awaitable<void> AgentConversation::ended()
{
    const auto patience = std::make_shared<asio::steady_timer>(executor_, farewell);
    asio::co_spawn(executor_, process_->waitForExit(), [patience](const std::exception_ptr&, std::int32_t) {
        patience->cancel();
    });
    asio::error_code ignored;
    co_await patience->async_wait(asio::redirect_error(asio::use_awaitable, ignored));
}

void AgentConversation::save()
{
    if (!setup_.conversation)
        return;
    store_.saveTranscript(setup_.conversation->id, transcript_.text());
    savedAt_ = Clock::now();
}

} // namespace veltry
