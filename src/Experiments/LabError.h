#pragma once

#include "Base/Error.h"
#include "Base/Words.h"
#include "Experiments/Git.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace veltry {

/// A failure that its reader can mend. The message is written for an agent and names the tools by which it goes on; a
/// face for others finds its own sentence by the code and fills in the values.
///
/// The set of codes is closed. A new one needs its word below and a sentence for a person (Host/Words/LabErrorWords).
struct LabError : Error {
    enum class Code {
        missingOption,
        projectNotFound,
        runNotFound,
        experimentNotFound,
        titleRequired,
        notARepository,
        runCommandRequired,
        noCommits,
        runCommandInherited,
        branchMissing,
        gitFailed,
        tooManyRuns,
        frozen,
        alreadyRunning,
        telemetryInvalid,
        launchFailed,
        missingArgument,
        unknownTool,
        tooManyQuestions,
        invalidOptions,
        tooManyOptions,
        duplicateOptions,
        noConversation,
        paperNotFound,
    };

    /// What the message tells, one by one. An error has those that its message names; the others are empty or 0.
    struct Values {
        /// What the caller named and isn't there, as it was given: an id, a number, an option, an argument, a tool.
        std::string name{};
        /// The title of a node, or the text of a question.
        std::string title{};
        std::string branch{};
        std::string folder{};
        /// The run command, or git's.
        std::string command{};
        /// What another program or a file had to say.
        std::string reason{};
        /// The run's number.
        std::int64_t run = 0;
        std::int64_t count = 0;
        std::int64_t limit = 0;
    };

    LabError(Code what, std::string text);
    LabError(Code what, std::string text, Values told);

    /// How a failure of git reaches an agent: git_failed, with the command and what git said.
    [[nodiscard]] static LabError of(const Git::Failure& failure);

    /// "<the code's word>: <message>".
    [[nodiscard]] std::string description() const override;

    Code code;
    std::string message;
    Values values;
};

/// The words are stable.
template <>
inline constexpr auto wordsOf<LabError::Code> = std::to_array<Word<LabError::Code>>({
    {LabError::Code::missingOption, "missing_option"},
    {LabError::Code::projectNotFound, "project_not_found"},
    {LabError::Code::runNotFound, "run_not_found"},
    {LabError::Code::experimentNotFound, "experiment_not_found"},
    {LabError::Code::titleRequired, "title_required"},
    {LabError::Code::notARepository, "not_a_repository"},
    {LabError::Code::runCommandRequired, "run_command_required"},
    {LabError::Code::noCommits, "no_commits"},
    {LabError::Code::runCommandInherited, "run_command_inherited"},
    {LabError::Code::branchMissing, "branch_missing"},
    {LabError::Code::gitFailed, "git_failed"},
    {LabError::Code::tooManyRuns, "too_many_runs"},
    {LabError::Code::frozen, "frozen"},
    {LabError::Code::alreadyRunning, "already_running"},
    {LabError::Code::telemetryInvalid, "telemetry_invalid"},
    {LabError::Code::launchFailed, "launch_failed"},
    {LabError::Code::missingArgument, "missing_argument"},
    {LabError::Code::unknownTool, "unknown_tool"},
    {LabError::Code::tooManyQuestions, "too_many_questions"},
    {LabError::Code::invalidOptions, "invalid_options"},
    {LabError::Code::tooManyOptions, "too_many_options"},
    {LabError::Code::duplicateOptions, "duplicate_options"},
    {LabError::Code::noConversation, "no_conversation"},
    {LabError::Code::paperNotFound, "paper_not_found"},
});

} // namespace veltry
