#include "Host/Words/LabErrorWords.h"

#include <gtest/gtest.h>

namespace veltry {
namespace {

using Code = LabError::Code;

TEST(LabErrorWords, TellAPersonOfCommandsNotOfTools)
{
    const struct {
        Code code;
        LabError::Values values;
        std::string_view sentence;
    } cases[] = {
        {Code::experimentNotFound, {.name = "7F"}, "There is no node 7F in this project. veltry tree lists them."},
        {Code::branchMissing,
         {.branch = "veltry/a"},
         "The branch veltry/a is gone from the repository. If you know its last commit, git branch veltry/a COMMIT "
         "brings it back."},
        {Code::tooManyRuns,
         {.count = 1, .limit = 1},
         "1 run is going, and settings.toml allows 1 at once. Wait for one with veltry wait, or allow more with veltry "
         "settings set max_runs."},
        {Code::alreadyRunning,
         {.title = "{run} of _", .run = 3},
         "Run 3 of {run} of _ is still running. Wait for it with veltry wait, or stop it with veltry cancel."},
        {Code::telemetryInvalid,
         {.reason = "has no charts"},
         "telemetry.toml has no charts. Fix it in the node's worktree and call veltry run again."},
        {Code::gitFailed, {}, "as told"},
    };
    for (const auto& [code, values, sentence] : cases)
        EXPECT_EQ(LabErrorWords::forPerson(LabError(code, "as told", values)), sentence);
    for (const auto& [code, word] : wordsOf<Code>)
        EXPECT_FALSE(LabErrorWords::forPerson(LabError(code, "as told")).contains("experiment_")) << word;
}

} // namespace
} // namespace veltry
