#pragma once

#include "Base/Date.h"
#include "Base/JSONValue.h"
#include "Base/UUID.h"
#include "Base/Words.h"

#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// One question of a round, with the answers that it offers. The person can always answer in words instead.
struct Question {
    struct Option {
        std::string label;
        std::optional<std::string> description{}; ///< what picking it means

        friend bool operator==(const Option&, const Option&) = default;
    };

    std::string question;
    std::optional<std::string> detail{}; ///< a short line below the question
    std::vector<Option> options{};       ///< may be empty: then an answer in words is asked for
    bool multiSelect = false;            ///< whether more than one option may be picked

    friend bool operator==(const Question&, const Question&) = default;
};

/// The person's answer to one question.
struct Answer {
    std::vector<std::string> chosen{};  ///< the labels that were picked
    std::optional<std::string> other{}; ///< free text

    /// True if nothing was picked and nothing but white space was typed.
    [[nodiscard]] bool isEmpty() const;

    friend bool operator==(const Answer&, const Answer&) = default;
};

/// A round of questions that an agent puts to the person of its conversation. It is open until one of the two sides
/// closes it, and never opens again.
struct AgentQuestions {
    enum class Status {
        open,      ///< waiting for the person
        answered,  ///< the person answered
        dismissed, ///< the person declined to answer
        withdrawn, ///< the asking side took the round back
    };

    UUID id;
    UUID conversationID;
    std::vector<Question> questions;
    /// One for each question, in their order; none until the round is answered, and none if the store's text of them is
    /// damaged.
    std::optional<std::vector<Answer>> answers;
    Status status = Status::open;
    Date askedAt;

    friend bool operator==(const AgentQuestions&, const AgentQuestions&) = default;
};

/// As it is stored.
template <>
inline constexpr auto wordsOf<AgentQuestions::Status> = std::to_array<Word<AgentQuestions::Status>>({
    {AgentQuestions::Status::open, "open"},
    {AgentQuestions::Status::answered, "answered"},
    {AgentQuestions::Status::dismissed, "dismissed"},
    {AgentQuestions::Status::withdrawn, "withdrawn"},
});

/// The forms that the store keeps: lists of objects with the names of the fields as keys, absent ones left out.
[[nodiscard]] JSONValue toJSON(const std::vector<Question>& questions);
[[nodiscard]] JSONValue toJSON(const std::vector<Answer>& answers);

} // namespace veltry
