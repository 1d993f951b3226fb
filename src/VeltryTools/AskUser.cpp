#include "VeltryTools/AskUser.h"

#include "Base/Text.h"
#include "Experiments/LabError.h"
#include "VeltryTools/ToolArguments.h"

#include <fmt/format.h>

#include <algorithm>

namespace veltry::AskUser {

namespace {

void refuseRepeatedLabels(const Question& question)
{
    for (auto option = question.options.begin(); option != question.options.end(); ++option)
        if (std::ranges::find(option + 1, question.options.end(), option->label, &Question::Option::label) !=
            question.options.end())
            throw LabError(
                LabError::Code::duplicateOptions, fmt::format("\"{}\" offers the same label twice.", question.question),
                {.title = question.question});
}

/// Counts the options only when all have been read, so that one without a label is told of first.
std::vector<Question::Option> readOptions(const std::string& question, const JSONValue& arguments)
{
    const JSONValue* given = arguments.find("options");
    if (!given || given->isNull())
        return {};
    const JSONValue::Array* elements = given->array();
    if (!elements)
        throw LabError(LabError::Code::invalidOptions, "options is a list of {label, description}.");
    std::vector<Question::Option> options;
    for (const JSONValue& element : *elements)
        options.push_back(
            {.label = ToolArguments::requiredString("label", element),
             .description = ToolArguments::optionalString("description", element)});
    if (options.size() > mostOptions)
        throw LabError(
            LabError::Code::tooManyOptions,
            fmt::format(
                "\"{}\" has {} options. Offer at most {}; the person can always answer in their own words.", question,
                options.size(), mostOptions),
            {.title = question, .count = std::ssize(options), .limit = mostOptions});
    return options;
}

Question readQuestion(const JSONValue& element)
{
    Question question;
    question.question = ToolArguments::requiredString("question", element);
    question.options = readOptions(question.question, element);
    refuseRepeatedLabels(question);
    question.detail = ToolArguments::optionalString("detail", element);
    question.multiSelect = ToolArguments::isExactly(true, "multi_select", element);
    return question;
}

} // namespace

std::vector<Question> questions(const JSONValue& arguments)
{
    const JSONValue* given = arguments.find("questions");
    const JSONValue::Array* elements = given ? given->array() : nullptr;
    if (!elements || elements->empty())
        throw LabError(
            LabError::Code::missingArgument, fmt::format("Pass questions: one to {} of them.", mostQuestions),
            {.name = "questions", .limit = mostQuestions});
    if (elements->size() > mostQuestions)
        throw LabError(
            LabError::Code::tooManyQuestions,
            fmt::format("Ask at most {} questions at once. Ask the rest after.", mostQuestions),
            {.count = std::ssize(*elements), .limit = mostQuestions});
    std::vector<Question> read;
    for (const JSONValue& element : *elements)
        read.push_back(readQuestion(element));
    return read;
}

std::optional<std::string> outcome(std::span<const Question> asked, const AgentQuestions& round)
{
    switch (round.status) {
    case AgentQuestions::Status::open:
        return std::nullopt;
    case AgentQuestions::Status::answered:
        return rendered(asked, round.answers.value_or(std::vector<Answer>()));
    case AgentQuestions::Status::dismissed:
        return "The person closed the questions without answering. Decide yourself, and say what you assumed.";
    case AgentQuestions::Status::withdrawn:
        return "The questions were withdrawn before an answer: the turn ended.";
    }
    return std::nullopt;
}

std::string rendered(std::span<const Question> asked, std::span<const Answer> answers)
{
    std::vector<std::string> lines;
    // Another program may have written fewer answers than there are questions.
    for (std::size_t index = 0; index < std::min(asked.size(), answers.size()); ++index) {
        const Answer& answer = answers[index];
        lines.push_back(fmt::format("{}. {}", index + 1, asked[index].question));
        if (!answer.chosen.empty())
            lines.push_back("   Chose: " + text::joined(answer.chosen, "; "));
        if (answer.other && !text::isBlank(*answer.other))
            lines.push_back(fmt::format("   In their words: {}", text::trimmed(*answer.other)));
    }
    return text::joined(lines, "\n");
}

} // namespace veltry::AskUser
