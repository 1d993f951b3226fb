// What the person does in a conversation: prompts, choices, interrupts and permissions.

#include "Base/Text.h"
#include "Host/Agent/AgentConversation.h"
#include "Host/Words/RoundAnswers.h"
#include "Platform/ProcessEnd.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry {

namespace {

constexpr auto roundInterval = std::chrono::seconds(1);

/// The choice by which the agent continues this once, or doesn't.
std::optional<std::string> optionOf(const RequestPermissionParams& request, bool allowed)
{
    using Kind = PermissionOptionKind::Kind;
    // Once before always: what nobody decided for later stays open.
    for (const Kind kind :
         allowed ? std::array{Kind::allowOnce, Kind::allowAlways} : std::array{Kind::rejectOnce, Kind::rejectAlways})
        for (const PermissionOption& option : request.options)
            if (option.kind.kind == kind)
                return option.optionId;
    return std::nullopt;
}

PermissionOutcome outcomeOf(const std::optional<std::string>& option)
{
    return option ? PermissionOutcome::selected(*option) : PermissionOutcome::cancelled();
}

} // namespace

asio::awaitable<std::optional<std::string>> AgentConversation::nextPrompt()
{
    if (!typed_.hasPrompt())
        display_.promptMark("> ");
    return typed_.prompt();
}

asio::awaitable<std::optional<std::size_t>> AgentConversation::choice(std::size_t count, std::function<void()> show)
{
    TypedLines::Question question(typed_);
    const bool isMyTurn = co_await question.turn();
    if (!isMyTurn)
        co_return std::nullopt;
    show();
    for (;;) {
        display_.promptMark(fmt::format("1-{}: ", count));
        const std::optional<std::string> line = co_await question.line();
        if (!line)
            co_return std::nullopt;
        const std::optional<std::int64_t> number = text::integer(text::trimmed(*line));
        if (number && *number >= 1 && std::cmp_less_equal(*number, count))
            co_return static_cast<std::size_t>(*number - 1);
        display_.line("That is none of the numbers.", Style::yellow);
    }
}

asio::awaitable<void> AgentConversation::readLines(std::shared_ptr<AgentConversation> self)
{
    for (;;) {
        std::optional<std::string> line = co_await self->input_->lines().next();
        if (!line)
            break;
        // A question takes the line before the turn does, since its asker waits at the prompt on the screen.
        std::optional<std::string> told = self->typed_.give(std::move(*line), self->phase_.typed());
        // In a task of its own: what is typed before the agent answers may be the permission that it waits for.
        if (told)
            asio::co_spawn(self->executor_, steer(self, std::move(*told)), asio::detached);
    }
    self->typed_.finish();
}

asio::awaitable<void> AgentConversation::steer(std::shared_ptr<AgentConversation> self, std::string line)
{
    SteerOutcome outcome = SteerOutcome::promptRequired;
    if (self->abilities_.steers()) {
        try {
            const std::shared_ptr<ACPClient> client = self->client_;
            std::vector<ContentBlock> content = {ContentBlock::text(line)};
            outcome = co_await client->steer(self->sessionID_, std::move(content));
        } catch (const Error&) { // it is kept for the next turn
        }
    }
    if (outcome == SteerOutcome::injected) {
        self->transcript_.userSaid(std::move(line));
        co_return;
    }
    if (self->setup_.prompt)
        self->display_.line("The agent can't be told anything in the middle of its turn.", Style::yellow);
    else if (self->phase_.isInTurn())
        self->display_.line("The agent gets that when this turn has ended.");
    self->typed_.keepForPrompt(std::move(line));
}

asio::awaitable<void> AgentConversation::watchSignals(std::shared_ptr<AgentConversation> self)
{
    for (;;) {
        asio::error_code error;
        const int signal = co_await self->signals_.async_wait(asio::redirect_error(asio::use_awaitable, error));
        if (error)
            co_return;
        // The terminal has written ^C, so the cursor is no longer at the start of a line.
        if (signal == ProcessEnd::interrupt && self->isInteractive_)
            self->display_.keysEchoed();
        self->happened(signal == ProcessEnd::interrupt ? Event::interrupted : Event::stopped, signal);
    }
}

asio::awaitable<void> AgentConversation::cancel(std::shared_ptr<AgentConversation> self)
{
    co_await self->client_->cancel(self->sessionID_);
}

asio::awaitable<void> AgentConversation::watchRounds(std::shared_ptr<AgentConversation> self)
{
    std::vector<UUID> known;
    for (;;) {
        asio::error_code error;
        self->roundPause_.expires_after(roundInterval);
        co_await self->roundPause_.async_wait(asio::redirect_error(asio::use_awaitable, error));
        if (error)
            co_return;
        // Between turns nobody waits for answers, and a question would take the next prompt's line.
        if (!self->phase_.isInTurn())
            continue;
        for (AgentQuestions& round : self->store_.openQuestions(self->setup_.conversation->id)) {
            if (std::ranges::find(known, round.id) != known.end())
                continue;
            // A round that wasn't answered to its end is not asked again.
            known.push_back(round.id);
            co_await self->ask(std::move(round));
        }
    }
}

/// Puts the agent's questions to the person. A round that isn't answered to its end stays open.
asio::awaitable<void> AgentConversation::ask(AgentQuestions round)
{
    if (!isInteractive_ && !round.questions.empty()) {
        display_.line("The agent asks you:", Style::bold);
        display_.line(fmt::format(
            "{} … veltry answer {} answers.", round.questions.front().question, round.id.text().substr(0, 8)));
        co_return;
    }
    std::vector<Answer> answers;
    for (const Question& question : round.questions) {
        const std::size_t number = round.questions.size() > 1 ? answers.size() + 1 : 0;
        std::optional<Answer> answer = co_await answerTo(question, number);
        if (!answer)
            co_return;
        answers.push_back(std::move(*answer));
    }
    store_.answer(round.id, answers);
    // The first answer counts, and it may have come from another terminal.
    const std::optional<AgentQuestions> closed = store_.questions(round.id);
    if (!closed || closed->answers != answers)
        display_.line("The questions were closed elsewhere in the meantime.", Style::yellow);
}

asio::awaitable<std::optional<Answer>> AgentConversation::answerTo(Question question, std::size_t number)
{
    TypedLines::Question place(typed_);
    const bool isMyTurn = co_await place.turn();
    if (!isMyTurn)
        co_return std::nullopt;
    if (number <= 1)
        display_.line("The agent asks you:", Style::bold);
    display_.block(RoundAnswers::text(question, number, "", context_.out()));
    for (;;) {
        display_.promptMark(RoundAnswers::prompt(question) + ": ");
        const std::optional<std::string> line = co_await place.line();
        if (!line)
            co_return std::nullopt;
        std::expected<Answer, std::string> meant = RoundAnswers::fromLine(question, *line);
        if (meant) {
            display_.line("Answered: " + RoundAnswers::kept(*meant), Style::dim);
            co_return std::move(*meant);
        }
        display_.line(meant.error(), Style::yellow);
    }
}

asio::awaitable<PermissionOutcome> AgentConversation::decidePermission(RequestPermissionParams request)
{
    if (setup_.allowsAll && !request.options.empty())
        co_return outcomeOf(optionOf(request, true));
    if (request.options.empty() || !isInteractive_) {
        display_.permission(request);
        if (request.options.empty())
            display_.line("It offers no choice, so this counts as cancelled.", Style::yellow);
        else
            display_.line(
                "Nobody is there to ask: refused. --allow-all permits what the agent asks for.", Style::yellow);
        co_return outcomeOf(optionOf(request, false));
    }
    const std::function<void()> show = [&] { display_.permission(request); };
    const std::optional<std::size_t> chosen = co_await choice(request.options.size(), show);
    co_return chosen ? PermissionOutcome::selected(request.options[*chosen].optionId) : PermissionOutcome::cancelled();
}

} // namespace veltry
