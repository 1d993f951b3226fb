#include "Host/Words/LabErrorWords.h"

#include "Base/Numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace veltry::LabErrorWords {

namespace {

using Code = LabError::Code;

/// The message itself, which names no tool.
constexpr std::string_view asTold;

struct Row {
    Code code;
    std::string_view sentence; ///< with the names of values in braces
};

/// In the order of the codes. Those of the tool server alone never come here.
constexpr Row rows[] = {
    {Code::missingOption, asTold},
    {Code::projectNotFound, asTold},
    {Code::runNotFound, "There is no run {name} in this project. veltry list shows the runs with their numbers."},
    {Code::experimentNotFound, "There is no node {name} in this project. veltry tree lists them."},
    {Code::titleRequired, asTold},
    {Code::notARepository, asTold},
    {Code::runCommandRequired, "A baseline needs the command that it and every node below it runs. Pass --command."},
    {Code::noCommits, asTold},
    {Code::runCommandInherited,
     "A child runs its parent's command: {command}. Leave --command out, and change the code on the child's branch "
     "instead."},
    {Code::branchMissing,
     "The branch {branch} is gone from the repository. If you know its last commit, git branch {branch} COMMIT brings "
     "it back."},
    {Code::gitFailed, asTold},
    {Code::tooManyRuns,
     "{going} going, and settings.toml allows {limit} at once. Wait for one with veltry wait, or allow more with "
     "veltry settings set max_runs."},
    {Code::frozen,
     "Run {run} answered {title}, so its code is fixed. Create a child with veltry create to try something else."},
    {Code::alreadyRunning,
     "Run {run} of {title} is still running. Wait for it with veltry wait, or stop it with veltry cancel."},
    {Code::telemetryInvalid, "telemetry.toml {reason}. Fix it in the node's worktree and call veltry run again."},
    {Code::launchFailed, asTold},
    {Code::missingArgument, asTold},
    {Code::unknownTool, asTold},
    {Code::tooManyQuestions, asTold},
    {Code::invalidOptions, asTold},
    {Code::tooManyOptions, asTold},
    {Code::duplicateOptions, asTold},
    {Code::noConversation, asTold},
    {Code::paperNotFound, asTold},
};

static_assert(
    std::ranges::equal(rows, wordsOf<Code>, {}, &Row::code, &Word<Code>::value),
    "every code has its sentence for a person");

} // namespace

std::string forPerson(const LabError& error)
{
    const std::string_view sentence = rows[static_cast<std::size_t>(error.code)].sentence;
    if (sentence.empty())
        return error.message;
    const LabError::Values& told = error.values;
    return fmt::format(
        fmt::runtime(sentence), fmt::arg("name", told.name), fmt::arg("title", told.title),
        fmt::arg("branch", told.branch), fmt::arg("command", told.command), fmt::arg("reason", told.reason),
        fmt::arg("run", told.run), fmt::arg("going", counted(told.count, "run is", "runs are")),
        fmt::arg("limit", told.limit));
}

} // namespace veltry::LabErrorWords
