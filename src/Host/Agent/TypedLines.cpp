#include "Host/Agent/TypedLines.h"

#include "Base/Text.h"

#include <algorithm>

namespace veltry {

std::optional<std::string> TypedLines::give(std::string line, ConversationPhase::Typed otherwise)
{
    using Typed = ConversationPhase::Typed;
    if (!questions_.empty())
        questions_.front()->lines.push(std::move(line));
    else if (otherwise == Typed::prompt || (otherwise == Typed::wait && !text::isBlank(line)))
        prompts_.push(std::move(line));
    else if (otherwise == Typed::steer && !text::isBlank(line))
        return line;
    return std::nullopt;
}

void TypedLines::finish()
{
    hasEnded_ = true;
    prompts_.finish();
    dropQuestions();
}

void TypedLines::dropQuestions()
{
    // They leave the queue here, not when their askers notice: a line may come before that.
    for (const std::shared_ptr<Place>& place : std::exchange(questions_, {})) {
        place->turn.finish();
        place->lines.finish();
    }
}

TypedLines::Question::Question(TypedLines& lines) : lines_(lines), place_(std::make_shared<Place>(lines.executor_))
{
    if (lines_.hasEnded_) {
        place_->turn.finish();
        place_->lines.finish();
        return;
    }
    lines_.questions_.push_back(place_);
    if (lines_.questions_.size() == 1)
        place_->turn.push(true);
}

TypedLines::Question::~Question()
{
    std::deque<std::shared_ptr<Place>>& queue = lines_.questions_;
    const bool wasFirst = !queue.empty() && queue.front() == place_;
    std::erase(queue, place_);
    if (wasFirst && !queue.empty())
        queue.front()->turn.push(true);
}

asio::awaitable<bool> TypedLines::Question::turn()
{
    const std::optional<bool> came = co_await place_->turn.next();
    co_return came.has_value() && !place_->lines.hasEnded();
}

asio::awaitable<std::optional<std::string>> TypedLines::Question::line()
{
    return place_->lines.next();
}

} // namespace veltry
