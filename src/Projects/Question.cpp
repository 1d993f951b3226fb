#include "Projects/Question.h"

#include "Base/Text.h"
#include "Projects/JSONFields.h"

#include <algorithm>
#include <array>

namespace veltry {

namespace {

/// In the order of AgentQuestions::Status.
constexpr std::array<std::string_view, 4> statusTexts = {"open", "answered", "dismissed", "withdrawn"};
static_assert(statusTexts.size() == static_cast<std::size_t>(AgentQuestions::Status::withdrawn) + 1);

} // namespace

bool Answer::isEmpty() const
{
    return chosen.empty() && (!other || text::isBlank(*other));
}

std::string_view AgentQuestions::statusText(Status status)
{
    return statusTexts[static_cast<std::size_t>(status)];
}

std::optional<AgentQuestions::Status> AgentQuestions::parseStatus(std::string_view text)
{
    const auto found = std::ranges::find(statusTexts, text);
    if (found == statusTexts.end())
        return std::nullopt;
    return static_cast<Status>(found - statusTexts.begin());
}

JSONValue toJSON(const Question::Option& option)
{
    JSONFields fields;
    fields.set("label", option.label);
    fields.set("description", option.description);
    return fields.take();
}

JSONValue toJSON(const Question& question)
{
    JSONFields fields;
    fields.set("question", question.question);
    fields.set("detail", question.detail);
    fields.set("options", listToJSON(question.options));
    fields.set("multiSelect", question.multiSelect);
    return fields.take();
}

JSONValue toJSON(const Answer& answer)
{
    JSONFields fields;
    fields.set("chosen", JSONValue::Array(answer.chosen.begin(), answer.chosen.end()));
    fields.set("other", answer.other);
    return fields.take();
}

std::optional<Question::Option> optionFromJSON(const JSONValue& value)
{
    JSONFields fields(value);
    Question::Option option{
        .label = fields.string("label"),
        .description = fields.optional("description", &JSONFields::string),
    };
    return fields.isWhole() ? std::optional(std::move(option)) : std::nullopt;
}

std::optional<Question> questionFromJSON(const JSONValue& value)
{
    JSONFields fields(value);
    Question question{
        .question = fields.string("question"),
        .detail = fields.optional("detail", &JSONFields::string),
        .options = fields.list("options", &optionFromJSON),
        .multiSelect = fields.flag("multiSelect"),
    };
    return fields.isWhole() ? std::optional(std::move(question)) : std::nullopt;
}

std::optional<Answer> answerFromJSON(const JSONValue& value)
{
    JSONFields fields(value);
    Answer answer{
        .chosen = fields.strings("chosen"),
        .other = fields.optional("other", &JSONFields::string),
    };
    return fields.isWhole() ? std::optional(std::move(answer)) : std::nullopt;
}

} // namespace veltry
