#include "Host/Words/RoundAnswers.h"

#include "Base/Text.h"
#include "Host/Refusal.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

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

/// "2", or "#2" where nothing but a place is meant.
bool isNumber(std::string_view given)
{
    return text::integer(given.starts_with('#') ? given.substr(1) : given).has_value();
}

std::optional<std::size_t> optionNumbered(const Question& question, std::string_view given)
{
    const std::optional<std::int64_t> number = text::integer(given.starts_with('#') ? given.substr(1) : given);
    const auto count = static_cast<std::int64_t>(question.options.size());
    return number && *number >= 1 && *number <= count ? std::optional(static_cast<std::size_t>(*number - 1))
                                                      : std::nullopt;
}

/// The options that `given` may mean: the one of that label, and the one at that place. Labels may be numbers too.
std::set<std::size_t> optionsMeant(const Question& question, std::string_view given)
{
    std::set<std::size_t> meant;
    const std::optional<std::size_t> labelled = optionLabelled(question, given);
    if (labelled)
        meant.insert(*labelled);
    const std::string_view number = text::trimmed(given);
    // A place by "#2" alone is what somebody writes who was asked, unless that is a label itself.
    if (!labelled || !number.starts_with('#'))
        if (const std::optional<std::size_t> placed = optionNumbered(question, number))
            meant.insert(*placed);
    return meant;
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
            if (!isNumber(text::trimmed(piece)))
                return {};
            pieces.push_back(text::trimmed(piece));
        }
    return pieces;
}

/// `#1 for "2" or #2 for "4"`
std::string placesText(const Question& question, const std::set<std::size_t>& places)
{
    std::string text;
    for (const std::size_t place : places)
        text += fmt::format(
            "{}#{} for {}", text.empty() ? "" : " or ", place + 1,
            text::quoted(text::oneLine(question.options[place].label)));
    return text;
}

std::string severalMeant(std::string_view given, std::string_view whatToWrite)
{
    return fmt::format("{} is one choice's number and another's label. Write {}.", given, whatToWrite);
}

std::expected<Answer, std::string> choiceOfNumbers(const Question& question, const std::vector<std::string_view>& given)
{
    Answer answer;
    for (const std::string_view number : given) {
        const std::set<std::size_t> meant = optionsMeant(question, number);
        if (meant.empty())
            return std::unexpected(fmt::format(
                "There is no choice {0}. Type {1}; a number as your own words goes in quotes: \"{0}\".", number,
                prompt(question)));
        if (meant.size() > 1)
            return std::unexpected(severalMeant(number, placesText(question, meant)));
        choose(answer, question, *meant.begin());
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
    // Of the whole value and of what may follow a question's number: a label may begin with a number and a colon.
    std::set<std::pair<std::size_t, std::size_t>> meant;
    const auto add = [&](std::size_t question, const std::set<std::size_t>& options) {
        for (const std::size_t option : options)
            meant.emplace(question, option);
    };
    if (questions.size() == 1)
        add(0, optionsMeant(questions[0], given));
    else
        for (std::size_t index = 0; index < questions.size(); ++index)
            if (const std::optional<std::size_t> labelled = optionLabelled(questions[index], given))
                add(index, {*labelled});
    if (const Value value = split(questions, given); value.question)
        add(*value.question, optionsMeant(questions[*value.question], value.text));
    if (meant.size() == 1)
        return choose(answers[meant.begin()->first], questions[meant.begin()->first], meant.begin()->second);
    if (meant.empty())
        throw UsageError(
            questions.size() == 1
                ? fmt::format("\"{}\" isn't a choice of the question. veltry questions shows them.", given)
                : fmt::format(
                      "\"{}\" isn't a choice. In a round of {} questions write the question's number in front: 2:1 or "
                      "2:LABEL.",
                      given, questions.size()));
    std::string choices;
    for (const auto& [question, option] : meant)
        choices += fmt::format(
            "{}{}:#{} for {}", choices.empty() ? "" : " or ", question + 1, option + 1,
            text::quoted(text::oneLine(questions[question].options[option].label)));
    throw UsageError(fmt::format("--choose {} may mean several choices. Write {}.", given, choices));
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
    const std::size_t plus = given.find('+');
    const std::vector<std::string_view> chosen = numbers(given.substr(0, plus));
    const bool isOneNumber = chosen.size() == 1 && plus == std::string_view::npos;
    if (const std::optional<std::size_t> labelled = optionLabelled(question, given); labelled && !isOneNumber) {
        if (plus == std::string_view::npos && !chosen.empty())
            if (const auto places = choiceOfNumbers(question, chosen))
                return std::unexpected(fmt::format(
                    "{} is a label and a list of numbers. Write {}, or the numbers with # in front.", given,
                    placesText(question, {*labelled})));
        return Answer{.chosen = {question.options[*labelled].label}, .other = {}};
    }
    if (given.size() > 2 && given.front() == '"' && given.back() == '"')
        return Answer{.chosen = {}, .other = std::string(given.substr(1, given.size() - 2))};
    if (question.options.empty() || chosen.empty())
        return Answer{.chosen = {}, .other = std::string(given)};
    std::expected<Answer, std::string> answer = choiceOfNumbers(question, chosen);
    if (answer && plus != std::string_view::npos && !text::isBlank(given.substr(plus + 1)))
        answer->other = std::string(text::trimmed(given.substr(plus + 1)));
    return answer;
}

std::string kept(const Answer& answer)
{
    std::string text;
    for (const std::string& label : answer.chosen)
        text += (text.empty() ? "" : ", ") + text::oneLine(text::trimmed(label));
    if (answer.other)
        text += (text.empty() ? "" : " + ") + text::quoted(text::oneLine(*answer.other));
    return text.empty() ? "no answer" : text;
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
