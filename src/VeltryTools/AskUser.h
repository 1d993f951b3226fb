#pragma once

#include "Base/JSONValue.h"
#include "Projects/Question.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// How ask_user reads its arguments, and what it answers with. LabTools does the waiting.
namespace veltry::AskUser {

constexpr std::size_t mostQuestions = 4; ///< in one round
constexpr std::size_t mostOptions = 4;   ///< of one question

/// The questions of a call. They are read in their order, and the first fault is thrown as a LabError that tells the
/// agent what to pass.
[[nodiscard]] std::vector<Question> questions(const JSONValue& arguments);

/// How a round ended, for the agent that asked these questions; nothing while it is open.
[[nodiscard]] std::optional<std::string> outcome(std::span<const Question> asked, const AgentQuestions& round);

/// Each question, numbered, with what the person picked and typed. Questions and answers go together by position, and
/// those without a partner are left out.
[[nodiscard]] std::string rendered(std::span<const Question> asked, std::span<const Answer> answers);

/// The answer of a call that waited in vain. The next one with the same questions finds the same round.
constexpr std::string_view noAnswerYet =
    "No answer yet. The questions are still on screen. Call ask_user again with the same questions to keep waiting.";

} // namespace veltry::AskUser
