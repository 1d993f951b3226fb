#include "Host/Agent/AgentConversation.h"

#include "ACP/JSONRPCConnection/ConnectionError.h"
#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "Base/Text.h"
#include "Host/Agent/AgentLaunch.h"
#include "Platform/ProcessEnd.h"
#include "Platform/StandardStreams.h"
#include "Platform/SystemError.h"
#include "Platform/SystemLog.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace veltry {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto saveInterval = std::chrono::seconds(3);
/// The store takes a transcript whole, so a long one is saved more rarely: this many times what it took.
constexpr int saveRarity = 20;
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
      display_(
          context.out(), executor, StandardStreams::duplicate(StandardStreams::output),
          [this] { happened(Event::stopped); }),
      isInteractive_(canAsk()), typed_(executor), ending_(executor), signals_(executor), roundPause_(executor),
      savePause_(executor), farewell_(executor)
{
    for (const int signal : ProcessEnd::requests())
        signals_.add(signal);
    if (setup_.conversation)
        if (const std::optional<std::string> stored = store_.transcript(setup_.conversation->id))
            transcript_ = Transcript(*stored);
}

asio::awaitable<std::optional<int>> AgentConversation::run(std::shared_ptr<AgentConversation> self)
{
    // First, since an agent may take long to start, and Ctrl-C has to end that as well.
    asio::co_spawn(executor_, watchSignals(self), asio::detached);
    if (isInteractive_) {
        input_ = PipeTransport::make(executor_, StandardStreams::duplicate(StandardStreams::input), FileDescriptor());
        asio::co_spawn(executor_, readLines(self), asio::detached);
    }
    // A task of its own, so that a conversation can end whose agent never answers.
    asio::co_spawn(executor_, work(self), asio::detached);
    std::optional<Ending> ending = co_await ending_.next();
    happened(Event::over);
    try {
        if (ending->cutsTurn)
            endTurn();
        // Now, before anything waits for the agent, which may never go.
        save();
    } catch (...) {
        if (!ending->failure)
            ending->failure = std::current_exception();
    }
    co_await end();
    if (!ending->failure && !ending->signal)
        ending->failure = display_.failure();
    if (ending->failure)
        std::rethrow_exception(ending->failure);
    // Once more, for the agent's last words.
    save();
    co_return ending->signal;
}

void AgentConversation::happened(Event event, std::optional<int> signal)
{
    const bool wasInTurn = phase_.isInTurn();
    switch (phase_.on(event)) {
    case ConversationPhase::Action::none:
        return;
    case ConversationPhase::Action::cancelTurn:
        display_.line("Cancelling; Ctrl-C again ends the conversation.", Style::yellow);
        typed_.dropQuestions();
        asio::co_spawn(executor_, cancel(shared_from_this()), asio::detached);
        return;
    case ConversationPhase::Action::breakOff:
        typed_.finish();
        ending_.push({.failure = nullptr, .signal = signal, .cutsTurn = wasInTurn});
        return;
    case ConversationPhase::Action::hurry:
        // Somebody who asks a second time waits neither for the agent nor for a reader of the output.
        farewell_.cancel();
        display_.drop();
        return;
    }
}

asio::awaitable<void> AgentConversation::work(std::shared_ptr<AgentConversation> self)
{
    Ending ending{.failure = nullptr, .signal = std::nullopt, .cutsTurn = false};
    try {
        ending.signal = co_await self->converse();
    } catch (...) {
        ending.failure = std::current_exception();
    }
    if (ending.failure)
        // Not in the handler above, where a coroutine can't wait.
        ending.failure = co_await self->explained(ending.failure);
    self->ending_.push(std::move(ending));
}

asio::awaitable<std::optional<int>> AgentConversation::converse()
{
    co_await open();
    offerImport();
    if (!setup_.conversation)
        setup_.conversation = store_.createConversation(
            context_.project().id, setup_.prompt ? titleOf(*setup_.prompt) : "", setup_.harness.name);
    // From the row on, so that what a session's history brings is saved as well.
    asio::co_spawn(executor_, keepSaved(shared_from_this()), asio::detached);
    co_await beginSession();
    co_await setAutoMode();
    // Rounds of questions come through the store: the tool server that asks is a process of the agent's.
    asio::co_spawn(executor_, watchRounds(shared_from_this()), asio::detached);
    if (setup_.prompt) {
        const bool isDone = co_await turn(*setup_.prompt);
        co_return isDone ? std::nullopt : std::optional(ProcessEnd::interrupt);
    }
    display_.line("Type what the agent is to do. /options and /set ID VALUE change its settings, /quit ends.");
    for (;;) {
        std::optional<std::string> line = co_await nextPrompt();
        if (!line)
            co_return std::nullopt;
        if (text::isBlank(*line))
            continue;
        if (line->starts_with("/quit"))
            co_return std::nullopt;
        const bool isOurs = co_await obey(*line);
        if (!isOurs)
            co_await turn(std::move(*line));
    }
}

asio::awaitable<bool> AgentConversation::turn(std::string prompt)
{
    if (setup_.conversation->title.empty()) {
        setup_.conversation->title = titleOf(prompt);
        store_.retitleConversation(setup_.conversation->id, setup_.conversation->title);
    }
    transcript_.userSaid(prompt);
    save();
    happened(Event::prompted);
    std::exception_ptr failure;
    bool isCancelled = false;
    try {
        const StopReason reason = co_await client_->prompt(sessionID_, std::move(prompt));
        // Agents may end a cancelled turn as any other, so what was asked for counts too.
        isCancelled =
            reason.kind == StopReason::Kind::cancelled || phase_.phase() == ConversationPhase::Phase::cancelling;
        display_.endTurn(isCancelled ? StopReason(StopReason::Kind::cancelled) : reason);
    } catch (const JSONRPCError& error) {
        const std::string what = fmt::format("The agent failed: {}.", error.description());
        if (setup_.prompt)
            failure = std::make_exception_ptr(Refusal(what));
        else
            display_.line(what, Style::red);
    } catch (...) {
        failure = std::current_exception();
    }
    endTurn();
    if (failure)
        std::rethrow_exception(failure);
    co_return !isCancelled;
}

void AgentConversation::endTurn()
{
    happened(Event::turnEnds);
    typed_.dropQuestions();
    transcript_.endTurn();
    // The agent waits for no answer any more, and a round left open would be shown to the person for good.
    store_.withdrawQuestions(setup_.conversation->id);
    save();
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
        co_await setOption(given[1], given[2]);
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
        const std::vector<ConfigOption> ignored = co_await client_->setConfigOption(sessionID_, id, value);
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
    roundPause_.cancel();
    savePause_.cancel();
    if (input_)
        co_await input_->close();
    if (agent_) {
        agent_->terminate();
        // An agent that stays goes with the executor.
        co_await agentEnded();
    }
    display_.finish();
    co_await display_.written();
    signals_.cancel();
}

asio::awaitable<void> AgentConversation::receive(SessionNotification notification)
{
    // A new session's updates may come before the answer that names it.
    if (notification.sessionId != sessionID_ && !sessionID_.empty())
        co_return;
    if (const auto* unknown = std::get_if<SessionUpdate::Unknown>(&notification.update.value))
        if (unknownKinds_.insert(unknown->kind).second)
            SystemLog::write(SystemLog::Level::info, "acp", fmt::format("updates \"{}\" are not shown", unknown->kind));
    if (!phase_.takesUpdates())
        co_return;
    transcript_.add(notification.update);
    display_.show(notification.update);
    // An agent that is quicker than the reader waits.
    co_await display_.room();
}

asio::awaitable<std::exception_ptr> AgentConversation::explained(std::exception_ptr failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const ConnectionError&) {
    } catch (const SystemError&) { // a request that met the broken pipe
    } catch (...) {
        co_return failure;
    }
    if (!agent_ || phase_.phase() == ConversationPhase::Phase::ending)
        co_return failure; // it had to end
    co_await agentEnded();
    const std::optional<std::int32_t> status = agent_->exitCode();
    if (!status)
        co_return failure;
    co_return std::make_exception_ptr(Refusal(fmt::format(
        "{} ended with status {}. {}", setup_.harness.name, *status,
        AgentLaunch::lastWords(setup_.harness, agent_->recentStderr()))));
}

/// Waits for the agent's end, but not for long.
asio::awaitable<void> AgentConversation::agentEnded()
{
    farewell_.expires_after(farewell);
    asio::co_spawn(
        executor_, agent_->waitForExit(),
        [self = shared_from_this()](const std::exception_ptr&, std::int32_t) { self->farewell_.cancel(); });
    asio::error_code ignored;
    co_await farewell_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
}

asio::awaitable<void> AgentConversation::keepSaved(std::shared_ptr<AgentConversation> self)
{
    Clock::duration pause = saveInterval;
    for (;;) {
        asio::error_code error;
        self->savePause_.expires_after(pause);
        co_await self->savePause_.async_wait(asio::redirect_error(asio::use_awaitable, error));
        if (error)
            co_return;
        if (!self->transcript_.isChanged())
            continue;
        const Clock::time_point begun = Clock::now();
        try {
            self->save();
        } catch (const std::exception& failure) { // the next one may succeed, and the last one tells
            SystemLog::write(SystemLog::Level::error, "store", describe(failure));
        }
        pause = std::max<Clock::duration>(saveInterval, saveRarity * (Clock::now() - begun));
    }
}

void AgentConversation::save()
{
    if (setup_.conversation && transcript_.isChanged()) {
        store_.saveTranscript(setup_.conversation->id, transcript_.text());
        transcript_.wasSaved();
    }
}

} // namespace veltry
