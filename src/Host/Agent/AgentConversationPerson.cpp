// What the person does in a conversation: prompts, choices, interrupts and permissions.

#include "Base/Text.h"
#include "Host/Agent/AgentConversation.h"
#include "Host/Words/RoundAnswers.h"
#include "Platform/ProcessEnd.h"

#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry {

namespace {

constexpr auto roundInterval = std::chrono::seconds(1);

/// The choice by which the agent goes on this once, or doesn't.
std::optional<std::string> optionOf(const RequestPermissionParams& request, bool allowed)
{
    using Kind = PermissionOptionKind::Kind;
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
    if (prompts_.isEmpty())
        display_.promptMark("> ");
    asio::awaitable<std::optional<std::string>> line = prompts_.next();
    co_return co_await std::move(line);
}

asio::awaitable<std::optional<std::size_t>> AgentConversation::choice(std::size_t count)
{
    for (;;) {
        display_.promptMark(fmt::format("1-{}: ", count));
        asio::awaitable<std::optional<std::string>> asked = askedLine();
        const std::optional<std::string> line = co_await std::move(asked);
        if (!line)
            co_return std::nullopt;
        const std::optional<std::int64_t> number = text::integer(text::trimmed(*line));
        if (number && *number >= 1 && std::cmp_less_equal(*number, count))
            co_return static_cast<std::size_t>(*number - 1);
        display_.line("That is none of the numbers.", Style::yellow);
    }
}

asio::awaitable<std::optional<std::string>> AgentConversation::askedLine()
{
    const auto question = std::make_shared<Lines>(executor_);
    questions_.push_back(question);
    if (!input_ || input_->lines().hasEnded() || isBrokenOff_)
        question->finish();
    asio::awaitable<std::optional<std::string>> next = question->next();
    std::optional<std::string> line = co_await std::move(next);
    std::erase(questions_, question);
    co_return line;
}

/// What was asked gets no answer any more, and the next line is no answer to it.
void AgentConversation::dropQuestions()
{
    for (const std::shared_ptr<Lines>& question : questions_)
        question->finish();
}

asio::awaitable<void> AgentConversation::readLines(std::shared_ptr<AgentConversation> self)
{
    for (;;) {
        asio::awaitable<std::optional<std::string>> next = self->input_->lines().next();
        std::optional<std::string> line = co_await std::move(next);
        if (!line)
            break;
        if (!self->questions_.empty())
            self->questions_.front()->push(std::move(*line));
        else if (!self->isInTurn_)
            self->prompts_.push(std::move(*line));
        else if (!text::isBlank(*line)) {
            asio::awaitable<void> told = self->steer(std::move(*line));
            co_await std::move(told);
        }
    }
    self->prompts_.finish();
    self->dropQuestions();
}

asio::awaitable<void> AgentConversation::steer(std::string line)
{
    SteerOutcome outcome = SteerOutcome::promptRequired;
    if (agent_.steers()) {
        try {
            std::vector<ContentBlock> content = {ContentBlock::text(line)};
            asio::awaitable<SteerOutcome> told = client_->steer(sessionID_, std::move(content));
            outcome = co_await std::move(told);
        } catch (const Error&) { // it is kept for the next turn
        }
    }
    if (outcome == SteerOutcome::injected) {
        transcript_.userSaid(std::move(line));
        co_return;
    }
    display_.line("The agent gets that when this turn has ended.");
    prompts_.push(std::move(line));
}

asio::awaitable<void> AgentConversation::watchInterrupts(std::shared_ptr<AgentConversation> self)
{
    for (;;) {
        asio::error_code error;
        co_await self->interrupts_.async_wait(asio::redirect_error(asio::use_awaitable, error));
        if (error)
            co_return;
        if (self->isInTurn_ && !self->isCancelling_) {
            self->isCancelling_ = true;
            self->display_.line("Cancelling; Ctrl-C again ends the conversation.", Style::yellow);
            self->dropQuestions();
            co_await self->client_->cancel(self->sessionID_);
            continue;
        }
        self->isBrokenOff_ = true;
        self->prompts_.finish();
        self->dropQuestions();
        if (self->process_)
            self->process_->terminate(); // whatever waits for the agent goes on
        else
            ProcessEnd::leave(128 + ProcessEnd::interrupt); // nothing has begun yet
    }
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
        if (!self->isInTurn_)
            continue;
        for (AgentQuestions& round : self->store_.openQuestions(self->setup_.conversation->id)) {
            if (std::ranges::find(known, round.id) != known.end())
                continue;
            known.push_back(round.id);
            asio::awaitable<void> asked = self->ask(std::move(round));
            co_await std::move(asked);
        }
    }
}

/// Puts the agent's questions to the person. A round that isn't answered to its end stays open.
asio::awaitable<void> AgentConversation::ask(AgentQuestions round)
{
    display_.line("The agent asks you:", Style::bold);
    if (!isInteractive_) {
        display_.line(fmt::format(
            "{} … veltry answer {} answers.", round.questions.front().question, round.id.text().substr(0, 8)));
        co_return;
    }
    std::vector<Answer> answers;
    for (const Question& question : round.questions) {
        display_.block(
            RoundAnswers::text(question, round.questions.size() > 1 ? answers.size() + 1 : 0, "", context_.out()));
        std::optional<Answer> answer;
        while (!answer) {
            display_.promptMark(RoundAnswers::prompt(question) + ": ");
            asio::awaitable<std::optional<std::string>> typed = askedLine();
            const std::optional<std::string> line = co_await std::move(typed);
            if (!line)
                co_return;
            std::expected<Answer, std::string> meant = RoundAnswers::fromLine(question, *line);
            if (meant)
                answer = std::move(*meant);
            else
                display_.line(meant.error(), Style::yellow);
        }
        answers.push_back(std::move(*answer));
    }
    store_.answer(round.id, answers);
    const std::optional<AgentQuestions> closed = store_.questions(round.id);
    if (!closed || closed->answers != answers)
        display_.line("The questions were closed elsewhere in the meantime.", Style::yellow);
}

asio::awaitable<PermissionOutcome> AgentConversation::decidePermission(RequestPermissionParams request)
{
    if (setup_.allowsAll)
        co_return outcomeOf(optionOf(request, true));
    display_.permission(request);
    if (!isInteractive_) {
        display_.line("Nobody is there to ask: refused. --allow-all permits what the agent asks for.", Style::yellow);
        co_return outcomeOf(optionOf(request, false));
    }
    asio::awaitable<std::optional<std::size_t>> asked = choice(request.options.size());
    const std::optional<std::size_t> chosen = co_await std::move(asked);
    co_return chosen ? PermissionOutcome::selected(request.options[*chosen].optionId) : PermissionOutcome::cancelled();
}

} // namespace veltry
