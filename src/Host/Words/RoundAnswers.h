#pragma once

#include "Host/Terminal/Terminal.h"
#include "Projects/Question.h"

#include <cstddef>
#include <expected>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// How a person reads a round of questions and writes the answers, apart from where the words come from.
namespace veltry::RoundAnswers {

/// The question with its numbered choices, each line with its line feed and `indent` in front. `number` stands before
/// it, unless that is 0.
[[nodiscard]] std::string text(
    const Question& question, std::size_t number, std::string_view indent, const Terminal& terminal);

/// What may be typed, for a prompt: "1 to 3, or words".
[[nodiscard]] std::string prompt(const Question& question);

/// The answer that a typed line means, or what to tell the person who typed it is wrong. Numbers, parted by
/// commas or blanks, choose; "2 + words" chooses and adds words; a whole label chooses; "-" gives an empty answer;
/// anything else is an answer in words, also a number in quotes. A blank line means nothing. A number is a place, or a
/// label where there is no such place; one that is both means nothing either, and "#2" is always the place.
[[nodiscard]] std::expected<Answer, std::string> fromLine(const Question& question, std::string_view line);

/// What was kept of an answer, on one line: `SGD + "with decay"`.
[[nodiscard]] std::string kept(const Answer& answer);

/// One answer for each question from the values of --choose and --other. A choice is a number or a label. In a round of
/// several questions the question's number and a colon stand in front of each value; a label that only one question
/// offers needs none. Throws UsageError for a value that means nothing or more than one choice, for two choices where
/// one may be made, and for a question that gets no answer.
[[nodiscard]] std::vector<Answer> fromOptions(
    std::span<const Question> questions, std::span<const std::string> choices, std::span<const std::string> words);

} // namespace veltry::RoundAnswers
