#include "Host/Words/RoundAnswers.h"

#include "Base/Text.h"
#include "Host/Refusal.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace veltry::RoundAnswers {

namespace {

/// An agent's text with its own lines, the first after `first` and the others set in as far.
std::string lines(std::string_view given, std::string_view first, const Terminal& terminal, Style style = Style::plain)
{
    const std::string others(first.size(), ' ');
    std::string text;
    for (const std::string_view line : text::split(text::trimmed(given), '\n'))
        text += fmt::format(
            "{}{}\n", text.empty() ? first : others, terminal.styled(style, text::oneLine(text::trimmed(line))));
    return text;
}

/// A label as a person sees it, and so as it may be typed.
std::string shown(const std::string& label)
{
    return text::lowercased(text::trimmed(text::oneLine(label)));
}

/// The option of that label; letter case counts only where two differ by nothing else.
std::optional<std::size_t> optionLabelled(const Question& question, std::string_view given)
{
    std::optional<std::size_t> found;
    std::size_t count = 0;
    const std::string wanted = shown(std::string(given));
    for (std::size_t index = 0; index < question.options.size(); ++index) {
        if (question.options[index].label == given)
            return index;
        if (!wanted.empty() && shown(question.options[index].label) == wanted) {
            found = index;
            ++count;
        }
    }
    return count == 1 ? found : std::nullopt;
}

std::optional<std::size_t> optionNumbered(const Question& question, std::string_view given)
{
    const std::optional<std::int64_t> number = text::integer(given);
    const auto count = static_cast<std::int64_t>(question.options.size());
    return number && *number >= 1 && *number <= count ? std::optional(static_cast<std::size_t>(*number - 1))
                                                      : std::nullopt;
}

/// A label that looks like a number counts before the number.
std::optional<std::size_t> option(const Question& question, std::string_view given)
{
    const std::optional<std::size_t> labelled = optionLabelled(question, given);
    return labelled ? labelled : optionNumbered(question, text::trimmed(given));
}

/// Once, and in the order of the options: as the choices of a form come.
void choose(Answer& answer, const Question& question, std::size_t index)
{
    std::vector<std::string> chosen;
    for (std::size_t place = 0; place < question.options.size(); ++place) {
        const std::string& label = question.options[place].label;
        if (place == index || std::ranges::find(answer.chosen, label) != answer.chosen.end())
            chosen.push_back(label);
    }
    answer.chosen = std::move(chosen);
}

/// The pieces between commas and blanks, if all of them are numbers.
std::vector<std::string_view> numbers(std::string_view given)
{
    std::vector<std::string_view> pieces;
    for (const std::string_view part : text::split(given, ','))
        for (const std::string_view piece : text::split(part, ' ')) {
            if (text::isBlank(piece))
                continue;
            if (!text::integer(text::trimmed(piece)))
                return {};
            pieces.push_back(text::trimmed(piece));
        }
    return pieces;
}

std::expected<Answer, std::string> choiceOfNumbers(const Question& question, const std::vector<std::string_view>& given)
{
    Answer answer;
    for (const std::string_view number : given) {
        const std::optional<std::size_t> index = optionNumbered(question, number);
        if (!index)
            return std::unexpected(fmt::format(
                "There is no choice {0}. Type {1}; a number as your own words goes in quotes: \"{0}\".", number,
                prompt(question)));
        choose(answer, question, *index);
    }
    if (answer.chosen.size() > 1 && !question.multiSelect)
        return std::unexpected(std::string("Only one may be chosen."));
    return answer;
}

/// A value of --choose or --other, and the question that it is for, if it names one.
struct Value {
    std::optional<std::size_t> question;
    std::string_view text;
};

/// "2:words" in a round of several questions; "1:words" may stand in a round of one too.
Value split(std::span<const Question> questions, std::string_view given)
{
    const std::size_t colon = given.find(':');
    const std::optional<std::int64_t> number =
        colon == std::string_view::npos ? std::nullopt : text::integer(given.substr(0, colon));
    if (!number || *number < 1 || *number > static_cast<std::int64_t>(questions.size()))
        return {.question = {}, .text = given};
    return {.question = static_cast<std::size_t>(*number - 1), .text = given.substr(colon + 1)};
}

void applyChoice(std::span<const Question> questions, std::vector<Answer>& answers, std::string_view given)
{
    const auto add = [&](std::size_t question, std::size_t index) {
        choose(answers[question], questions[question], index);
    };
    // What the whole value means comes first: a label may begin with a number and a colon.
    std::vector<std::size_t> offering;
    for (std::size_t index = 0; index < questions.size(); ++index)
        if (questions.size() == 1 ? option(questions[index], given) : optionLabelled(questions[index], given))
            offering.push_back(index);
    if (offering.size() == 1)
        return add(offering[0], *option(questions[offering[0]], given));
    const Value value = split(questions, given);
    if (value.question)
        if (const auto index = option(questions[*value.question], value.text))
            return add(*value.question, *index);
    throw UsageError(
        questions.size() == 1
            ? fmt::format("\"{}\" isn't a choice of the question. veltry questions shows them.", given)
            : fmt::format(
                  "\"{}\" isn't a choice. In a round of {} questions write the question's number in front: 2:1 or "
                  "2:LABEL.",
                  given, questions.size()));
}

} // namespace

std::string text(const Question& question, std::size_t number, std::string_view indent, const Terminal& terminal)
{
    const std::string first = number == 0 ? std::string(indent) : fmt::format("{}{}. ", indent, number);
    const std::string inner(first.size(), ' ');
    std::string text = lines(question.question, first, terminal, Style::bold);
    if (question.detail)
        text += lines(*question.detail, inner, terminal, Style::dim);
    for (std::size_t index = 0; index < question.options.size(); ++index) {
        const Question::Option& option = question.options[index];
        text += lines(option.label, fmt::format("{}  {}  ", inner, index + 1), terminal);
        if (option.description)
            text += lines(*option.description, inner + "     ", terminal, Style::dim);
    }
    return text;
}

std::string prompt(const Question& question)
{
    const std::size_t count = question.options.size();
    if (count == 0)
        return "words";
    if (count == 1)
        return "1, or words";
    return fmt::format("1 to {}{}, or words", count, question.multiSelect ? ", several with commas" : "");
}

std::expected<Answer, std::string> fromLine(const Question& question, std::string_view line)
{
    const std::string_view given = text::trimmed(line);
    if (given.empty())
        return std::unexpected(fmt::format("Type {}; - leaves the question without an answer.", prompt(question)));
    if (given == "-")
        return Answer();
    if (const std::optional<std::size_t> labelled = optionLabelled(question, given))
        return Answer{.chosen = {question.options[*labelled].label}, .other = {}};
    if (given.size() > 2 && given.front() == '"' && given.back() == '"')
        return Answer{.chosen = {}, .other = std::string(given.substr(1, given.size() - 2))};
    const std::size_t plus = given.find('+');
    const std::vector<std::string_view> chosen = numbers(given.substr(0, plus));
    if (question.options.empty() || chosen.empty())
        return Answer{.chosen = {}, .other = std::string(given)};
    std::expected<Answer, std::string> answer = choiceOfNumbers(question, chosen);
    if (answer && plus != std::string_view::npos && !text::isBlank(given.substr(plus + 1)))
        answer->other = std::string(text::trimmed(given.substr(plus + 1)));
    return answer;
}

std::vector<Answer> fromOptions(
    std::span<const Question> questions, std::span<const std::string> choices, std::span<const std::string> words)
{
    std::vector<Answer> answers(questions.size());
    for (const std::string& given : choices)
        applyChoice(questions, answers, given);
    for (const std::string& given : words) {
        const Value value = questions.size() == 1 ? Value{.question = 0, .text = given} : split(questions, given);
        if (!value.question)
            throw UsageError(fmt::format(
                "Which question is \"{}\" for? In a round of {} questions write its number in front: --other \"2:…\".",
                given, questions.size()));
        std::optional<std::string>& other = answers[*value.question].other;
        other = other ? *other + "\n" + std::string(value.text) : std::string(value.text);
    }
    for (std::size_t index = 0; index < questions.size(); ++index) {
        if (answers[index].chosen.size() > 1 && !questions[index].multiSelect)
            throw UsageError(
                fmt::format("Question {} takes one choice, not {}.", index + 1, answers[index].chosen.size()));
        if (answers[index].isEmpty())
            throw UsageError(fmt::format(
                "Question {} has no answer. Give one with --choose or --other, or call veltry answer without both.",
                index + 1));
    }
    return answers;
}

} // namespace veltry::RoundAnswers
