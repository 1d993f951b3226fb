#pragma once

#include "Base/Date.h"
#include "Base/JSONValue.h"
#include "Base/UUID.h"

#include <optional>
#include <string>
#include <string_view>
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

    /// The stored text of a status: its own name.
    [[nodiscard]] static std::string_view statusText(Status status);
    /// Nothing for a text that isn't one of the four, such as one of a later version.
    [[nodiscard]] static std::optional<Status> parseStatus(std::string_view text);

    friend bool operator==(const AgentQuestions&, const AgentQuestions&) = default;
};

/// Objects with the names of the fields as keys, absent ones left out: the forms that the store keeps.
[[nodiscard]] JSONValue toJSON(const Question::Option& option);
[[nodiscard]] JSONValue toJSON(const Question& question);
[[nodiscard]] JSONValue toJSON(const Answer& answer);

/// Nothing if a key that toJSON() always writes is missing, or any known one is of another type. An optional one that
/// is null counts as absent.
[[nodiscard]] std::optional<Question::Option> optionFromJSON(const JSONValue& value);
[[nodiscard]] std::optional<Question> questionFromJSON(const JSONValue& value);
[[nodiscard]] std::optional<Answer> answerFromJSON(const JSONValue& value);

} // namespace veltry
