#pragma once

#include "Host/Agent/ConversationPhase.h"
#include "Platform/Async/Mailbox.h"

#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace veltry {

/// Who gets what the person types: the oldest open question; without one, whom the conversation's phase names.
/// Questions are put one after the other, so that an answer never reaches a question that isn't the one on the screen.
/// Belongs to one executor.
class TypedLines {
public:
    explicit TypedLines(const asio::any_io_executor& executor) : executor_(executor), prompts_(executor) {}

    /// The line comes back if the agent is to be told it now.
    [[nodiscard]] std::optional<std::string> give(std::string line, ConversationPhase::Typed otherwise);
    /// Nothing more is typed: prompts and questions end once they have got what was.
    void finish();

    /// For a line that the agent would not take in the middle of its turn.
    void keepForPrompt(std::string line) { prompts_.push(std::move(line)); }
    [[nodiscard]] bool hasPrompt() const { return !prompts_.isEmpty(); }
    /// Nothing at the end of the input.
    [[nodiscard]] asio::awaitable<std::optional<std::string>> prompt() { return prompts_.next(); }

    /// What was asked so far gets no answer, and the next line is no answer to it.
    void dropQuestions();

    class Question;

private:
    struct Place {
        explicit Place(const asio::any_io_executor& executor) : turn(executor), lines(executor) {}
        Mailbox<bool> turn; // one item once it is the first
        Mailbox<std::string> lines;
    };

    asio::any_io_executor executor_;
    Mailbox<std::string> prompts_;
    std::deque<std::shared_ptr<Place>> questions_; // the first is on the screen
    bool hasEnded_ = false;
};

/// A question's place in the queue, from its making to its end. It is put to the person when its turn has come, and may
/// be put again until a line answers it.
class TypedLines::Question {
public:
    explicit Question(TypedLines& lines);
    ~Question();
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    /// Resumes when those before it have ended. False if it was dropped by then.
    [[nodiscard]] asio::awaitable<bool> turn();
    /// Nothing if it was dropped, or nobody types any more.
    [[nodiscard]] asio::awaitable<std::optional<std::string>> line();

private:
    TypedLines& lines_;
    std::shared_ptr<Place> place_;
};

} // namespace veltry
