#include "Base/JSONValue.h"
#include "Base/Text.h"
#include "Experiments/Telemetry/TelemetryLayout.h"
#include "Platform/Files.h"
#include "Projects/ProjectStore.h"
#include "Support/McpProcess.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/// Someone without a project yet.
class NewTest : public testing::Test {
protected:
    ChildProcess::Output veltry(
        const std::vector<std::string>& arguments, const std::filesystem::path& directory,
        ChildProcess::Environment environment = {}) const
    {
        environment.insert({{"XDG_DATA_HOME", (home_ / "data").string()}, {"HOME", home_.path().string()}});
        return test::runProgram(test::hostProgram(), arguments, environment, directory);
    }

    std::vector<std::string> names(const std::filesystem::path& folder) const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            names.push_back(entry.path().filename());
        return names;
    }

    test::TemporaryFolder home_;
};

TEST_F(NewTest, GoesFromATemplateToAResultByCommandsAlone)
{
    const ChildProcess::Output made =
        veltry({"new", "Digits: 10", "--template", "python-baseline", "--in", "code"}, home_.path());
    ASSERT_EQ(made.exitNumber, 0) << made.error;
    EXPECT_TRUE(JSONValue::parse(made.output).find("mcpServers"));
    const std::filesystem::path folder = home_ / "code/Digits- 10";

    for (const std::vector<std::string>& step : std::vector<std::vector<std::string>>{
             {"create", "Baseline", "--command", "python3 train.py"}, {"run", "baseline"}, {"wait"}}) {
        const ChildProcess::Output output = veltry(step, folder);
        EXPECT_EQ(output.exitNumber, 0) << output.error;
    }
    ProjectStore store(home_ / "data/Harrowick Veltry/veltry.sqlite");
    const Project project = store.projects().at(0);
    EXPECT_EQ(project.name, "Digits: 10");
    const veltry::Run run = store.runs(project.id).at(0);
    ASSERT_TRUE(run.result) << Files::read(run.log());
    const JSONValue result = JSONValue::parse(*run.result);
    ASSERT_TRUE(result.find("test_accuracy")->number());
    EXPECT_GT(*result.find("test_accuracy")->number(), 0.9);

    // The template's telemetry is what its layout draws.
    EXPECT_TRUE(TelemetryLayout::read(run.source()));
    const std::string telemetry = Files::read(run.telemetryFile());
    const JSONValue point = JSONValue::parse(text::split(telemetry, '\n').front());
    for (const char* set : {"train", "test"})
        for (const char* key : {"loss", "accuracy"})
            EXPECT_TRUE(point.find(set)->find(key)->number()) << set << "." << key;
}

TEST_F(NewTest, BeginsPlainlyUnderTheHomeFolderAndOnTheBranchThatGitIsSetTo)
{
    ASSERT_EQ(veltry({"new", "Digits"}, "/").exitNumber, 0);
    const ChildProcess::Output second = veltry(
        {"new", "Digits"}, "/",
        {{"GIT_CONFIG_COUNT", "1"}, {"GIT_CONFIG_KEY_0", "init.defaultBranch"}, {"GIT_CONFIG_VALUE_0", "trunk"}});
    ASSERT_EQ(second.exitNumber, 0) << second.error;
    EXPECT_EQ(Files::read(home_ / "HarrowickVeltry/Digits/.git/HEAD"), "ref: refs/heads/main\n");
    EXPECT_EQ(Files::read(home_ / "HarrowickVeltry/Digits 2/.git/HEAD"), "ref: refs/heads/trunk\n");
    EXPECT_TRUE(Files::exists(home_ / "HarrowickVeltry/Digits 2/.git/refs/heads/trunk"));
}

TEST_F(NewTest, LeavesNothingBehindWhereItCanNotBegin)
{
    Files::writeAtomically(home_ / "file", "");
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    } cases[] = {
        {{"new", " "}, 2, "The title is blank."},
        {{"new", "A", "--template", "python-base", "--in", "code"},
         1,
         "There is no template python-base. Did you mean python-baseline"},
        {{"new", "A", "--template", "../x", "--in", "code"},
         1,
         "These are there: empty, python-baseline, pytorch-baseline."},
        {{"new", "A", "--in", "file"}, 1, "is not a folder"},
        {{"new", "A", "--in", "code/.veltry/worktrees/node"}, 1, "belongs to an experiment"},
        {{"new", "A", "--in", "code", "--db", "file"}, 1, "file"},
    };
    Files::writeAtomically(home_ / "file", "no store");
    for (const auto& c : cases) {
        const ChildProcess::Output output = veltry(c.arguments, home_.path());
        EXPECT_EQ(output.exitNumber, c.status) << output.error;
        EXPECT_THAT(output.error, HasSubstr(c.message));
    }
    EXPECT_THAT(Files::exists(home_ / "code") ? names(home_ / "code") : std::vector<std::string>(), IsEmpty());
    EXPECT_EQ(Files::read(home_ / "file"), "no store");
}

TEST_F(NewTest, SaysWhatIsLeftToDoWhereGitRefusesTheFirstCommit)
{
    const ChildProcess::Output output = veltry(
        {"new", "Signed"}, "/",
        {{"GIT_CONFIG_COUNT", "2"},
         {"GIT_CONFIG_KEY_0", "commit.gpgsign"},
         {"GIT_CONFIG_VALUE_0", "true"},
         {"GIT_CONFIG_KEY_1", "gpg.program"},
         {"GIT_CONFIG_VALUE_1", "/bin/false"}});
    EXPECT_EQ(output.exitNumber, 1);
    EXPECT_THAT(output.error, HasSubstr("git could not make the first commit: "));
    EXPECT_THAT(output.error, HasSubstr("Signed stays as it is; commit there, then register it: veltry init."));
    EXPECT_TRUE(Files::exists(home_ / "HarrowickVeltry/Signed/README.md"));
}

TEST_F(NewTest, FilesListsTheProjectAsPeopleLookForThings)
{
    ASSERT_EQ(veltry({"new", "Digits"}, "/").exitNumber, 0);
    const std::filesystem::path folder = home_ / "HarrowickVeltry/Digits";
    Files::createFolders(folder / "src/deep");
    for (const char* name : {"run10.py", "run9.py", "a\033[2J"})
        Files::writeAtomically(folder / "src" / name, "");
    EXPECT_EQ(veltry({"files"}, folder / "src/deep").output, "src/\n.gitignore\nREADME.md\n");
    EXPECT_EQ(veltry({"files", "src"}, folder).output, "deep/\na\xEF\xBF\xBD[2J\nrun9.py\nrun10.py\n");
    const JSONValue listed = JSONValue::parse(veltry({"files", "--json", "--project", "Digits"}, "/").output);
    EXPECT_EQ(listed.array()->front(), JSONValue::object({{"url", (folder / "src").string()}, {"isDirectory", true}}));
    EXPECT_THAT(veltry({"files", "none"}, folder).error, HasSubstr("none: No such file or directory"));
}

} // namespace
} // namespace veltry
